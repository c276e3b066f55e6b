#pragma once

// The dispatch layer the whole program runs on: a main queue drained by the
// owner of the main loop, a concurrent global queue, serial or bounded
// operation queues with cancellation, one-shot timers with leeway, and a time
// source that tests replace with virtual time.

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace jorvane::dispatch {

using Task = std::function<void()>;
using Duration = std::chrono::nanoseconds;
using TimePoint = std::chrono::steady_clock::time_point;

// Converts seconds as a double (the interface of timers and time-outs) into a
// duration, truncating towards zero like a signed 64-bit nanosecond count.
Duration seconds(double s);

class Queue {
public:
    virtual ~Queue() = default;
    virtual void async(Task task) = 0;
};

// Tasks queued from any thread run, in order, on the thread that owns the
// main loop: Qt's event loop in the application, a test loop in tests.
class MainQueue final : public Queue {
public:
    static MainQueue& shared();

    void async(Task task) override;

    // Called from the queueing thread whenever a task arrives on an empty
    // queue, so that a sleeping event loop wakes and calls drain().
    void setWakeUp(std::function<void()> wakeUp);

    // The calling thread becomes the main thread. By default it is the thread
    // that first touched the main queue.
    void bindToCurrentThread();
    bool isMainThread() const;

    // Runs the tasks queued before the call (tasks they queue wait for the
    // next drain, so a task that re-queues itself cannot starve the loop).
    std::size_t drain();
    // Test loops: waits for tasks until the predicate holds or the time-out
    // passes, running them as they come. Returns the predicate's last value.
    bool runUntil(const std::function<bool()>& done, Duration timeout);
    // Runs everything that arrives during the given real time.
    void runFor(Duration duration);

    std::size_t pendingCount() const;

private:
    MainQueue();
    mutable std::mutex mutex_;
    std::condition_variable arrived_;
    std::deque<Task> tasks_;
    std::function<void()> wakeUp_;
    std::thread::id owner_;
};

inline MainQueue& mainQueue() { return MainQueue::shared(); }
inline bool isMainThread() { return MainQueue::shared().isMainThread(); }
// Fire-and-forget shorthand: run the task on the main thread later.
inline void performOnMainThread(Task task) { MainQueue::shared().async(std::move(task)); }

// A pool of worker threads that runs tasks concurrently, below the main
// thread's priority. Blocking work (file-manager calls bounded by time-outs) is
// expected, so the pool grows up to a generous limit instead of starving.
class GlobalQueue final : public Queue {
public:
    static GlobalQueue& shared();
    explicit GlobalQueue(std::size_t maxThreads);
    ~GlobalQueue() override;

    void async(Task task) override;

private:
    void work();
    std::mutex mutex_;
    std::condition_variable arrived_;
    std::deque<Task> tasks_;
    std::vector<std::thread> threads_;
    std::size_t idle_ = 0;
    std::size_t maxThreads_;
    bool stopping_ = false;
};

inline GlobalQueue& globalQueue() { return GlobalQueue::shared(); }

// An operation queue: runs operations in submission order, at most
// maxConcurrentOperationCount at a time, on threads of its own.
// cancelAllOperations drops the operations that wait; one already running is
// marked cancelled and finishes.
class OperationQueue {
public:
    class Operation {
    public:
        bool isCancelled() const;
        bool isFinished() const;

    private:
        friend class OperationQueue;
        std::function<void(const Operation&)> body_;
        mutable std::mutex mutex_;
        bool cancelled_ = false;
        bool finished_ = false;
    };

    explicit OperationQueue(std::size_t maxConcurrentOperationCount = 1);
    // Drops waiting operations and waits for running ones.
    ~OperationQueue();
    OperationQueue(const OperationQueue&) = delete;
    OperationQueue& operator=(const OperationQueue&) = delete;

    std::shared_ptr<Operation> addOperation(std::function<void(const Operation&)> body);
    std::shared_ptr<Operation> addOperation(Task body);
    void cancelAllOperations();
    void waitUntilAllOperationsAreFinished();
    // Waiting plus running operations.
    std::size_t operationCount() const;

    // The process-wide queue with default settings, created on first use.
    static OperationQueue& secondaryQueue();

private:
    void work();
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<std::shared_ptr<Operation>> waiting_;
    std::vector<std::thread> threads_;
    std::size_t running_ = 0;
    std::size_t idle_ = 0;
    std::size_t maxConcurrent_;
    bool stopping_ = false;
};

// Where time comes from, and who wakes the timers. The real one uses the
// steady clock and one sleeping thread; tests install a ManualTimeSource and
// move time forward themselves.
class TimeSource {
public:
    using TimerId = std::uint64_t;
    virtual ~TimeSource() = default;
    virtual TimePoint now() const = 0;
    // `fire` runs on the time source's own thread (or inside advance()) at
    // the deadline, at most `leeway` late; it must only hand work on.
    virtual TimerId schedule(TimePoint deadline, Duration leeway, Task fire) = 0;
    virtual void cancel(TimerId id) = 0;
};

TimeSource& timeSource();
// Replaces the process-wide time source; nullptr restores the real one. The
// caller keeps ownership and must restore it before destroying its own.
void setTimeSource(TimeSource* source);

class RealTimeSource final : public TimeSource {
public:
    RealTimeSource();
    ~RealTimeSource() override;
    TimePoint now() const override;
    TimerId schedule(TimePoint deadline, Duration leeway, Task fire) override;
    void cancel(TimerId id) override;

private:
    struct Entry {
        TimePoint deadline;
        Duration leeway;
        TimerId id;
        Task fire;
    };
    void run();
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<Entry> entries_;
    std::thread thread_;
    TimerId nextId_ = 1;
    bool stopping_ = false;
};

class ManualTimeSource final : public TimeSource {
public:
    explicit ManualTimeSource(TimePoint start = TimePoint{} + std::chrono::hours(1));
    TimePoint now() const override;
    TimerId schedule(TimePoint deadline, Duration leeway, Task fire) override;
    void cancel(TimerId id) override;

    // Moves time forward, firing due timers in deadline order with `now()`
    // set to each deadline as it fires.
    void advance(Duration by);
    std::size_t scheduledCount() const;

private:
    struct Entry {
        TimePoint deadline;
        TimerId id;
        Task fire;
    };
    mutable std::mutex mutex_;
    TimePoint now_;
    std::vector<Entry> entries_;
    TimerId nextId_ = 1;
};

// A one-shot timer on a queue. It is disarmed until setTimer; each setTimer
// replaces the deadline, and a fire that has been handed to the queue but has
// not started yet is dropped by a later setTimer or disarm.
class TimerSource {
public:
    TimerSource(Queue& queue, Task handler);
    ~TimerSource();
    TimerSource(const TimerSource&) = delete;
    TimerSource& operator=(const TimerSource&) = delete;

    void setTimer(Duration after, Duration leeway);
    void disarm();
    bool isArmed() const;

private:
    struct State;
    std::shared_ptr<State> state_;
};

}  // namespace jorvane::dispatch
