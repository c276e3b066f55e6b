// The Thunar handler catalogue against the real Thunar.

#include <unistd.h>
#include <algorithm>
#include <future>
#include <thread>

#include "ThunarTestSupport.h"
#include "platform/thunar/ThunarText.h"

namespace jorvane::e2e {
namespace {

using std::chrono::milliseconds;

// ---- The folder of a window, and going to another one in place

struct FolderCase {
    const char* label;
    std::string name;
};

class ThunarFolderPaths : public ThunarTest, public ::testing::WithParamInterface<FolderCase> {};

TEST_P(ThunarFolderPaths, GetPathNamesTheFolderOfTheFrontWindow) {
    const fs::path target = folder(GetParam().name);
    openWindow(target);
    EXPECT_EQ(call("finder_get_path"), target.string());
}

TEST_P(ThunarFolderPaths, SetPathShowsTheFolderInTheSameWindow) {
    const fs::path start = folder("start");
    const fs::path target = folder(GetParam().name);
    const std::uint32_t window = openWindow(start);
    const std::size_t windowsBefore = desktop().clientWindows().size();

    EXPECT_EQ(call("finder_set_path", {target.string()}), "");

    EXPECT_EQ(thunar::folderFromTitle(desktop().title(window)), target.string());
    EXPECT_EQ(desktop().clientWindows().size(), windowsBefore) << "a new window opened";
    EXPECT_EQ(call("finder_get_path"), target.string());
}

INSTANTIATE_TEST_SUITE_P(Names, ThunarFolderPaths,
                         ::testing::Values(FolderCase{"APlainName", "plain"},
                                           FolderCase{"ANameWithSpaces", "with some spaces"},
                                           FolderCase{"ANonAsciiName", "Ünïcødé é 日本語"},
                                           FolderCase{"ANameThatIsNotUtf8", std::string("bad\xff"
                                                                                        "name")},
                                           FolderCase{"ANameEndingLikeATitle", "docs - Thunar"},
                                           FolderCase{"ANestedFolder", "a/b/c"}),
                         [](const auto& row) { return std::string(row.param.label); });

// ---- Selections in each of Thunar's views

struct ViewCase {
    const char* label;
    const char* handler;
    const char* lastView;  // xfconf /last-view that Thunar records
};

class ThunarSelection : public ThunarTest, public ::testing::WithParamInterface<ViewCase> {
protected:
    void SetUp() override {
        ThunarTest::SetUp();
        if (HasFatalFailure()) return;
        other_ = folder("other");
        items_ = folder("items");
        for (const char* name : {"file1.txt", "file2.txt", "file3.txt", "zeta.txt"}) file(std::string("items/") + name);
        folder("items/sub");
        window_ = openWindow(other_);
        ASSERT_EQ(call(GetParam().handler), "");
    }

    // The view must be the one the test chose, before and after the handler.
    void expectViewKept() { EXPECT_EQ(desktop().xfconf("thunar", "/last-view"), GetParam().lastView); }

    fs::path other_, items_;
    std::uint32_t window_ = 0;
};

TEST_P(ThunarSelection, RevealShowsTheEnclosingFolderAndSelectsTheItem) {
    const fs::path item = items_ / "file2.txt";
    EXPECT_EQ(call("finder_reveal", {item.string()}), "");
    EXPECT_EQ(desktop().title(window_), titleFor(items_));
    EXPECT_EQ(call("finder_get_selection"), item.string());
    expectViewKept();
}

TEST_P(ThunarSelection, RevealOfAFolderWithATrailingSlashSelectsTheFolder) {
    EXPECT_EQ(call("finder_reveal", {(items_ / "sub").string() + "/"}), "");
    EXPECT_EQ(call("finder_get_selection"), (items_ / "sub").string() + "/");
}

TEST_P(ThunarSelection, RevealInCurrentSelectsTheNamedItemWithoutChangingFolder) {
    ASSERT_EQ(call("finder_set_path", {items_.string()}), "");
    EXPECT_EQ(call("finder_reveal_in_current", {"zeta.txt"}), "");
    EXPECT_EQ(call("finder_get_selection"), (items_ / "zeta.txt").string());
    EXPECT_EQ(call("finder_reveal_in_current", {"sub/"}), "");
    EXPECT_EQ(call("finder_get_selection"), (items_ / "sub").string() + "/");
    EXPECT_EQ(desktop().title(window_), titleFor(items_));
    expectViewKept();
}

TEST_P(ThunarSelection, Select2SelectsEveryListedItemAndNothingElse) {
    EXPECT_EQ(call("finder_select2", {items_.string(), "/file1.txt|!|file3.txt|!|sub/"}), "");
    EXPECT_EQ(desktop().title(window_), titleFor(items_));
    const std::optional<std::vector<std::string>> selected = catalogue().selectedItems();
    ASSERT_TRUE(selected.has_value());
    std::vector<std::string> sorted = *selected;
    std::sort(sorted.begin(), sorted.end());
    EXPECT_EQ(sorted, (std::vector<std::string>{(items_ / "file1.txt").string(), (items_ / "file3.txt").string(),
                                                (items_ / "sub").string() + "/"}));
    expectViewKept();
}

TEST_P(ThunarSelection, GetSelectionIsEmptyWhenNothingIsSelected) {
    ASSERT_EQ(call("finder_set_path", {items_.string()}), "");
    EXPECT_EQ(call("finder_get_selection"), "");
}

TEST_P(ThunarSelection, RevealOfAMissingItemAnswersNothingAndStays) {
    EXPECT_EQ(call("finder_reveal", {(items_ / "missing.txt").string()}), std::nullopt);
    EXPECT_EQ(desktop().title(window_), titleFor(other_));
}

INSTANTIATE_TEST_SUITE_P(Views, ThunarSelection,
                         ::testing::Values(ViewCase{"InTheIconView", "finder_iconview", "ThunarIconView"},
                                           ViewCase{"InTheDetailsView", "finder_listview", "ThunarDetailsView"},
                                           ViewCase{"InTheCompactView", "finder_columnview", "ThunarCompactView"}),
                         [](const auto& row) { return std::string(row.param.label); });

// ---- Views

class ThunarViews : public ThunarTest, public ::testing::WithParamInterface<ViewCase> {};

TEST_P(ThunarViews, TheHandlerSwitchesTheFrontWindowsView) {
    openWindow(folder("view"));
    // Start from a view other than the wanted one.
    const bool wantsDetails = std::string(GetParam().lastView) == "ThunarDetailsView";
    ASSERT_EQ(call(wantsDetails ? "finder_iconview" : "finder_listview"), "");
    EXPECT_EQ(call(GetParam().handler), "");
    EXPECT_EQ(desktop().xfconf("thunar", "/last-view"), GetParam().lastView);
}

INSTANTIATE_TEST_SUITE_P(
    Handlers, ThunarViews,
    ::testing::Values(ViewCase{"IconViewGivesIcons", "finder_iconview", "ThunarIconView"},
                      ViewCase{"ListViewGivesDetails", "finder_listview", "ThunarDetailsView"},
                      ViewCase{"ColumnViewGivesTheCompactList", "finder_columnview", "ThunarCompactView"},
                      ViewCase{"FlowViewGivesDetailsForLackOfCoverFlow", "finder_flowview", "ThunarDetailsView"}),
    [](const auto& row) { return std::string(row.param.label); });

// ---- The other handlers

using ThunarHandlers = ThunarTest;

TEST_F(ThunarHandlers, IsFolderWindowSaysYesForABrowserWindowAndNoWithoutOne) {
    const std::uint32_t window = openWindow(folder("browser"));
    EXPECT_EQ(call("is_finder_win"), "YES");
    ASSERT_TRUE(desktop().closeWindow(window));
    EXPECT_EQ(call("is_finder_win"), "NO");
    EXPECT_EQ(call("finder_get_path"), std::nullopt);
}

// With the full path in the title turned off (Thunar's own preference, read
// when a window opens), the title names the folder only and its path comes
// from the location entry.
TEST_F(ThunarHandlers, GetPathReadsTheLocationEntryWhenTheTitleShowsOnlyTheFolderName) {
    struct FullPathAgain {
        Desktop& desktop;
        ~FullPathAgain() { desktop.setXfconf("thunar", "/misc-full-path-in-window-title", "bool", "true"); }
    } restore{desktop()};
    ASSERT_TRUE(desktop().setXfconf("thunar", "/misc-full-path-in-window-title", "bool", "false"));
    const fs::path target = folder("short title");
    ASSERT_EQ(desktop().run({"thunar", target.string()}, milliseconds(5000)).exitCode, 0);
    const std::optional<std::uint32_t> window = desktop().waitForWindow(
        [&](std::uint32_t w) { return desktop().title(w) == "short title - Thunar"; }, milliseconds(5000));
    ASSERT_TRUE(window.has_value()) << "no window titled by the folder's name";
    catalogue().setFrontWindow(*window);
    EXPECT_EQ(call("finder_get_path"), target.string());
}

TEST_F(ThunarHandlers, SetPathRefusesAFileAndOpensNothing) {
    const fs::path start = folder("start");
    const fs::path document = file("start/document.txt");
    const std::uint32_t window = openWindow(start);
    const std::size_t windowsBefore = desktop().clientWindows().size();
    EXPECT_EQ(call("finder_set_path", {document.string()}), std::nullopt);
    EXPECT_EQ(call("finder_set_path", {(start / "missing").string()}), std::nullopt);
    EXPECT_EQ(call("finder_set_path", {}), std::nullopt);
    EXPECT_EQ(desktop().title(window), titleFor(start));
    EXPECT_EQ(desktop().clientWindows().size(), windowsBefore);
}

TEST_F(ThunarHandlers, UnknownHandlersAndBadParametersAnswerNothing) {
    openWindow(folder("start"));
    EXPECT_EQ(call("finder_make_coffee"), std::nullopt);
    EXPECT_EQ(call("finder_reveal", {"relative/path"}), std::nullopt);
    EXPECT_EQ(call("finder_reveal_in_current", {"a/b"}), std::nullopt);
    EXPECT_EQ(call("finder_select2", {dir_.string()}), std::nullopt);
    EXPECT_EQ(call("finder_mount", {"not an address"}), std::nullopt);
    EXPECT_EQ(call("open_terminal", {}), std::nullopt);
}

TEST_F(ThunarHandlers, RevealOfANameThatIsNotUtf8SelectsThatFile) {
    const std::string name = std::string("caf\xe9") + ".txt";  // Latin-1
    const fs::path item = file("latin/" + name);
    openWindow(folder("start"));
    EXPECT_EQ(call("finder_reveal", {item.string()}), "");
    EXPECT_EQ(call("finder_get_selection"), item.string());
}

TEST_F(ThunarHandlers, ReloadKeepsTheWindowOnItsFolder) {
    const fs::path target = folder("reload");
    const std::uint32_t window = openWindow(target);
    file("reload/new.txt");
    EXPECT_EQ(call("reload"), "");
    EXPECT_EQ(desktop().title(window), titleFor(target));
    EXPECT_EQ(call("finder_reveal_in_current", {"new.txt"}), "");
}

TEST_F(ThunarHandlers, CloseWindowClosesTheFrontWindowOnly) {
    const std::uint32_t kept = openWindow(folder("kept"));
    const std::uint32_t closed = openWindow(folder("closed"));
    EXPECT_EQ(call("close_finder_win"), "");
    EXPECT_TRUE(desktop().waitForWindowGone(closed, milliseconds(5000)));
    const std::vector<std::uint32_t> windows = desktop().clientWindows();
    EXPECT_NE(std::find(windows.begin(), windows.end(), kept), windows.end());
}

TEST_F(ThunarHandlers, NewWinOpensAnotherWindowOnTheGivenFolder) {
    const fs::path start = folder("start");
    const fs::path target = folder("new window");
    const std::uint32_t first = openWindow(start);
    EXPECT_EQ(call("finder_new_win", {target.string()}), "");
    const std::optional<std::uint32_t> second = desktop().waitForWindow(
        [&](std::uint32_t w) { return w != first && desktop().title(w) == titleFor(target); }, milliseconds(5000));
    EXPECT_TRUE(second.has_value());
    EXPECT_EQ(desktop().title(first), titleFor(start));
}

TEST_F(ThunarHandlers, TheFrontWindowFollowsThunarsActiveWindowOnly) {
    const fs::path a = folder("a"), b = folder("b");
    const std::uint32_t windowA = *desktop().openThunarWindow(a);
    const std::uint32_t windowB = *desktop().openThunarWindow(b);
    ASSERT_TRUE(desktop().activate(windowA));
    EXPECT_TRUE(waitUntil([&] { return catalogue().frontWindow() == windowA; }, milliseconds(5000)));
    EXPECT_EQ(call("finder_get_path"), a.string());
    ASSERT_TRUE(desktop().activate(windowB));
    EXPECT_TRUE(waitUntil([&] { return catalogue().frontWindow() == windowB; }, milliseconds(5000)));
    // Another program's window takes the focus: Thunar's front window stays.
    const pid_t other = desktop().spawn({"xmessage", "-geometry", "+900+600", "other program"}, "xmessage");
    const std::optional<std::uint32_t> message = desktop().waitForWindow(
        [&](std::uint32_t w) { return desktop().windowPid(w) == other || desktop().wmClass(w) == "Xmessage"; },
        milliseconds(5000));
    ASSERT_TRUE(message.has_value());
    ASSERT_TRUE(desktop().activate(*message));
    EXPECT_EQ(call("finder_get_path"), b.string());
    EXPECT_EQ(catalogue().frontWindow(), windowB);
    desktop().stopProcess(other);
}

TEST_F(ThunarHandlers, CallsFromSeveralThreadsAllGetTheirAnswers) {
    const fs::path target = folder("threads");
    file("threads/one.txt");
    openWindow(target);
    std::vector<std::future<std::optional<std::string>>> answers;
    for (int i = 0; i < 8; ++i) {
        answers.push_back(
            std::async(std::launch::async, [this, i] { return call(i % 2 ? "finder_get_path" : "is_finder_win"); }));
    }
    for (int i = 0; i < 8; ++i)
        EXPECT_EQ(answers[static_cast<std::size_t>(i)].get(),
                  i % 2 ? std::optional<std::string>(target.string()) : std::optional<std::string>("YES"));
}

TEST_F(ThunarHandlers, OpenTerminalStartsATerminalInTheFolder) {
    if (access("/usr/bin/x-terminal-emulator", X_OK) != 0 && access("/usr/bin/xterm", X_OK) != 0)
        GTEST_SKIP() << "no terminal emulator installed";
    const fs::path target = folder("terminal here");
    const std::vector<std::uint32_t> before = desktop().clientWindows();
    EXPECT_EQ(call("open_terminal", {target.string()}), "");
    const std::optional<std::uint32_t> terminal = desktop().waitForWindow(
        [&](std::uint32_t w) {
            return std::find(before.begin(), before.end(), w) == before.end() && desktop().wmClass(w) != "Thunar";
        },
        milliseconds(10000));
    ASSERT_TRUE(terminal.has_value());
    const std::optional<pid_t> pid = desktop().windowPid(*terminal);
    ASSERT_TRUE(pid.has_value());
    std::error_code error;
    EXPECT_EQ(fs::read_symlink("/proc/" + std::to_string(*pid) + "/cwd", error), target);
    desktop().stopProcess(*pid);
}

TEST_F(ThunarHandlers, MountWithoutAWindowReportsARefusedServerWithItsReason) {
    const auto start = Clock::now();
    const HandlerReply reply = catalogue().callWithFailure("finder_mount", {"ftp://127.0.0.1:9/"});
    EXPECT_EQ(reply.answer, std::nullopt);
    EXPECT_EQ(reply.failure, "Could not connect to 127.0.0.1: Connection refused");
    EXPECT_LT(millisecondsSince(start), 10000);
}

TEST_F(ThunarHandlers, AFailedMountLeavesTheWindowWhereItWas) {
    const fs::path start = folder("mount");
    const std::uint32_t window = openWindow(start);
    EXPECT_EQ(call("finder_mount", {"ftp://127.0.0.1:9/"}), std::nullopt);
    EXPECT_EQ(desktop().title(window), titleFor(start));
    EXPECT_EQ(desktop().thunarWindows().size(), 1u);
}

}  // namespace
}  // namespace jorvane::e2e
