#include "updater/AppcastUpdater.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

using namespace jorvane;

namespace {

struct VersionCase {
    const char* name;
    const char* a;
    const char* b;
    int expected;  // sign of compareVersions(a, b)
};

class VersionOrder : public testing::TestWithParam<VersionCase> {};

int sign(int v) { return v < 0 ? -1 : v > 0 ? 1 : 0; }

TEST_P(VersionOrder, ComparesAsExpectedBothWays) {
    const auto& c = GetParam();
    EXPECT_EQ(sign(appcast::compareVersions(c.a, c.b)), c.expected) << c.a << " vs " << c.b;
    EXPECT_EQ(sign(appcast::compareVersions(c.b, c.a)), -c.expected) << c.b << " vs " << c.a;
}

INSTANTIATE_TEST_SUITE_P(
    Versions, VersionOrder,
    testing::Values(VersionCase{"TenIsAboveNine", "1.10", "1.9", 1},
                    VersionCase{"MissingPartsCountAsZero", "1.2", "1.2.0", 0},
                    VersionCase{"LeadingZerosDoNotMatter", "1.02", "1.2", 0},
                    VersionCase{"ALongerVersionWithANonZeroPartIsAbove", "1.2.1", "1.2", 1},
                    VersionCase{"MajorWinsOverMinor", "2.0", "1.99.99", 1},
                    VersionCase{"ABetaComesBeforeItsRelease", "1.2b3", "1.2", -1},
                    VersionCase{"BetaNumbersCompareAsNumbers", "1.2b10", "1.2b9", 1},
                    VersionCase{"BetaComesBeforeReleaseCandidate", "1.2b9", "1.2rc1", -1},
                    VersionCase{"ADashedSuffixComesBeforeTheRelease", "2.0-beta", "2.0", -1},
                    VersionCase{"HugeNumbersDoNotOverflow", "1.123456789012345678901", "1.99999999999999999999", 1},
                    VersionCase{"SurroundingSpacesAreIgnored", " 1.5 ", "1.5", 0},
                    VersionCase{"PlainBuildNumbers", "120", "99", 1}, VersionCase{"EmptyIsZero", "", "0", 0},
                    VersionCase{"ZerosAloneAreZero", "1.000", "1", 0},
                    VersionCase{"ASuffixAfterZerosCounts", "1.00a", "1.0b", -1}),
    [](const auto& param) { return std::string(param.param.name); });

constexpr const char* kFeed = R"(<?xml version="1.0" encoding="utf-8"?>
<rss version="2.0" xmlns:sparkle="http://www.andymatuschak.org/xml-namespaces/sparkle">
  <channel>
    <title>Jorvane</title>
    <item>
      <title><![CDATA[Jorvane 1.10 & more]]></title>
      <enclosure url="http://example.test/j-1.10.tar.gz?a=1&amp;b=2" sparkle:version="110"
                 sparkle:shortVersionString="1.10" length="12" type="application/octet-stream"/>
    </item>
    <item>
      <title>Jorvane 1.9</title>
      <sparkle:version>109</sparkle:version>
      <sparkle:shortVersionString>1.9</sparkle:shortVersionString>
      <link>http://example.test/1.9</link>
    </item>
    <item><title>No version: skipped</title><enclosure url="http://example.test/x"/></item>
    <item>
      <title>Only a version</title>
      <enclosure url='http://example.test/j-111' sparkle:version='111'/>
    </item>
  </channel>
</rss>)";

TEST(AppcastParse, ReadsAttributesElementsEntitiesAndCdata) {
    const auto items = appcast::parse(kFeed);
    ASSERT_TRUE(items);
    ASSERT_EQ(items->size(), 3u);
    EXPECT_EQ((*items)[0].title, "Jorvane 1.10 & more");
    EXPECT_EQ((*items)[0].version, "110");
    EXPECT_EQ((*items)[0].shortVersion, "1.10");
    EXPECT_EQ((*items)[0].url, "http://example.test/j-1.10.tar.gz?a=1&b=2");
    EXPECT_EQ((*items)[1].version, "109");
    EXPECT_EQ((*items)[1].shortVersion, "1.9");
    EXPECT_EQ((*items)[1].url, "http://example.test/1.9");
    // Without a short version the version is shown.
    EXPECT_EQ((*items)[2].shortVersion, "111");
    EXPECT_EQ((*items)[2].url, "http://example.test/j-111");
}

TEST(AppcastParse, NewestAboveTheRunningVersionIsPickedWhateverTheOrder) {
    const auto items = appcast::parse(kFeed);
    ASSERT_TRUE(items);
    EXPECT_EQ(appcast::newestAbove(*items, "100")->version, "111");
    EXPECT_FALSE(appcast::newestAbove(*items, "111"));
    EXPECT_FALSE(appcast::newestAbove(*items, "200"));
    // Of equal versions the first listed is offered.
    const std::vector<AppcastItem> twins = {{"first", "5", "5", "a"}, {"second", "5", "5", "b"}};
    EXPECT_EQ(appcast::newestAbove(twins, "1")->title, "first");
}

// One item of a feed, and what is read from it.
struct ItemCase {
    const char* name;
    const char* item;                 // the text between <channel> and </channel>
    std::optional<AppcastItem> read;  // nothing: the item is skipped
};

class FeedItem : public testing::TestWithParam<ItemCase> {};

TEST_P(FeedItem, IsReadAsExpected) {
    const auto items = appcast::parse(std::string("<rss><channel>") + GetParam().item + "</channel></rss>");
    ASSERT_TRUE(items);
    ASSERT_EQ(items->size(), GetParam().read ? 1u : 0u);
    if (!GetParam().read) return;
    const AppcastItem& got = items->front();
    const AppcastItem& want = *GetParam().read;
    EXPECT_EQ(got.title, want.title);
    EXPECT_EQ(got.version, want.version);
    EXPECT_EQ(got.shortVersion, want.shortVersion);
    EXPECT_EQ(got.url, want.url);
}

INSTANTIATE_TEST_SUITE_P(
    Feeds, FeedItem,
    testing::Values(
        ItemCase{"NumericReferencesBelow128AreDecodedOthersKept",
                 "<item><title> &#74;&#x6f;rvane&#7; &#233; &unknown; &amp;&lt;&gt;&quot;&apos; </title>"
                 "<enclosure sparkle:version=\"1\" url=\"u\"/></item>",
                 AppcastItem{"Jorvane &#233; &unknown; &<>\"'", "1", "1", "u"}},
        ItemCase{"AnUnclosedCdataRunsToTheEndOfTheElement",
                 "<item><title>a <![CDATA[b&amp;c</title><enclosure sparkle:version=\"1\" url=\"u\"/></item>",
                 AppcastItem{"a b&amp;c", "1", "1", "u"}},
        ItemCase{"AttributesTakeSpacesAroundTheEqualsSignAndAreTrimmed",
                 "<item><enclosure url = ' u ' sparkle:version =\" 7 \"/></item>", AppcastItem{"", "7", "7", "u"}},
        ItemCase{"ANameThatOnlyEndsLikeTheAttributeIsNotIt",
                 "<item><enclosure xurl=\"x\" url=\"u\" sparkle:version=\"1\"/></item>",
                 AppcastItem{"", "1", "1", "u"}},
        ItemCase{"AnUnquotedAttributeIsNoValueAndTheElementsAreUsed",
                 "<item><enclosure url=u sparkle:version=7/><sparkle:version>8</sparkle:version>"
                 "<link>l</link></item>",
                 AppcastItem{"", "8", "8", "l"}},
        ItemCase{"AnElementWhoseNameOnlyBeginsLikeTheWantedOneIsNotIt",
                 "<item><titles>no</titles><title>yes</title><enclosure sparkle:version=\"1\"/></item>",
                 AppcastItem{"yes", "1", "1", ""}},
        ItemCase{"AnEmptyElementGivesAnEmptyText", "<item><title/><sparkle:version>3</sparkle:version><link/></item>",
                 AppcastItem{"", "3", "3", ""}},
        ItemCase{"AnEmptyVersionSkipsTheItem", "<item><enclosure url=\"u\" sparkle:version=\"\"/></item>",
                 std::nullopt},
        ItemCase{"TheEnclosuresAttributesWinOverTheElements",
                 "<item><enclosure url=\"a\" sparkle:version=\"1\" sparkle:shortVersionString=\"1.0\"/><link>l</link>"
                 "<sparkle:version>2</sparkle:version><sparkle:shortVersionString>2.0</sparkle:shortVersionString></item>",
                 AppcastItem{"", "1", "1.0", "a"}},
        ItemCase{"EmptyAttributesFallBackToTheElements",
                 "<item><enclosure url=\"\" sparkle:version=\"\" sparkle:shortVersionString=\"\"/><link>l</link>"
                 "<sparkle:version>2</sparkle:version><sparkle:shortVersionString>2.0</sparkle:shortVersionString></item>",
                 AppcastItem{"", "2", "2.0", "l"}},
        ItemCase{"ALongShortVersionIsCapped",
                 "<item><enclosure sparkle:version=\"3\" sparkle:shortVersionString=\"xxxxxxxxxxxxxxxxxxxxxxxxxxxxxx"
                 "xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx\"/></item>",
                 AppcastItem{"", "3", std::string(61, 'x') + "\u2026", ""}}),
    [](const auto& param) { return std::string(param.param.name); });

TEST(AppcastParse, ItemsAfterTheFirstAreReadToo) {
    const auto items = appcast::parse(
        "<rss><channel><item><enclosure sparkle:version=\"1\"/></item>"
        "<item><enclosure sparkle:version=\"2\"/></item><item><enclosure sparkle:version=\"3\"/></item>"
        "</channel></rss>");
    ASSERT_TRUE(items);
    ASSERT_EQ(items->size(), 3u);
    EXPECT_EQ((*items)[2].version, "3");
}

struct BadFeed {
    const char* name;
    const char* text;
    const char* reason;
};

class MalformedFeed : public testing::TestWithParam<BadFeed> {};

TEST_P(MalformedFeed, IsRefusedWithAReason) {
    std::string error;
    EXPECT_FALSE(appcast::parse(GetParam().text, &error));
    EXPECT_EQ(error, GetParam().reason);
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(Feeds, MalformedFeed, testing::Values(
    BadFeed{"EmptyText", "", "no <rss> element"},
    BadFeed{"HtmlPage", "<html><body>Not found</body></html>", "no <rss> element"},
    BadFeed{"RssWithoutChannel", "<rss version=\"2.0\"></rss>", "no <channel> element"},
    BadFeed{"UnclosedItem", "<rss><channel><item><title>x</title>", "an <item> is not closed"},
    BadFeed{"UnclosedEnclosure", "<rss><channel><item><enclosure url=\"x\"</item></channel></rss>",
            "an <enclosure> is not closed"}),
    [](const auto& param) { return std::string(param.param.name); });
// clang-format on

TEST(AppcastParse, AFeedWithoutItemsIsValidAndEmpty) {
    const auto items = appcast::parse("<rss><channel><title>t</title></channel></rss>");
    ASSERT_TRUE(items);
    EXPECT_TRUE(items->empty());
}

struct TextCase {
    const char* name;
    std::string in;
    std::size_t cap;
    std::string shown;
};

class ReadableText : public testing::TestWithParam<TextCase> {};

TEST_P(ReadableText, IsPlainAndCapped) {
    EXPECT_EQ(appcast::readableText(GetParam().in, GetParam().cap), GetParam().shown);
}

INSTANTIATE_TEST_SUITE_P(
    Texts, ReadableText,
    testing::Values(TextCase{"PlainTextStaysAsItIs", "Jorvane 1.2 \u00e9t\u00e9", 64, "Jorvane 1.2 \u00e9t\u00e9"},
                    TextCase{"ControlCharactersGo", std::string("a\x1b[31mb\x07\x7f\u0085c\0d", 15), 64, "a[31mbcd"},
                    TextCase{"LineBreaksAndTabsBecomeSpaces", "1.2\n\tbeta\r", 64, "1.2  beta "},
                    TextCase{"BytesThatAreNotUtf8ShowAsReplacement", "v\xff\xc3", 64, "v\ufffd\ufffd"},
                    TextCase{"ALongTextIsCutWithAnEllipsis", "abcdefghij", 6, "abc\u2026"},
                    TextCase{"TheCutNeverSplitsACharacter", "ab\u00e9\u00e9\u00e9", 7, "ab\u00e9\u2026"}),
    [](const auto& row) { return std::string(row.param.name); });

TEST(AppcastParse, AMegabyteTitleAndAVersionFullOfControlsComeOutCappedAndReadable) {
    std::string title;
    for (int i = 0; i < 1024 * 1024 / 8; ++i) title += "J\x01\x1b\x02rvan\u00e9";
    const std::string feed = "<rss><channel><item><title>" + title +
                             "</title><enclosure url=\"https://example.test/j.tar.gz\" sparkle:version=\"9\" "
                             "sparkle:shortVersionString=\"9\x1b]0;owned\x07.0\n\"/></item></channel></rss>";
    const auto items = appcast::parse(feed);
    ASSERT_TRUE(items);
    ASSERT_EQ(items->size(), 1u);
    EXPECT_LE((*items)[0].title.size(), appcast::kMaxTitleBytes);
    EXPECT_TRUE((*items)[0].title.starts_with("Jrvan\u00e9Jrvan\u00e9"));
    EXPECT_TRUE((*items)[0].title.ends_with("\u2026"));
    EXPECT_EQ((*items)[0].shortVersion, "9]0;owned.0");
    EXPECT_EQ((*items)[0].version, "9");
}

}  // namespace
