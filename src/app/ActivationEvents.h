#pragma once

// The decisions of the event tap that depend only on the event and the
// settings: which key events are swallowed and what they start, which keys
// the tap must be able to swallow, where a title-bar click counts, and the
// clicks a middle click turns into. The application delegate wires them to
// the registry of bars and to the queues.
//
// Key events are decided on the tap's own thread while the keyboard waits,
// so decideKeyEvent allocates nothing and only reads the settings (which are
// thread-safe), anew at every event: a change in the preferences counts from
// the next key on.

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "app/EventTap.h"
#include "util/Geometry.h"

namespace jorvane {
namespace settings {
class UserDefaults;
}

namespace activation {

// What a key event starts besides being passed or swallowed.
enum class KeyAction : std::uint8_t {
    none,
    reloadScript,             // "reload" on a background queue
    showBarForFocusedWindow,  // an empty bar over the focused window, on the main queue
    openTerminal,             // a terminal at the window's folder, on a background queue
    toggleHiddenFiles,        // on a background queue
    hotKey,                   // the bar of the focused window, on the main queue
};

struct KeyDecision {
    EventTap::Decision decision = EventTap::Decision::Pass;
    KeyAction action = KeyAction::none;
    friend bool operator==(const KeyDecision&, const KeyDecision&) = default;
};

// The extra file-manager shortcuts, handled only with "inactive_shortcuts".
struct FixedShortcut {
    CGKeyCode keyCode;
    CGEventFlags flags;  // exact, after masking with kShortcutModifierMask
    KeyAction action;
};
inline constexpr std::array<FixedShortcut, 4> kFixedShortcuts{{
    {kVK_ANSI_R, kCGEventFlagMaskCommand, KeyAction::reloadScript},
    {kVK_ANSI_F, kCGEventFlagMaskCommand | kCGEventFlagMaskShift, KeyAction::showBarForFocusedWindow},
    {kVK_ANSI_T, kCGEventFlagMaskCommand, KeyAction::openTerminal},
    {kVK_ANSI_Period, kCGEventFlagMaskCommand | kCGEventFlagMaskShift, KeyAction::toggleHiddenFiles},
}};

// A key down or up, in this order:
//  1. a fixed shortcut (key down, not a repetition, "inactive_shortcuts" on)
//     is swallowed and starts its action (its key up is not swallowed here);
//  2. with "activate_by_hotkey" on, a key down or up that is not a
//     repetition and whose masked flags equal "hotkey_flags" and key code
//     "hotkey_keycode" exactly is swallowed; its key up starts the hot key.
//     The press does nothing, so the bar opens on the release and the file
//     manager sees neither.
// Everything else passes. Other event types pass without a look.
KeyDecision decideKeyEvent(const TapEvent& event, const settings::UserDefaults& defaults);

// The key combinations decideKeyEvent may swallow under the current
// settings: the hot key (when on and storable as a combination) and, with
// "inactive_shortcuts", the four fixed shortcuts. Computed without
// allocating, so that it can be re-read whenever a bar opens.
struct SwallowableKeys {
    std::array<EventTap::KeyCombo, 1 + kFixedShortcuts.size()> combos{};
    std::size_t count = 0;
    std::vector<EventTap::KeyCombo> toVector() const;
    friend bool operator==(const SwallowableKeys& a, const SwallowableKeys& b);
};
SwallowableKeys swallowableKeys(const settings::UserDefaults& defaults);

// A left click counts as a click on the title when it lies in the title
// text's frame widened by this much to the left (where the folder icon
// stands) and by the rest of this to the right.
inline constexpr double kTitleLeftMargin = 20;
inline constexpr double kTitleExtraWidth = 30;
Rect widenedTitleFrame(const Rect& titleFrame);

// A middle click becomes a plain click and then a Command double click at
// the same place (which opens the folder under the mouse in a new window):
// left down, left up, left down and up with click state 2 and Command.
std::array<TapEvent, 4> middleClickEvents(Point location);

}  // namespace activation
}  // namespace jorvane
