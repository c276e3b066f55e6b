#pragma once

// The event tap on X11.
//
// One thread owns the tap's X connection; it sleeps in poll() on that
// connection and an eventfd for commands, and never wakes while nothing
// happens.
//
// Mouse: XInput2 raw button events on the root, for all master devices, are
// seen whatever grabs are active (also during the window manager's move).
// They carry no position, so each is followed by a QueryPointer; when a
// window manager froze the pointer with a synchronous grab (openbox does on
// clicks into clients), the release is handled late and its position is
// where the pointer is by then. The modifiers come from XKB state
// notifications, which arrive in order with the raw events. A press belongs to the tapped process when the
// top-level window under the pointer is the frame of one of its client
// windows (or one of its own override-redirect windows, such as its menus);
// the release and the drags that follow belong wherever the press did, as
// with the server's implicit grab. Raw motion is selected only while a left
// press on the process's windows is held, and becomes kEventLeftMouseDragged
// (one QueryPointer per batch of motion). Scroll-wheel buttons are not
// reported. Mouse events cannot be swallowed: the decision is ignored.
//
// Keys: only the combinations given to setSwallowableKeys() reach the tap,
// through passive key grabs (owner events, keyboard frozen) on each client
// window of the process, for every Caps Lock / Num Lock variant. A grab fires
// only while the focus is in that window. The callback's decision thaws the
// keyboard: AsyncKeyboard swallows the key, ReplayKeyboard hands it on to
// the file manager as if nothing had grabbed it. The grabs follow the client
// list (_NET_CLIENT_LIST), keyboard mapping changes and the active group.
// Detectable auto-repeat is on for the tap's connection, and releases are
// watched through raw key events while a tapped key is down, so a held key
// gives repeated downs flagged autorepeat.
//
// After a swallowed press the grab stays active until that key is released,
// and the server sends every key to the tap until then: the key's repeats
// and release (needed for a hot key that acts on release), modifier changes
// (reported as kEventFlagsChanged) and any other key. Such keys cannot be
// handed on: the file manager does not see them whatever the callback says.
//
// Time-out: while the callback decides, the keyboard is frozen. If it takes
// longer than the decision time-out, a watchdog replays the key to the file
// manager, the tap turns itself off and the callback next receives a
// kEventTapDisabledByTimeout event (setEnabled(true) turns it back on).
//
// Synthetic events go through XTEST on a second connection, so that a caller
// blocked in post() never holds up the tap. Before injecting, post() waits
// (bounded) until the user has let go of Shift, Ctrl, Alt and Super, then
// presses the modifiers the event's flags ask for and lets them go after the
// next up event. X has no click state: a toolkit counts a click as the second
// of a double click when it follows the previous one closely, which posted
// events in a row do; clickState is ignored.
//
// X errors are logged with the request that caused them and never end the
// program.

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "app/EventTap.h"

namespace jorvane::x11 {

// What the display offers the tap; the program cannot work without all three.
struct X11InputSupport {
    bool displayReachable = false;
    bool xinput22 = false;  // XInput 2.2 or later
    bool xtest = false;
    bool complete() const { return displayReachable && xinput22 && xtest; }
    // What is missing, for the user ("XInput 2.2, XTEST"); empty when complete.
    std::string missing() const;
};

// Connects to the display (empty name: $DISPLAY) and asks for the extensions.
X11InputSupport checkX11InputSupport(const std::string& displayName = {});

struct X11EventTapOptions {
    std::string displayName;  // empty: $DISPLAY
    // How long the callback may keep the keyboard frozen.
    std::chrono::milliseconds decisionTimeout{1000};
    // How long post() waits for the user to release the modifiers.
    std::chrono::milliseconds modifierReleaseTimeout{1000};
    // Presses of one button closer than this in time and space count as a
    // multiple click (the desktop toolkits' defaults).
    std::chrono::milliseconds doubleClickTime{400};
    int doubleClickDistance = 5;
};

class X11EventTap final : public EventTap {
public:
    explicit X11EventTap(X11EventTapOptions options = {});
    ~X11EventTap() override;
    X11EventTap(const X11EventTap&) = delete;
    X11EventTap& operator=(const X11EventTap&) = delete;

    // Both connections are up and the display has XInput 2.2, XTEST and XKB.
    bool isConnected() const;

    bool install(std::int32_t pid, Callback callback) override;
    void uninstall() override;
    bool isInstalled() const override;
    void setEnabled(bool enabled) override;
    bool isEnabled() const override;
    void setSwallowableKeys(std::vector<KeyCombo> keys) override;
    bool post(const TapEvent& event) override;
    Point mouseLocation() override;

    // The client windows of the tapped process that carry the key grabs now
    // (diagnostics and tests).
    std::vector<std::uint32_t> tappedWindows() const;
    // Returns once every input event the server had sent the tap before the
    // call has been through the callback (tests: the pointer must not move
    // before the tap has read the position of a click). Not from the callback.
    void sync();

    struct Impl;

private:
    std::unique_ptr<Impl> impl_;
};

}  // namespace jorvane::x11
