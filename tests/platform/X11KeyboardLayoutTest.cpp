// Names of keys under real layouts: keymaps compiled from names ("us", "de",
// "fr") answer what each key types, and the key naming turns that into names.
#include <gtest/gtest.h>
#include <xkbcommon/xkbcommon.h>

#include <memory>
#include <optional>
#include <string>

#include "platform/x11/X11KeyboardLayout.h"
#include "shortcut/ShortcutKeyNames.h"

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

// A key's name (no flags) or the character it types with the flags.
TEST(LayoutNames, nameTheKeyAsTheLayoutTypesIt) {
    struct Row {
        const char* layouts;
        std::uint32_t group;
        KeyCode code;
        Modifiers flags;
        std::optional<std::string> expected;
    };
    constexpr Modifiers kShift = kModifierShift;
    // clang-format off
    const Row rows[] = {
        {"us", 0, kKeyG, 0, "G"}, {"us", 0, kKey1, kShift, "!"}, {"us", 0, kKeypad1, 0, "Pad 1"} /* whatever Num Lock */,
        {"us", 0, kKeyCommand, 0, ""} /* a modifier */, {"us", 0, kKeyJisYen, 0, std::nullopt} /* no such key */,
        {"de", 0, kKeyZ, 0, "Z"}, {"de", 0, kKeySemicolon, 0, "\u00d6"}, {"de", 0, kKeyMinus, 0, "-"} /* not the sharp s key */,
        {"de", 0, kKeyGrave, 0, "^"} /* dead keys show their accent */, {"de", 0, kKeyEqual, 0, "\u00b4"},
        {"de", 0, kKey2, kShift, "\""}, {"fr", 0, kKeyA, 0, "A"}, {"fr", 0, kKey1, 0, "&"}, {"fr", 0, kKey1, kShift, "1"},
        {"fr", 0, kKeypad1, 0, "Pad 1"}, {"us,de", 1, kKeySemicolon, 0, "\u00d6"}, {"de", 0, kKeyEscape, 0, "Esc"},
    };
    // clang-format on
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.layouts) + " group " + std::to_string(row.group) + " key " +
                     std::to_string(row.code) + " flags " + std::to_string(row.flags));
        const ScopedCompiledLayout layout(row.layouts, row.group);
        ASSERT_TRUE(layout.valid()) << row.layouts;
        const auto code = static_cast<ShortcutKeyCode>(row.code);
        EXPECT_EQ(row.flags ? characterForCombo(code, row.flags) : shortcutKeyName(code), row.expected);
    }
}

TEST(LayoutNamesWithoutKeymap, ReadQuestionMarks) {
    setCurrentKeyboardLayout(std::make_shared<XkbKeyboardLayout>(nullptr, 0));
    EXPECT_EQ(shortcutKeyName(kKeyG), "???");
    EXPECT_EQ(shortcutKeyName(kKeyF1), "F1");
    setCurrentKeyboardLayout(std::make_shared<X11KeyboardLayout>(nullptr));
    EXPECT_EQ(shortcutKeyName(kKeyG), "???");
    setCurrentKeyboardLayout(nullptr);
}

TEST(LayoutNamesReverse, FindTheGermanZ) {
    const ScopedCompiledLayout layout("de", 0);
    EXPECT_EQ(ShortcutKeyNames().reverseTransformedValue("Z"), kKeyZ);
    EXPECT_EQ(ShortcutKeyNames().reverseTransformedValue("\u00d6"), kKeySemicolon);
}

}  // namespace
}  // namespace jorvane::x11
