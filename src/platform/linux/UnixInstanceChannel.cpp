#include "platform/linux/UnixInstanceChannel.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <thread>

#include "util/Diagnostics.h"

namespace jorvane {

namespace {

constexpr const char* kLog = "SingleInstance";
constexpr std::size_t kMaxMessage = 256;
// How long a later start tries to reach the holder, and how long the holder
// waits for a connected start's line.
constexpr auto kSendFor = std::chrono::milliseconds(2000);
constexpr auto kSendRetry = std::chrono::milliseconds(50);
constexpr timeval kReadBound{0, 500000};

// The display in a form fit for a file name (":0", "localhost:10.0").
std::string displayPart(std::string display) {
    if (display.empty()) {
        const char* variable = std::getenv("DISPLAY");
        display = variable ? variable : "";
    }
    if (display.empty()) display = "none";
    for (char& c : display)
        if (c == '/') c = '_';
    return display;
}

std::optional<sockaddr_un> addressOf(const std::filesystem::path& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string text = path.string();
    if (text.size() >= sizeof address.sun_path) return std::nullopt;
    std::memcpy(address.sun_path, text.c_str(), text.size() + 1);
    return address;
}

}  // namespace

UnixInstanceChannel::UnixInstanceChannel(std::filesystem::path folder, std::string display) {
    const std::string base = "jorvane-" + displayPart(std::move(display));
    lock_ = folder / (base + ".lock");
    socket_ = folder / (base + ".socket");
}

UnixInstanceChannel::~UnixInstanceChannel() {
    if (listener_ >= 0) {
        close(listener_);
        unlink(socket_.c_str());
    }
    if (lockFd_ >= 0) close(lockFd_);
}

std::filesystem::path UnixInstanceChannel::defaultFolder() {
    if (const char* runtime = std::getenv("XDG_RUNTIME_DIR"); runtime && runtime[0] == '/') return runtime;
    const std::filesystem::path folder = "/tmp/jorvane-" + std::to_string(getuid());
    mkdir(folder.c_str(), 0700);
    struct stat info {};
    // Someone else's folder (or a link planted there) is not ours to use.
    if (lstat(folder.c_str(), &info) != 0 || !S_ISDIR(info.st_mode) || info.st_uid != getuid()) return {};
    return folder;
}

InstanceChannel::Claim UnixInstanceChannel::claim() {
    if (lock_.parent_path().empty()) return Claim::unavailable;
    if (lockFd_ < 0) {
        lockFd_ = open(lock_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
        if (lockFd_ < 0) {
            log::inDomain(log::Warn, kLog, "cannot open %s: %s", lock_.c_str(), std::strerror(errno));
            return Claim::unavailable;
        }
    }
    if (flock(lockFd_, LOCK_EX | LOCK_NB) != 0) {
        if (errno == EWOULDBLOCK) return Claim::heldByAnother;
        log::inDomain(log::Warn, kLog, "cannot lock %s: %s", lock_.c_str(), std::strerror(errno));
        return Claim::unavailable;
    }

    const std::optional<sockaddr_un> address = addressOf(socket_);
    if (!address) {
        log::inDomain(log::Warn, kLog, "socket path too long: %s", socket_.c_str());
        return Claim::unavailable;
    }
    // What is there was left by a holder that ended: the lock is ours.
    unlink(socket_.c_str());
    listener_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (listener_ < 0 || bind(listener_, reinterpret_cast<const sockaddr*>(&*address), sizeof *address) != 0 ||
        listen(listener_, 8) != 0) {
        log::inDomain(log::Warn, kLog, "cannot listen on %s: %s", socket_.c_str(), std::strerror(errno));
        if (listener_ >= 0) close(listener_);
        listener_ = -1;
        // Keep the lock: another start then still knows one runs, even if it
        // cannot tell it anything.
        return Claim::claimed;
    }
    return Claim::claimed;
}

bool UnixInstanceChannel::send(std::string_view message) {
    const std::optional<sockaddr_un> address = addressOf(socket_);
    if (!address) return false;
    const std::string line = std::string(message) + "\n";
    const auto until = std::chrono::steady_clock::now() + kSendFor;
    for (;;) {
        const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        if (fd < 0) return false;
        if (connect(fd, reinterpret_cast<const sockaddr*>(&*address), sizeof *address) == 0) {
            const bool written =
                ::send(fd, line.data(), line.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(line.size());
            close(fd);
            return written;
        }
        const int why = errno;
        close(fd);
        if (std::chrono::steady_clock::now() >= until) {
            log::inDomain(log::Warn, kLog, "cannot reach the running Jorvane at %s: %s", socket_.c_str(),
                          std::strerror(why));
            return false;
        }
        std::this_thread::sleep_for(kSendRetry);
    }
}

std::optional<std::string> UnixInstanceChannel::takeMessage() {
    if (listener_ < 0) return std::nullopt;
    const int fd = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    if (fd < 0) return std::nullopt;
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &kReadBound, sizeof kReadBound);
    std::string message;
    char buffer[kMaxMessage];
    while (message.size() < kMaxMessage && message.find('\n') == std::string::npos) {
        const ssize_t got = recv(fd, buffer, sizeof buffer, 0);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) break;
        message.append(buffer, static_cast<std::size_t>(got));
    }
    close(fd);
    return message;
}

}  // namespace jorvane
