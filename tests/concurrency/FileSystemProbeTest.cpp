#include "util/FileSystemProbe.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "fakes/TestSupport.h"

using namespace std::chrono_literals;
namespace probe = jorvane::FileSystemProbe;

namespace {

// Questions that wait until the test opens the gate, counting those that started.
struct Gate {
    std::mutex mutex;
    std::condition_variable changed;
    std::size_t started = 0;
    bool open = false;
    std::function<bool()> question() {
        return [this] {
            std::unique_lock lock(mutex);
            ++started;
            changed.notify_all();
            changed.wait(lock, [this] { return open; });
            return true;
        };
    }
    bool waitForStarted(std::size_t count) {
        std::unique_lock lock(mutex);
        return changed.wait_for(lock, 10s, [&] { return started >= count; });
    }
    void release() {
        std::lock_guard lock(mutex);
        open = true;
        changed.notify_all();
    }
};

TEST(FileSystemProbe, TheReadyMadeQuestionsAnswerWithinTheirLimit) {
    jorvane::test::TempDir dir;
    dir.file("a");
    dir.dir("b");
    std::optional<std::vector<std::string>> names = probe::entries(dir.str(), 10s);
    ASSERT_TRUE(names);
    std::sort(names->begin(), names->end());
    EXPECT_EQ(*names, (std::vector<std::string>{"a", "b"})) << "no dot entries";
    EXPECT_EQ(probe::isDirectory(dir.str() + "/b", 10s), true);
    EXPECT_EQ(probe::isDirectory(dir.str() + "/a", 10s), false);
    EXPECT_EQ(probe::exists(dir.str() + "/gone", 10s), false);
}

TEST(FileSystemProbe, AQuestionPastItsLimitMakesItsPathAndThoseBelowItStuckUntilItAnswers) {
    Gate gate;
    // Past its limit once started: a question that never started would be no sign of a stuck file system.
    std::thread asker([&] { EXPECT_EQ(probe::ask<bool>("/probe-test/stuck", gate.question(), 1s), std::nullopt); });
    const bool started = gate.waitForStarted(1);
    asker.join();
    ASSERT_TRUE(started);
    // clang-format off
    const std::pair<const char*, bool> rows[] = {{"/probe-test/stuck", true}, {"/probe-test/stuck/", true},
        {"/probe-test/stuck/a", true}, {"/probe-test/stucking", false}, {"/probe-test", false}, {"/", false}};
    // clang-format on
    for (const auto& [path, stuck] : rows) EXPECT_EQ(probe::isStuck(path), stuck) << path;
    const std::function<int()> one = [] { return 1; };
    EXPECT_EQ(probe::ask<int>("/probe-test/stuck/a", one, 10s), std::nullopt) << "refused at once";
    gate.release();
    for (int i = 0; i < 1000 && probe::isStuck("/probe-test/stuck"); ++i) std::this_thread::sleep_for(10ms);
    EXPECT_EQ(probe::ask<int>("/probe-test/stuck/a", one, 10s), 1);
}

TEST(FileSystemProbe, AtMostItsThreadsWaitOnTheFileSystemAndAFurtherQuestionNeverStarts) {
    Gate gate;
    std::vector<std::thread> askers;
    // One at a time: threads left idle by earlier tests take a question each before new ones start.
    for (std::size_t i = 0; i < probe::kMaxThreads; ++i) {
        askers.emplace_back([&, i] { probe::ask<bool>("/probe-pool/" + std::to_string(i), gate.question(), 30s); });
        if (!gate.waitForStarted(i + 1)) {
            gate.release();
            for (std::thread& asker : askers) asker.join();
            FAIL() << "question " << i << " never started";
        }
    }
    EXPECT_EQ(probe::ask<bool>("/probe-pool/extra", gate.question(), 300ms), std::nullopt);
    EXPECT_FALSE(probe::isStuck("/probe-pool/extra")) << "it never started";
    {
        std::lock_guard lock(gate.mutex);
        EXPECT_EQ(gate.started, probe::kMaxThreads);
    }
    gate.release();
    for (std::thread& asker : askers) asker.join();
}

TEST(FileSystemProbe, QuestionsArrivingTogetherEachGetAThreadWhileThePoolHasRoom) {
    // A thread left idle by a quick question, then as many questions at once as the pool has threads.
    ASSERT_EQ(probe::ask<bool>("/probe-together/quick", std::function<bool()>([] { return true; }), 10s), true);
    Gate gate;
    std::vector<std::thread> askers;
    for (std::size_t i = 0; i < probe::kMaxThreads; ++i)
        askers.emplace_back([&, i] { probe::ask<bool>("/probe-together/" + std::to_string(i), gate.question(), 30s); });
    EXPECT_TRUE(gate.waitForStarted(probe::kMaxThreads)) << "a question waited for a thread busy with another";
    gate.release();
    for (std::thread& asker : askers) asker.join();
}

}  // namespace
