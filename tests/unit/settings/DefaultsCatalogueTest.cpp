#include "settings/DefaultsCatalogue.h"
#include "settings/UserDefaults.h"

#include "fakes/TestSupport.h"

#include <gtest/gtest.h>

#include <fstream>
#include <set>
#include <sstream>

using namespace jorvane::settings;
using jorvane::test::TempDir;

namespace {

const std::filesystem::path kShippedResource = std::filesystem::path(JORVANE_RESOURCE_DIR) / "DefaultPreferences.json";

Value readJson(const std::filesystem::path& file) { return Value::parse(jorvane::test::readFile(file)); }

struct Collector {
    std::vector<std::string> lines;
    Warn warn() {
        return [this](const std::string& line) { lines.push_back(line); };
    }
};

}  // namespace

TEST(DefaultsCatalogue, KeyNamesAreUniqueAndKnownByTheirType) {
    std::set<std::string_view> names;
    for (const KeyInfo& row : catalogue()) {
        EXPECT_TRUE(names.insert(row.name).second) << row.name;
        EXPECT_EQ(typeOfKey(row.name), row.type) << row.name;
        EXPECT_FALSE(row.meaning.empty()) << row.name;
        if (row.shipped) {
            EXPECT_TRUE(conformsTo(*row.shipped, row.type)) << row.name;
        }
    }
    EXPECT_EQ(typeOfKey("HotkeyRecorder hotkey"), ValueType::Dictionary);
    EXPECT_EQ(keys::hotkeyRecorder("hotkey").name(), "HotkeyRecorder hotkey");
    EXPECT_EQ(typeOfKey("someone_elses_key"), std::nullopt);
}

TEST(DefaultsCatalogue, ShippedResourceHoldsExactlyTheCatalogueValues) {
    // Both the source file and the copy the build puts beside the program.
    EXPECT_EQ(readJson(kShippedResource), Value(shippedDefaults()));
    EXPECT_EQ(readJson(std::filesystem::path(JORVANE_SOURCE_DIR) / "resources" / "DefaultPreferences.json"),
              Value(shippedDefaults()));
}

TEST(DefaultsCatalogue, RegisteringTheShippedResourceGivesTheAdvertisedHotKeyAndActivation) {
    Collector warnings;
    UserDefaults defaults(nullptr, warnings.warn());
    const RegistrationResult result = registerDefaultPreferences(defaults, kShippedResource);
    ASSERT_TRUE(result.registered) << result.error;
    // The welcome text promises a title-bar click and Ctrl + G.
    EXPECT_TRUE(defaults.boolForKey(keys::activateByTitlebar));
    EXPECT_TRUE(defaults.boolForKey(keys::activateByHotkey));
    EXPECT_EQ(defaults.integerForKey(keys::hotkeyFlags), 1048576);
    EXPECT_EQ(defaults.integerForKey(keys::hotkeyKeycode), 5);
    EXPECT_TRUE(warnings.lines.empty());
}

struct BadResource {
    const char* name;
    const char* contents;  // nullptr: no file at all
    const char* errorMentions;
};

class RegistrationOfABadResource : public ::testing::TestWithParam<BadResource> {};

TEST_P(RegistrationOfABadResource, RegistersNothingAndSaysWhy) {
    TempDir dir;
    const std::filesystem::path file = dir.path() / "DefaultPreferences.json";
    if (GetParam().contents) dir.file("DefaultPreferences.json", GetParam().contents);
    UserDefaults defaults(nullptr, [](const std::string&) {});
    const RegistrationResult result = registerDefaultPreferences(defaults, file);
    EXPECT_FALSE(result.registered);
    EXPECT_NE(result.error.find(file.string()), std::string::npos) << result.error;
    EXPECT_NE(result.error.find(GetParam().errorMentions), std::string::npos) << result.error;
    EXPECT_FALSE(defaults.boolForKey(keys::activateByHotkey));
    EXPECT_EQ(defaults.integerForKey(keys::hotkeyKeycode), 0);
    EXPECT_EQ(defaults.stringForKey(keys::updateFeedUrl), "");
}

INSTANTIATE_TEST_SUITE_P(Resource, RegistrationOfABadResource,
                         ::testing::Values(BadResource{"ThatIsMissing", nullptr, "No such file"},
                                           BadResource{"ThatIsNotJson", "{\"hotkey_keycode\": 5,", "not valid JSON"},
                                           BadResource{"ThatIsEmpty", "", "not valid JSON"},
                                           BadResource{"WithANumberBeyondADouble", "{\"a\": 1e400}", "not valid JSON"},
                                           BadResource{"ThatHoldsAList", "[1, 2]", "does not hold a JSON object"}),
                         [](const auto& row) { return std::string(row.param.name); });

TEST(DefaultsCatalogue, RegisteredValueOfTheWrongTypeIsSkippedWithAWarning) {
    Collector warnings;
    UserDefaults defaults(nullptr, warnings.warn());
    defaults.registerDefaults(Dictionary{{"hotkey_keycode", "G"}, {"hotkey_flags", 262144}});
    EXPECT_EQ(defaults.integerForKey(keys::hotkeyKeycode), 0);
    EXPECT_EQ(defaults.integerForKey(keys::hotkeyFlags), 262144);
    ASSERT_EQ(warnings.lines.size(), 1u);
    EXPECT_NE(warnings.lines[0].find("\"hotkey_keycode\" should be an integer but is a string"), std::string::npos)
        << warnings.lines[0];
}

struct Conformance {
    const char* name;
    const char* json;
    ValueType type;
    bool accepted;
};

class StoredValue : public ::testing::TestWithParam<Conformance> {};

TEST_P(StoredValue, IsReadableAsItsKeyTypeOnlyWhenItFits) {
    EXPECT_EQ(conformsTo(Value::parse(GetParam().json), GetParam().type), GetParam().accepted);
}

INSTANTIATE_TEST_SUITE_P(Types, StoredValue,
                         ::testing::Values(Conformance{"TrueIsABoolean", "true", ValueType::Boolean, true},
                                           Conformance{"OneIsABoolean", "1", ValueType::Boolean, true},
                                           Conformance{"TwoIsNotABoolean", "2", ValueType::Boolean, false},
                                           Conformance{"TheWordYesIsNotABoolean", "\"YES\"", ValueType::Boolean, false},
                                           Conformance{"NegativeIntegerIsAnInteger", "-1", ValueType::Integer, true},
                                           Conformance{"FiveDotZeroIsAnInteger", "5.0", ValueType::Integer, true},
                                           Conformance{"FiveAndAHalfIsNotAnInteger", "5.5", ValueType::Integer, false},
                                           Conformance{"TwoToThe64IsNotAnInteger", "18446744073709551615",
                                                       ValueType::Integer, false},
                                           Conformance{"HugeFloatIsNotAnInteger", "1e300", ValueType::Integer, false},
                                           Conformance{"TrueIsNotAnInteger", "true", ValueType::Integer, false},
                                           Conformance{"NumberIsNotAString", "5", ValueType::String, false},
                                           Conformance{"ListIsNotADictionary", "[]", ValueType::Dictionary, false},
                                           Conformance{"ObjectIsADictionary", "{}", ValueType::Dictionary, true}),
                         [](const auto& row) { return std::string(row.param.name); });

TEST(HotkeyRecorderEntry, RoundTripsWithAndWithoutTypedCharacters) {
    const HotkeyRecorderEntry typed{5, 0x100000, 0x100, "g", "g"};
    const Dictionary stored = typed.toDictionary();
    EXPECT_EQ(Value(stored), Value::parse(R"({"keyCode": 5, "modifierFlags": 1048576, "modifiers": 256,
                                              "keyChars": "g", "keyCharsIgnoringModifiers": "g"})"));
    EXPECT_EQ(HotkeyRecorderEntry::fromDictionary(stored), typed);

    const HotkeyRecorderEntry bare{-1, 0, 0, std::nullopt, std::nullopt};
    EXPECT_EQ(bare.toDictionary().count("keyChars"), 0u);
    EXPECT_EQ(HotkeyRecorderEntry::fromDictionary(bare.toDictionary()), bare);
}

TEST(HotkeyRecorderEntry, UnusableFieldsAreLeftEmptyAndReported) {
    std::vector<std::string> problems;
    const auto entry = HotkeyRecorderEntry::fromDictionary(
        Value::parse(R"({"keyCode": 70000, "modifierFlags": -4, "modifiers": 256, "keyChars": 7})").get<Dictionary>(),
        &problems);
    EXPECT_EQ(entry, (HotkeyRecorderEntry{0, std::nullopt, 256, std::nullopt, std::nullopt}));
    EXPECT_EQ(problems.size(), 3u);
    // Nothing stored reads as key code 0 and no flags.
    EXPECT_EQ(HotkeyRecorderEntry::fromDictionary({}), HotkeyRecorderEntry{});
}
