// The Thunar handler catalogue against the real Thunar.

#include <unistd.h>
#include <algorithm>

#include "ThunarTestSupport.h"

namespace jorvane::e2e {
namespace {

using std::chrono::milliseconds;

// ---- Each of Thunar's views: switched to, and its selection set and read
// (each view shows its items through other accessible objects)

struct ViewCase {
    const char* label;
    const char* handler;
    const char* lastView;  // xfconf /last-view that Thunar records
};

void PrintTo(const ViewCase& row, std::ostream* out) { *out << row.label; }

class ThunarViews : public ThunarTest, public ::testing::WithParamInterface<ViewCase> {};

TEST_P(ThunarViews, TheHandlerSwitchesTheViewWhereItemsAreRevealedSelectedAndRead) {
    const fs::path other = folder("other"), items = folder("items");
    for (const char* name : {"file1.txt", "file2.txt", "file3.txt", "zeta.txt"}) file(std::string("items/") + name);
    folder("items/sub");
    const std::uint32_t window = openWindow(other);
    // From a view other than the wanted one.
    const bool wantsDetails = std::string(GetParam().lastView) == "ThunarDetailsView";
    ASSERT_EQ(call(wantsDetails ? "finder_iconview" : "finder_listview"), "");
    ASSERT_EQ(call(GetParam().handler), "");
    const auto expectViewKept = [&] { EXPECT_EQ(desktop().xfconf("thunar", "/last-view"), GetParam().lastView); };
    expectViewKept();

    ASSERT_EQ(call("finder_set_path", {items.string()}), "");
    EXPECT_EQ(call("finder_get_selection"), "") << "nothing selected";
    EXPECT_EQ(call("finder_reveal_in_current", {"zeta.txt"}), "");
    EXPECT_EQ(call("finder_get_selection"), (items / "zeta.txt").string());
    EXPECT_EQ(call("finder_reveal_in_current", {"sub/"}), "");
    EXPECT_EQ(call("finder_get_selection"), (items / "sub").string() + "/");

    ASSERT_EQ(call("finder_set_path", {other.string()}), "");
    EXPECT_EQ(call("finder_reveal", {(items / "missing.txt").string()}), std::nullopt);
    EXPECT_EQ(desktop().title(window), titleOf(other)) << "a missing item leaves the window";
    EXPECT_EQ(call("finder_reveal", {(items / "file2.txt").string()}), "");
    EXPECT_EQ(desktop().title(window), titleOf(items));
    EXPECT_EQ(call("finder_get_selection"), (items / "file2.txt").string());
    EXPECT_EQ(call("finder_reveal", {(items / "sub").string() + "/"}), "");
    EXPECT_EQ(call("finder_get_selection"), (items / "sub").string() + "/");

    ASSERT_EQ(call("finder_set_path", {other.string()}), "");
    EXPECT_EQ(call("finder_select2", {items.string(), "/file1.txt|!|file3.txt|!|sub/"}), "");
    EXPECT_EQ(desktop().title(window), titleOf(items));
    std::vector<std::string> selected = catalogue().selectedItems().value_or(std::vector<std::string>{});
    std::sort(selected.begin(), selected.end());
    EXPECT_EQ(selected, (std::vector<std::string>{(items / "file1.txt").string(), (items / "file3.txt").string(),
                                                  (items / "sub").string() + "/"}));
    expectViewKept();
}

INSTANTIATE_TEST_SUITE_P(
    Handlers, ThunarViews,
    ::testing::Values(ViewCase{"IconView", "finder_iconview", "ThunarIconView"},
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

TEST_F(ThunarHandlers, RefusedCallsAnswerNothingAndLeaveTheWindow) {
    const fs::path start = folder("start");
    const fs::path document = file("start/document.txt");
    const std::uint32_t window = openWindow(start);
    const std::size_t windowsBefore = desktop().clientWindows().size();
    const std::vector<std::pair<std::string, std::vector<std::string>>> refused = {
        {"finder_set_path", {document.string()}},  // a file
        {"finder_set_path", {(start / "missing").string()}},
        {"finder_set_path", {}},
        {"finder_make_coffee", {}},
        {"finder_reveal", {"relative/path"}},
        {"finder_reveal_in_current", {"a/b"}},
        {"finder_select2", {dir_.string()}},
        {"finder_mount", {"not an address"}},
        {"open_terminal", {}},
    };
    for (const auto& [name, params] : refused) EXPECT_EQ(call(name, params), std::nullopt) << name;
    EXPECT_EQ(desktop().title(window), titleOf(start));
    EXPECT_EQ(desktop().clientWindows().size(), windowsBefore);
}

TEST_F(ThunarHandlers, RevealOfANameThatIsNotUtf8SelectsThatFile) {
    const std::string name = std::string("caf\xe9") + ".txt";  // Latin-1
    const fs::path item = file("latin/" + name);
    openWindow(folder("start"));
    EXPECT_EQ(call("finder_reveal", {item.string()}), "");
    EXPECT_EQ(call("finder_get_selection"), item.string());
}

TEST_F(ThunarHandlers, ReloadKeepsTheWindowOnItsFolderAndShowsNewItems) {
    const fs::path target = folder("reload");
    const std::uint32_t window = openWindow(target);
    file("reload/new.txt");
    EXPECT_EQ(call("reload"), "");
    EXPECT_EQ(desktop().title(window), titleOf(target));
    EXPECT_EQ(call("finder_reveal_in_current", {"new.txt"}), "");
}

TEST_F(ThunarHandlers, NewWinOpensAnotherWindowOnTheGivenFolder) {
    const fs::path start = folder("start");
    const fs::path target = folder("new window");
    const std::uint32_t first = openWindow(start);
    EXPECT_EQ(call("finder_new_win", {target.string()}), "");
    const std::optional<std::uint32_t> second = desktop().waitForWindow(
        [&](std::uint32_t w) { return w != first && desktop().title(w) == titleOf(target); }, milliseconds(5000));
    EXPECT_TRUE(second.has_value());
    EXPECT_EQ(desktop().title(first), titleOf(start));
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

}  // namespace
}  // namespace jorvane::e2e
