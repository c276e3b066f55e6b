#include "settings/FileDefaultsStorage.h"
#include "settings/UserDefaults.h"

#include "fakes/TestSupport.h"
#include "unit/ScopedEnv.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <sstream>

#include <pwd.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace jorvane::settings;
using jorvane::test::filesIn;
using jorvane::test::readFile;
using jorvane::test::ScopedEnv;
namespace fs = std::filesystem;

namespace {

class FileDefaultsTest : public ::testing::Test {
protected:
    fs::path settingsFile() const { return dir_.path() / "config" / "jorvane" / "settings.json"; }
    std::vector<std::string> folder() const { return filesIn(settingsFile().parent_path()); }
    std::unique_ptr<UserDefaults> open() {
        auto defaults = std::make_unique<UserDefaults>(std::make_unique<FileDefaultsStorage>(settingsFile()),
                                                       [this](const std::string& line) { warnings_.push_back(line); });
        defaults->registerDefaults(shippedDefaults());
        return defaults;
    }
    void writeSettings(const std::string& text) { dir_.file("config/jorvane/settings.json", text); }
    void expectWarning(std::size_t index, const std::string& part) const {
        ASSERT_GT(warnings_.size(), index);
        EXPECT_NE(warnings_[index].find(part), std::string::npos) << warnings_[index];
    }

    jorvane::test::TempDir dir_;
    std::vector<std::string> warnings_;
};

TEST(SettingsDirectory, FollowsAnAbsoluteXdgConfigHomeThenHomeThenThePasswordEntry) {
    ScopedEnv home("HOME", "/home/ann");
    const std::pair<std::optional<std::string>, fs::path> rows[] = {{"/srv/conf", "/srv/conf/jorvane"},
                                                                    {"relative/conf", "/home/ann/.config/jorvane"}};
    for (const auto& [xdg, folder] : rows) {
        ScopedEnv config("XDG_CONFIG_HOME", xdg);
        EXPECT_EQ(defaultSettingsFile(), folder / "settings.json");
    }
    ScopedEnv xdg("XDG_CONFIG_HOME", std::nullopt);
    ScopedEnv noHome("HOME", std::nullopt);
    EXPECT_EQ(settingsDirectory(), fs::path(::getpwuid(::getuid())->pw_dir) / ".config" / "jorvane");
}

TEST_F(FileDefaultsTest, FirstSetCreatesAReadableFileOfStoredValuesThatTheNextRunReads) {
    {
        auto defaults = open();
        EXPECT_FALSE(fs::exists(settingsFile().parent_path()));
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
        defaults->setObject(std::string("caf\xc3\xa9 \xe2\x8c\x98"), keys::version);
    }
    EXPECT_EQ(folder(), std::vector<std::string>{"settings.json"});
    auto defaults = open();
    EXPECT_EQ(HotkeyRecorderEntry::fromDictionary(defaults->dictionaryForKey(keys::hotkeyRecorder("hotkey"))).keyCode,
              5);
    EXPECT_EQ(defaults->stringForKey(keys::version), "caf\xc3\xa9 \xe2\x8c\x98");
    EXPECT_TRUE(warnings_.empty());
}

TEST_F(FileDefaultsTest, SaveReplacesTheFileWholeKeepsItsPermissionsAndFollowsALink) {
    writeSettings(R"({"version": "1"})");
    ::chmod(settingsFile().c_str(), 0600);
    auto defaults = open();
    std::ifstream reader(settingsFile());
    for (int i = 0; i < 20; ++i) defaults->setInteger(i, keys::hotkeyKeycode);
    std::stringstream before;
    before << reader.rdbuf();
    EXPECT_EQ(before.str(), R"({"version": "1"})");
    EXPECT_EQ(Value::parse(readFile(settingsFile())), Value::parse(R"({"version": "1", "hotkey_keycode": 19})"));
    EXPECT_EQ(fs::status(settingsFile()).permissions() & fs::perms::all,
              fs::perms::owner_read | fs::perms::owner_write);
    EXPECT_EQ(folder(), std::vector<std::string>{"settings.json"});

    const fs::path real = dir_.file("dotfiles/jorvane.json", R"({"version": "1"})");
    fs::remove(settingsFile());
    dir_.symlink("config/jorvane/settings.json", real.string());
    open()->setInteger(3, keys::hotkeyKeycode);
    EXPECT_TRUE(fs::is_symlink(settingsFile()));
    EXPECT_EQ(Value::parse(readFile(real)), Value::parse(R"({"version": "1", "hotkey_keycode": 3})"));
}

TEST_F(FileDefaultsTest, ADamagedFileIsSetAsideIntactAndASecondDoesNotReplaceIt) {
    const std::string damaged = "{\"hotkey_keycode\": 5,\n  \"hotk";
    writeSettings(damaged);
    auto defaults = open();
    EXPECT_EQ(defaults->integerForKey(keys::hotkeyKeycode), 5);
    expectWarning(0, settingsFile().string() + " is not valid JSON");
    expectWarning(0, "set aside as settings.json.corrupt-");
    const auto files = folder();
    ASSERT_EQ(files.size(), 1u);
    EXPECT_EQ(readFile(settingsFile().parent_path() / files[0]), damaged);
    defaults->setInteger(7, keys::hotkeyKeycode);
    EXPECT_EQ(folder().size(), 2u);

    writeSettings("second {");
    open();
    ASSERT_EQ(warnings_.size(), 2u);
    std::vector<std::string> contents;
    for (const std::string& name : folder())
        if (name != "settings.json") contents.push_back(readFile(settingsFile().parent_path() / name));
    std::sort(contents.begin(), contents.end());
    EXPECT_EQ(contents, (std::vector<std::string>{"second {", damaged}));
}

TEST(SettingsFileText, IsReadOrNamedDamaged) {
    const std::pair<std::string, const char*> rows[] = {
        {"{\n    \"a\": [\n        1\n    ],\n    \"b\": \"caf\xc3\xa9\"\n}\n", ""},
        {"{\"hotkey_keycode\": 5,\n  \"hotk", "is not valid JSON ("},
        {"", "is not valid JSON"},
        {"{\"version\": \"caf\xe9\"}", "is not valid JSON"},
        {"{\"update_check_interval\": 0.5e3003}", "is not valid JSON"},
        {"[\"hotkey_keycode\", 5]", "does not hold a JSON object"}};
    for (const auto& [text, damage] : rows) {
        const SettingsText read = parseSettingsText(text);
        EXPECT_TRUE(read.damage.starts_with(damage)) << read.damage;
        EXPECT_EQ(read.damage.empty(), std::string_view(damage).empty()) << text;
        if (read.damage.empty()) {
            EXPECT_EQ(settingsText(read.values), text);
        }
    }
}

TEST_F(FileDefaultsTest, UnreadableFileIsSetAsideIntact) {
    dir_.file("config/jorvane/settings.json/inside", "kept");
    EXPECT_EQ(open()->integerForKey(keys::hotkeyKeycode), 5);
    expectWarning(0, "cannot be read (Is a directory)");
    const auto files = folder();
    ASSERT_EQ(files.size(), 1u);
    EXPECT_EQ(readFile(settingsFile().parent_path() / files[0] / "inside"), "kept");
}

TEST_F(FileDefaultsTest, DamagedFileThatCannotBeSetAsideIsNeverWrittenOver) {
    const fs::path file = dir_.path() / (std::string(240, 's') + ".json");
    std::ofstream(file) << "{ broken";
    UserDefaults defaults(std::make_unique<FileDefaultsStorage>(file),
                          [this](const std::string& line) { warnings_.push_back(line); });
    defaults.setInteger(7, keys::hotkeyKeycode);
    EXPECT_FALSE(defaults.synchronize());
    EXPECT_EQ(defaults.integerForKey(keys::hotkeyKeycode), 7);
    EXPECT_EQ(readFile(file), "{ broken");
    ASSERT_EQ(warnings_.size(), 2u);
    expectWarning(0, "could not be set aside");
    expectWarning(1, "settings not saved");
}

TEST_F(FileDefaultsTest, AFifoOrAHugeFileIsRefusedWithoutBlockingAndLeftAsItIs) {
    fs::create_directories(settingsFile().parent_path());
    ASSERT_EQ(::mkfifo(settingsFile().c_str(), 0600), 0);
    auto defaults = open();
    defaults->setInteger(7, keys::hotkeyKeycode);
    EXPECT_FALSE(defaults->synchronize());
    EXPECT_TRUE(fs::is_fifo(settingsFile()));
    expectWarning(0, "is not a regular file");

    fs::remove(settingsFile());
    std::ofstream(settingsFile()) << "{}";
    fs::resize_file(settingsFile(), FileDefaultsStorage::kSizeLimit + 1);
    warnings_.clear();
    EXPECT_EQ(open()->integerForKey(keys::hotkeyKeycode), 5);
    expectWarning(0, "too large for a settings file");
    EXPECT_EQ(fs::file_size(settingsFile()), FileDefaultsStorage::kSizeLimit + 1);
    std::ofstream(settingsFile()) << R"({"hotkey_keycode": 9})"
                                  << std::string(FileDefaultsStorage::kSizeLimit - 21, ' ');
    warnings_.clear();
    EXPECT_EQ(open()->integerForKey(keys::hotkeyKeycode), 9);
    EXPECT_TRUE(warnings_.empty());
}

TEST_F(FileDefaultsTest, TwoProcessesSavingAtOnceLoseNoKey) {
    constexpr int kKeysEach = 40;
    std::vector<pid_t> children;
    for (const char* prefix : {"a", "b"}) {
        const pid_t child = ::fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            UserDefaults defaults(std::make_unique<FileDefaultsStorage>(settingsFile()), [](const std::string&) {});
            for (int i = 0; i < kKeysEach; ++i) {
                defaults.set(Key<std::int64_t>(prefix + std::to_string(i), std::nullopt, "a test key"),
                             std::int64_t{i});
                if (!defaults.synchronize()) _exit(2);
            }
            _exit(0);
        }
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

TEST_F(FileDefaultsTest, EditsOfTheFileArePickedUpAndTheStorageSaysWhenItChanged) {
    auto defaults = open();
    defaults->setInteger(7, keys::hotkeyKeycode);
    const auto replace = [&](const char* text) {
        dir_.file("config/jorvane/settings.json.new", text);
        fs::rename(settingsFile().string() + ".new", settingsFile());
    };
    replace(R"({"hotkey_keycode": 8, "inactive_shortcuts": true})");
    EXPECT_TRUE(defaults->synchronize());
    EXPECT_EQ(defaults->integerForKey(keys::hotkeyKeycode), 8);
    EXPECT_TRUE(defaults->boolForKey(keys::inactiveShortcuts));
    std::ofstream(settingsFile(), std::ios::trunc) << R"({"hotkey_keycode": 9})";
    defaults->reload();
    EXPECT_EQ(defaults->integerForKey(keys::hotkeyKeycode), 9);

    FileDefaultsStorage storage(settingsFile());
    EXPECT_TRUE(storage.changedSinceLastSync()) << "never read";
    storage.load();
    EXPECT_FALSE(storage.changedSinceLastSync());
    replace(R"({"hotkey_keycode": 10})");
    EXPECT_TRUE(storage.changedSinceLastSync());
    storage.load();
    fs::remove(settingsFile());
    EXPECT_TRUE(storage.changedSinceLastSync()) << "removed";
    storage.load();
    EXPECT_FALSE(storage.changedSinceLastSync()) << "still missing";
}

}  // namespace
