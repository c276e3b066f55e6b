#include "util/ZTAsyncCancellableOperation.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <latch>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>

using namespace std::chrono_literals;
using namespace jorvane;
using jorvane::dispatch::globalQueue;
using jorvane::dispatch::mainQueue;

namespace {

using Operation = ZTAsyncCancellableOperation<std::string>;

// An operation whose block waits until the test releases it.
struct HeldOperation {
    std::shared_ptr<std::atomic<bool>> released = std::make_shared<std::atomic<bool>>(false);
    std::shared_ptr<Operation> op = Operation::operationWithBlock([released = released](Operation&) {
        released->wait(false);
        return std::string("done");
    });
    ~HeldOperation() { release(); }  // never leave a worker blocked
    void release() {
        released->store(true);
        released->notify_all();
    }
    bool finished() const { return op->result().has_value(); }
};

}  // namespace

TEST(ZTAsyncCancellableOperation, CancelReleasesAWaiterBeforeTheBlockEnds) {
    HeldOperation held;
    held.op->runOnQueue(globalQueue());
    auto waiter = std::async(std::launch::async, [&] { return held.op->wait(); });
    held.op->cancel();
    EXPECT_FALSE(waiter.get());
    EXPECT_TRUE(held.op->isCancelled());
    EXPECT_FALSE(held.finished());
    held.release();
    EXPECT_TRUE(mainQueue().runUntil([&] { return held.finished(); }, 10s)) << "the block still runs to its end";
    EXPECT_EQ(held.op->result(), "done");
    EXPECT_FALSE(held.op->wait());
}

TEST(ZTAsyncCancellableOperation, EveryWaiterPassesWhenTheBlockFinishes) {
    HeldOperation held;
    held.op->runOnQueue(globalQueue());
    auto first = std::async(std::launch::async, [&] { return held.op->wait(); });
    auto second = std::async(std::launch::async, [&] { return held.op->waitForTimeInterval(60.0); });
    held.release();
    EXPECT_TRUE(first.get());
    EXPECT_TRUE(second.get());
    EXPECT_TRUE(held.op->wait()) << "the latch stays open for later waiters";
    EXPECT_EQ(held.op->result(), "done");
}

TEST(ZTAsyncCancellableOperation, TimedWaitGivesUpThenAPlainWaitSucceeds) {
    HeldOperation held;
    held.op->runOnQueue(globalQueue());
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(held.op->waitForTimeInterval(0.05));
    EXPECT_GE(std::chrono::steady_clock::now() - start, 50ms);
    EXPECT_FALSE(held.op->isCancelled());
    held.release();
    EXPECT_TRUE(held.op->wait());
    EXPECT_EQ(held.op->result(), "done");
}

TEST(ZTAsyncCancellableOperation, ANeverRunOperationAnswersAtOnce) {
    auto op = Operation::operationWithBlock([](Operation&) { return std::string("x"); });
    EXPECT_TRUE(op->wait());
    EXPECT_TRUE(op->waitForTimeInterval(0.0));
    op->cancel();
    EXPECT_FALSE(op->wait());
    EXPECT_FALSE(op->result().has_value());
    op->setResult("set by hand");
    EXPECT_EQ(op->result(), "set by hand");
}

TEST(ZTAsyncCancellableOperation, RunningAgainClearsTheCancellation) {
    auto op = Operation::operationWithBlock([](Operation&) { return std::string("ran"); });
    op->cancel();
    op->runOnQueue(globalQueue());
    EXPECT_TRUE(op->wait());
    EXPECT_EQ(op->result(), "ran");
}

TEST(ZTAsyncCancellableOperation, TheBlockCanPollForCancellation) {
    std::latch started(1);
    auto op = Operation::operationWithBlock([&](Operation& self) {
        started.count_down();
        const auto limit = std::chrono::steady_clock::now() + 10s;
        while (!self.isCancelled() && std::chrono::steady_clock::now() < limit) std::this_thread::yield();
        return std::string(self.isCancelled() ? "stopped" : "ran out");
    });
    op->runOnQueue(globalQueue());
    started.wait();
    op->cancel();
    EXPECT_FALSE(op->wait());
    EXPECT_TRUE(mainQueue().runUntil([&] { return op->result().has_value(); }, 10s));
    EXPECT_EQ(op->result(), "stopped");
}

TEST(ZTAsyncCancellableOperation, ABlockThatThrowsReleasesItsWaitersWithFalse) {
    auto op = ZTAsyncCancellableOperation<int>::operationWithBlock(
        [](ZTAsyncCancellableOperation<int>&) -> int { throw std::runtime_error("expected by the test"); });
    op->runOnQueue(globalQueue());
    EXPECT_FALSE(op->wait());
    EXPECT_FALSE(op->isCancelled());
    EXPECT_FALSE(op->result().has_value());
}
