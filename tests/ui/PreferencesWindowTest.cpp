// The preferences window on the offscreen platform: Tab recorded as a hot
// key, the recorder's buttons, the check boxes and the choice written at once,
// closing saves and deletes the window. (Its title and a hot key recorded with
// a click and a chord are the whole-program preferences test's; the about
// window's uninstall, the first-launch test's.)
#include <gtest/gtest.h>

#include <QCheckBox>
#include <QPointer>
#include <QPushButton>
#include <QRadioButton>
#include <QTest>

#include <optional>

#include "fakes/FakeAlerts.h"
#include "fakes/FakeKeyboardLayout.h"
#include "fakes/MemoryDefaults.h"
#include "fakes/TestSupport.h"
#include "ui/PreferencesWindow.h"
#include "ui/ShortcutRecorderWidget.h"
#include "unit/ScopedEnv.h"

namespace jorvane::ui {
namespace {

class PreferencesWindowTest : public testing::Test {
protected:
    PreferencesWindowTest() {
        window_ = PreferencesWindow::open(PreferencesWindow::Dependencies{*defaults_,
                                                                          alerts_,
                                                                          "/opt/jorvane/bin/jorvane",
                                                                          [this] { ++aboutRequests_; },
                                                                          [this] { ++settingsChanges_; },
                                                                          {},
                                                                          "Thunar"});
    }
    ~PreferencesWindowTest() override { delete window_.data(); }

    test::ScopedKeyboardLayout us_;
    test::TempDir config_;
    test::ScopedEnv configHome_{"XDG_CONFIG_HOME", config_.str()};
    std::shared_ptr<test::MemoryStore> store_ = std::make_shared<test::MemoryStore>();
    std::unique_ptr<settings::UserDefaults> defaults_ = test::makeMemoryDefaults(store_, [](const std::string&) {});
    test::FakeAlerts alerts_;
    QPointer<PreferencesWindow> window_;
    int aboutRequests_ = 0;
    int settingsChanges_ = 0;
};

TEST_F(PreferencesWindowTest, TabIsRecordedRatherThanMovingTheFocus) {
    ShortcutRecorderWidget* recorder = window_->recorder();
    QTest::mouseClick(recorder, Qt::LeftButton, {}, QPoint(20, recorder->height() / 2));
    QTest::keyClick(recorder, Qt::Key_Tab, Qt::AltModifier);
    EXPECT_EQ(defaults_->integerForKey(settings::keys::hotkeyKeycode), 48);
    EXPECT_EQ(defaults_->integerForKey(settings::keys::hotkeyFlags), 0x80000);
}

TEST_F(PreferencesWindowTest, TheRemoveButtonClearsAndTheSnapBackButtonKeeps) {
    ShortcutRecorderWidget* recorder = window_->recorder();
    EXPECT_EQ(recorder->cell().displayText(), "Ctrl+G") << "the stored hot key, in Linux's names";
    QTest::mouseClick(recorder, Qt::LeftButton, {}, QPoint(20, recorder->height() / 2));
    ASSERT_TRUE(recorder->cell().isRecording());
    QTest::mouseClick(recorder, Qt::LeftButton, {}, recorder->snapBackButtonRect().center());
    EXPECT_FALSE(recorder->cell().isRecording());
    EXPECT_EQ(defaults_->integerForKey(settings::keys::hotkeyKeycode), 5);

    ASSERT_TRUE(recorder->cell().showsRemoveButton());
    QTest::mouseClick(recorder, Qt::LeftButton, {}, recorder->removeButtonRect().center());
    EXPECT_EQ(recorder->cell().displayText(), "Click to record shortcut");
    EXPECT_EQ(defaults_->integerForKey(settings::keys::hotkeyKeycode), -1);
}

TEST_F(PreferencesWindowTest, CheckBoxesAndTheChoiceAreWrittenAtOnce) {
    window_->shortcutsBox()->click();
    EXPECT_TRUE(defaults_->boolForKey(settings::keys::inactiveShortcuts));
    window_->hotkeyBox()->click();
    EXPECT_FALSE(defaults_->boolForKey(settings::keys::activateByHotkey));
    window_->titlebarBox()->click();
    EXPECT_FALSE(defaults_->boolForKey(settings::keys::activateByTitlebar));
    window_->selectionChoice()->click();
    EXPECT_EQ(defaults_->integerForKey(settings::keys::activationPathBehaviour), 0);
    window_->folderChoice()->click();
    EXPECT_EQ(defaults_->integerForKey(settings::keys::activationPathBehaviour), 1);
    EXPECT_GE(settingsChanges_, 5);

    window_->autostartBox()->click();
    EXPECT_TRUE(window_->autostartBox()->isChecked());
    EXPECT_TRUE(window_->controller().autostarts());

    window_->aboutButton()->click();
    EXPECT_EQ(aboutRequests_, 1);
}

TEST_F(PreferencesWindowTest, ClosingSavesAndDeletesTheWindow) {
    store_->failSaves("busy");
    window_->shortcutsBox()->click();
    store_->failSaves("");
    window_->close();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    EXPECT_TRUE(window_.isNull());
    EXPECT_EQ(store_->values().at("inactive_shortcuts"), true);
}

}  // namespace
}  // namespace jorvane::ui
