// The recorder's state machine: recording, cancel keys, flags, refusals, the just-changed mark, autosave
// and loading, the view.
#include "shortcut/ShortcutRecorder.h"

#include <gtest/gtest.h>

#include "fakes/FakeAlerts.h"
#include "fakes/FakeKeyboardLayout.h"
#include "fakes/FakeSymbolicHotKeys.h"
#include "fakes/MemoryDefaults.h"
#include "settings/DefaultsCatalogue.h"

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
public:
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

struct KeyRow {
    bool allowsKeyOnly, escapeKeysRecord;
    Modifiers required, allowed;
    bool recording;  // before the key
    ShortcutKeyEvent event;
    bool consumed;
    ShortcutRecorderState after;
    std::optional<ShortcutCombo> recorded;  // none: the combination stays as it was
    bool beeps = false, alert = false;
};

constexpr Modifiers kAll = ShortcutRecorder::kDefaultAllowedFlags;
using S = ShortcutRecorderState;
const ShortcutKeyEvent kEscape = key(53, 0, "\x1b");

// clang-format off
const KeyRow kKeyRows[] = {
    {false, false, 0, kAll, false, kSpace, true, S::recording, {}},  // Space while idle starts recording
    {false, false, 0, kAll, false, kG, false, S::idle, {}},          // another key while idle is passed on
    {false, false, 0, kAll, true, key(5, kCmd, "g"), true, S::idle, ShortcutCombo{kCmd, 5}},
    {false, false, 0, kAll, true, kG, false, S::recording, {}},      // a bare key while key-only is off
    {false, false, 0, kAll, true, kSpace, false, S::recording, {}},  // bare Space with focus restarts, passed on
    {true, false, 0, kAll, true, kG, true, S::idle, ShortcutCombo{0, 5}},
    // Escape, Backspace and Delete cancel, alone or with Fn, even with key-only off; with Ctrl they record.
    {true, false, 0, kAll, true, kEscape, true, S::idle, {}},
    {true, false, 0, kAll, true, key(51, 0, "\x08"), true, S::idle, {}},
    {true, false, 0, kAll, true, key(117, 0, "\x7f"), true, S::idle, {}},
    {true, false, 0, kAll, true, key(53, kFn, "\x1b"), true, S::idle, {}},
    {false, false, 0, kAll, true, kEscape, true, S::idle, {}},
    {true, false, 0, kAll, true, key(53, kCmd, "\x1b"), true, S::idle, ShortcutCombo{kCmd, 53}},
    {true, true, 0, kAll, true, kEscape, true, S::idle, ShortcutCombo{0, 53}},  // unless escape keys record
    {false, false, 0, kAll, true, ShortcutKeyEvent{kKey6, kCmd, "", ""}, true, S::idle, {}, true},  // a dead key beeps
    {false, false, 0, kAll, true, key(8, kCmd, "c"), true, S::recording, {}, false, true},  // taken: the reason
    {false, false, kCmd, kAll, true, kG, true, S::idle, ShortcutCombo{kCmd, 5}},  // required Ctrl is added
    {false, false, 0, kCmd | kShf, true, key(5, kCmd | kOpt, "g"), true, S::idle, ShortcutCombo{kCmd, 5}},
    {false, false, 0, kCmd, true, key(5, kOpt, "g"), false, S::recording, {}},  // no valid flags left
    {false, false, 0, kAll, true, key(5, kCmd | kModifierCapsLock | kModifierNumericPad, "g"), true, S::idle,
     ShortcutCombo{kCmd, 5}},
    {false, false, 0, kAll, true, key(96, kFn, "\xef\x9c\x88"), true, S::idle, ShortcutCombo{kFn, 96}},
};
// clang-format on

TEST(KeyPress, FollowsTheRules) {
    for (const KeyRow& row : kKeyRows) {
        SCOPED_TRACE(std::to_string(row.event.keyCode) + " " + std::to_string(row.event.modifierFlags));
        RecorderFixture f;
        f.cell_.setAllowsKeyOnly(row.allowsKeyOnly, row.escapeKeysRecord);
        f.cell_.setRequiredFlags(row.required);
        f.cell_.setAllowedFlags(row.allowed);
        f.cell_.setKeyCombo(ShortcutCombo{kCmd | kShf, kKeyJ});
        const ShortcutCombo before = f.cell_.keyCombo();
        f.delegate_.changes.clear();
        if (row.recording) f.record();
        f.view_.heldFlags = kCmd;
        EXPECT_EQ(f.cell_.performKeyEquivalent(row.event), row.consumed);
        EXPECT_EQ(f.cell_.state(), row.after);
        EXPECT_EQ(f.cell_.keyCombo(), row.recorded.value_or(before));
        EXPECT_EQ(f.delegate_.changes.size(), row.recorded ? 1u : 0u);
        EXPECT_EQ(f.view_.beeps, row.beeps ? 1 : 0);
        EXPECT_EQ(f.alerts_.shown().size(), row.alert ? 1u : 0u);
        if (row.recorded) {
            EXPECT_TRUE(f.cell_.hasKeyChars());
            EXPECT_EQ(f.cell_.keyChars(), row.event.characters);
        }
    }
}

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
    // A refusal without a reason (the desktop's list unreadable) still names the combination.
    desktop_.hotKeys().hotKeys = std::nullopt;
    EXPECT_TRUE(cell_.performKeyEquivalent(key(5, kCmd, "g")));
    ASSERT_EQ(alerts_.shown().size(), 2u);
    EXPECT_EQ(alerts_.shown()[1].messageText, "The key combination Ctrl+G can't be used!");
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
    // Required flags set while recording refilter the held modifiers.
    view_.heldFlags = kOpt;
    cell_.setRequiredFlags(kCmd);
    EXPECT_EQ(cell_.recordingFlags(), kCmd | kOpt);
}

TEST_F(Recorder, WithAnimationTheJustChangedMarkLastsUntilTheTransitionEndsAndACancelLeavesNone) {
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
    // A cancel ends without the mark, and new input finishes the transition.
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

TEST_F(Recorder, ARecordedComboIsSavedWithItsCharactersAndASetOneFilteredWithout) {
    record();
    cell_.performKeyEquivalent(key(5, kCmd, "g"));
    EXPECT_TRUE(defaults_.store().values().empty()) << "nothing is stored without an autosave name";
    EXPECT_FALSE(cell_.isJustChanged()) << "nor a mark kept without animation";
    cell_.setAutosaveName("Activation");
    record();
    cell_.performKeyEquivalent(ShortcutKeyEvent{kKey1, kCmd | kShf, "!", "1"});
    EXPECT_EQ(stored("Activation"),
              settings::Value::parse(R"({"keyCode": 18, "modifierFlags": 1179648, "modifiers": 768,
                                         "keyChars": "!", "keyCharsIgnoringModifiers": "1"})")
                  .get<settings::Dictionary>());
    // Setting a combination filters it, forgets the characters and tells the delegate even without change.
    delegate_.changes.clear();
    cell_.setKeyCombo(ShortcutCombo{kCmd | kModifierCapsLock, 5});
    cell_.setKeyCombo(ShortcutCombo{kCmd, 5});
    EXPECT_EQ(delegate_.changes, (std::vector<ShortcutCombo>{{kCmd, 5}, {kCmd, 5}}));
    EXPECT_FALSE(cell_.hasKeyChars());
    EXPECT_EQ(stored("Activation"), settings::Value::parse(R"({"keyCode": 5, "modifierFlags": 1048576,
                                                                "modifiers": 256})")
                                        .get<settings::Dictionary>());
}

TEST(Loading, ReadsTheStoredCombination) {
    // What is stored (JSON, or nothing), the combination and the characters loaded.
    const std::tuple<const char*, ShortcutCombo, std::optional<std::string>> rows[] = {
        {R"({"keyCode": 5, "modifierFlags": 1048576, "modifiers": 512})", {kCmd, 5}, std::nullopt},
        {R"({"keyCode": 5, "modifiers": 2304})", {kCmd | kOpt, 5}, std::nullopt},  // converted recorder flags
        {R"({"keyCode": 5, "modifierFlags": 1114112})", {kCmd, 5}, std::nullopt},  // filtered
        {R"({"keyCode": 5, "modifierFlags": 1048576, "keyChars": "g", "keyCharsIgnoringModifiers": "g"})",
         {kCmd, 5},
         "g"},
        {nullptr, {0, 0}, std::nullopt}};
    for (const auto& [stored, loaded, keyChars] : rows) {
        SCOPED_TRACE(stored ? stored : "nothing");
        RecorderFixture f;
        if (stored) {
            f.defaults_.defaults().setObject(settings::Value::parse(stored).get<settings::Dictionary>(),
                                             settings::keys::hotkeyRecorder("Activation"));
        }
        f.cell_.setAutosaveName("Activation");
        EXPECT_EQ(f.cell_.keyCombo(), loaded);
        EXPECT_EQ(f.delegate_.changes, std::vector<ShortcutCombo>{loaded});
        EXPECT_EQ(f.cell_.hasKeyChars() ? std::optional(f.cell_.keyChars()) : std::nullopt, keyChars);
    }
}

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

}  // namespace
}  // namespace jorvane
