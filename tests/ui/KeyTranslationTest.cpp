// Qt key presses in the core's vocabulary, and the editing commands the field
// hands to its controller. (The X key code winning over Qt's key on a German
// layout is the whole-program hidden-files test's.)
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <tuple>

#include "ui/KeyTranslation.h"

namespace jorvane::ui {
namespace {

constexpr Qt::KeyboardModifiers kNone = Qt::NoModifier;
constexpr Qt::KeyboardModifiers kCtrl = Qt::ControlModifier;
constexpr Qt::KeyboardModifiers kShift = Qt::ShiftModifier;
constexpr Qt::KeyboardModifiers kCtrlShift = Qt::ControlModifier | Qt::ShiftModifier;
constexpr Qt::KeyboardModifiers kKeypad = Qt::KeypadModifier;

TEST(KeyTranslation, qtKeysBecomeThisCoreKeyEvent) {
    struct Row {
        const char* name;
        int key;
        Qt::KeyboardModifiers modifiers;
        const char* text;
        std::optional<KeyCode> code;
        Modifiers shortcutFlags;  // masked with the four shortcut modifiers
    };
    // clang-format off
    const Row rows[] = {
        {"Ctrl+G is Command+G", Qt::Key_G, kCtrl, "\x07", kKeyG, kModifierCommand},
        {"letters: upper case in Qt, lower in the table", Qt::Key_W, kNone, "w", kKeyW, 0},
        {"Ctrl+Return", Qt::Key_Return, kCtrl, "\r", kKeyReturn, kModifierCommand},
        {"keypad Enter is its own key", Qt::Key_Enter, kKeypad, "\r", kKeypadEnter, 0},
        {"Ctrl+Shift+. arrives as > and goes back to .", Qt::Key_Greater, kCtrlShift, "", kKeyPeriod, kModifierCommand | kModifierShift},
        {"Shift+1 arrives as ! and stays key 1", Qt::Key_Exclam, kShift, "!", kKey1, kModifierShift},
        {"Ctrl+1 is not the keypad", Qt::Key_1, kCtrl, "1", kKey1, kModifierCommand},
        {"keypad 1", Qt::Key_1, kKeypad, "1", kKeypad1, 0},
        {"keypad End without Num Lock is keypad 1", Qt::Key_End, kKeypad, "", kKeypad1, 0},
        {"Shift+Tab arrives as Backtab", Qt::Key_Backtab, kShift, "", kKeyTab, kModifierShift},
        {"Super is Control", Qt::Key_H, Qt::MetaModifier, "h", kKeyH, kModifierControl},
        {"Alt is Option", Qt::Key_H, Qt::AltModifier, "h", kKeyH, kModifierOption},
        {"Backspace is Delete", Qt::Key_Backspace, kNone, "\b", kKeyDelete, 0},
        {"Delete is forward delete", Qt::Key_Delete, kNone, "", kKeyForwardDelete, 0},
        {"Insert is Help", Qt::Key_Insert, kNone, "", kKeyHelp, 0},
        {"a non-Latin letter has no US key", Qt::Key_Ccedilla, kNone, "\xC3\xA7", std::nullopt, 0},
        {"a media key has no code", Qt::Key_MediaPlay, kNone, "", std::nullopt, 0},
    };
    // clang-format on
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const std::optional<KeyEvent> core =
            keyEventFor(QKeyEvent(QEvent::KeyPress, row.key, row.modifiers, QString::fromUtf8(row.text)));
        ASSERT_EQ(core.has_value(), row.code.has_value());
        if (!core) continue;
        EXPECT_EQ(core->keyCode, *row.code);
        EXPECT_EQ(core->modifierFlags & kShortcutModifierMask, row.shortcutFlags);
        EXPECT_EQ(core->characters, row.text);
    }
}

TEST(KeyTranslation, arrowsAndFunctionKeysCarryTheirImpliedFlags) {
    const std::optional<KeyEvent> up = keyEventFor(QKeyEvent(QEvent::KeyPress, Qt::Key_Up, Qt::ControlModifier));
    ASSERT_TRUE(up);
    EXPECT_EQ(up->modifierFlags, kModifierCommand | kModifierNumericPad | kModifierFunction);
}

TEST(KeyTranslation, editingCommandsAreThese) {
    // clang-format off
    const std::tuple<int, Qt::KeyboardModifiers, TextCommand> rows[] = {
        {Qt::Key_Down, kNone, TextCommand::moveDown}, {Qt::Key_Down, kKeypad, TextCommand::moveDown},
        {Qt::Key_Up, kNone, TextCommand::moveUp}, {Qt::Key_Up, kCtrl, TextCommand::moveToBeginningOfDocument},
        {Qt::Key_Down, kCtrl, TextCommand::moveToEndOfDocument}, {Qt::Key_Down, kShift, TextCommand::other},
        {Qt::Key_Return, kNone, TextCommand::insertNewline}, {Qt::Key_Enter, kKeypad, TextCommand::insertNewline},
        {Qt::Key_Return, kShift, TextCommand::insertNewline}, {Qt::Key_Return, Qt::AltModifier, TextCommand::other},
        {Qt::Key_Tab, kNone, TextCommand::insertTab}, {Qt::Key_Backtab, kShift, TextCommand::insertBacktab},
        {Qt::Key_Tab, kShift, TextCommand::insertBacktab}, {Qt::Key_Escape, kNone, TextCommand::cancelOperation},
        {Qt::Key_Escape, kCtrl, TextCommand::other}, {Qt::Key_Left, kNone, TextCommand::other},
        {Qt::Key_A, kNone, TextCommand::other},
    };
    // clang-format on
    for (const auto& [key, modifiers, command] : rows)
        EXPECT_EQ(textCommandFor(key, modifiers), command) << "key " << key << " modifiers " << modifiers.toInt();
}

}  // namespace
}  // namespace jorvane::ui
