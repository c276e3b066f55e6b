#pragma once

// A one-shot, re-armable delayed action on a dispatch queue. Each fireIn()
// replaces the pending deadline, so calling it repeatedly debounces the
// action; pause() disarms it.
//
// States: idle (never armed, or already fired), scheduled (isScheduled()),
// executing (isExecuting()). fireIn() takes idle or scheduled to scheduled,
// the timer takes scheduled to executing and back to idle, pause() takes
// scheduled to idle. fireIn() while executing schedules the next run; the
// action never runs twice at once, even on a concurrent queue.
//
// Ownership: an instance created through the factories (any instance owned by
// a std::shared_ptr) keeps itself alive while it is armed. The pending timer
// holds a strong reference that it drops when the action has run or when the
// instance is paused, so a caller may arm a timer and forget it; an idle
// instance that nobody references is freed. An instance that is not owned by
// a std::shared_ptr (a member or a local) is a plain timer: destroying it
// disarms it, and it must not be destroyed on another thread while its action
// may be starting.

#include "util/Dispatch.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <stdexcept>

namespace jorvane {

class DelayedAction : public std::enable_shared_from_this<DelayedAction> {
public:
    using Block = std::function<void()>;

    static constexpr std::uint64_t defaultLeeway = 1'000'000;  // nanoseconds

    // The action runs on `queue`, which must outlive the instance. An instance
    // without a block fires and does nothing.
    explicit DelayedAction(dispatch::Queue& queue = dispatch::mainQueue(), Block block = {});
    ~DelayedAction();
    DelayedAction(const DelayedAction&) = delete;
    DelayedAction& operator=(const DelayedAction&) = delete;

    static std::shared_ptr<DelayedAction> invocationOnQueue(dispatch::Queue& queue, Block block);
    static std::shared_ptr<DelayedAction> invocationOnMainQueueWithBlock(Block block);

    // Calls target->*method on the queue. The target is not owned: it must
    // outlive the armed timer. A null target or member throws
    // std::invalid_argument.
    template <class T>
    static std::shared_ptr<DelayedAction> invocationOnQueue(dispatch::Queue& queue, T* target, void (T::*method)()) {
        if (!target || !method) throw std::invalid_argument("DelayedAction: null target or member function");
        return invocationOnQueue(queue, [target, method] { (target->*method)(); });
    }
    template <class T>
    static std::shared_ptr<DelayedAction> invocationOnMainQueueWithTarget(T* target, void (T::*method)()) {
        return invocationOnQueue(dispatch::mainQueue(), target, method);
    }

    // Arms (or re-arms) the timer to run the action once after `seconds`;
    // zero, negative or NaN delays run it asynchronously as soon as possible.
    void fireIn(double seconds);
    void fireNow() { fireIn(0.0); }
    void fire() { fireNow(); }
    // Disarms the timer: a pending action does not run.
    void pause();

    // Informational flags, readable from any thread.
    bool isActive() const { return isScheduled(); }
    bool isScheduled() const { return isScheduled_.load(); }
    bool isExecuting() const { return isExecuting_.load(); }

    // How late the timer may fire, in nanoseconds; read by the next fireIn().
    std::uint64_t leeway() const { return leeway_.load(); }
    void setLeeway(std::uint64_t nanoseconds) { leeway_.store(nanoseconds); }

    // Kept for callers that set it; nothing reads it.
    bool stayOnRunloop() const { return stayOnRunloop_.load(); }
    void setStayOnRunloop(bool stay) { stayOnRunloop_.store(stay); }

private:
    void fired();

    dispatch::Queue& queue_;
    const Block block_;
    std::atomic<bool> isScheduled_{false};
    std::atomic<bool> isExecuting_{false};
    std::atomic<bool> stayOnRunloop_{false};
    std::atomic<std::uint64_t> leeway_{defaultLeeway};

    std::mutex mutex_;
    // Created by the first fireIn(), when it is known whether the instance is
    // shared: the timer of a shared instance reaches it only through a weak
    // reference, so it can never run on a destroyed instance.
    std::unique_ptr<dispatch::TimerSource> timer_;
    std::shared_ptr<DelayedAction> selfWhileArmed_;
    bool rerun_ = false;  // a fire arrived while the action ran
};

}  // namespace jorvane
