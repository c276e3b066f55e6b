#pragma once

// What the decision-table fixtures share: rows named and printed by their sentence, the event log filtered
// by prefix, and a handler catalogue that logs its calls.

#include <ostream>
#include <type_traits>

#include "fakes/FakeHandlerCatalogue.h"
#include "fakes/FakePathWindowViews.h"
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

}  // namespace jorvane::test
