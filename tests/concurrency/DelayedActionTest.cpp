#include "util/DelayedAction.h"

#include <gtest/gtest.h>

#include "fakes/VirtualTime.h"

#include <algorithm>
#include <atomic>
#include <limits>
#include <thread>

using namespace std::chrono_literals;
using namespace jorvane;
using namespace jorvane::dispatch;
using test::VirtualTime;

TEST(DelayedAction, RearmingDebouncesToOneRunAfterTheLastCallAndPausingDropsIt) {
    VirtualTime time;
    int runs = 0;
    auto invocation = DelayedAction::invocationOnMainQueueWithBlock([&] { ++runs; });
    for (int i = 0; i < 5; ++i) {
        invocation->fireIn(0.3);
        time.pass(100ms);
    }
    time.pass(199ms);  // 299 ms after the last call
    EXPECT_EQ(runs, 0);
    time.pass(1ms);
    EXPECT_EQ(runs, 1);
    invocation->fireIn(0.3);
    time.pass(200ms);
    EXPECT_TRUE(invocation->isActive());
    invocation->pause();
    EXPECT_FALSE(invocation->isActive());
    time.pass(10s);
    EXPECT_EQ(runs, 1);
}

TEST(DelayedAction, NoDelayRunsAsSoonAsPossibleButNeverInline) {
    for (double delay : {0.0, -1.0, std::numeric_limits<double>::quiet_NaN()}) {
        VirtualTime time;
        int runs = 0;
        auto invocation = DelayedAction::invocationOnMainQueueWithBlock([&] { ++runs; });
        invocation->fireIn(delay);
        EXPECT_EQ(runs, 0);
        time.pass(0ms);
        EXPECT_EQ(runs, 1) << delay;
    }
}

TEST(DelayedAction, ArmingFromTheActionSchedulesTheNextRun) {
    VirtualTime time;
    int runs = 0;
    std::weak_ptr<DelayedAction> weak;
    auto invocation = DelayedAction::invocationOnMainQueueWithBlock([&] {
        if (++runs == 1) weak.lock()->fireIn(1.0);
    });
    weak = invocation;
    invocation->fire();
    invocation.reset();
    time.pass(0ms);
    EXPECT_EQ(runs, 1);
    {
        const auto again = weak.lock();
        ASSERT_TRUE(again) << "armed again, so still alive";
        EXPECT_TRUE(again->isScheduled());
    }
    time.pass(1s);
    EXPECT_EQ(runs, 2);
    EXPECT_TRUE(weak.expired());
}

TEST(DelayedAction, KeepsItselfAliveOnlyWhileArmed) {
    VirtualTime time;
    int runs = 0;
    auto fired = DelayedAction::invocationOnMainQueueWithBlock([&] { ++runs; });
    auto paused = DelayedAction::invocationOnMainQueueWithBlock([&] { ++runs; });
    std::weak_ptr<DelayedAction> firedWeak = fired, pausedWeak = paused;
    fired->fireIn(0.3);
    paused->fireIn(0.3);
    fired.reset();
    EXPECT_FALSE(firedWeak.expired());
    pausedWeak.lock()->pause();
    paused.reset();
    EXPECT_TRUE(pausedWeak.expired()) << "a paused instance is not held by its timer";
    time.pass(300ms);
    EXPECT_EQ(runs, 1);
    EXPECT_TRUE(firedWeak.expired());
}

TEST(DelayedAction, AnUnsharedInstanceIsAPlainTimerThatDiesDisarmed) {
    VirtualTime time;
    int runs = 0;
    {
        DelayedAction timer(mainQueue(), [&] { ++runs; });
        timer.fireIn(0.1);
        time.pass(100ms);
        EXPECT_EQ(runs, 1);
        timer.fireIn(0.1);
        time.clock.advance(100ms);  // handed to the queue, not run yet
    }
    mainQueue().drain();
    EXPECT_EQ(runs, 1);
    DelayedAction empty;  // no action: fires and does nothing
    empty.fireNow();
    time.pass(0ms);
    EXPECT_FALSE(empty.isScheduled());
}

TEST(DelayedAction, OnAConcurrentQueueTheActionNeverOverlapsItself) {
    std::atomic<int> runs{0}, active{0}, maxActive{0};
    std::atomic<bool> hold{true};
    auto invocation = DelayedAction::invocationOnQueue(globalQueue(), [&] {
        const int now = ++active;
        maxActive = std::max(maxActive.load(), now);
        if (++runs == 1)
            while (hold.load()) std::this_thread::yield();
        --active;
    });
    invocation->fireNow();
    ASSERT_TRUE(mainQueue().runUntil([&] { return runs.load() == 1; }, 10s));
    invocation->fireNow();
    // The second fire has been delivered once the instance is no longer scheduled.
    EXPECT_TRUE(mainQueue().runUntil([&] { return !invocation->isScheduled(); }, 10s));
    EXPECT_EQ(runs.load(), 1);
    hold = false;
    EXPECT_TRUE(mainQueue().runUntil([&] { return runs.load() == 2 && !invocation->isExecuting(); }, 10s));
    EXPECT_EQ(maxActive.load(), 1);
}

TEST(DelayedAction, ArmingPausingAndReadingFromManyThreadsIsSafe) {
    std::atomic<int> runs{0};
    auto invocation = DelayedAction::invocationOnQueue(globalQueue(), [&] { ++runs; });
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < 200; ++i) {
                (i + t) % 3 == 0 ? invocation->pause() : invocation->fireIn(0.0001 * (i % 4));
                (void)invocation->isActive();
                (void)invocation->isExecuting();
            }
        });
    }
    for (auto& thread : threads) thread.join();
    const int before = runs.load();
    invocation->fireNow();
    EXPECT_TRUE(mainQueue().runUntil([&] { return runs.load() > before && !invocation->isExecuting(); }, 10s));
    std::weak_ptr<DelayedAction> weak = invocation;
    invocation.reset();
    EXPECT_TRUE(mainQueue().runUntil([&] { return weak.expired(); }, 10s));
}
