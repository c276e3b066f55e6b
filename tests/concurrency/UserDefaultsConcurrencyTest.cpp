#include "settings/FileDefaultsStorage.h"
#include "settings/UserDefaults.h"

#include "fakes/MemoryDefaults.h"
#include "fakes/TestSupport.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

using namespace jorvane::settings;

namespace {

// The writer stores combinations whose flags and key code agree (code i, flags i << 17): readers tell garbage.
void exercise(UserDefaults& defaults, int writes, bool reloadWhileReading) {
    std::atomic<bool> done{false};
    std::atomic<int> bad{0};
    std::vector<std::thread> readers;
    for (int r = 0; r < 3; ++r) {
        readers.emplace_back([&, r] {
            int reads = 0;
            while (!done.load()) {
                const std::int64_t code = defaults.integerForKey(keys::hotkeyKeycode);
                const std::int64_t flags = defaults.integerForKey(keys::hotkeyFlags);
                if (code < 0 || code > writes || (flags != 0x100000 && (flags >> 17) > writes)) ++bad;
                const auto entry =
                    HotkeyRecorderEntry::fromDictionary(defaults.dictionaryForKey(keys::hotkeyRecorder("hotkey")));
                if (entry.keyChars && *entry.keyChars != std::to_string(entry.keyCode)) ++bad;
                if (reloadWhileReading && r == 0 && ++reads % 16 == 0) defaults.reload();
            }
        });
    }
    for (int i = 1; i <= writes; ++i) {
        defaults.setInteger(i, keys::hotkeyKeycode);
        defaults.setInteger(static_cast<std::int64_t>(i) << 17, keys::hotkeyFlags);
        defaults.setObject(HotkeyRecorderEntry{static_cast<std::int16_t>(i), 0, 0, std::to_string(i), std::to_string(i)}
                               .toDictionary(),
                           keys::hotkeyRecorder("hotkey"));
        if (i % 8 == 0) defaults.synchronize();
    }
    done = true;
    for (auto& reader : readers) reader.join();
    EXPECT_EQ(bad.load(), 0);
    EXPECT_EQ(defaults.integerForKey(keys::hotkeyKeycode), writes);
}

}  // namespace

TEST(UserDefaultsConcurrency, ReadersOnOtherThreadsWhileTheWriterSetsInMemory) {
    auto store = std::make_shared<jorvane::test::MemoryStore>();
    auto defaults = jorvane::test::makeMemoryDefaults(store);
    exercise(*defaults, 400, true);
    EXPECT_EQ(store->values().at("hotkey_keycode"), 400);
}

TEST(UserDefaultsConcurrency, ReadersWhileTheWriterSavesAFile) {
    jorvane::test::TempDir dir;
    const auto file = dir.path() / "settings.json";
    std::vector<std::string> warnings;
    {
        UserDefaults defaults(std::make_unique<FileDefaultsStorage>(file),
                              [&](const std::string& line) { warnings.push_back(line); });
        defaults.registerDefaults(shippedDefaults());
        exercise(defaults, 40, true);
    }
    EXPECT_EQ(Value::parse(jorvane::test::readFile(file)).at("hotkey_keycode"), 40);
    EXPECT_TRUE(warnings.empty());
}
