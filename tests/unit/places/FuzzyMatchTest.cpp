#include "places/FuzzyMatch.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "unit/TableSupport.h"
#include "util/Paths.h"

using namespace jorvane::places;
using jorvane::test::SentenceName;

namespace {

std::vector<std::string> ranked(const std::vector<std::string>& names, const char* typed) {
    std::vector<std::string> out;
    for (const FuzzyHit& hit : rankFuzzy(names, typed, names.size())) out.push_back(names[hit.index]);
    return out;
}

struct MatchRow {
    const char* name;
    const char* typed;
    const char* candidate;
    bool matches;
};

class FuzzyMatching : public testing::TestWithParam<MatchRow> {};

TEST_P(FuzzyMatching, MatchesExactlyTheNamesHoldingTheTypedCharactersInOrder) {
    EXPECT_EQ(FuzzyQuery(GetParam().typed).score(GetParam().candidate).has_value(), GetParam().matches);
}

INSTANTIATE_TEST_SUITE_P(
    FuzzyMatch, FuzzyMatching,
    testing::Values(MatchRow{"letters in order", "rprt", "Reports/", true},
                    MatchRow{"letters out of order", "rtpr", "Reports/", false},
                    MatchRow{"a letter too many", "rrprt", "Reports/", false},
                    MatchRow{"spaces in the query are ignored", "mtg notes", "Meeting-Notes.txt", true},
                    MatchRow{"case is folded beyond ASCII", "ÄRG", "ärger.txt", true},
                    MatchRow{"a byte that is not UTF-8 matches itself", "caf\xE9", "Caf\xE9 Menu", true},
                    MatchRow{"a byte that is not UTF-8 is no letter", "cafe", "Caf\xE9", false},
                    MatchRow{"a query longer than the name", "reportsx", "Reports", false},
                    MatchRow{"only whitespace matches everything", "  ", "anything", true}),
    SentenceName{});

struct OrderRow {
    const char* name;
    const char* typed;
    std::vector<std::string> names;     // given in the worse order
    std::vector<std::string> expected;  // best first
};

class FuzzyOrder : public testing::TestWithParam<OrderRow> {};

TEST_P(FuzzyOrder, RanksTheNameAPersonAimedAtFirst) {
    EXPECT_EQ(ranked(GetParam().names, GetParam().typed), GetParam().expected);
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(FuzzyMatch, FuzzyOrder, testing::Values(
    OrderRow{"initial letters beat scattered ones", "rprt", {"driver-parts", "Reports/"}, {"Reports/", "driver-parts"}},
    OrderRow{"word starts after separators", "mtg notes", {"mytagnotes.txt", "Meeting-Notes.txt"},
             {"Meeting-Notes.txt", "mytagnotes.txt"}},
    OrderRow{"camel case humps", "fb", {"fileboard", "FooBar"}, {"FooBar", "fileboard"}},
    OrderRow{"a word start beats a hump", "b", {"aB", "x-bc"}, {"x-bc", "aB"}},
    OrderRow{"a digit after a letter is a hump", "2", {"112", "ab2"}, {"ab2", "112"}},
    OrderRow{"a capital beyond ASCII is a hump", "ü", {"aü", "aÜ"}, {"aÜ", "aü"}},
    OrderRow{"consecutive letters beat gaps", "note", {"naxoxtxe", "abnote"}, {"abnote", "naxoxtxe"}},
    OrderRow{"a match at the start beats one inside", "doc", {"my-doc", "doc-old"}, {"doc-old", "my-doc"}},
    OrderRow{"equal scores go to the shorter name then byte order", "ab", {"abcd", "abd", "abc"}, {"abc", "abd", "abcd"}}),
    SentenceName{});
// clang-format on

TEST(FuzzyMatch, RankingKeepsOnlyTheLimitAndNeverMatchesMissingLetters) {
    const std::vector<std::string> names = {"alpha", "beta", "gamma", "delta", "alphabet"};
    const std::vector<FuzzyHit> hits = rankFuzzy(names, "a", 2);
    ASSERT_EQ(hits.size(), 2u);
    EXPECT_EQ(names[hits[0].index], "alpha");  // at the start, shortest
    EXPECT_TRUE(rankFuzzy(names, "zz", 10).empty());

    // A folder big enough to be ranked in slices ranks as one list would:
    // the best from every slice, in order, ties to the shorter name, then
    // the earlier index.
    std::vector<std::string> big(60001, "other-file.txt");  // an odd count: the last slice is the longer
    big[60000] = "Rprt";
    big[59999] = "Reports";
    big[30000] = "Reports";
    big[7] = "my-reports-2026";
    big[40000] = "Rprt";
    for (std::size_t i = 100; i < 60000; i += 997) big[i] = "xrxxpxxrxxt.txt";
    const std::vector<FuzzyHit> ranked = rankFuzzy(big, "rprt", 3);
    std::vector<std::size_t> indices;
    for (const FuzzyHit& hit : ranked) indices.push_back(hit.index);
    EXPECT_EQ(indices, (std::vector<std::size_t>{40000, 60000, 30000}));
    EXPECT_EQ(rankFuzzy(big, "rprt", 100).size(), 66u);
}

struct PositionRow {
    const char* name;
    const char* typed;
    const char* candidate;
    std::vector<std::size_t> expected;
};

class FuzzyPositions : public testing::TestWithParam<PositionRow> {};

TEST_P(FuzzyPositions, AreTheByteOffsetsOfTheBestMatch) {
    EXPECT_EQ(FuzzyQuery(GetParam().typed).matchedPositions(GetParam().candidate), GetParam().expected);
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(FuzzyMatch, FuzzyPositions, testing::Values(
    PositionRow{"initial letters", "rprt", "Reports/", {0, 2, 4, 5}},
    PositionRow{"the word after the separator rather than the first letters", "notes", "Meeting-Notes.txt",
                {8, 9, 10, 11, 12}},
    PositionRow{"multibyte characters count their first byte", "üb", "Tür-Übersicht", {5, 7}},
    PositionRow{"no match", "xyz", "Reports", {}}),
    SentenceName{});
// clang-format on

// The matcher skips decoding for ASCII queries on the assumption that only
// these three characters beyond ASCII fold to ASCII letters.
TEST(FuzzyMatch, OnlyDottedCapitalILongSAndTheKelvinSignFoldToAscii) {
    std::vector<char32_t> foldingToAscii;
    for (char32_t c = 0x80; c <= 0x10FFFF; ++c) {
        if (c >= 0xD800 && c <= 0xDFFF) continue;
        if (jorvane::paths::foldCharacter(c) < 0x80) foldingToAscii.push_back(c);
    }
    EXPECT_EQ(foldingToAscii, (std::vector<char32_t>{0x130, 0x17F, 0x212A}));
    EXPECT_TRUE(FuzzyQuery("kasis")
                    .score("\xE2\x84\xAA"
                           "a\xC5\xBF\xC4\xB0s")
                    .has_value());
}

}  // namespace
