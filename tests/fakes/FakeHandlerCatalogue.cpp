#include "fakes/FakeHandlerCatalogue.h"

#include <algorithm>
#include <thread>

#include "filemanager/FileManagerCommands.h"
#include "util/Dispatch.h"

namespace jorvane::test {

FakeHandlerCatalogue::~FakeHandlerCatalogue() {
    std::unique_lock lock(mutex_);
    for (auto& [name, s] : scripts_) s.held = false;
    changed_.notify_all();
    changed_.wait(lock, [this] { return active_ == 0; });
}

FakeHandlerCatalogue::Script& FakeHandlerCatalogue::script(std::string_view name) {
    auto it = scripts_.find(name);
    if (it == scripts_.end()) it = scripts_.emplace(std::string(name), Script{}).first;
    return it->second;
}

void FakeHandlerCatalogue::answer(std::string_view name, std::optional<std::string> result) {
    std::lock_guard lock(mutex_);
    Script& s = script(name);
    s.standing = std::move(result);
    s.handler = nullptr;
}

void FakeHandlerCatalogue::answerOnce(std::string_view name, std::optional<std::string> result) {
    std::lock_guard lock(mutex_);
    script(name).once.push_back(std::move(result));
}

void FakeHandlerCatalogue::answerWith(std::string_view name, Handler handler) {
    std::lock_guard lock(mutex_);
    script(name).handler = std::move(handler);
}

void FakeHandlerCatalogue::failWith(std::string_view name, std::string failure) {
    std::lock_guard lock(mutex_);
    script(name).failure = std::move(failure);
}

std::size_t FakeHandlerCatalogue::cancelCount(std::string_view name) const {
    std::lock_guard lock(mutex_);
    const auto found = scripts_.find(name);
    return found == scripts_.end() ? 0 : found->second.cancels;
}

std::string FakeHandlerCatalogue::failureOf(std::string_view name) const {
    std::lock_guard lock(mutex_);
    const auto found = scripts_.find(name);
    return found == scripts_.end() ? std::string() : found->second.failure;
}

HandlerReply FakeHandlerCatalogue::callWithFailure(std::string_view name, const std::vector<std::string>& params) {
    HandlerReply reply{call(name, params), {}};
    if (!reply.answer) reply.failure = failureOf(name);
    return reply;
}

void FakeHandlerCatalogue::cancel(std::string_view name) {
    {
        std::lock_guard lock(mutex_);
        ++script(name).cancels;
    }
    release(name);
}

void FakeHandlerCatalogue::hold(std::string_view name) {
    std::lock_guard lock(mutex_);
    script(name).held = true;
}

void FakeHandlerCatalogue::release(std::string_view name) {
    {
        std::lock_guard lock(mutex_);
        Script& s = script(name);
        s.held = false;
    }
    changed_.notify_all();
}

void FakeHandlerCatalogue::releaseAll() {
    {
        std::lock_guard lock(mutex_);
        for (auto& [name, s] : scripts_) {
            s.held = false;
        }
    }
    changed_.notify_all();
}

std::vector<FakeHandlerCatalogue::Call> FakeHandlerCatalogue::calls() const {
    std::lock_guard lock(mutex_);
    return calls_;
}

std::size_t FakeHandlerCatalogue::callCount() const {
    std::lock_guard lock(mutex_);
    return calls_.size();
}

std::size_t FakeHandlerCatalogue::callCount(std::string_view name) const {
    std::lock_guard lock(mutex_);
    return static_cast<std::size_t>(
        std::count_if(calls_.begin(), calls_.end(), [name](const Call& c) { return c.name == name; }));
}

std::optional<FakeHandlerCatalogue::Call> FakeHandlerCatalogue::lastCall(std::string_view name) const {
    std::lock_guard lock(mutex_);
    for (auto it = calls_.rbegin(); it != calls_.rend(); ++it)
        if (it->name == name) return *it;
    return std::nullopt;
}

void FakeHandlerCatalogue::clearCalls() {
    std::lock_guard lock(mutex_);
    calls_.clear();
}

bool FakeHandlerCatalogue::waitForCalls(std::string_view name, std::size_t count,
                                        std::chrono::milliseconds timeout) const {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, timeout, [&] {
        return static_cast<std::size_t>(std::count_if(calls_.begin(), calls_.end(),
                                                      [name](const Call& c) { return c.name == name; })) >= count;
    });
}

bool FakeHandlerCatalogue::waitForHeld(std::string_view name, std::size_t count,
                                       std::chrono::milliseconds timeout) const {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, timeout, [&] {
        auto it = scripts_.find(name);
        return it != scripts_.end() && it->second.waiting >= count;
    });
}

std::optional<std::string> FakeHandlerCatalogue::call(std::string_view name, const std::vector<std::string>& params) {
    const bool onMain = dispatch::isMainThread();
    std::unique_lock lock(mutex_);
    calls_.push_back({std::string(name), params, onMain});
    ++active_;
    changed_.notify_all();

    // std::map keeps its nodes in place, so the script stays valid while the
    // test scripts other handlers; it is only read under the lock.
    Script* s = &script(name);
    if (s->held) {
        ++s->waiting;
        changed_.notify_all();
        changed_.wait(lock, [s] { return !s->held; });
        --s->waiting;
    }

    std::optional<std::string> result;
    Handler handler;
    if (!s->once.empty()) {
        result = std::move(s->once.front());
        s->once.erase(s->once.begin());
    } else if (s->handler) {
        handler = s->handler;
    } else {
        result = s->standing;
    }
    lock.unlock();

    // The handler runs unlocked (it may take its time or ask the fake
    // things); `active_` is lowered on every way out, exceptions included.
    struct Leave {
        FakeHandlerCatalogue* self;
        ~Leave() {
            // Notified under the lock: once it is released the destructor may
            // run, and this call must not touch the fake any more.
            std::lock_guard guard(self->mutex_);
            --self->active_;
            self->changed_.notify_all();
        }
    } leave{this};
    if (handler) result = handler(params);
    return result;
}

ScopedSharedCatalogue::ScopedSharedCatalogue(std::shared_ptr<FakeHandlerCatalogue> catalogue)
    : catalogue_(std::move(catalogue)), previous_(FileManagerCommands::shared().catalogue()) {
    FileManagerCommands::setSharedCatalogue(catalogue_);
}

ScopedSharedCatalogue::~ScopedSharedCatalogue() {
    if (catalogue_) catalogue_->releaseAll();
    FileManagerCommands::shared().waitUntilIdle();
    FileManagerCommands::setSharedCatalogue(previous_);
}

}  // namespace jorvane::test
