#include "addressbar/DirectoryListing.h"

#include "addressbar/NameFilter.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>

namespace jorvane {

namespace {

// getdents64 fills the buffer with records laid out as struct linux_dirent64:
// u64 inode, s64 offset, u16 record length, u8 type, then the NUL-terminated
// name padded to 8 bytes. The smallest record is 24 bytes.
constexpr std::size_t direntRecordLengthOffset = 16;
constexpr std::size_t direntTypeOffset = 18;
constexpr std::size_t direntNameOffset = 19;
constexpr std::size_t direntMinimumRecord = 24;

// 64 KiB keeps the kernel's output in the L2 cache while we copy the names
// out; larger buffers saved no measurable time on a million entries.
constexpr std::size_t readBufferSize = 64 * 1024;

// A growable array of plain values on malloc/realloc: large blocks grow by
// remapping pages instead of copying, which matters for a million names.
template <class T>
struct RawArray {
    T* data = nullptr;
    std::size_t size = 0;
    std::size_t capacity = 0;

    RawArray() = default;
    RawArray(const RawArray&) = delete;
    RawArray& operator=(const RawArray&) = delete;
    ~RawArray() { std::free(data); }

    bool reserve(std::size_t wanted) {
        if (wanted <= capacity) return true;
        std::size_t grown = std::max({wanted, capacity * 2, 4096 / sizeof(T)});
        void* p = std::realloc(data, grown * sizeof(T));
        if (!p) return false;
        data = static_cast<T*>(p);
        capacity = grown;
        return true;
    }
    // Gives back the unused tail; keeps the block as it is if that fails.
    void shrinkToFit() {
        if (size == capacity || size == 0) return;
        if (void* p = std::realloc(data, size * sizeof(T))) {
            data = static_cast<T*>(p);
            capacity = size;
        }
    }
    T* release() { return std::exchange(data, nullptr); }
};

}  // namespace

DirectoryListing::~DirectoryListing() {
    std::free(names_);
    std::free(offsets_);
    std::free(types_);
}

std::size_t DirectoryListing::bytesHeld() const {
    if (!offsets_) return 0;
    return namesSize_ + (count_ + 1) * sizeof(std::uint32_t) + count_;
}

std::optional<DirectoryListing> DirectoryListing::read(const std::string& path) {
    std::optional<DirectoryReader> reader = DirectoryReader::open(path);
    if (!reader) return std::nullopt;
    DirectoryListing listing;
    if (reader->readBatch(listing, std::numeric_limits<std::size_t>::max()) != DirectoryReader::Status::finished)
        return std::nullopt;
    return listing;
}

DirectoryListing DirectoryListing::fromNames(const std::vector<std::string>& names, unsigned char type) {
    DirectoryListing listing;
    std::size_t bytes = 0;
    for (const std::string& name : names) bytes += name.size();
    listing.names_ = static_cast<char*>(std::malloc(std::max<std::size_t>(bytes, 1)));
    listing.offsets_ = static_cast<std::uint32_t*>(std::malloc((names.size() + 1) * sizeof(std::uint32_t)));
    listing.types_ = static_cast<unsigned char*>(std::malloc(std::max<std::size_t>(names.size(), 1)));
    if (!listing.names_ || !listing.offsets_ || !listing.types_) return DirectoryListing();
    listing.offsets_[0] = 0;
    std::size_t at = 0;
    for (std::size_t i = 0; i < names.size(); ++i) {
        std::memcpy(listing.names_ + at, names[i].data(), names[i].size());
        at += names[i].size();
        listing.offsets_[i + 1] = static_cast<std::uint32_t>(at);
        listing.types_[i] = static_cast<unsigned char>((type & typeMask) | (isAsciiText(names[i]) ? 0 : nonAsciiBit));
    }
    listing.count_ = names.size();
    listing.namesSize_ = bytes;
    return listing;
}

std::optional<DirectoryReader> DirectoryReader::open(const std::string& path) {
    if (path.empty() || path.find('\0') != std::string::npos) return std::nullopt;
    const int fd = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) return std::nullopt;
    DirectoryReader reader(fd, ::faccessat(AT_FDCWD, path.c_str(), X_OK, AT_EACCESS) == 0);
    if (!reader.buffer_) return std::nullopt;
    return reader;
}

DirectoryReader::DirectoryReader(int fd, bool searchable)
    : fd_(fd), buffer_(static_cast<char*>(std::aligned_alloc(8, readBufferSize))), searchable_(searchable) {}

DirectoryReader::DirectoryReader(DirectoryReader&& other) noexcept
    : fd_(std::exchange(other.fd_, -1)),
      buffer_(std::exchange(other.buffer_, nullptr)),
      searchable_(other.searchable_) {}

DirectoryReader::~DirectoryReader() {
    if (fd_ >= 0) ::close(fd_);
    std::free(buffer_);
}

DirectoryReader::Status DirectoryReader::readBatch(DirectoryListing& batch, std::size_t byteBudget) {
    batch = DirectoryListing();
    batch.searchable_ = searchable_;
    if (fd_ < 0) return Status::finished;

    RawArray<char> names;
    RawArray<std::uint32_t> offsets;
    RawArray<unsigned char> types;
    if (!offsets.reserve(1)) return Status::failed;
    offsets.data[offsets.size++] = 0;

    Status status = Status::more;
    const auto fail = [this] {
        ::close(std::exchange(fd_, -1));
        return Status::failed;
    };
    while (status == Status::more && names.size < byteBudget) {
        const long got = ::syscall(SYS_getdents64, fd_, buffer_, readBufferSize);
        if (got == 0) {
            ::close(std::exchange(fd_, -1));
            status = Status::finished;
            break;
        }
        if (got < 0) {
            if (errno == EINTR) continue;
            return fail();
        }
        const auto bytes = static_cast<std::size_t>(got);
        // A batch holds at most bytes / 24 records whose names total fewer
        // than `bytes` bytes: reserve once so that the loop below never checks.
        const std::size_t maxRecords = bytes / direntMinimumRecord + 1;
        if (names.size + bytes > std::numeric_limits<std::uint32_t>::max()) return fail();
        if (!names.reserve(names.size + bytes) || !offsets.reserve(offsets.size + maxRecords) ||
            !types.reserve(types.size + maxRecords))
            return fail();

        char* out = names.data + names.size;
        std::uint32_t* offsetOut = offsets.data + offsets.size;
        unsigned char* typeOut = types.data + types.size;
        for (std::size_t pos = 0; pos < bytes;) {
            const char* record = buffer_ + pos;
            std::uint16_t recordLength;
            std::memcpy(&recordLength, record + direntRecordLengthOffset, sizeof recordLength);
            if (recordLength < direntMinimumRecord || pos + recordLength > bytes) return fail();
            pos += recordLength;
            const char* name = record + direntNameOffset;
            const std::size_t length = ::strnlen(name, recordLength - direntNameOffset);
            if (name[0] == '.' && (length == 1 || (length == 2 && name[1] == '.'))) continue;
            std::memcpy(out, name, length);
            out += length;
            *offsetOut++ = static_cast<std::uint32_t>(out - names.data);
            const auto type = static_cast<unsigned char>(record[direntTypeOffset] & DirectoryListing::typeMask);
            *typeOut++ =
                isAsciiText({name, length}) ? type : static_cast<unsigned char>(type | DirectoryListing::nonAsciiBit);
        }
        names.size = static_cast<std::size_t>(out - names.data);
        offsets.size = static_cast<std::size_t>(offsetOut - offsets.data);
        types.size = static_cast<std::size_t>(typeOut - types.data);
    }

    names.shrinkToFit();
    offsets.shrinkToFit();
    types.shrinkToFit();
    batch.count_ = types.size;
    batch.namesSize_ = names.size;
    batch.names_ = names.release();
    batch.offsets_ = offsets.release();
    batch.types_ = types.release();
    return status;
}

}  // namespace jorvane
