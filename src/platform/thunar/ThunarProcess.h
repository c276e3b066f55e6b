#pragma once

// Starting helper programs for the Thunar handlers (gio, thunar, a terminal)
// without a shell, through the subprocess helper (see platform/Subprocess.h).

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "platform/linux/Subprocess.h"

namespace jorvane::thunar {

// What the program wrote to stdout and stderr is kept up to 64 KiB.
using ProcessResult = subprocess::RunResult;

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
