#pragma once

// The state X11EventTap's parts share, private to them. The tap is cut into
// connection set-up, the tap thread's loop, delivery to the callback, the
// client windows of the tapped process, key grabs and synthetic input; see
// X11EventTap.h for how it works as a whole.

#include <xcb/xcb.h>
#include <xkbcommon/xkbcommon.h>

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "platform/x11/X11EventTap.h"
#include "platform/x11/X11Keys.h"
#include "util/Diagnostics.h"

namespace jorvane::x11 {
namespace event_tap {

inline constexpr const char* kLog = "X11EventTap";
inline constexpr int kBadWindow = 3;
// A grab refused because another client held the key at that moment (a
// launcher, a key remapper taking it briefly) is tried again after this, then
// after twice as long each time, up to the longest delay.
inline constexpr std::chrono::milliseconds kGrabRetryFirstDelay{500};
inline constexpr std::chrono::milliseconds kGrabRetryLongestDelay{30000};

template <class T>
struct FreeDeleter {
    void operator()(T* p) const { std::free(p); }
};
template <class T>
using Reply = std::unique_ptr<T, FreeDeleter<T>>;
template <class T>
Reply<T> own(T* p) {
    return Reply<T>(p);
}

// Logs an X error and frees it; BadWindow is expected for windows that went
// away and is logged at debug level only.
void logXError(const char* request, xcb_generic_error_t* error);
// Connects to the display (empty name: $DISPLAY); null when it cannot.
xcb_connection_t* connectTo(const std::string& displayName, xcb_window_t* root);
bool hasXInput22(xcb_connection_t* c);
bool hasXTest(xcb_connection_t* c);
xcb_atom_t internAtom(xcb_connection_t* c, const char* name);

struct PointerState {
    xcb_window_t child = XCB_NONE;
    std::int16_t x = 0;
    std::int16_t y = 0;
    std::uint16_t mask = 0;
};
std::optional<PointerState> queryPointer(xcb_connection_t* c, xcb_window_t root);

}  // namespace event_tap

struct X11EventTap::Impl {
    explicit Impl(X11EventTapOptions opts) : options(std::move(opts)) {}

    X11EventTapOptions options;

    // Set up once in open(), then read-only.
    xcb_connection_t* conn = nullptr;  // the tap's connection: the tap thread's alone
    xcb_window_t root = XCB_NONE;
    xcb_connection_t* postConn = nullptr;  // synthetic events and the mouse location
    xcb_window_t postRoot = XCB_NONE;
    bool connected = false;
    std::uint8_t xiOpcode = 0;
    std::uint8_t xkbEventBase = 0;
    xcb_atom_t atomClientList = XCB_ATOM_NONE;
    xcb_atom_t atomWmPid = XCB_ATOM_NONE;
    xkb_context* xkbContext = nullptr;
    int wakeFd = -1;

    // What the callers asked for; the tap thread applies it between events.
    struct Desired {
        std::int32_t pid = 0;
        Callback callback;
        bool enabled = true;
        std::vector<KeyCombo> keys;
        std::uint64_t syncs = 0;
    };
    mutable std::mutex stateMutex;
    std::condition_variable appliedChanged;
    Desired desired;
    std::uint64_t requested = 0;
    std::uint64_t applied = 0;
    bool stopping = false;
    std::vector<std::uint32_t> tappedWindowsCopy;

    // The translation tables, shared with post().
    mutable std::mutex keysMutex;
    std::shared_ptr<const X11Keys> sharedKeys;
    std::atomic<std::uint32_t> sharedGroup{0};

    std::thread thread;
    std::atomic<std::thread::id> tapThreadId{};

    // The watchdog that thaws the keyboard when the callback is too slow.
    std::mutex watchMutex;
    std::condition_variable watchChanged;
    bool watchArmed = false;
    bool watchFired = false;
    bool watchStopping = false;
    std::chrono::steady_clock::time_point watchDeadline;
    std::thread watchdog;

    // ---- Tap thread only.
    std::int32_t pid = 0;
    std::uint64_t syncs = 0;
    Callback callback;
    bool enabled = true;
    std::vector<KeyCombo> swallowKeys;
    std::shared_ptr<const X11Keys> keys;
    std::uint32_t group = 0;
    std::uint8_t modifiers = 0;  // the keyboard's effective modifiers, from XKB state notifications
    std::int32_t keyboardId = -1;
    std::map<xcb_window_t, xcb_window_t> clientFrames;  // client -> its top-level frame
    bool clientsDirty = false;
    bool framesDirty = false;
    bool keymapDirty = false;
    bool grabsDirty = false;
    bool pointerMapDirty = false;
    std::set<xcb_keycode_t> pressedKeys;  // tapped keys held down
    // The keys we hold on each client window: (key code, modifier state).
    std::map<xcb_window_t, std::set<std::pair<xcb_keycode_t, std::uint16_t>>> heldGrabs;
    // Windows whose grab another client refused, and when to try again.
    std::set<xcb_window_t> refusedGrabs;
    std::optional<std::chrono::steady_clock::time_point> grabRetryAt;
    std::chrono::milliseconds grabRetryDelay = event_tap::kGrabRetryFirstDelay;
    xcb_keycode_t grabKey = 0;  // the key whose swallowed press keeps our grab active
    std::vector<std::uint8_t> pointerMap;
    std::array<bool, 256> buttonOwned{};
    std::array<std::int64_t, 256> buttonClickState{};
    bool leftHeld = false;
    bool motionPending = false;
    std::uint32_t rawMaskSelected = 0;
    struct LastPress {
        std::uint32_t button = 0;
        xcb_timestamp_t time = 0;
        std::int16_t x = 0, y = 0;
        std::int64_t count = 0;
    } lastPress;
    bool connectionErrorLogged = false;

    // ---- post() only, under postMutex.
    std::mutex postMutex;
    std::map<std::uint16_t, xcb_keycode_t> injected;  // modifier bit -> key we hold down

    // ---- Connection set-up (X11EventTapConnection.cpp): both connections,
    // the extensions, the keyboard and pointer mappings.
    bool open();
    void close();
    void rebuildKeymap();
    void rebuildPointerMap();

    // ---- The tap thread (X11EventTapLoop.cpp): its loop, applying what
    // callers asked for, dispatching events.
    bool onTapThread() const { return std::this_thread::get_id() == tapThreadId.load(); }

    // Changes the desired state; from another thread, waits (bounded) until
    // the tap thread has applied it.
    template <class Change>
    void request(Change change) {
        std::uint64_t generation = 0;
        {
            std::lock_guard lock(stateMutex);
            change(desired);
            generation = ++requested;
        }
        if (!connected) return;
        wake();
        if (onTapThread()) return;
        std::unique_lock lock(stateMutex);
        if (!appliedChanged.wait_for(lock, std::chrono::seconds(5),
                                     [&] { return applied >= generation || stopping; })) {
            log::inDomain(log::Warn, event_tap::kLog, "the tap thread did not apply a change within 5 s");
        }
    }

    void wake() const;
    void run();
    void drainEvents();
    int pollTimeout() const;
    void applyDirty();
    void applyDesired(bool mayDrain);
    void handleEvent(xcb_generic_event_t* event);
    void onXkbEvent(xcb_generic_event_t* event);

    // ---- Delivery (X11EventTapDelivery.cpp): keys and clicks become
    // TapEvents for the callback, under the watchdog.
    void onKeyPress(const xcb_key_press_event_t* e);
    void onKeyRelease(const xcb_key_release_event_t* e);
    void onRawEvent(xcb_ge_generic_event_t* event);
    void onRawButton(std::uint32_t physical, xcb_timestamp_t time, bool press);
    void deliverMouse(std::uint32_t button, bool down, const event_tap::PointerState& pointer, std::int64_t clicks);
    void flushMotion();
    void selectRaw();
    Decision deliver(const TapEvent& event, bool watched, bool* timedOut);
    void onDecisionTimeout();
    void watch();

    // ---- Client windows of the tapped process (X11EventTapClients.cpp).
    static std::int32_t pidOfReply(xcb_get_property_reply_t* reply);
    std::int32_t windowPid(xcb_window_t window);
    xcb_window_t frameOf(xcb_window_t client);
    bool belongsToProcess(xcb_window_t topLevel);
    void refreshClients();
    void forgetClient(xcb_window_t window);
    void dropClients();
    void publishTappedWindows();

    // ---- Key grabs (X11EventTapGrabs.cpp).
    void retryRefusedGrabs();
    void regrabAll();
    // Brings the window's grabs to the keys wanted now, changing only what
    // differs, so that a key that stays tapped is never let go in between.
    void grabKeys(xcb_window_t window);
    void ungrabKeys(xcb_window_t window);

    // ---- Synthetic input through XTEST (X11EventTapSyntheticInput.cpp):
    // any thread, under postMutex.
    std::shared_ptr<const X11Keys> currentKeys() const;
    void fake(std::uint8_t type, std::uint8_t detail, std::int16_t x = 0, std::int16_t y = 0);
    bool waitForModifierRelease(const X11Keys& k);
    bool holdModifiers(const X11Keys& k, std::uint16_t state);
    void releaseInjected();
    void waitForButtonState(std::uint8_t button, bool down);
    bool post(const TapEvent& event);
    Point mouseLocation();
};

}  // namespace jorvane::x11
