#pragma once

// The event tap on the file manager's process, as the core sees it: every
// mouse and key event that the file manager's windows are about to receive
// comes up as a TapEvent in the program's key and button vocabulary, and a callback decides
// whether the file manager still gets it. The same port posts synthetic
// events and reads the mouse location. The X11 adapter implements it with
// XInput2, passive key grabs and XTEST; tests use a fake.

#include <cstdint>
#include <functional>
#include <vector>

#include "keys/VirtualKeyCodes.h"
#include "util/Geometry.h"

namespace jorvane {

using EventType = std::uint32_t;

inline constexpr EventType kEventNull = 0;
inline constexpr EventType kEventLeftMouseDown = 1;
inline constexpr EventType kEventLeftMouseUp = 2;
inline constexpr EventType kEventRightMouseDown = 3;
inline constexpr EventType kEventRightMouseUp = 4;
inline constexpr EventType kEventMouseMoved = 5;
inline constexpr EventType kEventLeftMouseDragged = 6;
inline constexpr EventType kEventRightMouseDragged = 7;
inline constexpr EventType kEventKeyDown = 10;
inline constexpr EventType kEventKeyUp = 11;
inline constexpr EventType kEventFlagsChanged = 12;
inline constexpr EventType kEventScrollWheel = 22;
inline constexpr EventType kEventOtherMouseDown = 25;
inline constexpr EventType kEventOtherMouseUp = 26;
inline constexpr EventType kEventOtherMouseDragged = 27;
// Notices, not input: the tap was switched off because the callback took too
// long (it stays off until setEnabled(true)), or by the user.
inline constexpr EventType kEventTapDisabledByTimeout = 0xFFFFFFFE;
inline constexpr EventType kEventTapDisabledByUserInput = 0xFFFFFFFF;

// Button numbers: 0 left, 1 right, 2 middle, 3 and up the extra buttons.
inline constexpr std::int64_t kMouseButtonLeft = 0;
inline constexpr std::int64_t kMouseButtonRight = 1;
inline constexpr std::int64_t kMouseButtonCenter = 2;

struct TapEvent {
    EventType type = kEventNull;
    // Key events: the virtual key code of the key (US positions).
    KeyCode keyCode = 0;
    // Device-independent flags (VirtualKeyCodes.h). For mouse events the
    // modifiers held; for key events also the implied keypad and function
    // bits; for kEventFlagsChanged the modifiers after the change.
    Modifiers flags = 0;
    // Key downs: the key is held and this press is the system's repetition.
    bool autorepeat = false;
    // Global position, origin at the top left of the first screen.
    Point location;
    // Mouse events: the button (0 left, 1 right, 2 middle).
    std::int64_t buttonNumber = 0;
    // Mouse events: 1 for a single click, 2 for the second of a double click …
    std::int64_t clickState = 0;

    // A mouse event of `type` at `location`.
    static TapEvent mouseEvent(EventType type, Point location, std::int64_t button = kMouseButtonLeft,
                               std::int64_t clickState = 1, Modifiers flags = 0) {
        TapEvent event;
        event.type = type;
        event.location = location;
        event.buttonNumber = button;
        event.clickState = clickState;
        event.flags = flags;
        return event;
    }
    // A key down or up of `keyCode` with `flags`.
    static TapEvent keyboardEvent(KeyCode keyCode, bool keyDown, Modifiers flags = 0) {
        TapEvent event;
        event.type = keyDown ? kEventKeyDown : kEventKeyUp;
        event.keyCode = keyCode;
        event.flags = flags;
        return event;
    }

    friend bool operator==(const TapEvent&, const TapEvent&) = default;
};

class EventTap {
public:
    enum class Decision { Pass, Swallow };
    // Runs on the tap's own thread for every event; it must decide quickly
    // (hand slow work to a queue). While it runs the keyboard may be frozen:
    // a callback that takes too long gets its key passed on and the tap
    // switched off, announced by a kEventTapDisabledByTimeout event.
    using Callback = std::function<Decision(const TapEvent&)>;

    // A key with exactly these modifiers (the kShortcutModifierMask bits;
    // Caps Lock and the keypad and function bits are ignored).
    struct KeyCombo {
        KeyCode keyCode = 0;
        Modifiers flags = 0;
        friend bool operator==(const KeyCombo&, const KeyCombo&) = default;
    };

    virtual ~EventTap() = default;

    // Taps the events that go to the windows of process `pid`, replacing any
    // earlier tap; the tap starts enabled. False when no tap can be made
    // (the callback is then never called).
    virtual bool install(std::int32_t pid, Callback callback) = 0;
    // Removes the tap. When called from another thread than the tap's, the
    // callback is not running and will not run again once this returns.
    virtual void uninstall() = 0;
    virtual bool isInstalled() const = 0;

    // A disabled tap sees nothing and passes everything.
    virtual void setEnabled(bool enabled) = 0;
    virtual bool isEnabled() const = 0;

    // The key combinations the callback may want to swallow. Some platforms
    // (X11) only show the tap keys they were told about beforehand: every
    // other key goes to the file manager without a callback. Mouse events
    // always reach the callback.
    virtual void setSwallowableKeys(std::vector<KeyCombo> keys) = 0;

    // Posts to the session: mouse downs, ups, moves and drags at the
    // event's location with its button and flags; key downs and ups with
    // their flags. False when the event could not be posted (unknown key,
    // no connection, the user kept holding modifiers).
    virtual bool post(const TapEvent& event) = 0;

    // The mouse's global position (origin at the top left).
    virtual Point mouseLocation() = 0;
};

}  // namespace jorvane
