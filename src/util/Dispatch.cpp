#include "util/Dispatch.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <exception>

#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace jorvane::dispatch {

namespace {

// Static initialisation runs on the process's main thread.
const std::thread::id processMainThread = std::this_thread::get_id();

// Background workers yield to the main thread: a keystroke's answer must not
// wait for a core while workers list and filter a huge folder on every core.
// (On Linux the nice value is the calling thread's own.)
constexpr int kWorkerNiceness = 10;

void lowerThisThreadsPriority() {
    const auto thread = static_cast<id_t>(::syscall(SYS_gettid));
    errno = 0;
    const int current = ::getpriority(PRIO_PROCESS, thread);
    if (errno == 0) ::setpriority(PRIO_PROCESS, thread, std::min(current + kWorkerNiceness, 19));
}

// A task that throws must not take its worker thread, and with it the
// process, down; the failure is reported and the queue goes on.
void runGuarded(const Task& task) {
    try {
        task();
    } catch (const std::exception& e) {
        std::fprintf(stderr, "jorvane: a queued task failed: %s\n", e.what());
    } catch (...) {
        std::fprintf(stderr, "jorvane: a queued task failed\n");
    }
}

}  // namespace

Duration seconds(double s) {
    // NaN compares false with everything and its conversion to an integer is
    // undefined: treat it as "now".
    if (std::isnan(s)) return Duration::zero();
    const double ns = s * 1e9;
    if (ns >= 9.2e18) return Duration::max();
    if (ns <= -9.2e18) return Duration::min();
    return Duration(static_cast<std::int64_t>(ns));
}

// ---------------------------------------------------------------- main queue

MainQueue::MainQueue() : owner_(processMainThread) {}

MainQueue& MainQueue::shared() {
    // Never destroyed: workers may still queue results while the process exits.
    static MainQueue* queue = new MainQueue();
    return *queue;
}

void MainQueue::async(Task task) {
    std::function<void()> wake;
    {
        std::lock_guard lock(mutex_);
        const bool wasEmpty = tasks_.empty();
        tasks_.push_back(std::move(task));
        if (wasEmpty) wake = wakeUp_;
    }
    arrived_.notify_all();
    if (wake) wake();
}

void MainQueue::setWakeUp(std::function<void()> wakeUp) {
    std::lock_guard lock(mutex_);
    wakeUp_ = std::move(wakeUp);
}

void MainQueue::bindToCurrentThread() {
    std::lock_guard lock(mutex_);
    owner_ = std::this_thread::get_id();
}

bool MainQueue::isMainThread() const {
    std::lock_guard lock(mutex_);
    return owner_ == std::this_thread::get_id();
}

std::size_t MainQueue::drain() {
    std::deque<Task> batch;
    {
        std::lock_guard lock(mutex_);
        batch.swap(tasks_);
    }
    for (const Task& task : batch) runGuarded(task);
    return batch.size();
}

bool MainQueue::runUntil(const std::function<bool()>& done, Duration timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    for (;;) {
        drain();
        if (done()) return true;
        if (std::chrono::steady_clock::now() >= deadline) return done();
        // The predicate may depend on other threads, not only on queued
        // tasks, so it is looked at again every few milliseconds.
        std::unique_lock lock(mutex_);
        const auto slice = std::min(deadline, std::chrono::steady_clock::now() + std::chrono::milliseconds(2));
        arrived_.wait_until(lock, slice, [this] { return !tasks_.empty(); });
    }
}

void MainQueue::runFor(Duration duration) {
    const auto deadline = std::chrono::steady_clock::now() + duration;
    runUntil([deadline] { return std::chrono::steady_clock::now() >= deadline; }, duration);
}

std::size_t MainQueue::pendingCount() const {
    std::lock_guard lock(mutex_);
    return tasks_.size();
}

// -------------------------------------------------------------- global queue

GlobalQueue& GlobalQueue::shared() {
    // Never destroyed, so that exit does not wait for a blocked worker.
    static GlobalQueue* queue = new GlobalQueue(64);
    return *queue;
}

GlobalQueue::GlobalQueue(std::size_t maxThreads) : maxThreads_(std::max<std::size_t>(1, maxThreads)) {}

GlobalQueue::~GlobalQueue() {
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    arrived_.notify_all();
    for (std::thread& t : threads_) t.join();
}

void GlobalQueue::async(Task task) {
    {
        std::lock_guard lock(mutex_);
        tasks_.push_back(std::move(task));
        // Grow only when every worker is busy: a blocked worker must not hold
        // up the tasks behind it.
        if (idle_ < tasks_.size() && threads_.size() < maxThreads_) threads_.emplace_back([this] { work(); });
    }
    arrived_.notify_one();
}

void GlobalQueue::work() {
    lowerThisThreadsPriority();
    std::unique_lock lock(mutex_);
    for (;;) {
        ++idle_;
        arrived_.wait(lock, [this] { return stopping_ || !tasks_.empty(); });
        --idle_;
        if (tasks_.empty()) return;  // stopping
        Task task = std::move(tasks_.front());
        tasks_.pop_front();
        lock.unlock();
        runGuarded(task);
        lock.lock();
    }
}

// ----------------------------------------------------------- operation queue

bool OperationQueue::Operation::isCancelled() const {
    std::lock_guard lock(mutex_);
    return cancelled_;
}

bool OperationQueue::Operation::isFinished() const {
    std::lock_guard lock(mutex_);
    return finished_;
}

OperationQueue::OperationQueue(std::size_t maxConcurrentOperationCount)
    : maxConcurrent_(std::max<std::size_t>(1, maxConcurrentOperationCount)) {}

OperationQueue::~OperationQueue() {
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
        for (auto& op : waiting_) {
            std::lock_guard opLock(op->mutex_);
            op->cancelled_ = true;
            op->finished_ = true;
        }
        waiting_.clear();
    }
    changed_.notify_all();
    for (std::thread& t : threads_) t.join();
}

std::shared_ptr<OperationQueue::Operation> OperationQueue::addOperation(std::function<void(const Operation&)> body) {
    auto op = std::make_shared<Operation>();
    op->body_ = std::move(body);
    {
        std::lock_guard lock(mutex_);
        waiting_.push_back(op);
        // Idle workers count only until they wake, so compare them with the
        // operations that wait: two operations added back to back while one
        // worker idles must still run side by side.
        if (idle_ < waiting_.size() && threads_.size() < maxConcurrent_) threads_.emplace_back([this] { work(); });
    }
    changed_.notify_all();
    return op;
}

std::shared_ptr<OperationQueue::Operation> OperationQueue::addOperation(Task body) {
    return addOperation([body = std::move(body)](const Operation&) { body(); });
}

void OperationQueue::cancelAllOperations() {
    std::lock_guard lock(mutex_);
    for (auto& op : waiting_) {
        std::lock_guard opLock(op->mutex_);
        op->cancelled_ = true;
        op->finished_ = true;
    }
    waiting_.clear();
    changed_.notify_all();
}

void OperationQueue::waitUntilAllOperationsAreFinished() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return waiting_.empty() && running_ == 0; });
}

std::size_t OperationQueue::operationCount() const {
    std::lock_guard lock(mutex_);
    return waiting_.size() + running_;
}

OperationQueue& OperationQueue::secondaryQueue() {
    static OperationQueue* queue = new OperationQueue(std::max(2u, std::thread::hardware_concurrency()));
    return *queue;
}

void OperationQueue::work() {
    std::unique_lock lock(mutex_);
    for (;;) {
        ++idle_;
        changed_.wait(lock, [this] { return stopping_ || (!waiting_.empty() && running_ < maxConcurrent_); });
        --idle_;
        if (stopping_ && waiting_.empty()) return;
        if (waiting_.empty() || running_ >= maxConcurrent_) continue;
        std::shared_ptr<Operation> op = std::move(waiting_.front());
        waiting_.pop_front();
        ++running_;
        lock.unlock();
        runGuarded([&op] { op->body_(*op); });
        {
            std::lock_guard opLock(op->mutex_);
            op->finished_ = true;
        }
        op.reset();
        lock.lock();
        --running_;
        changed_.notify_all();
    }
}

// --------------------------------------------------------------- time source

namespace {
std::atomic<TimeSource*> installedTimeSource{nullptr};

RealTimeSource& realTimeSource() {
    static RealTimeSource* source = new RealTimeSource();
    return *source;
}
}  // namespace

TimeSource& timeSource() {
    TimeSource* source = installedTimeSource.load(std::memory_order_acquire);
    return source ? *source : realTimeSource();
}

void setTimeSource(TimeSource* source) { installedTimeSource.store(source, std::memory_order_release); }

RealTimeSource::RealTimeSource() = default;

RealTimeSource::~RealTimeSource() {
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    changed_.notify_all();
    if (thread_.joinable()) thread_.join();
}

TimePoint RealTimeSource::now() const { return std::chrono::steady_clock::now(); }

TimeSource::TimerId RealTimeSource::schedule(TimePoint deadline, Duration leeway, Task fire) {
    std::lock_guard lock(mutex_);
    // The sleeping thread exists only once a timer has been asked for.
    if (!thread_.joinable()) thread_ = std::thread([this] { run(); });
    const TimerId id = nextId_++;
    entries_.push_back({deadline, std::max(leeway, Duration::zero()), id, std::move(fire)});
    changed_.notify_all();
    return id;
}

void RealTimeSource::cancel(TimerId id) {
    std::lock_guard lock(mutex_);
    std::erase_if(entries_, [id](const Entry& e) { return e.id == id; });
    changed_.notify_all();
}

void RealTimeSource::run() {
    std::unique_lock lock(mutex_);
    while (!stopping_) {
        if (entries_.empty()) {
            changed_.wait(lock);
            continue;
        }
        // Sleep until the latest moment that still honours every timer's
        // leeway, then fire everything that is due: timers that allow some
        // lateness share one wake-up.
        TimePoint wake = TimePoint::max();
        for (const Entry& e : entries_) {
            const TimePoint latest =
                e.leeway > TimePoint::max() - e.deadline ? TimePoint::max() : e.deadline + e.leeway;
            wake = std::min(wake, latest);
        }
        if (wake == TimePoint::max()) {
            changed_.wait(lock);
            continue;
        }
        if (changed_.wait_until(lock, wake) != std::cv_status::timeout && std::chrono::steady_clock::now() < wake)
            continue;
        const TimePoint now = std::chrono::steady_clock::now();
        std::vector<Entry> due;
        auto split =
            std::stable_partition(entries_.begin(), entries_.end(), [now](const Entry& e) { return e.deadline > now; });
        std::move(split, entries_.end(), std::back_inserter(due));
        entries_.erase(split, entries_.end());
        std::sort(due.begin(), due.end(), [](const Entry& a, const Entry& b) { return a.deadline < b.deadline; });
        lock.unlock();
        for (const Entry& e : due) runGuarded(e.fire);
        lock.lock();
    }
}

ManualTimeSource::ManualTimeSource(TimePoint start) : now_(start) {}

TimePoint ManualTimeSource::now() const {
    std::lock_guard lock(mutex_);
    return now_;
}

TimeSource::TimerId ManualTimeSource::schedule(TimePoint deadline, Duration, Task fire) {
    std::lock_guard lock(mutex_);
    const TimerId id = nextId_++;
    entries_.push_back({deadline, id, std::move(fire)});
    return id;
}

void ManualTimeSource::cancel(TimerId id) {
    std::lock_guard lock(mutex_);
    std::erase_if(entries_, [id](const Entry& e) { return e.id == id; });
}

void ManualTimeSource::advance(Duration by) {
    std::unique_lock lock(mutex_);
    const TimePoint target = now_ + by;
    for (;;) {
        auto next = std::min_element(entries_.begin(), entries_.end(), [](const Entry& a, const Entry& b) {
            return a.deadline < b.deadline || (a.deadline == b.deadline && a.id < b.id);
        });
        if (next == entries_.end() || next->deadline > target) break;
        now_ = std::max(now_, next->deadline);
        Task fire = std::move(next->fire);
        entries_.erase(next);
        lock.unlock();
        runGuarded(fire);
        lock.lock();
    }
    now_ = std::max(now_, target);
}

std::size_t ManualTimeSource::scheduledCount() const {
    std::lock_guard lock(mutex_);
    return entries_.size();
}

// -------------------------------------------------------------- timer source

struct TimerSource::State : std::enable_shared_from_this<State> {
    Queue* queue;
    Task handler;
    std::mutex mutex;
    std::uint64_t generation = 0;
    TimeSource* source = nullptr;
    TimeSource::TimerId timer = 0;
    bool armed = false;

    void cancelTimerLocked() {
        if (timer != 0 && source) source->cancel(timer);
        timer = 0;
    }

    void fired(std::uint64_t gen) {
        {
            std::lock_guard lock(mutex);
            if (gen != generation) return;
            timer = 0;
        }
        queue->async([weak = weak_from_this(), gen] {
            auto self = weak.lock();
            if (!self) return;
            {
                std::lock_guard lock(self->mutex);
                if (gen != self->generation || !self->armed) return;
                self->armed = false;
            }
            self->handler();
        });
    }
};

TimerSource::TimerSource(Queue& queue, Task handler) : state_(std::make_shared<State>()) {
    state_->queue = &queue;
    state_->handler = std::move(handler);
}

TimerSource::~TimerSource() { disarm(); }

void TimerSource::setTimer(Duration after, Duration leeway) {
    std::lock_guard lock(state_->mutex);
    state_->cancelTimerLocked();
    const std::uint64_t gen = ++state_->generation;
    state_->armed = true;
    state_->source = &timeSource();
    const TimePoint now = state_->source->now();
    const Duration delay = std::max(after, Duration::zero());
    const TimePoint deadline = delay > TimePoint::max() - now ? TimePoint::max() : now + delay;
    state_->timer = state_->source->schedule(deadline, leeway, [weak = state_->weak_from_this(), gen] {
        if (auto self = weak.lock()) self->fired(gen);
    });
}

void TimerSource::disarm() {
    std::lock_guard lock(state_->mutex);
    state_->cancelTimerLocked();
    ++state_->generation;
    state_->armed = false;
}

bool TimerSource::isArmed() const {
    std::lock_guard lock(state_->mutex);
    return state_->armed;
}

}  // namespace jorvane::dispatch
