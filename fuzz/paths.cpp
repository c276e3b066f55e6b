// Fuzzes the path toolkit and the case-insensitive wildcard matcher.
//
// The input is split at its first NUL byte into a text and a pattern. The
// matcher is compared with a slow but obviously correct reference (a dynamic
// programme over code points decoded and folded with utf8proc directly), and
// the path functions are checked for the properties they promise: slashes
// folded, standardizing idempotent on absolute paths, components joining back
// to the path, a path rebuilt from its parent and last component.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include <utf8proc.h>

#include "util/Paths.h"

namespace paths = jorvane::paths;

namespace {

void fail(const char* what, std::string_view a, std::string_view b = {}) {
    std::fprintf(stderr, "property violated: %s\n  a (%zu bytes): ", what, a.size());
    for (const char c : a) std::fprintf(stderr, "%02x", static_cast<unsigned char>(c));
    std::fprintf(stderr, "\n  b (%zu bytes): ", b.size());
    for (const char c : b) std::fprintf(stderr, "%02x", static_cast<unsigned char>(c));
    std::fprintf(stderr, "\n");
    std::abort();
}

#define CHECK(cond, a, b)                   \
    do {                                    \
        if (!(cond)) fail(#cond, (a), (b)); \
    } while (0)

// Reference decoding: utf8proc's strict decoder, one invalid byte at a time.
std::vector<std::int64_t> referenceFolded(std::string_view s) {
    std::vector<std::int64_t> out;
    std::size_t i = 0;
    while (i < s.size()) {
        utf8proc_int32_t cp = 0;
        const auto n = utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t*>(s.data() + i),
                                        static_cast<utf8proc_ssize_t>(s.size() - i), &cp);
        if (n <= 0) {
            out.push_back(-1 - static_cast<unsigned char>(s[i]));  // an invalid byte, equal only to itself
            ++i;
            continue;
        }
        i += static_cast<std::size_t>(n);
        utf8proc_int32_t folded[4];
        int boundclass = 0;
        const auto m = utf8proc_decompose_char(cp, folded, 4, UTF8PROC_CASEFOLD, &boundclass);
        out.push_back(m == 1 ? folded[0] : utf8proc_tolower(cp));
    }
    return out;
}

bool referenceLike(std::string_view text, std::string_view pattern) {
    const auto t = referenceFolded(text);
    const auto p = referenceFolded(pattern);
    // row[j]: does the pattern's first j characters match the text's first i?
    std::vector<char> row(p.size() + 1, 0);
    row[0] = 1;
    for (std::size_t j = 1; j <= p.size(); ++j) row[j] = row[j - 1] && p[j - 1] == '*';
    for (std::size_t i = 1; i <= t.size(); ++i) {
        std::vector<char> next(p.size() + 1, 0);
        for (std::size_t j = 1; j <= p.size(); ++j) {
            const auto c = p[j - 1];
            if (c == '*') {
                next[j] = next[j - 1] || row[j];
            } else {
                next[j] = row[j - 1] && (c == '?' || c == t[i - 1]);
            }
        }
        row.swap(next);
    }
    return row[p.size()] != 0;
}

std::string foldRuns(std::string_view p) {
    std::string out;
    for (const char c : p) {
        if (!(c == '/' && !out.empty() && out.back() == '/')) out += c;
    }
    return out;
}

bool hasWildcard(std::string_view s) { return s.find_first_of("*?") != std::string_view::npos; }

void checkMatcher(std::string_view text, std::string_view pattern) {
    const bool like = paths::isCaseInsensitiveLike(text, pattern);
    if (text.size() <= 512 && pattern.size() <= 512) {
        CHECK(like == referenceLike(text, pattern), text, pattern);
    }
    CHECK(paths::isCaseInsensitiveLike(text, text), text, text);
    CHECK(paths::isCaseInsensitiveLike(text, "*"), text, "*");
    if (like) {
        CHECK(paths::isCaseInsensitiveLike(text, "*" + std::string(pattern)), text, pattern);
        CHECK(paths::isCaseInsensitiveLike(text, std::string(pattern) + "*"), text, pattern);
    }
    const bool prefix = paths::hasCaseInsensitivePrefix(text, pattern);
    if (!hasWildcard(pattern)) {
        CHECK(prefix == paths::isCaseInsensitiveLike(text, std::string(pattern) + "*"), text, pattern);
    }
    CHECK(paths::hasCaseInsensitivePrefix(text, text), text, text);
    CHECK(paths::hasCaseInsensitivePrefix(text, ""), text, "");
}

void checkPath(std::string_view p) {
    const std::vector<std::string> components = paths::pathComponents(p);
    for (std::size_t i = 0; i < components.size(); ++i) {
        const std::string& c = components[i];
        CHECK(!c.empty(), p, c);
        if (c == "/") {
            CHECK(i == 0 || i + 1 == components.size(), p, c);
        } else {
            CHECK(c.find('/') == std::string::npos, p, c);
        }
    }
    CHECK(paths::pathWithComponents(components) == foldRuns(p), p, paths::pathWithComponents(components));

    const std::string folded = paths::stringByAppendingPathComponent(p, "");
    CHECK(folded.find("//") == std::string::npos, p, folded);
    CHECK(folded.size() <= 1 || folded.back() != '/', p, folded);
    const std::string last = paths::lastPathComponent(p);
    CHECK(last == "/" || last.find('/') == std::string::npos, p, last);
    const std::string parent = paths::stringByDeletingLastPathComponent(p);
    CHECK(paths::stringByAppendingPathComponent(parent, last) == folded, p, parent);

    if (p.empty() || p.front() != '~') {
        CHECK(paths::stringByExpandingTildeInPath(p) == p, p, paths::stringByExpandingTildeInPath(p));
    }

    const std::string standard = paths::stringByStandardizingPath(p);
    CHECK(standard.find("//") == std::string::npos, p, standard);
    CHECK(standard.size() <= 1 || standard.back() != '/', p, standard);
    if (!p.empty() && p.front() == '/') CHECK(!standard.empty() && standard.front() == '/', p, standard);
    if (!standard.empty() && standard.front() == '/') {
        CHECK(paths::isAbsolutePath(standard), p, standard);
        CHECK(paths::stringByStandardizingPath(standard) == standard, p, standard);
        for (const std::string& c : paths::pathComponents(standard)) CHECK(c != "." && c != "..", p, standard);
    } else if (!standard.empty() && standard.front() != '~') {
        // Relative results keep ".." but lose ".", and standardize to themselves.
        CHECK(paths::stringByStandardizingPath(standard) == standard, p, standard);
        if (standard != ".") {
            for (const std::string& c : paths::pathComponents(standard)) CHECK(c != ".", p, standard);
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    const std::size_t nul = input.find('\0');
    const std::string_view text = input.substr(0, nul);
    const std::string_view pattern = nul == std::string_view::npos ? std::string_view{} : input.substr(nul + 1);

    checkMatcher(text, pattern);
    checkPath(text);
    checkPath(pattern);
    // Joining two arbitrary strings gives a folded path.
    const std::string joined = paths::stringByAppendingPathComponent(text, pattern);
    CHECK(joined.find("//") == std::string::npos, text, pattern);
    return 0;
}
