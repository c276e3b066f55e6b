// Names of keys under real layouts: keymaps compiled from names ("us", "de",
// "fr") answer what each key types, and the key naming turns that into names.
#include <gtest/gtest.h>
#include <xkbcommon/xkbcommon.h>

#include <memory>
#include <optional>
#include <string>

#include "platform/x11/X11KeyboardLayout.h"
#include "shortcutrecorder/HKKeyCodeTransformer.h"

namespace jorvane::x11 {
namespace {

// Installs the layout compiled from `layouts` in `group` as the current one.
class ScopedCompiledLayout {
public:
    ScopedCompiledLayout(const char* layouts, std::uint32_t group) : context_(xkb_context_new(XKB_CONTEXT_NO_FLAGS)) {
        const xkb_rule_names names{"evdev", "pc105", layouts, "", nullptr};
        xkb_keymap* keymap = xkb_keymap_new_from_names(context_, &names, XKB_KEYMAP_COMPILE_NO_FLAGS);
        valid_ = keymap != nullptr;
        setCurrentKeyboardLayout(std::make_shared<XkbKeyboardLayout>(keymap, group));
        xkb_keymap_unref(keymap);
    }
    ~ScopedCompiledLayout() {
        setCurrentKeyboardLayout(nullptr);
        xkb_context_unref(context_);
    }
    bool valid() const { return valid_; }

private:
    xkb_context* context_;
    bool valid_ = false;
};

struct Row {
    const char* name;
    const char* layouts;
    std::uint32_t group;
    CGKeyCode code;
    CGEventFlags flags;  // 0: the key's name; otherwise the character with these flags
    std::optional<std::string> expected;
};

class LayoutNames : public testing::TestWithParam<Row> {};

TEST_P(LayoutNames, nameTheKeyAsTheLayoutTypesIt) {
    const Row& row = GetParam();
    const ScopedCompiledLayout layout(row.layouts, row.group);
    ASSERT_TRUE(layout.valid()) << row.layouts;
    const auto code = static_cast<HKKeyCode>(row.code);
    EXPECT_EQ(row.flags ? HKCharacterForCocoaCombo(code, row.flags) : HKKeyCodeName(code), row.expected);
}

constexpr CGEventFlags kShift = kCGEventFlagMaskShift;

INSTANTIATE_TEST_SUITE_P(
    Layouts, LayoutNames,
    testing::Values(
        Row{"USGIsG", "us", 0, kVK_ANSI_G, 0, "G"},
        Row{"USShiftOneTypesExclamationMark", "us", 0, kVK_ANSI_1, kShift, "!"},
        Row{"USKeypadOneIsPadOneWhateverNumLock", "us", 0, kVK_ANSI_Keypad1, 0, "Pad 1"},
        Row{"ModifierKeyHasAnEmptyName", "us", 0, kVK_Command, 0, ""},
        Row{"USHasNoYenKey", "us", 0, kVK_JIS_Yen, 0, std::nullopt},
        Row{"GermanZIsTheKeyThatTypesZ", "de", 0, kVK_ANSI_Z, 0, "Z"},
        Row{"GermanUmlautKeyIsNamedByItsLetter", "de", 0, kVK_ANSI_Semicolon, 0, "\u00d6"},
        Row{"GermanMinusIsTheKeyThatTypesMinusNotTheSharpSKey", "de", 0, kVK_ANSI_Minus, 0, "-"},
        Row{"GermanDeadCircumflexShowsItsAccent", "de", 0, kVK_ANSI_Grave, 0, "^"},
        Row{"GermanDeadAcuteShowsItsAccent", "de", 0, kVK_ANSI_Equal, 0, "\u00b4"},
        Row{"GermanShiftTwoTypesAQuote", "de", 0, kVK_ANSI_2, kShift, "\""},
        Row{"FrenchAIsTheKeyThatTypesA", "fr", 0, kVK_ANSI_A, 0, "A"},
        Row{"FrenchDigitKeyIsNamedByItsAmpersand", "fr", 0, kVK_ANSI_1, 0, "&"},
        Row{"FrenchShiftOnTheDigitKeyTypesTheDigit", "fr", 0, kVK_ANSI_1, kShift, "1"},
        Row{"FrenchKeypadStillTypesDigits", "fr", 0, kVK_ANSI_Keypad1, 0, "Pad 1"},
        Row{"SecondGroupUsesTheSecondLayout", "us,de", 1, kVK_ANSI_Semicolon, 0, "\u00d6"},
        Row{"SpecialKeysKeepTheirNames", "de", 0, kVK_Escape, 0, "Esc"}),
    [](const testing::TestParamInfo<Row>& row) { return std::string(row.param.name); });

TEST(LayoutNamesWithoutKeymap, ReadQuestionMarks) {
    setCurrentKeyboardLayout(std::make_shared<XkbKeyboardLayout>(nullptr, 0));
    EXPECT_EQ(HKKeyCodeName(kVK_ANSI_G), "???");
    EXPECT_EQ(HKKeyCodeName(kVK_F1), "F1");
    setCurrentKeyboardLayout(std::make_shared<X11KeyboardLayout>(nullptr));
    EXPECT_EQ(HKKeyCodeName(kVK_ANSI_G), "???");
    setCurrentKeyboardLayout(nullptr);
}

TEST(LayoutNamesReverse, FindTheGermanZ) {
    const ScopedCompiledLayout layout("de", 0);
    EXPECT_EQ(HKKeyCodeTransformer().reverseTransformedValue("Z"), kVK_ANSI_Z);
    EXPECT_EQ(HKKeyCodeTransformer().reverseTransformedValue("\u00d6"), kVK_ANSI_Semicolon);
}

}  // namespace
}  // namespace jorvane::x11
