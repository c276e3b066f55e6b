#pragma once

// The names of one directory as the file system lists them, with the type
// that the listing reports for each (d_type: DT_DIR, DT_REG, DT_LNK,
// DT_UNKNOWN ...). "." and ".." are left out; the order is the file system's.
//
// Completion keeps one listing per address bar and filters it on every
// keystroke, so the layout is compact and scan-friendly: all names back to
// back in one byte buffer, one 32-bit offset and one type byte per name.
// Names are bytes: nothing here requires or checks UTF-8.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace jorvane {

class DirectoryListing {
public:
    // Lists `path` (relative paths are relative to the working directory)
    // with getdents64. Nothing when the path cannot be opened as a directory
    // or the listing fails part-way (missing, no permission, not a directory,
    // a NUL byte in the path).
    static std::optional<DirectoryListing> read(const std::string& path);
    // A listing of the given names, all of one type (sources other than a
    // local directory, tests).
    static DirectoryListing fromNames(const std::vector<std::string>& names, unsigned char type);

    DirectoryListing() = default;
    DirectoryListing(DirectoryListing&& other) noexcept { swap(other); }
    DirectoryListing& operator=(DirectoryListing&& other) noexcept {
        DirectoryListing(std::move(other)).swap(*this);
        return *this;
    }
    DirectoryListing(const DirectoryListing&) = delete;
    DirectoryListing& operator=(const DirectoryListing&) = delete;
    ~DirectoryListing();

    std::size_t size() const { return count_; }
    bool empty() const { return count_ == 0; }
    std::string_view name(std::size_t i) const {
        return {names_ + offsets_[i], static_cast<std::size_t>(offsets_[i + 1] - offsets_[i])};
    }
    // The d_type the listing gave (DT_UNKNOWN when the file system does not say).
    unsigned char type(std::size_t i) const { return types_[i] & typeMask; }
    // Whether the name is plain ASCII (no byte above 0x7F), which lets
    // matching skip Unicode case folding.
    bool isAscii(std::size_t i) const { return (types_[i] & nonAsciiBit) == 0; }

    // Replaces the type of entry i (a reader that looked an entry up).
    void setType(std::size_t i, unsigned char type) {
        types_[i] = static_cast<unsigned char>((types_[i] & nonAsciiBit) | (type & typeMask));
    }
    // The type of an entry whose lookup failed (a dangling link, a folder we
    // may not search): d_type values stop at 14.
    static constexpr unsigned char lookupFailed = 15;

    // Whether the process could search the directory (look up its entries)
    // when it was listed. A directory that is readable but not searchable
    // lists its names, yet every lookup of an entry fails.
    bool searchable() const { return searchable_; }

    // Heap bytes held by the listing.
    std::size_t bytesHeld() const;

    void swap(DirectoryListing& other) noexcept {
        std::swap(names_, other.names_);
        std::swap(offsets_, other.offsets_);
        std::swap(types_, other.types_);
        std::swap(count_, other.count_);
        std::swap(namesSize_, other.namesSize_);
        std::swap(searchable_, other.searchable_);
    }

private:
    friend class DirectoryReader;
    // d_type values are below 16; the top bit of the type byte marks names
    // with bytes above 0x7F.
    static constexpr unsigned char typeMask = 0x7F;
    static constexpr unsigned char nonAsciiBit = 0x80;

    char* names_ = nullptr;
    std::uint32_t* offsets_ = nullptr;  // count_ + 1 entries: name i is [offsets_[i], offsets_[i + 1])
    unsigned char* types_ = nullptr;
    std::size_t count_ = 0;
    std::size_t namesSize_ = 0;
    bool searchable_ = true;
};

// Reads one directory a batch at a time, so that a caller can use the first
// names of a huge or slow folder while the rest is still being read.
class DirectoryReader {
public:
    enum class Status { more, finished, failed };

    // Nothing when the path cannot be opened as a directory.
    static std::optional<DirectoryReader> open(const std::string& path);

    DirectoryReader(DirectoryReader&& other) noexcept;
    DirectoryReader& operator=(DirectoryReader&&) = delete;
    DirectoryReader(const DirectoryReader&) = delete;
    DirectoryReader& operator=(const DirectoryReader&) = delete;
    ~DirectoryReader();

    // Reads on until about `byteBudget` bytes of names are in `batch` (at
    // least one kernel read's worth) or the directory ends. `batch` is
    // replaced. After `finished` or `failed` there is nothing more to read;
    // a failed read leaves `batch` empty.
    Status readBatch(DirectoryListing& batch, std::size_t byteBudget);

    bool searchable() const { return searchable_; }

private:
    DirectoryReader(int fd, bool searchable);
    int fd_ = -1;
    char* buffer_ = nullptr;
    bool searchable_ = true;
};

}  // namespace jorvane
