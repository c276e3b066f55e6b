// The appcast feed, versions and the update offer.
#include "updater/AppcastUpdater.h"
#include "updater/UpdateAlert.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "fakes/FakeAlerts.h"

#include <tuple>

using namespace jorvane;

namespace {

int sign(int v) { return v < 0 ? -1 : v > 0 ? 1 : 0; }

TEST(VersionOrder, ComparesAsExpectedBothWays) {
    // a, b and the sign of compareVersions(a, b).
    // clang-format off
    const std::tuple<const char*, const char*, int> rows[] = {
        {"1.10", "1.9", 1},          {"1.2", "1.2.0", 0},      {"1.02", "1.2", 0},        {"1.2.1", "1.2", 1},
        {"2.0", "1.99.99", 1},       {"1.2b3", "1.2", -1},     {"1.2b10", "1.2b9", 1},    {"1.2b9", "1.2rc1", -1},
        {"2.0-beta", "2.0", -1},     {" 1.5 ", "1.5", 0},      {"120", "99", 1},          {"", "0", 0},
        {"1.000", "1", 0},           {"1.00a", "1.0b", -1},
        {"1.123456789012345678901", "1.99999999999999999999", 1}};  // huge numbers do not overflow
    // clang-format on
    for (const auto& [a, b, expected] : rows) {
        EXPECT_EQ(sign(appcast::compareVersions(a, b)), expected) << a << " vs " << b;
        EXPECT_EQ(sign(appcast::compareVersions(b, a)), -expected) << b << " vs " << a;
    }
}

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

TEST(AppcastParse, ReadsEachItemAsExpected) {
    // The text between <channel> and </channel>, and what is read from it (nothing: the item is skipped).
    // clang-format off
    const std::pair<const char*, std::optional<AppcastItem>> rows[] = {
        {"<item><title> &#74;&#x6f;r&#X76;ane&#7;&#1; &#233; &#; &unknown; &amp;&lt;&gt;&quot;&apos; </title>"
         "<enclosure sparkle:version=\"1\" url=\"u\"/></item>",
         AppcastItem{"Jorvane &#233; &#; &unknown; &<>\"'", "1", "1", "u"}},
        {"<item><title>a <![CDATA[b&amp;c</title><enclosure sparkle:version=\"1\" url=\"u\"/></item>",
         AppcastItem{"a b&amp;c", "1", "1", "u"}},
        {"<item><enclosure url = ' u ' sparkle:version =\" 7 \"/></item>", AppcastItem{"", "7", "7", "u"}},
        {"<item><enclosure xurl=\"x\" url=\"u\" sparkle:version=\"1\"/></item>", AppcastItem{"", "1", "1", "u"}},
        {"<item><enclosure url=u sparkle:version=7/><sparkle:version>8</sparkle:version><link>l</link></item>",
         AppcastItem{"", "8", "8", "l"}},
        {"<item><titles>no</titles><title>yes</title><enclosure sparkle:version=\"1\"/></item>",
         AppcastItem{"yes", "1", "1", ""}},
        {"<item><title/><sparkle:version>3</sparkle:version><link/></item>", AppcastItem{"", "3", "3", ""}},
        {"<item><enclosure url=\"u\" sparkle:version=\"\"/></item>", std::nullopt},
        {"<item><enclosure url=\"a\" sparkle:version=\"1\" sparkle:shortVersionString=\"1.0\"/><link>l</link>"
         "<sparkle:version>2</sparkle:version><sparkle:shortVersionString>2.0</sparkle:shortVersionString></item>",
         AppcastItem{"", "1", "1.0", "a"}},
        {"<item><enclosure url=\"\" sparkle:version=\"\" sparkle:shortVersionString=\"\"/><link>l</link>"
         "<sparkle:version>2</sparkle:version><sparkle:shortVersionString>2.0</sparkle:shortVersionString></item>",
         AppcastItem{"", "2", "2.0", "l"}},
        {"<item><enclosure sparkle:version=\"3\" sparkle:shortVersionString=\"xxxxxxxxxxxxxxxxxxxxxxxxxxxxxx"
         "xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx\"/></item>",
         AppcastItem{"", "3", std::string(61, 'x') + "\u2026", ""}}};
    // clang-format on
    for (const auto& [item, read] : rows) {
        SCOPED_TRACE(item);
        const auto items = appcast::parse(std::string("<rss><channel>") + item + "</channel></rss>");
        ASSERT_TRUE(items);
        ASSERT_EQ(items->size(), read ? 1u : 0u);
        if (!read) continue;
        const AppcastItem& got = items->front();
        EXPECT_EQ(std::tie(got.title, got.version, got.shortVersion, got.url),
                  std::tie(read->title, read->version, read->shortVersion, read->url));
    }
}

TEST(AppcastParse, RefusesAMalformedFeedWithAReasonAndTakesOneWithoutItems) {
    const std::pair<const char*, const char*> rows[] = {
        {"", "no <rss> element"},
        {"<html><body>Not found</body></html>", "no <rss> element"},
        {"<rss version=\"2.0\"></rss>", "no <channel> element"},
        {"<rss><channel><item><title>x</title>", "an <item> is not closed"},
        {"<rss><channel><item><enclosure url=\"x\"</item></channel></rss>", "an <enclosure> is not closed"}};
    for (const auto& [text, reason] : rows) {
        std::string error;
        EXPECT_FALSE(appcast::parse(text, &error));
        EXPECT_EQ(error, reason);
    }
    const auto items = appcast::parse("<rss><channel><title>t</title></channel></rss>");
    ASSERT_TRUE(items);
    EXPECT_TRUE(items->empty());
}

TEST(AppcastParse, ReadableTextIsPlainAndCapped) {
    // clang-format off
    const std::tuple<std::string, std::size_t, std::string> rows[] = {
        {"Jorvane 1.2 \u00e9t\u00e9", 64, "Jorvane 1.2 \u00e9t\u00e9"},
        {std::string("a\x1b[31mb\x07\x7f\u0085c\0d", 15), 64, "a[31mbcd"},  // control characters go
        {"1.2\n\tbeta\r", 64, "1.2  beta "},
        {"v\xff\xc3", 64, "v\ufffd\ufffd"},
        {"abcdefghij", 6, "abc\u2026"},
        {"ab\u00e9\u00e9\u00e9", 7, "ab\u00e9\u2026"}};  // the cut never splits a character
    // clang-format on
    for (const auto& [in, cap, shown] : rows) EXPECT_EQ(appcast::readableText(in, cap), shown);
}

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

TEST(UpdateAlert, namesTheShortVersionOrElseTheVersionAndTheRunningOne) {
    const AlertSpec alert = UpdateAlert::alertFor({"120", "1.2", "http://example.test/j.tar.gz", "Jorvane 1.2"}, "1.1");
    EXPECT_EQ(alert.messageText, "A new version of Jorvane is available!");
    EXPECT_EQ(alert.informativeText,
              "Jorvane 1.2 is now available\u2014you have 1.1. Would you like to download it now?");
    EXPECT_THAT(alert.buttons, testing::ElementsAre("Download", "Remind Me Later"));
    EXPECT_THAT(UpdateAlert::alertFor({"120", "", "", ""}, "1.1").informativeText,
                testing::HasSubstr("Jorvane 120 is now available"));
}

TEST(UpdateAlert, onlyDownloadOpensAWebAddress) {
    test::FakeAlerts alerts;
    std::vector<std::string> opened;
    const auto open = [&](const std::string& url) { opened.push_back(url); };
    const UpdateOffer offer{"2", "2.0", "http://example.test/j-2.tar.gz", ""};
    alerts.answerNext(kAlertSecondButton);
    EXPECT_FALSE(UpdateAlert::offer(alerts, offer, "1.0", open));
    EXPECT_TRUE(opened.empty());
    EXPECT_TRUE(UpdateAlert::offer(alerts, offer, "1.0", open));
    EXPECT_EQ(opened, std::vector<std::string>{"http://example.test/j-2.tar.gz"});
    for (const char* address : {"", "file:///etc/passwd", "smb://host/x", "javascript:alert(1)"})
        EXPECT_TRUE(UpdateAlert::offer(alerts, UpdateOffer{"2", "", address, ""}, "1.0", open));
    EXPECT_EQ(opened.size(), 1u) << "nothing but web addresses is opened";
}

}  // namespace
