// Validation of a key combination: the delegate, then the desktop's
// shortcuts (list and held combinations), then the menu, with the texts the
// user reads.
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

// The refusal's title for a combination as the recorder shows it.
std::string canT(const std::string& glyphs) { return "The key combination " + glyphs + " can't be used!"; }

std::string systemText(const std::string& combo, const std::string& place) {
    std::string text = kSystemText;
    text.replace(text.find("%s"), 2, combo);
    text.replace(text.find("%s"), 2, place);
    return text;
}

struct Row {
    const char* name;
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

class Validation : public testing::TestWithParam<Row> {
protected:
    test::ScopedKeyboardLayout us_;
    test::ScopedSymbolicHotKeys desktop_;
    ScriptedDelegate delegate_;
};

TEST_P(Validation, decidesAndExplains) {
    const Row& row = GetParam();
    delegate_.answer = row.delegateReason.has_value();
    delegate_.answerReason = row.delegateReason.value_or("");
    desktop_.hotKeys().hotKeys = row.desktop;
    desktop_.hotKeys().held = row.held;
    desktop_.hotKeys().settings = "the Keyboard panel";
    ShortcutValidator validator(&delegate_);
    ShortcutConflict error;
    EXPECT_EQ(validator.isKeyCodeAndFlagsTaken(row.code, row.recorderBits, &error), row.taken);
    EXPECT_EQ(error.localizedDescription, row.description);
    EXPECT_EQ(error.localizedRecoverySuggestion, row.suggestion);
    if (!row.description.empty()) {
        EXPECT_EQ(error.code, 0);
        EXPECT_EQ(error.localizedRecoveryOptions, std::vector<std::string>{"OK"});
    }
    EXPECT_EQ(desktop_.hotKeys().listReads, row.listReads);
    // The delegate hears the modifier flags.
    ASSERT_EQ(delegate_.asked.size(), 1u);
    EXPECT_EQ(delegate_.asked[0].second, modifiersFromRecorderFlags(row.recorderBits));
}

const std::vector<SymbolicHotKey> kCtrlG = {{true, 5, kRecorderCommand}};
const std::vector<SymbolicHotKey> kCtrlGOff = {{false, 5, kRecorderCommand}};
const std::vector<SymbolicHotKey> kCtrlShiftG = {{true, 5, kRecorderCommand | kRecorderShift}};
const std::vector<SymbolicHotKey> kCtrlGAndOtherBits = {{true, 5, kRecorderCommand | 0x1 | 0x400 | 0x800000}};
const std::vector<SymbolicHotKey> kNone;
const std::string kInPanel = systemText("Ctrl + G", "the Keyboard panel");
constexpr std::uint32_t kCtrl = kRecorderCommand;
const auto none = std::nullopt;

// clang-format off
INSTANTIATE_TEST_SUITE_P(Order, Validation, testing::Values(
    Row{"DelegateRefusalGivesItsReason", "Jorvane uses it", kNone, {}, 5, kCtrl, true,
        canT("Ctrl+G"), "The key combination \"Ctrl + G\" can't be used because Jorvane uses it.", 0},
    Row{"DelegateRefusalWithoutReasonSaysItsAlreadyUsed", "", kNone, {}, 5, kCtrl | kRecorderShift, true,
        canT("Shift+Ctrl+G"), "The key combination \"Ctrl + Shift + G\" can't be used because it's already used.", 0},
    Row{"DelegateIsAskedBeforeAnUnreadableDesktopList", "mine", none, {}, 5, kCtrl, true,
        canT("Ctrl+G"), "The key combination \"Ctrl + G\" can't be used because mine.", 0},
    Row{"UnreadableDesktopListRefusesWithoutTexts", none, none, {}, 5, kCtrl, true, "", "", 1},
    Row{"DesktopShortcutRefusesAndNamesTheDesktopsSettings", none, kCtrlG, {}, 5, kCtrl, true, canT("Ctrl+G"), kInPanel, 1},
    Row{"DisabledDesktopShortcutDoesNotCount", none, kCtrlGOff, {}, 5, kCtrl, false, "", "", 1},
    Row{"DesktopShortcutWithAnExtraModifierIsAnotherCombination", none, kCtrlShiftG, {}, 5, kCtrl, false, "", "", 1},
    Row{"DesktopShortcutsOtherMaskBitsAreIgnored", none, kCtrlGAndOtherBits, {}, 5, kCtrl, true, canT("Ctrl+G"),
        kInPanel, 1},
    Row{"KeyWithoutNameIsRefusedOnceTheDesktopHasAShortcut", none, kCtrlG, {}, 90, kCtrl, true, "", "", 1},
    Row{"KeyWithoutNamePassesWhenNoDesktopShortcutIsEnabled", none, kCtrlGOff, {}, 90, kCtrl, false, "", "", 1},
    Row{"CombinationHeldByAnotherProgramRefuses", none, kNone, {{5, kCtrl | kRecorderOption}}, 5, kCtrl | kRecorderOption,
        true, canT("Alt+Ctrl+G"), systemText("Ctrl + Alt + G", "the Keyboard panel"), 1},
    Row{"MenuKeyRefusesWithTheItemsTitle", none, kNone, {}, kKeyC, kCtrl, true, canT("Ctrl+C"),
        "The key combination \"Ctrl + C\" can't be used because it's already used by the menu item \"Copy\".", 1},
    Row{"MenuKeyWithShiftIsRedo", none, kNone, {}, kKeyZ, kCtrl | kRecorderShift, true, canT("Shift+Ctrl+Z"),
        "The key combination \"Ctrl + Shift + Z\" can't be used because it's already used by the menu item \"Redo\".", 1},
    Row{"CtrlGIsFree", none, kNone, {}, 5, kCtrl, false, "", "", 1},
    Row{"MenuLetterWithAnotherModifierIsFree", none, kNone, {}, kKeyC, kRecorderControl, false, "", "", 1}),
    [](const testing::TestParamInfo<Row>& row) { return std::string(row.param.name); });
// clang-format on

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

// ---- Menu search.

ShortcutMenuItem menuItem(std::string title, std::string key, Modifiers mask, ShortcutMenu submenu = {}) {
    return ShortcutMenuItem{std::move(title), std::move(key), mask, std::move(submenu)};
}

struct MenuRow {
    const char* name;
    ShortcutMenu menu;
    ShortcutKeyCode code;
    std::uint32_t recorderBits;
    std::optional<std::string> title;  // of the item that takes it
};

class MenuSearch : public testing::TestWithParam<MenuRow> {
protected:
    test::ScopedKeyboardLayout us_;
};

TEST_P(MenuSearch, findsTheItem) {
    const MenuRow& row = GetParam();
    ShortcutConflict error;
    EXPECT_EQ(ShortcutValidator().isKeyCodeAndFlagsTakenInMenu(row.code, row.recorderBits, row.menu, &error),
              row.title.has_value());
    if (row.title) {
        EXPECT_NE(error.localizedRecoverySuggestion.find("\"" + *row.title + "\""), std::string::npos);
    }
}

constexpr Modifiers kCommand = kModifierCommand;

// clang-format off
INSTANTIATE_TEST_SUITE_P(
    Menus, MenuSearch,
    testing::Values(
        MenuRow{"LowerCaseEquivalentMatchesInUpperCase", {menuItem("Go", "g", kCommand)}, 5, kRecorderCommand, "Go"},
        MenuRow{"ItemWithAnExtraOptionDoesNotMatch",
                {menuItem("Go", "g", kCommand | kModifierOption)}, 5, kRecorderCommand, std::nullopt},
        MenuRow{"CandidateWithAnExtraShiftDoesNotMatch", {menuItem("Go", "g", kCommand)}, 5, kRecorderCommand | kRecorderShift,
                std::nullopt},
        MenuRow{"ItemInASubmenuIsFound",
                {menuItem("File", "", 0, {menuItem("Open", "o", kCommand)})}, kKeyO, kRecorderCommand, "Open"},
        MenuRow{"SubmenuMatchWinsOverTheItemsOwnKey",
                {menuItem("Go", "g", kCommand, {menuItem("Find", "g", kCommand)})}, 5, kRecorderCommand, "Find"},
        MenuRow{"FirstMatchingItemWins", {menuItem("One", "g", kCommand), menuItem("Two", "g", kCommand)}, 5,
                kRecorderCommand, "One"},
        MenuRow{"ItemsWithoutKeysNeverMatch", {menuItem("Jorvane Preferences\u2026", "", kCommand)}, 5, kRecorderCommand,
                std::nullopt},
        MenuRow{"FunctionKeyMatchesByItsName", {menuItem("Help", "f1", kCommand)}, 122, kRecorderCommand, "Help"}),
    [](const testing::TestParamInfo<MenuRow>& row) { return std::string(row.param.name); });

}  // namespace
// clang-format on
}  // namespace jorvane
