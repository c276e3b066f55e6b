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

    void show() override { record("delegate.show", showCount_); }
    void toggleShowHidden() override { record("delegate.finderToggleShowHidden", toggleShowHiddenCount_); }
    void openPreferences() override { record("delegate.openPreferences", openPreferencesCount_); }
    void about() override { record("delegate.about", aboutCount_); }

    int showCount() const { return showCount_; }
    int toggleShowHiddenCount() const { return toggleShowHiddenCount_; }
    int openPreferencesCount() const { return openPreferencesCount_; }
    int aboutCount() const { return aboutCount_; }

private:
    void record(const char* entry, int& count) {
        ++count;
        log_->add(entry);
    }

    std::shared_ptr<EventLog> log_;
    int showCount_ = 0;
    int toggleShowHiddenCount_ = 0;
    int openPreferencesCount_ = 0;
    int aboutCount_ = 0;
};

class FakeWorkspace final : public Workspace {
public:
    explicit FakeWorkspace(std::shared_ptr<EventLog> log = std::make_shared<EventLog>()) : log_(std::move(log)) {}

    bool openFile(const std::string& path) override {
        opened_.push_back(path);
        log_->add("workspace.openFile " + path);
        return answer_;
    }

    const std::vector<std::string>& openedFiles() const { return opened_; }
    // What openFile answers (true by default).
    void setAnswer(bool answer) { answer_ = answer; }

private:
    std::shared_ptr<EventLog> log_;
    std::vector<std::string> opened_;
    bool answer_ = true;
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
