#include "addressbar/NameFilter.h"

#include "util/Paths.h"

namespace jorvane {

namespace {

inline unsigned char asciiLower(unsigned char c) {
    return static_cast<unsigned char>(c - 'A') < 26u ? static_cast<unsigned char>(c + ('a' - 'A')) : c;
}

}  // namespace

NameFilter::NameFilter(std::string_view prefix) : prefix_(prefix) {
    loweredPrefix_.reserve(prefix.size());
    for (const char ch : prefix) {
        const auto c = static_cast<unsigned char>(ch);
        if (c >= 0x80) ascii_ = false;
        if (c == '*' || c == '?') hasWildcard_ = true;
        loweredPrefix_.push_back(static_cast<char>(asciiLower(c)));
    }
}

bool NameFilter::acceptsInToolkit(std::string_view name) const {
    return paths::hasCaseInsensitivePrefix(name, prefix_) || paths::isCaseInsensitiveLike(name, prefix_);
}

bool NameFilter::accepts(std::string_view name) const {
    if (prefix_.empty()) return true;
    if (!ascii_) return acceptsInToolkit(name);

    const std::size_t n = loweredPrefix_.size();
    std::size_t i = 0;
    for (; i < n && i < name.size(); ++i) {
        const auto c = static_cast<unsigned char>(name[i]);
        if (c >= 0x80) return acceptsInToolkit(name);
        if (asciiLower(c) != static_cast<unsigned char>(loweredPrefix_[i])) break;
    }
    if (i == n) return true;
    // The names compared so far are ASCII and differ from the prefix: without
    // a wildcard, the pattern test is plain equality and fails as well.
    if (!hasWildcard_) return false;
    return matchesAsciiPattern(name);
}

// Wildcard match with backtracking to the last "*" (linear for the patterns
// people type, O(|name| * |pattern|) at worst). A name byte above 0x7F may
// start a character that folds to ASCII or that "?" must take whole, so the
// toolkit decides such names. Every byte is checked before a "*" can make the
// match succeed, and a failure before the first "*" happens at an ASCII byte
// where the toolkit fails too.
bool NameFilter::matchesAsciiPattern(std::string_view name) const {
    const std::string& pattern = loweredPrefix_;
    const std::size_t pn = pattern.size();
    std::size_t p = 0;
    std::size_t t = 0;
    std::size_t starP = std::string::npos;
    std::size_t starT = 0;
    while (t < name.size()) {
        const auto c = static_cast<unsigned char>(name[t]);
        if (c >= 0x80) return paths::isCaseInsensitiveLike(name, prefix_);
        if (p < pn && pattern[p] == '*') {
            starP = p++;
            starT = t;
        } else if (p < pn && (pattern[p] == '?' || static_cast<unsigned char>(pattern[p]) == asciiLower(c))) {
            ++p;
            ++t;
        } else if (starP != std::string::npos) {
            p = starP + 1;
            t = ++starT;
        } else {
            return false;
        }
    }
    while (p < pn && pattern[p] == '*') ++p;
    return p == pn;
}

}  // namespace jorvane
