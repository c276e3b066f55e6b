// The core's key vocabulary: the table that the adapters, the address bar and
// the shortcut recorder look keys up in.
#include <gtest/gtest.h>

#include <set>

#include "app/EventTap.h"
#include "app/VirtualKeyCodes.h"

namespace jorvane {
namespace {

TEST(VirtualKeyCodes, everyCodeAndNameIsListedOnce) {
    std::set<CGKeyCode> codes;
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
    EXPECT_EQ(virtualKeyForUSCharacter(U'g')->code, kVK_ANSI_G);
    EXPECT_EQ(virtualKeyForUSCharacter(U'G')->code, kVK_ANSI_G);
    EXPECT_EQ(virtualKeyForUSCharacter(U'.')->code, kVK_ANSI_Period) << "not the keypad's decimal point";
    EXPECT_EQ(virtualKeyForUSCharacter(U'1')->code, kVK_ANSI_1) << "not the keypad's 1";
    EXPECT_EQ(virtualKeyForUSCharacter(U' ')->code, kVK_Space);
    EXPECT_FALSE(virtualKeyForUSCharacter(U'!')) << "Shift+1 is not a key of its own";
    EXPECT_FALSE(virtualKeyForUSCharacter(U'ß'));
    EXPECT_FALSE(virtualKeyForUSCharacter(0));
}

TEST(VirtualKeyCodes, impliedFlagsNeverTouchTheShortcutModifiers) {
    for (const VirtualKey& key : virtualKeyTable()) EXPECT_EQ(key.impliedFlags & kShortcutModifierMask, 0u) << key.name;
    EXPECT_EQ(virtualKey(kVK_UpArrow)->impliedFlags, kCGEventFlagMaskNumericPad | kCGEventFlagMaskSecondaryFn);
    EXPECT_EQ(virtualKey(kVK_ANSI_Keypad5)->impliedFlags, kCGEventFlagMaskNumericPad);
    EXPECT_EQ(virtualKey(kVK_F1)->impliedFlags, kCGEventFlagMaskSecondaryFn);
    EXPECT_EQ(virtualKey(kVK_ANSI_G)->impliedFlags, 0u);
}

// The keypad's keys imply the keypad flag, the function keys Fn; the keys that
// type, the modifiers and the media keys imply nothing.
TEST(VirtualKeyCodes, impliedFlagsFollowTheKindOfKey) {
    using K = VirtualKeyKind;
    for (const VirtualKey& key : virtualKeyTable()) {
        switch (key.kind) {
            case K::Keypad: EXPECT_EQ(key.impliedFlags, kCGEventFlagMaskNumericPad) << key.name; break;
            case K::Function: EXPECT_EQ(key.impliedFlags, kCGEventFlagMaskSecondaryFn) << key.name; break;
            case K::Character:
            case K::Whitespace:
            case K::Modifier:
            case K::Media: EXPECT_EQ(key.impliedFlags, 0u) << key.name; break;
            default: break;
        }
    }
    EXPECT_EQ(virtualKey(kVK_ANSI_Keypad1)->usCharacter, U'1');
    EXPECT_EQ(virtualKey(kVK_ANSI_KeypadEnter)->name, "ANSI_KeypadEnter");
    EXPECT_EQ(virtualKey(kVK_ANSI_KeypadDecimal)->usCharacter, U'.');
}

}  // namespace
}  // namespace jorvane
