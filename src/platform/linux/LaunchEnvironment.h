#pragma once

// What the program settles before anything else starts: whether this session
// offers an X display at all (Jorvane works only with Thunar's X11 windows),
// where the shipped resources are, and how loud the log is.

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace jorvane::launch {

// The variables that tell what kind of session this is.
struct SessionVariables {
    std::optional<std::string> display;         // DISPLAY
    std::optional<std::string> waylandDisplay;  // WAYLAND_DISPLAY
    std::optional<std::string> sessionType;     // XDG_SESSION_TYPE

    static SessionVariables fromEnvironment();
};

// The exit code of a start in a session without a usable X display.
inline constexpr int kNoDisplayExitCode = 2;

// Why the program cannot start in this session, as the one line it prints;
// nothing when the display can be used. `reachable` tries to connect to a
// display by name.
std::optional<std::string> displayProblem(const SessionVariables& session,
                                          const std::function<bool(const std::string&)>& reachable);

// <prefix>/share/jorvane for the program <prefix>/bin/jorvane (an install and
// the build tree alike).
std::filesystem::path resourceDirectoryFor(const std::filesystem::path& executable);
// The running program's own file (/proc/self/exe); empty when unknown.
std::filesystem::path currentExecutable();

// The log's thresholds from JORVANE_LOG: comma-separated entries, each a
// level ("error", "warn", "info", "debug", or 0..4) for every domain, or
// "Domain=level" for one domain. Entries that cannot be read are reported
// and skipped.
struct LogSettings {
    std::int32_t level = 0;
    std::vector<std::pair<std::string, std::int32_t>> domains;
    std::vector<std::string> errors;
};
// The level when nothing else is asked for: errors and warnings.
std::int32_t defaultLogLevel();
LogSettings parseLogSettings(std::string_view text);
// Installs the thresholds (log::setLevel and per domain).
void applyLogSettings(const LogSettings& settings);

}  // namespace jorvane::launch
