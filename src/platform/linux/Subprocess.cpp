#include "platform/linux/Subprocess.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
#include <cerrno>
#include <cstring>
#include <thread>

extern char** environ;

namespace jorvane::subprocess {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

std::vector<char*> pointers(const std::vector<std::string>& strings) {
    std::vector<char*> out;
    out.reserve(strings.size() + 1);
    for (const std::string& s : strings) out.push_back(const_cast<char*>(s.c_str()));
    out.push_back(nullptr);
    return out;
}

int exitCodeOf(int status) { return WIFEXITED(status) ? WEXITSTATUS(status) : -1; }

// Moves a descriptor above the standard ones and descriptor 3, keeping it
// close-on-exec.
int highDescriptor(int fd) {
    const int moved = fcntl(fd, F_DUPFD_CLOEXEC, 10);
    close(fd);
    return moved;
}

milliseconds leftUntil(Clock::time_point deadline) {
    return std::chrono::duration_cast<milliseconds>(deadline - Clock::now());
}

}  // namespace

std::optional<Pipe> openPipe() {
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0) return std::nullopt;
    Pipe pipe{highDescriptor(fds[0]), highDescriptor(fds[1])};
    if (pipe.readEnd < 0 || pipe.writeEnd < 0) {
        if (pipe.readEnd >= 0) close(pipe.readEnd);
        if (pipe.writeEnd >= 0) close(pipe.writeEnd);
        return std::nullopt;
    }
    return pipe;
}

std::optional<int> spawn(const std::vector<std::string>& argv, const SpawnOptions& options, std::string* error) {
    if (argv.empty() || argv.front().empty()) {
        if (error) *error = "no program to start";
        return std::nullopt;
    }
    const std::string outputFile = options.outputFile ? options.outputFile->string() : "/dev/null";
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (options.input >= 0)
        posix_spawn_file_actions_adddup2(&actions, options.input, STDIN_FILENO);
    else
        posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    if (options.output >= 0) {
        posix_spawn_file_actions_adddup2(&actions, options.output, STDOUT_FILENO);
    } else {
        const int flags = options.outputFile ? O_WRONLY | O_CREAT | O_APPEND : O_WRONLY;
        posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, outputFile.c_str(), flags, 0644);
    }
    posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
    if (options.descriptor3 >= 0) posix_spawn_file_actions_adddup2(&actions, options.descriptor3, 3);
    posix_spawn_file_actions_addclosefrom_np(&actions, options.descriptor3 >= 0 ? 4 : 3);
    // posix_spawn has no portable chdir; glibc's extension does it.
    if (options.workingDirectory) posix_spawn_file_actions_addchdir_np(&actions, options.workingDirectory->c_str());

    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    const short group = options.newSession ? POSIX_SPAWN_SETSID : POSIX_SPAWN_SETPGROUP;
    posix_spawnattr_setflags(&attributes, group | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    posix_spawnattr_setpgroup(&attributes, 0);
    sigset_t none, all;
    sigemptyset(&none);
    sigfillset(&all);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setsigdefault(&attributes, &all);

    std::vector<char*> args = pointers(argv);
    std::vector<char*> envp;
    if (options.environment) envp = pointers(*options.environment);
    pid_t pid = -1;
    const int spawnError =
        posix_spawnp(&pid, args[0], &actions, &attributes, args.data(), options.environment ? envp.data() : environ);
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    if (spawnError != 0) {
        if (error) *error = std::strerror(spawnError);
        return std::nullopt;
    }
    return pid;
}

RunResult run(const std::vector<std::string>& argv, milliseconds timeout, const RunOptions& options) {
    RunResult result;
    std::optional<Pipe> pipe = openPipe();
    if (!pipe) {
        result.output = std::strerror(errno);
        return result;
    }
    SpawnOptions spawnOptions;
    spawnOptions.environment = options.environment;
    spawnOptions.output = pipe->writeEnd;
    spawnOptions.newSession = false;
    std::optional<int> pid = spawn(argv, spawnOptions, &result.output);
    close(pipe->writeEnd);
    if (!pid) {
        close(pipe->readEnd);
        return result;
    }
    result.started = true;

    const auto deadline = Clock::now() + timeout;
    char buffer[4096];
    for (;;) {
        const milliseconds left = leftUntil(deadline);
        if (left.count() <= 0) {
            result.timedOut = true;
            break;
        }
        pollfd entry{pipe->readEnd, POLLIN, 0};
        if (poll(&entry, 1, static_cast<int>(left.count())) <= 0) continue;
        const ssize_t n = read(pipe->readEnd, buffer, sizeof buffer);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        const std::size_t room = options.outputLimit - std::min(options.outputLimit, result.output.size());
        result.output.append(buffer, std::min(room, static_cast<std::size_t>(n)));
    }
    close(pipe->readEnd);

    // The output closed: the program ended, or left a child holding it open.
    if (!result.timedOut) {
        const milliseconds left = leftUntil(deadline);
        std::optional<int> code = waitFor(*pid, std::max(left, milliseconds(0)));
        if (code) {
            result.exitCode = *code;
            return result;
        }
        result.timedOut = true;
    }
    stop(*pid, options.grace);
    return result;
}

std::optional<int> waitFor(int pid, milliseconds timeout) {
    if (pid <= 0) return std::nullopt;
    const auto deadline = Clock::now() + timeout;
    for (;;) {
        int status = 0;
        const pid_t done = waitpid(pid, &status, WNOHANG);
        if (done == pid) return exitCodeOf(status);
        if (done < 0 && errno != EINTR) return std::nullopt;
        if (Clock::now() >= deadline) return std::nullopt;
        std::this_thread::sleep_for(milliseconds(2));
    }
}

void stop(int pid, milliseconds grace) {
    if (pid <= 1) return;
    kill(-pid, SIGTERM);
    kill(pid, SIGTERM);  // in case it left its group
    if (waitFor(pid, grace)) return;
    kill(-pid, SIGKILL);
    kill(pid, SIGKILL);
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
}

}  // namespace jorvane::subprocess
