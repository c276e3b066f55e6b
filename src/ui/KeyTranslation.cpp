#include "ui/KeyTranslation.h"

#include <utility>

#include "ui/ByteText.h"

namespace jorvane::ui {

namespace {

struct QtKeyCode {
    int key;
    CGKeyCode code;
};

// Keys that type nothing, and the modifiers themselves.
// clang-format off
constexpr QtKeyCode kSpecialKeys[] = {
    {Qt::Key_Return, kVK_Return}, {Qt::Key_Enter, kVK_ANSI_KeypadEnter}, {Qt::Key_Tab, kVK_Tab},
    {Qt::Key_Backtab, kVK_Tab}, {Qt::Key_Space, kVK_Space}, {Qt::Key_Backspace, kVK_Delete},
    {Qt::Key_Delete, kVK_ForwardDelete}, {Qt::Key_Escape, kVK_Escape}, {Qt::Key_Insert, kVK_Help},
    {Qt::Key_Help, kVK_Help}, {Qt::Key_Home, kVK_Home}, {Qt::Key_End, kVK_End}, {Qt::Key_PageUp, kVK_PageUp},
    {Qt::Key_PageDown, kVK_PageDown}, {Qt::Key_Left, kVK_LeftArrow}, {Qt::Key_Right, kVK_RightArrow},
    {Qt::Key_Up, kVK_UpArrow}, {Qt::Key_Down, kVK_DownArrow}, {Qt::Key_Menu, kVK_ContextualMenu},
    {Qt::Key_Control, kVK_Command}, {Qt::Key_Shift, kVK_Shift}, {Qt::Key_Alt, kVK_Option},
    {Qt::Key_Meta, kVK_Control}, {Qt::Key_Super_L, kVK_Control}, {Qt::Key_Super_R, kVK_RightControl},
    {Qt::Key_CapsLock, kVK_CapsLock}, {Qt::Key_NumLock, kVK_ANSI_KeypadClear},
    {Qt::Key_VolumeUp, kVK_VolumeUp}, {Qt::Key_VolumeDown, kVK_VolumeDown}, {Qt::Key_VolumeMute, kVK_Mute},
    {Qt::Key_F1, kVK_F1}, {Qt::Key_F2, kVK_F2}, {Qt::Key_F3, kVK_F3}, {Qt::Key_F4, kVK_F4},
    {Qt::Key_F5, kVK_F5}, {Qt::Key_F6, kVK_F6}, {Qt::Key_F7, kVK_F7}, {Qt::Key_F8, kVK_F8},
    {Qt::Key_F9, kVK_F9}, {Qt::Key_F10, kVK_F10}, {Qt::Key_F11, kVK_F11}, {Qt::Key_F12, kVK_F12},
    {Qt::Key_F13, kVK_F13}, {Qt::Key_F14, kVK_F14}, {Qt::Key_F15, kVK_F15}, {Qt::Key_F16, kVK_F16},
    {Qt::Key_F17, kVK_F17}, {Qt::Key_F18, kVK_F18}, {Qt::Key_F19, kVK_F19}, {Qt::Key_F20, kVK_F20},
};

// The keypad (Qt adds KeypadModifier): digits with Num Lock on, the
// navigation keys with it off, as the first-level keysyms of X do.
constexpr QtKeyCode kKeypadKeys[] = {
    {Qt::Key_0, kVK_ANSI_Keypad0}, {Qt::Key_Insert, kVK_ANSI_Keypad0},
    {Qt::Key_1, kVK_ANSI_Keypad1}, {Qt::Key_End, kVK_ANSI_Keypad1},
    {Qt::Key_2, kVK_ANSI_Keypad2}, {Qt::Key_Down, kVK_ANSI_Keypad2},
    {Qt::Key_3, kVK_ANSI_Keypad3}, {Qt::Key_PageDown, kVK_ANSI_Keypad3},
    {Qt::Key_4, kVK_ANSI_Keypad4}, {Qt::Key_Left, kVK_ANSI_Keypad4},
    {Qt::Key_5, kVK_ANSI_Keypad5}, {Qt::Key_Clear, kVK_ANSI_Keypad5},
    {Qt::Key_6, kVK_ANSI_Keypad6}, {Qt::Key_Right, kVK_ANSI_Keypad6},
    {Qt::Key_7, kVK_ANSI_Keypad7}, {Qt::Key_Home, kVK_ANSI_Keypad7},
    {Qt::Key_8, kVK_ANSI_Keypad8}, {Qt::Key_Up, kVK_ANSI_Keypad8},
    {Qt::Key_9, kVK_ANSI_Keypad9}, {Qt::Key_PageUp, kVK_ANSI_Keypad9},
    {Qt::Key_Period, kVK_ANSI_KeypadDecimal}, {Qt::Key_Comma, kVK_ANSI_KeypadDecimal},
    {Qt::Key_Delete, kVK_ANSI_KeypadDecimal}, {Qt::Key_Enter, kVK_ANSI_KeypadEnter},
    {Qt::Key_Equal, kVK_ANSI_KeypadEquals}, {Qt::Key_Slash, kVK_ANSI_KeypadDivide},
    {Qt::Key_Asterisk, kVK_ANSI_KeypadMultiply}, {Qt::Key_Minus, kVK_ANSI_KeypadMinus},
    {Qt::Key_Plus, kVK_ANSI_KeypadPlus},
};
// clang-format on

// What Shift gives on the US layout, back to the key's own character.
constexpr std::pair<char, char> kShiftedUS[] = {
    {'!', '1'}, {'@', '2'}, {'#', '3'}, {'$', '4'}, {'%', '5'}, {'^', '6'}, {'&', '7'},
    {'*', '8'}, {'(', '9'}, {')', '0'}, {'_', '-'}, {'+', '='}, {'{', '['}, {'}', ']'},
    {'|', '\\'}, {':', ';'}, {'"', '\''}, {'<', ','}, {'>', '.'}, {'?', '/'}, {'~', '`'},
};

std::optional<CGKeyCode> lookUp(const auto& table, int key) {
    for (const QtKeyCode& entry : table) {
        if (entry.key == key) return entry.code;
    }
    return std::nullopt;
}

constexpr Qt::KeyboardModifiers kShortcutModifiers =
    Qt::ShiftModifier | Qt::ControlModifier | Qt::AltModifier | Qt::MetaModifier;

}  // namespace

CGEventFlags flagsForQtModifiers(Qt::KeyboardModifiers modifiers) {
    CGEventFlags flags = 0;
    if (modifiers & Qt::ShiftModifier) flags |= kCGEventFlagMaskShift;
    if (modifiers & Qt::ControlModifier) flags |= kCGEventFlagMaskCommand;
    if (modifiers & Qt::MetaModifier) flags |= kCGEventFlagMaskControl;
    if (modifiers & Qt::AltModifier) flags |= kCGEventFlagMaskAlternate;
    if (modifiers & Qt::KeypadModifier) flags |= kCGEventFlagMaskNumericPad;
    return flags;
}

std::optional<CGKeyCode> keyCodeForQtKey(int key, Qt::KeyboardModifiers modifiers) {
    if (modifiers & Qt::KeypadModifier) {
        if (std::optional<CGKeyCode> code = lookUp(kKeypadKeys, key)) return code;
    }
    if (std::optional<CGKeyCode> code = lookUp(kSpecialKeys, key)) return code;
    if (key < 0x21 || key > 0x7E) return std::nullopt;
    // Printable ASCII: Qt's letter keys are upper case.
    char character = static_cast<char>(key);
    if (character >= 'A' && character <= 'Z') character = static_cast<char>(character - 'A' + 'a');
    for (const auto& [shifted, plain] : kShiftedUS) {
        if (character == shifted) character = plain;
    }
    if (std::optional<VirtualKey> virtualKey = virtualKeyForUSCharacter(static_cast<char32_t>(character)))
        return virtualKey->code;
    return std::nullopt;
}

std::optional<KeyEvent> keyEventFor(const QKeyEvent& event, const NativeKeyCodes& native) {
    std::optional<CGKeyCode> code;
    if (native && event.nativeScanCode() != 0) code = native(event.nativeScanCode(), event.nativeModifiers());
    if (!code) code = keyCodeForQtKey(event.key(), event.modifiers());
    if (!code) return std::nullopt;

    KeyEvent result;
    result.keyCode = *code;
    result.modifierFlags = flagsForQtModifiers(event.modifiers());
    if (std::optional<VirtualKey> key = virtualKey(*code)) result.modifierFlags |= key->impliedFlags;
    result.characters = toBytes(event.text());
    return result;
}

TextCommand textCommandFor(int key, Qt::KeyboardModifiers modifiers) {
    const Qt::KeyboardModifiers mods = modifiers & kShortcutModifiers;
    const bool plain = mods == Qt::NoModifier;
    switch (key) {
        case Qt::Key_Down:
            if (plain) return TextCommand::moveDown;
            if (mods == Qt::ControlModifier) return TextCommand::moveToEndOfDocument;
            break;
        case Qt::Key_Up:
            if (plain) return TextCommand::moveUp;
            if (mods == Qt::ControlModifier) return TextCommand::moveToBeginningOfDocument;
            break;
        case Qt::Key_Return:
        case Qt::Key_Enter:
            if (plain || mods == Qt::ShiftModifier) return TextCommand::insertNewline;
            break;
        case Qt::Key_Tab:
            if (plain) return TextCommand::insertTab;
            if (mods == Qt::ShiftModifier) return TextCommand::insertBacktab;
            break;
        case Qt::Key_Backtab:
            // Qt reports Shift+Tab as Backtab, with Shift still held.
            if (plain || mods == Qt::ShiftModifier) return TextCommand::insertBacktab;
            break;
        case Qt::Key_Escape:
            if (plain) return TextCommand::cancelOperation;
            break;
        default:
            break;
    }
    return TextCommand::other;
}

}  // namespace jorvane::ui
