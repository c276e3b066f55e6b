// Qt key presses in the core's vocabulary, and the editing commands the field
// hands to its controller. (The X key code winning over Qt's key on a German
// layout is the whole-program hidden-files test's.)
#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "ui/KeyTranslation.h"

namespace jorvane::ui {
namespace {

constexpr Qt::KeyboardModifiers kNone = Qt::NoModifier;
constexpr Qt::KeyboardModifiers kCtrl = Qt::ControlModifier;
constexpr Qt::KeyboardModifiers kShift = Qt::ShiftModifier;
constexpr Qt::KeyboardModifiers kCtrlShift = Qt::ControlModifier | Qt::ShiftModifier;
constexpr Qt::KeyboardModifiers kKeypad = Qt::KeypadModifier;

struct KeyCase {
    const char* name;
    int key;
    Qt::KeyboardModifiers modifiers;
    const char* text;
    std::optional<KeyCode> code;
    Modifiers shortcutFlags;  // masked with the four shortcut modifiers
};

std::ostream& operator<<(std::ostream& out, const KeyCase& c) { return out << c.name; }

class QtKeys : public ::testing::TestWithParam<KeyCase> {};

TEST_P(QtKeys, becomeThisCoreKeyEvent) {
    const KeyCase& c = GetParam();
    const QKeyEvent event(QEvent::KeyPress, c.key, c.modifiers, QString::fromUtf8(c.text));
    const std::optional<KeyEvent> core = keyEventFor(event);
    ASSERT_EQ(core.has_value(), c.code.has_value());
    if (!core) return;
    EXPECT_EQ(core->keyCode, *c.code);
    EXPECT_EQ(core->modifierFlags & kShortcutModifierMask, c.shortcutFlags);
    EXPECT_EQ(core->characters, c.text);
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(KeyTranslation, QtKeys, ::testing::Values(
    KeyCase{"Ctrl_G_is_Command_G", Qt::Key_G, kCtrl, "\x07", kKeyG, kModifierCommand},
    KeyCase{"Letters_are_named_in_upper_case_by_Qt_and_lower_by_the_table", Qt::Key_W, kNone, "w", kKeyW, 0},
    KeyCase{"Ctrl_Return_is_Command_Return", Qt::Key_Return, kCtrl, "\r", kKeyReturn, kModifierCommand},
    KeyCase{"Keypad_Enter_is_its_own_key", Qt::Key_Enter, kKeypad, "\r", kKeypadEnter, 0},
    KeyCase{"Ctrl_Shift_period_arrives_as_greater_and_goes_back_to_period",
            Qt::Key_Greater, kCtrlShift, "", kKeyPeriod, kModifierCommand | kModifierShift},
    KeyCase{"Shift_1_arrives_as_exclamation_mark_and_stays_key_1", Qt::Key_Exclam, kShift, "!", kKey1,
            kModifierShift},
    KeyCase{"Ctrl_1_is_key_1_not_the_keypad", Qt::Key_1, kCtrl, "1", kKey1, kModifierCommand},
    KeyCase{"Keypad_1_is_the_keypad", Qt::Key_1, kKeypad, "1", kKeypad1, 0},
    KeyCase{"Keypad_End_without_Num_Lock_is_still_keypad_1", Qt::Key_End, kKeypad, "", kKeypad1, 0},
    KeyCase{"Shift_Tab_arrives_as_Backtab_and_is_Tab_with_Shift", Qt::Key_Backtab, kShift, "", kKeyTab,
            kModifierShift},
    KeyCase{"Super_is_Control", Qt::Key_H, Qt::MetaModifier, "h", kKeyH, kModifierControl},
    KeyCase{"Alt_is_Option", Qt::Key_H, Qt::AltModifier, "h", kKeyH, kModifierOption},
    KeyCase{"Backspace_is_Delete", Qt::Key_Backspace, kNone, "\b", kKeyDelete, 0},
    KeyCase{"Delete_is_Forward_Delete", Qt::Key_Delete, kNone, "", kKeyForwardDelete, 0},
    KeyCase{"Insert_is_Help", Qt::Key_Insert, kNone, "", kKeyHelp, 0},
    KeyCase{"F5_is_F5", Qt::Key_F5, kNone, "", kKeyF5, 0},
    KeyCase{"A_non_Latin_letter_has_no_US_key", Qt::Key_Ccedilla, kNone, "\xC3\xA7", std::nullopt, 0},
    KeyCase{"A_media_key_has_no_code", Qt::Key_MediaPlay, kNone, "", std::nullopt, 0}),
    [](const auto& row) { return std::string(row.param.name); });
// clang-format on

TEST(KeyTranslation, arrowsAndFunctionKeysCarryTheirImpliedFlags) {
    const std::optional<KeyEvent> up = keyEventFor(QKeyEvent(QEvent::KeyPress, Qt::Key_Up, Qt::ControlModifier));
    ASSERT_TRUE(up);
    EXPECT_EQ(up->modifierFlags, kModifierCommand | kModifierNumericPad | kModifierFunction);
}

struct CommandCase {
    const char* name;
    int key;
    Qt::KeyboardModifiers modifiers;
    TextCommand command;
};

std::ostream& operator<<(std::ostream& out, const CommandCase& c) { return out << c.name; }

class EditingCommands : public ::testing::TestWithParam<CommandCase> {};

TEST_P(EditingCommands, areThese) {
    const CommandCase& c = GetParam();
    EXPECT_EQ(textCommandFor(c.key, c.modifiers), c.command);
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(KeyTranslation, EditingCommands, ::testing::Values(
    CommandCase{"Down_moves_down", Qt::Key_Down, kNone, TextCommand::moveDown},
    CommandCase{"Keypad_Down_moves_down_too", Qt::Key_Down, kKeypad, TextCommand::moveDown},
    CommandCase{"Up_moves_up", Qt::Key_Up, kNone, TextCommand::moveUp},
    CommandCase{"Ctrl_Up_goes_to_the_beginning", Qt::Key_Up, kCtrl, TextCommand::moveToBeginningOfDocument},
    CommandCase{"Ctrl_Down_goes_to_the_end", Qt::Key_Down, kCtrl, TextCommand::moveToEndOfDocument},
    CommandCase{"Shift_Down_extends_the_selection_in_the_field", Qt::Key_Down, kShift, TextCommand::other},
    CommandCase{"Return_inserts_a_newline", Qt::Key_Return, kNone, TextCommand::insertNewline},
    CommandCase{"Enter_inserts_a_newline", Qt::Key_Enter, kKeypad, TextCommand::insertNewline},
    CommandCase{"Shift_Return_inserts_a_newline", Qt::Key_Return, kShift, TextCommand::insertNewline},
    CommandCase{"Alt_Return_is_left_to_the_field", Qt::Key_Return, Qt::AltModifier, TextCommand::other},
    CommandCase{"Tab_inserts_a_tab", Qt::Key_Tab, kNone, TextCommand::insertTab},
    CommandCase{"Backtab_inserts_a_backtab", Qt::Key_Backtab, kShift, TextCommand::insertBacktab},
    CommandCase{"Shift_Tab_as_Tab_inserts_a_backtab", Qt::Key_Tab, kShift, TextCommand::insertBacktab},
    CommandCase{"Escape_cancels", Qt::Key_Escape, kNone, TextCommand::cancelOperation},
    CommandCase{"Ctrl_Escape_is_left_to_the_field", Qt::Key_Escape, kCtrl, TextCommand::other},
    CommandCase{"Left_is_left_to_the_field", Qt::Key_Left, kNone, TextCommand::other},
    CommandCase{"A_letter_is_left_to_the_field", Qt::Key_A, kNone, TextCommand::other}),
    [](const auto& row) { return std::string(row.param.name); });
// clang-format on

}  // namespace
}  // namespace jorvane::ui
