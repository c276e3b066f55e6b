#pragma once

// Fuzzy matching of names, for when neither a prefix nor a pattern finds
// anything: a name matches when the typed characters appear in it in order
// (a subsequence), ignoring case (Unicode simple case folding, as the
// completion's matchers). Among the matches, the best is the one whose
// characters sit where a person would aim them:
//   - each matched character scores, and a gap between two matched
//     characters costs (its start more than its length);
//   - a character matched at the very start of the name scores most, then one
//     at a word start (after "-", "_", ".", a space or "/"), then one at a
//     camel-case hump (a capital after a lower-case letter, a digit after a
//     letter);
//   - a run of consecutive matched characters keeps the bonus of its first
//     character, so "Notes" matched whole after "-" beats scattered letters;
//   - the first typed character's bonus counts double.
// So "rprt" ranks "Reports/" above "driver-parts". Whitespace in the typed
// text is ignored ("mtg notes" is matched as "mtgnotes"): the word-start
// bonuses already favour "Meeting-Notes.txt", and a name need not have a
// space, a "-" or nothing where the user typed a space.
//
// Names are bytes: a byte that is not part of well-formed UTF-8 counts as one
// character equal only to itself. Typed text longer than kMaxQueryLength
// characters matches nothing (no name is that long). Thread-safe.

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace jorvane::places {

class FuzzyQuery {
public:
    static constexpr std::size_t kMaxQueryLength = 256;

    explicit FuzzyQuery(std::string_view typed);

    // True when the typed text holds no character but whitespace: such a
    // query matches every name with score 0.
    bool empty() const { return chars_.empty(); }

    // The best score of `name`, or nullopt when it does not match. Higher is
    // better; only comparisons between scores of one query mean anything.
    std::optional<int> score(std::string_view name) const;

    // The byte offsets in `name` of the characters of the best match, in
    // order (each the first byte of its character), for highlighting; empty
    // when the name does not match.
    std::vector<std::size_t> matchedPositions(std::string_view name) const;

private:
    std::vector<char32_t> chars_;  // folded, whitespace removed
    bool asciiQuery_ = true;
    bool queryHasFoldTargets_ = false;  // "i", "k" or "s", which characters beyond ASCII fold to
};

struct FuzzyHit {
    std::size_t index;  // into the names given
    int score;
};

// The names matching `typed`, best first, at most `limit` of them. Equal
// scores go to the shorter name, then to the name first in byte order, then
// to the earlier index, so the order never depends on the sort.
std::vector<FuzzyHit> rankFuzzy(std::span<const std::string> names, std::string_view typed, std::size_t limit);

}  // namespace jorvane::places
