// Folders visited before, in Thunar or through the bar, are reached again by
// a few words of their path: the whole program, the real Thunar, the history
// file in the session's own data folder.

#include "JorvaneTest.h"

#include <filesystem>

namespace jorvane::e2e {
namespace {

namespace fs = std::filesystem;

class JorvaneVisitedFolders : public JorvaneTest {
protected:
    static void SetUpTestSuite() {
        DesktopTest::SetUpTestSuite();
        if (!startError().empty()) return;
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
    ASSERT_TRUE(driver().key("Escape"));
}

}  // namespace
}  // namespace jorvane::e2e
