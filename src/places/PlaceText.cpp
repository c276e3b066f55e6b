#include "places/PlaceText.h"

#include <array>
#include <cstdlib>
#include <vector>

#include "util/Paths.h"

namespace jorvane::places {

namespace {

constexpr std::array<std::string_view, 15> kLocationSchemes = {"sftp",  "ssh",  "smb",   "ftp",    "ftps",
                                                               "dav",   "davs", "afp",   "nfs",    "http",
                                                               "https", "mtp",  "trash", "recent", "network"};

bool isNameStart(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_'; }
bool isNameCharacter(char c) { return isNameStart(c) || (c >= '0' && c <= '9'); }
bool isBlank(char c) { return c == ' ' || c == '\t'; }

int hexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// "$NAME" or "${NAME}" at text[i] ('$'): appends the value and returns the
// length of the reference, or 0 when there is no reference or no such variable
// (the caller then copies the '$' as typed).
std::size_t expandVariable(std::string_view text, std::size_t i, const PlaceLookups& lookups, std::string& out) {
    std::size_t nameStart = i + 1, nameEnd = nameStart, length = 0;
    if (nameStart < text.size() && text[nameStart] == '{') {
        ++nameStart;
        nameEnd = nameStart;
        while (nameEnd < text.size() && isNameCharacter(text[nameEnd])) ++nameEnd;
        if (nameEnd >= text.size() || text[nameEnd] != '}') return 0;
        length = nameEnd + 1 - i;
    } else {
        while (nameEnd < text.size() && isNameCharacter(text[nameEnd])) ++nameEnd;
        length = nameEnd - i;
    }
    if (nameEnd == nameStart || !isNameStart(text[nameStart]) || !lookups.variable) return 0;
    const std::optional<std::string> value = lookups.variable(text.substr(nameStart, nameEnd - nameStart));
    if (!value) return 0;
    out += *value;
    return length;
}

// "~" or "~user" up to the first slash (or `end`), when the user is known.
std::optional<std::string> expandTilde(std::string_view text, std::size_t end, const PlaceLookups& lookups) {
    if (text.empty() || text.front() != '~' || !lookups.home) return std::nullopt;
    const std::size_t slash = text.find('/');
    const std::size_t userEnd = std::min(slash == std::string_view::npos ? text.size() : slash, end);
    return lookups.home(text.substr(1, userEnd - 1));
}

std::string expandPlain(std::string_view text, const PlaceLookups& lookups) {
    std::string out;
    std::size_t i = 0;
    if (const std::optional<std::string> home = expandTilde(text, text.size(), lookups)) {
        out = *home;
        i = std::min(text.find('/'), text.size());
    }
    while (i < text.size()) {
        if (text[i] == '$') {
            if (const std::size_t used = expandVariable(text, i, lookups, out)) {
                i += used;
                continue;
            }
        }
        out += text[i++];
    }
    return out;
}

// Reads the text as one shell word; nullopt when it is not one.
std::optional<std::string> readShellWord(std::string_view text, const PlaceLookups& lookups) {
    std::string out;
    std::size_t i = 0;
    // An unquoted "~" or "~user" at the start, ending at the first slash or quote.
    if (!text.empty() && text.front() == '~') {
        std::size_t end = 1;
        while (end < text.size() && text[end] != '/' && text[end] != '\'' && text[end] != '"' && text[end] != '\\' &&
               !isBlank(text[end]))
            ++end;
        if (const std::optional<std::string> home = expandTilde(text, end, lookups)) {
            out = *home;
            i = end;
        }
    }
    while (i < text.size()) {
        const char c = text[i];
        if (isBlank(c) || c == '\n') return std::nullopt;  // a second word
        if (c == '\'') {
            const std::size_t close = text.find('\'', i + 1);
            if (close == std::string_view::npos) return std::nullopt;
            out.append(text.substr(i + 1, close - i - 1));
            i = close + 1;
        } else if (c == '"') {
            ++i;
            for (;;) {
                if (i >= text.size()) return std::nullopt;
                const char d = text[i];
                if (d == '"') {
                    ++i;
                    break;
                }
                if (d == '\\' && i + 1 < text.size() &&
                    (text[i + 1] == '"' || text[i + 1] == '\\' || text[i + 1] == '$' || text[i + 1] == '`')) {
                    out += text[i + 1];
                    i += 2;
                } else if (d == '$' && i + 1 < text.size()) {
                    const std::size_t used = expandVariable(text, i, lookups, out);
                    if (used == 0) out += text[i++];
                    i += used;
                } else {
                    out += d;
                    ++i;
                }
            }
        } else if (c == '\\') {
            if (i + 1 < text.size()) {
                out += text[i + 1];
                i += 2;
            } else {
                out += c;
                ++i;
            }
        } else if (c == '$') {
            const std::size_t used = expandVariable(text, i, lookups, out);
            if (used == 0) out += text[i++];
            i += used;
        } else {
            out += c;
            ++i;
        }
    }
    return out;
}

// Folds slashes and resolves "." and ".." as described in the header.
std::string tidy(std::string_view path, PlaceUse use) {
    if (path.empty()) return {};
    const bool absolute = path.front() == '/';
    const bool trailingSlash = path.back() == '/';
    std::vector<std::string_view> parts;
    std::size_t pos = 0;
    while (pos < path.size()) {
        std::size_t end = path.find('/', pos);
        if (end == std::string_view::npos) end = path.size();
        if (end > pos) parts.push_back(path.substr(pos, end - pos));
        pos = end + 1;
    }
    // For completion, a last component without a slash after it is kept as typed.
    std::string_view keptLast;
    if (use == PlaceUse::completion && !trailingSlash && !parts.empty()) {
        keptLast = parts.back();
        parts.pop_back();
    }
    std::vector<std::string_view> kept;
    for (const std::string_view part : parts) {
        if (part == ".") continue;
        if (part == "..") {
            if (!kept.empty() && kept.back() != "..") {
                kept.pop_back();
            } else if (!absolute) {
                kept.push_back(part);
            }
            continue;
        }
        kept.push_back(part);
    }
    if (!keptLast.empty()) kept.push_back(keptLast);
    std::string out = absolute ? "/" : "";
    for (std::size_t i = 0; i < kept.size(); ++i) {
        if (i > 0) out += '/';
        out += kept[i];
    }
    if (trailingSlash && !kept.empty()) out += '/';
    if (out.empty()) out.push_back('.');
    return out;
}

std::string_view trimLineBreaks(std::string_view text) {
    while (!text.empty() && (text.front() == '\n' || text.front() == '\r')) text.remove_prefix(1);
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.remove_suffix(1);
    return text;
}

std::string_view trimBlanks(std::string_view text) {
    while (!text.empty() && isBlank(text.front())) text.remove_prefix(1);
    while (!text.empty() && isBlank(text.back())) text.remove_suffix(1);
    return text;
}

// A URL or file URI in the (unquoted) text, if it is one.
std::optional<Place> asUrl(std::string_view text) {
    if (isLocationUrl(text)) return Place{Place::Kind::location, std::string(text)};
    if (text.starts_with("file:")) {
        if (std::optional<std::string> path = pathOfFileUri(text)) return Place{Place::Kind::path, std::move(*path)};
        return Place{Place::Kind::invalid, std::string(text)};
    }
    return std::nullopt;
}

}  // namespace

bool isLocationUrl(std::string_view text) {
    const std::size_t colon = text.find("://");
    if (colon == std::string_view::npos) return false;
    const std::string_view scheme = text.substr(0, colon);
    for (const std::string_view known : kLocationSchemes)
        if (scheme == known) return true;
    return false;
}

std::optional<std::string> pathOfFileUri(std::string_view uri) {
    if (!uri.starts_with("file://")) return std::nullopt;
    std::string_view rest = uri.substr(7);
    const std::size_t slash = rest.find('/');
    if (slash == std::string_view::npos) return std::nullopt;
    const std::string_view host = rest.substr(0, slash);
    if (!host.empty() && host != "localhost") return std::nullopt;
    rest.remove_prefix(slash);
    if (rest.find('\0') != std::string_view::npos) return std::nullopt;
    std::string path;
    path.reserve(rest.size());
    for (std::size_t i = 0; i < rest.size(); ++i) {
        if (rest[i] == '%' && i + 2 < rest.size() && hexValue(rest[i + 1]) >= 0 && hexValue(rest[i + 2]) >= 0) {
            const char byte = static_cast<char>(hexValue(rest[i + 1]) * 16 + hexValue(rest[i + 2]));
            if (byte == '\0') return std::nullopt;
            path += byte;
            i += 2;
        } else {
            path += rest[i];
        }
    }
    return path;
}

PlaceLookups systemPlaceLookups() {
    PlaceLookups lookups;
    lookups.variable = [](std::string_view name) -> std::optional<std::string> {
        const char* value = std::getenv(std::string(name).c_str());
        if (!value) return std::nullopt;
        return std::string(value);
    };
    lookups.home = [](std::string_view user) -> std::optional<std::string> {
        const std::string tilde = "~" + std::string(user);
        std::string home = paths::stringByExpandingTildeInPath(tilde);
        if (home == tilde) return std::nullopt;
        return home;
    };
    return lookups;
}

Place interpretPlaceText(std::string_view typed, const PlaceLookups& lookups, PlaceUse use) {
    if (typed.find('\0') != std::string_view::npos) return Place{Place::Kind::invalid, std::string(typed)};
    const std::string_view text = trimLineBreaks(typed);
    const std::string_view word = trimBlanks(text);
    std::optional<std::string> unquoted;
    if (!word.empty() && (word.front() == '\'' || word.front() == '"' || word.find("\\ ") != std::string_view::npos)) {
        unquoted = readShellWord(word, lookups);
    }
    if (std::optional<Place> url = asUrl(unquoted ? std::string_view(*unquoted) : text)) {
        if (url->kind == Place::Kind::path) url->text = tidy(url->text, use);
        if (url->kind == Place::Kind::invalid) url->text = std::string(typed);
        return *url;
    }
    const std::string expanded = unquoted ? std::move(*unquoted) : expandPlain(text, lookups);
    if (expanded.find('\0') != std::string::npos) return Place{Place::Kind::invalid, std::string(typed)};
    return Place{Place::Kind::path, tidy(expanded, use)};
}

}  // namespace jorvane::places
