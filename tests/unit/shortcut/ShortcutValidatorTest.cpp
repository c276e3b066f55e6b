// Validation of a key combination: the delegate, then the desktop's shortcuts (list and held combinations),
// then the menu, with the texts the user reads.
#include "shortcut/ShortcutValidator.h"

#include <gtest/gtest.h>

#include "fakes/FakeKeyboardLayout.h"
#include "fakes/FakeSymbolicHotKeys.h"

namespace jorvane {
namespace {

class ScriptedDelegate final : public ShortcutValidatorDelegate {
public:
    bool hotkeyValidatorIsKeyCodeAndFlagsTaken(ShortcutValidator&, ShortcutKeyCode keyCode, Modifiers flags,
                                               std::string& reason) override {
        asked.emplace_back(keyCode, flags);
        reason = answerReason;
        return answer;
    }
    bool answer = false;
    std::string answerReason;
    std::vector<std::pair<ShortcutKeyCode, Modifiers>> asked;
};

constexpr const char* kSystemText =
    "The key combination \"%s\" can't be used because it's already used by a system-wide keyboard shortcut. "
    "(If you really want to use this key combination, most shortcuts can be changed in %s.)";

std::string canT(const std::string& glyphs) { return "The key combination " + glyphs + " can't be used!"; }

std::string systemText(const std::string& combo, const std::string& place) {
    std::string text = kSystemText;
    text.replace(text.find("%s"), 2, combo);
    text.replace(text.find("%s"), 2, place);
    return text;
}

struct Row {
    std::optional<std::string> delegateReason;  // none: the delegate lets it pass
    std::optional<std::vector<SymbolicHotKey>> desktop;
    std::set<std::pair<ShortcutKeyCode, std::uint32_t>> held;
    ShortcutKeyCode code;
    std::uint32_t recorderBits;
    bool taken;
    std::string description;  // empty: no error texts
    std::string suggestion;
    int listReads;
};

const std::vector<SymbolicHotKey> kCtrlG = {{true, 5, kRecorderCommand}};
const std::vector<SymbolicHotKey> kCtrlGOff = {{false, 5, kRecorderCommand}};
const std::vector<SymbolicHotKey> kCtrlShiftG = {{true, 5, kRecorderCommand | kRecorderShift}};
const std::vector<SymbolicHotKey> kCtrlGAndOtherBits = {{true, 5, kRecorderCommand | 0x1 | 0x400 | 0x800000}};
const std::vector<SymbolicHotKey> kNone;
const std::string kInPanel = systemText("Ctrl + G", "the Keyboard panel");
constexpr std::uint32_t kCtrl = kRecorderCommand;
const auto none = std::nullopt;

// clang-format off
const Row kRows[] = {
    // The delegate first, even before an unreadable desktop list.
    {"Jorvane uses it", kNone, {}, 5, kCtrl, true,
     canT("Ctrl+G"), "The key combination \"Ctrl + G\" can't be used because Jorvane uses it.", 0},
    {"", kNone, {}, 5, kCtrl | kRecorderShift, true,
     canT("Shift+Ctrl+G"), "The key combination \"Ctrl + Shift + G\" can't be used because it's already used.", 0},
    {"mine", none, {}, 5, kCtrl, true, canT("Ctrl+G"), "The key combination \"Ctrl + G\" can't be used because mine.", 0},
    // The desktop's list: unreadable refuses silently; enabled entries of the same combination refuse.
    {none, none, {}, 5, kCtrl, true, "", "", 1},
    {none, kCtrlG, {}, 5, kCtrl, true, canT("Ctrl+G"), kInPanel, 1},
    {none, kCtrlGOff, {}, 5, kCtrl, false, "", "", 1},
    {none, kCtrlShiftG, {}, 5, kCtrl, false, "", "", 1},
    {none, kCtrlGAndOtherBits, {}, 5, kCtrl, true, canT("Ctrl+G"), kInPanel, 1},
    // A key without a name is refused once the desktop has an enabled shortcut.
    {none, kCtrlG, {}, 90, kCtrl, true, "", "", 1},
    {none, kCtrlGOff, {}, 90, kCtrl, false, "", "", 1},
    // Held by another program.
    {none, kNone, {{5, kCtrl | kRecorderOption}}, 5, kCtrl | kRecorderOption, true, canT("Alt+Ctrl+G"),
     systemText("Ctrl + Alt + G", "the Keyboard panel"), 1},
    // The menu.
    {none, kNone, {}, kKeyC, kCtrl, true, canT("Ctrl+C"),
     "The key combination \"Ctrl + C\" can't be used because it's already used by the menu item \"Copy\".", 1},
    {none, kNone, {}, kKeyZ, kCtrl | kRecorderShift, true, canT("Shift+Ctrl+Z"),
     "The key combination \"Ctrl + Shift + Z\" can't be used because it's already used by the menu item \"Redo\".", 1},
    {none, kNone, {}, 5, kCtrl, false, "", "", 1},
    {none, kNone, {}, kKeyC, kRecorderControl, false, "", "", 1},
};
// clang-format on

TEST(Validation, DecidesAndExplainsInItsOrder) {
    for (const Row& row : kRows) {
        SCOPED_TRACE(row.suggestion + " " + std::to_string(row.code) + " " + std::to_string(row.recorderBits));
        test::ScopedKeyboardLayout us;
        test::ScopedSymbolicHotKeys desktop;
        ScriptedDelegate delegate;
        delegate.answer = row.delegateReason.has_value();
        delegate.answerReason = row.delegateReason.value_or("");
        desktop.hotKeys().hotKeys = row.desktop;
        desktop.hotKeys().held = row.held;
        desktop.hotKeys().settings = "the Keyboard panel";
        ShortcutValidator validator(&delegate);
        ShortcutConflict error;
        EXPECT_EQ(validator.isKeyCodeAndFlagsTaken(row.code, row.recorderBits, &error), row.taken);
        EXPECT_EQ(error.localizedDescription, row.description);
        EXPECT_EQ(error.localizedRecoverySuggestion, row.suggestion);
        if (!row.description.empty()) {
            EXPECT_EQ(error.code, 0);
            EXPECT_EQ(error.localizedRecoveryOptions, std::vector<std::string>{"OK"});
        }
        EXPECT_EQ(desktop.hotKeys().listReads, row.listReads);
        // The delegate hears the modifier flags.
        ASSERT_EQ(delegate.asked.size(), 1u);
        EXPECT_EQ(delegate.asked[0].second, modifiersFromRecorderFlags(row.recorderBits));
    }
}

TEST(ValidationPorts, WithoutDesktopPortOnlyTheMenuCounts) {
    test::ScopedKeyboardLayout us;
    ShortcutValidator validator;
    EXPECT_FALSE(validator.isKeyCodeAndFlagsTaken(5, kRecorderCommand));
    EXPECT_TRUE(validator.isKeyCodeAndFlagsTaken(kKeyV, kRecorderCommand));  // no error pointer: only the answer
}

TEST(ValidationPorts, DesktopWithoutSettingsNamePointsToTheDesktopsKeyboardSettings) {
    test::ScopedKeyboardLayout us;
    test::ScopedSymbolicHotKeys desktop;
    desktop.hotKeys().hotKeys = kCtrlG;
    ShortcutConflict error;
    EXPECT_TRUE(ShortcutValidator().isKeyCodeAndFlagsTaken(5, kRecorderCommand, &error));
    EXPECT_EQ(error.localizedRecoverySuggestion, systemText("Ctrl + G", "your desktop's keyboard settings"));
}

ShortcutMenuItem menuItem(std::string title, std::string key, Modifiers mask, ShortcutMenu submenu = {}) {
    return ShortcutMenuItem{std::move(title), std::move(key), mask, std::move(submenu)};
}

TEST(MenuSearch, FindsTheItemThatTakesTheCombination) {
    test::ScopedKeyboardLayout us;
    constexpr Modifiers kCommand = kModifierCommand;
    // The menu, the combination, the title of the item that takes it.
    const std::tuple<ShortcutMenu, ShortcutKeyCode, std::uint32_t, std::optional<std::string>> rows[] = {
        {{menuItem("Go", "g", kCommand)}, 5, kRecorderCommand, "Go"},
        {{menuItem("Go", "g", kCommand | kModifierOption)}, 5, kRecorderCommand, std::nullopt},
        {{menuItem("Go", "g", kCommand)}, 5, kRecorderCommand | kRecorderShift, std::nullopt},
        {{menuItem("File", "", 0, {menuItem("Open", "o", kCommand)})}, kKeyO, kRecorderCommand, "Open"},
        {{menuItem("Go", "g", kCommand, {menuItem("Find", "g", kCommand)})}, 5, kRecorderCommand, "Find"},
        {{menuItem("One", "g", kCommand), menuItem("Two", "g", kCommand)}, 5, kRecorderCommand, "One"},
        {{menuItem("Jorvane Preferences\u2026", "", kCommand)}, 5, kRecorderCommand, std::nullopt},
        {{menuItem("Help", "f1", kCommand)}, 122, kRecorderCommand, "Help"}};
    for (const auto& [menu, code, recorderBits, title] : rows) {
        SCOPED_TRACE(menu.front().title);
        ShortcutConflict error;
        EXPECT_EQ(ShortcutValidator().isKeyCodeAndFlagsTakenInMenu(code, recorderBits, menu, &error),
                  title.has_value());
        if (title) {
            EXPECT_NE(error.localizedRecoverySuggestion.find("\"" + *title + "\""), std::string::npos);
        }
    }
}

}  // namespace
}  // namespace jorvane
