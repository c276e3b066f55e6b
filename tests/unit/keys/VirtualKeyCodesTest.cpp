// The core's key vocabulary, which the adapters, the address bar and the shortcut recorder look keys up in.
#include <gtest/gtest.h>

#include <set>

#include "keys/VirtualKeyCodes.h"

namespace jorvane {
namespace {

TEST(VirtualKeyCodes, everyCodeAndNameIsListedOnceAndHolesFindNothing) {
    std::set<KeyCode> codes;
    std::set<std::string_view> names;
    for (const VirtualKey& key : virtualKeyTable()) {
        EXPECT_TRUE(codes.insert(key.code).second) << key.name;
        EXPECT_TRUE(names.insert(key.name).second) << key.name;
        EXPECT_EQ(virtualKey(key.code)->name, key.name);
    }
    for (KeyCode hole : {0x34, 0x7F, 0xFFFF}) EXPECT_FALSE(virtualKey(hole)) << hole;
}

TEST(VirtualKeyCodes, charactersFindTheirMainKeyInEitherCase) {
    EXPECT_EQ(virtualKeyForUSCharacter(U'g')->code, kKeyG);
    EXPECT_EQ(virtualKeyForUSCharacter(U'G')->code, kKeyG);
    EXPECT_EQ(virtualKeyForUSCharacter(U'.')->code, kKeyPeriod) << "not the keypad's decimal point";
    EXPECT_EQ(virtualKeyForUSCharacter(U'1')->code, kKey1) << "not the keypad's 1";
    EXPECT_EQ(virtualKeyForUSCharacter(U' ')->code, kKeySpace);
    EXPECT_FALSE(virtualKeyForUSCharacter(U'!')) << "Shift+1 is not a key of its own";
    EXPECT_FALSE(virtualKeyForUSCharacter(U'ß'));
    EXPECT_FALSE(virtualKeyForUSCharacter(0));
}

// Keypad keys imply the keypad flag, function keys Fn, arrows both; typing, modifier, media and other keys nothing.
TEST(VirtualKeyCodes, impliedFlagsFollowTheKindOfKeyAndNeverTouchTheShortcutModifiers) {
    using K = VirtualKeyKind;
    for (const VirtualKey& key : virtualKeyTable()) {
        EXPECT_EQ(key.impliedFlags & kShortcutModifierMask, 0u) << key.name;
        const bool typesOrModifies = key.kind == K::Character || key.kind == K::Whitespace || key.kind == K::Modifier ||
                                     key.kind == K::Media || key.kind == K::Other;
        const std::optional<Modifiers> implied = key.kind == K::Keypad     ? std::optional(kModifierNumericPad)
                                                 : key.kind == K::Function ? std::optional(kModifierFunction)
                                                 : typesOrModifies         ? std::optional(Modifiers{0})
                                                                           : std::nullopt;
        EXPECT_EQ(key.impliedFlags, implied.value_or(key.impliedFlags)) << key.name;
        EXPECT_TRUE(key.kind != K::Navigation || (key.impliedFlags & kModifierFunction)) << key.name;
        // Only the keys that type, the keypad's and Space, Return or Tab have a character.
        const bool types = key.kind == K::Character || key.kind == K::Whitespace || key.kind == K::Keypad;
        EXPECT_TRUE(types || key.usCharacter == 0) << key.name;
    }
    for (KeyCode arrow : {kKeyLeftArrow, kKeyRightArrow, kKeyDownArrow, kKeyUpArrow})
        EXPECT_EQ(virtualKey(arrow)->impliedFlags, kModifierNumericPad | kModifierFunction) << arrow;
    for (KeyCode key : {kKeyDelete, kKeyEscape}) EXPECT_EQ(virtualKey(key)->impliedFlags, 0u) << key;
}

// Every key of the numeric keypad by its code: its name and what it types.
TEST(VirtualKeyCodes, theKeypadsKeysAreNamedAndTypeTheirCharacter) {
    struct Row {
        KeyCode code;
        std::string_view name;
        char32_t character;
    };
    // clang-format off
    const Row rows[] = {
        {0x41, "ANSI_KeypadDecimal", U'.'}, {0x43, "ANSI_KeypadMultiply", U'*'}, {0x45, "ANSI_KeypadPlus", U'+'},
        {0x47, "ANSI_KeypadClear", 0}, {0x4B, "ANSI_KeypadDivide", U'/'}, {0x4C, "ANSI_KeypadEnter", 0},
        {0x4E, "ANSI_KeypadMinus", U'-'}, {0x51, "ANSI_KeypadEquals", U'='}, {0x52, "ANSI_Keypad0", U'0'},
        {0x53, "ANSI_Keypad1", U'1'}, {0x54, "ANSI_Keypad2", U'2'}, {0x55, "ANSI_Keypad3", U'3'},
        {0x56, "ANSI_Keypad4", U'4'}, {0x57, "ANSI_Keypad5", U'5'}, {0x58, "ANSI_Keypad6", U'6'},
        {0x59, "ANSI_Keypad7", U'7'}, {0x5B, "ANSI_Keypad8", U'8'}, {0x5C, "ANSI_Keypad9", U'9'},
        {0x5F, "JIS_KeypadComma", U','},
    };
    // clang-format on
    std::size_t keypadKeys = 0;
    for (const VirtualKey& key : virtualKeyTable()) keypadKeys += key.kind == VirtualKeyKind::Keypad;
    EXPECT_EQ(keypadKeys, std::size(rows));
    for (const Row& row : rows) {
        const std::optional<VirtualKey> key = virtualKey(row.code);
        ASSERT_TRUE(key) << row.name;
        EXPECT_EQ(key->name, row.name);
        EXPECT_EQ(key->usCharacter, row.character) << row.name;
        EXPECT_EQ(key->kind, VirtualKeyKind::Keypad) << row.name;
    }
}

}  // namespace
}  // namespace jorvane
