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

// ---- X key <-> virtual key code: each layout's letters where they type,
// other keys by their US position, the Mac's names for the rest.

struct CodeRow {
    const char* name;
    const char* layout;
    const char* keyName;
    std::uint32_t group;
    std::optional<KeyCode> expected;
};

TEST(X11Keys, translatesTheKeyOfEachLayout) {
    // clang-format off
    const CodeRow rows[] = {
        {"US G", "us", "AC05", 0, kKeyG}, {"US digit", "us", "AE01", 0, kKey1},
        {"German Z where US has Y", "de", "AD06", 0, kKeyZ}, {"German Y where US has Z", "de", "AB01", 0, kKeyY},
        {"German sharp s has no US key: its position", "de", "AE11", 0, kKeyMinus},
        {"French A where US has Q", "fr", "AD01", 0, kKeyA}, {"French & key: its position", "fr", "AE01", 0, kKey1},
        {"Russian letters: positions", "ru", "AC05", 0, kKeyG}, {"second group of us,ru", "us,ru", "AC05", 1, kKeyG},
        {"second group of us,de: German letters", "us,de", "AD06", 1, kKeyZ},
        {"a group beyond the layouts wraps around", "us", "AD06", 2, kKeyY},
        {"Backspace is Delete", "us", "BKSP", 0, kKeyDelete}, {"Delete is forward delete", "us", "DELE", 0, kKeyForwardDelete},
        {"Insert is Help", "us", "INS", 0, kKeyHelp}, {"keypad 7, Num Lock off", "us", "KP7", 0, kKeypad7},
        {"keypad Enter is not Return", "us", "KPEN", 0, kKeypadEnter}, {"Num Lock is keypad Clear", "us", "NMLK", 0, kKeypadClear},
        {"left Ctrl is Command", "us", "LCTL", 0, kKeyCommand}, {"right Ctrl is right Command", "us", "RCTL", 0, kKeyRightCommand},
        {"Super is Control", "us", "LWIN", 0, kKeyControl}, {"Alt is Option", "us", "LALT", 0, kKeyOption},
        {"AltGr has no code", "de", "RALT", 0, std::nullopt},
    };
    // clang-format on
    for (const CodeRow& row : rows) {
        SCOPED_TRACE(row.name);
        const Keymap keymap(row.layout);
        ASSERT_TRUE(keymap.valid()) << row.layout;
        EXPECT_EQ(keymap.keys()->virtualKeyCode(keymap.key(row.keyName), row.group), row.expected);
    }
}

// Grabs and synthetic keys: the key that types the code, else its US position.
TEST(X11Keys, findsTheKeysOfACode) {
    struct Row {
        const char* layout;
        KeyCode code;
        std::uint32_t group;
        std::vector<const char*> expectedKeyNames;
    };
    // clang-format off
    const Row rows[] = {
        {"us", kKeyG, 0, {"AC05"}}, {"de", kKeyZ, 0, {"AD06"}}, {"de", kKeyMinus, 0, {"AB10"}}, {"ru", kKeyG, 0, {"AC05"}},
        {"us,ru", kKeyG, 1, {"AC05"}}, {"fr", kKey1, 0, {"AE01"}}, {"us", kKeypad7, 0, {"KP7"}},
        {"us", kKeyIsoSection, 0, {"LSGT"}}, {"us", kKeyFunction, 0, {}}, {"us", 0x200, 0, {}},
    };
    // clang-format on
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.layout) + " code " + std::to_string(row.code));
        const Keymap keymap(row.layout);
        std::vector<xkb_keycode_t> expected;
        for (const char* name : row.expectedKeyNames) expected.push_back(keymap.key(name));
        EXPECT_EQ(keymap.keys()->keycodes(row.code, row.group), expected);
    }
}

// ---- Modifier states <-> flags.

TEST(X11Keys, mapsTheCoreModifierStatesToFlags) {
    const Keymap keymap("us");
    const auto keys = keymap.keys();
    // clang-format off
    const std::pair<std::uint16_t, Modifiers> rows[] = {
        {0, 0}, {0x01, kModifierShift}, {0x02, kModifierCapsLock}, {0x04, kModifierCommand}, {0x08, kModifierOption},
        {0x10, 0} /* Num Lock */, {0x40, kModifierControl}, {0x80, 0} /* level three */,
        {0x2000 | 0x100 | 0x05, kModifierCommand | kModifierShift} /* group and button bits ignored */, {0x4d, 0x1E0000},
    };
    // clang-format on
    for (const auto& [state, flags] : rows) EXPECT_EQ(keys->flagsForState(state), flags) << "state " << state;
}

TEST(X11Keys, flagsBecomeTheXModifiersOfTheKeyboardAndGrabsCoverEveryLock) {
    const Keymap keymap("us");
    const auto keys = keymap.keys();
    EXPECT_EQ(keys->stateForFlags(kModifierCommand | kModifierShift), 0x05);
    EXPECT_EQ(keys->stateForFlags(kModifierOption), 0x08);
    EXPECT_EQ(keys->stateForFlags(kModifierControl), 0x40);
    EXPECT_EQ(keys->stateForFlags(kModifierCapsLock | kModifierNumericPad | kModifierFunction), 0);
    EXPECT_EQ(keymap.keys(/*withSuper=*/false)->stateForFlags(kModifierControl), std::nullopt)
        << "a keyboard without Super cannot give Control";
    EXPECT_EQ(keys->lockVariants(), (std::vector<std::uint16_t>{0, 0x02, 0x10, 0x12}));
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

// ---- Whole key events: type, code, flags and the repeat mark.

TEST(X11Keys, keyEventsCarryTheirTypeCodeAndFlags) {
    struct Row {
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
    constexpr Modifiers kArrowBits = kModifierNumericPad | kModifierFunction;
    // clang-format off
    const Row rows[] = {
        {"a shifted digit is the digit with Shift", "us", "AE01", 0x01, true, false, kEventKeyDown, kKey1, kModifierShift, false},
        {"arrows carry the keypad and function bits", "us", "UP", 0x04, false, false, kEventKeyUp, kKeyUpArrow, kModifierCommand | kArrowBits, false},
        {"a repeated press is flagged", "us", "AC05", 0, true, true, kEventKeyDown, kKeyG, 0, true},
        {"a release is never a repeat", "us", "AC05", 0, false, true, kEventKeyUp, kKeyG, 0, false},
        {"Ctrl pressed: the flags after it", "us", "LCTL", 0x01, true, false, kEventFlagsChanged, kKeyCommand, kModifierCommand | kModifierShift, false},
        {"Ctrl released: the flags after it", "us", "LCTL", 0x05, false, false, kEventFlagsChanged, kKeyCommand, kModifierShift, false},
        {"Caps Lock toggles on at its press", "us", "CAPS", 0, true, false, kEventFlagsChanged, kKeyCapsLock, kModifierCapsLock, false},
        {"Caps Lock toggles off at its press", "us", "CAPS", 0x02, true, false, kEventFlagsChanged, kKeyCapsLock, 0, false},
        {"the first group is the first layout", "us,de", "AD06", 0x0000, true, false, kEventKeyDown, kKeyY, 0, false},
        {"the state's group chooses the layout", "us,de", "AD06", 0x2000, true, false, kEventKeyDown, kKeyZ, 0, false},
        {"AltGr has no event", "de", "RALT", 0, true, false, std::nullopt, 0, 0, false},
        {"a key beyond the keymap has no event", "de", nullptr, 0, true, false, std::nullopt, 0, 0, false},
    };
    // clang-format on
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const Keymap keymap(row.layout);
        const std::optional<TapEvent> event = keymap.keys()->keyEvent(row.keyName ? keymap.key(row.keyName) : 255,
                                                                      row.state, row.press, row.repeat, {3, 4});
        ASSERT_EQ(event.has_value(), row.type.has_value());
        if (!event) continue;
        EXPECT_EQ(event->type, *row.type);
        EXPECT_EQ(event->keyCode, row.code);
        EXPECT_EQ(event->flags, row.flags);
        EXPECT_EQ(event->autorepeat, row.autorepeat);
        EXPECT_EQ(event->location, (Point{3, 4}));
    }
}

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
