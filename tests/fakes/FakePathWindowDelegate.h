#pragma once

// Recording fakes of what an address bar asks of the application: the
// application-actions port, the workspace and the screens. They write to an
// EventLog (FakePathWindowViews.h), so a test sees their calls in order with
// the views' ("delegate.show", "workspace.openFile <path>").

#include <memory>
#include <string>
#include <vector>

#include "addressbar/PathWindowDelegate.h"
#include "addressbar/Screens.h"
#include "addressbar/Workspace.h"
#include "fakes/FakePathWindowViews.h"

namespace jorvane::test {

class FakePathWindowDelegate final : public PathWindowDelegate {
public:
    explicit FakePathWindowDelegate(std::shared_ptr<EventLog> log = std::make_shared<EventLog>())
        : log_(std::move(log)) {}

    void show() override { log_->add("delegate.show"); }
    void toggleShowHidden() override { log_->add("delegate.toggleShowHidden"); }
    void openPreferences() override {
        ++openPreferencesCount_;
        log_->add("delegate.openPreferences");
    }
    void about() override { log_->add("delegate.about"); }
    int openPreferencesCount() const { return openPreferencesCount_; }

private:
    std::shared_ptr<EventLog> log_;
    int openPreferencesCount_ = 0;
};

class FakeWorkspace final : public Workspace {
public:
    explicit FakeWorkspace(std::shared_ptr<EventLog> log = std::make_shared<EventLog>()) : log_(std::move(log)) {}

    bool openFile(const std::string& path) override {
        log_->add("workspace.openFile " + path);
        return true;
    }

private:
    std::shared_ptr<EventLog> log_;
};

class FakeScreens final : public Screens {
public:
    explicit FakeScreens(std::vector<Rect> frames = {}) : frames_(std::move(frames)) {}

    std::vector<Rect> screenFrames() const override { return frames_; }
    void setScreenFrames(std::vector<Rect> frames) { frames_ = std::move(frames); }

private:
    std::vector<Rect> frames_;
};

}  // namespace jorvane::test
