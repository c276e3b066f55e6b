// Key and modifier translation of the X11 adapter, over keymaps compiled from
// layout names (no display needed).
#include <gtest/gtest.h>
#include <xkbcommon/xkbcommon.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/x11/X11Keys.h"

namespace jorvane::x11 {
namespace {

class Keymap {
public:
    explicit Keymap(const char* layout) : context_(xkb_context_new(XKB_CONTEXT_NO_FLAGS)) {
        const xkb_rule_names names{"evdev", "pc105", layout, "", nullptr};
        keymap_ = xkb_keymap_new_from_names(context_, &names, XKB_KEYMAP_COMPILE_NO_FLAGS);
    }
    ~Keymap() {
        xkb_keymap_unref(keymap_);
        xkb_context_unref(context_);
    }
    xkb_keycode_t key(const char* name) const { return xkb_keymap_key_by_name(keymap_, name); }

    // What an X server makes of the layout's modifier keys.
    ModifierMap serverModifierMap(bool withSuper = true, bool withNumLock = true) const {
        ModifierMap map;
        auto add = [&](int index, std::initializer_list<const char*> names) {
            for (const char* name : names) {
                if (xkb_keycode_t k = key(name); k != XKB_KEYCODE_INVALID) map[index].push_back(k);
            }
        };
        add(0, {"LFSH", "RTSH"});
        add(1, {"CAPS"});
        add(2, {"LCTL", "RCTL"});
        add(3, {"LALT", "META"});
        if (withNumLock) add(4, {"NMLK"});
        if (withSuper) add(6, {"LWIN", "RWIN"});
        add(7, {"LVL3", "MDSW"});
        return map;
    }
    std::unique_ptr<X11Keys> keys(bool withSuper = true, bool withNumLock = true) const {
        return std::make_unique<X11Keys>(keymap_, serverModifierMap(withSuper, withNumLock));
    }
    bool valid() const { return keymap_ != nullptr; }
    xkb_keymap* get() const { return keymap_; }

private:
    xkb_context* context_;
    xkb_keymap* keymap_ = nullptr;
};

// ---- X key -> virtual key code.

struct CodeRow {
    const char* name;
    const char* layout;
    const char* keyName;
    std::uint32_t group;
    std::optional<KeyCode> expected;
};

class KeyToCode : public testing::TestWithParam<CodeRow> {};

TEST_P(KeyToCode, translatesTheKey) {
    const CodeRow& row = GetParam();
    const Keymap keymap(row.layout);
    ASSERT_TRUE(keymap.valid()) << row.layout;
    EXPECT_EQ(keymap.keys()->virtualKeyCode(keymap.key(row.keyName), row.group), row.expected);
}

INSTANTIATE_TEST_SUITE_P(
    Layouts, KeyToCode,
    testing::Values(
        CodeRow{"USLetterGIsG", "us", "AC05", 0, kKeyG}, CodeRow{"USDigitKeyNamesItsDigit", "us", "AE01", 0, kKey1},
        CodeRow{"GermanZSitsWhereUSHasY", "de", "AD06", 0, kKeyZ},
        CodeRow{"GermanYSitsWhereUSHasZ", "de", "AB01", 0, kKeyY},
        CodeRow{"GermanSharpSHasNoUSKeyAndTakesItsPositionMinus", "de", "AE11", 0, kKeyMinus},
        CodeRow{"FrenchAIsWhereUSHasQ", "fr", "AD01", 0, kKeyA},
        CodeRow{"FrenchAmpersandKeyTakesItsPositionOne", "fr", "AE01", 0, kKey1},
        CodeRow{"RussianLettersTakeTheirPositions", "ru", "AC05", 0, kKeyG},
        CodeRow{"SecondGroupOfUsRuTakesPositions", "us,ru", "AC05", 1, kKeyG},
        CodeRow{"SecondGroupOfUsDeUsesGermanLetters", "us,de", "AD06", 1, kKeyZ},
        CodeRow{"AGroupBeyondTheLayoutsWrapsAround", "us", "AD06", 2, kKeyY},
        CodeRow{"ReturnIsReturn", "us", "RTRN", 0, kKeyReturn},
        CodeRow{"BackspaceIsDelete", "us", "BKSP", 0, kKeyDelete},
        CodeRow{"DeleteIsForwardDelete", "us", "DELE", 0, kKeyForwardDelete},
        CodeRow{"InsertIsHelp", "us", "INS", 0, kKeyHelp}, CodeRow{"EscapeIsEscape", "us", "ESC", 0, kKeyEscape},
        CodeRow{"KeypadSevenIsKeypad7WithNumLockOff", "us", "KP7", 0, kKeypad7},
        CodeRow{"KeypadEnterIsNotReturn", "us", "KPEN", 0, kKeypadEnter},
        CodeRow{"NumLockIsKeypadClear", "us", "NMLK", 0, kKeypadClear},
        CodeRow{"LeftCtrlIsCommand", "us", "LCTL", 0, kKeyCommand},
        CodeRow{"RightCtrlIsRightCommand", "us", "RCTL", 0, kKeyRightCommand},
        CodeRow{"SuperIsControl", "us", "LWIN", 0, kKeyControl}, CodeRow{"AltIsOption", "us", "LALT", 0, kKeyOption},
        CodeRow{"F5IsF5", "us", "FK05", 0, kKeyF5}, CodeRow{"UpIsUpArrow", "us", "UP", 0, kKeyUpArrow},
        CodeRow{"MuteIsMute", "us", "MUTE", 0, kKeyMute}, CodeRow{"AltGrHasNoCode", "de", "RALT", 0, std::nullopt}),
    [](const testing::TestParamInfo<CodeRow>& row) { return std::string(row.param.name); });

// ---- Virtual key code -> X keys (grabs and synthetic keys).

struct KeysRow {
    const char* name;
    const char* layout;
    KeyCode code;
    std::uint32_t group;
    std::vector<const char*> expectedKeyNames;
};

class CodeToKeys : public testing::TestWithParam<KeysRow> {};

TEST_P(CodeToKeys, findsTheKeys) {
    const KeysRow& row = GetParam();
    const Keymap keymap(row.layout);
    std::vector<xkb_keycode_t> expected;
    for (const char* name : row.expectedKeyNames) expected.push_back(keymap.key(name));
    EXPECT_EQ(keymap.keys()->keycodes(row.code, row.group), expected);
}

INSTANTIATE_TEST_SUITE_P(
    Layouts, CodeToKeys,
    testing::Values(KeysRow{"USGIsItsKey", "us", kKeyG, 0, {"AC05"}},
                    KeysRow{"GermanZIsTheKeyThatTypesZ", "de", kKeyZ, 0, {"AD06"}},
                    KeysRow{"GermanMinusIsTheKeyThatTypesMinusNotSharpS", "de", kKeyMinus, 0, {"AB10"}},
                    KeysRow{"RussianGIsThePosition", "ru", kKeyG, 0, {"AC05"}},
                    KeysRow{"SecondGroupOfUsRuIsThePosition", "us,ru", kKeyG, 1, {"AC05"}},
                    KeysRow{"FrenchOneIsThePosition", "fr", kKey1, 0, {"AE01"}},
                    KeysRow{"ReturnIsReturn", "us", kKeyReturn, 0, {"RTRN"}},
                    KeysRow{"Keypad7IsTheKeypadKey", "us", kKeypad7, 0, {"KP7"}},
                    KeysRow{"ISOSectionIsTheExtraKey", "us", kKeyIsoSection, 0, {"LSGT"}},
                    KeysRow{"FunctionKeyOfAMacHasNoKey", "us", kKeyFunction, 0, {}},
                    KeysRow{"ACodeBeyondTheTableHasNoKey", "us", 0x200, 0, {}}),
    [](const testing::TestParamInfo<KeysRow>& row) { return std::string(row.param.name); });

// ---- Modifier states <-> flags.

struct FlagsRow {
    const char* name;
    std::uint16_t state;
    Modifiers flags;
};

class StateToFlags : public testing::TestWithParam<FlagsRow> {};

TEST_P(StateToFlags, mapsTheModifiers) {
    const Keymap keymap("us");
    EXPECT_EQ(keymap.keys()->flagsForState(GetParam().state), GetParam().flags);
}

INSTANTIATE_TEST_SUITE_P(
    CoreModifiers, StateToFlags,
    testing::Values(FlagsRow{"NothingIsNothing", 0, 0}, FlagsRow{"ShiftIsShift", 0x01, kModifierShift},
                    FlagsRow{"LockIsCapsLock", 0x02, kModifierCapsLock},
                    FlagsRow{"CtrlIsCommand", 0x04, kModifierCommand}, FlagsRow{"AltIsOption", 0x08, kModifierOption},
                    FlagsRow{"NumLockAddsNothing", 0x10, 0}, FlagsRow{"SuperIsControl", 0x40, kModifierControl},
                    FlagsRow{"LevelThreeShiftAddsNothing", 0x80, 0},
                    FlagsRow{"GroupBitsAndButtonsAreIgnored", 0x2000 | 0x100 | 0x05, kModifierCommand | kModifierShift},
                    FlagsRow{"AllFourTogether", 0x4d, 0x1E0000}),
    [](const testing::TestParamInfo<FlagsRow>& row) { return std::string(row.param.name); });

TEST(X11Keys, flagsBecomeTheXModifiersOfTheKeyboard) {
    const Keymap keymap("us");
    const auto keys = keymap.keys();
    EXPECT_EQ(keys->stateForFlags(kModifierCommand | kModifierShift), 0x05);
    EXPECT_EQ(keys->stateForFlags(kModifierOption), 0x08);
    EXPECT_EQ(keys->stateForFlags(kModifierControl), 0x40);
    EXPECT_EQ(keys->stateForFlags(kModifierCapsLock | kModifierNumericPad | kModifierFunction), 0);
    EXPECT_EQ(keymap.keys(/*withSuper=*/false)->stateForFlags(kModifierControl), std::nullopt)
        << "a keyboard without Super cannot give Control";
}

TEST(X11Keys, grabsCoverEveryLockVariant) {
    const Keymap keymap("us");
    EXPECT_EQ(keymap.keys()->lockVariants(), (std::vector<std::uint16_t>{0, 0x02, 0x10, 0x12}));
    EXPECT_EQ(keymap.keys(true, /*withNumLock=*/false)->lockVariants(), (std::vector<std::uint16_t>{0, 0x02}));
}

TEST(X11Keys, modifierBitsComeFromTheServersMapNotFromFixedMods) {
    const Keymap keymap("us");
    ModifierMap map = keymap.serverModifierMap();
    std::swap(map[3], map[5]);  // Alt on Mod3 instead of Mod1
    const X11Keys keys(keymap.get(), map);
    EXPECT_EQ(keys.modifierBits().alt, 0x20);
    EXPECT_EQ(keys.flagsForState(0x20), kModifierOption);
    EXPECT_EQ(keys.flagsForState(0x08), 0u);
    EXPECT_EQ(keys.stateForFlags(kModifierOption), 0x20);
    EXPECT_EQ(keys.keyForModifier(0x20), keymap.key("LALT"));
    EXPECT_EQ(keys.modifierBitsOfKey(keymap.key("LALT")), 0x20);
}

// ---- Whole key events.

struct EventRow {
    const char* name;
    const char* layout;
    const char* keyName;  // nullptr: a key code beyond the keymap
    std::uint16_t state;
    bool press, repeat;
    std::optional<EventType> type;  // nothing: no event
    KeyCode code;
    Modifiers flags;
    bool autorepeat;
};

class KeyEvents : public testing::TestWithParam<EventRow> {};

TEST_P(KeyEvents, carryTheirTypeCodeAndFlags) {
    const EventRow& row = GetParam();
    const Keymap keymap(row.layout);
    const std::optional<TapEvent> event =
        keymap.keys()->keyEvent(row.keyName ? keymap.key(row.keyName) : 255, row.state, row.press, row.repeat, {3, 4});
    ASSERT_EQ(event.has_value(), row.type.has_value());
    if (!event) return;
    EXPECT_EQ(event->type, *row.type);
    EXPECT_EQ(event->keyCode, row.code);
    EXPECT_EQ(event->flags, row.flags);
    EXPECT_EQ(event->autorepeat, row.autorepeat);
    EXPECT_EQ(event->location, (Point{3, 4}));
}

constexpr Modifiers kArrowBits = kModifierNumericPad | kModifierFunction;

// clang-format off
INSTANTIATE_TEST_SUITE_P(Layouts, KeyEvents, testing::Values(
    EventRow{"AShiftedDigitIsStillTheDigitWithShift", "us", "AE01", 0x01, true, false, kEventKeyDown, kKey1, kModifierShift, false},
    EventRow{"ArrowsCarryTheKeypadAndFunctionBits", "us", "UP", 0x04, false, false, kEventKeyUp, kKeyUpArrow, kModifierCommand | kArrowBits, false},
    EventRow{"ARepeatedPressIsFlagged", "us", "AC05", 0, true, true, kEventKeyDown, kKeyG, 0, true},
    EventRow{"AReleaseIsNeverARepeat", "us", "AC05", 0, false, true, kEventKeyUp, kKeyG, 0, false},
    EventRow{"CtrlPressedChangesTheFlagsToTheStateAfterIt", "us", "LCTL", 0x01, true, false, kEventFlagsChanged, kKeyCommand, kModifierCommand | kModifierShift, false},
    EventRow{"CtrlReleasedChangesTheFlagsToTheStateAfterIt", "us", "LCTL", 0x05, false, false, kEventFlagsChanged, kKeyCommand, kModifierShift, false},
    EventRow{"CapsLockTogglesOnOnItsPress", "us", "CAPS", 0, true, false, kEventFlagsChanged, kKeyCapsLock, kModifierCapsLock, false},
    EventRow{"CapsLockTogglesOffOnItsPress", "us", "CAPS", 0x02, true, false, kEventFlagsChanged, kKeyCapsLock, 0, false},
    EventRow{"TheFirstGroupIsTheFirstLayout", "us,de", "AD06", 0x0000, true, false, kEventKeyDown, kKeyY, 0, false},
    EventRow{"TheGroupInTheStateChoosesTheLayout", "us,de", "AD06", 0x2000, true, false, kEventKeyDown, kKeyZ, 0, false},
    EventRow{"AltGrHasNoEvent", "de", "RALT", 0, true, false, std::nullopt, 0, 0, false},
    EventRow{"AKeyBeyondTheKeymapHasNoEvent", "de", nullptr, 0, true, false, std::nullopt, 0, 0, false}),
    [](const testing::TestParamInfo<EventRow>& row) { return std::string(row.param.name); });
// clang-format on

TEST(X11Keys, keysymsWithoutAUSKeyHaveNoCode) {
    // ß has no upper case keysym: the lookup must not rely on one.
    EXPECT_EQ(virtualKeyCodeForKeysym(XKB_KEY_ssharp), std::nullopt);
    EXPECT_EQ(virtualKeyCodeForKeysym(XKB_KEY_A), kKeyA);
    EXPECT_EQ(virtualKeyCodeForKeysym(XKB_KEY_ISO_Left_Tab), kKeyTab);
    EXPECT_EQ(virtualKeyCodeForKeysym(XKB_KEY_KP_Home), kKeypad7);
    EXPECT_EQ(virtualKeyCodeForKeyName("XXXX"), std::nullopt);
    EXPECT_EQ(virtualKeyCodeForKeyName(nullptr), std::nullopt);
}

}  // namespace
}  // namespace jorvane::x11
