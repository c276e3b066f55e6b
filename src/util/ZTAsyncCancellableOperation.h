#pragma once

// A cancellable one-shot operation: runs a block on a dispatch queue and lets
// other threads wait for it, with or without a time-out.
//
// The completion signal is a latch: once the block has finished (or the
// operation was cancelled) every waiter passes, now and later. cancel() does
// not interrupt the block; it releases the waiters at once (they answer
// false), and the block runs to its end, may poll isCancelled(), and still
// stores its result.
//
// Templated on the result type so that callers get their own type back and a
// mismatch is a compile error rather than a failed cast at run time.

#include "util/Dispatch.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <type_traits>
#include <utility>

namespace jorvane {

template <class Result>
class ZTAsyncCancellableOperation : public std::enable_shared_from_this<ZTAsyncCancellableOperation<Result>> {
public:
    static_assert(!std::is_void_v<Result>, "an operation answers a value; use bool or std::monostate for none");
    using Block = std::function<Result(ZTAsyncCancellableOperation&)>;

    // Use operationWithBlock(): a running operation keeps itself alive through
    // a shared reference.
    explicit ZTAsyncCancellableOperation(Block block) : block_(std::move(block)) {}

    static std::shared_ptr<ZTAsyncCancellableOperation> operationWithBlock(Block block) {
        return std::make_shared<ZTAsyncCancellableOperation>(std::move(block));
    }

    // Starts the block asynchronously on `queue`. Clears the cancelled flag and
    // gives the run a new latch, so each run is waited for on its own.
    void runOnQueue(dispatch::Queue& queue) {
        auto latch = std::make_shared<Latch>();
        cancelled_ = false;
        failed_ = false;
        {
            std::lock_guard lock(mutex_);
            latch_ = latch;
        }
        queue.async([self = this->shared_from_this(), latch] {
            // Waiters are released even when the block throws; the queue
            // reports the exception.
            struct Release {
                Latch& latch;
                ~Release() { latch.open(); }
            } release{*latch};
            try {
                if (self->block_) self->setResult(self->block_(*self));
            } catch (...) {
                self->failed_ = true;
                throw;
            }
        });
    }

    // True when the block finished normally and the operation was not
    // cancelled. An operation that was never run answers at once.
    bool wait() {
        if (auto latch = currentLatch()) latch->wait();
        return succeeded();
    }

    // As wait(), but false also when `seconds` pass first (real time).
    bool waitForTimeInterval(double seconds) {
        if (auto latch = currentLatch()) {
            if (!latch->waitFor(dispatch::seconds(seconds))) return false;
        }
        return succeeded();
    }

    void cancel() {
        cancelled_ = true;
        if (auto latch = currentLatch()) latch->open();
    }

    bool isCancelled() const { return cancelled_.load(); }

    // Empty until the block has returned or setResult() was called.
    std::optional<Result> result() const {
        std::lock_guard lock(mutex_);
        return result_;
    }
    void setResult(Result value) {
        std::lock_guard lock(mutex_);
        result_ = std::move(value);
    }

private:
    class Latch {
    public:
        void open() {
            {
                std::lock_guard lock(mutex_);
                open_ = true;
            }
            opened_.notify_all();
        }
        void wait() {
            std::unique_lock lock(mutex_);
            opened_.wait(lock, [this] { return open_; });
        }
        bool waitFor(dispatch::Duration timeout) {
            std::unique_lock lock(mutex_);
            const auto now = std::chrono::steady_clock::now();
            // A time-out too long to represent is no time-out at all.
            if (timeout >= std::chrono::steady_clock::time_point::max() - now) {
                opened_.wait(lock, [this] { return open_; });
                return true;
            }
            return opened_.wait_until(lock, now + std::max(timeout, dispatch::Duration::zero()), [this] { return open_; });
        }

    private:
        std::mutex mutex_;
        std::condition_variable opened_;
        bool open_ = false;
    };

    std::shared_ptr<Latch> currentLatch() const {
        std::lock_guard lock(mutex_);
        return latch_;
    }
    bool succeeded() const { return !cancelled_.load() && !failed_.load(); }

    const Block block_;
    mutable std::mutex mutex_;
    std::shared_ptr<Latch> latch_;
    std::optional<Result> result_;
    std::atomic<bool> cancelled_{false};
    std::atomic<bool> failed_{false};
};

}  // namespace jorvane
