#include "settings/FileDefaultsStorage.h"
#include "settings/UserDefaults.h"

#include "fakes/TestSupport.h"
#include "unit/ScopedEnv.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <optional>
#include <sstream>

#include <pwd.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace jorvane::settings;
using jorvane::test::TempDir;
namespace fs = std::filesystem;

namespace {

using jorvane::test::ScopedEnv;
using jorvane::test::filesIn;
using jorvane::test::readFile;

class FileDefaultsTest : public ::testing::Test {
protected:
    fs::path settingsFile() const { return dir_.path() / "config" / "jorvane" / "settings.json"; }

    std::unique_ptr<UserDefaults> open() {
        auto defaults = std::make_unique<UserDefaults>(std::make_unique<FileDefaultsStorage>(settingsFile()),
                                                       [this](const std::string& line) { warnings_.push_back(line); });
        defaults->registerDefaults(shippedDefaults());
        return defaults;
    }
    void writeSettings(const std::string& text) { dir_.file("config/jorvane/settings.json", text); }

    TempDir dir_;
    std::vector<std::string> warnings_;
};

}  // namespace

TEST(SettingsDirectory, FollowsXdgConfigHomeThenHome) {
    ScopedEnv home("HOME", "/home/ann");
    {
        ScopedEnv xdg("XDG_CONFIG_HOME", "/srv/conf");
        EXPECT_EQ(defaultSettingsFile(), fs::path("/srv/conf/jorvane/settings.json"));
    }
    {
        ScopedEnv xdg("XDG_CONFIG_HOME", "relative/conf");  // not absolute: ignored
        EXPECT_EQ(settingsDirectory(), fs::path("/home/ann/.config/jorvane"));
    }
    ScopedEnv xdg("XDG_CONFIG_HOME", std::nullopt);
    EXPECT_EQ(settingsDirectory(), fs::path("/home/ann/.config/jorvane"));
    // Without HOME the password file names the home folder.
    ScopedEnv noHome("HOME", std::nullopt);
    EXPECT_EQ(settingsDirectory(), fs::path(::getpwuid(::getuid())->pw_dir) / ".config" / "jorvane");
}

TEST_F(FileDefaultsTest, FirstSetCreatesTheFolderAndAReadableFileOfStoredValuesOnly) {
    auto defaults = open();
    EXPECT_FALSE(fs::exists(settingsFile().parent_path()));  // reading creates nothing
    defaults->setBool(true, keys::notFirstLaunch);
    defaults->setObject(HotkeyRecorderEntry{5, 0x100000, 0x100, "g", "g"}.toDictionary(),
                        keys::hotkeyRecorder("hotkey"));
    EXPECT_EQ(readFile(settingsFile()), R"({
    "HotkeyRecorder hotkey": {
        "keyChars": "g",
        "keyCharsIgnoringModifiers": "g",
        "keyCode": 5,
        "modifierFlags": 1048576,
        "modifiers": 256
    },
    "notfirstlaunch": true
}
)");
    // Nothing but the file itself is left in the folder.
    EXPECT_EQ(filesIn(settingsFile().parent_path()), std::vector<std::string>{"settings.json"});
    EXPECT_TRUE(warnings_.empty());
}

TEST_F(FileDefaultsTest, ValuesSurviveIntoTheNextRun) {
    const auto key = keys::hotkeyRecorder("hotkey");
    const HotkeyRecorderEntry entry{-1, 0, 0, std::nullopt, std::nullopt};
    {
        auto defaults = open();
        defaults->setInteger(0x120000, keys::hotkeyFlags);
        defaults->setObject(entry.toDictionary(), key);
        defaults->setObject(std::string("caf\xc3\xa9 \xe2\x8c\x98"), keys::version);
    }
    auto defaults = open();
    EXPECT_EQ(defaults->integerForKey(keys::hotkeyFlags), 0x120000);
    EXPECT_EQ(HotkeyRecorderEntry::fromDictionary(defaults->dictionaryForKey(key)), entry);
    EXPECT_EQ(defaults->stringForKey(keys::version), "caf\xc3\xa9 \xe2\x8c\x98");
}

TEST_F(FileDefaultsTest, SaveReplacesTheFileWholeAndKeepsItsPermissions) {
    writeSettings(R"({"version": "1"})");
    ::chmod(settingsFile().c_str(), 0600);
    auto defaults = open();
    // A reader that opened the file before the save keeps reading the old
    // version whole: the new one replaces it, it is not written into it.
    std::ifstream reader(settingsFile());
    for (int i = 0; i < 20; ++i) defaults->setInteger(i, keys::hotkeyKeycode);
    std::stringstream before;
    before << reader.rdbuf();
    EXPECT_EQ(before.str(), R"({"version": "1"})");
    // A complete document (a torn write would not parse) with every value.
    const Value saved = Value::parse(readFile(settingsFile()));
    EXPECT_EQ(saved, Value::parse(R"({"version": "1", "hotkey_keycode": 19})"));
    EXPECT_EQ(fs::status(settingsFile()).permissions() & fs::perms::all,
              fs::perms::owner_read | fs::perms::owner_write);
    EXPECT_EQ(filesIn(settingsFile().parent_path()), std::vector<std::string>{"settings.json"});
}

TEST_F(FileDefaultsTest, SavingThroughASymbolicLinkWritesTheLinkedFile) {
    const fs::path real = dir_.file("dotfiles/jorvane.json", R"({"version": "1"})");
    dir_.symlink("config/jorvane/settings.json", real.string());
    auto defaults = open();
    defaults->setInteger(3, keys::hotkeyKeycode);
    EXPECT_TRUE(fs::is_symlink(settingsFile()));
    EXPECT_EQ(Value::parse(readFile(real)), Value::parse(R"({"version": "1", "hotkey_keycode": 3})"));
}

TEST_F(FileDefaultsTest, WrongTypedValueIsNotCorruption) {
    writeSettings(R"({"hotkey_keycode": "G", "notfirstlaunch": true})");
    auto defaults = open();
    EXPECT_EQ(defaults->integerForKey(keys::hotkeyKeycode), 5);
    EXPECT_TRUE(defaults->boolForKey(keys::notFirstLaunch));
    ASSERT_EQ(warnings_.size(), 1u);
    EXPECT_NE(warnings_[0].find("\"hotkey_keycode\" should be an integer but is a string"), std::string::npos);
    EXPECT_EQ(filesIn(settingsFile().parent_path()), std::vector<std::string>{"settings.json"});
}

TEST_F(FileDefaultsTest, ADamagedFileIsSetAsideIntactAndTheDefaultsAreUsed) {
    const std::string damaged = "{\"hotkey_keycode\": 5,\n  \"hotk";
    writeSettings(damaged);
    auto defaults = open();
    EXPECT_EQ(defaults->integerForKey(keys::hotkeyKeycode), 5);
    ASSERT_EQ(warnings_.size(), 1u);
    EXPECT_NE(warnings_[0].find(settingsFile().string() + " is not valid JSON"), std::string::npos) << warnings_[0];
    EXPECT_NE(warnings_[0].find("set aside as settings.json.corrupt-"), std::string::npos) << warnings_[0];
    const auto files = filesIn(settingsFile().parent_path());
    ASSERT_EQ(files.size(), 1u);
    EXPECT_EQ(readFile(settingsFile().parent_path() / files[0]), damaged);
    // Saving now starts a fresh file beside the one set aside.
    defaults->setInteger(7, keys::hotkeyKeycode);
    EXPECT_EQ(filesIn(settingsFile().parent_path()).size(), 2u);
    EXPECT_EQ(readFile(settingsFile().parent_path() / files[0]), damaged);
}

struct TextRow {
    const char* name;
    std::string text;
    const char* damage;  // how the warning begins; empty for a settings file
};

class SettingsFileText : public ::testing::TestWithParam<TextRow> {};

TEST_P(SettingsFileText, IsReadOrNamedDamaged) {
    const SettingsText read = parseSettingsText(GetParam().text);
    EXPECT_TRUE(read.damage.starts_with(GetParam().damage)) << read.damage;
    EXPECT_EQ(read.damage.empty(), std::string_view(GetParam().damage).empty());
    if (read.damage.empty()) {
        EXPECT_EQ(settingsText(read.values), GetParam().text);
    }
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(Kinds, SettingsFileText, ::testing::Values(
    TextRow{"AnObjectIsRead", "{\n    \"a\": [\n        1\n    ],\n    \"b\": \"caf\xc3\xa9\"\n}\n", ""},
    TextRow{"TruncatedJsonIsDamaged", "{\"hotkey_keycode\": 5,\n  \"hotk", "is not valid JSON ("},
    TextRow{"EmptyTextIsDamaged", "", "is not valid JSON"},
    TextRow{"TextThatIsNotUtf8IsDamaged", "{\"version\": \"caf\xe9\"}", "is not valid JSON"},
    TextRow{"ANumberBeyondADoubleIsDamaged", "{\"update_check_interval\": 0.5e3003}", "is not valid JSON"},
    TextRow{"AListIsNoSettingsFile", "[\"hotkey_keycode\", 5]", "does not hold a JSON object"}),
    [](const auto& row) { return std::string(row.param.name); });
// clang-format on

TEST_F(FileDefaultsTest, SecondDamagedFileDoesNotReplaceTheFirstOneSetAside) {
    writeSettings("first {");
    open();
    writeSettings("second {");
    auto defaults = open();
    ASSERT_EQ(warnings_.size(), 2u);
    std::vector<std::string> contents;
    for (const std::string& name : filesIn(settingsFile().parent_path())) {
        contents.push_back(readFile(settingsFile().parent_path() / name));
    }
    std::sort(contents.begin(), contents.end());
    EXPECT_EQ(contents, (std::vector<std::string>{"first {", "second {"}));
}

TEST_F(FileDefaultsTest, UnreadableFileIsSetAsideIntact) {
    // Unreadable for root as well as for a user: a folder in the file's place.
    dir_.file("config/jorvane/settings.json/inside", "kept");
    auto defaults = open();
    EXPECT_EQ(defaults->integerForKey(keys::hotkeyKeycode), 5);
    ASSERT_EQ(warnings_.size(), 1u);
    EXPECT_NE(warnings_[0].find("cannot be read (Is a directory)"), std::string::npos) << warnings_[0];
    const auto files = filesIn(settingsFile().parent_path());
    ASSERT_EQ(files.size(), 1u);
    EXPECT_EQ(readFile(settingsFile().parent_path() / files[0] / "inside"), "kept");
}

TEST_F(FileDefaultsTest, DamagedFileThatCannotBeSetAsideIsNeverWrittenOver) {
    // A name so long that no longer name can set it aside, for any user.
    const fs::path file = dir_.path() / (std::string(240, 's') + ".json");
    std::ofstream(file) << "{ broken";
    UserDefaults defaults(std::make_unique<FileDefaultsStorage>(file),
                          [this](const std::string& line) { warnings_.push_back(line); });
    defaults.registerDefaults(shippedDefaults());
    defaults.setInteger(7, keys::hotkeyKeycode);
    EXPECT_FALSE(defaults.synchronize());
    EXPECT_EQ(defaults.integerForKey(keys::hotkeyKeycode), 7);  // still in effect for this run
    EXPECT_EQ(readFile(file), "{ broken");
    ASSERT_EQ(warnings_.size(), 2u);
    EXPECT_NE(warnings_[0].find("could not be set aside"), std::string::npos) << warnings_[0];
    EXPECT_NE(warnings_[1].find("settings not saved"), std::string::npos) << warnings_[1];
}

TEST_F(FileDefaultsTest, AFifoOrAHugeFileIsRefusedWithoutBlockingAndLeftAsItIs) {
    fs::create_directories(settingsFile().parent_path());
    ASSERT_EQ(::mkfifo(settingsFile().c_str(), 0600), 0);
    auto defaults = open();  // a blocking open would never return
    EXPECT_EQ(defaults->integerForKey(keys::hotkeyKeycode), 5);
    defaults->setInteger(7, keys::hotkeyKeycode);
    EXPECT_FALSE(defaults->synchronize());
    EXPECT_TRUE(fs::is_fifo(settingsFile()));
    ASSERT_FALSE(warnings_.empty());
    EXPECT_NE(warnings_[0].find("is not a regular file"), std::string::npos) << warnings_[0];

    fs::remove(settingsFile());
    {
        std::ofstream huge(settingsFile());
        huge << "{}";
    }
    fs::resize_file(settingsFile(), FileDefaultsStorage::kSizeLimit + 1);
    warnings_.clear();
    auto again = open();
    EXPECT_EQ(again->integerForKey(keys::hotkeyKeycode), 5);
    ASSERT_FALSE(warnings_.empty());
    EXPECT_NE(warnings_[0].find("too large for a settings file"), std::string::npos) << warnings_[0];
    EXPECT_EQ(fs::file_size(settingsFile()), FileDefaultsStorage::kSizeLimit + 1);
    // A file of exactly the limit is still read.
    std::ofstream(settingsFile()) << R"({"hotkey_keycode": 9})"
                                  << std::string(FileDefaultsStorage::kSizeLimit - 21, ' ');
    warnings_.clear();
    EXPECT_EQ(open()->integerForKey(keys::hotkeyKeycode), 9);
    EXPECT_TRUE(warnings_.empty());
}

// Two programs saving the same file at once, each changing keys of its own:
// every key of both is in the file afterwards.
TEST_F(FileDefaultsTest, TwoProcessesSavingAtOnceLoseNoKey) {
    constexpr int kKeysEach = 40;
    const auto writer = [this](const std::string& prefix) {
        UserDefaults defaults(std::make_unique<FileDefaultsStorage>(settingsFile()), [](const std::string&) {});
        for (int i = 0; i < kKeysEach; ++i) {
            defaults.set(Key<std::int64_t>(prefix + std::to_string(i), std::nullopt, "a test key"), std::int64_t{i});
            if (!defaults.synchronize()) _exit(2);
        }
        _exit(0);
    };
    std::vector<pid_t> children;
    for (const char* prefix : {"a", "b"}) {
        const pid_t child = ::fork();
        ASSERT_GE(child, 0);
        if (child == 0) writer(prefix);
        children.push_back(child);
    }
    for (const pid_t child : children) {
        int status = 0;
        ASSERT_EQ(::waitpid(child, &status, 0), child);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    }
    const Value saved = Value::parse(readFile(settingsFile()));
    for (const char* prefix : {"a", "b"})
        for (int i = 0; i < kKeysEach; ++i) EXPECT_TRUE(saved.contains(prefix + std::to_string(i))) << prefix << i;
}

TEST_F(FileDefaultsTest, EditOfTheFileIsPickedUp) {
    auto defaults = open();
    defaults->setInteger(7, keys::hotkeyKeycode);
    // An editor that writes a new file and renames it into place.
    dir_.file("config/jorvane/settings.json.new", R"({"hotkey_keycode": 8, "inactive_shortcuts": true})");
    fs::rename(settingsFile().string() + ".new", settingsFile());
    EXPECT_TRUE(defaults->synchronize());
    EXPECT_EQ(defaults->integerForKey(keys::hotkeyKeycode), 8);
    EXPECT_TRUE(defaults->boolForKey(keys::inactiveShortcuts));
    // One that rewrites it in place: reload() reads it whatever its stamp.
    std::ofstream(settingsFile(), std::ios::trunc) << R"({"hotkey_keycode": 9, "inactive_shortcuts": true})";
    defaults->reload();
    EXPECT_EQ(defaults->integerForKey(keys::hotkeyKeycode), 9);
}

TEST_F(FileDefaultsTest, TheStorageSaysWhetherTheFileChangedSinceItWasLastRead) {
    writeSettings(R"({"hotkey_keycode": 8})");
    FileDefaultsStorage storage(settingsFile());
    EXPECT_TRUE(storage.changedSinceLastSync()) << "never read";
    storage.load();
    EXPECT_FALSE(storage.changedSinceLastSync());
    dir_.file("config/jorvane/settings.json.new", R"({"hotkey_keycode": 9})");
    fs::rename(settingsFile().string() + ".new", settingsFile());
    EXPECT_TRUE(storage.changedSinceLastSync());
    storage.load();
    fs::remove(settingsFile());
    EXPECT_TRUE(storage.changedSinceLastSync()) << "removed";
    storage.load();
    EXPECT_FALSE(storage.changedSinceLastSync()) << "still missing";
}
