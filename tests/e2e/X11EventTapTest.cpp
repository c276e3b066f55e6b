// The X11 event tap against a real X server: the end-to-end desktop (Xvfb,
// openbox), windows of our own that record what reaches them (exact, and
// owned by a pid of our choosing through _NET_WM_PID). Input is injected with
// XTEST, as a user's would arrive. (The tap on a real Thunar window is the
// whole-program tests': the hot key swallowed in every press order, held
// until it repeats, with Caps Lock on and after a layout change, and other
// chords passed on.)
#include <gtest/gtest.h>

#include <poll.h>

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

namespace jorvane::x11 {
namespace {

using namespace std::chrono_literals;
using e2e::Clock;

constexpr auto kWait = 5s;  // bound of every wait for something that must happen

bool eventually(const std::function<bool()>& done) { return e2e::waitUntil(done, kWait); }

const auto swallowAll = [](const TapEvent&) { return EventTap::Decision::Swallow; };

constexpr xcb_keysym_t kCtrl = 0xffe3;  // Control_L

// ---------------------------------------------------------------------------
// A window of a pretend process, on a connection of its own, that records
// the input it receives.

struct Input {
    uint8_t type;
    uint8_t detail;
    uint16_t state;
    int16_t rootX, rootY;
    uint32_t time;
};

class RecordingWindow {
public:
    RecordingWindow(const std::string& display, int32_t pid, int x, int y, int width, int height) : x_(display) {
        id_ = x_.create({.pid = pid,
                         .x = x,
                         .y = y,
                         .width = width,
                         .height = height,
                         .eventMask = XCB_EVENT_MASK_KEY_PRESS | XCB_EVENT_MASK_KEY_RELEASE |
                                      XCB_EVENT_MASK_BUTTON_PRESS | XCB_EVENT_MASK_BUTTON_RELEASE});
    }
    xcb_window_t id() const { return id_; }
    bool focus() { return x_.focus(id_); }
    // The client's top-left in root coordinates (the title bar is above it).
    std::pair<int, int> origin() {
        const std::optional<e2e::WindowGeometry> g = x_.geometry(id_);
        return g ? std::pair{g->x, g->y} : std::pair{0, 0};
    }

    // Waits until the recorded input satisfies `done`.
    bool waitFor(const std::function<bool(const std::vector<Input>&)>& done) {
        const auto deadline = Clock::now() + kWait;
        for (;;) {
            while (xcb_generic_event_t* e = xcb_poll_for_event(x_.connection())) {
                record(e);
                std::free(e);
            }
            if (done(inputs_)) return true;
            if (Clock::now() >= deadline) return false;
            pollfd p{xcb_get_file_descriptor(x_.connection()), POLLIN, 0};
            poll(&p, 1, 20);
        }
    }
    bool waitForKeyPress(xcb_keycode_t key) {
        return waitFor([&](const std::vector<Input>& in) {
            return std::any_of(in.begin(), in.end(),
                               [&](const Input& i) { return i.type == XCB_KEY_PRESS && i.detail == key; });
        });
    }
    std::vector<Input> inputs(uint8_t type, uint8_t detail = 0) const {
        std::vector<Input> result = inputs_;
        std::erase_if(result, [&](const Input& i) { return i.type != type || (detail != 0 && i.detail != detail); });
        return result;
    }

private:
    void record(xcb_generic_event_t* e) {
        const uint8_t type = e->response_type & 0x7f;
        if (type == XCB_KEY_PRESS || type == XCB_KEY_RELEASE || type == XCB_BUTTON_PRESS ||
            type == XCB_BUTTON_RELEASE) {
            auto* k = reinterpret_cast<xcb_key_press_event_t*>(e);
            inputs_.push_back({type, k->detail, k->state, k->root_x, k->root_y, k->time});
        }
    }
    e2e::XTestClient x_;
    xcb_window_t id_ = XCB_NONE;
    std::vector<Input> inputs_;
};

// ---------------------------------------------------------------------------
// What the tap's callback saw.

class Observed {
public:
    EventTap::Callback callback(std::function<EventTap::Decision(const TapEvent&)> decide = nullptr) {
        return [this, decide](const TapEvent& event) {
            {
                std::lock_guard lock(mutex_);
                events_.push_back(event);
            }
            changed_.notify_all();
            return decide ? decide(event) : EventTap::Decision::Pass;
        };
    }
    bool waitFor(const std::function<bool(const std::vector<TapEvent>&)>& done,
                 std::chrono::milliseconds timeout = kWait) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, timeout, [&] { return done(events_); });
    }
    bool waitForCount(EventType type, std::size_t count) {
        return waitFor([&](const std::vector<TapEvent>& events) { return countOf(events, type) >= count; });
    }
    std::vector<TapEvent> events() const {
        std::lock_guard lock(mutex_);
        return events_;
    }
    std::vector<TapEvent> of(EventType type) const {
        std::vector<TapEvent> result = events();
        std::erase_if(result, [&](const TapEvent& e) { return e.type != type; });
        return result;
    }
    void clear() {
        std::lock_guard lock(mutex_);
        events_.clear();
    }
    static std::size_t countOf(const std::vector<TapEvent>& events, EventType type) {
        return std::size_t(
            std::count_if(events.begin(), events.end(), [&](const TapEvent& e) { return e.type == type; }));
    }

private:
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<TapEvent> events_;
};

constexpr int32_t kTappedPid = 4242;
constexpr int32_t kOtherPid = 4343;

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
        auto window = std::make_unique<RecordingWindow>(display(), kTappedPid, x, y, 400, 300);
        EXPECT_TRUE(eventually([&] {
            const std::vector<uint32_t> tapped = tap_->tappedWindows();
            return std::find(tapped.begin(), tapped.end(), window->id()) != tapped.end();
        })) << "the new window was not tapped";
        EXPECT_TRUE(window->focus());
        return window;
    }

    // A click, and the tap has read its position before the pointer moves on.
    // A window manager may hold the release back (openbox freezes the pointer
    // on a click into a client until it has looked at it), so when the tap is
    // to report the click, wait for the report of its release.
    void click(int x, int y, uint8_t button = 1, bool reported = true) {
        const auto ups = [](const std::vector<TapEvent>& events) {
            return std::count_if(events.begin(), events.end(), [](const TapEvent& e) {
                return e.type == kEventLeftMouseUp || e.type == kEventRightMouseUp || e.type == kEventOtherMouseUp;
            });
        };
        const auto before = ups(observed_.events());
        EXPECT_TRUE(hands_->click(x, y, button, kWait)) << "button " << int(button) << " stuck";
        tap_->sync();
        if (reported) {
            EXPECT_TRUE(observed_.waitFor([&](const std::vector<TapEvent>& events) { return ups(events) > before; }))
                << "no release reported for the click at " << x << "," << y;
        }
    }

    xcb_keycode_t keyOf(xcb_keysym_t sym) { return hands_->keycode(sym).value_or(0); }

    e2e::XTestClient* hands_ = nullptr;
    Observed observed_;
    std::unique_ptr<X11EventTap> tap_;  // before observed_ goes
};

// ---------------------------------------------------------------------------

TEST_F(X11EventTapTest, theLaunchCheckFindsXInputAndXTestOrSaysWhatIsMissing) {
    const X11InputSupport support = checkX11InputSupport(display());
    EXPECT_TRUE(support.complete());
    EXPECT_EQ(support.missing(), "");
    const X11InputSupport none = checkX11InputSupport(":9999");
    EXPECT_FALSE(none.complete());
    EXPECT_EQ(none.missing(), "an X display");
    EXPECT_FALSE(X11EventTap({.displayName = ":9999"}).install(kTappedPid, observed_.callback()));
}

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
    ASSERT_TRUE(second->waitForKeyPress(keyOf('x'))) << "the keyboard stayed frozen";
    EXPECT_EQ(observed_.of(kEventKeyDown).size(), 2u);
    EXPECT_TRUE(second->inputs(XCB_KEY_PRESS, keyOf('l')).empty());
}

TEST_F(X11EventTapTest, aHeldPassedKeyReachesTheWindowRepeatedAndTheTapFlagsTheRepeats) {
    auto window = installTap(nullptr, {{kKeyK, kModifierCommand}});

    hands_->key(kCtrl, true);
    hands_->key('k', true);
    ASSERT_TRUE(observed_.waitForCount(kEventKeyDown, 3));
    hands_->key('k', false);
    hands_->key(kCtrl, false);
    hands_->chord({kCtrl}, 'k');  // pressed anew: not a repeat
    hands_->tap('x');
    ASSERT_TRUE(window->waitForKeyPress(keyOf('x')));

    const std::vector<TapEvent> downs = observed_.of(kEventKeyDown);
    ASSERT_GE(downs.size(), 4u);
    EXPECT_FALSE(downs.front().autorepeat);
    EXPECT_TRUE(std::all_of(downs.begin() + 1, downs.end() - 1, [](const TapEvent& e) { return e.autorepeat; }));
    EXPECT_FALSE(downs.back().autorepeat);
    // Every press was handed on. (The window's client has no detectable
    // auto-repeat, so it also gets a release before each repetition.)
    EXPECT_EQ(window->inputs(XCB_KEY_PRESS, keyOf('k')).size(), downs.size());
}

TEST_F(X11EventTapTest, clicksOnTheTappedWindowAreReportedWithPlaceTypeButtonAndClickCountAndOnlyThose) {
    auto window = installTap();
    const auto [x, y] = window->origin();

    click(x + 10, y + 20);
    click(x + 11, y + 20);  // a double click
    click(x + 30, y + 40, 2);
    click(x + 50, y + 60, 3);
    hands_->key(kCtrl, true);
    click(x + 70, y + 80);
    hands_->key(kCtrl, false);
    click(x + 100, y - 10);  // the title bar: openbox's frame around our window

    const std::vector<TapEvent> events = observed_.events();
    ASSERT_EQ(events.size(), 12u);
    const auto is = [](const TapEvent& e, EventType type, double ex, double ey, int64_t button, int64_t clicks) {
        return e.type == type && e.location == Point{ex, ey} && e.buttonNumber == button && e.clickState == clicks;
    };
    EXPECT_TRUE(is(events[0], kEventLeftMouseDown, x + 10, y + 20, 0, 1));
    EXPECT_TRUE(is(events[1], kEventLeftMouseUp, x + 10, y + 20, 0, 1));
    EXPECT_TRUE(is(events[2], kEventLeftMouseDown, x + 11, y + 20, 0, 2));
    EXPECT_TRUE(is(events[3], kEventLeftMouseUp, x + 11, y + 20, 0, 2));
    EXPECT_TRUE(is(events[4], kEventOtherMouseDown, x + 30, y + 40, 2, 1));
    EXPECT_TRUE(is(events[5], kEventOtherMouseUp, x + 30, y + 40, 2, 1));
    EXPECT_TRUE(is(events[6], kEventRightMouseDown, x + 50, y + 60, 1, 1));
    EXPECT_TRUE(is(events[7], kEventRightMouseUp, x + 50, y + 60, 1, 1));
    EXPECT_TRUE(is(events[9], kEventLeftMouseUp, x + 70, y + 80, 0, 1));
    EXPECT_EQ(events[9].flags & kShortcutModifierMask, kModifierCommand);
    EXPECT_TRUE(is(events[11], kEventLeftMouseUp, x + 100, y - 10, 0, 1));
    EXPECT_EQ(events[11].flags, 0u);
    EXPECT_TRUE(window->waitFor([](const std::vector<Input>& in) {
        return std::count_if(in.begin(), in.end(), [](const Input& i) { return i.type == XCB_BUTTON_PRESS; }) == 5;
    })) << "clicks on the client always reach it";

    // Clicks on another program's window and on the bare desktop are not reported.
    RecordingWindow other(display(), kOtherPid, 700, 150, 300, 300);
    click(other.origin().first + 10, other.origin().second + 10, 1, false);
    click(1200, 750, 1, false);
    click(x + 5, y + 5);
    ASSERT_EQ(observed_.events().size(), 14u);
    EXPECT_EQ(observed_.events()[12].location, (Point{double(x + 5), double(y + 5)}));
}

TEST_F(X11EventTapTest, aDragThatStartsOnTheWindowIsReportedUntilItsReleaseOutside) {
    auto window = installTap();
    const auto [x, y] = window->origin();

    // Moves without a button are not reported.
    hands_->moveTo(x + 30, y + 30);
    hands_->moveTo(x + 60, y + 60);
    tap_->sync();
    EXPECT_TRUE(observed_.events().empty());

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

    const std::vector<TapEvent> events = observed_.events();
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
    ASSERT_TRUE(window->waitForKeyPress(keyOf('l')));
    {
        std::lock_guard lock(gate->mutex);
        gate->windowGotIt = true;
    }
    gate->arrived.notify_all();
    ASSERT_TRUE(observed_.waitForCount(kEventTapDisabledByTimeout, 1));
    EXPECT_TRUE(eventually([&] { return !tap_->isEnabled(); }));

    // Switched off, the tap sees nothing; switched on again, it works.
    hands_->chord({kCtrl}, 'l');
    ASSERT_TRUE(window->waitFor(
        [&](const std::vector<Input>&) { return window->inputs(XCB_KEY_PRESS, keyOf('l')).size() == 2; }));
    EXPECT_EQ(observed_.of(kEventKeyDown).size(), 1u);
    tap_->setEnabled(true);
    observed_.clear();
    hands_->chord({kCtrl}, 'l');
    ASSERT_TRUE(observed_.waitForCount(kEventKeyDown, 1));
}

TEST_F(X11EventTapTest, aSyntheticCtrlDoubleClickArrivesAsOneClickThenACtrlDoubleClick) {
    auto window = installTap();
    const auto [x, y] = window->origin();
    const Point at{double(x + 40), double(y + 50)};

    ASSERT_TRUE(tap_->post(TapEvent::mouseEvent(kEventLeftMouseDown, at)));
    ASSERT_TRUE(tap_->post(TapEvent::mouseEvent(kEventLeftMouseUp, at)));
    ASSERT_TRUE(tap_->post(TapEvent::mouseEvent(kEventLeftMouseDown, at, 1, 2, kModifierCommand)));
    ASSERT_TRUE(tap_->post(TapEvent::mouseEvent(kEventLeftMouseUp, at, 1, 2, kModifierCommand)));
    ASSERT_TRUE(window->waitFor([](const std::vector<Input>& in) {
        return std::count_if(in.begin(), in.end(), [](const Input& i) { return i.type == XCB_BUTTON_RELEASE; }) == 2;
    }));
    const std::vector<Input> presses = window->inputs(XCB_BUTTON_PRESS);
    ASSERT_EQ(presses.size(), 2u);
    EXPECT_FALSE(presses[0].state & XCB_MOD_MASK_CONTROL);
    EXPECT_TRUE(presses[1].state & XCB_MOD_MASK_CONTROL);
    for (const Input& press : presses)
        EXPECT_EQ(std::make_pair(press.rootX, press.rootY), std::make_pair(int16_t(at.x), int16_t(at.y)));
    EXPECT_LT(presses[1].time - presses[0].time, 400u) << "close enough for a toolkit to count a double click";
    EXPECT_EQ(tap_->mouseLocation(), at);

    // The tap sees its own synthetic clicks, the second as a double click.
    ASSERT_TRUE(observed_.waitForCount(kEventLeftMouseUp, 2));
    EXPECT_EQ(observed_.of(kEventLeftMouseUp)[1].clickState, 2);
    EXPECT_EQ(observed_.of(kEventLeftMouseUp)[1].flags & kShortcutModifierMask, kModifierCommand);
    // Our Ctrl was let go after the last up.
    EXPECT_TRUE(hands_->click(x + 5, y + 5, 1, kWait));
    ASSERT_TRUE(window->waitFor([](const std::vector<Input>& in) {
        return std::count_if(in.begin(), in.end(), [](const Input& i) { return i.type == XCB_BUTTON_PRESS; }) == 3;
    }));
    EXPECT_FALSE(window->inputs(XCB_BUTTON_PRESS)[2].state & XCB_MOD_MASK_CONTROL);
}

TEST_F(X11EventTapTest, uninstallingStopsTheCallbackAndReleasesTheKeys) {
    auto window = installTap(swallowAll, {{kKeyL, kModifierCommand}});
    tap_->uninstall();
    EXPECT_FALSE(tap_->isInstalled());
    EXPECT_TRUE(tap_->tappedWindows().empty());

    hands_->chord({kCtrl}, 'l');
    click(window->origin().first + 5, window->origin().second + 5, 1, false);
    ASSERT_TRUE(window->waitForKeyPress(keyOf('l')));
    ASSERT_TRUE(window->waitFor([](const std::vector<Input>& in) {
        return std::any_of(in.begin(), in.end(), [](const Input& i) { return i.type == XCB_BUTTON_RELEASE; });
    }));
    EXPECT_TRUE(observed_.events().empty());
}

}  // namespace
}  // namespace jorvane::x11
