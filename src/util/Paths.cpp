#include "util/Paths.h"

#include <pwd.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <optional>

#include <utf8proc.h>

namespace jorvane::paths {

namespace {

// ---------------------------------------------------------------- slashes

// Runs of "/" become one; a trailing "/" is dropped unless it is all there is
// (or `keepTrailing` asks for it).
std::string foldSlashes(std::string_view path, bool keepTrailing = false) {
    std::string out;
    out.reserve(path.size());
    for (const char c : path) {
        if (c == '/' && !out.empty() && out.back() == '/') continue;
        out.push_back(c);
    }
    if (!keepTrailing && out.size() > 1 && out.back() == '/') out.pop_back();
    return out;
}

// Calls `each` with every non-empty segment between slashes.
template <typename F>
void forEachSegment(std::string_view path, F&& each) {
    std::size_t pos = 0;
    while (pos < path.size()) {
        if (path[pos] == '/') {
            ++pos;
            continue;
        }
        std::size_t end = path.find('/', pos);
        if (end == std::string_view::npos) end = path.size();
        each(path.substr(pos, end - pos));
        pos = end;
    }
}

// ---------------------------------------------------------------- home folders

std::optional<std::string> homeFromPasswd(bool current, const std::string& user) {
    long suggested = ::sysconf(_SC_GETPW_R_SIZE_MAX);
    std::string buffer(suggested > 0 ? static_cast<std::size_t>(suggested) : 4096, '\0');
    for (;;) {
        passwd entry{};
        passwd* found = nullptr;
        const int rc = current ? ::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &found)
                               : ::getpwnam_r(user.c_str(), &entry, buffer.data(), buffer.size(), &found);
        if (rc == ERANGE && buffer.size() < (1u << 20)) {
            buffer.resize(buffer.size() * 2);
            continue;
        }
        if (rc != 0 || !found || !found->pw_dir || !*found->pw_dir) return std::nullopt;
        return std::string(found->pw_dir);
    }
}

std::optional<std::string> homeOf(std::string_view user) {
    if (user.empty()) {
        const char* home = std::getenv("HOME");
        if (home && *home) return std::string(home);
        return homeFromPasswd(true, {});
    }
    // A name holding a NUL byte would be cut short by the C interface and
    // name somebody else.
    if (user.find('\0') != std::string_view::npos) return std::nullopt;
    return homeFromPasswd(false, std::string(user));
}

// ---------------------------------------------------------------- characters

// Invalid bytes are mapped above the Unicode range, so that they equal only
// themselves and never a real (folded) character.
constexpr char32_t kInvalidByteBase = kInvalidByte;

constexpr bool isContinuation(unsigned char b) { return (b & 0xC0) == 0x80; }

// Decodes the character at s[i] and advances i past it. Well-formed UTF-8
// only (no overlong forms, surrogates or values above U+10FFFF); anything
// else yields one invalid byte.
char32_t decode(std::string_view s, std::size_t& i) {
    const auto at = [&](std::size_t k) { return static_cast<unsigned char>(s[k]); };
    const unsigned char b0 = at(i);
    const std::size_t left = s.size() - i;
    if (b0 < 0x80) {
        ++i;
        return b0;
    }
    if (b0 >= 0xC2 && b0 <= 0xDF && left >= 2 && isContinuation(at(i + 1))) {
        const char32_t cp = (char32_t(b0 & 0x1F) << 6) | (at(i + 1) & 0x3F);
        i += 2;
        return cp;
    }
    if (b0 >= 0xE0 && b0 <= 0xEF && left >= 3) {
        const unsigned char b1 = at(i + 1);
        const unsigned char lo = b0 == 0xE0 ? 0xA0 : 0x80;
        const unsigned char hi = b0 == 0xED ? 0x9F : 0xBF;
        if (b1 >= lo && b1 <= hi && isContinuation(at(i + 2))) {
            const char32_t cp = (char32_t(b0 & 0x0F) << 12) | (char32_t(b1 & 0x3F) << 6) | (at(i + 2) & 0x3F);
            i += 3;
            return cp;
        }
    }
    if (b0 >= 0xF0 && b0 <= 0xF4 && left >= 4) {
        const unsigned char b1 = at(i + 1);
        const unsigned char lo = b0 == 0xF0 ? 0x90 : 0x80;
        const unsigned char hi = b0 == 0xF4 ? 0x8F : 0xBF;
        if (b1 >= lo && b1 <= hi && isContinuation(at(i + 2)) && isContinuation(at(i + 3))) {
            const char32_t cp = (char32_t(b0 & 0x07) << 18) | (char32_t(b1 & 0x3F) << 12) |
                                (char32_t(at(i + 2) & 0x3F) << 6) | (at(i + 3) & 0x3F);
            i += 4;
            return cp;
        }
    }
    ++i;
    return kInvalidByteBase + b0;
}

constexpr unsigned char asciiLower(unsigned char c) { return (c >= 'A' && c <= 'Z') ? c + ('a' - 'A') : c; }

// Simple case folding of one code point: utf8proc's folding when it maps to a
// single code point, else (characters whose full folding expands, like "ß" or
// "ẞ") the simple lower-case mapping, which is their simple folding or close to it.
char32_t foldWithUtf8proc(char32_t cp) {
    utf8proc_int32_t out[4];
    int boundclass = 0;
    const auto n = utf8proc_decompose_char(static_cast<utf8proc_int32_t>(cp), out, 4, UTF8PROC_CASEFOLD, &boundclass);
    if (n == 1) return static_cast<char32_t>(out[0]);
    return static_cast<char32_t>(utf8proc_tolower(static_cast<utf8proc_int32_t>(cp)));
}

// The two-byte range (Latin, Greek, Cyrillic, Hebrew, Arabic...) is folded
// through a table filled once from utf8proc: names are mostly made of these.
constexpr char32_t kTableSize = 0x800;

const std::array<char32_t, kTableSize>& foldTable() {
    static const std::array<char32_t, kTableSize> table = [] {
        std::array<char32_t, kTableSize> t{};
        for (char32_t cp = 0; cp < kTableSize; ++cp) t[cp] = foldWithUtf8proc(cp);
        return t;
    }();
    return table;
}

char32_t fold(char32_t cp) {
    if (cp < 0x80) return asciiLower(static_cast<unsigned char>(cp));
    if (cp < kTableSize) return foldTable()[cp];
    if (cp >= kInvalidByteBase) return cp;
    return foldWithUtf8proc(cp);
}

bool isAscii(std::string_view s) {
    unsigned char any = 0;
    for (const char c : s) any |= static_cast<unsigned char>(c);
    return any < 0x80;
}

// Greedy matching with a return to the most recent "*": when a literal fails,
// the last star takes one more character and matching resumes after it.
// Earlier stars never need to be revisited, because a later star can absorb
// whatever they would have, so the cost is O(|text| * |pattern|) at worst.
// The part after the last star can only match the end of the text, so it is
// checked there first: "*.txt" and "*aaaa...b" cost O(|text| + |pattern|).
template <typename Text, typename Pattern>
bool wildcardMatch(const Text& text, std::size_t textSize, const Pattern& pattern, std::size_t patternSize) {
    constexpr std::size_t none = static_cast<std::size_t>(-1);
    std::size_t lastStar = none;
    for (std::size_t i = patternSize; i-- > 0;) {
        if (pattern[i] == '*') {
            lastStar = i;
            break;
        }
    }
    if (lastStar != none) {
        const std::size_t tail = patternSize - lastStar - 1;
        if (tail > textSize) return false;
        for (std::size_t k = 0; k < tail; ++k) {
            const auto c = pattern[lastStar + 1 + k];
            if (c != '?' && c != text[textSize - tail + k]) return false;
        }
        textSize -= tail;
        patternSize = lastStar + 1;
    }
    std::size_t t = 0;
    std::size_t p = 0;
    std::size_t afterStar = none;
    std::size_t starText = 0;
    while (t < textSize) {
        if (p < patternSize) {
            const auto c = pattern[p];
            if (c == '*') {
                afterStar = ++p;
                starText = t;
                continue;
            }
            if (c == '?' || c == text[t]) {
                ++p;
                ++t;
                continue;
            }
        }
        if (afterStar == none) return false;
        p = afterStar;
        t = ++starText;
    }
    while (p < patternSize && pattern[p] == '*') ++p;
    return p == patternSize;
}

void decodeFolded(std::string_view s, std::vector<char32_t>& out) {
    out.clear();
    std::size_t i = 0;
    while (i < s.size()) out.push_back(fold(decode(s, i)));
}

}  // namespace

// ------------------------------------------------------------------- public

std::string stringByExpandingTildeInPath(std::string_view path) {
    if (path.empty() || path.front() != '~') return std::string(path);
    const std::size_t slash = path.find('/');
    const std::string_view user = path.substr(1, slash == std::string_view::npos ? std::string_view::npos : slash - 1);
    const std::string_view rest = slash == std::string_view::npos ? std::string_view{} : path.substr(slash);
    const std::optional<std::string> home = homeOf(user);
    if (!home) return std::string(path);
    return foldSlashes(*home + std::string(rest));
}

std::string stringByStandardizingPath(std::string_view path) {
    const std::string expanded = stringByExpandingTildeInPath(path);
    if (expanded.empty()) return {};
    const bool absolute = expanded.front() == '/';
    std::vector<std::string_view> kept;
    forEachSegment(expanded, [&](std::string_view segment) {
        if (segment == ".") return;
        if (absolute && segment == "..") {
            if (!kept.empty()) kept.pop_back();
            return;
        }
        kept.push_back(segment);
    });
    std::string out = absolute ? "/" : "";
    for (std::size_t i = 0; i < kept.size(); ++i) {
        if (i > 0) out += '/';
        out += kept[i];
    }
    // push_back rather than assigning a literal: GCC 12 at -O3 warns falsely (-Wrestrict) about the latter.
    if (out.empty()) out.push_back('.');
    return out;
}

std::vector<std::string> pathComponents(std::string_view path) {
    std::vector<std::string> out;
    if (path.empty()) return out;
    if (path.front() == '/') out.emplace_back("/");
    bool anySegment = false;
    forEachSegment(path, [&](std::string_view segment) {
        out.emplace_back(segment);
        anySegment = true;
    });
    if (anySegment && path.back() == '/') out.emplace_back("/");
    return out;
}

std::string pathWithComponents(const std::vector<std::string>& components) {
    std::string out;
    for (std::size_t i = 0; i < components.size(); ++i) {
        const std::string& component = components[i];
        const bool last = i + 1 == components.size();
        if (component.empty() || component == "/") {
            if (i == 0 && component == "/") {
                out.push_back('/');
            } else if (last && !out.empty() && out.back() != '/') {
                out += '/';
            }
            continue;
        }
        if (!out.empty() && out.back() != '/') out += '/';
        out += component;
    }
    return foldSlashes(out, /*keepTrailing=*/true);
}

std::string stringByAppendingPathComponent(std::string_view path, std::string_view component) {
    if (component.empty()) return foldSlashes(path);
    if (path.empty()) return foldSlashes(component);
    std::string joined(path);
    joined += '/';
    joined += component;
    return foldSlashes(joined);
}

std::string stringByDeletingLastPathComponent(std::string_view path) {
    const std::string folded = foldSlashes(path);
    if (folded.empty() || folded == "/") return folded;
    const std::size_t slash = folded.rfind('/');
    if (slash == std::string::npos) return {};
    if (slash == 0) return "/";
    return folded.substr(0, slash);
}

std::string lastPathComponent(std::string_view path) {
    const std::string folded = foldSlashes(path);
    if (folded == "/") return folded;
    const std::size_t slash = folded.rfind('/');
    return slash == std::string::npos ? folded : folded.substr(slash + 1);
}

bool isAbsolutePath(std::string_view path) { return !path.empty() && (path.front() == '/' || path.front() == '~'); }

bool isCaseInsensitiveLike(std::string_view text, std::string_view pattern) {
    if (isAscii(text) && isAscii(pattern)) {
        struct Lowered {
            std::string_view s;
            unsigned char operator[](std::size_t i) const { return asciiLower(static_cast<unsigned char>(s[i])); }
        };
        return wildcardMatch(Lowered{text}, text.size(), Lowered{pattern}, pattern.size());
    }
    // Kept per thread so that filtering many names does not allocate per name.
    thread_local std::vector<char32_t> foldedText;
    thread_local std::vector<char32_t> foldedPattern;
    decodeFolded(text, foldedText);
    decodeFolded(pattern, foldedPattern);
    return wildcardMatch(foldedText, foldedText.size(), foldedPattern, foldedPattern.size());
}

bool hasCaseInsensitivePrefix(std::string_view text, std::string_view prefix) {
    std::size_t t = 0;
    std::size_t p = 0;
    while (p < prefix.size()) {
        if (t >= text.size()) return false;
        const auto a = static_cast<unsigned char>(prefix[p]);
        const auto b = static_cast<unsigned char>(text[t]);
        if (a < 0x80 && b < 0x80) {
            if (asciiLower(a) != asciiLower(b)) return false;
            ++p;
            ++t;
            continue;
        }
        // Both indices stand on character boundaries: every step consumes whole characters.
        if (fold(decode(prefix, p)) != fold(decode(text, t))) return false;
    }
    return true;
}

char32_t decodeCharacter(std::string_view text, std::size_t& i) { return decode(text, i); }

char32_t foldCharacter(char32_t c) { return fold(c); }

std::string caseFolded(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    std::size_t i = 0;
    while (i < text.size()) {
        const auto b = static_cast<unsigned char>(text[i]);
        if (b < 0x80) {
            out.push_back(static_cast<char>(asciiLower(b)));
            ++i;
            continue;
        }
        const char32_t c = fold(decode(text, i));
        if (c >= kInvalidByteBase) {
            out.push_back(static_cast<char>(c - kInvalidByteBase));
        } else if (c < 0x80) {
            out.push_back(static_cast<char>(c));
        } else if (c < 0x800) {
            out.push_back(static_cast<char>(0xC0 | (c >> 6)));
            out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
        } else if (c < 0x10000) {
            out.push_back(static_cast<char>(0xE0 | (c >> 12)));
            out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
            out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
        } else {
            out.push_back(static_cast<char>(0xF0 | (c >> 18)));
            out.push_back(static_cast<char>(0x80 | ((c >> 12) & 0x3F)));
            out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
            out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
        }
    }
    return out;
}

}  // namespace jorvane::paths
