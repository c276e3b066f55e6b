#pragma once

// Names of key combinations. A combination is a key code (signed 16-bit, -1
// for no key) with a modifier mask in one of two layouts: the Cocoa
// (device-independent) bits the rest of the program uses, or the Carbon bits
// used inside the shortcut recorder. Texts go through the "HotkeyRecorder"
// table (Localization.h), which names the keys as Linux users know them.
//
// Two orders of modifiers: the glyph form runs Control, Option, Shift,
// Command ("Super+Alt+Shift+Ctrl+F5" on Linux), the readable form Command,
// Option, Control, Shift ("Ctrl + Alt + Super + Shift + F5").

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "app/VirtualKeyCodes.h"

namespace jorvane {

using HKKeyCode = std::int16_t;
inline constexpr HKKeyCode kHKNoKeyCode = -1;

// Carbon modifier bits.
inline constexpr std::uint32_t cmdKey = 0x100;
inline constexpr std::uint32_t shiftKey = 0x200;
inline constexpr std::uint32_t optionKey = 0x800;
inline constexpr std::uint32_t controlKey = 0x1000;
// The Function bit is the same in both layouts.
inline constexpr std::uint32_t kHKFunctionKeyMask = 0x800000;

class HKKeyCodeTransformer {
public:
    // The name of a key code: a fixed name for the special keys ("F1",
    // "Space", "Backspace" …), otherwise what the key types in the current
    // layout in upper case, "Pad " before it for the numeric keypad. The value
    // is read as a signed 16-bit code; a negative one has no name. "???" when
    // there is no current layout; nothing when the layout has no such key.
    std::optional<std::string> transformedValue(std::int64_t value) const;
    // The first code from 0 to 127 whose (non-empty) name is exactly `name`.
    std::optional<HKKeyCode> reverseTransformedValue(std::string_view name) const;
};

std::optional<std::string> HKKeyCodeName(HKKeyCode keyCode);

std::string HKCarbonModifierGlyphs(std::uint32_t carbonFlags);
std::string HKCocoaModifierGlyphs(CGEventFlags cocoaFlags);
// The modifiers' glyphs, then the key's name (nothing for a key without one).
std::string HKCarbonComboGlyphs(std::uint32_t carbonFlags, HKKeyCode keyCode);
std::string HKCocoaComboGlyphs(CGEventFlags cocoaFlags, HKKeyCode keyCode);
std::string HKCarbonComboReadable(std::uint32_t carbonFlags, HKKeyCode keyCode);
std::string HKCocoaComboReadable(CGEventFlags cocoaFlags, HKKeyCode keyCode);

// Bit for bit; every other bit but Function is dropped.
CGEventFlags HKCarbonToCocoaModifiers(std::uint32_t carbonFlags);
std::uint32_t HKCocoaToCarbonModifiers(CGEventFlags cocoaFlags);

// What the key types in the current layout with the mask's Shift and Option,
// capitalised; the key's name (HKKeyCodeName) when there is no layout or the
// translation fails.
std::optional<std::string> HKCharacterForCocoaCombo(HKKeyCode keyCode, CGEventFlags cocoaFlags);
std::optional<std::string> HKCharacterForCarbonCombo(HKKeyCode keyCode, std::uint32_t carbonFlags);

}  // namespace jorvane
