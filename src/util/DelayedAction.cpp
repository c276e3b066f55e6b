#include "util/DelayedAction.h"

#include <limits>
#include <utility>

namespace jorvane {

DelayedAction::DelayedAction(dispatch::Queue& queue, Block block) : queue_(queue), block_(std::move(block)) {}

// The timer goes with the instance: a fire already handed to the queue is
// dropped.
DelayedAction::~DelayedAction() = default;

std::shared_ptr<DelayedAction> DelayedAction::invocationOnQueue(dispatch::Queue& queue, Block block) {
    return std::make_shared<DelayedAction>(queue, std::move(block));
}

std::shared_ptr<DelayedAction> DelayedAction::invocationOnMainQueueWithBlock(Block block) {
    return invocationOnQueue(dispatch::mainQueue(), std::move(block));
}

void DelayedAction::fireIn(double seconds) {
    std::lock_guard lock(mutex_);
    std::weak_ptr<DelayedAction> weak = weak_from_this();
    if (!timer_) {
        dispatch::Task handler;
        if (weak.expired()) {
            handler = [this] { fired(); };
        } else {
            handler = [weak] {
                if (auto self = weak.lock()) self->fired();
            };
        }
        timer_ = std::make_unique<dispatch::TimerSource>(queue_, std::move(handler));
    }
    // Empty for an instance that is not shared; such an instance is kept
    // alive by its owner.
    selfWhileArmed_ = weak.lock();
    isScheduled_ = true;
    const std::uint64_t ns = leeway_.load();
    const auto maxNs = static_cast<std::uint64_t>(std::numeric_limits<dispatch::Duration::rep>::max());
    const dispatch::Duration leeway = ns > maxNs ? dispatch::Duration::max() : dispatch::Duration(ns);
    timer_->setTimer(dispatch::seconds(seconds), leeway);
}

void DelayedAction::pause() {
    // Released after the lock: it may be the last reference to this instance.
    std::shared_ptr<DelayedAction> release;
    std::lock_guard lock(mutex_);
    if (timer_) timer_->disarm();
    isScheduled_ = false;
    release = std::move(selfWhileArmed_);
}

void DelayedAction::fired() {
    {
        std::lock_guard lock(mutex_);
        // A fireIn() from another thread may have re-armed the timer since it
        // handed this fire to the queue; then the instance stays scheduled.
        if (!timer_->isArmed()) isScheduled_ = false;
        // Like a dispatch source's handler, the action never overlaps itself:
        // on a concurrent queue a fire that arrives while it runs is run by
        // the worker already running it, right after.
        if (isExecuting_) {
            rerun_ = true;
            return;
        }
        isExecuting_ = true;
    }
    // Released after the lock. The caller of fired() holds its own reference,
    // so dropping the timer's reference never destroys the instance under us.
    std::shared_ptr<DelayedAction> release;
    const auto finishLocked = [&] {
        isExecuting_ = false;
        rerun_ = false;
        if (!timer_->isArmed()) release = std::move(selfWhileArmed_);
    };
    for (;;) {
        try {
            if (block_) block_();
        } catch (...) {
            // The queue reports the exception; a fire deferred meanwhile is
            // dropped with the failed run.
            std::lock_guard lock(mutex_);
            finishLocked();
            throw;
        }
        std::lock_guard lock(mutex_);
        if (rerun_) {
            rerun_ = false;
            continue;
        }
        finishLocked();
        return;
    }
}

}  // namespace jorvane
