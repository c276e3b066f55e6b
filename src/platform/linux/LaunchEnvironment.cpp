#include "platform/linux/LaunchEnvironment.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <system_error>

#include "util/Diagnostics.h"

namespace jorvane::launch {

namespace {

std::optional<std::string> variable(const char* name) {
    const char* value = std::getenv(name);
    if (!value) return std::nullopt;
    return std::string(value);
}

bool isSet(const std::optional<std::string>& value) { return value && !value->empty(); }

std::string lowered(std::string_view text) {
    std::string out(text);
    std::transform(out.begin(), out.end(), out.begin(), [](unsigned char c) { return std::tolower(c); });
    return out;
}

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.front()))) text.remove_prefix(1);
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back()))) text.remove_suffix(1);
    return text;
}

std::optional<std::int32_t> levelNamed(std::string_view name) {
    const std::string level = lowered(trimmed(name));
    if (level == "all" || level == "0" || level == "off" || level == "none") return log::All;
    if (level == "error" || level == "1") return log::Error;
    if (level == "warn" || level == "warning" || level == "2") return log::Warn;
    if (level == "info" || level == "3") return log::Info;
    if (level == "debug" || level == "4") return log::Debug;
    return std::nullopt;
}

}  // namespace

SessionVariables SessionVariables::fromEnvironment() {
    return {variable("DISPLAY"), variable("WAYLAND_DISPLAY"), variable("XDG_SESSION_TYPE")};
}

std::optional<std::string> displayProblem(const SessionVariables& session,
                                          const std::function<bool(const std::string&)>& reachable) {
    if (!isSet(session.display)) {
        if (isSet(session.waylandDisplay) || lowered(session.sessionType.value_or("")) == "wayland")
            return "jorvane: this is a Wayland session without X11 (DISPLAY is not set). Jorvane works with Thunar "
                   "windows on X11 only: log in to an X11 session (Xfce, for one) and start it there.";
        return "jorvane: no X display (DISPLAY is not set). Jorvane needs an X11 session with Thunar.";
    }
    if (!reachable(*session.display))
        return "jorvane: cannot open the X display \"" + *session.display +
               "\". Jorvane needs a running X11 session with Thunar.";
    return std::nullopt;
}

std::filesystem::path resourceDirectoryFor(const std::filesystem::path& executable) {
    return executable.parent_path().parent_path() / "share" / "jorvane";
}

std::filesystem::path currentExecutable() {
    std::error_code error;
    std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe", error);
    if (error) return {};
    return self;
}

std::int32_t defaultLogLevel() { return log::Warn; }

LogSettings parseLogSettings(std::string_view text) {
    LogSettings settings;
    settings.level = defaultLogLevel();
    while (!text.empty()) {
        const std::size_t comma = text.find(',');
        const std::string_view entry = trimmed(text.substr(0, comma));
        text = comma == std::string_view::npos ? std::string_view{} : text.substr(comma + 1);
        if (entry.empty()) continue;
        const std::size_t equals = entry.find('=');
        if (equals == std::string_view::npos) {
            if (const std::optional<std::int32_t> level = levelNamed(entry))
                settings.level = *level;
            else
                settings.errors.push_back("unknown log level \"" + std::string(entry) + "\"");
            continue;
        }
        const std::string_view domain = trimmed(entry.substr(0, equals));
        const std::optional<std::int32_t> level = levelNamed(entry.substr(equals + 1));
        if (domain.empty() || !level) {
            settings.errors.push_back("cannot read the log entry \"" + std::string(entry) + "\"");
            continue;
        }
        settings.domains.emplace_back(std::string(domain), *level);
    }
    return settings;
}

void applyLogSettings(const LogSettings& settings) {
    log::setLevel(settings.level);
    for (const auto& [domain, level] : settings.domains) log::setDomainLevel(domain, level);
}

}  // namespace jorvane::launch
