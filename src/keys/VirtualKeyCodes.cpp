#include "keys/VirtualKeyCodes.h"

#include <algorithm>
#include <array>

namespace jorvane {
namespace {

using K = VirtualKeyKind;
constexpr Modifiers kPad = kModifierNumericPad;
constexpr Modifiers kFn = kModifierFunction;

// clang-format off
constexpr std::array kTable{
    VirtualKey{kKeyA, "ANSI_A", U'a', K::Character, 0},
    VirtualKey{kKeyS, "ANSI_S", U's', K::Character, 0},
    VirtualKey{kKeyD, "ANSI_D", U'd', K::Character, 0},
    VirtualKey{kKeyF, "ANSI_F", U'f', K::Character, 0},
    VirtualKey{kKeyH, "ANSI_H", U'h', K::Character, 0},
    VirtualKey{kKeyG, "ANSI_G", U'g', K::Character, 0},
    VirtualKey{kKeyZ, "ANSI_Z", U'z', K::Character, 0},
    VirtualKey{kKeyX, "ANSI_X", U'x', K::Character, 0},
    VirtualKey{kKeyC, "ANSI_C", U'c', K::Character, 0},
    VirtualKey{kKeyV, "ANSI_V", U'v', K::Character, 0},
    VirtualKey{kKeyIsoSection, "ISO_Section", U'§', K::Character, 0},
    VirtualKey{kKeyB, "ANSI_B", U'b', K::Character, 0},
    VirtualKey{kKeyQ, "ANSI_Q", U'q', K::Character, 0},
    VirtualKey{kKeyW, "ANSI_W", U'w', K::Character, 0},
    VirtualKey{kKeyE, "ANSI_E", U'e', K::Character, 0},
    VirtualKey{kKeyR, "ANSI_R", U'r', K::Character, 0},
    VirtualKey{kKeyY, "ANSI_Y", U'y', K::Character, 0},
    VirtualKey{kKeyT, "ANSI_T", U't', K::Character, 0},
    VirtualKey{kKey1, "ANSI_1", U'1', K::Character, 0},
    VirtualKey{kKey2, "ANSI_2", U'2', K::Character, 0},
    VirtualKey{kKey3, "ANSI_3", U'3', K::Character, 0},
    VirtualKey{kKey4, "ANSI_4", U'4', K::Character, 0},
    VirtualKey{kKey6, "ANSI_6", U'6', K::Character, 0},
    VirtualKey{kKey5, "ANSI_5", U'5', K::Character, 0},
    VirtualKey{kKeyEqual, "ANSI_Equal", U'=', K::Character, 0},
    VirtualKey{kKey9, "ANSI_9", U'9', K::Character, 0},
    VirtualKey{kKey7, "ANSI_7", U'7', K::Character, 0},
    VirtualKey{kKeyMinus, "ANSI_Minus", U'-', K::Character, 0},
    VirtualKey{kKey8, "ANSI_8", U'8', K::Character, 0},
    VirtualKey{kKey0, "ANSI_0", U'0', K::Character, 0},
    VirtualKey{kKeyRightBracket, "ANSI_RightBracket", U']', K::Character, 0},
    VirtualKey{kKeyO, "ANSI_O", U'o', K::Character, 0},
    VirtualKey{kKeyU, "ANSI_U", U'u', K::Character, 0},
    VirtualKey{kKeyLeftBracket, "ANSI_LeftBracket", U'[', K::Character, 0},
    VirtualKey{kKeyI, "ANSI_I", U'i', K::Character, 0},
    VirtualKey{kKeyP, "ANSI_P", U'p', K::Character, 0},
    VirtualKey{kKeyReturn, "Return", 0, K::Whitespace, 0},
    VirtualKey{kKeyL, "ANSI_L", U'l', K::Character, 0},
    VirtualKey{kKeyJ, "ANSI_J", U'j', K::Character, 0},
    VirtualKey{kKeyQuote, "ANSI_Quote", U'\'', K::Character, 0},
    VirtualKey{kKeyK, "ANSI_K", U'k', K::Character, 0},
    VirtualKey{kKeySemicolon, "ANSI_Semicolon", U';', K::Character, 0},
    VirtualKey{kKeyBackslash, "ANSI_Backslash", U'\\', K::Character, 0},
    VirtualKey{kKeyComma, "ANSI_Comma", U',', K::Character, 0},
    VirtualKey{kKeySlash, "ANSI_Slash", U'/', K::Character, 0},
    VirtualKey{kKeyN, "ANSI_N", U'n', K::Character, 0},
    VirtualKey{kKeyM, "ANSI_M", U'm', K::Character, 0},
    VirtualKey{kKeyPeriod, "ANSI_Period", U'.', K::Character, 0},
    VirtualKey{kKeyTab, "Tab", 0, K::Whitespace, 0},
    VirtualKey{kKeySpace, "Space", U' ', K::Whitespace, 0},
    VirtualKey{kKeyGrave, "ANSI_Grave", U'`', K::Character, 0},
    VirtualKey{kKeyDelete, "Delete", 0, K::Editing, 0},
    VirtualKey{kKeyEscape, "Escape", 0, K::Editing, 0},
    VirtualKey{kKeyRightCommand, "RightCommand", 0, K::Modifier, 0},
    VirtualKey{kKeyCommand, "Command", 0, K::Modifier, 0},
    VirtualKey{kKeyShift, "Shift", 0, K::Modifier, 0},
    VirtualKey{kKeyCapsLock, "CapsLock", 0, K::Modifier, 0},
    VirtualKey{kKeyOption, "Option", 0, K::Modifier, 0},
    VirtualKey{kKeyControl, "Control", 0, K::Modifier, 0},
    VirtualKey{kKeyRightShift, "RightShift", 0, K::Modifier, 0},
    VirtualKey{kKeyRightOption, "RightOption", 0, K::Modifier, 0},
    VirtualKey{kKeyRightControl, "RightControl", 0, K::Modifier, 0},
    VirtualKey{kKeyFunction, "Function", 0, K::Modifier, 0},
    VirtualKey{kKeyF17, "F17", 0, K::Function, kFn},
    VirtualKey{kKeypadDecimal, "ANSI_KeypadDecimal", U'.', K::Keypad, kPad},
    VirtualKey{kKeypadMultiply, "ANSI_KeypadMultiply", U'*', K::Keypad, kPad},
    VirtualKey{kKeypadPlus, "ANSI_KeypadPlus", U'+', K::Keypad, kPad},
    VirtualKey{kKeypadClear, "ANSI_KeypadClear", 0, K::Keypad, kPad},
    VirtualKey{kKeyVolumeUp, "VolumeUp", 0, K::Media, 0},
    VirtualKey{kKeyVolumeDown, "VolumeDown", 0, K::Media, 0},
    VirtualKey{kKeyMute, "Mute", 0, K::Media, 0},
    VirtualKey{kKeypadDivide, "ANSI_KeypadDivide", U'/', K::Keypad, kPad},
    VirtualKey{kKeypadEnter, "ANSI_KeypadEnter", 0, K::Keypad, kPad},
    VirtualKey{kKeypadMinus, "ANSI_KeypadMinus", U'-', K::Keypad, kPad},
    VirtualKey{kKeyF18, "F18", 0, K::Function, kFn},
    VirtualKey{kKeyF19, "F19", 0, K::Function, kFn},
    VirtualKey{kKeypadEquals, "ANSI_KeypadEquals", U'=', K::Keypad, kPad},
    VirtualKey{kKeypad0, "ANSI_Keypad0", U'0', K::Keypad, kPad},
    VirtualKey{kKeypad1, "ANSI_Keypad1", U'1', K::Keypad, kPad},
    VirtualKey{kKeypad2, "ANSI_Keypad2", U'2', K::Keypad, kPad},
    VirtualKey{kKeypad3, "ANSI_Keypad3", U'3', K::Keypad, kPad},
    VirtualKey{kKeypad4, "ANSI_Keypad4", U'4', K::Keypad, kPad},
    VirtualKey{kKeypad5, "ANSI_Keypad5", U'5', K::Keypad, kPad},
    VirtualKey{kKeypad6, "ANSI_Keypad6", U'6', K::Keypad, kPad},
    VirtualKey{kKeypad7, "ANSI_Keypad7", U'7', K::Keypad, kPad},
    VirtualKey{kKeyF20, "F20", 0, K::Function, kFn},
    VirtualKey{kKeypad8, "ANSI_Keypad8", U'8', K::Keypad, kPad},
    VirtualKey{kKeypad9, "ANSI_Keypad9", U'9', K::Keypad, kPad},
    VirtualKey{kKeyJisYen, "JIS_Yen", 0, K::Character, 0},
    VirtualKey{kKeyJisUnderscore, "JIS_Underscore", 0, K::Character, 0},
    VirtualKey{kKeyJisKeypadComma, "JIS_KeypadComma", U',', K::Keypad, kPad},
    VirtualKey{kKeyF5, "F5", 0, K::Function, kFn},
    VirtualKey{kKeyF6, "F6", 0, K::Function, kFn},
    VirtualKey{kKeyF7, "F7", 0, K::Function, kFn},
    VirtualKey{kKeyF3, "F3", 0, K::Function, kFn},
    VirtualKey{kKeyF8, "F8", 0, K::Function, kFn},
    VirtualKey{kKeyF9, "F9", 0, K::Function, kFn},
    VirtualKey{kKeyJisEisu, "JIS_Eisu", 0, K::Other, 0},
    VirtualKey{kKeyF11, "F11", 0, K::Function, kFn},
    VirtualKey{kKeyJisKana, "JIS_Kana", 0, K::Other, 0},
    VirtualKey{kKeyF13, "F13", 0, K::Function, kFn},
    VirtualKey{kKeyF16, "F16", 0, K::Function, kFn},
    VirtualKey{kKeyF14, "F14", 0, K::Function, kFn},
    VirtualKey{kKeyF10, "F10", 0, K::Function, kFn},
    VirtualKey{kKeyContextualMenu, "ContextualMenu", 0, K::Other, 0},
    VirtualKey{kKeyF12, "F12", 0, K::Function, kFn},
    VirtualKey{kKeyF15, "F15", 0, K::Function, kFn},
    VirtualKey{kKeyHelp, "Help", 0, K::Editing, kFn},
    VirtualKey{kKeyHome, "Home", 0, K::Navigation, kFn},
    VirtualKey{kKeyPageUp, "PageUp", 0, K::Navigation, kFn},
    VirtualKey{kKeyForwardDelete, "ForwardDelete", 0, K::Editing, kFn},
    VirtualKey{kKeyF4, "F4", 0, K::Function, kFn},
    VirtualKey{kKeyEnd, "End", 0, K::Navigation, kFn},
    VirtualKey{kKeyF2, "F2", 0, K::Function, kFn},
    VirtualKey{kKeyPageDown, "PageDown", 0, K::Navigation, kFn},
    VirtualKey{kKeyF1, "F1", 0, K::Function, kFn},
    VirtualKey{kKeyLeftArrow, "LeftArrow", 0, K::Navigation, kPad | kFn},
    VirtualKey{kKeyRightArrow, "RightArrow", 0, K::Navigation, kPad | kFn},
    VirtualKey{kKeyDownArrow, "DownArrow", 0, K::Navigation, kPad | kFn},
    VirtualKey{kKeyUpArrow, "UpArrow", 0, K::Navigation, kPad | kFn},
};
// clang-format on

static_assert(std::is_sorted(kTable.begin(), kTable.end(),
                             [](const VirtualKey& a, const VirtualKey& b) { return a.code < b.code; }),
              "the key table is searched by code");

}  // namespace

std::span<const VirtualKey> virtualKeyTable() { return kTable; }

std::optional<VirtualKey> virtualKey(KeyCode code) {
    auto it = std::lower_bound(kTable.begin(), kTable.end(), code,
                               [](const VirtualKey& key, KeyCode c) { return key.code < c; });
    if (it == kTable.end() || it->code != code) return std::nullopt;
    return *it;
}

std::optional<VirtualKey> virtualKeyForUSCharacter(char32_t character) {
    if (character == 0) return std::nullopt;  // the mark of keys that type nothing
    if (character >= U'A' && character <= U'Z') character += U'a' - U'A';
    for (const VirtualKey& key : kTable) {
        // The keypad repeats digits and signs of the main block; the main key wins.
        if (key.usCharacter == character && key.kind != VirtualKeyKind::Keypad) return key;
    }
    return std::nullopt;
}

}  // namespace jorvane
