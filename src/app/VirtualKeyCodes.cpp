#include "app/VirtualKeyCodes.h"

#include <algorithm>
#include <array>

namespace jorvane {
namespace {

using K = VirtualKeyKind;
constexpr CGEventFlags kPad = kCGEventFlagMaskNumericPad;
constexpr CGEventFlags kFn = kCGEventFlagMaskSecondaryFn;

// clang-format off
constexpr std::array kTable{
    VirtualKey{kVK_ANSI_A, "ANSI_A", U'a', K::Character, 0},
    VirtualKey{kVK_ANSI_S, "ANSI_S", U's', K::Character, 0},
    VirtualKey{kVK_ANSI_D, "ANSI_D", U'd', K::Character, 0},
    VirtualKey{kVK_ANSI_F, "ANSI_F", U'f', K::Character, 0},
    VirtualKey{kVK_ANSI_H, "ANSI_H", U'h', K::Character, 0},
    VirtualKey{kVK_ANSI_G, "ANSI_G", U'g', K::Character, 0},
    VirtualKey{kVK_ANSI_Z, "ANSI_Z", U'z', K::Character, 0},
    VirtualKey{kVK_ANSI_X, "ANSI_X", U'x', K::Character, 0},
    VirtualKey{kVK_ANSI_C, "ANSI_C", U'c', K::Character, 0},
    VirtualKey{kVK_ANSI_V, "ANSI_V", U'v', K::Character, 0},
    VirtualKey{kVK_ISO_Section, "ISO_Section", U'§', K::Character, 0},
    VirtualKey{kVK_ANSI_B, "ANSI_B", U'b', K::Character, 0},
    VirtualKey{kVK_ANSI_Q, "ANSI_Q", U'q', K::Character, 0},
    VirtualKey{kVK_ANSI_W, "ANSI_W", U'w', K::Character, 0},
    VirtualKey{kVK_ANSI_E, "ANSI_E", U'e', K::Character, 0},
    VirtualKey{kVK_ANSI_R, "ANSI_R", U'r', K::Character, 0},
    VirtualKey{kVK_ANSI_Y, "ANSI_Y", U'y', K::Character, 0},
    VirtualKey{kVK_ANSI_T, "ANSI_T", U't', K::Character, 0},
    VirtualKey{kVK_ANSI_1, "ANSI_1", U'1', K::Character, 0},
    VirtualKey{kVK_ANSI_2, "ANSI_2", U'2', K::Character, 0},
    VirtualKey{kVK_ANSI_3, "ANSI_3", U'3', K::Character, 0},
    VirtualKey{kVK_ANSI_4, "ANSI_4", U'4', K::Character, 0},
    VirtualKey{kVK_ANSI_6, "ANSI_6", U'6', K::Character, 0},
    VirtualKey{kVK_ANSI_5, "ANSI_5", U'5', K::Character, 0},
    VirtualKey{kVK_ANSI_Equal, "ANSI_Equal", U'=', K::Character, 0},
    VirtualKey{kVK_ANSI_9, "ANSI_9", U'9', K::Character, 0},
    VirtualKey{kVK_ANSI_7, "ANSI_7", U'7', K::Character, 0},
    VirtualKey{kVK_ANSI_Minus, "ANSI_Minus", U'-', K::Character, 0},
    VirtualKey{kVK_ANSI_8, "ANSI_8", U'8', K::Character, 0},
    VirtualKey{kVK_ANSI_0, "ANSI_0", U'0', K::Character, 0},
    VirtualKey{kVK_ANSI_RightBracket, "ANSI_RightBracket", U']', K::Character, 0},
    VirtualKey{kVK_ANSI_O, "ANSI_O", U'o', K::Character, 0},
    VirtualKey{kVK_ANSI_U, "ANSI_U", U'u', K::Character, 0},
    VirtualKey{kVK_ANSI_LeftBracket, "ANSI_LeftBracket", U'[', K::Character, 0},
    VirtualKey{kVK_ANSI_I, "ANSI_I", U'i', K::Character, 0},
    VirtualKey{kVK_ANSI_P, "ANSI_P", U'p', K::Character, 0},
    VirtualKey{kVK_Return, "Return", 0, K::Whitespace, 0},
    VirtualKey{kVK_ANSI_L, "ANSI_L", U'l', K::Character, 0},
    VirtualKey{kVK_ANSI_J, "ANSI_J", U'j', K::Character, 0},
    VirtualKey{kVK_ANSI_Quote, "ANSI_Quote", U'\'', K::Character, 0},
    VirtualKey{kVK_ANSI_K, "ANSI_K", U'k', K::Character, 0},
    VirtualKey{kVK_ANSI_Semicolon, "ANSI_Semicolon", U';', K::Character, 0},
    VirtualKey{kVK_ANSI_Backslash, "ANSI_Backslash", U'\\', K::Character, 0},
    VirtualKey{kVK_ANSI_Comma, "ANSI_Comma", U',', K::Character, 0},
    VirtualKey{kVK_ANSI_Slash, "ANSI_Slash", U'/', K::Character, 0},
    VirtualKey{kVK_ANSI_N, "ANSI_N", U'n', K::Character, 0},
    VirtualKey{kVK_ANSI_M, "ANSI_M", U'm', K::Character, 0},
    VirtualKey{kVK_ANSI_Period, "ANSI_Period", U'.', K::Character, 0},
    VirtualKey{kVK_Tab, "Tab", 0, K::Whitespace, 0},
    VirtualKey{kVK_Space, "Space", U' ', K::Whitespace, 0},
    VirtualKey{kVK_ANSI_Grave, "ANSI_Grave", U'`', K::Character, 0},
    VirtualKey{kVK_Delete, "Delete", 0, K::Editing, 0},
    VirtualKey{kVK_Escape, "Escape", 0, K::Editing, 0},
    VirtualKey{kVK_RightCommand, "RightCommand", 0, K::Modifier, 0},
    VirtualKey{kVK_Command, "Command", 0, K::Modifier, 0},
    VirtualKey{kVK_Shift, "Shift", 0, K::Modifier, 0},
    VirtualKey{kVK_CapsLock, "CapsLock", 0, K::Modifier, 0},
    VirtualKey{kVK_Option, "Option", 0, K::Modifier, 0},
    VirtualKey{kVK_Control, "Control", 0, K::Modifier, 0},
    VirtualKey{kVK_RightShift, "RightShift", 0, K::Modifier, 0},
    VirtualKey{kVK_RightOption, "RightOption", 0, K::Modifier, 0},
    VirtualKey{kVK_RightControl, "RightControl", 0, K::Modifier, 0},
    VirtualKey{kVK_Function, "Function", 0, K::Modifier, 0},
    VirtualKey{kVK_F17, "F17", 0, K::Function, kFn},
    VirtualKey{kVK_ANSI_KeypadDecimal, "ANSI_KeypadDecimal", U'.', K::Keypad, kPad},
    VirtualKey{kVK_ANSI_KeypadMultiply, "ANSI_KeypadMultiply", U'*', K::Keypad, kPad},
    VirtualKey{kVK_ANSI_KeypadPlus, "ANSI_KeypadPlus", U'+', K::Keypad, kPad},
    VirtualKey{kVK_ANSI_KeypadClear, "ANSI_KeypadClear", 0, K::Keypad, kPad},
    VirtualKey{kVK_VolumeUp, "VolumeUp", 0, K::Media, 0},
    VirtualKey{kVK_VolumeDown, "VolumeDown", 0, K::Media, 0},
    VirtualKey{kVK_Mute, "Mute", 0, K::Media, 0},
    VirtualKey{kVK_ANSI_KeypadDivide, "ANSI_KeypadDivide", U'/', K::Keypad, kPad},
    VirtualKey{kVK_ANSI_KeypadEnter, "ANSI_KeypadEnter", 0, K::Keypad, kPad},
    VirtualKey{kVK_ANSI_KeypadMinus, "ANSI_KeypadMinus", U'-', K::Keypad, kPad},
    VirtualKey{kVK_F18, "F18", 0, K::Function, kFn},
    VirtualKey{kVK_F19, "F19", 0, K::Function, kFn},
    VirtualKey{kVK_ANSI_KeypadEquals, "ANSI_KeypadEquals", U'=', K::Keypad, kPad},
    VirtualKey{kVK_ANSI_Keypad0, "ANSI_Keypad0", U'0', K::Keypad, kPad},
    VirtualKey{kVK_ANSI_Keypad1, "ANSI_Keypad1", U'1', K::Keypad, kPad},
    VirtualKey{kVK_ANSI_Keypad2, "ANSI_Keypad2", U'2', K::Keypad, kPad},
    VirtualKey{kVK_ANSI_Keypad3, "ANSI_Keypad3", U'3', K::Keypad, kPad},
    VirtualKey{kVK_ANSI_Keypad4, "ANSI_Keypad4", U'4', K::Keypad, kPad},
    VirtualKey{kVK_ANSI_Keypad5, "ANSI_Keypad5", U'5', K::Keypad, kPad},
    VirtualKey{kVK_ANSI_Keypad6, "ANSI_Keypad6", U'6', K::Keypad, kPad},
    VirtualKey{kVK_ANSI_Keypad7, "ANSI_Keypad7", U'7', K::Keypad, kPad},
    VirtualKey{kVK_F20, "F20", 0, K::Function, kFn},
    VirtualKey{kVK_ANSI_Keypad8, "ANSI_Keypad8", U'8', K::Keypad, kPad},
    VirtualKey{kVK_ANSI_Keypad9, "ANSI_Keypad9", U'9', K::Keypad, kPad},
    VirtualKey{kVK_JIS_Yen, "JIS_Yen", 0, K::Character, 0},
    VirtualKey{kVK_JIS_Underscore, "JIS_Underscore", 0, K::Character, 0},
    VirtualKey{kVK_JIS_KeypadComma, "JIS_KeypadComma", U',', K::Keypad, kPad},
    VirtualKey{kVK_F5, "F5", 0, K::Function, kFn},
    VirtualKey{kVK_F6, "F6", 0, K::Function, kFn},
    VirtualKey{kVK_F7, "F7", 0, K::Function, kFn},
    VirtualKey{kVK_F3, "F3", 0, K::Function, kFn},
    VirtualKey{kVK_F8, "F8", 0, K::Function, kFn},
    VirtualKey{kVK_F9, "F9", 0, K::Function, kFn},
    VirtualKey{kVK_JIS_Eisu, "JIS_Eisu", 0, K::Other, 0},
    VirtualKey{kVK_F11, "F11", 0, K::Function, kFn},
    VirtualKey{kVK_JIS_Kana, "JIS_Kana", 0, K::Other, 0},
    VirtualKey{kVK_F13, "F13", 0, K::Function, kFn},
    VirtualKey{kVK_F16, "F16", 0, K::Function, kFn},
    VirtualKey{kVK_F14, "F14", 0, K::Function, kFn},
    VirtualKey{kVK_F10, "F10", 0, K::Function, kFn},
    VirtualKey{kVK_ContextualMenu, "ContextualMenu", 0, K::Other, 0},
    VirtualKey{kVK_F12, "F12", 0, K::Function, kFn},
    VirtualKey{kVK_F15, "F15", 0, K::Function, kFn},
    VirtualKey{kVK_Help, "Help", 0, K::Editing, kFn},
    VirtualKey{kVK_Home, "Home", 0, K::Navigation, kFn},
    VirtualKey{kVK_PageUp, "PageUp", 0, K::Navigation, kFn},
    VirtualKey{kVK_ForwardDelete, "ForwardDelete", 0, K::Editing, kFn},
    VirtualKey{kVK_F4, "F4", 0, K::Function, kFn},
    VirtualKey{kVK_End, "End", 0, K::Navigation, kFn},
    VirtualKey{kVK_F2, "F2", 0, K::Function, kFn},
    VirtualKey{kVK_PageDown, "PageDown", 0, K::Navigation, kFn},
    VirtualKey{kVK_F1, "F1", 0, K::Function, kFn},
    VirtualKey{kVK_LeftArrow, "LeftArrow", 0, K::Navigation, kPad | kFn},
    VirtualKey{kVK_RightArrow, "RightArrow", 0, K::Navigation, kPad | kFn},
    VirtualKey{kVK_DownArrow, "DownArrow", 0, K::Navigation, kPad | kFn},
    VirtualKey{kVK_UpArrow, "UpArrow", 0, K::Navigation, kPad | kFn},
};
// clang-format on

static_assert(std::is_sorted(kTable.begin(), kTable.end(),
                             [](const VirtualKey& a, const VirtualKey& b) { return a.code < b.code; }),
              "the key table is searched by code");

}  // namespace

std::span<const VirtualKey> virtualKeyTable() { return kTable; }

std::optional<VirtualKey> virtualKey(CGKeyCode code) {
    auto it = std::lower_bound(kTable.begin(), kTable.end(), code,
                               [](const VirtualKey& key, CGKeyCode c) { return key.code < c; });
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
