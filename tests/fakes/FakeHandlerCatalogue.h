#pragma once

// A handler catalogue for tests, thread-safe: records every call (name, parameters, whether on the main
// thread), answers what the test scripted per handler (nothing when unscripted), and can hold calls until
// released, to test the rules of the queues that call it.

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <type_traits>

#include "filemanager/FileManagerCommands.h"
#include "filemanager/HandlerCatalogue.h"
#include "util/Dispatch.h"

namespace jorvane::test {

class FakeHandlerCatalogue final : public HandlerCatalogue {
public:
    struct Call {
        std::string name;
        std::vector<std::string> params;
        bool onMainThread = false;
        friend bool operator==(const Call&, const Call&) = default;
    };
    // Computes an answer from the parameters; may throw to play a broken catalogue.
    using Handler = std::function<std::optional<std::string>(const std::vector<std::string>& params)>;
    using Timeout = std::chrono::milliseconds;

    FakeHandlerCatalogue() = default;
    // Lets held calls go and waits until no call is inside the fake.
    ~FakeHandlerCatalogue() override {
        releaseAll();
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] { return active_ == 0; });
    }

    // ---- scripting: one-shot answers first, in order, then the handler or the standing answer
    void answer(std::string_view name, std::optional<std::string> result) {
        scripted(name, [&](Script& s) { s.standing = std::move(result), s.handler = nullptr; });
    }
    void answerOnce(std::string_view name, std::optional<std::string> result) {
        scripted(name, [&](Script& s) { s.once.push_back(std::move(result)); });
    }
    void answerWith(std::string_view name, Handler handler) {
        scripted(name, [&](Script& s) { s.handler = std::move(handler); });
    }
    // The reason callWithFailure() gives when the handler answers nothing.
    void failWith(std::string_view name, std::string failure) {
        scripted(name, [&](Script& s) { s.failure = std::move(failure); });
    }
    std::string failureOf(std::string_view name) const {
        return read(name, [](const Script* s) { return s ? s->failure : std::string(); });
    }

    // ---- timing: calls are recorded when they start, before they wait
    void hold(std::string_view name) {
        scripted(name, [](Script& s) { s.held = true; });
    }
    void release(std::string_view name) {
        scripted(name, [](Script& s) { s.held = false; });
    }
    void releaseAll() {
        std::lock_guard lock(mutex_);
        for (auto& [name, s] : scripts_) s.held = false;
        changed_.notify_all();
    }

    // ---- what was asked
    std::vector<Call> calls() const {
        return locked([this] { return calls_; });
    }
    std::size_t callCount(std::string_view name) const {
        return locked([&] { return countOf(name); });
    }
    std::optional<Call> lastCall(std::string_view name) const {
        const std::vector<Call> all = calls();
        const auto it = std::find_if(all.rbegin(), all.rend(), [&](const Call& c) { return c.name == name; });
        return it == all.rend() ? std::nullopt : std::optional(*it);
    }
    // How often cancel() was asked for the handler.
    std::size_t cancelCount(std::string_view name) const {
        return read(name, [](const Script* s) { return s ? s->cancels : 0; });
    }
    void clearCalls() {
        locked([this] { calls_.clear(); });
    }
    // Bounded waits for other threads (main-queue work is waited for with MainQueue::runUntil).
    bool waitForCalls(std::string_view name, std::size_t count, Timeout timeout = std::chrono::seconds(10)) const {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, timeout, [&] { return countOf(name) >= count; });
    }
    bool waitForHeld(std::string_view name, std::size_t count, Timeout timeout = std::chrono::seconds(10)) const {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, timeout, [&] {
            const auto it = scripts_.find(name);
            return it != scripts_.end() && it->second.waiting >= count;
        });
    }

    std::optional<std::string> call(std::string_view name, const std::vector<std::string>& params) override {
        const bool onMain = dispatch::isMainThread();
        std::unique_lock lock(mutex_);
        calls_.push_back({std::string(name), params, onMain});
        ++active_;
        changed_.notify_all();
        // std::map keeps its nodes in place: the script stays valid while other handlers are scripted.
        Script* s = &script(name);
        if (s->held) {
            ++s->waiting;
            changed_.notify_all();
            changed_.wait(lock, [s] { return !s->held; });
            --s->waiting;
        }
        std::optional<std::string> result = s->standing;
        Handler handler = s->handler;
        if (!s->once.empty()) {
            result = std::move(s->once.front());
            s->once.erase(s->once.begin());
            handler = nullptr;
        }
        lock.unlock();
        // The handler runs unlocked; `active_` is lowered on every way out, under the lock, after which
        // the destructor may run.
        struct Leave {
            FakeHandlerCatalogue* self;
            ~Leave() {
                std::lock_guard guard(self->mutex_);
                --self->active_;
                self->changed_.notify_all();
            }
        } leave{this};
        return handler ? handler(params) : result;
    }
    HandlerReply callWithFailure(std::string_view name, const std::vector<std::string>& params) override {
        HandlerReply reply{call(name, params), {}};
        if (!reply.answer) reply.failure = failureOf(name);
        return reply;
    }
    // Counts, and lets the handler's held calls go.
    void cancel(std::string_view name) override {
        scripted(name, [](Script& s) { ++s.cancels, s.held = false; });
    }

private:
    struct Script {
        std::vector<std::optional<std::string>> once;  // front first
        std::optional<std::string> standing;
        Handler handler;
        bool held = false;
        std::size_t waiting = 0, cancels = 0;
        std::string failure;
    };
    Script& script(std::string_view name) {
        auto it = scripts_.find(name);
        return it != scripts_.end() ? it->second : scripts_.emplace(std::string(name), Script{}).first->second;
    }
    template <class F>
    void scripted(std::string_view name, F change) {
        std::lock_guard lock(mutex_);
        change(script(name));
        changed_.notify_all();
    }
    template <class F>
    std::invoke_result_t<F> locked(F f) const {
        std::lock_guard lock(mutex_);
        return f();
    }
    template <class F>
    std::invoke_result_t<F, const Script*> read(std::string_view name, F get) const {
        std::lock_guard lock(mutex_);
        const auto it = scripts_.find(name);
        return get(it == scripts_.end() ? nullptr : &it->second);
    }
    std::size_t countOf(std::string_view name) const {
        return static_cast<std::size_t>(
            std::count_if(calls_.begin(), calls_.end(), [name](const Call& c) { return c.name == name; }));
    }

    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    std::map<std::string, Script, std::less<>> scripts_;
    std::vector<Call> calls_;
    std::size_t active_ = 0;
};

// Installs a catalogue in the shared FileManagerCommands for one scope. On leaving it lets held calls go,
// waits for the queues and puts the previous catalogue back (blocks already on the main queue stay there).
class ScopedSharedCatalogue {
public:
    explicit ScopedSharedCatalogue(std::shared_ptr<FakeHandlerCatalogue> catalogue)
        : catalogue_(std::move(catalogue)), previous_(FileManagerCommands::shared().catalogue()) {
        FileManagerCommands::setSharedCatalogue(catalogue_);
    }
    ~ScopedSharedCatalogue() {
        if (catalogue_) catalogue_->releaseAll();
        FileManagerCommands::shared().waitUntilIdle();
        FileManagerCommands::setSharedCatalogue(previous_);
    }
    ScopedSharedCatalogue(const ScopedSharedCatalogue&) = delete;
    ScopedSharedCatalogue& operator=(const ScopedSharedCatalogue&) = delete;

private:
    std::shared_ptr<FakeHandlerCatalogue> catalogue_;
    std::shared_ptr<HandlerCatalogue> previous_;
};

}  // namespace jorvane::test
