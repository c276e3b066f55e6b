#pragma once

// Recording fakes of the application's small ports: the application itself
// ("app.activateIgnoringOtherApps", "app.deactivate", "app.terminate"), the
// updater ("updater.setUpdateCheckInterval <s>",
// "updater.checkForUpdatesInBackground") and the session check
// ("environment.missingRequirements"), all into one EventLog.

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "app/Application.h"
#include "app/EnvironmentCheck.h"
#include "fakes/FakePathWindowViews.h"
#include "updater/Updater.h"

namespace jorvane::test {

class FakeApplication final : public Application {
public:
    explicit FakeApplication(std::shared_ptr<EventLog> log = std::make_shared<EventLog>()) : log_(std::move(log)) {}
    void activateIgnoringOtherApps() override { log_->add("app.activateIgnoringOtherApps"); }
    void deactivate() override { log_->add("app.deactivate"); }
    void terminate() override {
        ++terminations_;
        log_->add("app.terminate");
    }
    int terminations() const { return terminations_; }

private:
    std::shared_ptr<EventLog> log_;
    int terminations_ = 0;
};

class FakeUpdater final : public Updater {
public:
    explicit FakeUpdater(std::shared_ptr<EventLog> log = std::make_shared<EventLog>()) : log_(std::move(log)) {}
    void setUpdateCheckInterval(double seconds) override {
        char text[48];
        std::snprintf(text, sizeof text, "updater.setUpdateCheckInterval %g", seconds);
        log_->add(text);
    }
    void checkForUpdatesInBackground() override { log_->add("updater.checkForUpdatesInBackground"); }

private:
    std::shared_ptr<EventLog> log_;
};

class FakeEnvironment final : public EnvironmentCheck {
public:
    explicit FakeEnvironment(std::shared_ptr<EventLog> log = std::make_shared<EventLog>()) : log_(std::move(log)) {}
    std::vector<std::string> missingRequirements() override {
        log_->add("environment.missingRequirements");
        return missing_;
    }
    void setMissing(std::vector<std::string> missing) { missing_ = std::move(missing); }

private:
    std::shared_ptr<EventLog> log_;
    std::vector<std::string> missing_;
};

}  // namespace jorvane::test
