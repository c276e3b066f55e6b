#pragma once

// The keyboard vocabulary of the core: the classic virtual key codes of the
// US layout (the code names a key position, G = 5, Return = 36 …) and the
// device-independent modifier flags. Adapters translate the platform's keys
// into these; the tap, the address bar and the shortcut recorder only ever
// see them.

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

namespace jorvane {

using CGKeyCode = std::uint16_t;
using CGEventFlags = std::uint64_t;

// Device-independent modifier flags. On Linux Command is Ctrl, Control is
// Super and Option is Alt.
inline constexpr CGEventFlags kCGEventFlagMaskAlphaShift = 0x10000;  // Caps Lock
inline constexpr CGEventFlags kCGEventFlagMaskShift = 0x20000;
inline constexpr CGEventFlags kCGEventFlagMaskControl = 0x40000;
inline constexpr CGEventFlags kCGEventFlagMaskAlternate = 0x80000;  // Option
inline constexpr CGEventFlags kCGEventFlagMaskCommand = 0x100000;
inline constexpr CGEventFlags kCGEventFlagMaskNumericPad = 0x200000;
inline constexpr CGEventFlags kCGEventFlagMaskHelp = 0x400000;
inline constexpr CGEventFlags kCGEventFlagMaskSecondaryFn = 0x800000;
// The four modifiers a shortcut is made of. Every shortcut comparison masks
// the flags with this and requires exact equality, so an extra modifier
// defeats a match while Caps Lock, the numeric-pad and function bits do not.
inline constexpr CGEventFlags kShortcutModifierMask = 0x1E0000;

// clang-format off
inline constexpr CGKeyCode kVK_ANSI_A = 0x00;
inline constexpr CGKeyCode kVK_ANSI_S = 0x01;
inline constexpr CGKeyCode kVK_ANSI_D = 0x02;
inline constexpr CGKeyCode kVK_ANSI_F = 0x03;
inline constexpr CGKeyCode kVK_ANSI_H = 0x04;
inline constexpr CGKeyCode kVK_ANSI_G = 0x05;
inline constexpr CGKeyCode kVK_ANSI_Z = 0x06;
inline constexpr CGKeyCode kVK_ANSI_X = 0x07;
inline constexpr CGKeyCode kVK_ANSI_C = 0x08;
inline constexpr CGKeyCode kVK_ANSI_V = 0x09;
inline constexpr CGKeyCode kVK_ISO_Section = 0x0A;
inline constexpr CGKeyCode kVK_ANSI_B = 0x0B;
inline constexpr CGKeyCode kVK_ANSI_Q = 0x0C;
inline constexpr CGKeyCode kVK_ANSI_W = 0x0D;
inline constexpr CGKeyCode kVK_ANSI_E = 0x0E;
inline constexpr CGKeyCode kVK_ANSI_R = 0x0F;
inline constexpr CGKeyCode kVK_ANSI_Y = 0x10;
inline constexpr CGKeyCode kVK_ANSI_T = 0x11;
inline constexpr CGKeyCode kVK_ANSI_1 = 0x12;
inline constexpr CGKeyCode kVK_ANSI_2 = 0x13;
inline constexpr CGKeyCode kVK_ANSI_3 = 0x14;
inline constexpr CGKeyCode kVK_ANSI_4 = 0x15;
inline constexpr CGKeyCode kVK_ANSI_6 = 0x16;
inline constexpr CGKeyCode kVK_ANSI_5 = 0x17;
inline constexpr CGKeyCode kVK_ANSI_Equal = 0x18;
inline constexpr CGKeyCode kVK_ANSI_9 = 0x19;
inline constexpr CGKeyCode kVK_ANSI_7 = 0x1A;
inline constexpr CGKeyCode kVK_ANSI_Minus = 0x1B;
inline constexpr CGKeyCode kVK_ANSI_8 = 0x1C;
inline constexpr CGKeyCode kVK_ANSI_0 = 0x1D;
inline constexpr CGKeyCode kVK_ANSI_RightBracket = 0x1E;
inline constexpr CGKeyCode kVK_ANSI_O = 0x1F;
inline constexpr CGKeyCode kVK_ANSI_U = 0x20;
inline constexpr CGKeyCode kVK_ANSI_LeftBracket = 0x21;
inline constexpr CGKeyCode kVK_ANSI_I = 0x22;
inline constexpr CGKeyCode kVK_ANSI_P = 0x23;
inline constexpr CGKeyCode kVK_Return = 0x24;
inline constexpr CGKeyCode kVK_ANSI_L = 0x25;
inline constexpr CGKeyCode kVK_ANSI_J = 0x26;
inline constexpr CGKeyCode kVK_ANSI_Quote = 0x27;
inline constexpr CGKeyCode kVK_ANSI_K = 0x28;
inline constexpr CGKeyCode kVK_ANSI_Semicolon = 0x29;
inline constexpr CGKeyCode kVK_ANSI_Backslash = 0x2A;
inline constexpr CGKeyCode kVK_ANSI_Comma = 0x2B;
inline constexpr CGKeyCode kVK_ANSI_Slash = 0x2C;
inline constexpr CGKeyCode kVK_ANSI_N = 0x2D;
inline constexpr CGKeyCode kVK_ANSI_M = 0x2E;
inline constexpr CGKeyCode kVK_ANSI_Period = 0x2F;
inline constexpr CGKeyCode kVK_Tab = 0x30;
inline constexpr CGKeyCode kVK_Space = 0x31;
inline constexpr CGKeyCode kVK_ANSI_Grave = 0x32;
inline constexpr CGKeyCode kVK_Delete = 0x33;  // Backspace
inline constexpr CGKeyCode kVK_Escape = 0x35;
inline constexpr CGKeyCode kVK_RightCommand = 0x36;
inline constexpr CGKeyCode kVK_Command = 0x37;
inline constexpr CGKeyCode kVK_Shift = 0x38;
inline constexpr CGKeyCode kVK_CapsLock = 0x39;
inline constexpr CGKeyCode kVK_Option = 0x3A;
inline constexpr CGKeyCode kVK_Control = 0x3B;
inline constexpr CGKeyCode kVK_RightShift = 0x3C;
inline constexpr CGKeyCode kVK_RightOption = 0x3D;
inline constexpr CGKeyCode kVK_RightControl = 0x3E;
inline constexpr CGKeyCode kVK_Function = 0x3F;
inline constexpr CGKeyCode kVK_F17 = 0x40;
inline constexpr CGKeyCode kVK_ANSI_KeypadDecimal = 0x41;
inline constexpr CGKeyCode kVK_ANSI_KeypadMultiply = 0x43;
inline constexpr CGKeyCode kVK_ANSI_KeypadPlus = 0x45;
inline constexpr CGKeyCode kVK_ANSI_KeypadClear = 0x47;  // Num Lock on PC keyboards
inline constexpr CGKeyCode kVK_VolumeUp = 0x48;
inline constexpr CGKeyCode kVK_VolumeDown = 0x49;
inline constexpr CGKeyCode kVK_Mute = 0x4A;
inline constexpr CGKeyCode kVK_ANSI_KeypadDivide = 0x4B;
inline constexpr CGKeyCode kVK_ANSI_KeypadEnter = 0x4C;
inline constexpr CGKeyCode kVK_ANSI_KeypadMinus = 0x4E;
inline constexpr CGKeyCode kVK_F18 = 0x4F;
inline constexpr CGKeyCode kVK_F19 = 0x50;
inline constexpr CGKeyCode kVK_ANSI_KeypadEquals = 0x51;
inline constexpr CGKeyCode kVK_ANSI_Keypad0 = 0x52;
inline constexpr CGKeyCode kVK_ANSI_Keypad1 = 0x53;
inline constexpr CGKeyCode kVK_ANSI_Keypad2 = 0x54;
inline constexpr CGKeyCode kVK_ANSI_Keypad3 = 0x55;
inline constexpr CGKeyCode kVK_ANSI_Keypad4 = 0x56;
inline constexpr CGKeyCode kVK_ANSI_Keypad5 = 0x57;
inline constexpr CGKeyCode kVK_ANSI_Keypad6 = 0x58;
inline constexpr CGKeyCode kVK_ANSI_Keypad7 = 0x59;
inline constexpr CGKeyCode kVK_F20 = 0x5A;
inline constexpr CGKeyCode kVK_ANSI_Keypad8 = 0x5B;
inline constexpr CGKeyCode kVK_ANSI_Keypad9 = 0x5C;
inline constexpr CGKeyCode kVK_JIS_Yen = 0x5D;
inline constexpr CGKeyCode kVK_JIS_Underscore = 0x5E;
inline constexpr CGKeyCode kVK_JIS_KeypadComma = 0x5F;
inline constexpr CGKeyCode kVK_F5 = 0x60;
inline constexpr CGKeyCode kVK_F6 = 0x61;
inline constexpr CGKeyCode kVK_F7 = 0x62;
inline constexpr CGKeyCode kVK_F3 = 0x63;
inline constexpr CGKeyCode kVK_F8 = 0x64;
inline constexpr CGKeyCode kVK_F9 = 0x65;
inline constexpr CGKeyCode kVK_JIS_Eisu = 0x66;
inline constexpr CGKeyCode kVK_F11 = 0x67;
inline constexpr CGKeyCode kVK_JIS_Kana = 0x68;
inline constexpr CGKeyCode kVK_F13 = 0x69;
inline constexpr CGKeyCode kVK_F16 = 0x6A;
inline constexpr CGKeyCode kVK_F14 = 0x6B;
inline constexpr CGKeyCode kVK_F10 = 0x6D;
inline constexpr CGKeyCode kVK_ContextualMenu = 0x6E;
inline constexpr CGKeyCode kVK_F12 = 0x6F;
inline constexpr CGKeyCode kVK_F15 = 0x71;
inline constexpr CGKeyCode kVK_Help = 0x72;  // Insert on PC keyboards
inline constexpr CGKeyCode kVK_Home = 0x73;
inline constexpr CGKeyCode kVK_PageUp = 0x74;
inline constexpr CGKeyCode kVK_ForwardDelete = 0x75;
inline constexpr CGKeyCode kVK_F4 = 0x76;
inline constexpr CGKeyCode kVK_End = 0x77;
inline constexpr CGKeyCode kVK_F2 = 0x78;
inline constexpr CGKeyCode kVK_PageDown = 0x79;
inline constexpr CGKeyCode kVK_F1 = 0x7A;
inline constexpr CGKeyCode kVK_LeftArrow = 0x7B;
inline constexpr CGKeyCode kVK_RightArrow = 0x7C;
inline constexpr CGKeyCode kVK_DownArrow = 0x7D;
inline constexpr CGKeyCode kVK_UpArrow = 0x7E;
// clang-format on

enum class VirtualKeyKind {
    Character,  // produces a character: letters, digits, punctuation, the ISO and JIS extras
    Whitespace, // Return, Tab, Space
    Editing,    // Delete, Forward Delete, Escape, Help
    Navigation, // arrows, Home, End, Page Up, Page Down
    Function,   // F1 … F20
    Keypad,
    Modifier,
    Media,      // volume keys
    Other,      // JIS input-mode keys, the contextual-menu key
};

struct VirtualKey {
    CGKeyCode code;
    // The constant's name without its "kVK_" prefix: "ANSI_G", "Return", "F1".
    std::string_view name;
    // What the key types on the US layout without modifiers (lower case for
    // letters), or 0 when it types nothing printable.
    char32_t usCharacter;
    VirtualKeyKind kind;
    // Flags the system adds to every event of this key: NumericPad for the
    // keypad and the arrows, SecondaryFn for the function and navigation keys.
    CGEventFlags impliedFlags;
};

// Every known key, in code order.
std::span<const VirtualKey> virtualKeyTable();
// The key with that code, or nothing for a code no key has.
std::optional<VirtualKey> virtualKey(CGKeyCode code);
// The key that types this character on the US layout without modifiers
// (ASCII letters in either case), or nothing.
std::optional<VirtualKey> virtualKeyForUSCharacter(char32_t character);

}  // namespace jorvane
