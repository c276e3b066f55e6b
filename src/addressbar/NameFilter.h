#pragma once

// Decides which names of a directory complete a typed prefix: a name is
// accepted when the prefix is empty, when the name begins with the prefix
// ignoring case (paths::hasCaseInsensitivePrefix), or when the name matches
// the prefix as a case-insensitive wildcard pattern with "*" and "?"
// (paths::isCaseInsensitiveLike).
//
// The filter runs over every name of a directory at each keystroke, so it
// answers ASCII names against an ASCII prefix itself, byte by byte, and hands
// everything else (any byte above 0x7F on either side) to the path toolkit,
// whose Unicode folding it must agree with. ASCII letters fold only to each
// other, and a non-ASCII character that folds to an ASCII letter (the Kelvin
// sign) is always seen by the toolkit, so the two paths give the same answers.

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

namespace jorvane {

// No byte above 0x7F.
inline bool isAsciiText(std::string_view text) {
    const char* p = text.data();
    std::size_t n = text.size();
    for (; n >= 8; p += 8, n -= 8) {
        std::uint64_t word;
        std::memcpy(&word, p, sizeof word);
        if (word & 0x8080808080808080ull) return false;
    }
    for (; n > 0; ++p, --n)
        if (static_cast<unsigned char>(*p) >= 0x80) return false;
    return true;
}

class NameFilter {
public:
    explicit NameFilter(std::string_view prefix);

    bool accepts(std::string_view name) const { return accepts(name, isAsciiText(name)); }
    // For callers that know whether the name is ASCII (isAsciiText).
    bool accepts(std::string_view name, bool asciiName) const {
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
        // The bytes compared so far are ASCII and differ from the prefix: the
        // prefix test has failed, and without a wildcard the pattern test is
        // plain equality, which fails as well.
        if (!hasWildcard_) return false;
        if (!asciiName) return likeInToolkit(name);
        return name.size() >= minimumLength_ && matchesAsciiPattern(name);
    }

    bool hasWildcard() const { return hasWildcard_; }

private:
    static unsigned char asciiLower(unsigned char c) {
        return static_cast<unsigned char>(c - 'A') < 26u ? static_cast<unsigned char>(c + ('a' - 'A')) : c;
    }
    bool acceptsInToolkit(std::string_view name) const;
    bool likeInToolkit(std::string_view name) const;
    bool matchesAsciiPattern(std::string_view name) const;

    std::string prefix_;
    std::string loweredPrefix_;  // ASCII-lowered, used only when the prefix is ASCII
    // The lowered pattern cut at each "*": pieces of literal bytes and "?".
    std::vector<std::string_view> segments_;
    std::size_t minimumLength_ = 0;  // bytes an ASCII name needs to match the pattern
    bool ascii_ = true;
    bool hasWildcard_ = false;
};

}  // namespace jorvane
