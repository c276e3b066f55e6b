// The registry of bars and what Thunar's windows and process do to it.
#include "JorvaneAppFixture.h"

#include <gmock/gmock.h>

namespace jorvane::test::appcore {
namespace {

using appcore::PrintTo;
using testing::ElementsAre;
using testing::IsEmpty;

TEST_F(AppDelegateTest, twoElementObjectsOfOneWindowShareOneBar) {
    launched();
    PathWindowController* first = delegate().barFor(ax_->element(window_));
    PathWindowController* second = delegate().barFor(ax_->element(window_), false);
    EXPECT_NE(first, nullptr);
    EXPECT_EQ(first, second);
    EXPECT_EQ(delegate().pathControllers().size(), 1u);
    EXPECT_FALSE(barVisible()) << "a new bar starts hidden";
    EXPECT_THAT(accessibility_.observer()->notificationsOf(ax_->element(window_)),
                ElementsAre(WindowNotification::ElementDestroyed, WindowNotification::Minimized,
                            WindowNotification::Moved, WindowNotification::Resized, WindowNotification::Restacked));
}

TEST_F(AppDelegateTest, noWindowNoCreationOrAFailingFactoryMakesNoBar) {
    auto ports = this->ports();
    bool fail = false;
    ports.makeController = [&, make = ports.makeController](ElementRef window, PathWindowDelegate& delegate) {
        if (fail) throw std::invalid_argument("no views");
        return make(std::move(window), delegate);
    };
    delegate_ = std::make_unique<JorvaneApp>(ports);
    launched();
    EXPECT_EQ(delegate().barFor(nullptr, true), nullptr);
    EXPECT_EQ(delegate().barFor(ax_->element(window_), false), nullptr);
    ax_->setFocusedWindow({});
    EXPECT_EQ(delegate().barForFocusedWindow(), nullptr);
    delegate().show();
    EXPECT_TRUE(log_->entries().empty());
    fail = true;
    EXPECT_EQ(delegate().barFor(ax_->element(window_)), nullptr);
    EXPECT_TRUE(delegate().pathControllers().empty());
}

TEST_F(AppDelegateTest, aWindowWhoseTitleNamesAnotherFolderReportsItAsShown) {
    std::vector<std::string> shown;
    auto ports = this->ports();
    ports.folderShown = [&shown](const std::string& folder) { shown.push_back(folder); };
    delegate_ = std::make_unique<JorvaneApp>(ports);
    launched();
    EXPECT_THAT(accessibility_.observer()->notificationsOf(ax_->element(application_)),
                testing::Contains(WindowNotification::TitleChanged));
    for (const char* title : {"/home/u/Music", "Music - Thunar", "/home/u/Projects"}) {
        ax_->setTitle(window_, title);
        accessibility_.observer()->post(ax_->element(window_), WindowNotification::TitleChanged);
    }
    settle();
    EXPECT_THAT(shown, ElementsAre("/home/u/Music", "/home/u/Projects"));
}

struct NoticeRow {
    const char* name;
    bool barOpen;
    void (*arrange)(JorvaneAppFixture&);
    std::vector<WindowNotification> notices;
    std::size_t barsAfter;
    bool visibleAfter;
    std::vector<std::string> effects;
};

class ObserverNotice : public AppDelegateTable<NoticeRow> {};

TEST_P(ObserverNotice, Row) {
    const NoticeRow& row = GetParam();
    launched();
    if (row.barOpen) {
        openBar();
    } else {
        delegate().barFor(ax_->element(window_));
        log_->clear();
    }
    if (row.arrange) row.arrange(*this);
    for (WindowNotification notice : row.notices) accessibility_.observer()->post(ax_->element(window_), notice);
    EXPECT_EQ(delegate().pathControllers().size(), row.barsAfter);
    if (row.barsAfter > 0) {
        EXPECT_EQ(barVisible(), row.visibleAfter);
    }
    EXPECT_EQ(logged({"panel.", "list.close", "call "}), row.effects);
}

void moveWindow(JorvaneAppFixture& f) { f.ax_->setFrame(f.window_, {{200, 100}, {600, 400}}); }
void coverTitle(JorvaneAppFixture& f) { f.ax_->addForeignWindow({"xterm", 77, "xterm", 300, 30, 200, 100}); }
void coverBody(JorvaneAppFixture& f) { f.ax_->addForeignWindow({"xterm", 77, "xterm", 300, 200, 200, 100}); }
void panelOverTitle(JorvaneAppFixture& f) { f.ax_->addForeignWindow({"Dock", 78, "panel", 0, 0, 1440, 60}); }

// clang-format off
const NoticeRow kNoticeRows[] = {
    {"a destroyed window closes its bar and drops it", true, nullptr, {WindowNotification::ElementDestroyed}, 0, false,
     {"list.close", "panel.close"}},
    {"a second destroyed notice finds nothing and does nothing", true, nullptr,
     {WindowNotification::ElementDestroyed, WindowNotification::ElementDestroyed}, 0, false, {"list.close", "panel.close"}},
    {"a minimised window hides its bar", true, nullptr, {WindowNotification::Minimized}, 1, false, {"panel.hide"}},
    {"a restored window does not bring its bar back", true, nullptr,
     {WindowNotification::Minimized, WindowNotification::Restored}, 1, false, {"panel.hide"}},
    {"a moved window takes its open bar along", true, moveWindow, {WindowNotification::Moved}, 1, true,
     {"panel.setFrame 397,779 206x22 animated"}},
    {"a resized window fits its open bar again", true, moveWindow, {WindowNotification::Resized}, 1, true,
     {"panel.setFrame 397,779 206x22 animated"}},
    {"a moved window with a hidden bar moves nothing", false, moveWindow, {WindowNotification::Moved}, 1, false, {}},
    {"a window raised over the title hides the bar", true, coverTitle, {WindowNotification::Restacked}, 1, false,
     {"panel.hide"}},
    {"a window moved under another's title hides its bar", true, coverTitle, {WindowNotification::Moved}, 1, false,
     {"panel.setFrame 297,829 206x22 animated", "panel.hide"}},
    {"a window raised over the body leaves the bar", true, coverBody, {WindowNotification::Restacked}, 1, true, {}},
    {"a panel along the top of the screen leaves the bar", true, panelOverTitle, {WindowNotification::Restacked}, 1, true, {}},
    {"an uncovered window does not bring its bar back", false, nullptr, {WindowNotification::Restacked}, 1, false, {}},
    {"focus changes and the application's deactivation change nothing", true, nullptr,
     {WindowNotification::FocusedWindowChanged, WindowNotification::ApplicationDeactivated, WindowNotification::ApplicationActivated}, 1, true, {}},
};
// clang-format on

INSTANTIATE_TEST_SUITE_P(Rows, ObserverNotice, testing::ValuesIn(kNoticeRows), SentenceName{});

TEST_F(AppDelegateTest, losingTheFrontHidesEveryBarOnlyForTheFileManagerOrThisProgram) {
    launched();
    const ElementNode second = ax_->addWindow(application_, "tmp - Thunar", {{800, 50}, {400, 300}});
    openBar();
    delegate().barFor(ax_->element(second))->show();
    ASSERT_TRUE(barVisible(0) && barVisible(1));
    workspace_.deactivated(77, false, "xterm");
    EXPECT_TRUE(barVisible(0) && barVisible(1)) << "another application stepping back hides nothing";
    workspace_.deactivated(kPid);
    EXPECT_FALSE(barVisible(0) || barVisible(1));
    delegate().show();
    ASSERT_TRUE(barVisible(0));
    delegate().deactivated();
    EXPECT_FALSE(barVisible(0));
}

TEST_F(AppDelegateTest, aFileManagerGoneWithItsWindowsHidesEveryBarAndLetsGoOfTheTap) {
    launched();
    openBar();
    fileManager_.setPid(0);
    workspace_.windowsGone(kPid);
    EXPECT_FALSE(barVisible());
    EXPECT_EQ(delegate().fileManagerPid(), 0);
    EXPECT_THAT(logged({"tap."}), ElementsAre("tap.setEnabled 0", "tap.uninstall"));
}

TEST_F(AppDelegateTest, aFileManagerWhoseFirstWindowCameAfterItHadNoneKeepsItsTapAndBars) {
    launched();
    openBar();
    workspace_.windowsGone(kPid);  // it lives on without windows
    workspace_.launched(kPid);
    EXPECT_THAT(logged({"tap."}), IsEmpty()) << "a key pressed while the tap was down and up again would be lost";
    EXPECT_TRUE(barVisible());
}

TEST_F(AppDelegateTest, aNewFileManagerProcessHidesEveryBarAndGetsTheTap) {
    launched();
    openBar();
    workspace_.launched(77, false, "xterm");
    EXPECT_TRUE(barVisible());
    EXPECT_THAT(tap_.installs(), ElementsAre(kPid));
    workspace_.launched(5000);
    EXPECT_FALSE(barVisible());
    EXPECT_EQ(delegate().fileManagerPid(), 5000);
    EXPECT_THAT(logged({"tap.", "fm.", "observer."}),
                ElementsAre("tap.setEnabled 0", "tap.uninstall", "tap.setEnabled 0", "tap.uninstall",
                            "tap.install 5000", "tap.setSwallowableKeys 5/0x100000"))
        << "the old process is dropped, then the new one attached";
    EXPECT_EQ(delegate().pathControllers().size(), 1u) << "the old window's bar stays until its window goes";
    EXPECT_EQ(accessibility_.createdCount(), 1u) << "the observer stays";
    // The new process's window gets its own bar through the new tap.
    const ElementNode newApp = ax_->addApplication(5000);
    const ElementNode newWindow = ax_->addWindow(newApp, "me - Thunar", {{100, 500}, {600, 300}});
    ax_->setFocusedWindow(newWindow);
    EXPECT_EQ(push(TapEvent::keyboardEvent(kKeyG, true, kModifierCommand)), EventTap::Decision::Swallow);
    EXPECT_EQ(push(TapEvent::keyboardEvent(kKeyG, false, kModifierCommand)), EventTap::Decision::Swallow);
    settle();
    EXPECT_EQ(delegate().pathControllers().size(), 2u);
    EXPECT_TRUE(barVisible(1));
}

}  // namespace
}  // namespace jorvane::test::appcore
