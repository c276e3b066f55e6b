// The recorder's state machine: recording, cancel keys, flags, refusals,
// the just-changed mark, autosave and loading, the view, the control.
#include "shortcut/ShortcutRecorder.h"

#include <gtest/gtest.h>

#include "fakes/FakeAlerts.h"
#include "fakes/FakeKeyboardLayout.h"
#include "fakes/FakeSymbolicHotKeys.h"
#include "fakes/MemoryDefaults.h"
#include "settings/DefaultsCatalogue.h"
#include "shortcut/ShortcutControl.h"

namespace jorvane {
namespace {

constexpr Modifiers kCmd = kModifierCommand, kOpt = kModifierOption, kShf = kModifierShift, kFn = kModifierFunction;

class FakeView final : public ShortcutRecorderView {
public:
    void setNeedsDisplay() override { ++redraws; }
    void beep() override { ++beeps; }
    bool isFirstResponder() const override { return focused; }
    Modifiers currentModifierFlags() const override { return heldFlags; }
    void setCapturesGlobalHotKeys(bool capture) override { captures.push_back(capture); }

    int redraws = 0;
    int beeps = 0;
    bool focused = true;
    Modifiers heldFlags = 0;
    std::vector<bool> captures;
};

class RecordingDelegate final : public ShortcutRecorderDelegate {
public:
    void recorderShortcutChanged(ShortcutRecorder&, ShortcutCombo combo) override { changes.push_back(combo); }
    std::vector<ShortcutCombo> changes;
};

ShortcutKeyEvent key(ShortcutKeyCode code, Modifiers flags, std::string characters) {
    return ShortcutKeyEvent{code, flags, characters, characters};
}
const ShortcutKeyEvent kSpace = key(kKeySpace, 0, " ");
const ShortcutKeyEvent kG = key(kKeyG, 0, "g");

class RecorderFixture {
protected:
    RecorderFixture() : cell_(&defaults_.defaults(), &alerts_) {
        cell_.setView(&view_);
        cell_.setDelegate(&delegate_);
    }
    void record() {
        cell_.clickField();
        ASSERT_TRUE(cell_.isRecording());
    }
    settings::Dictionary stored(const std::string& name) {
        return defaults_.defaults().dictionaryForKey(settings::keys::hotkeyRecorder(name));
    }

    test::ScopedKeyboardLayout us_;
    test::ScopedSymbolicHotKeys desktop_;
    test::ScopedStandardDefaults defaults_;
    test::FakeAlerts alerts_;
    FakeView view_;
    RecordingDelegate delegate_;
    ShortcutRecorder cell_;
};

// ---- One key press, table-driven.

struct KeyRow {
    const char* name;
    bool allowsKeyOnly;
    bool escapeKeysRecord;
    Modifiers required;
    Modifiers allowed;
    bool recording;  // before the key
    ShortcutKeyEvent event;
    bool consumed;
    ShortcutRecorderState after;
    std::optional<ShortcutCombo> recorded;  // none: the combination stays as it was
    bool beeps = false;
    bool alert = false;
};

class KeyPress : public RecorderFixture, public testing::TestWithParam<KeyRow> {};

TEST_P(KeyPress, followsTheRules) {
    const KeyRow& row = GetParam();
    cell_.setAllowsKeyOnly(row.allowsKeyOnly, row.escapeKeysRecord);
    cell_.setRequiredFlags(row.required);
    cell_.setAllowedFlags(row.allowed);
    cell_.setKeyCombo(ShortcutCombo{kCmd | kShf, kKeyJ});
    const ShortcutCombo before = cell_.keyCombo();
    delegate_.changes.clear();
    if (row.recording) record();
    view_.heldFlags = kCmd;

    EXPECT_EQ(cell_.performKeyEquivalent(row.event), row.consumed);
    EXPECT_EQ(cell_.state(), row.after);
    EXPECT_EQ(cell_.keyCombo(), row.recorded.value_or(before));
    EXPECT_EQ(delegate_.changes.size(), row.recorded ? 1u : 0u);
    EXPECT_EQ(view_.beeps, row.beeps ? 1 : 0);
    EXPECT_EQ(alerts_.shown().size(), row.alert ? 1u : 0u);
    if (row.recorded) {
        EXPECT_TRUE(cell_.hasKeyChars());
        EXPECT_EQ(cell_.keyChars(), row.event.characters);
    }
}

constexpr Modifiers kAll = ShortcutRecorder::kDefaultAllowedFlags;
using S = ShortcutRecorderState;

// clang-format off
INSTANTIATE_TEST_SUITE_P(Rules, KeyPress, testing::Values(
    KeyRow{"SpaceWhileIdleStartsRecording", false, false, 0, kAll, false, kSpace, true, S::recording, {}},
    KeyRow{"OtherKeyWhileIdleIsPassedOn", false, false, 0, kAll, false, kG, false, S::idle, {}},
    KeyRow{"CtrlGIsRecorded", false, false, 0, kAll, true, key(5, kCmd, "g"), true, S::idle, ShortcutCombo{kCmd, 5}},
    KeyRow{"BareKeyIsPassedOnWhenKeyOnlyIsOff", false, false, 0, kAll, true, kG, false, S::recording, {}},
    KeyRow{"BareSpaceWithFocusRestartsRecordingAndIsPassedOn", false, false, 0, kAll, true, kSpace, false,
        S::recording, {}},
    KeyRow{"BareKeyIsRecordedWhenKeyOnlyIsOn", true, false, 0, kAll, true, kG, true, S::idle, ShortcutCombo{0, 5}},
    KeyRow{"BareEscapeCancels", true, false, 0, kAll, true, key(53, 0, "\x1b"), true, S::idle, {}},
    KeyRow{"BareBackspaceCancels", true, false, 0, kAll, true, key(51, 0, "\x08"), true, S::idle, {}},
    KeyRow{"BareDeleteCancels", true, false, 0, kAll, true, key(117, 0, "\x7f"), true, S::idle, {}},
    KeyRow{"EscapeWithOnlyFunctionCancels", true, false, 0, kAll, true, key(53, kFn, "\x1b"), true, S::idle, {}},
    KeyRow{"BareEscapeCancelsWhenKeyOnlyIsOff", false, false, 0, kAll, true, key(53, 0, "\x1b"), true, S::idle, {}},
    KeyRow{"CtrlEscapeIsRecorded", true, false, 0, kAll, true, key(53, kCmd, "\x1b"), true, S::idle,
        ShortcutCombo{kCmd, 53}},
    KeyRow{"BareEscapeIsRecordedWhenEscapeKeysRecord", true, true, 0, kAll, true, key(53, 0, "\x1b"), true, S::idle,
        ShortcutCombo{0, 53}},
    KeyRow{"DeadKeyBeepsAndEndsRecording", false, false, 0, kAll, true, ShortcutKeyEvent{kKey6, kCmd, "", ""}, true,
        S::idle, {}, true},
    KeyRow{"TakenCombinationShowsTheReasonAndKeepsRecording", false, false, 0, kAll, true, key(8, kCmd, "c"), true,
        S::recording, {}, false, true},
    KeyRow{"RequiredCtrlIsAddedToABareKey", false, false, kCmd, kAll, true, kG, true, S::idle, ShortcutCombo{kCmd, 5}},
    KeyRow{"ModifierThatIsNotAllowedIsDropped", false, false, 0, kCmd | kShf, true, key(5, kCmd | kOpt, "g"), true,
        S::idle, ShortcutCombo{kCmd, 5}},
    KeyRow{"ModifierThatIsNotAllowedLeavesNoValidFlags", false, false, 0, kCmd, true, key(5, kOpt, "g"), false,
        S::recording, {}},
    KeyRow{"CapsLockAndKeypadBitsAreDropped", false, false, 0, kAll, true,
        key(5, kCmd | kModifierCapsLock | kModifierNumericPad, "g"), true, S::idle, ShortcutCombo{kCmd, 5}},
    KeyRow{"FunctionAloneMakesValidFlags", false, false, 0, kAll, true, key(96, kFn, "\xef\x9c\x88"), true, S::idle,
        ShortcutCombo{kFn, 96}}),
    [](const testing::TestParamInfo<KeyRow>& row) { return std::string(row.param.name); });
// clang-format on

// ---- The rest of the rules.

class Recorder : public RecorderFixture, public testing::Test {};

TEST_F(Recorder, RefusalAlertIsCriticalWithTheValidatorsTextsAndRefreshesTheShownFlags) {
    record();
    view_.heldFlags = kCmd | kShf;
    EXPECT_TRUE(cell_.performKeyEquivalent(key(kKeyC, kCmd, "c")));
    ASSERT_EQ(alerts_.shown().size(), 1u);
    const AlertSpec& alert = alerts_.shown()[0];
    EXPECT_EQ(alert.style, AlertSpec::Style::critical);
    EXPECT_EQ(alert.messageText, "The key combination Ctrl+C can't be used!");
    EXPECT_EQ(alert.informativeText,
              "The key combination \"Ctrl + C\" can't be used because it's already used by the menu item \"Copy\".");
    EXPECT_EQ(alert.buttons, std::vector<std::string>{"OK"});
    EXPECT_EQ(cell_.recordingFlags(), kCmd | kShf);
}

TEST_F(Recorder, SilentRefusalStillTellsTheUserWhichCombination) {
    desktop_.hotKeys().hotKeys = std::nullopt;  // unreadable
    record();
    EXPECT_TRUE(cell_.performKeyEquivalent(key(5, kCmd, "g")));
    ASSERT_EQ(alerts_.shown().size(), 1u);
    EXPECT_EQ(alerts_.shown()[0].messageText, "The key combination Ctrl+G can't be used!");
    EXPECT_TRUE(cell_.isRecording());
}

TEST_F(Recorder, StartShowsTheRequiredFlagsAndModifierChangesWhileRecording) {
    cell_.setRequiredFlags(kCmd);
    cell_.flagsChanged(kShf);  // idle: nothing
    EXPECT_EQ(cell_.recordingFlags(), 0u);
    record();
    EXPECT_EQ(cell_.recordingFlags(), kCmd);
    EXPECT_EQ(cell_.displayText(), "Ctrl+");
    cell_.flagsChanged(kShf | kModifierCapsLock);
    EXPECT_EQ(cell_.recordingFlags(), kCmd | kShf);
    EXPECT_EQ(cell_.displayText(), "Shift+Ctrl+");
}

TEST_F(Recorder, WithAnimationTheJustChangedMarkLastsUntilTheTransitionEnds) {
    cell_.setAnimatesTransitions(true);
    record();
    cell_.performKeyEquivalent(key(5, kCmd, "g"));
    EXPECT_EQ(cell_.state(), ShortcutRecorderState::ending);
    EXPECT_FALSE(cell_.isRecording());
    EXPECT_TRUE(cell_.isJustChanged());
    EXPECT_EQ(cell_.displayText(), "Ctrl+G");
    cell_.transitionFinished();
    EXPECT_EQ(cell_.state(), ShortcutRecorderState::idle);
    EXPECT_FALSE(cell_.isJustChanged());
}

TEST_F(Recorder, WithAnimationACancelEndsWithoutTheMarkAndNewInputFinishesTheTransition) {
    cell_.setAnimatesTransitions(true);
    record();
    cell_.snapBack();
    EXPECT_EQ(cell_.state(), ShortcutRecorderState::ending);
    EXPECT_FALSE(cell_.isJustChanged());
    EXPECT_TRUE(cell_.performKeyEquivalent(kSpace));
    EXPECT_EQ(cell_.state(), ShortcutRecorderState::recording);
}

TEST_F(Recorder, CapturesTheDesktopsShortcutsWhileRecordingOnlyWhenAsked) {
    record();
    cell_.snapBack();
    EXPECT_TRUE(view_.captures.empty());
    cell_.setCanCaptureGlobalHotKeys(true);
    record();
    cell_.performKeyEquivalent(key(5, kCmd, "g"));
    EXPECT_EQ(view_.captures, (std::vector<bool>{true, false}));
}

TEST_F(Recorder, SetKeyComboFiltersForgetsTheCharactersAndTellsTheDelegateEvenWithoutChange) {
    cell_.setAutosaveName("Activation");
    record();
    cell_.performKeyEquivalent(key(5, kCmd, "g"));
    delegate_.changes.clear();
    cell_.setKeyCombo(ShortcutCombo{kCmd | kModifierCapsLock, 5});
    cell_.setKeyCombo(ShortcutCombo{kCmd, 5});
    EXPECT_EQ(delegate_.changes, (std::vector<ShortcutCombo>{{kCmd, 5}, {kCmd, 5}}));
    EXPECT_FALSE(cell_.hasKeyChars());
    EXPECT_EQ(stored("Activation"), settings::Value::parse(R"({"keyCode": 5, "modifierFlags": 1048576,
                                                                "modifiers": 256})")
                                        .get<settings::Dictionary>());
}

TEST_F(Recorder, RecordedComboIsSavedWithItsCharacters) {
    cell_.setAutosaveName("Activation");
    record();
    cell_.performKeyEquivalent(ShortcutKeyEvent{kKey1, kCmd | kShf, "!", "1"});
    EXPECT_EQ(stored("Activation"),
              settings::Value::parse(R"({"keyCode": 18, "modifierFlags": 1179648, "modifiers": 768,
                                         "keyChars": "!", "keyCharsIgnoringModifiers": "1"})")
                  .get<settings::Dictionary>());
}

TEST_F(Recorder, WithoutAutosaveNameNothingIsStoredAndWithoutAnimationNoMarkStays) {
    record();
    cell_.performKeyEquivalent(key(5, kCmd, "g"));
    EXPECT_TRUE(defaults_.store().values().empty());
    EXPECT_EQ(cell_.state(), ShortcutRecorderState::idle);
    EXPECT_FALSE(cell_.isJustChanged());
}

struct LoadRow {
    const char* name;
    const char* stored;  // JSON, or null for nothing
    ShortcutCombo loaded;
    std::optional<std::string> keyChars;
};

class Loading : public RecorderFixture, public testing::TestWithParam<LoadRow> {};

TEST_P(Loading, readsTheStoredCombination) {
    const LoadRow& row = GetParam();
    if (row.stored) {
        defaults_.defaults().setObject(settings::Value::parse(row.stored).get<settings::Dictionary>(),
                                       settings::keys::hotkeyRecorder("Activation"));
    }
    cell_.setAutosaveName("Activation");
    EXPECT_EQ(cell_.keyCombo(), row.loaded);
    EXPECT_EQ(delegate_.changes, std::vector<ShortcutCombo>{row.loaded});
    EXPECT_EQ(cell_.hasKeyChars(), row.keyChars.has_value());
    if (row.keyChars) {
        EXPECT_EQ(cell_.keyChars(), *row.keyChars);
    }
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(Stored, Loading, testing::Values(
    LoadRow{"ModifierFlagsAreTakenAsTheyAre", R"({"keyCode": 5, "modifierFlags": 1048576, "modifiers": 512})",
        {kCmd, 5}, std::nullopt},
    LoadRow{"RecorderFlagsAreConvertedWhenModifierFlagsAreMissing", R"({"keyCode": 5, "modifiers": 2304})",
        {kCmd | kOpt, 5}, std::nullopt},
    LoadRow{"FlagsAreFiltered", R"({"keyCode": 5, "modifierFlags": 1114112})", {kCmd, 5}, std::nullopt},
    LoadRow{"CharactersComeWithTheCombination",
        R"({"keyCode": 5, "modifierFlags": 1048576, "keyChars": "g", "keyCharsIgnoringModifiers": "g"})", {kCmd, 5},
        "g"},
    LoadRow{"NothingStoredReadsAsKeyCodeZeroWithoutFlags", nullptr, {0, 0}, std::nullopt}),
    [](const testing::TestParamInfo<LoadRow>& row) { return std::string(row.param.name); });
// clang-format on

TEST_F(Recorder, NarrowerAllowedFlagsRefilterTheComboAndTellOnlyWhenAKeyIsSet) {
    cell_.setAutosaveName("Activation");
    cell_.setKeyCombo(ShortcutCombo{kCmd | kShf, 5});
    delegate_.changes.clear();
    cell_.setAllowedFlags(kCmd);
    EXPECT_EQ(cell_.keyCombo(), (ShortcutCombo{kCmd, 5}));
    EXPECT_EQ(delegate_.changes, (std::vector<ShortcutCombo>{ShortcutCombo{kCmd, 5}}));
    EXPECT_EQ(stored("Activation").at("modifierFlags"), kCmd);
    cell_.setAllowedFlags(kAll);  // nothing to refilter
    cell_.setKeyCombo(ShortcutCombo{kShf, kNoShortcutKey});
    delegate_.changes.clear();
    cell_.setAllowedFlags(kCmd);
    EXPECT_EQ(cell_.keyCombo(), (ShortcutCombo{0, kNoShortcutKey}));
    EXPECT_TRUE(delegate_.changes.empty());
}

TEST_F(Recorder, RequiredFlagsWhileRecordingRefilterTheHeldModifiers) {
    record();
    view_.heldFlags = kShf;
    cell_.setRequiredFlags(kCmd);
    EXPECT_EQ(cell_.recordingFlags(), kCmd | kShf);
}

TEST_F(Recorder, ViewShowsTextsAndButtonsByState) {
    cell_.setKeyCombo(ShortcutCombo{0, kNoShortcutKey});
    EXPECT_TRUE(cell_.isEmpty());
    EXPECT_EQ(cell_.displayText(), "Click to record shortcut");
    EXPECT_FALSE(cell_.showsRemoveButton());
    cell_.setKeyCombo(ShortcutCombo{0, 5});
    EXPECT_TRUE(cell_.isEmpty());  // a bare key while key-only combinations are off
    cell_.setKeyCombo(ShortcutCombo{kCmd, 5});
    EXPECT_EQ(cell_.displayText(), "Ctrl+G");
    EXPECT_TRUE(cell_.showsRemoveButton());
    EXPECT_FALSE(cell_.showsSnapBackButton());
    record();
    EXPECT_EQ(cell_.displayText(), "Type shortcut");
    EXPECT_EQ(cell_.snapBackText(), "Use old shortcut");
    EXPECT_TRUE(cell_.showsSnapBackButton());
    EXPECT_FALSE(cell_.showsRemoveButton());
    cell_.snapBack();
    EXPECT_EQ(cell_.keyCombo(), (ShortcutCombo{kCmd, 5}));
    cell_.setHoveredPart(ShortcutRecorderPart::removeButton);
    cell_.setPressedPart(ShortcutRecorderPart::removeButton);
    cell_.removeKeyCombo();
    EXPECT_EQ(cell_.keyCombo(), (ShortcutCombo{0, kNoShortcutKey}));
    EXPECT_EQ(delegate_.changes.back(), (ShortcutCombo{0, kNoShortcutKey}));
}

TEST_F(Recorder, DisabledFieldDoesNotStartOnAClickAndDisablingStopsRecording) {
    record();
    cell_.setEnabled(false);
    EXPECT_FALSE(cell_.isRecording());
    cell_.clickField();
    EXPECT_FALSE(cell_.isRecording());
}

// ---- The control.

class PreferencesLike final : public ShortcutControlDelegate {
public:
    bool hotkeyRecorderIsKeyCodeAndFlagsTaken(ShortcutControl&, ShortcutKeyCode keyCode, Modifiers,
                                              std::string& reason) override {
        reason = "Thunar uses it";
        return keyCode == kKeyL;
    }
    void shortcutChanged(ShortcutControl&, Modifiers flags, ShortcutKeyCode keyCode) override {
        changes.emplace_back(flags, keyCode);
    }
    std::vector<std::pair<Modifiers, ShortcutKeyCode>> changes;
};

TEST(RecorderControl, ForwardsChangesAndRefusalsToItsDelegate) {
    test::ScopedKeyboardLayout us;
    test::ScopedStandardDefaults defaults;
    test::FakeAlerts alerts;
    FakeView view;
    ShortcutControl control(nullptr, &alerts);
    control.cell().setView(&view);
    control.setKeyCombo(ShortcutCombo{kCmd, 5});  // no delegate yet: nobody hears it
    PreferencesLike preferences;
    control.setDelegate(&preferences);
    control.setAllowsKeyOnly(true, false);
    control.setKeyCombo(ShortcutCombo{kCmd | kModifierCapsLock, 5});
    EXPECT_EQ(preferences.changes, (std::vector<std::pair<Modifiers, ShortcutKeyCode>>{{kCmd, 5}}));

    control.cell().clickField();
    control.cell().performKeyEquivalent(key(kKeyL, kCmd, "l"));
    ASSERT_EQ(alerts.shown().size(), 1u);
    EXPECT_EQ(alerts.shown()[0].informativeText,
              "The key combination \"Ctrl + L\" can't be used because Thunar uses it.");
    control.cell().performKeyEquivalent(key(kKeyK, kCmd, "k"));
    EXPECT_EQ(control.keyCombo(), (ShortcutCombo{kCmd, kKeyK}));
    EXPECT_EQ(preferences.changes.back(), (std::pair<Modifiers, ShortcutKeyCode>{kCmd, kKeyK}));
}

}  // namespace
}  // namespace jorvane
