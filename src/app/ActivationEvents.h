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
    KeyCode keyCode;
    Modifiers flags;  // exact, after masking with kShortcutModifierMask
    KeyAction action;
};
inline constexpr std::array<FixedShortcut, 4> kFixedShortcuts{{
    {kKeyR, kModifierCommand, KeyAction::reloadScript},
    {kKeyF, kModifierCommand | kModifierShift, KeyAction::showBarForFocusedWindow},
    {kKeyT, kModifierCommand, KeyAction::openTerminal},
    {kKeyPeriod, kModifierCommand | kModifierShift, KeyAction::toggleHiddenFiles},
}};

// The hot key from its press to the release of the same key. Hands roll a
// chord in either order (Ctrl up before G up is common, and key remappers send
// it that way), so the press decides and the release only has to be the same
// key: whatever modifiers are still held then, it acts.
//
//   idle      --hot key press-------------------> armed
//   armed     --release of the armed key--------> idle       (swallowed, opens the bar)
//   armed     --press of another key------------> cancelled  (that press is treated as usual)
//   cancelled --release of the armed key--------> idle       (swallowed, does nothing)
//
// Repetitions of the held key change nothing. A cancelled chord still
// swallows its release because the file manager never saw the press: it
// must never see half of the chord.
struct HotKeyChord {
    enum class Phase : std::uint8_t { idle, armed, cancelled };
    Phase phase = Phase::idle;
    KeyCode key = 0;
};

// A key down or up, in this order:
//  1. a repetition passes, and leaves the chord as it is;
//  2. a key up of the chord's key is swallowed and ends the chord; it starts
//     the hot key when the chord is armed; any other key up passes;
//  3. a key down that matches a fixed shortcut ("inactive_shortcuts" on) is
//     swallowed and starts its action (its key up is not swallowed);
//  4. with "activate_by_hotkey" on, a key down whose masked flags equal
//     "hotkey_flags" and key code "hotkey_keycode" exactly is swallowed and
//     arms the chord; any other key down cancels an armed chord.
// Everything else passes. Other event types pass without a look. `chord`
// belongs to the thread that decides key events.
KeyDecision decideKeyEvent(const TapEvent& event, const settings::UserDefaults& defaults, HotKeyChord& chord);

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
