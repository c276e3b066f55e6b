// The address bar's Qt views on a real X server: the end-to-end desktop
// (Xvfb, openbox, Thunar), the bar's widgets with a recorder in place of the
// controller, input injected with XTEST as a user's would arrive. What neither
// the offscreen tests nor the whole-program tests show (those see the bar
// placed over the title, holding the keyboard, and keys reaching it): it takes
// the keyboard back on a click; a key is named by the X key whatever the
// layout types; the list and the context menu leave the keyboard with the
// bar; an alert comes to the front with the keyboard.
#include <gtest/gtest.h>

#include <QApplication>
#include <QMenu>
#include <QMessageBox>
#include <QPushButton>
#include <QTest>
#include <QTimer>

#include <xcb/xcb.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "DesktopTest.h"
#include "XTestClient.h"
#include "ui/CompletionsPopup.h"
#include "ui/PathBar.h"
#include "ui/PathBarWindow.h"
#include "ui/QtAlerts.h"
#include "ui/QtPathWindowViews.h"
#include "ui/QtScreens.h"

namespace jorvane::ui {
namespace {

using e2e::Desktop;
using std::chrono::milliseconds;

constexpr int kWait = 5000;  // ms, the bound of every wait for something that must happen

class PathBarOnX : public e2e::DesktopTest {
protected:
    static void SetUpTestSuite() {
        DesktopTest::SetUpTestSuite();
        if (!startError().empty() || !qApp) return;
        std::error_code error;
        std::filesystem::create_directories(desktop().dataDir() / "bar", error);
        thunar_ = desktop().openThunarWindow(desktop().dataDir() / "bar");
    }

    static void TearDownTestSuite() {
        if (Desktop* running = Desktop::sharedIfRunning()) running->closeThunarWindows();
        thunar_.reset();
    }

    void SetUp() override {
        DesktopTest::SetUp();
        ASSERT_NE(qApp, nullptr) << "no Qt application on the desktop's display";
        ASSERT_TRUE(thunar_) << "no Thunar window";
        x_ = &desktop().x();
        qt_ = makePathWindowViews();
        PathWindowEvents& events = *qt_.events;
        events.handleKeyDown = [this](const KeyEvent& event) {
            char entry[64];
            std::snprintf(entry, sizeof entry, "key %u 0x%llx", event.keyCode,
                          static_cast<unsigned long long>(event.modifierFlags & kShortcutModifierMask));
            log_.emplace_back(entry);
            return handleKeyDownAnswer_;
        };
        events.handleEditCommand = [this](TextCommand) {
            log_.emplace_back("command");
            return true;
        };
        events.completionChosen = [this] {
            log_.push_back("chosen " + std::to_string(qt_.views.completions->selectedRow()));
        };
        events.focusLost = [this] { log_.emplace_back("resignKey"); };
        // Thunar in front and holding the keyboard before the bar comes. An
        // activation sent while Thunar is in front already is acted on some
        // time later and would take the keyboard back from the bar (its
        // Ctrl+W then closes Thunar's window): ask only when needed, and wait
        // until it has been acted on.
        if (desktop().activeWindow() != *thunar_ || !x_->focusIsIn(*thunar_)) {
            ASSERT_TRUE(desktop().activate(*thunar_));
            ASSERT_TRUE(QTest::qWaitFor([&] { return x_->focusIsIn(*thunar_); }, kWait)) << "no focus in Thunar";
        }
    }

    void TearDown() override {
        qt_ = {};
        QApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }

    PathBar& bar() { return *qt_.bar.lock(); }
    xcb_window_t barWindow() { return static_cast<xcb_window_t>(bar().window()->winId()); }

    // Where the bar goes: over the top of the Thunar window, in Qt's (root)
    // coordinates.
    QRect barRectOverThunar() {
        const std::optional<e2e::WindowGeometry> thunar = desktop().geometry(*thunar_);
        if (!thunar) return {};
        return QRect(thunar->x + 60, thunar->y - 12, std::min(thunar->width - 120, 420), PathBarWindow::kHeight);
    }

    // What the controller's show does: place, order front, make key.
    void showBar(const QRect& where) {
        qt_.views.panel->setFrame(fromQtRect(where, firstScreenHeight()), true, false);
        qt_.views.field->setStringValue("/tmp/");
        qt_.views.panel->raise();
        qt_.views.panel->focus();
    }

    // The window's outer rectangle on the root.
    std::optional<QRect> rootGeometry(xcb_window_t window) {
        const std::optional<e2e::WindowGeometry> g = x_->geometry(window);
        return g ? std::optional(QRect(g->x, g->y, g->width, g->height)) : std::nullopt;
    }

    bool barHasTheKeyboard() { return x_->inputFocus() == barWindow() && bar().window()->isActiveWindow(); }

    bool logged(const std::string& entry) const { return std::find(log_.begin(), log_.end(), entry) != log_.end(); }

    static inline std::optional<std::uint32_t> thunar_;
    e2e::XTestClient* x_ = nullptr;  // the desktop's connection, to look at the server as others see it
    QtPathWindow qt_;
    std::vector<std::string> log_;
    bool handleKeyDownAnswer_ = false;
};

TEST_F(PathBarOnX, theXKeyNamesTheKeyWhateverTheLayoutTypes) {
    if (desktop().run({"setxkbmap", "-display", desktop().display(), "de"}).exitCode != 0)
        GTEST_SKIP() << "setxkbmap cannot switch the layout here";
    showBar(barRectOverThunar());
    ASSERT_TRUE(QTest::qWaitFor([&] { return barHasTheKeyboard(); }, kWait));
    // On a German keyboard Shift+. types ":"; the shortcut is still Ctrl+Shift+.
    desktop().key("ctrl+shift+period");
    const bool seen = QTest::qWaitFor([&] { return !log_.empty(); }, kWait);
    desktop().run({"setxkbmap", "-display", desktop().display(), "us"});
    ASSERT_TRUE(seen);
    EXPECT_EQ(log_.front(), "key 47 0x120000");
}

TEST_F(PathBarOnX, aClickElsewhereResignsAndAClickOnTheBarTakesTheKeyboardBack) {
    const QRect where = barRectOverThunar();
    showBar(where);
    ASSERT_TRUE(QTest::qWaitFor([&] { return barHasTheKeyboard(); }, kWait));

    const std::optional<e2e::WindowGeometry> thunar = desktop().geometry(*thunar_);
    desktop().click(thunar->x + thunar->width / 2, thunar->y + thunar->height / 2);
    ASSERT_TRUE(QTest::qWaitFor([&] { return logged("resignKey"); }, kWait));
    EXPECT_NE(x_->inputFocus(), barWindow());

    // Nobody hid the bar (the recorder stands in for the controller): a click
    // into its field takes the keyboard back.
    desktop().click(where.x() + 40, where.center().y());
    EXPECT_TRUE(QTest::qWaitFor([&] { return barHasTheKeyboard(); }, kWait));
}

TEST_F(PathBarOnX, aClickOnTheListChoosesARowAndLeavesTheKeyboardWithTheBar) {
    const QRect where = barRectOverThunar();
    showBar(where);
    ASSERT_TRUE(QTest::qWaitFor([&] { return barHasTheKeyboard(); }, kWait));
    CompletionsListView& list = *qt_.views.completions;
    list.setContent({"/tmp/a/", "/tmp/bb/", "/tmp/ccc"});
    const Rect field = qt_.views.field->frame();
    const Rect panel = qt_.views.panel->frame();
    list.setFrame({{panel.origin.x + field.origin.x, panel.origin.y + field.origin.y - 51}, {field.size.width, 51}},
                  true);
    list.raise();
    list.showActive();
    CompletionsPopup& popup = *bar().popup();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&popup));
    const auto popupWindow = static_cast<xcb_window_t>(popup.winId());
    ASSERT_TRUE(QTest::qWaitFor([&] { return rootGeometry(popupWindow).has_value(); }, kWait));
    EXPECT_EQ(rootGeometry(popupWindow)->top(), where.top() + 2 + 20) << "hangs from the field's bottom edge";
    EXPECT_TRUE(x_->isOverrideRedirect(popupWindow));

    const QPoint row = rootGeometry(popupWindow)->topLeft() + QPoint(30, 17 + 8);
    desktop().click(row.x(), row.y());
    ASSERT_TRUE(QTest::qWaitFor([&] { return logged("chosen 1"); }, kWait));
    // Whatever the click made Qt ask of the server has been sent by now.
    QCoreApplication::processEvents();
    EXPECT_TRUE(barHasTheKeyboard());
    EXPECT_FALSE(logged("resignKey"));
}

TEST_F(PathBarOnX, theContextMenuLeavesTheKeyboardWithTheBar) {
    const QRect where = barRectOverThunar();
    showBar(where);
    ASSERT_TRUE(QTest::qWaitFor([&] { return barHasTheKeyboard(); }, kWait));
    desktop().click(where.x() + 60, where.center().y(), 3);
    ASSERT_TRUE(
        QTest::qWaitFor([] { return qobject_cast<QMenu*>(QApplication::activePopupWidget()) != nullptr; }, kWait));
    // Right after it maps, the menu may not hold the keyboard yet and an
    // Escape sent by the machine at once can go astray (no person is that
    // quick): pressed again until the menu closes, a few times at most.
    bool closed = false;
    for (int attempt = 0; attempt < 5 && !closed; ++attempt) {
        desktop().key("Escape");
        closed = QTest::qWaitFor([] { return QApplication::activePopupWidget() == nullptr; }, 1000);
    }
    ASSERT_TRUE(closed);
    EXPECT_TRUE(QTest::qWaitFor([&] { return barHasTheKeyboard(); }, kWait));
    EXPECT_FALSE(logged("resignKey"));
    EXPECT_FALSE(logged("command")) << "the menu's Escape is the menu's";
}

TEST_F(PathBarOnX, anAlertComesToTheFrontWithTheKeyboard) {
    QtAlerts alerts;
    bool hadKeyboard = false;
    auto* poll = new QTimer;
    int polls = 0;
    QObject::connect(poll, &QTimer::timeout, [&] {
        auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
        if (!box) return;
        hadKeyboard = x_->inputFocus() == static_cast<xcb_window_t>(box->winId()) ||
                      x_->topLevelOf(x_->inputFocus()) == x_->topLevelOf(static_cast<xcb_window_t>(box->winId()));
        if (hadKeyboard || ++polls > kWait / 20) {
            poll->stop();
            for (QAbstractButton* button : box->buttons())
                if (button->text() == QStringLiteral("Quit")) button->click();
        }
    });
    poll->start(20);
    const int answer = alerts.runModal({"Thunar is not running.", "", {"Start", "Quit"}});
    delete poll;
    EXPECT_TRUE(hadKeyboard);
    EXPECT_EQ(answer, kAlertSecondButton);
}

}  // namespace
}  // namespace jorvane::ui
