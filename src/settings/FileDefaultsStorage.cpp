#include "settings/FileDefaultsStorage.h"

#include "util/AtomicFile.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <pwd.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace jorvane::settings {

namespace fs = std::filesystem;

namespace {

std::string errorText(int error) { return std::strerror(error); }

// nlohmann's messages start with "[json.exception.parse_error.101] ".
std::string parseMessage(const char* what) {
    std::string_view text(what);
    if (text.starts_with('[')) {
        if (auto end = text.find("] "); end != std::string_view::npos) text.remove_prefix(end + 2);
    }
    return std::string(text);
}

}  // namespace

fs::path settingsDirectory() {
    if (const char* config = std::getenv("XDG_CONFIG_HOME"); config && config[0] == '/') {
        return fs::path(config) / "jorvane";
    }
    std::string home;
    if (const char* env = std::getenv("HOME"); env && *env) {
        home = env;
    } else {
        std::vector<char> buffer(16384);
        passwd entry{};
        passwd* found = nullptr;
        if (::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &found) == 0 && found && found->pw_dir) {
            home = found->pw_dir;
        }
    }
    if (home.empty()) home = ".";
    return fs::path(home) / ".config" / "jorvane";
}

fs::path defaultSettingsFile() { return settingsDirectory() / "settings.json"; }

FileDefaultsStorage::FileDefaultsStorage(fs::path file) : file_(std::move(file)) {}

fs::path FileDefaultsStorage::target() const {
    std::error_code ec;
    if (fs::is_symlink(file_, ec)) {
        fs::path resolved = fs::weakly_canonical(file_, ec);
        if (!ec) return resolved;
    }
    return file_;
}

FileDefaultsStorage::Stamp FileDefaultsStorage::stamp() const {
    struct stat st {};
    if (::stat(file_.c_str(), &st) != 0) return Stamp{};
    return stampOf(st);
}

FileDefaultsStorage::Stamp FileDefaultsStorage::stampOf(const struct stat& st) {
    return Stamp{true,
                 static_cast<std::uint64_t>(st.st_dev),
                 static_cast<std::uint64_t>(st.st_ino),
                 static_cast<std::uint64_t>(st.st_size),
                 static_cast<std::int64_t>(st.st_mtim.tv_sec) * 1'000'000'000 + st.st_mtim.tv_nsec,
                 static_cast<std::int64_t>(st.st_ctim.tv_sec) * 1'000'000'000 + st.st_ctim.tv_nsec};
}

bool FileDefaultsStorage::changedSinceLastSync() { return !synced_ || stamp() != lastSync_; }

DefaultsStorage::Loaded FileDefaultsStorage::load() {
    Loaded result;
    const fs::path path = target();
    synced_ = true;

    // Non-blocking: a FIFO in its place must not hold up the start.
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0) {
        const int error = errno;
        lastSync_ = stamp();
        if (error == ENOENT) {
            refuseSaves_.clear();  // nothing there to protect
            return result;
        }
        result.warnings.push_back(setAside(path, "cannot be read (" + errorText(error) + ")"));
        lastSync_ = stamp();
        return result;
    }
    // The stamp of the version being read: a change made while reading is
    // seen at the next check.
    struct stat st {};
    lastSync_ = ::fstat(fd, &st) == 0 ? stampOf(st) : stamp();
    std::string refusal;
    if (!S_ISREG(st.st_mode) && !S_ISDIR(st.st_mode)) {
        refusal = " is not a regular file";
    } else if (S_ISREG(st.st_mode) && static_cast<std::uint64_t>(st.st_size) > kSizeLimit) {
        refusal = " is " + std::to_string(st.st_size) + " bytes, too large for a settings file";
    }
    if (!refusal.empty()) {
        ::close(fd);
        refuseSaves_ = path.string() + refusal + "; settings are not saved until it is replaced by a settings file";
        result.warnings.push_back(path.string() + refusal + "; it was left as it is and the default settings are used");
        return result;
    }
    std::string text;
    int readError = S_ISDIR(st.st_mode) ? EISDIR : 0;
    char buffer[8192];
    while (readError == 0) {
        const ssize_t n = ::read(fd, buffer, sizeof buffer);
        if (n == 0) break;
        if (n < 0) {
            if (errno != EINTR) readError = errno;
            continue;
        }
        text.append(buffer, static_cast<std::size_t>(n));
    }
    ::close(fd);

    SettingsText parsed;
    if (readError != 0) {
        parsed.damage = "cannot be read (" + errorText(readError) + ")";
    } else {
        parsed = parseSettingsText(text);
    }
    if (!parsed.damage.empty()) {
        result.warnings.push_back(setAside(path, parsed.damage));
        lastSync_ = stamp();
        return result;
    }
    refuseSaves_.clear();
    result.values = std::move(parsed.values);
    return result;
}

SettingsText parseSettingsText(std::string_view text) {
    SettingsText result;
    try {
        Value parsed = Value::parse(text);
        if (parsed.is_object()) {
            result.values = std::move(parsed.get_ref<Dictionary&>());
        } else {
            result.damage = "does not hold a JSON object";
        }
    } catch (const nlohmann::json::parse_error& e) {
        result.damage = "is not valid JSON (" + parseMessage(e.what()) + ")";
    } catch (const nlohmann::json::exception& e) {
        // A number too large for a double (1e400) is thrown as out_of_range.
        result.damage = "is not valid JSON (" + parseMessage(e.what()) + ")";
    }
    return result;
}

std::string settingsText(const Dictionary& values) {
    return Value(values).dump(4, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
}

std::string FileDefaultsStorage::setAside(const fs::path& damaged, const std::string& why) {
    const atomic_file::SetAsideResult moved = atomic_file::setAside(damaged);
    if (moved.done) {
        refuseSaves_.clear();
        return damaged.string() + " " + why + "; it was set aside as " + moved.newPath.filename().string() +
               " and the default settings are used";
    }
    refuseSaves_ = damaged.string() + " " + why + " and could not be set aside (" + errorText(moved.error) +
                   "); settings are not saved until it is repaired or removed";
    return refuseSaves_ + "; the default settings are used";
}

namespace {

class FolderLock final : public DefaultsStorage::UpdateLock {
public:
    explicit FolderLock(int fd) : fd_(fd) {}
    ~FolderLock() override { ::close(fd_); }  // closing releases the lock

private:
    int fd_;
};

}  // namespace

std::unique_ptr<DefaultsStorage::UpdateLock> FileDefaultsStorage::lockForUpdate() {
    const fs::path folder = target().parent_path().empty() ? fs::path(".") : target().parent_path();
    std::error_code ec;
    fs::create_directories(folder, ec);
    const int fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) return nullptr;
    // Another program holds it for a save, which takes milliseconds; one
    // that hangs holding it is not waited for past a bound.
    constexpr auto kPatience = std::chrono::seconds(2);
    const auto until = std::chrono::steady_clock::now() + kPatience;
    while (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
        if (errno != EWOULDBLOCK && errno != EINTR) break;
        if (std::chrono::steady_clock::now() > until) {
            ::close(fd);
            return nullptr;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return std::make_unique<FolderLock>(fd);
}

DefaultsStorage::Saved FileDefaultsStorage::save(const Dictionary& values) {
    if (!refuseSaves_.empty()) return {false, refuseSaves_};
    const fs::path path = target();
    if (std::string error = atomic_file::replaceContents(path, settingsText(values)); !error.empty()) {
        return {false, error};
    }
    lastSync_ = stamp();
    synced_ = true;
    return {};
}

}  // namespace jorvane::settings
