// The Thunar handler catalogue against the real Thunar: what the
// whole-program tests do not reach (the views other than Details, the path
// from the location entry, reload, new windows, the terminal, a hung Thunar).
// Navigation, reveal, selection, names that are not UTF-8, the front window
// and Thunar gone are theirs.

#include <unistd.h>

#include <algorithm>
#include <thread>

#include "ThunarTestSupport.h"
#include "XTestClient.h"
#include "util/Diagnostics.h"

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
    for (const char* name : {"file1.txt", "file3.txt", "zeta.txt"}) file(std::string("items/") + name);
    folder("items/sub");
    const std::uint32_t window = openWindow(other);
    // From a view other than the wanted one.
    const bool wantsDetails = std::string(GetParam().lastView) == "ThunarDetailsView";
    ASSERT_EQ(call(wantsDetails ? "icon_view" : "list_view"), "");
    ASSERT_EQ(call(GetParam().handler), "");
    const auto expectViewKept = [&] { EXPECT_EQ(desktop().xfconf("thunar", "/last-view"), GetParam().lastView); };
    expectViewKept();

    ASSERT_EQ(call("show_folder", {items.string()}), "");
    EXPECT_EQ(call("selected_item"), "") << "nothing selected";
    EXPECT_EQ(call("reveal_in_current_folder", {"sub/"}), "");
    EXPECT_EQ(call("selected_item"), (items / "sub").string() + "/");

    ASSERT_EQ(call("show_folder", {other.string()}), "");
    EXPECT_EQ(call("reveal", {(items / "zeta.txt").string()}), "");
    EXPECT_EQ(desktop().title(window), titleOf(items));
    EXPECT_EQ(call("selected_item"), (items / "zeta.txt").string());

    ASSERT_EQ(call("show_folder", {other.string()}), "");
    EXPECT_EQ(call("select_names", {items.string(), "/file1.txt|!|file3.txt|!|sub/"}), "");
    EXPECT_EQ(desktop().title(window), titleOf(items));
    // Thunar says it is loading for a while after the view is put back; a
    // busy Thunar may say so past the question's bound, so it is asked again.
    const std::vector<std::string> wanted{(items / "file1.txt").string(), (items / "file3.txt").string(),
                                          (items / "sub").string() + "/"};
    std::vector<std::string> selected;
    EXPECT_TRUE(waitUntil(
        [&] {
            selected = catalogue().selectedItems().value_or(std::vector<std::string>{});
            std::sort(selected.begin(), selected.end());
            return selected == wanted;
        },
        milliseconds(8000), milliseconds(100)))
        << "selected: " << testing::PrintToString(selected);
    expectViewKept();
}

INSTANTIATE_TEST_SUITE_P(
    Handlers, ThunarViews,
    ::testing::Values(ViewCase{"IconView", "icon_view", "ThunarIconView"},
                      ViewCase{"ListViewGivesDetails", "list_view", "ThunarDetailsView"},
                      ViewCase{"ColumnViewGivesTheCompactList", "column_view", "ThunarCompactView"},
                      ViewCase{"GalleryViewGivesDetailsForLackOfOne", "gallery_view", "ThunarDetailsView"}),
    [](const auto& row) { return std::string(row.param.label); });

using ThunarHandlers = ThunarTest;

// With the full path in the title turned off (Thunar's own preference, read
// when a window opens), the title names the folder only and its path comes
// from the location entry.
TEST_F(ThunarHandlers, FolderPathReadsTheLocationEntryWhenTheTitleShowsOnlyTheFolderName) {
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
    EXPECT_EQ(call("folder_path"), target.string());
}

// Calls the bar makes for its keys, which no whole-program test drives
// against the real Thunar, and calls it refuses.
TEST_F(ThunarHandlers, ReloadNewWindowAndTerminalActAndRefusedCallsLeaveTheWindow) {
    const fs::path start = folder("start"), target = folder("new window");
    const std::uint32_t window = openWindow(start);
    const std::size_t windowsBefore = desktop().clientWindows().size();
    const std::pair<std::string, std::vector<std::string>> refused[] = {
        {"show_folder", {file("start/document.txt").string()}},
        {"show_folder", {(start / "missing").string()}},
        {"make_coffee", {}},
        {"reveal", {"relative/path"}},
        {"reveal", {(target / "missing.txt").string()}},  // and the window stays
        {"select_names", {start.string()}},
        {"open_terminal", {}},
    };
    for (const auto& [name, params] : refused) EXPECT_EQ(call(name, params), std::nullopt) << name;
    EXPECT_EQ(desktop().clientWindows().size(), windowsBefore);

    file("start/new.txt");
    EXPECT_EQ(call("reload"), "");
    EXPECT_EQ(call("reveal_in_current_folder", {"new.txt"}), "") << "the reload shows new items";
    EXPECT_EQ(call("new_window", {target.string()}), "");
    EXPECT_TRUE(desktop().waitForWindow([&](std::uint32_t w) { return desktop().title(w) == titleOf(target); },
                                        milliseconds(5000)));
    EXPECT_EQ(desktop().title(window), titleOf(start));

    if (access("/usr/bin/x-terminal-emulator", X_OK) != 0 && access("/usr/bin/xterm", X_OK) != 0)
        GTEST_SKIP() << "no terminal emulator installed";
    const std::vector<std::uint32_t> before = desktop().clientWindows();
    ASSERT_EQ(call("open_terminal", {target.string()}), "");
    const std::optional<std::uint32_t> terminal = desktop().waitForWindow(
        [&](std::uint32_t w) {
            return std::count(before.begin(), before.end(), w) == 0 && desktop().wmClass(w) != "Thunar";
        },
        milliseconds(10000));
    ASSERT_TRUE(terminal) << "no terminal window";
    const std::optional<pid_t> pid = desktop().windowPid(*terminal);
    ASSERT_TRUE(pid);
    std::error_code error;
    EXPECT_EQ(fs::read_symlink("/proc/" + std::to_string(*pid) + "/cwd", error), target);
    desktop().stopProcess(*pid);
}

// ---- Thunar stopped: every call answers within its bound, and Thunar recovers.

class ThunarHang : public ThunarTest {
protected:
    // The worker's timings say where the time went when a bound is missed.
    void SetUp() override {
        ThunarTest::SetUp();
        log::setDomainLevel("Thunar", log::Debug);
    }
    void TearDown() override {
        log::clearDomainLevels();
        if (!startError().empty()) return;
        if (suspended_) desktop().resume(desktop().thunarPid());
        if (desktop().thunarPid() <= 0) desktop().restartThunar();
        ThunarTest::TearDown();
    }

    // Stops Thunar at a moment when it does not hold the X server. GTK grabs
    // the server for short moments; a Thunar stopped inside such a grab stops
    // every X client, the catalogue's worker included, which is not what this
    // test is about (the user's whole desktop would stand still).
    bool suspendThunar() {
        const pid_t pid = desktop().thunarPid();
        for (int attempt = 0; attempt < 20; ++attempt) {
            if (!desktop().suspend(pid)) return false;
            suspended_ = true;
            if (desktop().x().answers(milliseconds(1000))) return true;
            desktop().resume(pid);
            suspended_ = false;
            std::this_thread::sleep_for(milliseconds(100));
        }
        return false;
    }

    // The bound plus the time to wake the caller.
    static long long limitFor(const char* handler) { return catalogue().timeoutFor(handler).count() + 300; }

    bool suspended_ = false;
};

TEST_F(ThunarHang, AStoppedThunarGetsNothingWithinTheBoundAndRecovers) {
    const fs::path start = folder("start"), target = folder("target");
    const std::uint32_t window = openWindow(start);
    ASSERT_EQ(call("folder_path"), start.string());  // AT-SPI and X are warm

    ASSERT_TRUE(suspendThunar());
    for (const char* handler : {"show_folder", "selected_item", "reload", "list_view"}) {
        const auto begin = Clock::now();
        const std::vector<std::string> params = std::string(handler) == "show_folder"
                                                    ? std::vector<std::string>{target.string()}
                                                    : std::vector<std::string>{};
        // Timed before a failure's screenshot is taken.
        const std::optional<std::string> answer = call(handler, params);
        const long long took = millisecondsSince(begin);
        EXPECT_EQ(answer, std::nullopt) << handler;
        EXPECT_LT(took, limitFor(handler)) << handler;
    }
    // The title lives in the X server, which still answers for the window.
    const auto begin = Clock::now();
    const std::optional<std::string> answer = call("folder_path");
    const long long took = millisecondsSince(begin);
    EXPECT_EQ(answer, start.string());
    EXPECT_LT(took, limitFor("folder_path"));

    ASSERT_TRUE(desktop().resume(desktop().thunarPid()));
    suspended_ = false;
    // Thunar works through what it missed; the catalogue serves it again.
    EXPECT_TRUE(waitUntil([&] { return call("show_folder", {target.string()}) == ""; }, milliseconds(15000),
                          milliseconds(200)));
    EXPECT_EQ(desktop().title(window), titleOf(target));
}

}  // namespace
}  // namespace jorvane::e2e
