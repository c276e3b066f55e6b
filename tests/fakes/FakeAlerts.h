#pragma once

// Alerts for tests: each alert is recorded with its texts and answered with
// the next scripted button code (the first button, 1000, when nothing is
// scripted) and, for an alert with a check box, the scripted box state (the
// box's initial state when nothing is scripted). Log entry: "alert <message
// text>".

#include <deque>
#include <memory>
#include <optional>
#include <vector>

#include "app/Alerts.h"
#include "fakes/FakePathWindowViews.h"

namespace jorvane::test {

class FakeAlerts final : public Alerts {
public:
    explicit FakeAlerts(std::shared_ptr<EventLog> log = std::make_shared<EventLog>()) : log_(std::move(log)) {}

    int runModal(const AlertSpec& alert) override { return runModalWithResult(alert).button; }

    AlertResult runModalWithResult(const AlertSpec& alert) override {
        shown_.push_back(alert);
        log_->add("alert " + alert.messageText);
        AlertResult result{kAlertFirstButton, alert.checkBox && alert.checkBoxOn};
        if (answers_.empty()) return result;
        const auto [button, checkBox] = answers_.front();
        answers_.pop_front();
        result.button = button;
        if (alert.checkBox && checkBox) result.checkBoxOn = *checkBox;
        return result;
    }

    // ---- test side
    // The next alert's answer; `checkBox` sets its box (when it has one).
    void answerNext(int buttonCode, std::optional<bool> checkBox = std::nullopt) {
        answers_.emplace_back(buttonCode, checkBox);
    }
    const std::vector<AlertSpec>& shown() const { return shown_; }

private:
    std::shared_ptr<EventLog> log_;
    std::deque<std::pair<int, std::optional<bool>>> answers_;
    std::vector<AlertSpec> shown_;
};

}  // namespace jorvane::test
