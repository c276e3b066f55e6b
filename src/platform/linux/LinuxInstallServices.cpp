#include "platform/linux/LinuxInstallServices.h"
#include "platform/linux/ExternalPrograms.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "filemanager/SymlinksAndAliases.h"
#include "platform/linux/Subprocess.h"
#include "util/Diagnostics.h"

namespace jorvane {

namespace {

constexpr const char* kLog = "Install";

// A copy of a program folder takes seconds; the administrator's copy waits
// for a person at the password dialog first.
constexpr std::chrono::seconds kCopyTimeout{300};
constexpr std::chrono::seconds kTrashTimeout{60};
constexpr std::chrono::seconds kAdministratorTimeout{900};

bool runQuietly(const std::vector<std::string>& argv, std::chrono::milliseconds timeout) {
    const subprocess::RunResult result = subprocess::run(argv, timeout);
    if (result.started && !result.timedOut && result.exitCode == 0) return true;
    log::inDomain(log::Warn, kLog, "%s %s: %s%s", argv.front().c_str(), argv.back().c_str(),
                  !result.started   ? "cannot start"
                  : result.timedOut ? "timed out"
                                    : "failed",
                  result.output.empty() ? "" : (": " + result.output).c_str());
    return false;
}

}  // namespace

bool LinuxInstallServices::isWritable(const std::string& path) { return access(path.c_str(), W_OK) == 0; }

bool LinuxInstallServices::moveToTrash(const std::string& path) {
    return runQuietly({std::string(external::kGio), "trash", "--", path}, kTrashTimeout);
}

std::optional<std::string> LinuxInstallServices::resolveLinks(const std::string& path) {
    return SymlinksAndAliases::stringByResolvingSymlinksAndAliases(path);
}

std::vector<std::string> LinuxInstallServices::runningExecutables() {
    std::vector<std::string> executables;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator("/proc", error)) {
        const std::string name = entry.path().filename().string();
        if (name.empty() || name.find_first_not_of("0123456789") != std::string::npos) continue;
        std::error_code unreadable;  // other users' processes, or gone meanwhile
        const std::filesystem::path executable = std::filesystem::read_symlink(entry.path() / "exe", unreadable);
        if (!unreadable) executables.push_back(executable.string());
    }
    return executables;
}

CommandRun LinuxInstallServices::runCommand(const std::vector<std::string>& argv, bool asAdministrator) {
    std::vector<std::string> command;
    // pkexec itself can be stopped while it waits at the password dialog;
    // what it runs as the administrator is bounded by the command itself.
    if (asAdministrator) command.emplace_back(external::kPkexec);
    command.insert(command.end(), argv.begin(), argv.end());
    const subprocess::RunResult result =
        subprocess::run(command, asAdministrator ? kAdministratorTimeout : kCopyTimeout);
    CommandRun run;
    run.started = result.started;
    // A run stopped at its time-out ended by our signal.
    run.signalled = result.started && (result.timedOut || result.exitCode < 0);
    run.exitCode = result.exitCode;
    if (result.exitCode != 0)
        log::inDomain(log::Info, kLog, "%s%s: exit code %d %s", asAdministrator ? "pkexec " : "", argv.front().c_str(),
                      result.exitCode, result.output.c_str());
    return run;
}

void LinuxInstallServices::relaunch(const std::string& executable) {
    int pipeEnds[2];
    if (pipe2(pipeEnds, O_CLOEXEC) != 0) {
        log::inDomain(log::Error, kLog, "cannot start %s again: %s", executable.c_str(), std::strerror(errno));
        return;
    }
    // Everything the child needs is made before the fork: after it, only
    // async-signal-safe calls.
    const char* path = executable.c_str();
    char* const argv[] = {const_cast<char*>(path), nullptr};
    const pid_t child = fork();
    if (child < 0) {
        log::inDomain(log::Error, kLog, "cannot start %s again: %s", path, std::strerror(errno));
        close(pipeEnds[0]);
        close(pipeEnds[1]);
        return;
    }
    if (child == 0) {
        // The write end goes first and by name: were it left to close_range,
        // which old kernels and some sandboxes refuse, the read below would
        // never see its end.
        close(pipeEnds[1]);
        // Keep only the standard descriptors and the pipe's read end: the
        // session's lock among our descriptors must go with this process.
        const int readEnd = dup2(pipeEnds[0], 3) == 3 ? 3 : -1;
        close_range(4, ~0U, 0);
        if (readEnd < 0) _exit(127);
        // End of file once the process that holds the write end has ended.
        char byte;
        for (;;) {
            const ssize_t got = read(readEnd, &byte, 1);
            if (got < 0 && errno == EINTR) continue;
            if (got <= 0) break;
        }
        close(readEnd);
        setsid();
        execv(path, argv);
        _exit(127);
    }
    close(pipeEnds[0]);
    log::inDomain(log::Info, kLog, "ending: %s starts when this process has ended", path);
    std::fflush(nullptr);
    _exit(0);
}

}  // namespace jorvane
