#include "platform/thunar/ThunarText.h"

#include <algorithm>
#include <array>

namespace jorvane::thunar {

namespace {

constexpr std::string_view kTitleSuffix = " - Thunar";
constexpr std::string_view kReplacement = "\xEF\xBF\xBD";  // U+FFFD

int hexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// Length of the well-formed UTF-8 sequence at the start of bytes, 0 when
// there is none.
std::size_t validSequenceLength(std::string_view bytes) {
    const auto b0 = static_cast<unsigned char>(bytes[0]);
    if (b0 == 0) return 0;
    if (b0 < 0x80) return 1;
    std::size_t length = 0;
    unsigned char low = 0x80, high = 0xBF;  // allowed range of the second byte
    if (b0 >= 0xC2 && b0 <= 0xDF) {
        length = 2;
    } else if (b0 >= 0xE0 && b0 <= 0xEF) {
        length = 3;
        if (b0 == 0xE0) low = 0xA0;   // no overlong forms
        if (b0 == 0xED) high = 0x9F;  // no surrogates
    } else if (b0 >= 0xF0 && b0 <= 0xF4) {
        length = 4;
        if (b0 == 0xF0) low = 0x90;   // no overlong forms
        if (b0 == 0xF4) high = 0x8F;  // nothing above U+10FFFF
    } else {
        return 0;
    }
    if (bytes.size() < length) return 0;
    const auto b1 = static_cast<unsigned char>(bytes[1]);
    if (b1 < low || b1 > high) return 0;
    for (std::size_t i = 2; i < length; ++i) {
        const auto b = static_cast<unsigned char>(bytes[i]);
        if (b < 0x80 || b > 0xBF) return 0;
    }
    return length;
}

}  // namespace

std::string_view titleLocation(std::string_view title) {
    if (title.size() >= kTitleSuffix.size() && title.substr(title.size() - kTitleSuffix.size()) == kTitleSuffix)
        return title.substr(0, title.size() - kTitleSuffix.size());
    return title;
}

std::optional<std::string> folderFromTitle(std::string_view title) {
    // Longer than any path the kernel takes (PATH_MAX, 4096 bytes with its
    // NUL), even escaped three bytes for one: no folder, whatever the title says.
    constexpr std::size_t kMaxTitleBytes = 3 * 4096 + 64;
    if (title.size() > kMaxTitleBytes) return std::nullopt;
    const std::string_view location = titleLocation(title);
    if (location.size() == title.size()) return std::nullopt;  // not a browser title
    if (!location.empty() && location.front() == '/') {
        if (location.size() >= 4096) return std::nullopt;
        return withoutTrailingSlash(location);
    }
    constexpr std::string_view kFileScheme = "file://";
    if (location.substr(0, kFileScheme.size()) != kFileScheme) return std::nullopt;
    std::string_view rest = location.substr(kFileScheme.size());
    constexpr std::string_view kLocalHost = "localhost";
    if (rest.substr(0, kLocalHost.size()) == kLocalHost) rest.remove_prefix(kLocalHost.size());
    if (rest.empty() || rest.front() != '/') return std::nullopt;  // a remote host
    std::optional<std::string> path = percentDecode(rest);
    if (!path || path->size() >= 4096) return std::nullopt;
    return withoutTrailingSlash(*path);
}

std::optional<std::string> percentDecode(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            out.push_back(text[i]);
            continue;
        }
        if (i + 2 >= text.size()) return std::nullopt;
        const int hi = hexValue(text[i + 1]);
        const int lo = hexValue(text[i + 2]);
        if (hi < 0 || lo < 0) return std::nullopt;
        const char byte = static_cast<char>(hi * 16 + lo);
        if (byte == '\0') return std::nullopt;
        out.push_back(byte);
        i += 2;
    }
    return out;
}

bool isValidUtf8(std::string_view bytes) {
    while (!bytes.empty()) {
        const std::size_t n = validSequenceLength(bytes);
        if (n == 0) return false;
        bytes.remove_prefix(n);
    }
    return true;
}

std::string makeValidUtf8(std::string_view bytes) {
    std::string out;
    out.reserve(bytes.size());
    while (!bytes.empty()) {
        const std::size_t n = validSequenceLength(bytes);
        if (n == 0) {
            out.append(kReplacement);
            bytes.remove_prefix(1);
        } else {
            out.append(bytes.substr(0, n));
            bytes.remove_prefix(n);
        }
    }
    return out;
}

bool displayedNameMatches(std::string_view displayed, std::string_view rawName) {
    if (rawName.empty()) return false;
    if (isValidUtf8(rawName)) return displayed == rawName;
    const std::string repaired = makeValidUtf8(rawName);
    if (displayed == repaired) return true;
    // Thunar appends " (invalid encoding)" in the user's language.
    return displayed.size() > repaired.size() + 2 && displayed.substr(0, repaired.size()) == repaired &&
           displayed[repaired.size()] == ' ';
}

std::vector<std::string> splitItemList(std::string_view joined) {
    std::vector<std::string> items;
    auto add = [&items](std::string_view item) {
        if (!item.empty() && item.front() == '/') item.remove_prefix(1);
        while (!item.empty() && item.back() == '/') item.remove_suffix(1);
        if (!item.empty()) items.emplace_back(item);
    };
    std::size_t start = 0;
    for (;;) {
        const std::size_t at = joined.find(handlers::itemSeparator, start);
        if (at == std::string_view::npos) {
            add(joined.substr(start));
            break;
        }
        add(joined.substr(start, at - start));
        start = at + handlers::itemSeparator.size();
    }
    return items;
}

std::string withoutTrailingSlash(std::string_view path) {
    while (path.size() > 1 && path.back() == '/') path.remove_suffix(1);
    return std::string(path);
}

std::optional<PathSplit> splitParent(std::string_view path) {
    const std::string trimmed = withoutTrailingSlash(path);
    if (trimmed.empty() || trimmed.front() != '/' || trimmed == "/") return std::nullopt;
    const std::size_t slash = trimmed.rfind('/');
    PathSplit split;
    split.parent = slash == 0 ? "/" : trimmed.substr(0, slash);
    split.name = trimmed.substr(slash + 1);
    return split;
}

std::optional<std::string> selectedNameFromStatus(std::string_view status, const std::vector<std::string>& candidates) {
    // Opening quotes of the languages Thunar is translated to.
    static constexpr std::array<std::string_view, 7> kOpening = {"\"", "\xE2\x80\x9C", "\xE2\x80\x9E", "\xC2\xAB",
                                                                 "'",  "\xE2\x80\x98", "\xE3\x80\x8C"};
    static constexpr std::array<std::string_view, 8> kClosing = {"\"", "\xE2\x80\x9D", "\xE2\x80\x9C", "\xC2\xBB",
                                                                 "'",  "\xE2\x80\x99", "\xE3\x80\x8D", "\xE2\x80\x98"};
    std::string_view rest;
    for (std::string_view open : kOpening) {
        if (status.substr(0, open.size()) == open) {
            rest = status.substr(open.size());
            break;
        }
    }
    if (rest.empty()) return std::nullopt;
    const std::string* best = nullptr;
    std::size_t bestLength = 0;
    for (const std::string& candidate : candidates) {
        if (candidate.empty()) continue;
        // The displayed form: the repaired name, perhaps followed by the
        // " (invalid encoding)" note, then the closing quote.
        const std::string shown = makeValidUtf8(candidate);
        if (rest.substr(0, shown.size()) != shown) continue;
        std::string_view after = rest.substr(shown.size());
        if (!isValidUtf8(candidate) && after.substr(0, 2) == " (") {
            const std::size_t note = after.find(')');
            if (note == std::string_view::npos) continue;
            after.remove_prefix(note + 1);
        }
        const bool closed = std::any_of(kClosing.begin(), kClosing.end(),
                                        [after](std::string_view c) { return after.substr(0, c.size()) == c; });
        if (closed && shown.size() > bestLength) {
            best = &candidate;
            bestLength = shown.size();
        }
    }
    if (!best) return std::nullopt;
    return *best;
}

std::string stripMnemonic(std::string_view label) {
    std::string out;
    out.reserve(label.size());
    for (std::size_t i = 0; i < label.size(); ++i) {
        if (label[i] == '_') {
            if (i + 1 < label.size() && label[i + 1] == '_') {
                out.push_back('_');
                ++i;
            }
            continue;
        }
        out.push_back(label[i]);
    }
    return out;
}

bool isThunarWindow(const WindowTraits& traits) {
    return traits.wmClassName == "Thunar" || traits.wmClassInstance == "thunar";
}

bool isThunarBrowserWindow(const WindowTraits& traits) {
    return isThunarWindow(traits) && traits.typeNormal && !traits.transient && traits.role.rfind("Thunar-", 0) == 0;
}

}  // namespace jorvane::thunar
