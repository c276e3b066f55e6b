#pragma once

// Starting helper programs for the Thunar handlers (gio, thunar, a terminal)
// without a shell: the arguments go to the program as they are, bytes that
// are not UTF-8 included. Standard input is /dev/null, and no descriptor of
// ours leaks into the child.

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace jorvane::thunar {

struct ProcessResult {
    bool started = false;   // the program could be started
    bool timedOut = false;  // it was stopped when the time ran out
    int exitCode = -1;      // its exit code; -1 when it did not exit normally
    std::string output;     // what it wrote to stdout and stderr (at most 64 KiB)
};

// Runs the program to its end, at most for `timeout`; past it the program gets
// SIGTERM and, 500 ms later, SIGKILL. The search for argv[0] follows PATH.
ProcessResult runProcess(const std::vector<std::string>& argv, std::chrono::milliseconds timeout);

// Starts a program that outlives the call (a terminal, a file manager window)
// in a session of its own, in `workingDirectory` when given, with its output
// thrown away. A background thread collects its exit status. Returns its pid,
// or nothing when it could not be started.
std::optional<int> spawnDetached(const std::vector<std::string>& argv,
                                 const std::optional<std::filesystem::path>& workingDirectory = std::nullopt);

// Waits up to `timeout` for a child started by spawnDetached to end; its exit
// code, or nothing while it still runs.
std::optional<int> waitForDetached(int pid, std::chrono::milliseconds timeout);

// The full path of an executable found through PATH, or nothing.
std::optional<std::filesystem::path> findExecutable(const std::string& name);

}  // namespace jorvane::thunar
