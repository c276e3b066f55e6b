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

using KeyCode = std::uint16_t;
using Modifiers = std::uint64_t;

// Device-independent modifier flags. On Linux Command is Ctrl, Control is
// Super and Option is Alt.
inline constexpr Modifiers kModifierCapsLock = 0x10000;  // Caps Lock
inline constexpr Modifiers kModifierShift = 0x20000;
inline constexpr Modifiers kModifierControl = 0x40000;
inline constexpr Modifiers kModifierOption = 0x80000;  // Option
inline constexpr Modifiers kModifierCommand = 0x100000;
inline constexpr Modifiers kModifierNumericPad = 0x200000;
inline constexpr Modifiers kModifierHelp = 0x400000;
inline constexpr Modifiers kModifierFunction = 0x800000;
// The four modifiers a shortcut is made of. Every shortcut comparison masks
// the flags with this and requires exact equality, so an extra modifier
// defeats a match while Caps Lock, the numeric-pad and function bits do not.
inline constexpr Modifiers kShortcutModifierMask = 0x1E0000;

// clang-format off
inline constexpr KeyCode kKeyA = 0x00;
inline constexpr KeyCode kKeyS = 0x01;
inline constexpr KeyCode kKeyD = 0x02;
inline constexpr KeyCode kKeyF = 0x03;
inline constexpr KeyCode kKeyH = 0x04;
inline constexpr KeyCode kKeyG = 0x05;
inline constexpr KeyCode kKeyZ = 0x06;
inline constexpr KeyCode kKeyX = 0x07;
inline constexpr KeyCode kKeyC = 0x08;
inline constexpr KeyCode kKeyV = 0x09;
inline constexpr KeyCode kKeyIsoSection = 0x0A;
inline constexpr KeyCode kKeyB = 0x0B;
inline constexpr KeyCode kKeyQ = 0x0C;
inline constexpr KeyCode kKeyW = 0x0D;
inline constexpr KeyCode kKeyE = 0x0E;
inline constexpr KeyCode kKeyR = 0x0F;
inline constexpr KeyCode kKeyY = 0x10;
inline constexpr KeyCode kKeyT = 0x11;
inline constexpr KeyCode kKey1 = 0x12;
inline constexpr KeyCode kKey2 = 0x13;
inline constexpr KeyCode kKey3 = 0x14;
inline constexpr KeyCode kKey4 = 0x15;
inline constexpr KeyCode kKey6 = 0x16;
inline constexpr KeyCode kKey5 = 0x17;
inline constexpr KeyCode kKeyEqual = 0x18;
inline constexpr KeyCode kKey9 = 0x19;
inline constexpr KeyCode kKey7 = 0x1A;
inline constexpr KeyCode kKeyMinus = 0x1B;
inline constexpr KeyCode kKey8 = 0x1C;
inline constexpr KeyCode kKey0 = 0x1D;
inline constexpr KeyCode kKeyRightBracket = 0x1E;
inline constexpr KeyCode kKeyO = 0x1F;
inline constexpr KeyCode kKeyU = 0x20;
inline constexpr KeyCode kKeyLeftBracket = 0x21;
inline constexpr KeyCode kKeyI = 0x22;
inline constexpr KeyCode kKeyP = 0x23;
inline constexpr KeyCode kKeyReturn = 0x24;
inline constexpr KeyCode kKeyL = 0x25;
inline constexpr KeyCode kKeyJ = 0x26;
inline constexpr KeyCode kKeyQuote = 0x27;
inline constexpr KeyCode kKeyK = 0x28;
inline constexpr KeyCode kKeySemicolon = 0x29;
inline constexpr KeyCode kKeyBackslash = 0x2A;
inline constexpr KeyCode kKeyComma = 0x2B;
inline constexpr KeyCode kKeySlash = 0x2C;
inline constexpr KeyCode kKeyN = 0x2D;
inline constexpr KeyCode kKeyM = 0x2E;
inline constexpr KeyCode kKeyPeriod = 0x2F;
inline constexpr KeyCode kKeyTab = 0x30;
inline constexpr KeyCode kKeySpace = 0x31;
inline constexpr KeyCode kKeyGrave = 0x32;
inline constexpr KeyCode kKeyDelete = 0x33;  // Backspace
inline constexpr KeyCode kKeyEscape = 0x35;
inline constexpr KeyCode kKeyRightCommand = 0x36;
inline constexpr KeyCode kKeyCommand = 0x37;
inline constexpr KeyCode kKeyShift = 0x38;
inline constexpr KeyCode kKeyCapsLock = 0x39;
inline constexpr KeyCode kKeyOption = 0x3A;
inline constexpr KeyCode kKeyControl = 0x3B;
inline constexpr KeyCode kKeyRightShift = 0x3C;
inline constexpr KeyCode kKeyRightOption = 0x3D;
inline constexpr KeyCode kKeyRightControl = 0x3E;
inline constexpr KeyCode kKeyFunction = 0x3F;
inline constexpr KeyCode kKeyF17 = 0x40;
inline constexpr KeyCode kKeypadDecimal = 0x41;
inline constexpr KeyCode kKeypadMultiply = 0x43;
inline constexpr KeyCode kKeypadPlus = 0x45;
inline constexpr KeyCode kKeypadClear = 0x47;  // Num Lock on PC keyboards
inline constexpr KeyCode kKeyVolumeUp = 0x48;
inline constexpr KeyCode kKeyVolumeDown = 0x49;
inline constexpr KeyCode kKeyMute = 0x4A;
inline constexpr KeyCode kKeypadDivide = 0x4B;
inline constexpr KeyCode kKeypadEnter = 0x4C;
inline constexpr KeyCode kKeypadMinus = 0x4E;
inline constexpr KeyCode kKeyF18 = 0x4F;
inline constexpr KeyCode kKeyF19 = 0x50;
inline constexpr KeyCode kKeypadEquals = 0x51;
inline constexpr KeyCode kKeypad0 = 0x52;
inline constexpr KeyCode kKeypad1 = 0x53;
inline constexpr KeyCode kKeypad2 = 0x54;
inline constexpr KeyCode kKeypad3 = 0x55;
inline constexpr KeyCode kKeypad4 = 0x56;
inline constexpr KeyCode kKeypad5 = 0x57;
inline constexpr KeyCode kKeypad6 = 0x58;
inline constexpr KeyCode kKeypad7 = 0x59;
inline constexpr KeyCode kKeyF20 = 0x5A;
inline constexpr KeyCode kKeypad8 = 0x5B;
inline constexpr KeyCode kKeypad9 = 0x5C;
inline constexpr KeyCode kKeyJisYen = 0x5D;
inline constexpr KeyCode kKeyJisUnderscore = 0x5E;
inline constexpr KeyCode kKeyJisKeypadComma = 0x5F;
inline constexpr KeyCode kKeyF5 = 0x60;
inline constexpr KeyCode kKeyF6 = 0x61;
inline constexpr KeyCode kKeyF7 = 0x62;
inline constexpr KeyCode kKeyF3 = 0x63;
inline constexpr KeyCode kKeyF8 = 0x64;
inline constexpr KeyCode kKeyF9 = 0x65;
inline constexpr KeyCode kKeyJisEisu = 0x66;
inline constexpr KeyCode kKeyF11 = 0x67;
inline constexpr KeyCode kKeyJisKana = 0x68;
inline constexpr KeyCode kKeyF13 = 0x69;
inline constexpr KeyCode kKeyF16 = 0x6A;
inline constexpr KeyCode kKeyF14 = 0x6B;
inline constexpr KeyCode kKeyF10 = 0x6D;
inline constexpr KeyCode kKeyContextualMenu = 0x6E;
inline constexpr KeyCode kKeyF12 = 0x6F;
inline constexpr KeyCode kKeyF15 = 0x71;
inline constexpr KeyCode kKeyHelp = 0x72;  // Insert on PC keyboards
inline constexpr KeyCode kKeyHome = 0x73;
inline constexpr KeyCode kKeyPageUp = 0x74;
inline constexpr KeyCode kKeyForwardDelete = 0x75;
inline constexpr KeyCode kKeyF4 = 0x76;
inline constexpr KeyCode kKeyEnd = 0x77;
inline constexpr KeyCode kKeyF2 = 0x78;
inline constexpr KeyCode kKeyPageDown = 0x79;
inline constexpr KeyCode kKeyF1 = 0x7A;
inline constexpr KeyCode kKeyLeftArrow = 0x7B;
inline constexpr KeyCode kKeyRightArrow = 0x7C;
inline constexpr KeyCode kKeyDownArrow = 0x7D;
inline constexpr KeyCode kKeyUpArrow = 0x7E;
// clang-format on

enum class VirtualKeyKind {
    Character,   // produces a character: letters, digits, punctuation, the ISO and JIS extras
    Whitespace,  // Return, Tab, Space
    Editing,     // Delete, Forward Delete, Escape, Help
    Navigation,  // arrows, Home, End, Page Up, Page Down
    Function,    // F1 … F20
    Keypad,
    Modifier,
    Media,  // volume keys
    Other,  // JIS input-mode keys, the contextual-menu key
};

struct VirtualKey {
    KeyCode code;
    // The constant's name without its "kVK_" prefix: "ANSI_G", "Return", "F1".
    std::string_view name;
    // What the key types on the US layout without modifiers (lower case for
    // letters), or 0 when it types nothing printable.
    char32_t usCharacter;
    VirtualKeyKind kind;
    // Flags the system adds to every event of this key: NumericPad for the
    // keypad and the arrows, SecondaryFn for the function and navigation keys.
    Modifiers impliedFlags;
};

// Every known key, in code order.
std::span<const VirtualKey> virtualKeyTable();
// The key with that code, or nothing for a code no key has.
std::optional<VirtualKey> virtualKey(KeyCode code);
// The key that types this character on the US layout without modifiers
// (ASCII letters in either case), or nothing.
std::optional<VirtualKey> virtualKeyForUSCharacter(char32_t character);

}  // namespace jorvane
