#include "places/FuzzyMatch.h"

#include <algorithm>
#include <array>
#include <limits>

#include "util/Paths.h"

namespace jorvane::places {

namespace {

// Scores in the manner of the command-line fuzzy finders.
constexpr int kMatch = 16;
constexpr int kGapStart = 3;
constexpr int kGapExtension = 1;
constexpr int kStartBonus = 10;
constexpr int kWordStartBonus = 8;
constexpr int kHumpBonus = 7;
constexpr int kConsecutiveBonus = 4;
constexpr int kFirstCharacterMultiplier = 2;
constexpr int kNone = std::numeric_limits<int>::min() / 2;

bool isWhitespace(char32_t c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v'; }

// What a character is, as far as word starts are concerned.
enum Class : unsigned char { kOther, kSeparator, kLower, kUpper, kDigit, kClasses };

constexpr std::array<unsigned char, 128> kAsciiClasses = [] {
    std::array<unsigned char, 128> table{};
    for (int c = 0; c < 128; ++c) {
        if (c == '-' || c == '_' || c == '.' || c == ' ' || c == '/') {
            table[c] = kSeparator;
        } else if (c >= 'a' && c <= 'z') {
            table[c] = kLower;
        } else if (c >= 'A' && c <= 'Z') {
            table[c] = kUpper;
        } else if (c >= '0' && c <= '9') {
            table[c] = kDigit;
        } else {
            table[c] = kOther;
        }
    }
    return table;
}();

// The bonus of a character of class `here` after one of class `before`: a
// word start after a separator, a hump at a capital after a lower-case letter
// or a digit, or at a digit after a letter.
constexpr std::array<std::array<signed char, kClasses>, kClasses> kBonus = [] {
    std::array<std::array<signed char, kClasses>, kClasses> table{};
    for (int before = 0; before < kClasses; ++before) {
        for (int here = 0; here < kClasses; ++here) {
            int bonus = 0;
            if (here == kSeparator) {
                bonus = 0;
            } else if (before == kSeparator) {
                bonus = kWordStartBonus;
            } else if (here == kUpper && (before == kLower || before == kDigit)) {
                bonus = kHumpBonus;
            } else if (here == kDigit && (before == kLower || before == kUpper)) {
                bonus = kHumpBonus;
            }
            table[before][here] = static_cast<signed char>(bonus);
        }
    }
    return table;
}();

// One name decoded: its characters folded, their classes and where each
// starts. Kept per thread so that ranking many names does not allocate.
struct Decoded {
    std::vector<char32_t> folded;
    std::vector<unsigned char> classes;
    std::vector<std::size_t> offsets;

    void decode(std::string_view name, bool withOffsets) {
        folded.resize(name.size());
        classes.resize(name.size());
        offsets.resize(withOffsets ? name.size() : 0);
        std::size_t n = 0, i = 0;
        while (i < name.size()) {
            if (withOffsets) offsets[n] = i;
            const auto b = static_cast<unsigned char>(name[i]);
            if (b < 0x80) {
                folded[n] = (b >= 'A' && b <= 'Z') ? b + ('a' - 'A') : b;
                classes[n] = kAsciiClasses[b];
                ++i;
            } else {
                const char32_t raw = paths::decodeCharacter(name, i);
                folded[n] = paths::foldCharacter(raw);
                // Beyond ASCII a capital is a character that folding changes;
                // any other character (bytes that are not UTF-8 aside) counts
                // as a lower-case letter.
                classes[n] = raw >= paths::kInvalidByte ? kOther : folded[n] != raw ? kUpper : kLower;
            }
            ++n;
        }
        folded.resize(n);
        classes.resize(n);
        if (withOffsets) offsets.resize(n);
    }

    int bonusAt(std::size_t j) const { return j == 0 ? kStartBonus : kBonus[classes[j - 1]][classes[j]]; }
};

// The window the match can lie in: from the first place the first character
// can match to the last place the last one can. Empty when there is no match.
bool window(const std::vector<char32_t>& query, const std::vector<char32_t>& name, std::size_t& first,
            std::size_t& last) {
    std::size_t q = 0;
    for (std::size_t j = 0; j < name.size() && q < query.size(); ++j) {
        if (name[j] == query[q]) {
            if (q == 0) first = j;
            ++q;
        }
    }
    if (q < query.size()) return false;
    for (std::size_t j = name.size(); j-- > 0;) {
        if (name[j] == query.back()) {
            last = j;
            return true;
        }
    }
    return false;
}

// Best-alignment dynamic programme over the window: row i holds, for each
// position j, the best score of the query's first i+1 characters with the
// last of them at j (`score`), and the bonus of the consecutive run that
// ends there (`run`). With `trace`, every row is kept for matchedPositions().
struct Alignment {
    std::vector<int> score, run, previousScore, previousRun, bonus;
    std::vector<int> allScores;  // rows one after the other, when traced
    std::vector<char> allConsecutive;

    int align(const std::vector<char32_t>& query, const Decoded& name, std::size_t first, std::size_t last,
              bool trace) {
        const std::size_t width = last - first + 1;
        bonus.resize(width);
        for (std::size_t k = 0; k < width; ++k) bonus[k] = name.bonusAt(first + k);
        score.assign(width, kNone);
        run.assign(width, 0);
        if (trace) {
            allScores.assign(width * query.size(), kNone);
            allConsecutive.assign(width * query.size(), 0);
        }
        for (std::size_t i = 0; i < query.size(); ++i) {
            score.swap(previousScore);
            run.swap(previousRun);
            score.assign(width, kNone);
            run.assign(width, 0);
            int gapped = kNone;  // best of the previous row ending two or more places back, gap costs paid
            for (std::size_t k = 0; k < width; ++k) {
                if (i > 0 && k >= 2) {
                    gapped = std::max(gapped == kNone ? kNone : gapped - kGapExtension,
                                      previousScore[k - 2] == kNone ? kNone : previousScore[k - 2] - kGapStart);
                }
                const std::size_t j = first + k;
                if (name.folded[j] != query[i]) continue;
                const int here = bonus[k];
                if (i == 0) {
                    score[k] = kMatch + here * kFirstCharacterMultiplier;
                    run[k] = here;
                } else {
                    int best = kNone;
                    if (gapped != kNone) {
                        best = gapped + kMatch + here;
                        run[k] = here;
                    }
                    if (k >= 1 && previousScore[k - 1] != kNone) {
                        const int runBonus = std::max({here, previousRun[k - 1], kConsecutiveBonus});
                        const int consecutive = previousScore[k - 1] + kMatch + runBonus;
                        if (consecutive >= best) {
                            best = consecutive;
                            run[k] = runBonus;
                            if (trace) allConsecutive[i * width + k] = 1;
                        }
                    }
                    score[k] = best;
                }
                if (trace) allScores[i * width + k] = score[k];
            }
        }
        return *std::max_element(score.begin(), score.end());
    }
};

// Whether the ASCII query is a subsequence of the name, without decoding:
// most names of a folder fail here. Bytes beyond ASCII never match an ASCII
// character, except that three characters fold to ASCII: U+0130 (capital I
// with dot) is "i", U+017F LONG S is "s" and U+212A KELVIN SIGN is "k". So
// for a query holding one of those letters, a name beyond ASCII that fails
// here is not decided (nullopt).
std::optional<bool> asciiSubsequence(const std::vector<char32_t>& query, bool foldTargets, std::string_view name) {
    std::size_t q = 0;
    unsigned char any = 0;
    const std::size_t size = query.size();
    for (const char c : name) {
        auto b = static_cast<unsigned char>(c);
        any |= b;
        b = static_cast<unsigned char>(b | (static_cast<unsigned>(b - 'A') < 26u ? 0x20 : 0));
        q += b == query[q];
        if (q == size) return true;
    }
    if (foldTargets && any >= 0x80) return std::nullopt;
    return false;
}

thread_local Decoded tlsName;
thread_local Alignment tlsAlignment;

}  // namespace

FuzzyQuery::FuzzyQuery(std::string_view typed) {
    std::size_t i = 0;
    while (i < typed.size()) {
        const char32_t c = paths::decodeCharacter(typed, i);
        if (!isWhitespace(c)) chars_.push_back(paths::foldCharacter(c));
    }
    asciiQuery_ = std::all_of(chars_.begin(), chars_.end(), [](char32_t c) { return c < 0x80; });
    queryHasFoldTargets_ = std::any_of(chars_.begin(), chars_.end(), [](char32_t c) { return c == 'i' || c == 'k' || c == 's'; });
}

std::optional<int> FuzzyQuery::score(std::string_view name) const {
    if (chars_.empty()) return 0;
    if (chars_.size() > kMaxQueryLength || chars_.size() > name.size()) return std::nullopt;
    if (asciiQuery_) {
        const std::optional<bool> found = asciiSubsequence(chars_, queryHasFoldTargets_, name);
        if (found && !*found) return std::nullopt;
    }
    Decoded& decoded = tlsName;
    decoded.decode(name, false);
    std::size_t first = 0, last = 0;
    if (!window(chars_, decoded.folded, first, last)) return std::nullopt;
    return tlsAlignment.align(chars_, decoded, first, last, false);
}

std::vector<std::size_t> FuzzyQuery::matchedPositions(std::string_view name) const {
    if (chars_.empty() || chars_.size() > kMaxQueryLength || chars_.size() > name.size()) return {};
    Decoded& decoded = tlsName;
    decoded.decode(name, true);
    std::size_t first = 0, last = 0;
    if (!window(chars_, decoded.folded, first, last)) return {};
    Alignment& alignment = tlsAlignment;
    const int best = alignment.align(chars_, decoded, first, last, true);
    const std::size_t width = last - first + 1;
    // Back from the best end: a consecutive step goes one place left, a
    // gapped one to the best-scoring place two or more to the left that
    // explains the score.
    std::vector<std::size_t> positions(chars_.size());
    std::size_t k = static_cast<std::size_t>(
        std::find(alignment.score.begin(), alignment.score.end(), best) - alignment.score.begin());
    for (std::size_t i = chars_.size(); i-- > 0;) {
        positions[i] = decoded.offsets[first + k];
        if (i == 0) break;
        if (alignment.allConsecutive[i * width + k]) {
            --k;
            continue;
        }
        const int here = alignment.allScores[i * width + k] - kMatch - decoded.bonusAt(first + k);
        std::size_t chosen = k - 2;
        for (std::size_t m = k - 1; m-- > 0;) {
            const int before = alignment.allScores[(i - 1) * width + m];
            if (before != kNone && before - kGapStart - static_cast<int>(k - m - 2) * kGapExtension == here) {
                chosen = m;
                break;
            }
        }
        k = chosen;
    }
    return positions;
}

std::vector<FuzzyHit> rankFuzzy(std::span<const std::string> names, std::string_view typed, std::size_t limit) {
    const FuzzyQuery query(typed);
    const auto better = [&](const FuzzyHit& a, const FuzzyHit& b) {
        if (a.score != b.score) return a.score > b.score;
        const std::string& x = names[a.index];
        const std::string& y = names[b.index];
        if (x.size() != y.size()) return x.size() < y.size();
        if (x != y) return x < y;
        return a.index < b.index;
    };
    // The best `limit` so far, the worst of them in front: nothing is kept
    // of the many names that match worse.
    std::vector<FuzzyHit> kept;
    if (limit == 0) return kept;
    kept.reserve(std::min(limit, names.size()));
    for (std::size_t i = 0; i < names.size(); ++i) {
        const std::optional<int> score = query.score(names[i]);
        if (!score) continue;
        const FuzzyHit hit{i, *score};
        if (kept.size() < limit) {
            kept.push_back(hit);
            std::push_heap(kept.begin(), kept.end(), better);
        } else if (better(hit, kept.front())) {
            std::pop_heap(kept.begin(), kept.end(), better);
            kept.back() = hit;
            std::push_heap(kept.begin(), kept.end(), better);
        }
    }
    std::sort_heap(kept.begin(), kept.end(), better);
    return kept;
}

}  // namespace jorvane::places
