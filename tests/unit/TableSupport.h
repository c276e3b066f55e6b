#pragma once

// What the decision-table fixtures share: rows named and printed by their sentence, the event log filtered
// by prefix, a handler catalogue that logs its calls, and one fake Thunar window.

#include <ostream>
#include <type_traits>

#include "fakes/FakeAccessibility.h"
#include "fakes/FakeHandlerCatalogue.h"
#include "fakes/FakePathWindowViews.h"
#include "fakes/VirtualTime.h"
#include "filemanager/HandlerCatalogue.h"
#include "util/Dispatch.h"

namespace jorvane::test {

// Row names: the row's sentence with spaces as underscores.
struct SentenceName {
    template <class Info>
    std::string operator()(const Info& info) const {
        std::string name;
        for (char c : std::string(info.param.name)) {
            const bool keep = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
            name.push_back(keep ? c : '_');
        }
        return name;
    }
};

// Rows print as their sentence.
template <class Row>
requires std::is_convertible_v<decltype(Row::name), const char*>
void PrintTo(const Row& row, std::ostream* out) { *out << row.name; }

// The log's entries that begin with one of the prefixes, in order.
inline std::vector<std::string> entriesStartingWithAny(const EventLog& log, const std::vector<std::string>& prefixes) {
    std::vector<std::string> out;
    for (const std::string& entry : log.entries())
        for (const std::string& prefix : prefixes)
            if (entry.starts_with(prefix)) {
                out.push_back(entry);
                break;
            }
    return out;
}

// Forwards to a FakeHandlerCatalogue and logs the calls as "call <name> [<param>] ...": all, or those made
// on the main thread (the moment of a call from the bridge's queues is not a test's to fix).
class LoggingCatalogue final : public HandlerCatalogue {
public:
    enum class Calls { all, onMainThread };

    LoggingCatalogue(std::shared_ptr<FakeHandlerCatalogue> inner, std::shared_ptr<EventLog> log, Calls logged)
        : inner_(std::move(inner)), log_(std::move(log)), logged_(logged) {}

    std::optional<std::string> call(std::string_view name, const std::vector<std::string>& params) override {
        if (logged_ == Calls::all || dispatch::isMainThread()) {
            std::string entry = "call " + std::string(name);
            for (const std::string& param : params) entry += " [" + param + "]";
            log_->add(std::move(entry));
        }
        return inner_->call(name, params);
    }

    HandlerReply callWithFailure(std::string_view name, const std::vector<std::string>& params) override {
        HandlerReply reply{call(name, params), {}};
        if (!reply.answer) reply.failure = inner_->failureOf(name);
        return reply;
    }

    void cancel(std::string_view name) override { inner_->cancel(name); }

private:
    std::shared_ptr<FakeHandlerCatalogue> inner_;
    std::shared_ptr<EventLog> log_;
    Calls logged_;
};

// One Thunar process (pid 4242) with one window, 600 x 400 at (100, 50), whose title text is 120 points wide
// at (340, 53); the main queue is bound to the test's thread, time is virtual, fakes log into one EventLog.
class OneThunarWindow {
public:
    static constexpr std::int32_t kPid = 4242;
    static constexpr Rect kWindowFrame{{100, 50}, {600, 400}};
    static constexpr Rect kTitleFrame{{340, 53}, {120, 16}};

    explicit OneThunarWindow(const std::string& title) {
        dispatch::mainQueue().bindToCurrentThread();
        dispatch::mainQueue().drain();
        application_ = ax_->addApplication(kPid);
        window_ = ax_->addWindow(application_, title, kWindowFrame);
        title_ = ax_->addStaticText(window_, title, kTitleFrame);
    }

    // The log, keeping only entries that begin with one of the prefixes.
    std::vector<std::string> logged(const std::vector<std::string>& prefixes) const {
        return entriesStartingWithAny(*log_, prefixes);
    }

    VirtualTime time_;
    std::shared_ptr<EventLog> log_ = std::make_shared<EventLog>();
    std::shared_ptr<FakeAccessibility> ax_ = std::make_shared<FakeAccessibility>();
    ElementNode application_, window_, title_;
    std::shared_ptr<FakeHandlerCatalogue> catalogue_ = std::make_shared<FakeHandlerCatalogue>();
};

}  // namespace jorvane::test
