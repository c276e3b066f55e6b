#pragma once

// Names of key combinations. A combination is a key code (signed 16-bit, -1
// for no key) with a modifier mask in one of two layouts: the
// device-independent bits the rest of the program uses (Modifiers), or the
// compact bits used inside the shortcut recorder. Texts go through the "HotkeyRecorder"
// table (Localization.h), which names the keys as Linux users know them.
//
// Two orders of modifiers: the glyph form runs Control, Option, Shift,
// Command ("Super+Alt+Shift+Ctrl+F5" on Linux), the readable form Command,
// Option, Control, Shift ("Ctrl + Alt + Super + Shift + F5").

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "keys/VirtualKeyCodes.h"

namespace jorvane {

using ShortcutKeyCode = std::int16_t;
inline constexpr ShortcutKeyCode kNoShortcutKey = -1;

// The recorder's modifier bits.
inline constexpr std::uint32_t kRecorderCommand = 0x100;
inline constexpr std::uint32_t kRecorderShift = 0x200;
inline constexpr std::uint32_t kRecorderOption = 0x800;
inline constexpr std::uint32_t kRecorderControl = 0x1000;
// The Function bit is the same in both layouts.
inline constexpr std::uint32_t kShortcutFunctionKeyMask = 0x800000;

class ShortcutKeyNames {
public:
    // The name of a key code: a fixed name for the special keys ("F1",
    // "Space", "Backspace" …), otherwise what the key types in the current
    // layout in upper case, "Pad " before it for the numeric keypad. The value
    // is read as a signed 16-bit code; a negative one has no name. "???" when
    // there is no current layout; nothing when the layout has no such key.
    std::optional<std::string> transformedValue(std::int64_t value) const;
    // The first code from 0 to 127 whose (non-empty) name is exactly `name`.
    std::optional<ShortcutKeyCode> reverseTransformedValue(std::string_view name) const;
};

std::optional<std::string> shortcutKeyName(ShortcutKeyCode keyCode);

std::string recorderModifierGlyphs(std::uint32_t recorderFlags);
std::string modifierGlyphs(Modifiers modifiers);
// The modifiers' glyphs, then the key's name (nothing for a key without one).
std::string recorderComboGlyphs(std::uint32_t recorderFlags, ShortcutKeyCode keyCode);
std::string comboGlyphs(Modifiers modifiers, ShortcutKeyCode keyCode);
std::string recorderComboText(std::uint32_t recorderFlags, ShortcutKeyCode keyCode);
std::string comboText(Modifiers modifiers, ShortcutKeyCode keyCode);

// Bit for bit; every other bit but Function is dropped.
Modifiers modifiersFromRecorderFlags(std::uint32_t recorderFlags);
std::uint32_t recorderFlagsFromModifiers(Modifiers modifiers);

// What the key types in the current layout with the mask's Shift and Option,
// capitalised; the key's name (shortcutKeyName) when there is no layout or the
// translation fails.
std::optional<std::string> characterForCombo(ShortcutKeyCode keyCode, Modifiers modifiers);

}  // namespace jorvane
