#pragma once

// A handler catalogue for tests: records every call (name, parameters, whether
// it came on the main thread), answers what the test scripted per handler,
// and can hold calls until released, to test the rules of the queues that
// call it. Thread-safe.

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "filemanager/HandlerCatalogue.h"

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

    FakeHandlerCatalogue() = default;
    // Lets held calls go and waits until no call is inside the fake.
    ~FakeHandlerCatalogue() override;

    // ---- scripting the answers. Unscripted handlers answer nothing.
    // Every later call of the handler answers `result`.
    void answer(std::string_view name, std::optional<std::string> result);
    // The next call answers `result`; one-shot answers are used up in the
    // order given, before the standing answer.
    void answerOnce(std::string_view name, std::optional<std::string> result);
    // Every later call runs `handler` (after any one-shot answers).
    void answerWith(std::string_view name, Handler handler);
    // The reason callWithFailure() gives when the handler answers nothing.
    void failWith(std::string_view name, std::string failure);
    std::string failureOf(std::string_view name) const;

    // ---- timing. Calls are recorded when they start, before they wait.
    // Later calls of the handler wait until released.
    void hold(std::string_view name);
    // Ends the hold: waiting and later calls go.
    void release(std::string_view name);
    void releaseAll();

    // ---- what was asked
    std::vector<Call> calls() const;
    std::size_t callCount() const;
    std::size_t callCount(std::string_view name) const;
    std::optional<Call> lastCall(std::string_view name) const;
    // How often cancel() was asked for the handler.
    std::size_t cancelCount(std::string_view name) const;
    void clearCalls();

    // Bounded waits for other threads (not for the main queue: tests that
    // need main-queue work use MainQueue::runUntil with the counts above).
    bool waitForCalls(std::string_view name, std::size_t count,
                      std::chrono::milliseconds timeout = std::chrono::seconds(10)) const;
    bool waitForHeld(std::string_view name, std::size_t count,
                     std::chrono::milliseconds timeout = std::chrono::seconds(10)) const;

    std::optional<std::string> call(std::string_view name, const std::vector<std::string>& params) override;
    HandlerReply callWithFailure(std::string_view name, const std::vector<std::string>& params) override;
    // Counts, and lets the handler's held calls go.
    void cancel(std::string_view name) override;

private:
    struct Script {
        std::vector<std::optional<std::string>> once;  // front first
        std::optional<std::string> standing;
        Handler handler;
        bool held = false;
        std::size_t waiting = 0;
        std::string failure;
        std::size_t cancels = 0;
    };
    Script& script(std::string_view name);

    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    std::map<std::string, Script, std::less<>> scripts_;
    std::vector<Call> calls_;
    std::size_t active_ = 0;
};

// Installs a catalogue in the shared FileManagerCommands for one scope. On leaving it
// lets held calls go, waits for the wrapper's queues and puts the previous
// catalogue back. Completion blocks already queued on the main queue stay
// there: drain them before the scope ends if they touch the test's objects.
class ScopedSharedCatalogue {
public:
    explicit ScopedSharedCatalogue(std::shared_ptr<FakeHandlerCatalogue> catalogue);
    ~ScopedSharedCatalogue();
    ScopedSharedCatalogue(const ScopedSharedCatalogue&) = delete;
    ScopedSharedCatalogue& operator=(const ScopedSharedCatalogue&) = delete;

private:
    std::shared_ptr<FakeHandlerCatalogue> catalogue_;
    std::shared_ptr<HandlerCatalogue> previous_;
};

}  // namespace jorvane::test
