#include "places/VisitHistory.h"

#include <gtest/gtest.h>

#include "unit/TableSupport.h"

using namespace jorvane::places;
using jorvane::test::SentenceName;

namespace {

constexpr UnixSeconds kNow = 1'800'000'000;
constexpr UnixSeconds kMinute = 60, kHour = 3600, kDay = 86400;

std::vector<std::string> pathsOf(const std::vector<RankedFolder>& ranked) {
    std::vector<std::string> out;
    for (const RankedFolder& r : ranked) out.push_back(r.path);
    return out;
}

struct MatchRow {
    const char* name;
    const char* typed;
    const char* path;
    bool found;
};

class Matching : public testing::TestWithParam<MatchRow> {};

TEST_P(Matching, FindsTheFolderOnlyWhenTheWordsFitTheRules) {
    VisitHistory history;
    ASSERT_TRUE(history.visit(GetParam().path, kNow));
    EXPECT_EQ(history.query(GetParam().typed, kNow, 10).size(), GetParam().found ? 1u : 0u);
}

INSTANTIATE_TEST_SUITE_P(
    VisitHistory, Matching,
    testing::Values(
        MatchRow{"words in order with the last in the last component", "proj rep", "/home/u/Projects/2026/Reports",
                 true},
        MatchRow{"case is ignored", "PROJ Rep", "/home/u/projects/reports", true},
        MatchRow{"non ASCII case is folded", "ärger", "/home/u/ÄRGER", true},
        MatchRow{"one word inside the last component", "port", "/home/u/Reports", true},
        MatchRow{"the last word only in an earlier component is no match", "rep", "/home/u/Reports/2026", false},
        MatchRow{"words out of order are no match", "rep proj", "/home/u/Projects/Reports", false},
        MatchRow{"words may not overlap", "repo port", "/home/u/Reports", false},
        MatchRow{"two words in the last component", "re ts", "/home/u/Reports", true},
        MatchRow{"a missing word is no match", "proj tax", "/home/u/Projects/Reports", false},
        MatchRow{"a last word holding a slash may start before the last component", "2026/rep", "/home/u/2026/Reports",
                 true},
        MatchRow{"tabs and several spaces separate words", "  proj\t\trep ", "/home/u/Projects/Reports", true},
        MatchRow{"no words match every folder", "   ", "/home/u/x", true},
        MatchRow{"bytes that are not UTF-8 match themselves", "caf\xE9", "/srv/caf\xE9", true}),
    SentenceName{});

TEST(VisitHistory, MatchingIsOnTheLastWordAfterTheEarlierOnesEvenWhenTheyReachIntoTheLastComponent) {
    VisitHistory history;
    history.visit("/data/abcab", kNow);
    // "ab" first matches at the start of "abcab"; "ab" again must follow it.
    EXPECT_EQ(history.query("ab ab", kNow, 5).size(), 1u);
    EXPECT_EQ(history.query("abc abc", kNow, 5).size(), 0u);
}

struct RankRow {
    const char* name;
    UnixSeconds age;
    double factor;
};

class RankByAge : public testing::TestWithParam<RankRow> {};

TEST_P(RankByAge, WeighsTheScoreByTheAgeOfTheLastVisit) {
    const VisitedFolder folder{"/a", 8, kNow - GetParam().age};
    EXPECT_DOUBLE_EQ(VisitHistory::rank(folder, kNow), 8 * GetParam().factor);
}

INSTANTIATE_TEST_SUITE_P(VisitHistory, RankByAge,
                         testing::Values(RankRow{"just now", 0, 4}, RankRow{"59 minutes ago", 59 * kMinute, 4},
                                         RankRow{"one hour ago", kHour, 2}, RankRow{"23 hours ago", 23 * kHour, 2},
                                         RankRow{"one day ago", kDay, 0.5}, RankRow{"six days ago", 6 * kDay, 0.5},
                                         RankRow{"one week ago", 7 * kDay, 0.25},
                                         RankRow{"a year ago", 365 * kDay, 0.25},
                                         RankRow{"in the future after a clock change", -kHour, 4}),
                         SentenceName{});

TEST(VisitHistory, RecentVisitsOutrankFrequentOldOnesAndTiesAreDeterministic) {
    VisitHistory history;
    for (int i = 0; i < 7; ++i) history.visit("/old/often", kNow - 30 * kDay);  // 7 / 4
    history.visit("/new/once", kNow - kMinute);                                 // 1 * 4
    history.visit("/day/b", kNow - 2 * kHour);                                  // 1 * 2
    history.visit("/day/a", kNow - 2 * kHour);                                  // same rank, same time: by path
    history.visit("/day/c", kNow - 3 * kHour);                                  // same rank, older
    EXPECT_EQ(pathsOf(history.query("", kNow, 10)),
              (std::vector<std::string>{"/new/once", "/day/a", "/day/b", "/day/c", "/old/often"}));
    EXPECT_EQ(pathsOf(history.query("", kNow, 2)), (std::vector<std::string>{"/new/once", "/day/a"}));
    EXPECT_TRUE(history.query("", kNow, 0).empty());
}

TEST(VisitHistory, AVisitAddsOneAndKeepsTheLatestTimeAndOneEntryPerFolder) {
    VisitHistory history;
    EXPECT_TRUE(history.visit("/a/b", kNow - kDay));
    EXPECT_TRUE(history.visit("/a//b/", kNow));
    EXPECT_TRUE(history.visit("/a/b", kNow - kHour));  // out of order: the time stays the latest
    ASSERT_EQ(history.size(), 1u);
    EXPECT_EQ(*history.find("/a/b"), (VisitedFolder{"/a/b", 3, kNow}));
    EXPECT_FALSE(history.visit("relative/path", kNow));
    EXPECT_FALSE(history.visit("", kNow));
    EXPECT_FALSE(history.visit(std::string("/a\0b", 4), kNow));
    EXPECT_EQ(history.size(), 1u);
}

TEST(VisitHistory, PassingTheBoundScalesTheTotalToNinetyPercentAndDropsScoresBelowOne) {
    VisitHistory history;
    ASSERT_TRUE(history.add({"/big", 9000, kNow}));
    ASSERT_TRUE(history.add({"/mid", 999, kNow}));
    ASSERT_TRUE(history.add({"/small", 1, kNow}));  // exactly at the bound: nothing happens yet
    EXPECT_DOUBLE_EQ(history.totalScore(), 10000);
    EXPECT_EQ(history.size(), 3u);
    history.visit("/small", kNow);  // 10001: every score × 9000 / 10001
    EXPECT_EQ(history.size(), 3u);
    EXPECT_NEAR(history.totalScore(), 9000, 0.01);
    EXPECT_NEAR(history.find("/big")->score, 9000.0 * 9000 / 10001, 0.001);
    EXPECT_NEAR(history.find("/small")->score, 2.0 * 9000 / 10001, 0.001);
    history.add({"/big", 10000, kNow});  // total 19000: × 9000 / 19000, "/small" falls below 1
    EXPECT_EQ(history.find("/small"), nullptr);
    EXPECT_NE(history.find("/mid"), nullptr);
    EXPECT_LE(history.totalScore(), 9000.01);
}

TEST(VisitHistory, RemoveAndClearForget) {
    VisitHistory history;
    history.visit("/a", kNow);
    history.visit("/b", kNow);
    history.visit("/c", kNow);
    EXPECT_TRUE(history.remove("/a/"));
    EXPECT_FALSE(history.remove("/a"));
    EXPECT_EQ(pathsOf(history.query("", kNow, 10)), (std::vector<std::string>{"/b", "/c"}));
    EXPECT_DOUBLE_EQ(history.totalScore(), 2);
    history.clear();
    EXPECT_TRUE(history.empty());
    EXPECT_TRUE(history.query("", kNow, 10).empty());
}

TEST(HistoryText, ReadsBackWhatItWritesWithOddPaths) {
    VisitHistory history;
    history.add({"/home/u/Projects", 12.5, kNow});
    history.add({"/tmp/line\nbreak", 2, kNow - 5});
    history.add({"/tmp/back\\slash\\n", 3, 0});
    history.add({"/tmp/tab\there \xE9", 1, -20});
    history.add({"/tmp/another", 3, 0});
    const std::string text = serialiseHistory(history);
    EXPECT_NE(text.find("12.5\t1800000000\t/home/u/Projects\n"), std::string::npos) << text;
    EXPECT_NE(text.find("/tmp/line\\nbreak\n"), std::string::npos) << text;
    EXPECT_NE(text.find("/tmp/back\\\\slash\\\\n\n"), std::string::npos) << text;
    // Best first, so that a reader sees the folders that matter at the top.
    EXPECT_LT(text.find("/home/u/Projects"), text.find("/tmp/another")) << text;
    EXPECT_LT(text.find("/tmp/another"), text.find("/tmp/back")) << "equal scores by path";
    EXPECT_LT(text.find("/tmp/back"), text.find("/tmp/line")) << text;
    EXPECT_LT(text.find("/tmp/line"), text.find("/tmp/tab")) << text;
    const ParsedHistory parsed = parseHistory(text);
    EXPECT_EQ(parsed.rejectedLines, 0u);
    ASSERT_EQ(parsed.history.size(), 5u);
    for (const VisitedFolder& folder : history.folders()) {
        ASSERT_NE(parsed.history.find(folder.path), nullptr) << folder.path;
        EXPECT_EQ(*parsed.history.find(folder.path), folder);
    }
}

TEST(HistoryText, AHistoryWhoseScoresAddUpToTheBoundReadsBackUnaged) {
    // In file order these scores add up to the bound; summed in another
    // order they come out a hair above it.
    const char* const text = "3681.818\t1\t/a\n2464.688\t1\t/b\n2184.072\t2\t/c\n1000\t2\t/d\n669.422\t2\t/e\n";
    const ParsedHistory parsed = parseHistory(text);
    const ParsedHistory again = parseHistory(serialiseHistory(parsed.history));
    for (const VisitedFolder& folder : parsed.history.folders()) {
        ASSERT_NE(again.history.find(folder.path), nullptr) << folder.path;
        EXPECT_EQ(again.history.find(folder.path)->score, folder.score) << folder.path;
    }
    EXPECT_EQ(parsed.history.find("/d")->score, 1000);
}

struct LineRow {
    const char* name;
    const char* line;
};

class RejectedLine : public testing::TestWithParam<LineRow> {};

TEST_P(RejectedLine, IsCountedAndSkippedWhileTheOthersAreKept) {
    const std::string text = std::string("3\t100\t/good/one\n") + GetParam().line + "\n\n# note\n1\t5\t/good/two";
    const ParsedHistory parsed = parseHistory(text);
    EXPECT_EQ(parsed.rejectedLines, 1u);
    EXPECT_EQ(parsed.firstRejectedLine, 2u);
    EXPECT_EQ(parsed.history.size(), 2u);
}

INSTANTIATE_TEST_SUITE_P(
    HistoryText, RejectedLine,
    testing::Values(LineRow{"only two fields", "3\t/x"}, LineRow{"a score that is no number", "x\t1\t/x"},
                    LineRow{"a zero score", "0\t1\t/x"}, LineRow{"an empty score", "\t1\t/x"},
                    LineRow{"a negative score", "-2\t1\t/x"}, LineRow{"an infinite score", "inf\t1\t/x"},
                    LineRow{"a score too large for a double", "1e400\t1\t/x"},
                    LineRow{"a fractional time", "1\t1.5\t/x"}, LineRow{"a time with trailing text", "1\t15s\t/x"},
                    LineRow{"a relative path", "1\t1\tx/y"}, LineRow{"an empty path", "1\t1\t"},
                    LineRow{"an unknown escape", "1\t1\t/x\\t"}, LineRow{"a backslash at the end", "1\t1\t/x\\"},
                    LineRow{"a space instead of tabs", "1 1 /x"}),
    SentenceName{});

TEST(HistoryText, DuplicateLinesAddUpAndAnOverfullFileIsAged) {
    ParsedHistory parsed = parseHistory("2\t10\t/a\n3\t20\t/a/\n");
    ASSERT_EQ(parsed.history.size(), 1u);
    EXPECT_EQ(*parsed.history.find("/a"), (VisitedFolder{"/a", 5, 20}));
    parsed = parseHistory("0.5\t1\t/b\n20000\t1\t/a\n");
    EXPECT_NEAR(parsed.history.totalScore(), 9000, 0.5);
    EXPECT_EQ(parsed.history.find("/b"), nullptr);
}

}  // namespace
