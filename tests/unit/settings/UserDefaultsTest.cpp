#include "settings/DefaultsCatalogue.h"
#include "settings/UserDefaults.h"

#include "fakes/MemoryDefaults.h"
#include "fakes/TestSupport.h"
#include "fakes/VirtualTime.h"

#include <gtest/gtest.h>

#include <set>

using namespace jorvane::settings;
using namespace std::chrono_literals;
using jorvane::test::MemoryStore;

namespace {

const std::filesystem::path kShippedResource = std::filesystem::path(JORVANE_RESOURCE_DIR) / "DefaultPreferences.json";

Value readJson(const std::filesystem::path& file) { return Value::parse(jorvane::test::readFile(file)); }
Dictionary dict(const char* json) { return Value::parse(json).get<Dictionary>(); }

class UserDefaultsTest : public ::testing::Test {
protected:
    std::unique_ptr<UserDefaults> open(Dictionary stored = {}) {
        store_ = std::make_shared<MemoryStore>(std::move(stored));
        return jorvane::test::makeMemoryDefaults(store_, warn());
    }
    Warn warn() {
        return [this](const std::string& line) { warnings_.push_back(line); };
    }

    jorvane::test::VirtualTime time_;
    std::shared_ptr<MemoryStore> store_;
    std::vector<std::string> warnings_;
};

TEST_F(UserDefaultsTest, StoredValueWinsOverRegisteredWhichWinsOverEmpty) {
    auto defaults = open(dict(R"({"hotkey_keycode": 3})"));
    EXPECT_EQ(defaults->integerForKey(keys::hotkeyKeycode), 3);
    EXPECT_EQ(defaults->integerForKey(keys::hotkeyFlags), 0x100000);
    EXPECT_FALSE(defaults->boolForKey(keys::notFirstLaunch));
    EXPECT_TRUE(defaults->dictionaryForKey(keys::hotkeyRecorder("x")).empty());
    EXPECT_TRUE(defaults->hasStoredValue(keys::hotkeyKeycode));
    EXPECT_FALSE(defaults->hasStoredValue(keys::hotkeyFlags));
    // Removing a key brings back its registered value.
    defaults->removeObjectForKey(keys::hotkeyKeycode);
    EXPECT_EQ(defaults->integerForKey(keys::hotkeyKeycode), 5);
    EXPECT_TRUE(store_->values().empty());
}

TEST_F(UserDefaultsTest, StoredValueOfTheWrongTypeIsIgnoredWithAWarningButKept) {
    auto defaults = open(dict(R"({"hotkey_flags": "command", "activate_by_hotkey": 0, "mine": [1]})"));
    EXPECT_EQ(defaults->integerForKey(keys::hotkeyFlags), 0x100000);
    EXPECT_FALSE(defaults->boolForKey(keys::activateByHotkey));
    EXPECT_FALSE(defaults->hasStoredValue(keys::hotkeyFlags));
    EXPECT_EQ(warnings_,
              std::vector<std::string>{"memory: \"hotkey_flags\" should be an integer but is a string; it is ignored"});
    defaults->setInteger(7, keys::hotkeyKeycode);
    EXPECT_EQ(store_->values().at("hotkey_flags"), "command");
    EXPECT_EQ(store_->values().at("mine"), Value::parse("[1]"));
}

TEST_F(UserDefaultsTest, EverySetIsSavedAtOnceButRewritingTheSameValueIsNot) {
    auto defaults = open();
    defaults->setBool(true, keys::notFirstLaunch);
    defaults->setObject(std::string("1.2"), keys::version);
    defaults->setObject(std::string("1.2"), keys::version);
    EXPECT_EQ(store_->saveCount(), 2);
    EXPECT_EQ(Value(store_->values()), Value::parse(R"({"notfirstlaunch": true, "version": "1.2"})"));
}

TEST_F(UserDefaultsTest, AnotherProcessesEditIsSeenOnceStaleOrAtSynchronizeAndReload) {
    auto defaults = open();
    EXPECT_EQ(defaults->integerForKey(keys::hotkeyKeycode), 5);
    store_->edit(dict(R"({"hotkey_keycode": 17})"));
    time_.clock.advance(UserDefaults::kStaleAfter - 1ms);
    EXPECT_EQ(defaults->integerForKey(keys::hotkeyKeycode), 5);
    time_.clock.advance(1ms);
    EXPECT_EQ(defaults->integerForKey(keys::hotkeyKeycode), 17);
    store_->edit(dict(R"({"hotkey_keycode": 18})"));
    EXPECT_TRUE(defaults->synchronize());
    EXPECT_EQ(defaults->integerForKey(keys::hotkeyKeycode), 18);
    store_->edit(dict(R"({"hotkey_keycode": 19})"));
    defaults->reload();
    EXPECT_EQ(defaults->integerForKey(keys::hotkeyKeycode), 19);
    // What the stale read finds wrong is reported too.
    store_->edit(dict(R"({"hotkey_keycode": "twenty"})"));
    time_.clock.advance(UserDefaults::kStaleAfter);
    EXPECT_EQ(defaults->integerForKey(keys::hotkeyKeycode), 5);
    EXPECT_EQ(warnings_.size(), 1u);
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
    store_->edit(dict(R"({"version": "2"})"));
    defaults->reload();
    EXPECT_EQ(defaults->integerForKey(keys::hotkeyKeycode), 17);
    store_->failSaves("");
    EXPECT_TRUE(defaults->synchronize());
    EXPECT_EQ(Value(store_->values()),
              Value::parse(R"({"version": "2", "hotkey_keycode": 17, "hotkey_flags": 131072})"));
    store_->warnAtNextLoad("settings.json was set aside");
    defaults->reload();
    EXPECT_EQ(warnings_.back(), "settings.json was set aside");
}

TEST_F(UserDefaultsTest, RegisteredValueOfTheWrongTypeIsSkippedWithAWarning) {
    UserDefaults defaults(nullptr, warn());
    defaults.registerDefaults(Dictionary{{"hotkey_keycode", "G"}, {"hotkey_flags", 262144}});
    EXPECT_EQ(defaults.integerForKey(keys::hotkeyKeycode), 0);
    EXPECT_EQ(defaults.integerForKey(keys::hotkeyFlags), 262144);
    ASSERT_EQ(warnings_.size(), 1u);
    EXPECT_NE(warnings_[0].find("\"hotkey_keycode\" should be an integer but is a string"), std::string::npos);
}

TEST(DefaultsCatalogue, KeyNamesAreUniqueAndKnownByTheirType) {
    std::set<std::string_view> names;
    for (const KeyInfo& row : catalogue()) {
        EXPECT_TRUE(names.insert(row.name).second) << row.name;
        EXPECT_EQ(typeOfKey(row.name), row.type) << row.name;
        EXPECT_FALSE(row.meaning.empty()) << row.name;
        EXPECT_TRUE(!row.shipped || conformsTo(*row.shipped, row.type)) << row.name;
    }
    EXPECT_EQ(typeOfKey("HotkeyRecorder hotkey"), ValueType::Dictionary);
    EXPECT_EQ(keys::hotkeyRecorder("hotkey").name(), "HotkeyRecorder hotkey");
    EXPECT_EQ(typeOfKey("someone_elses_key"), std::nullopt);
}

TEST(DefaultsCatalogue, ShippedResourceHoldsTheCatalogueValuesAndGivesTheAdvertisedHotKey) {
    EXPECT_EQ(readJson(kShippedResource), Value(shippedDefaults()));
    EXPECT_EQ(readJson(std::filesystem::path(JORVANE_SOURCE_DIR) / "resources" / "DefaultPreferences.json"),
              Value(shippedDefaults()));
    UserDefaults defaults(nullptr, [](const std::string& line) { ADD_FAILURE() << line; });
    const RegistrationResult result = registerDefaultPreferences(defaults, kShippedResource);
    ASSERT_TRUE(result.registered) << result.error;
    EXPECT_TRUE(defaults.boolForKey(keys::activateByTitlebar));
    EXPECT_TRUE(defaults.boolForKey(keys::activateByHotkey));
    EXPECT_EQ(defaults.integerForKey(keys::hotkeyFlags), 1048576);
    EXPECT_EQ(defaults.integerForKey(keys::hotkeyKeycode), 5);
}

struct BadResource {
    const char* name;
    const char* contents;  // nullptr: no file at all
    const char* errorMentions;
};

class RegistrationOfABadResource : public ::testing::TestWithParam<BadResource> {};

TEST_P(RegistrationOfABadResource, RegistersNothingAndSaysWhy) {
    jorvane::test::TempDir dir;
    const std::filesystem::path file = dir.path() / "DefaultPreferences.json";
    if (GetParam().contents) dir.file("DefaultPreferences.json", GetParam().contents);
    UserDefaults defaults(nullptr, [](const std::string&) {});
    const RegistrationResult result = registerDefaultPreferences(defaults, file);
    EXPECT_FALSE(result.registered);
    EXPECT_NE(result.error.find(file.string()), std::string::npos) << result.error;
    EXPECT_NE(result.error.find(GetParam().errorMentions), std::string::npos) << result.error;
    EXPECT_FALSE(defaults.boolForKey(keys::activateByHotkey));
    EXPECT_EQ(defaults.integerForKey(keys::hotkeyKeycode), 0);
}

INSTANTIATE_TEST_SUITE_P(Resource, RegistrationOfABadResource,
                         ::testing::Values(BadResource{"ThatIsMissing", nullptr, "No such file"},
                                           BadResource{"ThatIsNotJson", "{\"hotkey_keycode\": 5,", "not valid JSON"},
                                           BadResource{"ThatHoldsAList", "[1, 2]", "does not hold a JSON object"}),
                         [](const auto& row) { return std::string(row.param.name); });

struct Conformance {
    const char* json;
    ValueType type;
    bool accepted;
};

TEST(StoredValue, IsReadableAsItsKeyTypeOnlyWhenItFits) {
    // clang-format off
    const Conformance rows[] = {
        {"true", ValueType::Boolean, true}, {"1", ValueType::Boolean, true}, {"2", ValueType::Boolean, false},
        {"\"YES\"", ValueType::Boolean, false}, {"-1", ValueType::Integer, true}, {"5.0", ValueType::Integer, true},
        {"5.5", ValueType::Integer, false}, {"18446744073709551615", ValueType::Integer, false},
        {"1e300", ValueType::Integer, false}, {"true", ValueType::Integer, false}, {"5", ValueType::String, false},
        {"[]", ValueType::Dictionary, false}, {"{}", ValueType::Dictionary, true}};
    // clang-format on
    for (const Conformance& row : rows)
        EXPECT_EQ(conformsTo(Value::parse(row.json), row.type), row.accepted) << row.json << " " << int(row.type);
}

TEST(HotkeyRecorderEntry, RoundTripsAndReportsUnusableFields) {
    const HotkeyRecorderEntry typed{5, 0x100000, 0x100, "g", "g"};
    EXPECT_EQ(Value(typed.toDictionary()), Value::parse(R"({"keyCode": 5, "modifierFlags": 1048576, "modifiers": 256,
                                              "keyChars": "g", "keyCharsIgnoringModifiers": "g"})"));
    EXPECT_EQ(HotkeyRecorderEntry::fromDictionary(typed.toDictionary()), typed);
    const HotkeyRecorderEntry bare{-1, 0, 0, std::nullopt, std::nullopt};
    EXPECT_EQ(bare.toDictionary().count("keyChars"), 0u);
    EXPECT_EQ(HotkeyRecorderEntry::fromDictionary(bare.toDictionary()), bare);
    std::vector<std::string> problems;
    const auto entry = HotkeyRecorderEntry::fromDictionary(
        Value::parse(R"({"keyCode": 70000, "modifierFlags": -4, "modifiers": 256, "keyChars": 7})").get<Dictionary>(),
        &problems);
    EXPECT_EQ(entry, (HotkeyRecorderEntry{0, std::nullopt, 256, std::nullopt, std::nullopt}));
    EXPECT_EQ(problems.size(), 3u);
    EXPECT_EQ(HotkeyRecorderEntry::fromDictionary({}), HotkeyRecorderEntry{});
}

}  // namespace
