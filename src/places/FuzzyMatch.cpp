#include "places/FuzzyMatch.h"

#include <algorithm>
#include <array>
#include <limits>
#include <thread>

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
// Lists longer than this are ranked on several threads, at most this many:
// starting a thread costs about as much as ranking a few hundred names.
constexpr std::size_t kSplitAbove = 20000;
constexpr std::size_t kMaxSlices = 8;

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

// Where each query character can lie in any match: from its place in the
// leftmost match (lo) to its place in the rightmost one (hi). False when
// there is no match.
bool bounds(const std::vector<char32_t>& query, const std::vector<char32_t>& name, std::vector<std::size_t>& lo,
            std::vector<std::size_t>& hi) {
    lo.resize(query.size());
    hi.resize(query.size());
    std::size_t q = 0;
    for (std::size_t j = 0; j < name.size() && q < query.size(); ++j) {
        if (name[j] == query[q]) lo[q++] = j;
    }
    if (q < query.size()) return false;
    for (std::size_t j = name.size(); j-- > 0 && q > 0;) {
        if (name[j] == query[q - 1]) hi[--q] = j;
    }
    return true;
}

// Best-alignment dynamic programme over the window from the first
// character's lo to the last one's hi: row i holds, for each
// position j, the best score of the query's first i+1 characters with the
// last of them at j (`score`), and the bonus of the consecutive run that
// ends there (`run`). With `trace`, every row is kept for matchedPositions().
struct Alignment {
    std::vector<int> score, run, previousScore, previousRun, bonus;
    std::vector<int> allScores;  // rows one after the other, when traced
    std::vector<char> allConsecutive;

    std::vector<std::size_t> lo, hi;

    // Fills lo and hi; false when the name does not match.
    bool fits(const std::vector<char32_t>& query, const Decoded& name) { return bounds(query, name.folded, lo, hi); }

    // After fits(): the best score; with `trace`, every row is kept.
    int align(const std::vector<char32_t>& query, const Decoded& name, bool trace) {
        const std::size_t first = lo.front();
        const std::size_t width = hi.back() - first + 1;
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
            // Row i can only match within [lo[i], hi[i]]; the gapped value is
            // built up from just after the previous row's first match.
            const std::size_t from = (i == 0 ? lo[0] : lo[i - 1] + 1) - first;
            const std::size_t matchFrom = lo[i] - first;
            const std::size_t to = hi[i] - first;
            for (std::size_t k = from; k <= to; ++k) {
                if (i > 0 && k >= 2) {
                    gapped = std::max(gapped == kNone ? kNone : gapped - kGapExtension,
                                      previousScore[k - 2] == kNone ? kNone : previousScore[k - 2] - kGapStart);
                }
                const std::size_t j = first + k;
                if (k < matchFrom || name.folded[j] != query[i]) continue;
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
    char32_t wanted = query[0];
    for (const char c : name) {
        auto b = static_cast<unsigned char>(c);
        any |= b;
        b = static_cast<unsigned char>(b | (static_cast<unsigned>(b - 'A') < 26u ? 0x20 : 0));
        if (b == wanted) {
            if (++q == query.size()) return true;
            wanted = query[q];
        }
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
    queryHasFoldTargets_ =
        std::any_of(chars_.begin(), chars_.end(), [](char32_t c) { return c == 'i' || c == 'k' || c == 's'; });
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
    if (chars_.size() == 1) {
        // One character: the best place is the one with the largest bonus.
        int best = -1;
        for (std::size_t j = 0; j < decoded.folded.size(); ++j) {
            if (decoded.folded[j] == chars_[0]) best = std::max(best, decoded.bonusAt(j));
        }
        if (best < 0) return std::nullopt;
        return kMatch + best * kFirstCharacterMultiplier;
    }
    Alignment& alignment = tlsAlignment;
    if (!alignment.fits(chars_, decoded)) return std::nullopt;
    return alignment.align(chars_, decoded, false);
}

std::vector<std::size_t> FuzzyQuery::matchedPositions(std::string_view name) const {
    if (chars_.empty() || chars_.size() > kMaxQueryLength || chars_.size() > name.size()) return {};
    Decoded& decoded = tlsName;
    decoded.decode(name, true);
    Alignment& alignment = tlsAlignment;
    if (!alignment.fits(chars_, decoded)) return {};
    const int best = alignment.align(chars_, decoded, true);
    const std::size_t first = alignment.lo.front();
    const std::size_t width = alignment.hi.back() - first + 1;
    // Back from the best end: a consecutive step goes one place left, a
    // gapped one to the best-scoring place two or more to the left that
    // explains the score.
    std::vector<std::size_t> positions(chars_.size());
    std::size_t k = static_cast<std::size_t>(std::find(alignment.score.begin(), alignment.score.end(), best) -
                                             alignment.score.begin());
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

namespace {

// The best `limit` of names[begin, end) under `better`, the worst in front
// (a heap).
template <class Better>
std::vector<FuzzyHit> bestOf(const FuzzyQuery& query, std::span<const std::string> names, std::size_t begin,
                             std::size_t end, std::size_t limit, const Better& better) {
    std::vector<FuzzyHit> kept;
    kept.reserve(std::min(limit, end - begin));
    for (std::size_t i = begin; i < end; ++i) {
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
    return kept;
}

}  // namespace

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
    if (limit == 0) return {};
    std::vector<FuzzyHit> kept;
    const unsigned cores = std::thread::hardware_concurrency();
    if (names.size() < kSplitAbove || cores < 2) {
        kept = bestOf(query, names, 0, names.size(), limit, better);
    } else {
        // A big folder is ranked in slices on every core, as the command-line
        // finders do; the slices' best are then merged. The order does not
        // depend on the split: `better` is a total order.
        const std::size_t slices = std::min<std::size_t>(cores, kMaxSlices);
        const std::size_t step = (names.size() + slices - 1) / slices;
        std::vector<std::vector<FuzzyHit>> found(slices);
        std::vector<std::thread> helpers;
        for (std::size_t s = 1; s < slices; ++s) {
            helpers.emplace_back([&, s] {
                found[s] = bestOf(query, names, s * step, std::min(names.size(), (s + 1) * step), limit, better);
            });
        }
        found[0] = bestOf(query, names, 0, std::min(names.size(), step), limit, better);
        for (std::thread& helper : helpers) helper.join();
        for (std::vector<FuzzyHit>& slice : found) kept.insert(kept.end(), slice.begin(), slice.end());
        std::sort(kept.begin(), kept.end(), better);
        if (kept.size() > limit) kept.resize(limit);
        return kept;
    }
    std::sort_heap(kept.begin(), kept.end(), better);
    return kept;
}

}  // namespace jorvane::places
