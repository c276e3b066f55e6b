// The preferences controller over in-memory settings, a recorder without a widget and a temporary autostart folder.
#include "settings/PreferencesController.h"

#include <gtest/gtest.h>

#include "fakes/FakeAlerts.h"
#include "fakes/FakeKeyboardLayout.h"
#include "fakes/FakeSymbolicHotKeys.h"
#include "fakes/MemoryDefaults.h"
#include "fakes/TestSupport.h"
#include "settings/LoginItems.h"
#include "unit/ScopedEnv.h"

namespace jorvane {
namespace {

constexpr Modifiers kCmd = kModifierCommand, kShf = kModifierShift, kOpt = kModifierOption, kCtl = kModifierControl,
                    kFn = kModifierFunction, kCaps = kModifierCapsLock, kPad = kModifierNumericPad;

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

class PrefController : public testing::Test {
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

    static constexpr const char* kProgram = "/home/user/Applications/Jorvane/bin/jorvane";
    test::ScopedKeyboardLayout us_;
    test::ScopedSymbolicHotKeys desktop_;
    std::shared_ptr<test::MemoryStore> store_ = std::make_shared<test::MemoryStore>();
    std::unique_ptr<settings::UserDefaults> defaults_ = test::makeMemoryDefaults(store_, [](const std::string&) {});
    test::FakeAlerts alerts_;
    test::TempDir config_;
    test::ScopedEnv configHome_{"XDG_CONFIG_HOME", config_.str()};
    int settingsChanges_ = 0;
    FakePane pane_{*defaults_, alerts_};
};

TEST_F(PrefController, TheStoredHotKeyIsShownAndStoredBackFiltered) {
    struct Row {
        std::int64_t flags, code;
        Modifiers shown;
    };
    const Row rows[] = {{kCmd, kKeyG, kCmd},
                        {0, kKeyF5, 0},
                        {kCmd | kCaps | kPad, kKeyG, kCmd},
                        {kCmd | kShf | kOpt | kCtl | kFn, kKeyJ, kCmd | kShf | kOpt | kCtl | kFn},
                        {kShf | 0x40000000, kKeyJ, kShf}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.flags);
        defaults_->setInteger(row.flags, settings::keys::hotkeyFlags);
        defaults_->setInteger(row.code, settings::keys::hotkeyKeycode);
        FakePane pane(*defaults_, alerts_);
        const auto controller = open(pane);
        EXPECT_EQ(pane.hotkeyRecorder().keyCombo(), (ShortcutCombo{row.shown, static_cast<ShortcutKeyCode>(row.code)}));
        EXPECT_EQ(storedCode(), row.code);
        EXPECT_EQ(store_->values().at("hotkey_flags"), settings::Value(static_cast<std::int64_t>(row.shown)));
        EXPECT_EQ(pane.hotkeyRecorder().delegate(), controller.get());
        EXPECT_TRUE(pane.hotkeyRecorder().cell().allowsKeyOnly());
        EXPECT_FALSE(pane.hotkeyRecorder().cell().escapeKeysRecord());
        EXPECT_FALSE(pane.hotkeyRecorder().cell().canCaptureGlobalHotKeys());
    }
}

TEST_F(PrefController, ARecordedHotKeyIsSavedAtOnceAsTheTapComparesIt) {
    struct Row {
        ShortcutKeyCode code;
        Modifiers pressed;
        const char* characters;
        Modifiers stored;
    };
    const Row rows[] = {{kKeyJ, kCmd | kShf, "J", kCmd | kShf},
                        {kKeyF6, 0, "\x10", 0},
                        {kKeyK, kOpt | kCaps, "k", kOpt},
                        {kKeySpace, kCtl | kOpt, " ", kCtl | kOpt}};
    const auto controller = open(pane_);
    for (const Row& row : rows) {
        SCOPED_TRACE(row.code);
        settingsChanges_ = 0;
        pane_.hotkeyRecorder().cell().clickField();
        ASSERT_TRUE(pane_.hotkeyRecorder().cell().isRecording());
        EXPECT_TRUE(pane_.hotkeyRecorder().cell().performKeyEquivalent(
            ShortcutKeyEvent{row.code, row.pressed, row.characters, row.characters}));
        EXPECT_EQ(storedFlags(), static_cast<std::int64_t>(row.stored));
        EXPECT_EQ(store_->values().at("hotkey_keycode"), settings::Value(static_cast<std::int64_t>(row.code)));
        EXPECT_EQ(settingsChanges_, 1);
    }
}

TEST_F(PrefController, CheckBoxesWriteTheirKeyAtOnceAndTellTheTap) {
    const auto controller = open(pane_);
    for (const settings::Key<bool>* key :
         {&settings::keys::activateByHotkey, &settings::keys::activateByTitlebar, &settings::keys::inactiveShortcuts})
        for (bool value : {false, true}) {
            settingsChanges_ = 0;
            controller->setBoolValue(*key, value);
            EXPECT_EQ(defaults_->boolForKey(*key), value) << key->name();
            EXPECT_EQ(controller->boolValue(*key), value);
            EXPECT_EQ(settingsChanges_, 1);
        }
}

TEST_F(PrefController, PathChoiceWritesOneForTheFolderAndZeroForTheSelection) {
    const auto controller = open(pane_);
    settingsChanges_ = 0;
    controller->setOpensWithFolder(false);
    EXPECT_EQ(defaults_->integerForKey(settings::keys::activationPathBehaviour), 0);
    EXPECT_FALSE(controller->opensWithFolder());
    controller->setOpensWithFolder(true);
    EXPECT_EQ(defaults_->integerForKey(settings::keys::activationPathBehaviour), 1);
    EXPECT_TRUE(controller->opensWithFolder());
    EXPECT_EQ(settingsChanges_, 2);
    defaults_->setInteger(7, settings::keys::activationPathBehaviour);
    EXPECT_FALSE(controller->opensWithFolder());
}

TEST_F(PrefController, AutostartInstallsAndRemovesTheProgramsOwnItemOnly) {
    LoginItem::InstallLoginItemWithPath("/usr/bin/other-program");
    const auto controller = open(pane_);
    controller->setAutostarts(false);
    EXPECT_FALSE(controller->autostarts());
    controller->setAutostarts(true);
    EXPECT_TRUE(controller->autostarts());
    EXPECT_TRUE(LoginItem::HasLoginItemWithPath(kProgram));
    controller->setAutostarts(false);
    EXPECT_FALSE(controller->autostarts());
    EXPECT_TRUE(LoginItem::HasLoginItemWithPath("/usr/bin/other-program"));
    for (const auto& [name, value] : store_->values()) EXPECT_EQ(name.find("autostart"), std::string::npos);
}

TEST_F(PrefController, CloseSavesThenDetachesThenClosesTheWindowAndAGoneControllerHearsNothing) {
    const auto controller = open(pane_);
    store_->failSaves("read-only");
    controller->setBoolValue(settings::keys::inactiveShortcuts, true);
    store_->failSaves("");
    bool savedBeforeClose = false;
    pane_.onClose = [&] { savedBeforeClose = store_->values().contains("inactive_shortcuts"); };
    controller->close();
    EXPECT_EQ(pane_.closes, 1);
    EXPECT_TRUE(savedBeforeClose);
    EXPECT_EQ(pane_.delegateAtClose, nullptr);
    EXPECT_EQ(controller->window(), nullptr);

    FakePane other(*defaults_, alerts_);
    open(other).reset();
    EXPECT_EQ(other.hotkeyRecorder().delegate(), nullptr);
    other.hotkeyRecorder().setKeyCombo(ShortcutCombo{kCmd, kKeyJ});
    EXPECT_EQ(storedCode(), kKeyG);
}

}  // namespace
}  // namespace jorvane
