#include "platform/x11/X11EventTap.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <xcb/xcb.h>
#include <xcb/xinput.h>
#include <xcb/xtest.h>
// <xcb/xkb.h> names a structure field `explicit`.
#define explicit explicit_
#include <xcb/xkb.h>
#undef explicit
#include <xkbcommon/xkbcommon-x11.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cmath>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <optional>
#include <utility>
#include <set>
#include <thread>

#include "platform/x11/X11Keys.h"
#include "util/Diagnostics.h"

namespace jorvane::x11 {
namespace {

constexpr const char* kLog = "X11EventTap";
constexpr int kBadWindow = 3;
// A grab refused because another client held the key at that moment (a
// launcher, a key remapper taking it briefly) is tried again after this, then
// after twice as long each time, up to the longest delay.
constexpr std::chrono::milliseconds kGrabRetryFirstDelay{500};
constexpr std::chrono::milliseconds kGrabRetryLongestDelay{30000};

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
void logXError(const char* request, xcb_generic_error_t* error) {
    if (!error) return;
    KMLogInDomain(error->error_code == kBadWindow ? KMLogLevelDebug : KMLogLevelWarn, kLog,
                  "%s failed: X error %u (request %u.%u)", request, error->error_code, error->major_code,
                  error->minor_code);
    std::free(error);
}

xcb_window_t rootOf(xcb_connection_t* c, int screen) {
    xcb_screen_iterator_t it = xcb_setup_roots_iterator(xcb_get_setup(c));
    for (int i = 0; i < screen && it.rem > 1; ++i) xcb_screen_next(&it);
    return it.rem ? it.data->root : xcb_window_t{XCB_NONE};
}

xcb_connection_t* connectTo(const std::string& displayName, xcb_window_t* root) {
    int screen = 0;
    xcb_connection_t* c = xcb_connect(displayName.empty() ? nullptr : displayName.c_str(), &screen);
    if (xcb_connection_has_error(c)) {
        xcb_disconnect(c);
        return nullptr;
    }
    *root = rootOf(c, screen);
    return c;
}

bool hasXInput22(xcb_connection_t* c) {
    const xcb_query_extension_reply_t* ext = xcb_get_extension_data(c, &xcb_input_id);
    if (!ext || !ext->present) return false;
    auto version = own(xcb_input_xi_query_version_reply(c, xcb_input_xi_query_version(c, 2, 2), nullptr));
    return version && (version->major_version > 2 || (version->major_version == 2 && version->minor_version >= 2));
}

bool hasXTest(xcb_connection_t* c) {
    const xcb_query_extension_reply_t* ext = xcb_get_extension_data(c, &xcb_test_id);
    if (!ext || !ext->present) return false;
    return own(xcb_test_get_version_reply(c, xcb_test_get_version(c, 2, 2), nullptr)) != nullptr;
}

xcb_atom_t internAtom(xcb_connection_t* c, const char* name) {
    auto reply = own(xcb_intern_atom_reply(c, xcb_intern_atom(c, 0, static_cast<uint16_t>(std::strlen(name)), name),
                                           nullptr));
    return reply ? reply->atom : xcb_atom_t{XCB_ATOM_NONE};
}

// X button numbers: 1 left, 2 middle, 3 right, 4-7 the wheel, 8 and up the
// extra buttons (Quartz numbers them from 3).
std::int64_t buttonNumberOf(std::uint32_t xButton) {
    switch (xButton) {
        case 1: return kCGMouseButtonLeft;
        case 2: return kCGMouseButtonCenter;
        case 3: return kCGMouseButtonRight;
        default: return static_cast<std::int64_t>(xButton) - 5;
    }
}

std::optional<std::uint8_t> xButtonOf(std::int64_t buttonNumber) {
    switch (buttonNumber) {
        case kCGMouseButtonLeft: return 1;
        case kCGMouseButtonRight: return 3;
        case kCGMouseButtonCenter: return 2;
        default:
            if (buttonNumber >= 3 && buttonNumber <= 250) return static_cast<std::uint8_t>(buttonNumber + 5);
            return std::nullopt;
    }
}

struct PointerState {
    xcb_window_t child = XCB_NONE;
    std::int16_t x = 0;
    std::int16_t y = 0;
    std::uint16_t mask = 0;
};

std::optional<PointerState> queryPointer(xcb_connection_t* c, xcb_window_t root) {
    auto reply = own(xcb_query_pointer_reply(c, xcb_query_pointer(c, root), nullptr));
    if (!reply) return std::nullopt;
    return PointerState{reply->child, reply->root_x, reply->root_y, reply->mask};
}

}  // namespace

std::string X11InputSupport::missing() const {
    if (!displayReachable) return "an X display";
    std::string result;
    auto add = [&](const char* what) {
        if (!result.empty()) result += ", ";
        result += what;
    };
    if (!xinput22) add("XInput 2.2");
    if (!xtest) add("XTEST");
    return result;
}

X11InputSupport checkX11InputSupport(const std::string& displayName) {
    X11InputSupport support;
    xcb_window_t root = XCB_NONE;
    xcb_connection_t* c = connectTo(displayName, &root);
    if (!c) return support;
    support.displayReachable = true;
    support.xinput22 = hasXInput22(c);
    support.xtest = hasXTest(c);
    xcb_disconnect(c);
    return support;
}

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
    // Windows whose grab another client refused, and when to try again.
    std::set<xcb_window_t> refusedGrabs;
    std::optional<std::chrono::steady_clock::time_point> grabRetryAt;
    std::chrono::milliseconds grabRetryDelay = kGrabRetryFirstDelay;
    xcb_keycode_t grabKey = 0;           // the key whose swallowed press keeps our grab active
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

    // ------------------------------------------------------------------
    bool open() {
        conn = connectTo(options.displayName, &root);
        if (!conn) {
            KMLogInDomain(KMLogLevelError, kLog, "cannot connect to the X display");
            return false;
        }
        if (!hasXInput22(conn)) {
            KMLogInDomain(KMLogLevelError, kLog, "the X server lacks XInput 2.2");
            return false;
        }
        xiOpcode = xcb_get_extension_data(conn, &xcb_input_id)->major_opcode;
        std::uint16_t xkbMajor = 0, xkbMinor = 0;
        if (!xkb_x11_setup_xkb_extension(conn, XKB_X11_MIN_MAJOR_XKB_VERSION, XKB_X11_MIN_MINOR_XKB_VERSION,
                                         XKB_X11_SETUP_XKB_EXTENSION_NO_FLAGS, &xkbMajor, &xkbMinor, &xkbEventBase,
                                         nullptr)) {
            KMLogInDomain(KMLogLevelError, kLog, "the X server lacks XKB");
            return false;
        }
        keyboardId = xkb_x11_get_core_keyboard_device_id(conn);

        // Holding a key gives repeated presses and one release, instead of
        // release-press pairs that would end our grab at every repetition.
        auto flags = own(xcb_xkb_per_client_flags_reply(
            conn,
            xcb_xkb_per_client_flags(conn, XCB_XKB_ID_USE_CORE_KBD, XCB_XKB_PER_CLIENT_FLAG_DETECTABLE_AUTO_REPEAT,
                                     XCB_XKB_PER_CLIENT_FLAG_DETECTABLE_AUTO_REPEAT, 0, 0, 0),
            nullptr));
        if (!flags || !(flags->value & XCB_XKB_PER_CLIENT_FLAG_DETECTABLE_AUTO_REPEAT)) {
            KMLogInDomain(KMLogLevelWarn, kLog, "detectable auto-repeat is not supported: held keys end the grab");
        }

        const std::uint16_t events = XCB_XKB_EVENT_TYPE_NEW_KEYBOARD_NOTIFY | XCB_XKB_EVENT_TYPE_MAP_NOTIFY |
                                     XCB_XKB_EVENT_TYPE_STATE_NOTIFY;
        const std::uint16_t mapParts = XCB_XKB_MAP_PART_KEY_TYPES | XCB_XKB_MAP_PART_KEY_SYMS |
                                       XCB_XKB_MAP_PART_MODIFIER_MAP | XCB_XKB_MAP_PART_EXPLICIT_COMPONENTS |
                                       XCB_XKB_MAP_PART_KEY_ACTIONS | XCB_XKB_MAP_PART_VIRTUAL_MODS |
                                       XCB_XKB_MAP_PART_VIRTUAL_MOD_MAP;
        xcb_xkb_select_events_details_t details{};
        details.affectNewKeyboard = XCB_XKB_NKN_DETAIL_KEYCODES;
        details.newKeyboardDetails = XCB_XKB_NKN_DETAIL_KEYCODES;
        // The modifier state, in order with the raw button events: a click's
        // flags are the modifiers when the server handled it, not when we
        // get to ask.
        details.affectState = XCB_XKB_STATE_PART_GROUP_STATE | XCB_XKB_STATE_PART_MODIFIER_STATE;
        details.stateDetails = XCB_XKB_STATE_PART_GROUP_STATE | XCB_XKB_STATE_PART_MODIFIER_STATE;
        logXError("XkbSelectEvents", xcb_request_check(conn, xcb_xkb_select_events_aux_checked(
                                                                  conn, XCB_XKB_ID_USE_CORE_KBD, events, 0, 0,
                                                                  mapParts, mapParts, &details)));

        atomClientList = internAtom(conn, "_NET_CLIENT_LIST");
        atomWmPid = internAtom(conn, "_NET_WM_PID");
        const std::uint32_t rootMask = XCB_EVENT_MASK_PROPERTY_CHANGE;
        logXError("ChangeWindowAttributes(root)",
                  xcb_request_check(conn, xcb_change_window_attributes_checked(conn, root, XCB_CW_EVENT_MASK,
                                                                                &rootMask)));
        selectRaw();

        xkbContext = xkb_context_new(XKB_CONTEXT_NO_FLAGS);
        if (!xkbContext) return false;
        rebuildKeymap();
        rebuildPointerMap();
        if (!keys) return false;

        postConn = connectTo(options.displayName, &postRoot);
        if (!postConn || !hasXTest(postConn)) {
            KMLogInDomain(KMLogLevelError, kLog, "the X server lacks XTEST");
            return false;
        }
        wakeFd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
        return wakeFd >= 0;
    }

    void close() {
        if (postConn) {
            std::lock_guard lock(postMutex);
            releaseInjected();
            xcb_disconnect(postConn);
            postConn = nullptr;
        }
        if (conn) xcb_disconnect(conn);
        conn = nullptr;
        if (xkbContext) xkb_context_unref(xkbContext);
        xkbContext = nullptr;
        if (wakeFd >= 0) ::close(wakeFd);
        wakeFd = -1;
    }

    bool onTapThread() const { return std::this_thread::get_id() == tapThreadId.load(); }

    void wake() const {
        const std::uint64_t one = 1;
        if (wakeFd >= 0 && ::write(wakeFd, &one, sizeof one) < 0 && errno != EAGAIN) {
            KMLogInDomain(KMLogLevelWarn, kLog, "cannot wake the tap thread: %s", std::strerror(errno));
        }
    }

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
            KMLogInDomain(KMLogLevelWarn, kLog, "the tap thread did not apply a change within 5 s");
        }
    }

    // ------------------------------------------------------------------
    // The tap thread.

    void run() {
        tapThreadId = std::this_thread::get_id();
        for (;;) {
            {
                std::lock_guard lock(stateMutex);
                if (stopping) break;
            }
            applyDesired(/*mayDrain=*/true);
            const bool healthy = !xcb_connection_has_error(conn);
            if (healthy) {
                drainEvents();
            } else if (!connectionErrorLogged) {
                connectionErrorLogged = true;
                KMLogInDomain(KMLogLevelError, kLog, "the X connection broke; the tap sees nothing from now on");
            }
            pollfd fds[2] = {{wakeFd, POLLIN, 0}, {xcb_get_file_descriptor(conn), POLLIN, 0}};
            if (::poll(fds, healthy ? 2 : 1, pollTimeout()) < 0 && errno != EINTR) {
                KMLogInDomain(KMLogLevelError, kLog, "poll failed: %s", std::strerror(errno));
                break;
            }
            if (fds[0].revents & POLLIN) {
                std::uint64_t count = 0;
                [[maybe_unused]] ssize_t n = ::read(wakeFd, &count, sizeof count);
            }
        }
    }

    // Handles every event the connection has, then the work they left
    // (client list, frames, keymap, grabs, coalesced motion). Ends with the
    // output flushed and nothing queued, so that poll() will see the next event.
    void drainEvents() {
        for (;;) {
            while (xcb_generic_event_t* event = xcb_poll_for_event(conn)) {
                handleEvent(event);
                std::free(event);
            }
            if (motionPending) {
                flushMotion();
                continue;
            }
            retryRefusedGrabs();
            if (clientsDirty || framesDirty || keymapDirty || grabsDirty || pointerMapDirty) {
                applyDirty();
                continue;
            }
            xcb_flush(conn);
            // Flushing may have read events into the queue.
            xcb_generic_event_t* queued = xcb_poll_for_queued_event(conn);
            if (!queued) return;
            handleEvent(queued);
            std::free(queued);
        }
    }

    // Until a refused grab is due again; otherwise for ever (no wake-ups while idle).
    int pollTimeout() const {
        if (!grabRetryAt) return -1;
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(*grabRetryAt - std::chrono::steady_clock::now());
        return static_cast<int>(std::max<std::int64_t>(left.count(), 0));
    }

    void retryRefusedGrabs() {
        if (!grabRetryAt || std::chrono::steady_clock::now() < *grabRetryAt) return;
        grabRetryAt.reset();
        const std::set<xcb_window_t> windows = std::exchange(refusedGrabs, {});
        for (xcb_window_t window : windows) {
            if (!clientFrames.count(window) || !enabled || pid == 0) continue;
            ungrabKeys(window);
            grabKeys(window);
        }
        if (refusedGrabs.empty()) {
            grabRetryDelay = kGrabRetryFirstDelay;
        } else {
            grabRetryDelay = std::min(grabRetryDelay * 2, kGrabRetryLongestDelay);
        }
    }

    void applyDirty() {
        if (pointerMapDirty) rebuildPointerMap();
        if (keymapDirty) rebuildKeymap();  // sets grabsDirty
        if (clientsDirty) refreshClients();
        if (framesDirty) {
            for (auto& [client, frame] : clientFrames) frame = frameOf(client);
            framesDirty = false;
        }
        if (grabsDirty) regrabAll();
    }

    // `mayDrain`: called from the loop, not from inside an event's handling.
    void applyDesired(bool mayDrain) {
        Desired next;
        std::uint64_t generation = 0;
        {
            std::lock_guard lock(stateMutex);
            if (applied == requested) return;
            next = desired;
            generation = requested;
        }
        const bool pidChanged = next.pid != pid;
        const bool regrab = next.enabled != enabled || next.keys != swallowKeys;
        if (pidChanged) {
            dropClients();
            pid = next.pid;
            buttonOwned.fill(false);
            leftHeld = false;
            motionPending = false;
        }
        callback = std::move(next.callback);
        enabled = next.enabled;
        swallowKeys = std::move(next.keys);
        if (pidChanged && pid != 0) {
            refreshClients();
        } else if (regrab) {
            regrabAll();
        }
        selectRaw();
        xcb_flush(conn);
        if (next.syncs != syncs && mayDrain && !xcb_connection_has_error(conn)) {
            // A round trip puts every event the server sent before it in the
            // queue; handle them all before answering.
            std::free(xcb_get_input_focus_reply(conn, xcb_get_input_focus(conn), nullptr));
            drainEvents();
        }
        syncs = next.syncs;
        {
            std::lock_guard lock(stateMutex);
            applied = generation;
        }
        appliedChanged.notify_all();
    }

    void handleEvent(xcb_generic_event_t* event) {
        const std::uint8_t type = event->response_type & 0x7f;
        if (type == 0) {
            auto* error = reinterpret_cast<xcb_generic_error_t*>(event);
            KMLogInDomain(error->error_code == kBadWindow ? KMLogLevelDebug : KMLogLevelWarn, kLog,
                          "X error %u (request %u.%u, sequence %u)", error->error_code, error->major_code,
                          error->minor_code, error->sequence);
            return;
        }
        switch (type) {
            case XCB_KEY_PRESS: onKeyPress(reinterpret_cast<xcb_key_press_event_t*>(event)); return;
            case XCB_KEY_RELEASE: onKeyRelease(reinterpret_cast<xcb_key_release_event_t*>(event)); return;
            case XCB_PROPERTY_NOTIFY: {
                auto* e = reinterpret_cast<xcb_property_notify_event_t*>(event);
                if (e->window == root && e->atom == atomClientList) clientsDirty = true;
                return;
            }
            case XCB_REPARENT_NOTIFY: {
                auto* e = reinterpret_cast<xcb_reparent_notify_event_t*>(event);
                if (clientFrames.count(e->window)) framesDirty = true;
                return;
            }
            case XCB_DESTROY_NOTIFY: {
                auto* e = reinterpret_cast<xcb_destroy_notify_event_t*>(event);
                if (clientFrames.erase(e->window)) publishTappedWindows();
                return;
            }
            case XCB_MAPPING_NOTIFY: {
                auto* e = reinterpret_cast<xcb_mapping_notify_event_t*>(event);
                if (e->request == XCB_MAPPING_POINTER) {
                    pointerMapDirty = true;
                } else {
                    keymapDirty = true;
                }
                return;
            }
            case XCB_GE_GENERIC: {
                auto* e = reinterpret_cast<xcb_ge_generic_event_t*>(event);
                if (e->extension == xiOpcode) onRawEvent(e);
                return;
            }
            default: break;
        }
        if (type == xkbEventBase) onXkbEvent(event);
    }

    void onXkbEvent(xcb_generic_event_t* event) {
        // Every XKB event shares the base code; the kind is in the second byte.
        const std::uint8_t kind = reinterpret_cast<const std::uint8_t*>(event)[1];
        if (kind == XCB_XKB_NEW_KEYBOARD_NOTIFY || kind == XCB_XKB_MAP_NOTIFY) {
            keymapDirty = true;
        } else if (kind == XCB_XKB_STATE_NOTIFY) {
            auto* e = reinterpret_cast<xcb_xkb_state_notify_event_t*>(event);
            modifiers = e->mods;
            if (e->group != group) {
                group = e->group;
                sharedGroup = group;
                grabsDirty = true;  // the keys that type a code depend on the group
            }
        }
    }

    // ---- Keys.

    void onKeyPress(const xcb_key_press_event_t* e) {
        // Without an active grab of ours, this press activated one of the
        // passive grabs and the keyboard waits for our decision. Every press
        // is answered all the same: AllowEvents does nothing to a keyboard
        // that is not frozen, and a wrong guess must never leave it frozen.
        const bool frozen = grabKey == 0;
        const bool repeat = pressedKeys.count(e->detail) > 0;
        pressedKeys.insert(e->detail);
        selectRaw();  // watch for the release before the keyboard thaws

        Decision decision = Decision::Pass;
        bool timedOut = false;
        if (enabled && keys) {
            if (std::optional<TapEvent> event = keys->keyEvent(e->detail, e->state, true, repeat,
                                                               {double(e->root_x), double(e->root_y)})) {
                decision = deliver(*event, /*watched=*/true, &timedOut);
            }
        }
        if (timedOut) {
            if (frozen) grabKey = 0;  // the watchdog replayed it
        } else if (decision == Decision::Swallow) {
            xcb_allow_events(conn, XCB_ALLOW_ASYNC_KEYBOARD, e->time);
            if (frozen) grabKey = e->detail;
        } else {
            xcb_allow_events(conn, XCB_ALLOW_REPLAY_KEYBOARD, e->time);
            if (!frozen) {
                KMLogInDomain(KMLogLevelDebug, kLog, "key %u came during our grab and cannot be handed on", e->detail);
            }
        }
        xcb_flush(conn);
        if (timedOut) onDecisionTimeout();
    }

    void onKeyRelease(const xcb_key_release_event_t* e) {
        pressedKeys.erase(e->detail);
        if (enabled && keys) {
            if (std::optional<TapEvent> event = keys->keyEvent(e->detail, e->state, false, false, {double(e->root_x), double(e->root_y)})) {
                deliver(*event, false, nullptr);
            }
        }
        if (e->detail == grabKey) grabKey = 0;
        selectRaw();
    }

    // ---- Raw input.

    void onRawEvent(xcb_ge_generic_event_t* event) {
        auto* raw = reinterpret_cast<xcb_input_raw_button_press_event_t*>(event);
        switch (raw->event_type) {
            case XCB_INPUT_RAW_BUTTON_PRESS: onRawButton(raw->detail, raw->time, true); break;
            case XCB_INPUT_RAW_BUTTON_RELEASE: onRawButton(raw->detail, raw->time, false); break;
            case XCB_INPUT_RAW_MOTION:
                if (leftHeld) motionPending = true;
                break;
            case XCB_INPUT_RAW_KEY_RELEASE:
                if (raw->detail < 256) pressedKeys.erase(static_cast<xcb_keycode_t>(raw->detail));
                // Our grab ends with this key's release, also when the server
                // ended it earlier (its window went away) and no core release comes.
                if (raw->detail == grabKey) grabKey = 0;
                selectRaw();
                break;
            default: break;
        }
    }

    void onRawButton(std::uint32_t physical, xcb_timestamp_t time, bool press) {
        // Raw events carry the physical button; apply the pointer mapping
        // (left-handed set-ups swap 1 and 3).
        std::uint32_t button = physical;
        if (physical >= 1 && physical <= pointerMap.size()) button = pointerMap[physical - 1];
        if (button == 0 || button >= buttonOwned.size()) return;
        if (button >= 4 && button <= 7) return;  // the wheel
        if (motionPending) flushMotion();

        if (press) {
            buttonOwned[button] = false;
            if (!enabled || pid == 0 || !callback) return;
            const std::optional<PointerState> pointer = queryPointer(conn, root);
            if (!pointer || !belongsToProcess(pointer->child)) return;
            buttonOwned[button] = true;
            std::int64_t clicks = 1;
            if (lastPress.button == button && time - lastPress.time <= std::uint32_t(options.doubleClickTime.count()) &&
                std::abs(pointer->x - lastPress.x) <= options.doubleClickDistance &&
                std::abs(pointer->y - lastPress.y) <= options.doubleClickDistance) {
                clicks = lastPress.count + 1;
            }
            lastPress = {button, time, pointer->x, pointer->y, clicks};
            buttonClickState[button] = clicks;
            if (button == 1) {
                leftHeld = true;
                selectRaw();
            }
            deliverMouse(button, true, *pointer, clicks);
        } else {
            if (!buttonOwned[button]) return;
            buttonOwned[button] = false;
            if (button == 1) {
                leftHeld = false;
                selectRaw();
            }
            const std::optional<PointerState> pointer = queryPointer(conn, root);
            if (pointer && enabled && callback) deliverMouse(button, false, *pointer, buttonClickState[button]);
        }
    }

    void deliverMouse(std::uint32_t button, bool down, const PointerState& pointer, std::int64_t clicks) {
        CGEventType type = down ? kCGEventOtherMouseDown : kCGEventOtherMouseUp;
        if (button == 1) type = down ? kCGEventLeftMouseDown : kCGEventLeftMouseUp;
        if (button == 3) type = down ? kCGEventRightMouseDown : kCGEventRightMouseUp;
        deliver(TapEvent::mouseEvent(type, {double(pointer.x), double(pointer.y)}, buttonNumberOf(button), clicks,
                                     keys ? keys->flagsForState(modifiers) : 0),
                false, nullptr);
    }

    // One position for a batch of raw motion while the left button is held.
    void flushMotion() {
        motionPending = false;
        if (!leftHeld || !enabled || !callback) return;
        const std::optional<PointerState> pointer = queryPointer(conn, root);
        if (!pointer || !(pointer->mask & XCB_BUTTON_MASK_1)) return;
        deliver(TapEvent::mouseEvent(kCGEventLeftMouseDragged, {double(pointer->x), double(pointer->y)},
                                     kCGMouseButtonLeft, buttonClickState[1],
                                     keys ? keys->flagsForState(modifiers) : 0),
                false, nullptr);
    }

    // Raw button events always; motion while a tapped left press is held;
    // key releases while a tapped key is down.
    void selectRaw() {
        std::uint32_t mask = XCB_INPUT_XI_EVENT_MASK_RAW_BUTTON_PRESS | XCB_INPUT_XI_EVENT_MASK_RAW_BUTTON_RELEASE;
        if (leftHeld) mask |= XCB_INPUT_XI_EVENT_MASK_RAW_MOTION;
        if (!pressedKeys.empty() || grabKey != 0) mask |= XCB_INPUT_XI_EVENT_MASK_RAW_KEY_RELEASE;
        if (mask == rawMaskSelected) return;
        struct {
            xcb_input_event_mask_t head;
            std::uint32_t mask;
        } selection{{XCB_INPUT_DEVICE_ALL_MASTER, 1}, mask};
        xcb_input_xi_select_events(conn, root, 1, &selection.head);
        rawMaskSelected = mask;
    }

    // ---- Delivery.

    // `watched`: the keyboard may be frozen until the callback returns, so the
    // watchdog guards the call.
    Decision deliver(const TapEvent& event, bool watched, bool* timedOut) {
        if (!callback) return Decision::Pass;
        if (watched) {
            std::lock_guard lock(watchMutex);
            watchArmed = true;
            watchFired = false;
            watchDeadline = std::chrono::steady_clock::now() + options.decisionTimeout;
            watchChanged.notify_all();
        }
        Decision decision = Decision::Pass;
        try {
            decision = callback(event);
        } catch (const std::exception& exception) {
            KMLogInDomain(KMLogLevelError, kLog, "the tap callback threw: %s", exception.what());
        } catch (...) {
            KMLogInDomain(KMLogLevelError, kLog, "the tap callback threw");
        }
        if (watched) {
            std::lock_guard lock(watchMutex);
            watchArmed = false;
            if (watchFired && timedOut) *timedOut = true;
            watchFired = false;
            watchChanged.notify_all();
        }
        return decision;
    }

    void onDecisionTimeout() {
        KMLogInDomain(KMLogLevelWarn, kLog, "the tap callback took longer than %lld ms: key handed on, tap disabled",
                      static_cast<long long>(options.decisionTimeout.count()));
        {
            std::lock_guard lock(stateMutex);
            desired.enabled = false;
            ++requested;
        }
        applyDesired(/*mayDrain=*/false);
        TapEvent notice;
        notice.type = kCGEventTapDisabledByTimeout;
        deliver(notice, false, nullptr);
    }

    void watch() {
        std::unique_lock lock(watchMutex);
        while (!watchStopping) {
            if (!watchArmed) {
                watchChanged.wait(lock);
                continue;
            }
            if (std::chrono::steady_clock::now() < watchDeadline) {
                watchChanged.wait_until(lock, watchDeadline);
                continue;
            }
            // The tap thread is inside the callback and does not touch the
            // connection; the events this may read are drained afterwards.
            xcb_allow_events(conn, XCB_ALLOW_REPLAY_KEYBOARD, XCB_CURRENT_TIME);
            xcb_flush(conn);
            watchArmed = false;
            watchFired = true;
        }
    }

    // ---- Windows of the tapped process.

    static std::int32_t pidOfReply(xcb_get_property_reply_t* reply) {
        if (!reply || reply->format != 32 || xcb_get_property_value_length(reply) < 4) return 0;
        return *static_cast<const std::int32_t*>(xcb_get_property_value(reply));
    }

    std::int32_t windowPid(xcb_window_t window) {
        auto reply = own(xcb_get_property_reply(
            conn, xcb_get_property(conn, 0, window, atomWmPid, XCB_ATOM_CARDINAL, 0, 1), nullptr));
        return pidOfReply(reply.get());
    }

    xcb_window_t frameOf(xcb_window_t client) {
        xcb_window_t window = client;
        for (int depth = 0; depth < 32; ++depth) {
            auto tree = own(xcb_query_tree_reply(conn, xcb_query_tree(conn, window), nullptr));
            if (!tree || tree->parent == tree->root || tree->parent == XCB_NONE) return window;
            window = tree->parent;
        }
        return window;
    }

    bool belongsToProcess(xcb_window_t topLevel) {
        if (topLevel == XCB_NONE) return false;
        for (const auto& [client, frame] : clientFrames) {
            if (frame == topLevel) return true;
        }
        // The process's unmanaged windows: menus, tooltips, drag icons.
        auto attributes =
            own(xcb_get_window_attributes_reply(conn, xcb_get_window_attributes(conn, topLevel), nullptr));
        return attributes && attributes->override_redirect && windowPid(topLevel) == pid;
    }

    void refreshClients() {
        clientsDirty = false;
        std::set<xcb_window_t> current;
        auto list = own(xcb_get_property_reply(
            conn, xcb_get_property(conn, 0, root, atomClientList, XCB_ATOM_WINDOW, 0, 8192), nullptr));
        std::set<xcb_window_t> listed;
        if (list && list->format == 32) {
            const auto* windows = static_cast<const xcb_window_t*>(xcb_get_property_value(list.get()));
            const int count = xcb_get_property_value_length(list.get()) / 4;
            listed.insert(windows, windows + count);
        }
        // Every owner is read anew, all requests before the first answer: the
        // server reuses the ids of destroyed windows, so a remembered owner
        // can belong to another window by now.
        std::vector<std::pair<xcb_window_t, xcb_get_property_cookie_t>> cookies;
        for (xcb_window_t window : listed) {
            cookies.emplace_back(window, xcb_get_property(conn, 0, window, atomWmPid, XCB_ATOM_CARDINAL, 0, 1));
        }
        for (const auto& [window, cookie] : cookies) {
            if (pidOfReply(own(xcb_get_property_reply(conn, cookie, nullptr)).get()) == pid && pid != 0) {
                current.insert(window);
            }
        }
        for (auto it = clientFrames.begin(); it != clientFrames.end();) {
            if (current.count(it->first)) {
                ++it;
                continue;
            }
            forgetClient(it->first);
            it = clientFrames.erase(it);
        }
        for (xcb_window_t window : current) {
            if (clientFrames.count(window)) continue;
            const std::uint32_t mask = XCB_EVENT_MASK_STRUCTURE_NOTIFY;
            xcb_generic_error_t* error =
                xcb_request_check(conn, xcb_change_window_attributes_checked(conn, window, XCB_CW_EVENT_MASK, &mask));
            if (error) {
                logXError("ChangeWindowAttributes(client)", error);
                continue;  // gone already
            }
            clientFrames[window] = frameOf(window);
            if (enabled) grabKeys(window);
        }
        publishTappedWindows();
    }

    void forgetClient(xcb_window_t window) {
        ungrabKeys(window);
        const std::uint32_t none = 0;
        xcb_change_window_attributes(conn, window, XCB_CW_EVENT_MASK, &none);
    }

    void dropClients() {
        for (const auto& [client, frame] : clientFrames) forgetClient(client);
        clientFrames.clear();
        publishTappedWindows();
    }

    void publishTappedWindows() {
        std::vector<std::uint32_t> windows;
        for (const auto& [client, frame] : clientFrames) windows.push_back(client);
        std::lock_guard lock(stateMutex);
        tappedWindowsCopy = std::move(windows);
    }

    // ---- Grabs.

    void regrabAll() {
        grabsDirty = false;
        for (const auto& [client, frame] : clientFrames) {
            ungrabKeys(client);
            if (enabled && pid != 0) grabKeys(client);
        }
    }

    void grabKeys(xcb_window_t window) {
        if (!keys) return;
        const std::vector<std::uint16_t> variants = keys->lockVariants();
        for (const KeyCombo& combo : swallowKeys) {
            const std::optional<std::uint16_t> modifiers = keys->stateForFlags(combo.flags);
            const std::vector<xkb_keycode_t>& keycodes = keys->keycodes(combo.keyCode, group);
            if (!modifiers || keycodes.empty()) {
                KMLogInDomain(KMLogLevelWarn, kLog, "key %u with flags 0x%llx has no key on this keyboard; not tapped",
                              combo.keyCode, static_cast<unsigned long long>(combo.flags));
                continue;
            }
            std::vector<xcb_void_cookie_t> cookies;
            for (xkb_keycode_t keycode : keycodes) {
                for (std::uint16_t variant : variants) {
                    cookies.push_back(xcb_grab_key_checked(conn, 1, window, static_cast<std::uint16_t>(*modifiers | variant),
                                                           static_cast<xcb_keycode_t>(keycode), XCB_GRAB_MODE_ASYNC,
                                                           XCB_GRAB_MODE_SYNC));
                }
            }
            for (xcb_void_cookie_t cookie : cookies) {
                if (xcb_generic_error_t* error = xcb_request_check(conn, cookie)) {
                    KMLogInDomain(error->error_code == kBadWindow ? KMLogLevelDebug : KMLogLevelWarn, kLog,
                                  "grab of key %u with flags 0x%llx on window 0x%x failed: X error %u%s", combo.keyCode,
                                  static_cast<unsigned long long>(combo.flags), window, error->error_code,
                                  error->error_code == XCB_ACCESS ? " (another program holds it; tried again later)"
                                                                  : "");
                    if (error->error_code == XCB_ACCESS) {
                        refusedGrabs.insert(window);
                        if (!grabRetryAt) grabRetryAt = std::chrono::steady_clock::now() + grabRetryDelay;
                    }
                    std::free(error);
                }
            }
        }
    }

    void ungrabKeys(xcb_window_t window) {
        logXError("UngrabKey", xcb_request_check(conn, xcb_ungrab_key_checked(conn, XCB_GRAB_ANY, window,
                                                                              XCB_MOD_MASK_ANY)));
    }

    // ---- Keyboard and pointer mappings.

    void rebuildKeymap() {
        keymapDirty = false;
        keyboardId = xkb_x11_get_core_keyboard_device_id(conn);
        xkb_keymap* keymap = keyboardId >= 0
                                 ? xkb_x11_keymap_new_from_device(xkbContext, conn, keyboardId, XKB_KEYMAP_COMPILE_NO_FLAGS)
                                 : nullptr;
        if (!keymap) {
            KMLogInDomain(KMLogLevelError, kLog, "cannot read the keyboard mapping");
            return;
        }
        ModifierMap modifierMap;
        if (auto mapping = own(xcb_get_modifier_mapping_reply(conn, xcb_get_modifier_mapping(conn), nullptr))) {
            const xcb_keycode_t* codes = xcb_get_modifier_mapping_keycodes(mapping.get());
            const int perModifier = mapping->keycodes_per_modifier;
            for (int index = 0; index < 8; ++index) {
                for (int i = 0; i < perModifier; ++i) {
                    if (xcb_keycode_t code = codes[index * perModifier + i]) modifierMap[index].push_back(code);
                }
            }
        }
        if (auto state = own(xcb_xkb_get_state_reply(conn, xcb_xkb_get_state(conn, XCB_XKB_ID_USE_CORE_KBD), nullptr))) {
            group = state->group;
            sharedGroup = group;
            modifiers = state->mods;
        }
        keys = std::make_shared<const X11Keys>(keymap, modifierMap);
        xkb_keymap_unref(keymap);
        {
            std::lock_guard lock(keysMutex);
            sharedKeys = keys;
        }
        grabsDirty = true;
    }

    void rebuildPointerMap() {
        pointerMapDirty = false;
        auto mapping = own(xcb_get_pointer_mapping_reply(conn, xcb_get_pointer_mapping(conn), nullptr));
        pointerMap.clear();
        if (!mapping) return;
        const std::uint8_t* map = xcb_get_pointer_mapping_map(mapping.get());
        pointerMap.assign(map, map + xcb_get_pointer_mapping_map_length(mapping.get()));
    }

    // ------------------------------------------------------------------
    // Synthetic events (any thread, under postMutex).

    std::shared_ptr<const X11Keys> currentKeys() const {
        std::lock_guard lock(keysMutex);
        return sharedKeys;
    }

    void fake(std::uint8_t type, std::uint8_t detail, std::int16_t x = 0, std::int16_t y = 0) {
        xcb_test_fake_input(postConn, type, detail, XCB_CURRENT_TIME, type == XCB_MOTION_NOTIFY ? postRoot : XCB_NONE,
                            x, y, XCB_NONE);
    }

    // Waits until the user holds none of Shift, Ctrl, Alt and Super (keys we
    // hold ourselves do not count); false when the time-out passes first.
    bool waitForModifierRelease(const X11Keys& k) {
        const std::uint16_t interesting =
            kXShiftMask | kXControlMask | k.modifierBits().alt | k.modifierBits().super;
        const auto deadline = std::chrono::steady_clock::now() + options.modifierReleaseTimeout;
        for (;;) {
            auto keymap = own(xcb_query_keymap_reply(postConn, xcb_query_keymap(postConn), nullptr));
            if (!keymap) return false;
            bool held = false;
            for (std::size_t index = 0; index < 8 && !held; ++index) {
                if (!(interesting & (1u << index))) continue;
                for (xcb_keycode_t key : k.modifierMap()[index]) {
                    const bool down = keymap->keys[key / 8] & (1u << (key % 8));
                    const bool ours = std::any_of(injected.begin(), injected.end(),
                                                  [&](const auto& entry) { return entry.second == key; });
                    if (down && !ours) {
                        held = true;
                        break;
                    }
                }
            }
            if (!held) return true;
            if (std::chrono::steady_clock::now() >= deadline) return false;
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
    }

    // Presses and releases our own modifier keys so that exactly `state`'s
    // modifiers are held by us.
    bool holdModifiers(const X11Keys& k, std::uint16_t state) {
        for (std::uint16_t bit = 1; bit < 0x100; bit = static_cast<std::uint16_t>(bit << 1)) {
            if (bit == kXLockMask || bit == k.modifierBits().numLock) continue;
            const bool want = state & bit;
            auto held = injected.find(bit);
            if (want && held == injected.end()) {
                const std::optional<xkb_keycode_t> key = k.keyForModifier(bit);
                if (!key) return false;
                fake(XCB_KEY_PRESS, static_cast<std::uint8_t>(*key));
                injected[bit] = static_cast<xcb_keycode_t>(*key);
            } else if (!want && held != injected.end()) {
                fake(XCB_KEY_RELEASE, held->second);
                injected.erase(held);
            }
        }
        return true;
    }

    void releaseInjected() {
        if (!postConn) return;
        for (const auto& [bit, key] : injected) fake(XCB_KEY_RELEASE, key);
        injected.clear();
        xcb_flush(postConn);
    }

    // A window manager that grabs clicks synchronously (openbox on clicks into
    // clients) freezes the pointer until it has looked at the press, while
    // keys go on: a modifier posted next would overtake the click. So wait,
    // bounded, until the server has acted on a posted button.
    void waitForButtonState(std::uint8_t button, bool down) {
        if (button < 1 || button > 5) return;  // no state bit to watch
        const std::uint16_t bit = static_cast<std::uint16_t>(XCB_BUTTON_MASK_1 << (button - 1));
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(250);
        for (;;) {
            const std::optional<PointerState> pointer = queryPointer(postConn, postRoot);
            if (!pointer || bool(pointer->mask & bit) == down) return;
            if (std::chrono::steady_clock::now() >= deadline) {
                KMLogInDomain(KMLogLevelWarn, kLog, "button %u still %s after 250 ms", button, down ? "up" : "down");
                return;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }

    bool post(const TapEvent& event) {
        std::lock_guard lock(postMutex);
        if (!postConn || xcb_connection_has_error(postConn)) return false;
        const std::shared_ptr<const X11Keys> k = currentKeys();
        if (!k) return false;

        enum class Kind { Motion, Button, Key } kind = Kind::Motion;
        bool press = false;
        std::uint8_t detail = 0;
        switch (event.type) {
            case kCGEventLeftMouseDown:
            case kCGEventLeftMouseUp:
                kind = Kind::Button;
                press = event.type == kCGEventLeftMouseDown;
                detail = 1;
                break;
            case kCGEventRightMouseDown:
            case kCGEventRightMouseUp:
                kind = Kind::Button;
                press = event.type == kCGEventRightMouseDown;
                detail = 3;
                break;
            case kCGEventOtherMouseDown:
            case kCGEventOtherMouseUp: {
                const std::optional<std::uint8_t> button = xButtonOf(event.buttonNumber);
                if (!button) {
                    KMLogInDomain(KMLogLevelWarn, kLog, "cannot post a click of button %lld",
                                  static_cast<long long>(event.buttonNumber));
                    return false;
                }
                kind = Kind::Button;
                press = event.type == kCGEventOtherMouseDown;
                detail = *button;
                break;
            }
            case kCGEventMouseMoved:
            case kCGEventLeftMouseDragged:
            case kCGEventRightMouseDragged:
            case kCGEventOtherMouseDragged: kind = Kind::Motion; break;
            case kCGEventKeyDown:
            case kCGEventKeyUp: {
                const std::vector<xkb_keycode_t>& keycodes = k->keycodes(event.keyCode, sharedGroup.load());
                if (keycodes.empty()) {
                    KMLogInDomain(KMLogLevelWarn, kLog, "cannot post key %u: no key on this keyboard types it",
                                  event.keyCode);
                    return false;
                }
                kind = Kind::Key;
                press = event.type == kCGEventKeyDown;
                detail = static_cast<std::uint8_t>(keycodes.front());
                break;
            }
            default:
                KMLogInDomain(KMLogLevelWarn, kLog, "cannot post events of type %u", event.type);
                return false;
        }
        const std::optional<std::uint16_t> state = k->stateForFlags(event.flags);
        if (!state) {
            KMLogInDomain(KMLogLevelWarn, kLog, "cannot post flags 0x%llx: a modifier has no key on this keyboard",
                          static_cast<unsigned long long>(event.flags));
            return false;
        }
        if (!waitForModifierRelease(*k)) {
            KMLogInDomain(KMLogLevelWarn, kLog, "the user kept holding modifiers for %lld ms; event of type %u (key %u) not posted",
                          static_cast<long long>(options.modifierReleaseTimeout.count()), event.type, event.keyCode);
            return false;
        }
        if (!holdModifiers(*k, *state)) return false;
        if (kind != Kind::Key) {
            const auto clamp = [](double v) {
                return static_cast<std::int16_t>(std::clamp(std::lround(v), -32768L, 32767L));
            };
            fake(XCB_MOTION_NOTIFY, 0, clamp(event.location.x), clamp(event.location.y));
        }
        if (kind == Kind::Button) {
            fake(press ? XCB_BUTTON_PRESS : XCB_BUTTON_RELEASE, detail);
            waitForButtonState(detail, press);
        }
        if (kind == Kind::Key) fake(press ? XCB_KEY_PRESS : XCB_KEY_RELEASE, detail);
        if (kind != Kind::Motion && !press) holdModifiers(*k, 0);
        // A round trip: the server has acted on the events when post() returns.
        free(xcb_get_input_focus_reply(postConn, xcb_get_input_focus(postConn), nullptr));
        return !xcb_connection_has_error(postConn);
    }

    Point mouseLocation() {
        std::lock_guard lock(postMutex);
        if (!postConn) return {};
        const std::optional<PointerState> pointer = queryPointer(postConn, postRoot);
        return pointer ? Point{double(pointer->x), double(pointer->y)} : Point{};
    }
};

X11EventTap::X11EventTap(X11EventTapOptions options) : impl_(std::make_unique<Impl>(std::move(options))) {
    impl_->connected = impl_->open();
    if (!impl_->connected) {
        impl_->close();
        return;
    }
    impl_->watchdog = std::thread([impl = impl_.get()] { impl->watch(); });
    impl_->thread = std::thread([impl = impl_.get()] { impl->run(); });
}

X11EventTap::~X11EventTap() {
    if (impl_->connected) {
        {
            std::lock_guard lock(impl_->stateMutex);
            impl_->stopping = true;
        }
        impl_->appliedChanged.notify_all();
        impl_->wake();
        if (impl_->thread.joinable()) impl_->thread.join();
        {
            std::lock_guard lock(impl_->watchMutex);
            impl_->watchStopping = true;
        }
        impl_->watchChanged.notify_all();
        if (impl_->watchdog.joinable()) impl_->watchdog.join();
    }
    impl_->close();
}

bool X11EventTap::isConnected() const { return impl_->connected; }

bool X11EventTap::install(std::int32_t pid, Callback callback) {
    if (!impl_->connected || pid <= 0 || !callback) return false;
    impl_->request([&](Impl::Desired& desired) {
        desired.pid = pid;
        desired.callback = std::move(callback);
        desired.enabled = true;
    });
    return true;
}

void X11EventTap::uninstall() {
    impl_->request([](Impl::Desired& desired) {
        desired.pid = 0;
        desired.callback = nullptr;
    });
}

bool X11EventTap::isInstalled() const {
    std::lock_guard lock(impl_->stateMutex);
    return impl_->desired.pid != 0 && impl_->desired.callback;
}

void X11EventTap::setEnabled(bool enabled) {
    impl_->request([enabled](Impl::Desired& desired) { desired.enabled = enabled; });
}

bool X11EventTap::isEnabled() const {
    std::lock_guard lock(impl_->stateMutex);
    return impl_->desired.enabled;
}

void X11EventTap::setSwallowableKeys(std::vector<KeyCombo> keys) {
    for (KeyCombo& combo : keys) combo.flags &= kShortcutModifierMask;
    std::sort(keys.begin(), keys.end(), [](const KeyCombo& a, const KeyCombo& b) {
        return a.keyCode != b.keyCode ? a.keyCode < b.keyCode : a.flags < b.flags;
    });
    keys.erase(std::unique(keys.begin(), keys.end()), keys.end());
    impl_->request([&](Impl::Desired& desired) { desired.keys = std::move(keys); });
}

bool X11EventTap::post(const TapEvent& event) { return impl_->connected && impl_->post(event); }

Point X11EventTap::mouseLocation() { return impl_->connected ? impl_->mouseLocation() : Point{}; }

void X11EventTap::sync() {
    impl_->request([](Impl::Desired& desired) { ++desired.syncs; });
}

std::vector<std::uint32_t> X11EventTap::tappedWindows() const {
    std::lock_guard lock(impl_->stateMutex);
    return impl_->tappedWindowsCopy;
}

}  // namespace jorvane::x11
