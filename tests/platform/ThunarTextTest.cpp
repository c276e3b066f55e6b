// Thunar's rules of text that the handler catalogue relies on.

#include <gtest/gtest.h>

#include <tuple>

#include "platform/thunar/ThunarText.h"

namespace jorvane::thunar {
namespace {

TEST(FolderFromTitle, ReadsTheFullPathOfALocalFolderOnly) {
    const std::pair<std::string, std::optional<std::string>> rows[] = {
        {"/home/ann/Documents - Thunar", "/home/ann/Documents"},
        {"/ - Thunar", "/"},
        {"/tmp/Ünïcødé 日本 - Thunar", "/tmp/Ünïcødé 日本"},
        {"/tmp/docs - Thunar - Thunar", "/tmp/docs - Thunar"},
        {"file:///tmp/bad%FFname - Thunar", std::string("/tmp/bad\xff") + "name"},  // bytes that are not UTF-8
        {"file://localhost/tmp/a%20b - Thunar", "/tmp/a b"},
        {"trash:/// - Thunar", std::nullopt},
        {"sftp://host/srv - Thunar", std::nullopt},
        {"file://host/tmp - Thunar", std::nullopt},
        {"file:///tmp/%G1 - Thunar", std::nullopt},
        {"file:///tmp/%00 - Thunar", std::nullopt},
        {"Documents - Thunar", std::nullopt},  // the folder's name alone
        {"/tmp/notes.txt - Mousepad", std::nullopt},
        {"", std::nullopt},
        {"/" + std::string(4096, 'a') + " - Thunar", std::nullopt},  // longer than any folder can be
        {"/" + std::string(1024 * 1024, 'a') + " - Thunar", std::nullopt},
        {"/" + std::string(4000, 'a') + " - Thunar", "/" + std::string(4000, 'a')},
    };
    for (const auto& [title, folder] : rows) EXPECT_EQ(folderFromTitle(title), folder) << title.substr(0, 60);
}

TEST(Utf8Rules, ValidateAndRepairLikeGLib) {
    const std::string r = "\xEF\xBF\xBD";  // one replacement character
    const std::tuple<std::string, bool, std::string> rows[] = {
        {"plain", true, "plain"},
        {"\xF0\x9F\x98\x80", true, "\xF0\x9F\x98\x80"},
        {"caf\xe9", false, "caf" + r},
        {"a\xE2\x82", false, "a" + r + r},           // truncated: one per byte
        {"\xC0\xAF", false, r + r},                  // an overlong slash
        {"\xED\xA0\x80", false, r + r + r},          // a surrogate
        {"\xF4\x90\x80\x80", false, r + r + r + r},  // beyond U+10FFFF
    };
    for (const auto& [bytes, valid, repaired] : rows) {
        EXPECT_EQ(isValidUtf8(bytes), valid) << testing::PrintToString(bytes);
        EXPECT_EQ(makeValidUtf8(bytes), repaired) << testing::PrintToString(bytes);
    }
}

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

TEST(SelectedNameFromStatus, ReadsTheOneSelectedEntry) {
    const std::vector<std::string> entries = {"one.txt", "one.txt.bak", "two words", "caf\xe9", "sub"};
    const std::pair<std::string, std::optional<std::string>> rows[] = {
        {"\"one.txt\"  |  0 bytes  |  plain text document", "one.txt"},
        {"\"one.txt.bak\"  |  4 bytes  |  backup file", "one.txt.bak"},
        {"\"two words\"  |  folder", "two words"},
        {"\xE2\x80\x9Esub\xE2\x80\x9C  |  Ordner", "sub"},  // German quotes
        {"\"caf\xEF\xBF\xBD (invalid encoding)\"  |  0 bytes", std::string("caf\xe9")},
        {"5 items  |  Free space: 79 GiB", std::nullopt},
        {"Selection: 2 files: 0 bytes", std::nullopt},
        {"\"other.txt\"  |  0 bytes", std::nullopt},
        {"\"one\"  |  0 bytes", std::nullopt},  // a prefix of a name
    };
    for (const auto& [status, name] : rows) EXPECT_EQ(selectedNameFromStatus(status, entries), name) << status;
}

TEST(WindowKinds, AreToldApart) {
    // The traits, then whether it is Thunar's and whether it is a browser window.
    const std::tuple<const char*, WindowTraits, bool, bool> rows[] = {
        {"a browser window", {"thunar", "Thunar", "Thunar-1795324409-2523727034", true, false}, true, true},
        {"a dialog of Thunar", {"thunar", "Thunar", "", false, true}, true, false},
        {"a normal window without the role", {"thunar", "Thunar", "properties", true, false}, true, false},
        {"a transient window", {"thunar", "Thunar", "Thunar-1-2", true, true}, true, false},
        {"another program", {"xterm", "XTerm", "Thunar-1-2", true, false}, false, false},
    };
    for (const auto& [label, traits, thunar, browser] : rows) {
        EXPECT_EQ(isThunarWindow(traits), thunar) << label;
        EXPECT_EQ(isThunarBrowserWindow(traits), browser) << label;
    }
}

}  // namespace
}  // namespace jorvane::thunar
