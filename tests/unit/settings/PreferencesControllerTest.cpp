// The preferences controller over an in-memory settings domain, a recorder
// without a widget and a temporary autostart folder: the stored hot key
// shown and written back filtered, recorded keys stored, the check boxes
// written at once, start at login, and closing in its order.
#include "settings/PreferencesController.h"

#include <gtest/gtest.h>

#include <memory>
#include <optional>

#include "fakes/FakeAlerts.h"
#include "fakes/FakeKeyboardLayout.h"
#include "fakes/FakeSymbolicHotKeys.h"
#include "fakes/MemoryDefaults.h"
#include "fakes/TestSupport.h"
#include "unit/TableSupport.h"
#include "settings/LoginItems.h"
#include "settings/UserDefaults.h"
#include "unit/ScopedEnv.h"

namespace jorvane {
namespace {

constexpr Modifiers kCmd = kModifierCommand, kShf = kModifierShift, kOpt = kModifierOption, kCtl = kModifierControl,
                    kFn = kModifierFunction, kCaps = kModifierCapsLock, kPad = kModifierNumericPad;

using test::SentenceName;

// The window: a recorder and a record of the close.
class FakePane final : public PrefPaneView {
public:
    FakePane(settings::UserDefaults& defaults, Alerts& alerts) : recorder_(&defaults, &alerts) {}
    ShortcutControl& hotkeyRecorder() override { return recorder_; }
    void closeWindow() override {
        ++closes;
        delegateAtClose = recorder_.delegate();
        if (onClose) onClose();
    }

    int closes = 0;
    ShortcutControlDelegate* delegateAtClose = nullptr;
    std::function<void()> onClose;

private:
    ShortcutControl recorder_;
};

class PrefFixture {
protected:
    std::unique_ptr<PreferencesController> open(FakePane& pane) {
        auto controller = std::make_unique<PreferencesController>(
            PreferencesController::Dependencies{*defaults_, kProgram, {}, [this] { ++settingsChanges_; }});
        controller->setWindow(&pane);
        controller->windowLoaded();
        return controller;
    }
    std::int64_t storedFlags() const { return defaults_->integerForKey(settings::keys::hotkeyFlags); }
    std::int64_t storedCode() const { return defaults_->integerForKey(settings::keys::hotkeyKeycode); }
    void storeHotKey(std::int64_t flags, std::int64_t code) {
        defaults_->setInteger(flags, settings::keys::hotkeyFlags);
        defaults_->setInteger(code, settings::keys::hotkeyKeycode);
    }
    // A key press while the field records.
    static void record(ShortcutControl& recorder, ShortcutKeyCode code, Modifiers flags, std::string chars) {
        recorder.cell().clickField();
        ASSERT_TRUE(recorder.cell().isRecording());
        EXPECT_TRUE(recorder.cell().performKeyEquivalent(ShortcutKeyEvent{code, flags, chars, chars}));
    }

    static constexpr const char* kProgram = "/home/user/Applications/Jorvane/bin/jorvane";
    test::ScopedKeyboardLayout us_;
    test::ScopedSymbolicHotKeys desktop_;
    std::shared_ptr<test::MemoryStore> store_ = std::make_shared<test::MemoryStore>();
    std::unique_ptr<settings::UserDefaults> defaults_ = test::makeMemoryDefaults(store_, [](const std::string&) {});
    test::FakeAlerts alerts_;
    test::TempDir config_;
    test::ScopedEnv configHome_{"XDG_CONFIG_HOME", config_.str()};
    int settingsChanges_ = 0;
};

// ---- The stored hot key, shown and written back filtered.

struct StoredRow {
    const char* name;
    std::int64_t flags;
    std::int64_t code;
    Modifiers shownFlags;  // and stored back
};

class StoredHotKey : public PrefFixture, public testing::TestWithParam<StoredRow> {};

TEST_P(StoredHotKey, IsShownAndStoredBackFiltered) {
    const StoredRow& row = GetParam();
    storeHotKey(row.flags, row.code);
    FakePane pane(*defaults_, alerts_);
    const auto controller = open(pane);

    EXPECT_EQ(pane.hotkeyRecorder().keyCombo(),
              (ShortcutCombo{row.shownFlags, static_cast<ShortcutKeyCode>(row.code)}));
    EXPECT_EQ(storedFlags(), static_cast<std::int64_t>(row.shownFlags));
    EXPECT_EQ(storedCode(), row.code);
    EXPECT_EQ(store_->values().at("hotkey_flags"), settings::Value(static_cast<std::int64_t>(row.shownFlags)))
        << "opening writes the keys back and saves";
    EXPECT_TRUE(pane.hotkeyRecorder().cell().allowsKeyOnly());
    EXPECT_FALSE(pane.hotkeyRecorder().cell().escapeKeysRecord());
    EXPECT_FALSE(pane.hotkeyRecorder().cell().canCaptureGlobalHotKeys());
}

INSTANTIATE_TEST_SUITE_P(Opening, StoredHotKey,
                         testing::Values(StoredRow{"CtrlGStaysCtrlG", kCmd, kKeyG, kCmd},
                                         StoredRow{"AKeyWithoutModifiersKeepsFlagsZero", 0, kKeyF5, 0},
                                         StoredRow{"CapsLockAndKeypadBitsAreDropped", kCmd | kCaps | kPad, kKeyG, kCmd},
                                         StoredRow{"AllFourModifiersAndFnSurvive", kCmd | kShf | kOpt | kCtl | kFn,
                                                   kKeyJ, kCmd | kShf | kOpt | kCtl | kFn},
                                         StoredRow{"UnknownHighBitsAreDropped", kShf | 0x40000000, kKeyJ, kShf}),
                         SentenceName{});

class PrefController : public PrefFixture, public testing::Test {};

TEST_F(PrefController, OpeningTwiceGivesTwoWindowsEachShowingTheStoredHotKey) {
    storeHotKey(kCmd | kShf, kKeyJ);
    FakePane first(*defaults_, alerts_), second(*defaults_, alerts_);
    const auto one = open(first);
    const auto two = open(second);
    EXPECT_EQ(first.hotkeyRecorder().keyCombo(), (ShortcutCombo{kCmd | kShf, kKeyJ}));
    EXPECT_EQ(second.hotkeyRecorder().keyCombo(), (ShortcutCombo{kCmd | kShf, kKeyJ}));
    EXPECT_EQ(first.hotkeyRecorder().delegate(), one.get());
    EXPECT_EQ(second.hotkeyRecorder().delegate(), two.get());
}

struct RecordRow {
    const char* name;
    ShortcutKeyCode code;
    Modifiers pressed;
    const char* characters;
    Modifiers stored;
};

class RecordedHotKey : public PrefFixture, public testing::TestWithParam<RecordRow> {};

TEST_P(RecordedHotKey, IsStoredAsTheTapComparesIt) {
    const RecordRow& row = GetParam();
    FakePane pane(*defaults_, alerts_);
    const auto controller = open(pane);
    settingsChanges_ = 0;
    record(pane.hotkeyRecorder(), row.code, row.pressed, row.characters);

    EXPECT_EQ(storedFlags(), static_cast<std::int64_t>(row.stored));
    EXPECT_EQ(storedCode(), row.code);
    EXPECT_EQ(store_->values().at("hotkey_keycode"), settings::Value(static_cast<std::int64_t>(row.code)))
        << "saved at once";
    EXPECT_EQ(settingsChanges_, 1) << "the tap learns the new key";
}

INSTANTIATE_TEST_SUITE_P(Recording, RecordedHotKey,
                         testing::Values(RecordRow{"CtrlShiftJ", kKeyJ, kCmd | kShf, "J", kCmd | kShf},
                                         RecordRow{"AKeyAloneIsStoredWithFlagsZero", kKeyF6, 0, "\x10", 0},
                                         RecordRow{"CapsLockHeldIsNotStored", kKeyK, kOpt | kCaps, "k", kOpt},
                                         RecordRow{"SuperAltSpace", kKeySpace, kCtl | kOpt, " ", kCtl | kOpt}),
                         SentenceName{});

// ---- The check boxes and the choice.

struct BoxRow {
    const char* name;
    const settings::Key<bool>* key;
};

class CheckBox : public PrefFixture, public testing::TestWithParam<BoxRow> {};

TEST_P(CheckBox, WritesItsKeyAtOnceAndTellsTheTap) {
    const settings::Key<bool>& key = *GetParam().key;
    FakePane pane(*defaults_, alerts_);
    const auto controller = open(pane);
    for (bool value : {false, true}) {
        settingsChanges_ = 0;
        controller->setBoolValue(key, value);
        EXPECT_EQ(defaults_->boolForKey(key), value);
        EXPECT_EQ(controller->boolValue(key), value);
        EXPECT_EQ(settingsChanges_, 1);
    }
}

INSTANTIATE_TEST_SUITE_P(Preferences, CheckBox,
                         testing::Values(BoxRow{"ActivateByHotkey", &settings::keys::activateByHotkey},
                                         BoxRow{"ActivateByTitlebar", &settings::keys::activateByTitlebar},
                                         BoxRow{"InactiveShortcuts", &settings::keys::inactiveShortcuts}),
                         SentenceName{});

TEST_F(PrefController, PathChoiceWritesOneForTheFolderAndZeroForTheSelection) {
    FakePane pane(*defaults_, alerts_);
    const auto controller = open(pane);
    controller->setOpensWithFolder(false);
    EXPECT_EQ(defaults_->integerForKey(settings::keys::activationPathBehaviour), 0);
    EXPECT_FALSE(controller->opensWithFolder());
    controller->setOpensWithFolder(true);
    EXPECT_EQ(defaults_->integerForKey(settings::keys::activationPathBehaviour), 1);
    // Any value but 1 means the selection.
    defaults_->setInteger(7, settings::keys::activationPathBehaviour);
    EXPECT_FALSE(controller->opensWithFolder());
}

// ---- Start at login.

TEST_F(PrefController, AutostartInstallsAndRemovesTheProgramsOwnItemOnly) {
    LoginItem::InstallLoginItemWithPath("/usr/bin/other-program");
    FakePane pane(*defaults_, alerts_);
    const auto controller = open(pane);
    controller->setAutostarts(false);
    EXPECT_FALSE(controller->autostarts());
    controller->setAutostarts(true);
    EXPECT_TRUE(controller->autostarts());
    EXPECT_TRUE(LoginItem::HasLoginItemWithPath(kProgram));
    controller->setAutostarts(false);
    EXPECT_FALSE(controller->autostarts());
    EXPECT_TRUE(LoginItem::HasLoginItemWithPath("/usr/bin/other-program"));
    for (const auto& [name, value] : store_->values())
        EXPECT_EQ(name.find("autostart"), std::string::npos) << "never kept in the settings";
}

// ---- Closing.

TEST_F(PrefController, CloseSavesThenDetachesThenClosesTheWindow) {
    FakePane pane(*defaults_, alerts_);
    const auto controller = open(pane);
    store_->failSaves("read-only");
    controller->setBoolValue(settings::keys::inactiveShortcuts, true);
    store_->failSaves("");
    bool savedBeforeClose = false;
    pane.onClose = [&] { savedBeforeClose = store_->values().contains("inactive_shortcuts"); };

    controller->close();
    EXPECT_EQ(pane.closes, 1);
    EXPECT_TRUE(savedBeforeClose);
    EXPECT_EQ(pane.delegateAtClose, nullptr) << "detached before the window goes";
    EXPECT_EQ(controller->window(), nullptr);
}

TEST_F(PrefController, AGoneControllerNoLongerHearsFromTheRecorder) {
    FakePane pane(*defaults_, alerts_);
    open(pane).reset();
    EXPECT_EQ(pane.hotkeyRecorder().delegate(), nullptr);
    pane.hotkeyRecorder().setKeyCombo(ShortcutCombo{kCmd, kKeyJ});
    EXPECT_EQ(storedCode(), kKeyG);
}

}  // namespace
}  // namespace jorvane
