#include "settings/UserDefaults.h"

#include "fakes/MemoryDefaults.h"
#include "fakes/VirtualTime.h"

#include <gtest/gtest.h>

#include <mutex>

using namespace jorvane::settings;
using namespace std::chrono_literals;
using jorvane::dispatch::ManualTimeSource;
using jorvane::test::MemoryStore;

namespace {

class UserDefaultsTest : public ::testing::Test {
protected:
    std::unique_ptr<UserDefaults> open(Dictionary stored = {}) {
        store_ = std::make_shared<MemoryStore>(std::move(stored));
        return jorvane::test::makeMemoryDefaults(store_,
                                                 [this](const std::string& line) { warnings_.push_back(line); });
    }

    jorvane::test::VirtualTime time_;
    ManualTimeSource& clock_ = time_.clock;
    std::shared_ptr<MemoryStore> store_;
    std::vector<std::string> warnings_;
};

Dictionary dict(const char* json) { return Value::parse(json).get<Dictionary>(); }

}  // namespace

TEST_F(UserDefaultsTest, StoredValueWinsOverRegisteredWhichWinsOverEmpty) {
    auto defaults = open(dict(R"({"hotkey_keycode": 3})"));
    EXPECT_EQ(defaults->integerForKey(keys::hotkeyKeycode), 3);       // stored
    EXPECT_EQ(defaults->integerForKey(keys::hotkeyFlags), 0x100000);  // registered
    EXPECT_FALSE(defaults->boolForKey(keys::notFirstLaunch));         // neither
    EXPECT_TRUE(defaults->dictionaryForKey(keys::hotkeyRecorder("x")).empty());
    EXPECT_TRUE(defaults->hasStoredValue(keys::hotkeyKeycode));
    EXPECT_FALSE(defaults->hasStoredValue(keys::hotkeyFlags));
}

TEST_F(UserDefaultsTest, StoredValueOfTheWrongTypeIsIgnoredWithAWarningButKept) {
    auto defaults = open(dict(R"({"hotkey_flags": "command", "activate_by_hotkey": 0, "mine": [1]})"));
    EXPECT_EQ(defaults->integerForKey(keys::hotkeyFlags), 0x100000);
    EXPECT_FALSE(defaults->boolForKey(keys::activateByHotkey));  // 0 is how people write false
    ASSERT_EQ(warnings_.size(), 1u);
    EXPECT_EQ(warnings_[0], "memory: \"hotkey_flags\" should be an integer but is a string; it is ignored");

    // Writing another key leaves the user's text, and keys we do not know, in place.
    defaults->setInteger(7, keys::hotkeyKeycode);
    EXPECT_EQ(store_->values().at("hotkey_flags"), "command");
    EXPECT_EQ(store_->values().at("mine"), Value::parse("[1]"));
}

TEST_F(UserDefaultsTest, EverySetIsSavedAtOnceButRewritingTheSameValueIsNot) {
    auto defaults = open();
    defaults->setBool(true, keys::notFirstLaunch);
    defaults->setObject(std::string("1.2"), keys::version);
    EXPECT_EQ(store_->saveCount(), 2);
    EXPECT_EQ(Value(store_->values()), Value::parse(R"({"notfirstlaunch": true, "version": "1.2"})"));
    defaults->setObject(std::string("1.2"), keys::version);
    EXPECT_EQ(store_->saveCount(), 2);
}

TEST_F(UserDefaultsTest, RemovingAKeyBringsBackItsRegisteredValue) {
    auto defaults = open(dict(R"({"hotkey_flags": 131072})"));
    defaults->removeObjectForKey(keys::hotkeyFlags);
    EXPECT_EQ(defaults->integerForKey(keys::hotkeyFlags), 0x100000);
    EXPECT_TRUE(store_->values().empty());
}

TEST_F(UserDefaultsTest, AnotherProcessesEditIsSeenOnceTheValuesAreStale) {
    auto defaults = open();
    EXPECT_EQ(defaults->integerForKey(keys::hotkeyKeycode), 5);
    store_->edit(dict(R"({"hotkey_keycode": 17})"));
    clock_.advance(UserDefaults::kStaleAfter - 1ms);
    EXPECT_EQ(defaults->integerForKey(keys::hotkeyKeycode), 5);
    clock_.advance(1ms);
    EXPECT_EQ(defaults->integerForKey(keys::hotkeyKeycode), 17);
}

TEST_F(UserDefaultsTest, SynchronizeAndReloadTakeInAnEditAtOnce) {
    auto defaults = open();
    store_->edit(dict(R"({"hotkey_keycode": 17})"));
    EXPECT_TRUE(defaults->synchronize());
    EXPECT_EQ(defaults->integerForKey(keys::hotkeyKeycode), 17);
    store_->edit(dict(R"({"hotkey_keycode": 18})"));
    defaults->reload();
    EXPECT_EQ(defaults->integerForKey(keys::hotkeyKeycode), 18);
}

TEST_F(UserDefaultsTest, OurWriteKeepsAKeySomeoneElseChangedMeanwhile) {
    auto defaults = open(dict(R"({"version": "1.0"})"));
    store_->edit(dict(R"({"version": "1.0", "inactive_shortcuts": true})"));
    defaults->setInteger(17, keys::hotkeyKeycode);
    EXPECT_EQ(Value(store_->values()),
              Value::parse(R"({"version": "1.0", "inactive_shortcuts": true, "hotkey_keycode": 17})"));
    EXPECT_TRUE(defaults->boolForKey(keys::inactiveShortcuts));
}

TEST_F(UserDefaultsTest, FailedSaveIsReportedOnceKeepsTheValueAndIsRetried) {
    auto defaults = open();
    store_->failSaves("disk full");
    defaults->setInteger(17, keys::hotkeyKeycode);
    defaults->setInteger(0x20000, keys::hotkeyFlags);
    EXPECT_FALSE(defaults->synchronize());
    EXPECT_EQ(warnings_, std::vector<std::string>{"settings not saved to memory: disk full"});
    EXPECT_EQ(defaults->integerForKey(keys::hotkeyKeycode), 17);

    // An edit by someone else while ours wait does not lose ours.
    store_->edit(dict(R"({"version": "2"})"));
    defaults->reload();
    EXPECT_EQ(defaults->integerForKey(keys::hotkeyKeycode), 17);

    store_->failSaves("");
    EXPECT_TRUE(defaults->synchronize());
    EXPECT_EQ(Value(store_->values()),
              Value::parse(R"({"version": "2", "hotkey_keycode": 17, "hotkey_flags": 131072})"));
}

TEST_F(UserDefaultsTest, LoadWarningsOfTheStorageReachTheCaller) {
    auto defaults = open();
    store_->warnAtNextLoad("settings.json was set aside");
    defaults->reload();
    EXPECT_EQ(warnings_, std::vector<std::string>{"settings.json was set aside"});
}
