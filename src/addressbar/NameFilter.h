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

#include <string>
#include <string_view>

namespace jorvane {

class NameFilter {
public:
    explicit NameFilter(std::string_view prefix);

    bool accepts(std::string_view name) const;

    bool hasWildcard() const { return hasWildcard_; }

private:
    bool acceptsInToolkit(std::string_view name) const;
    bool matchesAsciiPattern(std::string_view name) const;

    std::string prefix_;
    std::string loweredPrefix_;  // ASCII-lowered, used only when the prefix is ASCII
    bool ascii_ = true;
    bool hasWildcard_ = false;
};

}  // namespace jorvane
