#pragma once

// The program's command line, read before anything needs a display:
//
//   jorvane                 start (a second start asks the running one to say so)
//   jorvane --preferences   open the running Jorvane's preferences, or start one that opens them
//   jorvane --quit          end the running Jorvane
//   jorvane --help, -h      this usage, on standard output
//   jorvane --version       the version, on standard output
//
// Anything else is an error: a one-line message and exit code 2. The
// toolkit never sees the arguments.

#include <string>
#include <string_view>
#include <vector>

namespace jorvane::commandline {

enum class Action { run, preferences, quit, help, version, error };

struct Parsed {
    Action action = Action::run;
    // For Action::error: the line to print on standard error.
    std::string error;
};

// `arguments` without the program's name.
Parsed parse(const std::vector<std::string_view>& arguments);

std::string usage();

inline constexpr int kUsageExitCode = 2;

}  // namespace jorvane::commandline
