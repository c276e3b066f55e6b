#include "platform/thunar/ThunarProcess.h"

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <cerrno>
#include <condition_variable>
#include <cstdlib>
#include <map>
#include <mutex>
#include <thread>

namespace jorvane::thunar {

namespace {

// Exit codes of detached children, filled by their reaper threads.
struct DetachedChildren {
    std::mutex mutex;
    std::condition_variable changed;
    std::map<int, std::optional<int>> exitCodes;
};

DetachedChildren& detachedChildren() {
    static auto* children = new DetachedChildren;  // outlives the reaper threads
    return *children;
}

}  // namespace

ProcessResult runProcess(const std::vector<std::string>& argv, std::chrono::milliseconds timeout) {
    return subprocess::run(argv, timeout);
}

std::optional<int> spawnDetached(const std::vector<std::string>& argv,
                                 const std::optional<std::filesystem::path>& workingDirectory) {
    subprocess::SpawnOptions options;
    options.workingDirectory = workingDirectory;
    const std::optional<int> pid = subprocess::spawn(argv, options);
    if (!pid) return std::nullopt;

    DetachedChildren& children = detachedChildren();
    {
        std::lock_guard lock(children.mutex);
        children.exitCodes[*pid] = std::nullopt;
    }
    std::thread([pid = *pid] {
        int status = 0;
        while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
        }
        DetachedChildren& table = detachedChildren();
        std::lock_guard lock(table.mutex);
        table.exitCodes[pid] = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        table.changed.notify_all();
    }).detach();
    return pid;
}

std::optional<int> waitForDetached(int pid, std::chrono::milliseconds timeout) {
    DetachedChildren& children = detachedChildren();
    std::unique_lock lock(children.mutex);
    std::optional<int> code;
    children.changed.wait_for(lock, timeout, [&] {
        auto it = children.exitCodes.find(pid);
        if (it == children.exitCodes.end() || !it->second) return false;
        code = it->second;
        return true;
    });
    if (code) children.exitCodes.erase(pid);
    return code;
}

std::optional<std::filesystem::path> findExecutable(const std::string& name) {
    if (name.empty()) return std::nullopt;
    if (name.find('/') != std::string::npos) {
        if (access(name.c_str(), X_OK) == 0) return std::filesystem::path(name);
        return std::nullopt;
    }
    const char* path = std::getenv("PATH");
    std::string_view dirs = path ? path : "/usr/local/bin:/usr/bin:/bin";
    while (!dirs.empty()) {
        const std::size_t colon = dirs.find(':');
        std::string_view dir = dirs.substr(0, colon);
        dirs = colon == std::string_view::npos ? std::string_view{} : dirs.substr(colon + 1);
        if (dir.empty()) continue;
        std::filesystem::path candidate = std::filesystem::path(dir) / name;
        struct stat info {};
        if (stat(candidate.c_str(), &info) == 0 && S_ISREG(info.st_mode) && access(candidate.c_str(), X_OK) == 0)
            return candidate;
    }
    return std::nullopt;
}

}  // namespace jorvane::thunar
