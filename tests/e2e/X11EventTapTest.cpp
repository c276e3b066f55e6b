// The X11 event tap against a real X server (Xvfb, openbox), on windows of
// our own that record what reaches them, owned by a pid of our choosing
// through _NET_WM_PID; input injected with XTEST. Only what the whole-program
// tests cannot bring about: a window gone under a held key, a drag, and the
// watchdog of a slow callback. (The hot key swallowed in every press order,
// held until it repeats, after a layout change, other chords passed on,
// title clicks and the tap following Thunar's restarts are theirs.) And the
// shortcut recorder's probe for a combination another program holds.
#include <gtest/gtest.h>

#include <xcb/xcb.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "DesktopTest.h"
#include "XTestClient.h"
#include "platform/x11/X11EventTap.h"
#include "platform/x11/X11SymbolicHotKeys.h"

namespace jorvane::x11 {
namespace {

using namespace std::chrono_literals;

constexpr auto kWait = 5s;  // bound of every wait for something that must happen

bool eventually(const std::function<bool()>& done) { return e2e::waitUntil(done, kWait); }

const auto swallowAll = [](const TapEvent&) { return EventTap::Decision::Swallow; };

constexpr xcb_keysym_t kCtrl = 0xffe3;  // Control_L

// A window of a pretend process, on a connection of its own, that counts the
// key presses it receives.
class RecordingWindow {
public:
    RecordingWindow(const std::string& display, int32_t pid, int x, int y) : x_(display) {
        id_ =
            x_.create({.pid = pid, .x = x, .y = y, .width = 400, .height = 300, .eventMask = XCB_EVENT_MASK_KEY_PRESS});
    }
    xcb_window_t id() const { return id_; }
    bool focus() { return x_.focus(id_); }
    // The client's top-left in root coordinates (the title bar is above it).
    std::pair<int, int> origin() {
        const std::optional<e2e::WindowGeometry> g = x_.geometry(id_);
        return g ? std::pair{g->x, g->y} : std::pair{0, 0};
    }
    // Until the window has had `count` presses of the key.
    bool waitForPresses(xcb_keycode_t key, std::size_t count = 1) {
        return eventually([&] {
            while (xcb_generic_event_t* e = xcb_poll_for_event(x_.connection())) {
                if ((e->response_type & 0x7f) == XCB_KEY_PRESS)
                    presses_.push_back(reinterpret_cast<xcb_key_press_event_t*>(e)->detail);
                std::free(e);
            }
            return presses(key) >= count;
        });
    }
    std::size_t presses(xcb_keycode_t key) const {
        return std::size_t(std::count(presses_.begin(), presses_.end(), key));
    }

private:
    e2e::XTestClient x_;
    xcb_window_t id_ = XCB_NONE;
    std::vector<xcb_keycode_t> presses_;
};

// What the tap's callback saw (it runs on the tap's thread).
class Observed {
public:
    EventTap::Callback callback(std::function<EventTap::Decision(const TapEvent&)> decide = nullptr) {
        return [this, decide](const TapEvent& event) {
            {
                std::lock_guard lock(mutex_);
                events_.push_back(event);
            }
            return decide ? decide(event) : EventTap::Decision::Pass;
        };
    }
    std::vector<TapEvent> of(std::optional<EventType> type = std::nullopt) const {
        std::lock_guard lock(mutex_);
        std::vector<TapEvent> result = events_;
        if (type) std::erase_if(result, [&](const TapEvent& e) { return e.type != *type; });
        return result;
    }
    bool waitForCount(EventType type, std::size_t count) {
        return eventually([&] { return of(type).size() >= count; });
    }
    void clear() {
        std::lock_guard lock(mutex_);
        events_.clear();
    }

private:
    mutable std::mutex mutex_;
    std::vector<TapEvent> events_;
};

constexpr int32_t kTappedPid = 4242;

class X11EventTapTest : public e2e::DesktopTest {
protected:
    void SetUp() override {
        DesktopTest::SetUp();
        if (HasFatalFailure()) return;
        hands_ = &desktop().x();
        hands_->moveTo(5, 5);
    }
    static std::string display() { return desktop().display(); }
    // Installs the tap on kTappedPid: `decide` answers its callback (none:
    // everything passes), `swallowable` are the keys it may take. Comes with
    // a tapped window.
    using Decide = std::function<EventTap::Decision(const TapEvent&)>;
    std::unique_ptr<RecordingWindow> installTap(Decide decide = nullptr,
                                                std::vector<EventTap::KeyCombo> swallowable = {},
                                                X11EventTapOptions o = {}) {
        o.displayName = display();
        tap_ = std::make_unique<X11EventTap>(o);
        EXPECT_TRUE(tap_->install(kTappedPid, observed_.callback(std::move(decide))));
        if (!swallowable.empty()) tap_->setSwallowableKeys(std::move(swallowable));
        return tappedWindow();
    }
    // A tapped window at a fixed place, focused, with its grabs in place.
    std::unique_ptr<RecordingWindow> tappedWindow(int x = 200, int y = 150) {
        auto window = std::make_unique<RecordingWindow>(display(), kTappedPid, x, y);
        EXPECT_TRUE(eventually([&] {
            const std::vector<uint32_t> tapped = tap_->tappedWindows();
            return std::find(tapped.begin(), tapped.end(), window->id()) != tapped.end();
        })) << "the new window was not tapped";
        EXPECT_TRUE(window->focus());
        return window;
    }

    xcb_keycode_t keyOf(xcb_keysym_t sym) { return hands_->keycode(sym).value_or(0); }

    e2e::XTestClient* hands_ = nullptr;
    Observed observed_;
    std::unique_ptr<X11EventTap> tap_;  // before observed_ goes
};

// ---------------------------------------------------------------------------

TEST_F(X11EventTapTest, aWindowClosedUnderAHeldSwallowedKeyLeavesTheKeyboardWorking) {
    auto first = installTap(swallowAll, {{kKeyL, kModifierCommand}});

    hands_->key(kCtrl, true);
    hands_->key('l', true);
    ASSERT_TRUE(observed_.waitForCount(kEventKeyDown, 1));
    first.reset();  // the server ends our grab: no release of L comes to the tap
    hands_->key('l', false);
    hands_->key(kCtrl, false);

    auto second = tappedWindow(300, 200);
    hands_->chord({kCtrl}, 'l');
    hands_->tap('x');
    ASSERT_TRUE(second->waitForPresses(keyOf('x'))) << "the keyboard stayed frozen";
    EXPECT_EQ(observed_.of(kEventKeyDown).size(), 2u);
    EXPECT_EQ(second->presses(keyOf('l')), 0u);
}

TEST_F(X11EventTapTest, aDragThatStartsOnTheWindowIsReportedUntilItsReleaseOutside) {
    auto window = installTap();
    const auto [x, y] = window->origin();

    // Moves without a button are not reported.
    hands_->moveTo(x + 30, y + 30);
    hands_->moveTo(x + 60, y + 60);
    tap_->sync();
    EXPECT_TRUE(observed_.of().empty());

    hands_->moveTo(x + 20, y - 10);  // take the title bar, as for a move: openbox grabs the pointer
    EXPECT_TRUE(hands_->button(1, true, kWait));
    tap_->sync();
    for (int step = 1; step <= 5; ++step) {
        hands_->moveTo(x + 20 + 30 * step, y - 10 + 20 * step);
        tap_->sync();
    }
    hands_->moveTo(1250, 780);
    tap_->sync();
    EXPECT_TRUE(hands_->button(1, false, kWait));
    tap_->sync();

    const std::vector<TapEvent> events = observed_.of();
    ASSERT_EQ(events.size(), 8u);
    EXPECT_EQ(events.front().type, kEventLeftMouseDown);
    EXPECT_EQ(events.front().location, (Point{double(x + 20), double(y - 10)}));
    for (int step = 1; step <= 5; ++step) {
        EXPECT_EQ(events[step].type, kEventLeftMouseDragged);
        EXPECT_EQ(events[step].location, (Point{double(x + 20 + 30 * step), double(y - 10 + 20 * step)}));
        EXPECT_EQ(events[step].buttonNumber, 0);
    }
    EXPECT_EQ(events[6].type, kEventLeftMouseDragged);
    EXPECT_EQ(events.back().type, kEventLeftMouseUp) << "the release outside still ends the drag";
    EXPECT_EQ(events.back().location, (Point{1250, 780}));
}

TEST_F(X11EventTapTest, aSlowCallbackHasItsKeyHandedOnAndTheTapSwitchedOff) {
    // Shared with the callback, which the tap may still call after the test's end.
    struct Gate {
        std::mutex mutex;
        std::condition_variable arrived;
        bool windowGotIt = false;
    };
    const auto gate = std::make_shared<Gate>();
    const auto decide = [gate](const TapEvent& e) {
        if (e.type != kEventKeyDown) return EventTap::Decision::Pass;
        // Decide only once the window has the key: the watchdog must have passed it on.
        std::unique_lock lock(gate->mutex);
        gate->arrived.wait_for(lock, kWait, [&] { return gate->windowGotIt; });
        return EventTap::Decision::Swallow;
    };
    auto window = installTap(decide, {{kKeyL, kModifierCommand}}, {.displayName = {}, .decisionTimeout = 100ms});

    hands_->chord({kCtrl}, 'l');
    ASSERT_TRUE(window->waitForPresses(keyOf('l')));
    {
        std::lock_guard lock(gate->mutex);
        gate->windowGotIt = true;
    }
    gate->arrived.notify_all();
    ASSERT_TRUE(observed_.waitForCount(kEventTapDisabledByTimeout, 1));
    EXPECT_TRUE(eventually([&] { return !tap_->isEnabled(); }));

    // Switched off, the tap sees nothing; switched on again, it works.
    hands_->chord({kCtrl}, 'l');
    ASSERT_TRUE(window->waitForPresses(keyOf('l'), 2));
    EXPECT_EQ(observed_.of(kEventKeyDown).size(), 1u);
    tap_->setEnabled(true);
    observed_.clear();
    hands_->chord({kCtrl}, 'l');
    ASSERT_TRUE(observed_.waitForCount(kEventKeyDown, 1));
}

// ---- The shortcut recorder's check: a combination that another client has
// grabbed counts as held while a free one is left free.

class X11ShortcutRecorderTest : public e2e::DesktopTest {
protected:
    void SetUp() override {
        DesktopTest::SetUp();
        if (HasFatalFailure() || IsSkipped()) return;
        keyboard_ = X11Keyboard::open(desktop().display());
        ASSERT_NE(keyboard_, nullptr);
    }
    std::shared_ptr<X11Keyboard> keyboard_;
};

TEST_F(X11ShortcutRecorderTest, combinationGrabbedByAnotherClientIsHeldAndAFreeOneStaysFree) {
    // Another program grabs Ctrl+Alt+G on the root window.
    e2e::XTestClient program(desktop().display());
    ASSERT_TRUE(program.ok());
    xcb_connection_t* other = program.connection();
    const xcb_window_t root = program.root();
    std::vector<xkb_keycode_t> keys;
    std::uint16_t ctrlAlt = 0, ctrlShift = 0;
    keyboard_->withCurrent([&](const X11Keyboard::Current& current) {
        ASSERT_TRUE(current.keys);
        keys = current.keys->keycodes(kKeyG, current.group);
        ctrlAlt = current.keys->stateForFlags(kModifierCommand | kModifierOption).value_or(0);
        ctrlShift = current.keys->stateForFlags(kModifierCommand | kModifierShift).value_or(0);
    });
    ASSERT_FALSE(keys.empty());
    const auto key = static_cast<xcb_keycode_t>(keys.front());
    xcb_generic_error_t* error = xcb_request_check(
        other, xcb_grab_key_checked(other, 1, root, ctrlAlt, key, XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC));
    ASSERT_EQ(error, nullptr);

    X11SymbolicHotKeys hotKeys(keyboard_, X11SymbolicHotKeys::Options{});
    EXPECT_TRUE(hotKeys.isHeldByAnotherProgram(kKeyG, kRecorderCommand | kRecorderOption));
    EXPECT_FALSE(hotKeys.isHeldByAnotherProgram(kKeyG, kRecorderCommand | kRecorderShift));
    // The probe let go of what it took: the other program can grab it now.
    error = xcb_request_check(
        other, xcb_grab_key_checked(other, 1, root, ctrlShift, key, XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC));
    EXPECT_EQ(error, nullptr);
    std::free(error);
}

}  // namespace
}  // namespace jorvane::x11
