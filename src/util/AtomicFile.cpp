#include "util/AtomicFile.h"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace jorvane::atomic_file {

namespace fs = std::filesystem;

namespace {

std::string errorText(int error) { return std::strerror(error); }

std::string timestampNow() {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    char buffer[32];
    std::strftime(buffer, sizeof buffer, "%Y%m%d-%H%M%S", &local);
    return buffer;
}

bool writeAll(int fd, std::string_view text) {
    std::size_t done = 0;
    while (done < text.size()) {
        const ssize_t n = ::write(fd, text.data() + done, text.size() - done);
        if (n < 0) {
            if (errno == EINTR) continue;
            return false;
        }
        done += static_cast<std::size_t>(n);
    }
    return true;
}

}  // namespace

ReadResult readRegularFile(const fs::path& file, std::uint64_t sizeLimit) {
    ReadResult result;
    const int fd = ::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0) {
        result.error = errno;
        result.status = result.error == ENOENT ? ReadResult::Status::missing : ReadResult::Status::unreadable;
        return result;
    }
    struct stat st {};
    if (::fstat(fd, &st) != 0) {
        result.error = errno;
        result.status = ReadResult::Status::unreadable;
        ::close(fd);
        return result;
    }
    result.size = static_cast<std::uint64_t>(st.st_size);
    if (!S_ISREG(st.st_mode)) {
        result.status = ReadResult::Status::notRegular;
    } else if (result.size > sizeLimit) {
        result.status = ReadResult::Status::tooLarge;
    } else {
        result.status = ReadResult::Status::ok;
        result.text.reserve(static_cast<std::size_t>(result.size));
        char buffer[65536];
        for (;;) {
            const ssize_t n = ::read(fd, buffer, sizeof buffer);
            if (n == 0) break;
            if (n < 0) {
                if (errno == EINTR) continue;
                result.error = errno;
                result.status = ReadResult::Status::unreadable;
                result.text.clear();
                break;
            }
            result.text.append(buffer, static_cast<std::size_t>(n));
            // A file that grew past the limit while being read.
            if (result.text.size() > sizeLimit) {
                result.status = ReadResult::Status::tooLarge;
                result.text.clear();
                break;
            }
        }
    }
    ::close(fd);
    return result;
}

std::string replaceContents(const fs::path& file, std::string_view text) {
    const fs::path folder = file.parent_path().empty() ? fs::path(".") : file.parent_path();
    std::error_code ec;
    fs::create_directories(folder, ec);
    if (ec) return "cannot create the folder " + folder.string() + ": " + ec.message();

    static std::atomic<unsigned> counter{0};
    // Appended piece by piece: GCC 12 at -O3 warns falsely (-Wrestrict) about "." + string.
    std::string name(1, '.');
    name += file.filename().string();
    name += ".tmp-" + std::to_string(::getpid()) + "-" + std::to_string(counter.fetch_add(1));
    const fs::path temporary = folder / name;
    const int fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (fd < 0) return "cannot create " + temporary.string() + ": " + errorText(errno);

    auto fail = [&](const std::string& what, int error) {
        ::unlink(temporary.c_str());
        return what + ": " + errorText(error);
    };
    // Keep the permissions the user gave the file.
    struct stat old {};
    if (::stat(file.c_str(), &old) == 0) ::fchmod(fd, old.st_mode & 07777);
    if (!writeAll(fd, text)) {
        const int error = errno;
        ::close(fd);
        return fail("cannot write " + temporary.string(), error);
    }
    if (::fsync(fd) != 0) {
        const int error = errno;
        ::close(fd);
        return fail("cannot flush " + temporary.string(), error);
    }
    if (::close(fd) != 0) return fail("cannot write " + temporary.string(), errno);
    if (::rename(temporary.c_str(), file.c_str()) != 0) return fail("cannot replace " + file.string(), errno);

    // Make the rename itself durable; failing that is not worth an error.
    if (const int dir = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); dir >= 0) {
        ::fsync(dir);
        ::close(dir);
    }
    return {};
}

bool renameNoReplace(const fs::path& from, const fs::path& to) {
    if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return true;
    if (errno != EINVAL && errno != ENOSYS) return false;
    std::error_code ec;
    if (fs::exists(fs::symlink_status(to, ec))) {
        errno = EEXIST;
        return false;
    }
    return ::rename(from.c_str(), to.c_str()) == 0;
}

SetAsideResult setAside(const fs::path& damaged) {
    SetAsideResult result;
    const std::string base = damaged.string() + ".corrupt-" + timestampNow();
    for (int n = 1; n <= 1000; ++n) {
        const fs::path candidate = n == 1 ? base : base + "-" + std::to_string(n);
        if (renameNoReplace(damaged, candidate)) {
            result.done = true;
            result.newPath = candidate;
            return result;
        }
        result.error = errno;
        if (result.error != EEXIST) break;
    }
    return result;
}

}  // namespace jorvane::atomic_file
