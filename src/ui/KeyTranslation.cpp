#include "ui/KeyTranslation.h"

#include <utility>

#include "ui/ByteText.h"

namespace jorvane::ui {

namespace {

struct QtKeyCode {
    int key;
    KeyCode code;
};

// Keys that type nothing, and the modifiers themselves.
// clang-format off
constexpr QtKeyCode kSpecialKeys[] = {
    {Qt::Key_Return, kKeyReturn}, {Qt::Key_Enter, kKeypadEnter}, {Qt::Key_Tab, kKeyTab},
    {Qt::Key_Backtab, kKeyTab}, {Qt::Key_Space, kKeySpace}, {Qt::Key_Backspace, kKeyDelete},
    {Qt::Key_Delete, kKeyForwardDelete}, {Qt::Key_Escape, kKeyEscape}, {Qt::Key_Insert, kKeyHelp},
    {Qt::Key_Help, kKeyHelp}, {Qt::Key_Home, kKeyHome}, {Qt::Key_End, kKeyEnd}, {Qt::Key_PageUp, kKeyPageUp},
    {Qt::Key_PageDown, kKeyPageDown}, {Qt::Key_Left, kKeyLeftArrow}, {Qt::Key_Right, kKeyRightArrow},
    {Qt::Key_Up, kKeyUpArrow}, {Qt::Key_Down, kKeyDownArrow}, {Qt::Key_Menu, kKeyContextualMenu},
    {Qt::Key_Control, kKeyCommand}, {Qt::Key_Shift, kKeyShift}, {Qt::Key_Alt, kKeyOption},
    {Qt::Key_Meta, kKeyControl}, {Qt::Key_Super_L, kKeyControl}, {Qt::Key_Super_R, kKeyRightControl},
    {Qt::Key_CapsLock, kKeyCapsLock}, {Qt::Key_NumLock, kKeypadClear},
    {Qt::Key_VolumeUp, kKeyVolumeUp}, {Qt::Key_VolumeDown, kKeyVolumeDown}, {Qt::Key_VolumeMute, kKeyMute},
    {Qt::Key_F1, kKeyF1}, {Qt::Key_F2, kKeyF2}, {Qt::Key_F3, kKeyF3}, {Qt::Key_F4, kKeyF4},
    {Qt::Key_F5, kKeyF5}, {Qt::Key_F6, kKeyF6}, {Qt::Key_F7, kKeyF7}, {Qt::Key_F8, kKeyF8},
    {Qt::Key_F9, kKeyF9}, {Qt::Key_F10, kKeyF10}, {Qt::Key_F11, kKeyF11}, {Qt::Key_F12, kKeyF12},
    {Qt::Key_F13, kKeyF13}, {Qt::Key_F14, kKeyF14}, {Qt::Key_F15, kKeyF15}, {Qt::Key_F16, kKeyF16},
    {Qt::Key_F17, kKeyF17}, {Qt::Key_F18, kKeyF18}, {Qt::Key_F19, kKeyF19}, {Qt::Key_F20, kKeyF20},
};

// The keypad (Qt adds KeypadModifier): digits with Num Lock on, the
// navigation keys with it off, as the first-level keysyms of X do.
constexpr QtKeyCode kKeypadKeys[] = {
    {Qt::Key_0, kKeypad0}, {Qt::Key_Insert, kKeypad0},
    {Qt::Key_1, kKeypad1}, {Qt::Key_End, kKeypad1},
    {Qt::Key_2, kKeypad2}, {Qt::Key_Down, kKeypad2},
    {Qt::Key_3, kKeypad3}, {Qt::Key_PageDown, kKeypad3},
    {Qt::Key_4, kKeypad4}, {Qt::Key_Left, kKeypad4},
    {Qt::Key_5, kKeypad5}, {Qt::Key_Clear, kKeypad5},
    {Qt::Key_6, kKeypad6}, {Qt::Key_Right, kKeypad6},
    {Qt::Key_7, kKeypad7}, {Qt::Key_Home, kKeypad7},
    {Qt::Key_8, kKeypad8}, {Qt::Key_Up, kKeypad8},
    {Qt::Key_9, kKeypad9}, {Qt::Key_PageUp, kKeypad9},
    {Qt::Key_Period, kKeypadDecimal}, {Qt::Key_Comma, kKeypadDecimal},
    {Qt::Key_Delete, kKeypadDecimal}, {Qt::Key_Enter, kKeypadEnter},
    {Qt::Key_Equal, kKeypadEquals}, {Qt::Key_Slash, kKeypadDivide},
    {Qt::Key_Asterisk, kKeypadMultiply}, {Qt::Key_Minus, kKeypadMinus},
    {Qt::Key_Plus, kKeypadPlus},
};
// clang-format on

// What Shift gives on the US layout, back to the key's own character.
constexpr std::pair<char, char> kShiftedUS[] = {
    {'!', '1'},  {'@', '2'}, {'#', '3'},  {'$', '4'}, {'%', '5'}, {'^', '6'}, {'&', '7'},
    {'*', '8'},  {'(', '9'}, {')', '0'},  {'_', '-'}, {'+', '='}, {'{', '['}, {'}', ']'},
    {'|', '\\'}, {':', ';'}, {'"', '\''}, {'<', ','}, {'>', '.'}, {'?', '/'}, {'~', '`'},
};

std::optional<KeyCode> lookUp(const auto& table, int key) {
    for (const QtKeyCode& entry : table) {
        if (entry.key == key) return entry.code;
    }
    return std::nullopt;
}

constexpr Qt::KeyboardModifiers kShortcutModifiers =
    Qt::ShiftModifier | Qt::ControlModifier | Qt::AltModifier | Qt::MetaModifier;

}  // namespace

Modifiers flagsForQtModifiers(Qt::KeyboardModifiers modifiers) {
    Modifiers flags = 0;
    if (modifiers & Qt::ShiftModifier) flags |= kModifierShift;
    if (modifiers & Qt::ControlModifier) flags |= kModifierCommand;
    if (modifiers & Qt::MetaModifier) flags |= kModifierControl;
    if (modifiers & Qt::AltModifier) flags |= kModifierOption;
    if (modifiers & Qt::KeypadModifier) flags |= kModifierNumericPad;
    return flags;
}

std::optional<KeyCode> keyCodeForQtKey(int key, Qt::KeyboardModifiers modifiers) {
    if (modifiers & Qt::KeypadModifier) {
        if (std::optional<KeyCode> code = lookUp(kKeypadKeys, key)) return code;
    }
    if (std::optional<KeyCode> code = lookUp(kSpecialKeys, key)) return code;
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
    std::optional<KeyCode> code;
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
        default: break;
    }
    return TextCommand::other;
}

}  // namespace jorvane::ui
