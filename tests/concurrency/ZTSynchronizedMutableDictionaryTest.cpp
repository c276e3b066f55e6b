#include "util/ZTSynchronizedMutableDictionary.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

using jorvane::ZTSynchronizedMutableDictionary;

TEST(ZTSynchronizedMutableDictionary, StoresReplacesAndRemoves) {
    ZTSynchronizedMutableDictionary<std::string, int> dict;
    EXPECT_EQ(dict.objectForKey("a"), std::nullopt);
    dict.setObject(1, "b");
    dict.setObject(2, "a");
    dict.setObject(3, "a");
    EXPECT_EQ(dict.objectForKey("a"), 3);
    EXPECT_EQ(dict.allKeys(), (std::vector<std::string>{"a", "b"}));
    dict.removeObjectForKey("a");
    dict.removeObjectForKey("never there");
    EXPECT_EQ(dict.allKeys(), std::vector<std::string>{"b"});
    dict.removeAllObjects();
    EXPECT_TRUE(dict.allKeys().empty());
}

TEST(ZTSynchronizedMutableDictionary, ThreadsSharingOneInstanceKeepItConsistent) {
    ZTSynchronizedMutableDictionary<std::string, std::string> dict;
    constexpr int threads = 4, keys = 300;
    std::vector<std::thread> workers;
    for (int t = 0; t < threads; ++t) {
        workers.emplace_back([&dict, t] {
            for (int i = 0; i < keys; ++i) {
                const std::string key = std::to_string(t) + "/" + std::to_string(i);
                dict.setObject("value of " + key, key);
                // Readers of other threads' keys see either nothing or a whole value.
                const auto other = dict.objectForKey(std::to_string((t + 1) % threads) + "/" + std::to_string(i));
                if (other) {
                    EXPECT_EQ(other->rfind("value of ", 0), 0u);
                }
                if (i % 2) dict.removeObjectForKey(key);
                (void)dict.allKeys();
            }
        });
    }
    for (auto& worker : workers) worker.join();
    EXPECT_EQ(dict.allKeys().size(), static_cast<std::size_t>(threads * keys / 2));
    EXPECT_EQ(dict.objectForKey("2/10"), "value of 2/10");
}
