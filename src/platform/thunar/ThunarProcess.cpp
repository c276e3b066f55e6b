#include "platform/thunar/ThunarProcess.h"

#include <cerrno>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <map>
#include <mutex>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

extern char** environ;

namespace jorvane::thunar {

namespace {

using Clock = std::chrono::steady_clock;

std::vector<char*> argvPointers(const std::vector<std::string>& argv) {
    std::vector<char*> pointers;
    pointers.reserve(argv.size() + 1);
    for (const std::string& arg : argv) pointers.push_back(const_cast<char*>(arg.c_str()));
    pointers.push_back(nullptr);
    return pointers;
}

int exitCodeOf(int status) { return WIFEXITED(status) ? WEXITSTATUS(status) : -1; }

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
    ProcessResult result;
    if (argv.empty() || argv.front().empty()) return result;
    int pipeFds[2];
    if (pipe2(pipeFds, O_CLOEXEC) != 0) return result;

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, pipeFds[1], STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, pipeFds[1], STDERR_FILENO);
    posix_spawn_file_actions_addclosefrom_np(&actions, 3);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    // A process group of its own, so that a time-out stops its helpers too.
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    posix_spawnattr_setpgroup(&attributes, 0);
    sigset_t none, all;
    sigemptyset(&none);
    sigfillset(&all);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setsigdefault(&attributes, &all);

    pid_t pid = -1;
    std::vector<char*> args = argvPointers(argv);
    const int spawnError = posix_spawnp(&pid, args[0], &actions, &attributes, args.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    close(pipeFds[1]);
    if (spawnError != 0) {
        close(pipeFds[0]);
        result.output = std::strerror(spawnError);
        return result;
    }
    result.started = true;

    const auto deadline = Clock::now() + timeout;
    bool open = true;
    char buffer[4096];
    while (open) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
        if (left <= 0) {
            result.timedOut = true;
            break;
        }
        pollfd entry{pipeFds[0], POLLIN, 0};
        const int ready = poll(&entry, 1, static_cast<int>(left));
        if (ready < 0 && errno == EINTR) continue;
        if (ready <= 0) continue;
        const ssize_t n = read(pipeFds[0], buffer, sizeof buffer);
        if (n > 0) {
            if (result.output.size() < 65536) result.output.append(buffer, static_cast<std::size_t>(n));
        } else if (n == 0 || errno != EINTR) {
            open = false;
        }
    }
    close(pipeFds[0]);

    // The output closed: the program ended, or left a child holding it open.
    int status = 0;
    while (!result.timedOut) {
        const pid_t done = waitpid(pid, &status, WNOHANG);
        if (done == pid) {
            result.exitCode = exitCodeOf(status);
            return result;
        }
        if (done < 0 && errno != EINTR) return result;
        if (Clock::now() >= deadline) {
            result.timedOut = true;
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    kill(-pid, SIGTERM);
    const auto killAt = Clock::now() + std::chrono::milliseconds(500);
    while (waitpid(pid, &status, WNOHANG) == 0) {
        if (Clock::now() >= killAt) {
            kill(-pid, SIGKILL);
            waitpid(pid, &status, 0);
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return result;
}

std::optional<int> spawnDetached(const std::vector<std::string>& argv,
                                 const std::optional<std::filesystem::path>& workingDirectory) {
    if (argv.empty() || argv.front().empty()) return std::nullopt;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addclosefrom_np(&actions, 3);
    if (workingDirectory) posix_spawn_file_actions_addchdir_np(&actions, workingDirectory->c_str());
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    sigset_t none, all;
    sigemptyset(&none);
    sigfillset(&all);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setsigdefault(&attributes, &all);

    pid_t pid = -1;
    std::vector<char*> args = argvPointers(argv);
    const int spawnError = posix_spawnp(&pid, args[0], &actions, &attributes, args.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    if (spawnError != 0) return std::nullopt;

    DetachedChildren& children = detachedChildren();
    {
        std::lock_guard lock(children.mutex);
        children.exitCodes[pid] = std::nullopt;
    }
    std::thread([pid] {
        int status = 0;
        while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
        }
        DetachedChildren& table = detachedChildren();
        std::lock_guard lock(table.mutex);
        table.exitCodes[pid] = exitCodeOf(status);
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
