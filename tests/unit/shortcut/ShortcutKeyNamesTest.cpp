// Names of key combinations: special keys with their Linux names, the layout's keys and the keypad prefix,
// both modifier orders, both mask conversions and the reverse lookup.
#include "shortcut/ShortcutKeyNames.h"

#include <gtest/gtest.h>

#include "fakes/FakeKeyboardLayout.h"

namespace jorvane {
namespace {

constexpr Modifiers kCmd = kModifierCommand, kOpt = kModifierOption, kCtl = kModifierControl, kShf = kModifierShift;

TEST(KeyCodeNames, AreAsListed) {
    test::ScopedKeyboardLayout us;
    // clang-format off
    const std::pair<std::int64_t, std::optional<std::string>> rows[] = {
        {49, "Space"}, {51, "Backspace"}, {117, "Delete"}, {71, "Num Lock"}, {123, "Left"}, {124, "Right"},
        {126, "Up"}, {125, "Down"}, {119, "End"}, {115, "Home"}, {53, "Esc"}, {121, "Page Down"}, {116, "Page Up"},
        {36, "Enter"}, {76, "Pad Enter"}, {48, "Tab"}, {114, "Insert"}, {5, "G"}, {18, "1"}, {24, "="},
        {55, ""},            // a modifier types nothing
        {-1, std::nullopt},  // no key
        {65535, std::nullopt}, {0x10005, "G"},  // read as sixteen bits
        {90, std::nullopt}};                    // a key the layout lacks
    // clang-format on
    for (const auto& [value, expected] : rows) EXPECT_EQ(ShortcutKeyNames().transformedValue(value), expected) << value;
    // clang-format off
    const std::pair<ShortcutKeyCode, std::string> functionAndKeypad[] = {
        {122, "F1"},   {120, "F2"},   {99, "F3"},    {118, "F4"},   {96, "F5"},    {97, "F6"},    {98, "F7"},
        {100, "F8"},   {101, "F9"},   {109, "F10"},  {103, "F11"},  {111, "F12"},  {105, "F13"},  {107, "F14"},
        {113, "F15"},  {106, "F16"},  {64, "F17"},   {79, "F18"},   {80, "F19"},   {65, "Pad ."}, {67, "Pad *"},
        {69, "Pad +"}, {75, "Pad /"}, {78, "Pad -"}, {81, "Pad ="}, {82, "Pad 0"}, {83, "Pad 1"}, {84, "Pad 2"},
        {85, "Pad 3"}, {86, "Pad 4"}, {87, "Pad 5"}, {88, "Pad 6"}, {89, "Pad 7"}, {91, "Pad 8"}, {92, "Pad 9"}};
    // clang-format on
    for (const auto& [code, name] : functionAndKeypad) {
        EXPECT_EQ(ShortcutKeyNames().transformedValue(code), name) << code;
        EXPECT_EQ(ShortcutKeyNames().reverseTransformedValue(name), code) << name;
    }
}

TEST(KeyCodeNames, FollowTheLayoutInUpperCaseAndWithoutOneReadQuestionMarks) {
    EXPECT_EQ(shortcutKeyName(5), "???") << "nothing installed counts as no layout";
    test::ScopedKeyboardLayout scoped;
    scoped.layout().setKey(kKeyY, {"z", "Z", ""});
    scoped.layout().setKey(kKeySemicolon, {"\u00f6", "\u00d6", ""});
    scoped.layout().setKey(kKeyMinus, {"\u00df", "?", ""});
    EXPECT_EQ(shortcutKeyName(kKeyY), "Z");
    EXPECT_EQ(shortcutKeyName(kKeySemicolon), "\u00d6");
    EXPECT_EQ(shortcutKeyName(kKeyMinus), "\u1e9e");  // one character, not "SS"
    scoped.layout().setHasLayout(false);
    EXPECT_EQ(shortcutKeyName(5), "???");
    EXPECT_EQ(shortcutKeyName(83), "???");
    EXPECT_EQ(shortcutKeyName(122), "F1");
    EXPECT_EQ(shortcutKeyName(-1), std::nullopt);
}

TEST(KeyCodeNames, ReverseLookupFindsTheLowestCode) {
    test::ScopedKeyboardLayout us;
    us.layout().setKey(kKeyIsoSection, {"a", "A", ""});  // code 10 types "a" too
    us.layout().setKey(130, {"\u20ac", "\u20ac", ""});   // a key above 127
    // clang-format off
    const std::pair<const char*, std::optional<ShortcutKeyCode>> rows[] = {
        {"G", 5},          {"Space", 49},          {"Esc", 53},           {"A", 0},
        {"g", std::nullopt}, {"\u238b", std::nullopt}, {"\u20ac", std::nullopt}, {"", std::nullopt}};
    // clang-format on
    for (const auto& [name, code] : rows) EXPECT_EQ(ShortcutKeyNames().reverseTransformedValue(name), code) << name;
}

TEST(ComboNames, InBothOrdersAndFromBothMasks) {
    test::ScopedKeyboardLayout us;
    // Glyphs put Shift before Ctrl, words Ctrl first; Super is the Control bit; caps lock and keypad unnamed.
    // clang-format off
    const std::tuple<Modifiers, ShortcutKeyCode, const char*, const char*> rows[] = {
        {kCmd, 5, "Ctrl+G", "Ctrl + G"},
        {kCmd | kShf, 49, "Shift+Ctrl+Space", "Ctrl + Shift + Space"},
        {kCmd | kOpt | kCtl | kShf, 96, "Super+Alt+Shift+Ctrl+F5", "Ctrl + Alt + Super + Shift + F5"},
        {kCtl, 53, "Super+Esc", "Super + Esc"},
        {0, 83, "Pad 1", "Pad 1"},
        {kOpt, -1, "Alt+", "Alt + "},
        {kCmd | kModifierCapsLock | kModifierNumericPad, 5, "Ctrl+G", "Ctrl + G"}};
    // clang-format on
    for (const auto& [modifiers, code, glyphs, readable] : rows) {
        const std::uint32_t recorderBits = recorderFlagsFromModifiers(modifiers);
        EXPECT_EQ(comboGlyphs(modifiers, code), glyphs);
        EXPECT_EQ(recorderComboGlyphs(recorderBits, code), glyphs);
        EXPECT_EQ(comboText(modifiers, code), readable);
        EXPECT_EQ(recorderComboText(recorderBits, code), readable);
    }
    EXPECT_EQ(recorderModifierGlyphs(kRecorderControl | kRecorderCommand), "Super+Ctrl+");
    EXPECT_EQ(modifierGlyphs(kCtl | kCmd), "Super+Ctrl+");
    EXPECT_EQ(recorderModifierGlyphs(0), "");
}

TEST(MaskConversion, GoesBothWaysAndDropsWhatTheOtherSideLacks) {
    // clang-format off
    const std::pair<Modifiers, std::uint32_t> rows[] = {{0x20000, 0x200},       {0x40000, 0x1000},
                                                        {0x80000, 0x800},       {0x100000, 0x100},
                                                        {0x800000, 0x800000},   {0x9E0000, 0x801B00},
                                                        {0, 0}};
    // clang-format on
    for (const auto& [modifiers, recorderBits] : rows) {
        EXPECT_EQ(recorderFlagsFromModifiers(modifiers), recorderBits);
        EXPECT_EQ(modifiersFromRecorderFlags(recorderBits), modifiers);
    }
    EXPECT_EQ(recorderFlagsFromModifiers(kCmd | kModifierCapsLock | kModifierNumericPad | kModifierHelp),
              kRecorderCommand);
    EXPECT_EQ(modifiersFromRecorderFlags(kRecorderShift | 0x400 | 0x1 | 0x80), kShf);
}

TEST(CharacterForCombo, FollowsShiftAndOptionOnlyCapitalisesAndFallsBackToTheKeysName) {
    test::ScopedKeyboardLayout scoped;
    scoped.layout().setKey(kKeyG, {"g", "G", "\u00a9"});
    EXPECT_EQ(characterForCombo(kKey1, kShf), "!");
    EXPECT_EQ(characterForCombo(kKeyG, 0), "G");
    EXPECT_EQ(characterForCombo(kKeyG, kCmd | kCtl), "G");
    EXPECT_EQ(characterForCombo(kKeyG, kOpt), "\u00a9");
    EXPECT_EQ(characterForCombo(90, 0), std::nullopt);  // no such key, and so no name
    scoped.layout().setHasLayout(false);
    EXPECT_EQ(characterForCombo(kKeyG, kShf), "???");
    EXPECT_EQ(characterForCombo(kKeyF1, kShf), "F1");
}

}  // namespace
}  // namespace jorvane
