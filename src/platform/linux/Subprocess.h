#pragma once

// Starting programs without a shell: the arguments go to the program as they
// are, bytes that are not UTF-8 included, and the search for argv[0] follows
// PATH. Standard input is /dev/null unless a descriptor is handed over, no
// other descriptor of ours leaks into the child, its signal mask and
// dispositions start from the defaults, and it leads a process group of its
// own, so that stopping it stops the helpers it started too.

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace jorvane::subprocess {

struct SpawnOptions {
    // The child's whole environment, "NAME=value" each; nothing: ours.
    std::optional<std::vector<std::string>> environment;
    std::optional<std::filesystem::path> workingDirectory;
    // stdout and stderr are appended to this file; nothing: /dev/null.
    std::optional<std::filesystem::path> outputFile;
    // Our descriptor that becomes the child's stdin; -1: /dev/null.
    int input = -1;
    // Our descriptor that becomes the child's stdout and stderr (over
    // outputFile); -1: none.
    int output = -1;
    // Our descriptor that the child gets as descriptor 3 (Xvfb's -displayfd,
    // for one); -1: none.
    int descriptor3 = -1;
    // A session of its own, away from our terminal's signals; otherwise only
    // a process group of its own.
    bool newSession = true;
};

// A close-on-exec pipe whose descriptors lie above the ones handed to
// children, so that handing one over always clears close-on-exec.
struct Pipe {
    int readEnd = -1;
    int writeEnd = -1;
};
std::optional<Pipe> openPipe();

// Starts the program and returns its pid; nothing when it could not start,
// with the reason in `error` when given.
std::optional<int> spawn(const std::vector<std::string>& argv, const SpawnOptions& options = {},
                         std::string* error = nullptr);

struct RunResult {
    bool started = false;   // the program could be started
    bool timedOut = false;  // it was stopped when the time ran out
    int exitCode = -1;      // its exit code; -1 when it did not exit normally
    std::string output;     // what it wrote to stdout and stderr, up to the limit
};

struct RunOptions {
    std::optional<std::vector<std::string>> environment;  // nothing: ours
    std::size_t outputLimit = 64 * 1024;
    std::chrono::milliseconds grace{500};  // between SIGTERM and SIGKILL at the time-out
};

// Runs the program to its end, at most for `timeout`; past it the program's
// group gets SIGTERM and, `grace` later, SIGKILL.
RunResult run(const std::vector<std::string>& argv, std::chrono::milliseconds timeout, const RunOptions& options = {});

// Waits up to `timeout` for our child to end and reaps it; its exit code (-1
// when a signal ended it), or nothing while it still runs or when it is not
// ours to wait for.
std::optional<int> waitFor(int pid, std::chrono::milliseconds timeout);

// Stops our child and its process group: SIGTERM, SIGKILL after `grace`, then
// reaps it.
void stop(int pid, std::chrono::milliseconds grace);

}  // namespace jorvane::subprocess
