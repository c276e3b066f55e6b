#include "util/Dispatch.h"

#include <gtest/gtest.h>

#include "fakes/VirtualTime.h"

#include <atomic>
#include <latch>
#include <limits>
#include <mutex>
#include <semaphore>
#include <vector>

using namespace std::chrono_literals;
using namespace jorvane::dispatch;
using jorvane::test::VirtualTime;

TEST(MainQueue, RunsTasksInOrderOnTheDrainingThreadOnly) {
    std::vector<int> seen;
    std::thread producer([&] {
        for (int i = 0; i < 100; ++i) mainQueue().async([&seen, i] { seen.push_back(i); });
    });
    producer.join();
    EXPECT_TRUE(seen.empty());
    mainQueue().drain();
    ASSERT_EQ(seen.size(), 100u);
    for (int i = 0; i < 100; ++i) EXPECT_EQ(seen[i], i);
    // A task queued by a task waits for the next drain.
    int runs = 0;
    mainQueue().async([&] {
        ++runs;
        mainQueue().async([&] { ++runs; });
    });
    EXPECT_EQ(mainQueue().drain(), 1u);
    EXPECT_EQ(runs, 1);
    EXPECT_EQ(mainQueue().drain(), 1u);
    EXPECT_EQ(runs, 2);
}

TEST(MainQueue, WakesItsLoopOncePerBatch) {
    std::atomic<int> wakes{0};
    mainQueue().setWakeUp([&] { ++wakes; });
    mainQueue().async([] {});
    mainQueue().async([] {});
    mainQueue().setWakeUp(nullptr);
    EXPECT_EQ(wakes.load(), 1);
    mainQueue().drain();
}

TEST(GlobalQueue, ABlockedTaskDoesNotHoldUpTheOthers) {
    std::latch release(1);
    std::atomic<int> done{0};
    globalQueue().async([&] {
        release.wait();
        ++done;
    });
    for (int i = 0; i < 10; ++i) globalQueue().async([&] { ++done; });
    EXPECT_TRUE(mainQueue().runUntil([&] { return done.load() == 10; }, 10s));
    release.count_down();
    EXPECT_TRUE(mainQueue().runUntil([&] { return done.load() == 11; }, 10s));
}

TEST(OperationQueue, SerialQueueRunsOneAtATimeInOrder) {
    OperationQueue queue(1);
    std::mutex m;
    std::vector<int> order;
    std::atomic<int> active{0}, maxActive{0};
    for (int i = 0; i < 20; ++i) {
        queue.addOperation([&, i] {
            maxActive = std::max(maxActive.load(), ++active);
            std::lock_guard lock(m);
            order.push_back(i);
            --active;
        });
    }
    queue.waitUntilAllOperationsAreFinished();
    EXPECT_EQ(maxActive.load(), 1);
    ASSERT_EQ(order.size(), 20u);
    for (int i = 0; i < 20; ++i) EXPECT_EQ(order[i], i);
}

TEST(OperationQueue, CancelAllDropsTheWaitingAndLetsTheRunningOneFinish) {
    OperationQueue queue(1);
    std::latch started(1), release(1);
    std::atomic<bool> firstSawCancel{false}, secondRan{false}, thirdRan{false};
    auto first = queue.addOperation([&](const OperationQueue::Operation& op) {
        started.count_down();
        release.wait();
        firstSawCancel = op.isCancelled();
    });
    started.wait();
    auto second = queue.addOperation([&] { secondRan = true; });
    queue.cancelAllOperations();
    auto third = queue.addOperation([&] { thirdRan = true; });
    release.count_down();
    queue.waitUntilAllOperationsAreFinished();
    EXPECT_FALSE(firstSawCancel.load()) << "the running operation is left alone";
    EXPECT_TRUE(first->isFinished());
    EXPECT_FALSE(secondRan.load());
    EXPECT_TRUE(second->isCancelled());
    EXPECT_TRUE(thirdRan.load());
}

TEST(OperationQueue, DestroyingAQueueWaitsForItsRunningOperation) {
    std::atomic<bool> finished{false};
    {
        OperationQueue queue(1);
        std::latch started(1);
        queue.addOperation([&] {
            started.count_down();
            std::this_thread::sleep_for(20ms);
            finished = true;
        });
        started.wait();
    }
    EXPECT_TRUE(finished.load());
}

TEST(OperationQueue, TwoOperationsAddedWhileAWorkerIdlesRunSideBySide) {
    OperationQueue queue(2);
    queue.addOperation([] {});
    queue.waitUntilAllOperationsAreFinished();  // its one worker idles now
    std::binary_semaphore secondStarted(0);
    std::atomic<bool> firstSawSecond{false};
    queue.addOperation([&] { firstSawSecond = secondStarted.try_acquire_for(10s); });
    queue.addOperation([&] { secondStarted.release(); });
    queue.waitUntilAllOperationsAreFinished();
    EXPECT_TRUE(firstSawSecond.load());
}

TEST(Seconds, TruncatesTowardsZeroAndSaturates) {
    EXPECT_EQ(seconds(0.3), 300ms);
    EXPECT_EQ(seconds(-1.5), -1500ms);
    EXPECT_EQ(seconds(1e300), Duration::max());
    EXPECT_EQ(seconds(-1e300), Duration::min());
    EXPECT_EQ(seconds(std::numeric_limits<double>::quiet_NaN()), Duration::zero());
}

TEST(TimerSource, FiresOnceOnItsQueueAtTheDeadline) {
    VirtualTime time;
    int fired = 0;
    TimerSource timer(mainQueue(), [&] { ++fired; });
    timer.setTimer(seconds(0.3), 1ms);
    time.pass(299ms);
    EXPECT_EQ(fired, 0);
    EXPECT_TRUE(timer.isArmed());
    time.clock.advance(1ms);
    EXPECT_EQ(fired, 0) << "the handler runs on the queue, not in the clock";
    mainQueue().drain();
    EXPECT_EQ(fired, 1);
    EXPECT_FALSE(timer.isArmed());
    time.pass(10s);
    EXPECT_EQ(fired, 1);
}

TEST(TimerSource, DisarmDropsAFireAlreadyHandedToTheQueue) {
    VirtualTime time;
    int fired = 0;
    TimerSource timer(mainQueue(), [&] { ++fired; });
    timer.setTimer(10ms, 1ms);
    time.clock.advance(10ms);  // the fire is queued now
    timer.disarm();
    mainQueue().drain();
    EXPECT_EQ(fired, 0);
}

TEST(RealTimeSource, FiresOnItsThreadAndStopsAtOnceWithATimerStillAnHourAway) {
    std::binary_semaphore fired{0};
    {
        RealTimeSource time;
        time.schedule(time.now() + std::chrono::hours(1), {}, [] {});
        time.schedule(time.now() + 1ms, {}, [&] { fired.release(); });
        EXPECT_TRUE(fired.try_acquire_for(10s));
    }  // would sleep the hour if stopping did not wake the thread
}

TEST(RealTimeSource, TimersDueTogetherFireInTheOrderOfTheirDeadlines) {
    std::binary_semaphore entered{0}, blocking{0}, done{0};
    std::vector<int> order;
    RealTimeSource time;
    // Its thread is held in a fire while three timers fall due, scheduled out of order.
    time.schedule(time.now(), {}, [&] {
        entered.release();
        blocking.acquire();
    });
    ASSERT_TRUE(entered.try_acquire_for(10s));
    const TimePoint past = time.now() - 1s;
    time.schedule(past + 2ms, {}, [&] { order.push_back(2); });
    time.schedule(past + 1ms, {}, [&] { order.push_back(1); });
    time.schedule(past + 3ms, {}, [&] {
        order.push_back(3);
        done.release();
    });
    blocking.release();
    ASSERT_TRUE(done.try_acquire_for(10s));
    EXPECT_EQ(order, (std::vector<int>{1, 2, 3}));
}
