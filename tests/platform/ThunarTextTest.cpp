// Thunar's rules of text that the handler catalogue relies on.

#include <gtest/gtest.h>

#include "platform/thunar/ThunarText.h"

namespace jorvane::thunar {
namespace {

struct TitleCase {
    const char* label;
    std::string title;
    std::optional<std::string> folder;
};

class FolderFromTitle : public ::testing::TestWithParam<TitleCase> {};

TEST_P(FolderFromTitle, Reads) { EXPECT_EQ(folderFromTitle(GetParam().title), GetParam().folder); }

INSTANTIATE_TEST_SUITE_P(
    Titles, FolderFromTitle,
    ::testing::Values(
        TitleCase{"AFullPath", "/home/ann/Documents - Thunar", "/home/ann/Documents"},
        TitleCase{"TheRootFolder", "/ - Thunar", "/"},
        TitleCase{"ANonAsciiPath", "/tmp/Ünïcødé 日本 - Thunar", "/tmp/Ünïcødé 日本"},
        TitleCase{"APathEndingLikeATitle", "/tmp/docs - Thunar - Thunar", "/tmp/docs - Thunar"},
        TitleCase{"AnEscapedFileUriForBytesThatAreNotUtf8", "file:///tmp/bad%FFname - Thunar",
                  std::string("/tmp/bad\xff"
                              "name")},
        TitleCase{"AFileUriWithLocalhost", "file://localhost/tmp/a%20b - Thunar", "/tmp/a b"},
        TitleCase{"NothingForTheTrash", "trash:/// - Thunar", std::nullopt},
        TitleCase{"NothingForARemoteFolder", "sftp://host/srv - Thunar", std::nullopt},
        TitleCase{"NothingForAFileUriOfAnotherHost", "file://host/tmp - Thunar", std::nullopt},
        TitleCase{"NothingForAMalformedEscape", "file:///tmp/%G1 - Thunar", std::nullopt},
        TitleCase{"NothingForAnEscapedNul", "file:///tmp/%00 - Thunar", std::nullopt},
        TitleCase{"NothingForTheFolderNameAlone", "Documents - Thunar", std::nullopt},
        TitleCase{"NothingForAnotherProgramsTitle", "/tmp/notes.txt - Mousepad", std::nullopt},
        TitleCase{"NothingForAnEmptyTitle", "", std::nullopt},
        TitleCase{"NothingForAPathLongerThanAnyFolderCanBe", "/" + std::string(4096, 'a') + " - Thunar", std::nullopt},
        TitleCase{"NothingForAMegabyteTitle", "/" + std::string(1024 * 1024, 'a') + " - Thunar", std::nullopt},
        TitleCase{"ALongPathThatCanExistIsRead", "/" + std::string(4000, 'a') + " - Thunar",
                  "/" + std::string(4000, 'a')}),
    [](const auto& row) { return std::string(row.param.label); });

struct Utf8Case {
    const char* label;
    std::string bytes;
    bool valid;
    std::string repaired;
};

class Utf8Rules : public ::testing::TestWithParam<Utf8Case> {};

TEST_P(Utf8Rules, ValidateAndRepairLikeGLib) {
    EXPECT_EQ(isValidUtf8(GetParam().bytes), GetParam().valid);
    EXPECT_EQ(makeValidUtf8(GetParam().bytes), GetParam().repaired);
}

INSTANTIATE_TEST_SUITE_P(
    Bytes, Utf8Rules,
    ::testing::Values(Utf8Case{"AsciiIsValid", "plain", true, "plain"},
                      Utf8Case{"FourByteSequencesAreValid", "\xF0\x9F\x98\x80", true, "\xF0\x9F\x98\x80"},
                      Utf8Case{"ALatin1ByteBecomesOneReplacement", "caf\xe9", false, "caf\xEF\xBF\xBD"},
                      Utf8Case{"ATruncatedSequenceBecomesOneReplacementPerByte", "a\xE2\x82", false,
                               "a\xEF\xBF\xBD\xEF\xBF\xBD"},
                      Utf8Case{"AnOverlongSlashIsInvalid", "\xC0\xAF", false, "\xEF\xBF\xBD\xEF\xBF\xBD"},
                      Utf8Case{"ASurrogateIsInvalid", "\xED\xA0\x80", false, "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD"},
                      Utf8Case{"BeyondU10FFFFIsInvalid", "\xF4\x90\x80\x80", false,
                               "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD"}),
    [](const auto& row) { return std::string(row.param.label); });

TEST(DisplayedNameMatches, AcceptsThunarsFormsOfAName) {
    EXPECT_TRUE(displayedNameMatches("notes.txt", "notes.txt"));
    EXPECT_TRUE(displayedNameMatches("caf\xEF\xBF\xBD.txt (invalid encoding)", "caf\xe9.txt"));
    EXPECT_TRUE(displayedNameMatches("caf\xEF\xBF\xBD.txt (ungültige Kodierung)", "caf\xe9.txt"));
    EXPECT_TRUE(displayedNameMatches("caf\xEF\xBF\xBD.txt", "caf\xe9.txt"));
}

TEST(DisplayedNameMatches, RejectsOtherNames) {
    EXPECT_FALSE(displayedNameMatches("notes.txt (invalid encoding)", "notes.txt"));
    EXPECT_FALSE(displayedNameMatches("Notes.txt", "notes.txt"));
    EXPECT_FALSE(displayedNameMatches("caf\xEF\xBF\xBD.txt2 (invalid encoding)", "caf\xe9.txt"));
    EXPECT_FALSE(displayedNameMatches("", ""));
}

TEST(SplitItemList, SplitsAtTheSeparatorAndCleansEachName) {
    EXPECT_EQ(splitItemList("/a.txt|!|b c|!|sub/|!||!|d|e"), (std::vector<std::string>{"a.txt", "b c", "sub", "d|e"}));
    EXPECT_EQ(splitItemList("only"), std::vector<std::string>{"only"});
    EXPECT_EQ(splitItemList(""), std::vector<std::string>{});
    EXPECT_EQ(splitItemList("|!|"), std::vector<std::string>{});
}

TEST(SplitParent, GivesTheFolderAndTheName) {
    EXPECT_EQ(splitParent("/tmp/a/b.txt")->parent, "/tmp/a");
    EXPECT_EQ(splitParent("/tmp/a/sub/")->name, "sub");
    EXPECT_EQ(splitParent("/top")->parent, "/");
    EXPECT_FALSE(splitParent("/").has_value());
    EXPECT_FALSE(splitParent("relative/x").has_value());
    EXPECT_FALSE(splitParent("").has_value());
}

struct StatusCase {
    const char* label;
    std::string status;
    std::optional<std::string> name;
};

class SelectedNameFromStatus : public ::testing::TestWithParam<StatusCase> {};

TEST_P(SelectedNameFromStatus, Reads) {
    const std::vector<std::string> entries = {"one.txt", "one.txt.bak", "two words", "caf\xe9", "sub"};
    EXPECT_EQ(selectedNameFromStatus(GetParam().status, entries), GetParam().name);
}

INSTANTIATE_TEST_SUITE_P(
    Statuses, SelectedNameFromStatus,
    ::testing::Values(
        StatusCase{"AFile", "\"one.txt\"  |  0 bytes  |  plain text document", "one.txt"},
        StatusCase{"TheLongestNameThatFits", "\"one.txt.bak\"  |  4 bytes  |  backup file", "one.txt.bak"},
        StatusCase{"ANameWithSpaces", "\"two words\"  |  folder", "two words"},
        StatusCase{"GermanQuotes", "\xE2\x80\x9Esub\xE2\x80\x9C  |  Ordner", "sub"},
        StatusCase{"ANameThatIsNotUtf8", "\"caf\xEF\xBF\xBD (invalid encoding)\"  |  0 bytes", std::string("caf\xe9")},
        StatusCase{"NoSelection", "5 items  |  Free space: 79 GiB", std::nullopt},
        StatusCase{"SeveralSelected", "Selection: 2 files: 0 bytes", std::nullopt},
        StatusCase{"AnUnknownName", "\"other.txt\"  |  0 bytes", std::nullopt},
        StatusCase{"APrefixOfAName", "\"one\"  |  0 bytes", std::nullopt}),
    [](const auto& row) { return std::string(row.param.label); });

TEST(StripMnemonic, RemovesSingleUnderscoresAndKeepsDoubledOnes) {
    EXPECT_EQ(stripMnemonic("_Icon View"), "Icon View");
    EXPECT_EQ(stripMnemonic("A__B_c"), "A_Bc");
}

struct TraitsCase {
    const char* label;
    WindowTraits traits;
    bool thunar;
    bool browser;
};

class WindowKinds : public ::testing::TestWithParam<TraitsCase> {};

TEST_P(WindowKinds, AreToldApart) {
    EXPECT_EQ(isThunarWindow(GetParam().traits), GetParam().thunar);
    EXPECT_EQ(isThunarBrowserWindow(GetParam().traits), GetParam().browser);
}

INSTANTIATE_TEST_SUITE_P(
    Windows, WindowKinds,
    ::testing::Values(
        TraitsCase{"ABrowserWindow", {"thunar", "Thunar", "Thunar-1795324409-2523727034", true, false}, true, true},
        TraitsCase{"ADialogOfThunar", {"thunar", "Thunar", "", false, true}, true, false},
        TraitsCase{"ANormalWindowWithoutTheRole", {"thunar", "Thunar", "properties", true, false}, true, false},
        TraitsCase{"ATransientWindow", {"thunar", "Thunar", "Thunar-1-2", true, true}, true, false},
        TraitsCase{"AnotherProgram", {"xterm", "XTerm", "Thunar-1-2", true, false}, false, false}),
    [](const auto& row) { return std::string(row.param.label); });

}  // namespace
}  // namespace jorvane::thunar
