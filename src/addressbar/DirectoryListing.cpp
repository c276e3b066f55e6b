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

class FileDescriptor {
public:
    explicit FileDescriptor(int fd) : fd_(fd) {}
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    ~FileDescriptor() {
        if (fd_ >= 0) ::close(fd_);
    }
    int get() const { return fd_; }

private:
    int fd_;
};

struct ReadBuffer {
    ReadBuffer() : data(static_cast<char*>(std::aligned_alloc(8, readBufferSize))) {}
    ReadBuffer(const ReadBuffer&) = delete;
    ReadBuffer& operator=(const ReadBuffer&) = delete;
    ~ReadBuffer() { std::free(data); }
    char* data;
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
    if (path.empty() || path.find('\0') != std::string::npos) return std::nullopt;
    const FileDescriptor fd(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (fd.get() < 0) return std::nullopt;
    const ReadBuffer buffer;
    if (!buffer.data) return std::nullopt;

    RawArray<char> names;
    RawArray<std::uint32_t> offsets;
    RawArray<unsigned char> types;
    if (!offsets.reserve(1)) return std::nullopt;
    offsets.data[offsets.size++] = 0;

    for (;;) {
        const long got = ::syscall(SYS_getdents64, fd.get(), buffer.data, readBufferSize);
        if (got == 0) break;
        if (got < 0) {
            if (errno == EINTR) continue;
            return std::nullopt;
        }
        const auto bytes = static_cast<std::size_t>(got);
        // A batch holds at most bytes / 24 records whose names total fewer
        // than `bytes` bytes: reserve once so that the loop below never checks.
        const std::size_t maxRecords = bytes / direntMinimumRecord + 1;
        if (names.size + bytes > std::numeric_limits<std::uint32_t>::max()) return std::nullopt;
        if (!names.reserve(names.size + bytes) || !offsets.reserve(offsets.size + maxRecords) ||
            !types.reserve(types.size + maxRecords))
            return std::nullopt;

        char* out = names.data + names.size;
        std::uint32_t* offsetOut = offsets.data + offsets.size;
        unsigned char* typeOut = types.data + types.size;
        for (std::size_t pos = 0; pos < bytes;) {
            const char* record = buffer.data + pos;
            std::uint16_t recordLength;
            std::memcpy(&recordLength, record + direntRecordLengthOffset, sizeof recordLength);
            if (recordLength < direntMinimumRecord || pos + recordLength > bytes) return std::nullopt;
            pos += recordLength;
            const char* name = record + direntNameOffset;
            const std::size_t length = ::strnlen(name, recordLength - direntNameOffset);
            if (name[0] == '.' && (length == 1 || (length == 2 && name[1] == '.'))) continue;
            std::memcpy(out, name, length);
            out += length;
            *offsetOut++ = static_cast<std::uint32_t>(out - names.data);
            const auto type = static_cast<unsigned char>(record[direntTypeOffset] & typeMask);
            *typeOut++ = isAsciiText({name, length}) ? type : static_cast<unsigned char>(type | nonAsciiBit);
        }
        names.size = static_cast<std::size_t>(out - names.data);
        offsets.size = static_cast<std::size_t>(offsetOut - offsets.data);
        types.size = static_cast<std::size_t>(typeOut - types.data);
    }

    names.shrinkToFit();
    offsets.shrinkToFit();
    types.shrinkToFit();

    DirectoryListing listing;
    listing.count_ = types.size;
    listing.namesSize_ = names.size;
    listing.names_ = names.release();
    listing.offsets_ = offsets.release();
    listing.types_ = types.release();
    listing.searchable_ = ::faccessat(AT_FDCWD, path.c_str(), X_OK, AT_EACCESS) == 0;
    return listing;
}

}  // namespace jorvane
