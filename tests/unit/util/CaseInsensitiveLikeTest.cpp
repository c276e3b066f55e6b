#include "util/Paths.h"

#include <gtest/gtest.h>

#include <string>

using namespace jorvane;

namespace {

struct MatchCase {
    const char* name;
    std::string text;
    std::string pattern;
    bool matches;
};

std::string rowName(const testing::TestParamInfo<MatchCase>& row) { return row.param.name; }

class Like : public testing::TestWithParam<MatchCase> {};

TEST_P(Like, DecidesTheMatch) {
    EXPECT_EQ(paths::isCaseInsensitiveLike(GetParam().text, GetParam().pattern), GetParam().matches);
}

INSTANTIATE_TEST_SUITE_P(
    Paths, Like,
    testing::Values(
        // Plain text and the whole-string rule.
        MatchCase{"SameTextMatches", "report.txt", "report.txt", true},
        MatchCase{"CaseIsIgnored", "Report.TXT", "rEPORT.txt", true},
        MatchCase{"APrefixIsNotAWholeMatch", "report.txt", "report", false},
        MatchCase{"ALongerPatternDoesNotMatch", "report", "report.txt", false},
        MatchCase{"EmptyMatchesEmpty", "", "", true}, MatchCase{"EmptyPatternRejectsText", "a", "", false},
        // Stars.
        MatchCase{"StarMatchesAnySuffix", "Report.TXT", "*.txt", true}, MatchCase{"StarMatchesEmpty", "", "*", true},
        MatchCase{"StarsOnBothSidesFindAMiddle", "annual-report-2023", "*REPORT*", true},
        MatchCase{"StarsOnBothSidesNeedTheMiddle", "annual-summary", "*report*", false},
        MatchCase{"StarMustNotSwallowTheRequiredEnd", "report.txt", "*report", false},
        MatchCase{"ManyStarsActAsOne", "abc", "a***c", true},
        MatchCase{"BacktrackingFindsTheLaterOccurrence", "abcabd", "*abd", true},
        MatchCase{"BacktrackingAcrossTwoStars", "mississippi", "m*iss*ppi", true},
        MatchCase{"BacktrackingStillFailsWhenItMust", "mississippi", "m*iss*x", false},
        MatchCase{"TheEndAfterTheLastStarMustFitTheText", "bc", "*abc", false},
        MatchCase{"TheEndAfterTheLastStarCannotReuseWhatComesBeforeTheStar", "ab", "a*ab", false},
        MatchCase{"TheEndAfterTheLastStarHoldsAQuestionMark", "aab", "a*?b", true},
        MatchCase{"AStarInTheTextIsAnOrdinaryCharacter", "a*b", "a*b", true},
        MatchCase{"AStarInThePatternIsAlwaysAWildcard", "axyzb", "a*b", true},
        // Question marks.
        MatchCase{"QuestionMarkTakesOneCharacter", "abc", "a?c", true},
        MatchCase{"QuestionMarkNeedsACharacter", "ac", "a?c", false},
        MatchCase{"QuestionMarksCountCharacters", "abc", "????", false},
        MatchCase{"QuestionMarkDoesNotMatchNothing", "", "?", false},
        MatchCase{"StarsAndQuestionMarksSetAMinimumLength", "ab", "*?*?*", true},
        MatchCase{"StarsAndQuestionMarksRejectShorterText", "a", "*?*?*", false},
        // Unicode folding.
        MatchCase{"UmlautsFoldWithTheirCapitals", "ÄBC", "*bc", true}, MatchCase{"GreekFolds", "ΣΟΦΙΑ", "σοφια", true},
        MatchCase{"GreekFinalSigmaFoldsToSigma", "ΟΔΟΣ", "οδος", true},
        MatchCase{"CapitalSharpSFoldsToSharpS", "STRAẞE", "straße", true},
        MatchCase{"SharpSIsNotTwoEsses", "straße", "strasse", false},
        MatchCase{"KelvinSignFoldsToK", "\u212Aelvin", "kelvin", true},
        MatchCase{"DotlessIIsNotI", "\u0131", "i", false}, MatchCase{"CherokeeFoldsBothWays", "\u13A0", "\uAB70", true},
        MatchCase{"DeseretFoldsOutsideTheBasicPlane", "\U00010400", "\U00010428", true},
        // "?" and multi-byte characters.
        MatchCase{"QuestionMarkTakesATwoByteCharacter", "ä", "?", true},
        MatchCase{"ATwoByteCharacterIsOneCharacter", "ä", "??", false},
        MatchCase{"QuestionMarksTakeThreeByteCharacters", "日本.txt", "??.TXT", true},
        MatchCase{"QuestionMarkTakesAFourByteCharacter", "\U0001F600", "?", true},
        MatchCase{"StarsAroundMultiByteText", "Ünïcödé-Nämé", "*NÄ?É", true},
        // Names that are not valid UTF-8.
        MatchCase{"AnInvalidByteMatchesItself", "\xff", "\xff", true},
        MatchCase{"AnInvalidByteDoesNotMatchAnother", "\xff", "\xfe", false},
        MatchCase{"EachInvalidByteIsOneCharacter", "\xff\xfe", "??", true},
        MatchCase{"InvalidBytesAmongAscii",
                  "a\xff"
                  "b",
                  "A*B", true},
        MatchCase{"ATruncatedSequenceIsOneInvalidCharacter", "\xC3", "?", true},
        MatchCase{"ATruncatedSequenceIsNotTheWholeCharacter", "\xC3", "ä", false},
        MatchCase{"AnOverlongSlashIsTwoInvalidBytes", "\xC0\xAF", "??", true},
        MatchCase{"AnOverlongSlashIsNoSlash", "\xC0\xAF", "/", false},
        MatchCase{"AnEncodedSurrogateIsThreeInvalidBytes", "\xED\xA0\x80", "???", true},
        MatchCase{"AnInvalidByteBeforeAValidCharacter", "\xC3\xC3\x84", "?ä", true},
        MatchCase{"AnInvalidPatternAgainstValidText", "ä", "\xC3", false}),
    rowName);

TEST(Paths, PathologicalPatternsFinishAndAnswerCorrectly) {
    const std::string as(10000, 'a');
    EXPECT_FALSE(paths::isCaseInsensitiveLike(as, "*a*a*a*a*a*a*a*a*b"));
    EXPECT_TRUE(paths::isCaseInsensitiveLike(as, "*a*a*a*a*a*a*a*a*a"));
    EXPECT_FALSE(paths::isCaseInsensitiveLike(as, std::string(20, '?') + "*b"));
    EXPECT_TRUE(paths::isCaseInsensitiveLike(as + "B", "*A*A*A*A*A*A*A*A*b"));

    std::string umlauts;
    for (int i = 0; i < 5000; ++i) umlauts += i % 2 ? "ä" : "Ä";
    EXPECT_FALSE(paths::isCaseInsensitiveLike(umlauts, "*ä*Ä*ä*Ä*ä*Ä*ä*Ä*b"));
    EXPECT_TRUE(paths::isCaseInsensitiveLike(umlauts, "*ä*Ä*ä*Ä*ä*Ä*ä*?"));

    const std::string invalid(10000, '\xff');
    EXPECT_FALSE(paths::isCaseInsensitiveLike(invalid, "*\xff*\xff*\xff*\xff*b"));
}

// ------------------------------------------------------------------ prefixes

class Prefix : public testing::TestWithParam<MatchCase> {};

TEST_P(Prefix, DecidesThePrefix) {
    const std::string& prefix = GetParam().pattern;
    EXPECT_EQ(paths::hasCaseInsensitivePrefix(GetParam().text, prefix), GetParam().matches);
    // Completion accepts a name by either test; without wildcards they must agree.
    if (prefix.find_first_of("*?") == std::string::npos) {
        EXPECT_EQ(paths::isCaseInsensitiveLike(GetParam().text, prefix + "*"), GetParam().matches);
    }
}

INSTANTIATE_TEST_SUITE_P(Paths, Prefix,
                         testing::Values(MatchCase{"ALowerCasePrefixOfAName", "Documents", "doc", true},
                                         MatchCase{"TheWholeName", "Documents", "DOCUMENTS", true},
                                         MatchCase{"AnEmptyPrefixAlwaysMatches", "Documents", "", true},
                                         MatchCase{"APrefixLongerThanTheName", "Doc", "docs", false},
                                         MatchCase{"ADifferentStart", "Music", "doc", false},
                                         MatchCase{"AnUmlautPrefix", "ÄPFEL", "äp", true},
                                         MatchCase{"AnAsciiPrefixOfANonAsciiName", "Ärger", "a", false},
                                         MatchCase{"AKelvinSignStartsWithK", "\u212Aelvin", "kel", true},
                                         MatchCase{"StarIsLiteralInAPrefix", "a*b", "A*", true},
                                         MatchCase{"QuestionMarkIsLiteralInAPrefix", "abc", "a?", false},
                                         MatchCase{"AnInvalidBytePrefix",
                                                   "\xff"
                                                   "abc",
                                                   "\xff"
                                                   "A",
                                                   true},
                                         MatchCase{"HalfACharacterIsNoPrefix", "ä", "\xC3", false}),
                         rowName);

}  // namespace
