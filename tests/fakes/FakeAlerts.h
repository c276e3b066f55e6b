#pragma once

// Alerts for tests: each alert is recorded with its texts and answered with
// the next scripted button code (the first button, 1000, when nothing is
// scripted). Log entry: "alert <message text>".

#include <deque>
#include <memory>
#include <vector>

#include "app/Alerts.h"
#include "fakes/FakePathWindowViews.h"

namespace jorvane::test {

class FakeAlerts final : public Alerts {
public:
    explicit FakeAlerts(std::shared_ptr<EventLog> log = std::make_shared<EventLog>()) : log_(std::move(log)) {}

    int runModal(const AlertSpec& alert) override {
        shown_.push_back(alert);
        log_->add("alert " + alert.messageText);
        if (answers_.empty()) return NSAlertFirstButtonReturn;
        const int answer = answers_.front();
        answers_.pop_front();
        return answer;
    }

    // ---- test side
    void answerNext(int buttonCode) { answers_.push_back(buttonCode); }
    const std::vector<AlertSpec>& shown() const { return shown_; }

private:
    std::shared_ptr<EventLog> log_;
    std::deque<int> answers_;
    std::vector<AlertSpec> shown_;
};

}  // namespace jorvane::test
