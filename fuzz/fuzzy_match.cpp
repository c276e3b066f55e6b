// Fuzzes the fuzzy name matcher.
//
// The input is split at its first NUL byte into typed text and a name. A
// name matches exactly when the typed characters (whitespace aside, folded)
// are a subsequence of its folded characters, and the positions given for
// highlighting are then one per typed character, increasing, each on a
// character of the name that folds to that typed character.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "places/FuzzyMatch.h"
#include "util/Paths.h"

namespace paths = jorvane::paths;
using jorvane::places::FuzzyQuery;

namespace {

[[noreturn]] void fail(const char* what) {
    std::fprintf(stderr, "property violated: %s\n", what);
    std::abort();
}

#define CHECK(cond)               \
    do {                          \
        if (!(cond)) fail(#cond); \
    } while (0)

std::vector<char32_t> folded(std::string_view text, bool dropWhitespace) {
    std::vector<char32_t> out;
    std::size_t i = 0;
    while (i < text.size()) {
        const char32_t c = paths::decodeCharacter(text, i);
        if (dropWhitespace && (c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v')) continue;
        out.push_back(paths::foldCharacter(c));
    }
    return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    const std::size_t nul = input.find('\0');
    const std::string_view typed = input.substr(0, nul);
    const std::string_view name = nul == std::string_view::npos ? std::string_view{} : input.substr(nul + 1);

    const std::vector<char32_t> query = folded(typed, true);
    const std::vector<char32_t> characters = folded(name, false);
    std::size_t q = 0;
    for (std::size_t j = 0; j < characters.size() && q < query.size(); ++j) q += characters[j] == query[q];
    const bool subsequence = q == query.size() && query.size() <= FuzzyQuery::kMaxQueryLength;

    const FuzzyQuery fuzzy(typed);
    CHECK(fuzzy.score(name).has_value() == subsequence);
    const std::vector<std::size_t> positions = fuzzy.matchedPositions(name);
    if (!subsequence || query.empty()) {
        CHECK(positions.empty());
        return 0;
    }
    CHECK(positions.size() == query.size());
    for (std::size_t k = 0; k < positions.size(); ++k) {
        CHECK(positions[k] < name.size());
        if (k > 0) CHECK(positions[k] > positions[k - 1]);
        std::size_t at = positions[k];
        CHECK(paths::foldCharacter(paths::decodeCharacter(name, at)) == query[k]);
    }
    return 0;
}
