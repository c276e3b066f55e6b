#pragma once

// Translation between the X server's keys and modifier states and the core's
// key vocabulary (virtual key codes of the US layout, device-independent
// flags), built once per keyboard mapping from an xkbcommon keymap and the
// server's core modifier map. No X connection is needed, so it can be built
// from a keymap compiled from names.
//
// Key codes: a key's code comes from the keysym of its first shift level in
// the active group, so Shift+1 is still "1" and a layout that moves letters
// (AZERTY, QWERTZ) keeps their names; a key whose keysym has no US
// counterpart (Cyrillic, umlauts) falls back to its position (the XKB key
// name, e.g. <AC05> is G).
//
// Modifiers: Shift is Shift, Control is Command, the modifier holding Alt or
// Meta (Mod1) is Option, the one holding Super (Mod4) is Control, Lock is Caps
// Lock; Num Lock and the level-three shift (AltGr) add nothing.

#include <xkbcommon/xkbcommon.h>

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

#include "app/EventTap.h"

namespace jorvane::x11 {

// The server's core modifier map: for each of the eight modifiers (Shift,
// Lock, Control, Mod1 … Mod5) the key codes that set it.
using ModifierMap = std::array<std::vector<xkb_keycode_t>, 8>;

// X modifier bits (the low byte of an event's state).
inline constexpr std::uint16_t kXShiftMask = 0x01;
inline constexpr std::uint16_t kXLockMask = 0x02;
inline constexpr std::uint16_t kXControlMask = 0x04;

// Which bits of an X state mean what on this keyboard.
struct ModifierBits {
    std::uint16_t alt = 0;      // usually Mod1 (0x08)
    std::uint16_t super = 0;    // usually Mod4 (0x40)
    std::uint16_t numLock = 0;  // usually Mod2 (0x10)
};

// The group (layout) an X event's state carries in bits 13 and 14.
inline std::uint32_t groupOfState(std::uint16_t state) { return (state >> 13) & 0x3; }

class X11Keys {
public:
    // Takes a reference on the keymap.
    X11Keys(xkb_keymap* keymap, const ModifierMap& modifierMap);
    ~X11Keys();
    X11Keys(const X11Keys&) = delete;
    X11Keys& operator=(const X11Keys&) = delete;

    const ModifierBits& modifierBits() const { return bits_; }
    xkb_keymap* keymap() const { return keymap_; }

    // The virtual key code of an X key in a group, or nothing for keys with
    // no counterpart (multimedia keys, AltGr).
    std::optional<KeyCode> virtualKeyCode(xkb_keycode_t key, std::uint32_t group) const;
    // Every X key that gives this virtual key code in the group (keys found
    // by their keysym first; only when there is none, keys found by position).
    const std::vector<xkb_keycode_t>& keycodes(KeyCode code, std::uint32_t group) const;

    // The shortcut modifiers and Caps Lock of an X state.
    Modifiers flagsForState(std::uint16_t state) const;
    // The X modifiers for the shortcut bits of `flags` (Caps Lock and the
    // other bits are ignored), or nothing when this keyboard has no key for
    // one of them.
    std::optional<std::uint16_t> stateForFlags(Modifiers flags) const;
    // The lock states a grab must also cover to fire whatever Caps Lock and
    // Num Lock are: 0, Lock, NumLock, Lock|NumLock (without NumLock when the
    // keyboard has none).
    std::vector<std::uint16_t> lockVariants() const;

    // The modifier bits a key sets (0 for ordinary keys).
    std::uint16_t modifierBitsOfKey(xkb_keycode_t key) const;
    // The first key that sets the modifier bit, for synthetic modifiers.
    std::optional<xkb_keycode_t> keyForModifier(std::uint16_t bit) const;
    const ModifierMap& modifierMap() const { return modifierMap_; }

    // A whole key event: the key's code, kEventKeyDown/Up (or
    // kEventFlagsChanged for modifier keys, with the state after the
    // change), the flags of `state` (the modifiers before the event, as X
    // reports them) plus the key's implied keypad and function bits. Nothing
    // for keys without a code.
    std::optional<TapEvent> keyEvent(xkb_keycode_t key, std::uint16_t state, bool press, bool autorepeat,
                                     Point location) const;

private:
    static constexpr KeyCode kNoCode = 0xFFFF;
    static constexpr std::uint32_t kMaxGroups = 4;
    static constexpr std::size_t kCodeCount = 128;
    static constexpr std::size_t kKeyCount = 256;

    xkb_keymap* keymap_;
    ModifierMap modifierMap_;
    ModifierBits bits_;
    std::uint32_t groups_ = 1;
    // codes_[group][keycode]
    std::array<std::array<KeyCode, kKeyCount>, kMaxGroups> codes_{};
    // keycodes_[group][virtual key code]
    std::array<std::array<std::vector<xkb_keycode_t>, kCodeCount>, kMaxGroups> keycodes_;
    std::array<std::uint16_t, kKeyCount> modifierBitsOfKey_{};
};

// The virtual key code for a keysym, or nothing (exposed for tests).
std::optional<KeyCode> virtualKeyCodeForKeysym(xkb_keysym_t keysym);
// The virtual key code of a key position by its XKB name ("AC05"), or nothing.
std::optional<KeyCode> virtualKeyCodeForKeyName(const char* name);

}  // namespace jorvane::x11
