#include "app/ActivationEvents.h"

#include <algorithm>

#include "settings/UserDefaults.h"

namespace jorvane::activation {

namespace {

bool isKeyEvent(EventType type) { return type == kEventKeyDown || type == kEventKeyUp; }

}  // namespace

KeyDecision decideKeyEvent(const TapEvent& event, const settings::UserDefaults& defaults, HotKeyChord& chord) {
    using Phase = HotKeyChord::Phase;
    if (!isKeyEvent(event.type) || event.autorepeat) return {};

    if (event.type == kEventKeyUp) {
        if (chord.phase == Phase::idle || event.keyCode != chord.key) return {};
        const bool acts = chord.phase == Phase::armed;
        chord = {};
        return {EventTap::Decision::Swallow, acts ? KeyAction::hotKey : KeyAction::none};
    }

    const Modifiers flags = event.flags & kShortcutModifierMask;
    // Another key pressed while the hot key is held: the chord is no longer
    // the hot key, but its release still belongs to it.
    if (chord.phase == Phase::armed && event.keyCode != chord.key) chord.phase = Phase::cancelled;

    // The table first, the setting only on a match: most keys never cost a
    // settings read here.
    KeyDecision decision;
    for (const FixedShortcut& shortcut : kFixedShortcuts) {
        if (shortcut.keyCode == event.keyCode && shortcut.flags == flags) {
            if (defaults.boolForKey(settings::keys::inactiveShortcuts))
                decision = {EventTap::Decision::Swallow, shortcut.action};
            break;
        }
    }

    if (!defaults.boolForKey(settings::keys::activateByHotkey)) return decision;
    // Whole values: a stored mask with bits outside the four modifiers, or a
    // key code outside 16 bits, matches no event.
    if (static_cast<std::int64_t>(flags) != defaults.integerForKey(settings::keys::hotkeyFlags) ||
        static_cast<std::int64_t>(event.keyCode) != defaults.integerForKey(settings::keys::hotkeyKeycode))
        return decision;
    chord = {Phase::armed, event.keyCode};
    decision.decision = EventTap::Decision::Swallow;
    return decision;
}

std::vector<EventTap::KeyCombo> SwallowableKeys::toVector() const {
    return {combos.begin(), combos.begin() + static_cast<std::ptrdiff_t>(count)};
}

bool operator==(const SwallowableKeys& a, const SwallowableKeys& b) {
    return a.count == b.count &&
           std::equal(a.combos.begin(), a.combos.begin() + static_cast<std::ptrdiff_t>(a.count), b.combos.begin());
}

SwallowableKeys swallowableKeys(const settings::UserDefaults& defaults) {
    SwallowableKeys keys;
    if (defaults.boolForKey(settings::keys::activateByHotkey)) {
        const std::int64_t flags = defaults.integerForKey(settings::keys::hotkeyFlags);
        const std::int64_t keyCode = defaults.integerForKey(settings::keys::hotkeyKeycode);
        // A hot key that no event can match needs no grab.
        if ((flags & ~static_cast<std::int64_t>(kShortcutModifierMask)) == 0 && keyCode >= 0 && keyCode <= 0xFFFF)
            keys.combos[keys.count++] = {static_cast<KeyCode>(keyCode), static_cast<Modifiers>(flags)};
    }
    if (defaults.boolForKey(settings::keys::inactiveShortcuts))
        for (const FixedShortcut& shortcut : kFixedShortcuts)
            keys.combos[keys.count++] = {shortcut.keyCode, shortcut.flags};
    return keys;
}

Rect widenedTitleFrame(const Rect& titleFrame) {
    Rect frame = titleFrame;
    frame.origin.x -= kTitleLeftMargin;
    frame.size.width += kTitleExtraWidth;
    return frame;
}

std::array<TapEvent, 4> middleClickEvents(Point location) {
    // The button is the left one: the event types say so, and an adapter
    // that honoured another button number would click the wrong button.
    return {
        TapEvent::mouseEvent(kEventLeftMouseDown, location, kMouseButtonLeft, 1, 0),
        TapEvent::mouseEvent(kEventLeftMouseUp, location, kMouseButtonLeft, 1, 0),
        TapEvent::mouseEvent(kEventLeftMouseDown, location, kMouseButtonLeft, 2, kModifierCommand),
        TapEvent::mouseEvent(kEventLeftMouseUp, location, kMouseButtonLeft, 2, kModifierCommand),
    };
}

}  // namespace jorvane::activation
