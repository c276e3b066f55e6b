// Folders visited before, in Thunar or through the bar, are reached again by
// a few words of their path, Thunar's bookmarks by their name, and a place
// written as a user writes it (its forms are the place text's unit tests')
// goes there: the whole program, the real Thunar, the history file in the
// session's own data folder.

#include "JorvaneTest.h"

#include <filesystem>
#include <fstream>

namespace jorvane::e2e {
namespace {

namespace fs = std::filesystem;

class JorvaneVisitedFolders : public JorvaneTest {
protected:
    static void SetUpTestSuite() {
        if (!startDesktop()) return;
        root_ = desktop().dataDir() / "visited";
        for (const char* folder : {"Projects/2026/Reports", "Music/Live", "Notes", "Start", "Live"})
            fs::create_directories(root_ / folder);
        startProgram();
    }

    static bool openBarOf(std::uint32_t window) {
        bringToFront(window);
        return clickTitle(window);
    }

    static inline fs::path root_;
};

TEST_F(JorvaneVisitedFolders, TwoWordsOfAFolderVisitedBeforeGoBackThere) {
    const std::optional<std::uint32_t> window = desktop().openThunarWindow(root_ / "Start");
    ASSERT_TRUE(window);
    ASSERT_TRUE(openBarOf(*window));
    // Three folders visited through the bar...
    ASSERT_TRUE(enter(*window, (root_ / "Music/Live").string(), root_ / "Music/Live"));
    ASSERT_TRUE(enter(*window, (root_ / "Notes").string(), root_ / "Notes"));
    ASSERT_TRUE(enter(*window, (root_ / "Projects/2026/Reports").string(), root_ / "Projects/2026/Reports"));
    // ...and one in Thunar itself: its parent, with Alt+Up.
    ASSERT_TRUE(driver().key("Escape"));
    bringToFront(*window);
    ASSERT_TRUE(driver().key("Up", {"Alt_L"}));
    ASSERT_TRUE(desktop().waitForTitle(*window, titleOf(root_ / "Projects/2026"), kWait));

    // Back in a fourth folder, words of a visited path and Return.
    ASSERT_TRUE(openBarOf(*window));
    ASSERT_TRUE(enter(*window, (root_ / "Start").string(), root_ / "Start"));
    EXPECT_TRUE(enter(*window, "proj rep", root_ / "Projects/2026/Reports"));
    EXPECT_TRUE(enter(*window, "proj 2026", root_ / "Projects/2026")) << "a folder visited in Thunar was not recorded";
    // A name in the window's folder wins over the history: it is selected
    // there, and the bar says so.
    ASSERT_TRUE(enter(*window, root_.string(), root_));
    ASSERT_TRUE(driver().key("a", {"Control_L"}) && driver().type("Live") && driver().key("Return"));
    EXPECT_TRUE(driver().waitForFieldText((root_ / "Live").string() + "/", kWait));
    // Inline completion offers the best visited folder after the words.
    ASSERT_TRUE(driver().key("a", {"Control_L"}) && driver().type("2026 rep"));
    EXPECT_TRUE(
        driver().waitForFieldText("2026 rep \u2014 " + (root_ / "Projects/2026/Reports").string() + "/", kWait));
    ASSERT_TRUE(driver().key("Return"));
    EXPECT_TRUE(desktop().waitForTitle(*window, titleOf(root_ / "Projects/2026/Reports"), kWait));
    ASSERT_TRUE(driver().key("Escape"));
}

TEST_F(JorvaneVisitedFolders, PlacesAsUsersWriteThemAndABookmarksNameGoThere) {
    const fs::path home = desktop().home();
    const fs::path files = home / "Places/My Files", deep = home / "Places/Deep";
    fs::create_directories(files);
    fs::create_directories(deep);
    fs::create_directories(home / ".config/gtk-3.0");
    std::ofstream(home / ".config/gtk-3.0/bookmarks") << "file://" << (root_ / "Music/Live").string() << " Concerts\n";

    const std::optional<std::uint32_t> window = desktop().openThunarWindow(root_ / "Start");
    ASSERT_TRUE(window);
    ASSERT_TRUE(openBarOf(*window));
    const std::pair<std::string, fs::path> rows[] = {
        {"~/Places/My Files", files}, {(home / "places/deep").string(), deep},  // the wrong case, one folder on disk
    };
    for (const auto& [text, shown] : rows) {
        EXPECT_TRUE(enter(*window, text, shown)) << text << " showed " << desktop().title(*window);
        if (!driver().bar()) {
            ASSERT_TRUE(openBarOf(*window));
        }
    }
    // The trash and recent files are shown in the same window, and the field keeps their address.
    for (const std::string address : {"trash:///", "recent:///"}) {
        EXPECT_TRUE(driver().key("a", {"Control_L"}) && driver().type(address) && driver().key("Return"));
        EXPECT_TRUE(desktop().waitForTitle(*window, address + " - Thunar", kWait)) << desktop().title(*window);
        EXPECT_TRUE(driver().waitForFieldText(address, kWait)) << address;
    }

    // A bookmark's name, chosen in the list.
    if (!driver().bar()) {
        ASSERT_TRUE(openBarOf(*window));
    }
    ASSERT_TRUE(driver().key("a", {"Control_L"}) && driver().type("concerts") && driver().key("Down"));
    ASSERT_TRUE(driver().key("Return"));
    EXPECT_TRUE(desktop().waitForTitle(*window, titleOf(root_ / "Music/Live"), kWait)) << desktop().title(*window);
    closeBar();
}

}  // namespace
}  // namespace jorvane::e2e
