#include "settings/LoginItems.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <sstream>
#include <system_error>

#include "settings/FileDefaultsStorage.h"
#include "util/Diagnostics.h"
#include "util/Paths.h"

namespace jorvane::LoginItem {
namespace fs = std::filesystem;

namespace {

constexpr const char* kLog = "login-items";
// Desktop entries are a few hundred bytes; a larger file is no entry of ours
// and is not read (a damaged or hostile one could hold a line of gigabytes).
constexpr std::uintmax_t kMaxEntryBytes = 64 * 1024;
constexpr std::string_view kReserved = " \t\n\"'\\><~|&;$*?#()`";

struct Item {
    fs::path file;
    std::string program;
};

std::string_view trim(std::string_view text) {
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t' || text.back() == '\r')) text.remove_suffix(1);
    return text;
}

// The program an entry starts, or nothing when the entry is not an item.
std::optional<std::string> programOfEntry(const fs::path& file) {
    std::error_code ec;
    const std::uintmax_t size = fs::file_size(file, ec);
    if (ec || size > kMaxEntryBytes) {
        log::inDomain(log::Warn, kLog, "%s: not read (%s)", file.c_str(),
                      ec ? ec.message().c_str() : "larger than an autostart entry can be");
        return std::nullopt;
    }
    std::ifstream in(file, std::ios::binary);
    if (!in) return std::nullopt;
    std::ostringstream text;
    text << in.rdbuf();
    if (in.bad()) return std::nullopt;
    return programOfEntryText(text.view());
}

// Every item, in file-name order.
std::vector<Item> items() {
    std::vector<Item> found;
    std::error_code ec;
    fs::directory_iterator it(autostartDirectory(), ec);
    if (ec) return found;
    for (const fs::directory_entry& entry : it) {
        const std::string name = entry.path().filename().string();
        if (name.starts_with('.') || !name.ends_with(".desktop")) continue;
        if (!entry.is_regular_file(ec)) continue;
        if (std::optional<std::string> program = programOfEntry(entry.path())) {
            found.push_back(Item{entry.path(), std::move(*program)});
        }
    }
    std::sort(found.begin(), found.end(),
              [](const Item& a, const Item& b) { return a.file.filename() < b.file.filename(); });
    return found;
}

template <typename Match>
void removeItems(Match matches) {
    for (const Item& item : items()) {
        if (!matches(item.program)) continue;
        if (::unlink(item.file.c_str()) != 0) {
            log::inDomain(log::Warn, kLog, "cannot remove %s: %s", item.file.c_str(), std::strerror(errno));
        }
    }
}

// A file name made of the program's name, in characters any desktop copes with.
std::string baseName(std::string_view path) {
    std::string base;
    for (char c : paths::lastPathComponent(path)) {
        const bool plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' ||
                           c == '_' || c == '-';
        base.push_back(plain ? c : '-');
    }
    while (!base.empty() && base.front() == '.') base.erase(base.begin());
    return base.empty() ? std::string("login-item") : base;
}

std::string entryText(std::string_view path) {
    std::string text = "[Desktop Entry]\nType=Application\n";
    text += "Name=" + escapeDesktopValue(paths::lastPathComponent(path)) + "\n";
    text += "Exec=" + escapeDesktopValue(quoteExecArgument(path)) + "\n";
    text += "Terminal=false\nX-GNOME-Autostart-enabled=true\n";
    return text;
}

bool writeAll(int fd, const std::string& text) {
    std::size_t done = 0;
    while (done < text.size()) {
        const ssize_t n = ::write(fd, text.data() + done, text.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        done += static_cast<std::size_t>(n);
    }
    return true;
}

}  // namespace

fs::path autostartDirectory() { return settings::settingsDirectory().parent_path() / "autostart"; }

void InstallLoginItemWithPath(std::string_view path) {
    if (path.empty() || HasLoginItemWithPath(path)) return;
    const fs::path directory = autostartDirectory();
    std::error_code ec;
    fs::create_directories(directory, ec);
    if (ec) {
        log::inDomain(log::Warn, kLog, "cannot create %s: %s", directory.c_str(), ec.message().c_str());
        return;
    }
    std::string temporary = (directory / ".jorvane-login-item-XXXXXX").string();
    const int fd = ::mkstemp(temporary.data());
    if (fd < 0) {
        log::inDomain(log::Warn, kLog, "cannot write in %s: %s", directory.c_str(), std::strerror(errno));
        return;
    }
    const bool written = writeAll(fd, entryText(path)) && ::fchmod(fd, 0644) == 0 && ::fsync(fd) == 0;
    const int writeError = errno;
    ::close(fd);
    if (!written) {
        log::inDomain(log::Warn, kLog, "cannot write %s: %s", temporary.c_str(), std::strerror(writeError));
        ::unlink(temporary.c_str());
        return;
    }
    // link() puts the complete file in place and fails rather than replace
    // a file of the same name.
    const std::string base = baseName(path);
    bool placed = false;
    for (int attempt = 1; attempt <= 1000 && !placed; ++attempt) {
        const fs::path target =
            directory / (attempt == 1 ? base + ".desktop" : base + "-" + std::to_string(attempt) + ".desktop");
        if (::link(temporary.c_str(), target.c_str()) == 0) {
            placed = true;
        } else if (errno != EEXIST) {
            log::inDomain(log::Warn, kLog, "cannot create %s: %s", target.c_str(), std::strerror(errno));
            break;
        }
    }
    ::unlink(temporary.c_str());
    if (placed) {
        if (const int dir = ::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); dir >= 0) {
            ::fsync(dir);
            ::close(dir);
        }
    }
}

void RemoveLoginItemWithFileName(std::string_view name) {
    removeItems([&](const std::string& program) { return paths::lastPathComponent(program) == name; });
}

void RemoveLoginItemWithPath(std::string_view path) {
    removeItems([&](const std::string& program) { return program == path; });
}

bool HasLoginItemWithPath(std::string_view path) {
    const std::vector<Item> all = items();
    return std::any_of(all.begin(), all.end(), [&](const Item& item) { return item.program == path; });
}

std::optional<std::string> programOfEntryText(std::string_view text) {
    bool inMainGroup = false;
    std::optional<std::string> exec;
    bool switchedOff = false;
    while (!text.empty()) {
        const std::size_t end = text.find('\n');
        const std::string_view line = trim(text.substr(0, end));
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
        if (line.empty() || line.front() == '#') continue;
        if (line.front() == '[') {
            inMainGroup = line == "[Desktop Entry]";
            continue;
        }
        if (!inMainGroup) continue;
        const std::size_t equals = line.find('=');
        if (equals == std::string_view::npos) continue;
        const std::string_view key = trim(line.substr(0, equals));
        const std::string value = unescapeDesktopValue(trim(line.substr(equals + 1)));
        if (key == "Exec") exec = value;
        if (key == "Hidden" && value == "true") switchedOff = true;
        if (key == "X-GNOME-Autostart-enabled" && value == "false") switchedOff = true;
    }
    if (!exec || switchedOff) return std::nullopt;
    const std::optional<std::vector<std::string>> arguments = splitExecArguments(*exec);
    if (!arguments || arguments->empty() || arguments->front().empty()) return std::nullopt;
    return arguments->front();
}

std::string quoteExecArgument(std::string_view argument) {
    std::string out;
    const bool quoted = argument.empty() || argument.find_first_of(kReserved) != std::string_view::npos;
    if (quoted) out.push_back('"');
    for (char c : argument) {
        if (quoted && (c == '"' || c == '`' || c == '$' || c == '\\')) out.push_back('\\');
        out.push_back(c);
        if (c == '%') out.push_back('%');
    }
    if (quoted) out.push_back('"');
    return out;
}

std::optional<std::vector<std::string>> splitExecArguments(std::string_view exec) {
    std::vector<std::string> arguments;
    std::string current;
    bool inArgument = false;
    bool inQuotes = false;
    for (std::size_t at = 0; at < exec.size(); ++at) {
        const char c = exec[at];
        if (inQuotes) {
            if (c == '\\' && at + 1 < exec.size()) {
                current.push_back(exec[++at]);
            } else if (c == '%' && at + 1 < exec.size() && exec[at + 1] == '%') {
                current.push_back('%');
                ++at;
            } else if (c == '"') {
                inQuotes = false;
            } else {
                current.push_back(c);
            }
            continue;
        }
        if (c == ' ' || c == '\t' || c == '\n') {
            if (inArgument) arguments.push_back(std::move(current));
            current.clear();
            inArgument = false;
            continue;
        }
        inArgument = true;
        if (c == '"') {
            inQuotes = true;
        } else if (c == '%' && at + 1 < exec.size() && exec[at + 1] == '%') {
            current.push_back('%');
            ++at;
        } else {
            current.push_back(c);
        }
    }
    if (inQuotes) return std::nullopt;
    if (inArgument) arguments.push_back(std::move(current));
    return arguments;
}

std::string escapeDesktopValue(std::string_view value) {
    std::string out;
    for (std::size_t at = 0; at < value.size(); ++at) {
        const char c = value[at];
        switch (c) {
            case '\\': out += "\\\\"; break;
            case '\n': out += "\\n"; break;
            case '\t': out += "\\t"; break;
            case '\r': out += "\\r"; break;
            case ' ': out += at == 0 ? "\\s" : " "; break;
            default: out.push_back(c);
        }
    }
    return out;
}

std::string unescapeDesktopValue(std::string_view value) {
    std::string out;
    for (std::size_t at = 0; at < value.size(); ++at) {
        if (value[at] != '\\' || at + 1 == value.size()) {
            out.push_back(value[at]);
            continue;
        }
        switch (const char next = value[++at]) {
            case 's': out.push_back(' '); break;
            case 'n': out.push_back('\n'); break;
            case 't': out.push_back('\t'); break;
            case 'r': out.push_back('\r'); break;
            case '\\': out.push_back('\\'); break;
            // Not a string escape: it belongs to the Exec quoting.
            default: out.push_back('\\'); out.push_back(next);
        }
    }
    return out;
}

}  // namespace jorvane::LoginItem
