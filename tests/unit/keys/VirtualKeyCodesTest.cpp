// The core's key vocabulary: the table that the adapters, the address bar and
// the shortcut recorder look keys up in.
#include <gtest/gtest.h>

#include <set>

#include "app/EventTap.h"
#include "keys/VirtualKeyCodes.h"

namespace jorvane {
namespace {

TEST(VirtualKeyCodes, everyCodeAndNameIsListedOnce) {
    std::set<KeyCode> codes;
    std::set<std::string_view> names;
    for (const VirtualKey& key : virtualKeyTable()) {
        EXPECT_TRUE(codes.insert(key.code).second) << key.name;
        EXPECT_TRUE(names.insert(key.name).second) << key.name;
        EXPECT_EQ(virtualKey(key.code)->name, key.name);
    }
}

TEST(VirtualKeyCodes, holesAndUnknownNamesFindNothing) {
    EXPECT_FALSE(virtualKey(0x34));
    EXPECT_FALSE(virtualKey(0x7F));
    EXPECT_FALSE(virtualKey(0xFFFF));
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

TEST(VirtualKeyCodes, impliedFlagsNeverTouchTheShortcutModifiers) {
    for (const VirtualKey& key : virtualKeyTable()) EXPECT_EQ(key.impliedFlags & kShortcutModifierMask, 0u) << key.name;
    EXPECT_EQ(virtualKey(kKeyUpArrow)->impliedFlags, kModifierNumericPad | kModifierFunction);
    EXPECT_EQ(virtualKey(kKeypad5)->impliedFlags, kModifierNumericPad);
    EXPECT_EQ(virtualKey(kKeyF1)->impliedFlags, kModifierFunction);
    EXPECT_EQ(virtualKey(kKeyG)->impliedFlags, 0u);
}

// The keypad's keys imply the keypad flag, the function keys Fn; the keys that
// type, the modifiers and the media keys imply nothing.
TEST(VirtualKeyCodes, impliedFlagsFollowTheKindOfKey) {
    using K = VirtualKeyKind;
    for (const VirtualKey& key : virtualKeyTable()) {
        switch (key.kind) {
            case K::Keypad: EXPECT_EQ(key.impliedFlags, kModifierNumericPad) << key.name; break;
            case K::Function: EXPECT_EQ(key.impliedFlags, kModifierFunction) << key.name; break;
            case K::Character:
            case K::Whitespace:
            case K::Modifier:
            case K::Media: EXPECT_EQ(key.impliedFlags, 0u) << key.name; break;
            default: break;
        }
    }
    EXPECT_EQ(virtualKey(kKeypad1)->usCharacter, U'1');
    EXPECT_EQ(virtualKey(kKeypadEnter)->name, "ANSI_KeypadEnter");
    EXPECT_EQ(virtualKey(kKeypadDecimal)->usCharacter, U'.');
}

}  // namespace
}  // namespace jorvane
