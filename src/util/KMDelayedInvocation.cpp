#include "util/KMDelayedInvocation.h"

#include <limits>
#include <utility>

namespace jorvane {

KMDelayedInvocation::KMDelayedInvocation(dispatch::Queue& queue, Block block)
    : queue_(queue), block_(std::move(block)) {}

// The timer goes with the instance: a fire already handed to the queue is
// dropped.
KMDelayedInvocation::~KMDelayedInvocation() = default;

std::shared_ptr<KMDelayedInvocation> KMDelayedInvocation::invocationOnQueue(dispatch::Queue& queue, Block block) {
    return std::make_shared<KMDelayedInvocation>(queue, std::move(block));
}

std::shared_ptr<KMDelayedInvocation> KMDelayedInvocation::invocationOnMainQueueWithBlock(Block block) {
    return invocationOnQueue(dispatch::mainQueue(), std::move(block));
}

void KMDelayedInvocation::fireIn(double seconds) {
    std::lock_guard lock(mutex_);
    std::weak_ptr<KMDelayedInvocation> weak = weak_from_this();
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

void KMDelayedInvocation::pause() {
    // Released after the lock: it may be the last reference to this instance.
    std::shared_ptr<KMDelayedInvocation> release;
    std::lock_guard lock(mutex_);
    if (timer_) timer_->disarm();
    isScheduled_ = false;
    release = std::move(selfWhileArmed_);
}

void KMDelayedInvocation::fired() {
    {
        std::lock_guard lock(mutex_);
        isExecuting_ = true;
        // A fireIn() from another thread may have re-armed the timer since it
        // handed this fire to the queue; then the instance stays scheduled.
        if (!timer_->isArmed()) isScheduled_ = false;
    }
    // Runs when the action returns or throws (the queue reports the throw).
    struct Finish {
        KMDelayedInvocation& self;
        ~Finish() {
            // The caller of fired() holds its own reference, so dropping the
            // timer's reference here never destroys the instance under us.
            std::shared_ptr<KMDelayedInvocation> release;
            std::lock_guard lock(self.mutex_);
            self.isExecuting_ = false;
            if (!self.timer_->isArmed()) release = std::move(self.selfWhileArmed_);
        }
    } finish{*this};
    if (block_) block_();
}

}  // namespace jorvane
