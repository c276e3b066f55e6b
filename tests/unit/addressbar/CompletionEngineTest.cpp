// Completion of the typed text, the folder listing it reads and the name filter it uses.
#include "addressbar/CompletionEngine.h"
#include "addressbar/DirectoryListing.h"
#include "addressbar/NameFilter.h"
#include "util/Dispatch.h"
#include "util/Paths.h"

#include "fakes/GatedFolderSource.h"
#include "fakes/TestSupport.h"
#include "unit/ScopedEnv.h"

#include <gtest/gtest.h>

#include <dirent.h>
#include <sys/stat.h>

#include <filesystem>
#include <map>
#include <random>
#include <tuple>

using jorvane::CompletionEngine;
using jorvane::test::TempDir;
using Strings = std::vector<std::string>;

namespace {

using jorvane::test::replaceAll;

// A folder with directories, files differing in case, links and names that are not UTF-8; "{T}" is its path.
class CompletionEngineTest : public testing::Test {
protected:
    void SetUp() override {
        tmp_.dir("Documents/Subfolder");
        tmp_.dir("Downloads");
        tmp_.file("notes.txt");
        tmp_.file("Notes.md");
        tmp_.file("report.TXT");
        tmp_.file(".hidden");
        tmp_.file("a");
        tmp_.file("ab");
        tmp_.file("abc/x");
        tmp_.file("caf\xE9.txt");  // Latin-1, not UTF-8
        tmp_.file("\xFF\xFE");
        tmp_.symlink("linkToDocs", "Documents");
        tmp_.symlink("linkToNotes", "notes.txt");
        ::mkfifo((tmp_.str() + "/fifo").c_str(), 0600);
    }

    std::string t(const std::string& text) const { return replaceAll(text, "{T}", tmp_.str()); }
    Strings t(const Strings& texts) const {
        Strings out;
        for (const auto& text : texts) out.push_back(t(text));
        return out;
    }
    const Strings& complete(const std::string& text) {
        engine_.updateCompletions(t(text), location_, fetch_);
        return engine_.currentCompletions();
    }

    TempDir tmp_;
    int notes_ = 0;
    int published_ = 0;
    int fetches_ = 0;
    std::optional<std::string> location_;
    CompletionEngine::FetchFileManagerLocation fetch_ = [this] { ++fetches_; };
    static CompletionEngine::Options patient() {
        CompletionEngine::Options options;
        options.waitBudget = std::chrono::seconds(20);
        return options;
    }
    CompletionEngine engine_{{[this] { ++notes_; }, [this](const Strings&) { ++published_; }, {}}, patient()};
};

struct Row {
    const char* name;
    const char* text;
    bool atLocation;  // relative text is completed in {T}
    Strings expected;
};

class CompletionTable : public CompletionEngineTest, public testing::WithParamInterface<Row> {};

TEST_P(CompletionTable, GivesTheseCandidatesInThisOrder) {
    if (GetParam().atLocation) location_ = tmp_.str();
    EXPECT_EQ(complete(GetParam().text), t(GetParam().expected));
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(CompletionEngine, CompletionTable, testing::Values(
    Row{"PrefixIgnoresCase", "{T}/doc", false, {"{T}/Documents/"}},
    Row{"UpperCasePrefixFindsLowerCaseNames", "{T}/NOTES.", false, {"{T}/Notes.md", "{T}/notes.txt"}},
    Row{"TrailingSlashListsTheFolder", "{T}/abc/", false, {"{T}/abc/x"}},
    Row{"ShorterCandidatesComeFirst", "{T}/a", false, {"{T}/a", "{T}/ab", "{T}/abc/"}},
    Row{"HiddenFilesAreOffered", "{T}/.h", false, {"{T}/.hidden"}},
    Row{"LinkToADirectoryGetsASlash", "{T}/linkToD", false, {"{T}/linkToDocs/"}},
    Row{"LinkToAFileGetsNone", "{T}/linkToN", false, {"{T}/linkToNotes"}},
    Row{"FifoIsNotADirectory", "{T}/fi", false, {"{T}/fifo"}},
    Row{"NoMatchGivesNothing", "{T}/zz", false, {}},
    Row{"MissingFolderGivesNothing", "{T}/missing/x", false, {}},
    Row{"FileAsFolderGivesNothing", "{T}/notes.txt/x", false, {}},
    Row{"StarPatternOffersItselfAndSortsByLength", "{T}/*.txt", false,
        {"{T}/*.txt", "{T}/caf\xE9.txt", "{T}/notes.txt", "{T}/report.TXT"}},
    Row{"QuestionMarkTakesOneCharacter", "{T}/a?", false, {"{T}/a?", "{T}/ab"}},
    Row{"PatternWithoutMatchesOffersItself", "{T}/*.zip", false, {"{T}/*.zip"}},
    Row{"LatinOneNameMatchesAnAsciiPrefix", "{T}/CAF", false, {"{T}/caf\xE9.txt"}},
    Row{"LatinOneNameMatchesItsOwnBytes", "{T}/caf\xE9", false, {"{T}/caf\xE9.txt"}},
    Row{"InvalidBytesMatchAPattern", "{T}/?\xFE", false, {"{T}/?\xFE", "{T}/\xFF\xFE"}},
    Row{"RelativeNameGivesBareNames", "doc", true, {"Documents/"}},
    Row{"RelativeNamesSortByLength", "a", true, {"a", "ab", "abc/"}},
    Row{"RelativeTextWithASlashGivesNothing", "Documents/Sub", true, {}},
    Row{"RelativePatternGivesBareNames", "*.md", true, {"*.md", "Notes.md"}}),
    [](const testing::TestParamInfo<Row>& row) { return std::string(row.param.name); });
// clang-format on

// The root's entries come from a scripted folder, not from the machine's.
TEST(CompletionEngineRoot, GivesFullPathsOfOneComponentShortestFirst) {
    auto source = std::make_shared<jorvane::test::GatedFolderSource>(std::vector<Strings>{{"home", "a", "usr"}});
    source->release(1);
    CompletionEngine::Options options;
    options.waitBudget = std::chrono::seconds(20);
    options.source = source;
    CompletionEngine engine({{}, {}, {}}, options);
    engine.updateCompletions("/", std::nullopt, {});
    EXPECT_EQ(engine.currentCompletions(), (Strings{"/a", "/usr", "/home"}));
}

// "~" and variables stay in the candidates, so that inline completion extends the typed text; other ways of
// writing a path complete as the path they name.
TEST_F(CompletionEngineTest, APathWrittenAnotherWayCompletesThePathItNames) {
    const jorvane::test::ScopedEnv home("HOME", tmp_.str());
    const jorvane::test::ScopedEnv docs("JORVANE_TEST_DOCS", tmp_.str() + "/Documents");
    location_ = "/elsewhere";
    EXPECT_EQ(complete("~/Doc"), Strings{"~/Documents/"});
    EXPECT_EQ(complete("~/Documents/"), Strings{"~/Documents/Subfolder/"});
    EXPECT_EQ(engine_.currentCompletionsDirectoryPath(), t("{T}/Documents"));
    EXPECT_EQ(complete("~/*.md"), (Strings{"~/*.md", "~/Notes.md"}));
    EXPECT_EQ(complete("$JORVANE_TEST_DOCS/Sub"), Strings{"$JORVANE_TEST_DOCS/Subfolder/"});
    EXPECT_EQ(complete("${JORVANE_TEST_DOCS}/Sub"), Strings{"${JORVANE_TEST_DOCS}/Subfolder/"});
    EXPECT_EQ(complete("file://{T}/Doc"), t(Strings{"{T}/Documents/"}));
    EXPECT_EQ(complete("{T}/gone/../Doc"), t(Strings{"{T}/Documents/"}));
    EXPECT_EQ(complete("sftp://host/Doc"), Strings{});
    // Search as you type is for names in the window's folder only.
    EXPECT_EQ(engine_.completedString("~/Doc", location_, fetch_).revealName, std::nullopt);
    EXPECT_EQ(engine_.completedString("Doc", tmp_.str(), fetch_).revealName, std::optional<std::string>("Documents/"));
}

TEST_F(CompletionEngineTest, TextThatBeginsNoNameIsAnsweredAtOnceThenWithTheNamesMostLikeItBestFirst) {
    tmp_.file("Meeting-Notes.txt");
    tmp_.file("driver-parts");
    location_ = tmp_.str();
    // The empty answer first; the similar names come after it.
    const auto similarTo = [this](const std::string& text) -> const Strings& {
        complete(text);
        for (int i = 0; i < 1000 && !engine_.candidatesAreSimilarNames(); ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
            jorvane::dispatch::mainQueue().drain();
        }
        return engine_.currentCompletions();
    };
    EXPECT_EQ(similarTo("mtg notes"), Strings{"Meeting-Notes.txt"});
    EXPECT_EQ(similarTo("dcmnts").front(), "Documents/");
    EXPECT_EQ(similarTo("{T}/Dcmnts").front(), t("{T}/Documents/"));
    EXPECT_EQ(similarTo("drvprts"), Strings{"driver-parts"});
    const CompletionEngine::Completion similar = engine_.completedString("drvprts", location_, fetch_);
    EXPECT_EQ(similar.completion, std::nullopt);
    EXPECT_EQ(similar.revealName, std::nullopt);
    // Hidden names only for text that begins with ".".
    EXPECT_EQ(similarTo(".hddn"), Strings{".hidden"});
    EXPECT_EQ(similarTo("hddn"), Strings{});
    // A prefix that matches, and a pattern, are what they were.
    EXPECT_EQ(complete("Docu"), Strings{"Documents/"});
    EXPECT_FALSE(engine_.candidatesAreSimilarNames());
    EXPECT_EQ(complete("*.zip"), Strings{"*.zip"});
    EXPECT_FALSE(engine_.candidatesAreSimilarNames());
}

TEST_F(CompletionEngineTest, UnknownLocationIsFetchedAndTheTextAloneIsCompletedInTheWorkingDirectory) {
    tmp_.file("box/boxes.txt");
    const auto cwd = std::filesystem::current_path();
    std::filesystem::current_path(tmp_.path());
    // One component names both the folder and the prefix.
    EXPECT_EQ(complete("box"), Strings{"boxes.txt"});
    std::filesystem::current_path(cwd);
    EXPECT_EQ(fetches_, 1);
    location_ = tmp_.str();
    EXPECT_EQ(complete("box"), Strings{"box/"});
    location_.reset();
    complete("/");
    EXPECT_EQ(fetches_, 1);
}

TEST_F(CompletionEngineTest, AFolderIsReadOnceUntilTheDirectoryPartChangesAndAFailedListingIsCachedAsNothing) {
    EXPECT_EQ(complete("{T}/later/x"), Strings{});
    EXPECT_EQ(engine_.currentCompletionsDirectoryPath(), t("{T}/later"));
    EXPECT_TRUE(engine_.folderUnreadable());
    tmp_.file("later/xy");
    EXPECT_EQ(complete("{T}/later/x"), Strings{});
    EXPECT_EQ(complete("{T}/new"), Strings{});
    tmp_.file("new.txt");
    EXPECT_EQ(complete("{T}/new"), Strings{});
    EXPECT_EQ(complete("{T}/later/x"), t(Strings{"{T}/later/xy"}));
    EXPECT_EQ(complete("{T}/new"), t(Strings{"{T}/new.txt"}));
}

TEST(CompletionEngineDataSource, UncompletedStringDropsTheSelectedTail) {
    const std::tuple<const char*, jorvane::TextRange, const char*> rows[] = {{"/usr/share", {7, 3}, "/usr/sh"},
                                                                             {"/usr/share", {10, 0}, "/usr/share"},
                                                                             {"/usr/share", {1, 3}, "//share"},
                                                                             {"/usr", {2, 99}, "/u"},
                                                                             {"/usr", {99, 1}, "/usr"}};
    for (const auto& [text, selection, uncompleted] : rows)
        EXPECT_EQ(CompletionEngine::uncompletedString(text, selection), uncompleted) << text;
}

TEST_F(CompletionEngineTest, NumberOfItemsRecomputesUnlessTheTextIsEmptyOrTheCachedFolder) {
    EXPECT_EQ(engine_.numberOfItems("", location_, fetch_), 0u);
    EXPECT_EQ(notes_, 0);
    EXPECT_EQ(engine_.numberOfItems(t("{T}/a"), location_, fetch_), 3u);
    EXPECT_EQ(published_, 1);
    EXPECT_EQ(engine_.numberOfItems(tmp_.str(), location_, fetch_), 3u);
    EXPECT_EQ(engine_.numberOfItems("", location_, fetch_), 3u);
    EXPECT_EQ(published_, 1);
    EXPECT_EQ(engine_.numberOfItems(t("{T}/"), location_, fetch_), 14u);
    EXPECT_EQ(published_, 2);
    EXPECT_EQ(notes_, 2);
    // Completing empty text empties the list without notifying.
    EXPECT_EQ(complete(""), Strings{});
    EXPECT_EQ(notes_, 2);
}

TEST_F(CompletionEngineTest, ItemsAreReadByIndexAndFoundByValue) {
    complete("{T}/a");
    EXPECT_EQ(engine_.objectValueForItemAtIndex(2), t("{T}/abc/"));
    EXPECT_EQ(engine_.objectValueForItemAtIndex(3), std::nullopt);
    EXPECT_EQ(engine_.indexOfItemWithStringValue(t("{T}/ab")), 1u);
    EXPECT_EQ(engine_.indexOfItemWithStringValue(t("{T}/abc")), CompletionEngine::notFound);
}

TEST_F(CompletionEngineTest, CompletedStringIsTheShortestCandidateButNeverForAPattern) {
    EXPECT_EQ(engine_.completedString(t("{T}/a"), location_, fetch_).completion, t("{T}/a"));
    EXPECT_EQ(published_, 1);
    const auto pattern = engine_.completedString(t("{T}/*.txt"), location_, fetch_);
    EXPECT_EQ(pattern.completion, std::nullopt);
    EXPECT_EQ(engine_.currentCompletions().size(), 3u);  // untouched
    EXPECT_EQ(published_, 1);
    EXPECT_EQ(engine_.completedString(t("{T}/zz"), location_, fetch_).completion, std::nullopt);
    EXPECT_EQ(engine_.searchModeLastRevealedText(), std::nullopt);  // absolute text reveals nothing
}

TEST_F(CompletionEngineTest, SearchAsYouTypeRevealsEachNewFirstCandidateOnce) {
    location_ = tmp_.str();
    const auto reveal = [this](const char* s) { return engine_.completedString(s, location_, fetch_).revealName; };
    EXPECT_EQ(reveal("doc"), "Documents/");
    EXPECT_EQ(reveal("docu"), std::nullopt);
    EXPECT_EQ(reveal("documents"), std::nullopt);
    EXPECT_EQ(reveal("dow"), "Downloads/");
    EXPECT_EQ(reveal("doc"), "Documents/");
    EXPECT_EQ(reveal("zz"), std::nullopt);
    EXPECT_EQ(engine_.searchModeLastRevealedText(), "Documents/");
}

std::map<std::string, unsigned char> entries(const jorvane::DirectoryListing& listing) {
    std::map<std::string, unsigned char> out;
    for (std::size_t i = 0; i < listing.size(); ++i) out.emplace(listing.name(i), listing.type(i));
    return out;
}

TEST(DirectoryListing, ListsEveryNameWithItsTypeButNotTheDotEntriesAndKeepsNamesIntactAcrossReads) {
    TempDir tmp;
    tmp.dir("sub");
    tmp.file("\xFF name");
    tmp.symlink("link", "nowhere");
    std::map<std::string, unsigned char> expected = {{"sub", DT_DIR}, {"\xFF name", DT_REG}, {"link", DT_LNK}};
    for (int i = 0; i < 1200; ++i) {
        const std::string name = std::to_string(i) + std::string(static_cast<std::size_t>(i % 250), 'n');
        tmp.file(name);
        expected.emplace(name, DT_REG);
    }
    const auto listing = jorvane::DirectoryListing::read(tmp.str());
    ASSERT_TRUE(listing);
    EXPECT_EQ(entries(*listing), expected);
    EXPECT_TRUE(listing->searchable());
    EXPECT_GE(listing->bytesHeld(), 1200u * 5);
}

TEST(DirectoryListing, GivesNothingForWhatIsNotAListableDirectory) {
    TempDir tmp;
    tmp.file("file");
    for (const std::string& path :
         {tmp.str() + "/missing", tmp.str() + "/file", std::string(), tmp.str() + std::string(1, '\0') + "x"})
        EXPECT_FALSE(jorvane::DirectoryListing::read(path)) << path;
    tmp.dir("empty");
    const auto empty = jorvane::DirectoryListing::read(tmp.str() + "/empty");
    ASSERT_TRUE(empty);
    EXPECT_TRUE(empty->empty());
}

// The filter answers ASCII names itself; it must agree with the path toolkit on every name, including
// characters that fold to ASCII (Kelvin sign, long s), accented letters and bytes that are not UTF-8.
TEST(NameFilter, AgreesWithTheToolkitOnRandomNamesAndPrefixes) {
    const Strings pieces = {
        "a",        "B",    "k",   "K", "s", "S", ".", "*", "?", "x", "\xC3\xA9", "\xC3\x89", "\xE2\x84\xAA",
        "\xC5\xBF", "\xE9", "\xFF"};
    std::mt19937 random(20240611);
    const auto make = [&](std::size_t maxPieces) {
        std::string text;
        for (std::size_t n = random() % (maxPieces + 1); n > 0; --n) text += pieces[random() % pieces.size()];
        return text;
    };
    namespace paths = jorvane::paths;
    for (int round = 0; round < 3000; ++round) {
        const std::string prefix = make(4);
        const jorvane::NameFilter filter(prefix);
        for (int i = 0; i < 20; ++i) {
            const std::string name = make(7);
            const bool expected = prefix.empty() || paths::hasCaseInsensitivePrefix(name, prefix) ||
                                  paths::isCaseInsensitiveLike(name, prefix);
            ASSERT_EQ(filter.accepts(name), expected) << "name '" << name << "' prefix '" << prefix << "'";
        }
    }
}

}  // namespace
