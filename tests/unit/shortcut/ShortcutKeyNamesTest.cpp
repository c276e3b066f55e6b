// Names of key combinations: the special keys with their Linux names, the
// layout's keys and the keypad prefix, both modifier orders, both mask
// conversions and the reverse lookup.
#include "shortcut/ShortcutKeyNames.h"

#include <gtest/gtest.h>

#include "fakes/FakeKeyboardLayout.h"

namespace jorvane {
namespace {

using test::FakeKeyboardLayout;

struct NameRow {
    const char* name;
    std::int64_t value;
    std::optional<std::string> expected;
};

class KeyCodeName : public testing::TestWithParam<NameRow> {
protected:
    test::ScopedKeyboardLayout us_;
};

TEST_P(KeyCodeName, isAsListed) {
    EXPECT_EQ(ShortcutKeyNames().transformedValue(GetParam().value), GetParam().expected);
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(Keys, KeyCodeName, testing::Values(
    NameRow{"SpaceIsAWordNotABlank", 49, "Space"}, NameRow{"MacDeleteIsBackspace", 51, "Backspace"},
    NameRow{"ForwardDeleteIsDelete", 117, "Delete"}, NameRow{"KeypadClearIsNumLock", 71, "Num Lock"},
    NameRow{"LeftArrowIsLeft", 123, "Left"}, NameRow{"RightArrowIsRight", 124, "Right"}, NameRow{"UpArrowIsUp", 126, "Up"},
    NameRow{"DownArrowIsDown", 125, "Down"}, NameRow{"EndIsEnd", 119, "End"}, NameRow{"HomeIsHome", 115, "Home"},
    NameRow{"EscapeIsEsc", 53, "Esc"}, NameRow{"PageDownIsPageDown", 121, "Page Down"},
    NameRow{"PageUpIsPageUp", 116, "Page Up"}, NameRow{"ReturnIsEnter", 36, "Enter"},
    NameRow{"KeypadEnterIsPadEnter", 76, "Pad Enter"}, NameRow{"TabIsTab", 48, "Tab"},
    NameRow{"HelpIsInsert", 114, "Insert"},
    NameRow{"GIsTheLayoutsCapitalG", 5, "G"}, NameRow{"DigitOneIsOne", 18, "1"}, NameRow{"EqualsIsEquals", 24, "="},
    NameRow{"ModifierKeyTypesNothingAndHasAnEmptyName", 55, ""}, NameRow{"NoKeyHasNoName", -1, std::nullopt},
    NameRow{"ValueIsReadAsSixteenBitsSo65535IsNoKey", 65535, std::nullopt},
    NameRow{"ValueIsReadAsSixteenBitsSoHighBitsAreDropped", 0x10005, "G"},
    NameRow{"KeyTheLayoutLacksHasNoName", 90, std::nullopt}),
    [](const testing::TestParamInfo<NameRow>& row) { return std::string(row.param.name); });
// clang-format on

// Every function key and every key of the numeric keypad, in one list.
TEST(KeyCodeNames, FunctionAndKeypadKeysAreNamedInOrder) {
    test::ScopedKeyboardLayout us;
    const std::vector<std::pair<ShortcutKeyCode, std::string>> keys = {
        {122, "F1"},   {120, "F2"},   {99, "F3"},    {118, "F4"},   {96, "F5"},    {97, "F6"},    {98, "F7"},
        {100, "F8"},   {101, "F9"},   {109, "F10"},  {103, "F11"},  {111, "F12"},  {105, "F13"},  {107, "F14"},
        {113, "F15"},  {106, "F16"},  {64, "F17"},   {79, "F18"},   {80, "F19"},   {65, "Pad ."}, {67, "Pad *"},
        {69, "Pad +"}, {75, "Pad /"}, {78, "Pad -"}, {81, "Pad ="}, {82, "Pad 0"}, {83, "Pad 1"}, {84, "Pad 2"},
        {85, "Pad 3"}, {86, "Pad 4"}, {87, "Pad 5"}, {88, "Pad 6"}, {89, "Pad 7"}, {91, "Pad 8"}, {92, "Pad 9"}};
    for (const auto& [code, name] : keys) {
        EXPECT_EQ(ShortcutKeyNames().transformedValue(code), name) << code;
        EXPECT_EQ(ShortcutKeyNames().reverseTransformedValue(name), code) << name;
    }
}

TEST(KeyCodeNameLayout, WithoutLayoutLayoutKeysReadQuestionMarksAndSpecialKeysKeepTheirNames) {
    test::ScopedKeyboardLayout scoped;
    scoped.layout().setHasLayout(false);
    EXPECT_EQ(shortcutKeyName(5), "???");
    EXPECT_EQ(shortcutKeyName(83), "???");
    EXPECT_EQ(shortcutKeyName(122), "F1");
    EXPECT_EQ(shortcutKeyName(-1), std::nullopt);
}

TEST(KeyCodeNameLayout, NothingInstalledCountsAsNoLayout) { EXPECT_EQ(shortcutKeyName(5), "???"); }

TEST(KeyCodeNameLayout, NamesFollowTheLayoutInUpperCase) {
    test::ScopedKeyboardLayout scoped;
    scoped.layout().setKey(kKeyY, {"z", "Z", ""});
    scoped.layout().setKey(kKeySemicolon, {"\u00f6", "\u00d6", ""});
    scoped.layout().setKey(kKeyMinus, {"\u00df", "?", ""});
    scoped.layout().setKey(kKeypad1, {"1", "1", ""});
    EXPECT_EQ(shortcutKeyName(kKeyY), "Z");
    EXPECT_EQ(shortcutKeyName(kKeySemicolon), "\u00d6");
    EXPECT_EQ(shortcutKeyName(kKeyMinus), "\u1e9e");  // one character, not "SS"
}

struct ReverseRow {
    const char* name;
    const char* keyName;
    std::optional<ShortcutKeyCode> expected;
};

class ReverseLookup : public testing::TestWithParam<ReverseRow> {
protected:
    ReverseLookup() {
        // Code 10 types "a" too, and a key above 127 types the euro sign.
        us_.layout().setKey(kKeyIsoSection, {"a", "A", ""});
        us_.layout().setKey(130, {"\u20ac", "\u20ac", ""});
    }
    test::ScopedKeyboardLayout us_;
};

TEST_P(ReverseLookup, findsTheFirstCode) {
    EXPECT_EQ(ShortcutKeyNames().reverseTransformedValue(GetParam().keyName), GetParam().expected);
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(Names, ReverseLookup, testing::Values(
    ReverseRow{"GIs5", "G", 5}, ReverseRow{"SpaceIs49", "Space", 49}, ReverseRow{"EscIs53", "Esc", 53},
    ReverseRow{"TwoCodesNamedAGiveTheLowest", "A", 0}, ReverseRow{"LowerCaseIsNoName", "g", std::nullopt},
    ReverseRow{"MacSymbolIsNoNameOnLinux", "\u238b", std::nullopt},
    ReverseRow{"NameOnlyAbove127IsNotFound", "\u20ac", std::nullopt}, ReverseRow{"EmptyNameIsNotFound", "", std::nullopt}),
    [](const testing::TestParamInfo<ReverseRow>& row) { return std::string(row.param.name); });
// clang-format on

struct ComboRow {
    const char* name;
    Modifiers modifiers;
    ShortcutKeyCode code;
    const char* glyphs;
    const char* readable;
};

class ComboNames : public testing::TestWithParam<ComboRow> {
protected:
    test::ScopedKeyboardLayout us_;
};

TEST_P(ComboNames, inBothOrdersAndBothLayouts) {
    const ComboRow& row = GetParam();
    const std::uint32_t recorderBits = recorderFlagsFromModifiers(row.modifiers);
    EXPECT_EQ(comboGlyphs(row.modifiers, row.code), row.glyphs);
    EXPECT_EQ(recorderComboGlyphs(recorderBits, row.code), row.glyphs);
    EXPECT_EQ(comboText(row.modifiers, row.code), row.readable);
    EXPECT_EQ(recorderComboText(recorderBits, row.code), row.readable);
}

constexpr Modifiers kCmd = kModifierCommand, kOpt = kModifierOption, kCtl = kModifierControl, kShf = kModifierShift;

// clang-format off
INSTANTIATE_TEST_SUITE_P(Combos, ComboNames, testing::Values(
    ComboRow{"CtrlGIsTheHotKeyAsLinuxWritesIt", kCmd, 5, "Ctrl+G", "Ctrl + G"},
    ComboRow{"GlyphsPutShiftBeforeCtrlWordsPutCtrlFirst", kCmd | kShf, 49, "Shift+Ctrl+Space", "Ctrl + Shift + Space"},
    ComboRow{"AllFourRunSuperAltShiftCtrlAndCtrlAltSuperShift", kCmd | kOpt | kCtl | kShf, 96,
             "Super+Alt+Shift+Ctrl+F5", "Ctrl + Alt + Super + Shift + F5"},
    ComboRow{"SuperIsTheControlBit", kCtl, 53, "Super+Esc", "Super + Esc"},
    ComboRow{"NoModifiersIsTheKeyAlone", 0, 83, "Pad 1", "Pad 1"},
    ComboRow{"NoKeyLeavesTheModifiers", kOpt, -1, "Alt+", "Alt + "},
    ComboRow{"CapsLockAndKeypadBitsAreNotNamed", kCmd | kModifierCapsLock | kModifierNumericPad, 5, "Ctrl+G", "Ctrl + G"}),
    [](const testing::TestParamInfo<ComboRow>& row) { return std::string(row.param.name); });
// clang-format on

TEST(ModifierGlyphs, RecorderFlagsAndModifiersAgree) {
    EXPECT_EQ(recorderModifierGlyphs(kRecorderControl | kRecorderCommand), "Super+Ctrl+");
    EXPECT_EQ(modifierGlyphs(kCtl | kCmd), "Super+Ctrl+");
    EXPECT_EQ(recorderModifierGlyphs(0), "");
}

struct ConversionRow {
    const char* name;
    Modifiers modifiers;
    std::uint32_t recorderBits;
};

class MaskConversion : public testing::TestWithParam<ConversionRow> {};

TEST_P(MaskConversion, goesBothWays) {
    EXPECT_EQ(recorderFlagsFromModifiers(GetParam().modifiers), GetParam().recorderBits);
    EXPECT_EQ(modifiersFromRecorderFlags(GetParam().recorderBits), GetParam().modifiers);
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(Bits, MaskConversion, testing::Values(
    ConversionRow{"Shift", 0x20000, 0x200}, ConversionRow{"Control", 0x40000, 0x1000},
    ConversionRow{"Option", 0x80000, 0x800},
    ConversionRow{"Command", 0x100000, 0x100}, ConversionRow{"FunctionIsCopied", 0x800000, 0x800000},
    ConversionRow{"AllTogether", 0x9E0000, 0x801B00}, ConversionRow{"Nothing", 0, 0}),
    [](const testing::TestParamInfo<ConversionRow>& row) { return std::string(row.param.name); });
// clang-format on

TEST(MaskConversionDrops, CapsLockAndKeypadBitsFromModifiersAndStrayBitsFromRecorderFlags) {
    EXPECT_EQ(recorderFlagsFromModifiers(kCmd | kModifierCapsLock | kModifierNumericPad | kModifierHelp),
              kRecorderCommand);
    EXPECT_EQ(modifiersFromRecorderFlags(kRecorderShift | 0x400 | 0x1 | 0x80), kShf);
}

TEST(CharacterForCombo, FollowsShiftAndOptionOnlyAndCapitalises) {
    test::ScopedKeyboardLayout scoped;
    scoped.layout().setKey(kKeyG, {"g", "G", "\u00a9"});
    EXPECT_EQ(characterForCombo(kKey1, kShf), "!");
    EXPECT_EQ(characterForCombo(kKeyG, 0), "G");
    EXPECT_EQ(characterForCombo(kKeyG, kCmd | kCtl), "G");
    EXPECT_EQ(characterForCombo(kKeyG, kOpt), "\u00a9");
}

TEST(CharacterForCombo, FallsBackToTheKeysName) {
    test::ScopedKeyboardLayout scoped;
    EXPECT_EQ(characterForCombo(90, 0), std::nullopt);  // no such key, and so no name
    scoped.layout().setHasLayout(false);
    EXPECT_EQ(characterForCombo(kKeyG, kShf), "???");
    EXPECT_EQ(characterForCombo(kKeyF1, kShf), "F1");
}

}  // namespace
}  // namespace jorvane
