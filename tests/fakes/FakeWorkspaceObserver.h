#pragma once

// The workspace's application notifications for tests: the test says which
// application started or lost the front, and the subscriber hears it at once
// on the calling thread (the real observer delivers on the main queue). Log
// entries: "workspace.setCallback", "workspace.clearCallback".

#include <cstdint>
#include <memory>
#include <string>

#include "accessibility/WorkspaceObserver.h"
#include "fakes/FakePathWindowViews.h"

namespace jorvane::test {

class FakeWorkspaceObserver final : public WorkspaceObserver {
public:
    explicit FakeWorkspaceObserver(std::shared_ptr<EventLog> log = std::make_shared<EventLog>())
        : log_(std::move(log)) {}

    bool setCallback(Callback callback) override {
        log_->add(callback ? "workspace.setCallback" : "workspace.clearCallback");
        callback_ = std::move(callback);
        return true;
    }

    // ---- test side
    void post(const WorkspaceNotification& notification) {
        if (callback_) callback_(notification);
    }
    void launched(std::int32_t pid, bool isFileManager = true, std::string name = "Thunar") {
        post({WorkspaceEvent::Launched, pid, std::move(name), isFileManager});
    }
    void windowsGone(std::int32_t pid, bool isFileManager = true, std::string name = "Thunar") {
        post({WorkspaceEvent::Quit, pid, std::move(name), isFileManager});
    }
    void deactivated(std::int32_t pid, bool isFileManager = true, std::string name = "Thunar") {
        post({WorkspaceEvent::LeftFront, pid, std::move(name), isFileManager});
    }

private:
    std::shared_ptr<EventLog> log_;
    Callback callback_;
};

}  // namespace jorvane::test
