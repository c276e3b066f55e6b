#pragma once

// Thunar's process for tests, thread-safe: a pid that quits (its pid stops existing unless lingerAfterQuit)
// and launches with the next pid (the test announces the launch to the workspace itself), a hidden-files
// setting, and a log: "fm.runningApplicationPid", "fm.showsAllFiles", "fm.setShowsAllFiles 0|1",
// "fm.quit <identifier>", "fm.launch", "fm.bringToFront <pid>". processExists is counted, not logged.

#include <mutex>
#include <type_traits>

#include "app/FileManagerProcess.h"
#include "fakes/FakePathWindowViews.h"

namespace jorvane::test {

class FakeFileManagerProcess final : public FileManagerProcess {
public:
    explicit FakeFileManagerProcess(std::shared_ptr<EventLog> log = std::make_shared<EventLog>())
        : log_(std::move(log)) {}

    // A title that is a whole path names that folder; no other does.
    std::optional<std::string> folderOfWindowTitle(std::string_view title) const override {
        if (title.empty() || title.front() != '/') return std::nullopt;
        return std::string(title);
    }
    std::int32_t runningApplicationPid() override {
        log_->add("fm.runningApplicationPid");
        return pid();
    }
    bool processExists(std::int32_t pid) override {
        return locked([&] { return ++processExistsCount_, pid > 0 && (pid == pid_ || (linger_ && pid == quitPid_)); });
    }
    bool showsAllFiles() override {
        log_->add("fm.showsAllFiles");
        return showsAllFilesValue();
    }
    void setShowsAllFiles(bool show) override {
        log_->add(std::string("fm.setShowsAllFiles ") + (show ? "1" : "0"));
        locked([&] { showsAllFiles_ = show; });
    }
    int quitApplication(std::string_view bundleIdentifier) override {
        log_->add("fm.quit " + std::string(bundleIdentifier));
        std::lock_guard lock(mutex_);
        if (pid_ == 0) return procNotFound;
        quitPid_ = std::exchange(pid_, 0);
        return quitResult_;
    }
    bool launch() override {
        log_->add("fm.launch");
        std::lock_guard lock(mutex_);
        ++launchCount_;
        if (pid_ == 0) pid_ = nextPid_++;
        return true;
    }
    bool bringToFront(std::int32_t pid) override {
        log_->add("fm.bringToFront " + std::to_string(pid));
        return true;
    }
    bool opensMiddleClickedFolderInNewWindow() const override { return opensMiddleClicks_; }

    // ---- test side
    void setOpensMiddleClickedFolderInNewWindow(bool opens) { opensMiddleClicks_ = opens; }
    // The running process (0: not running).
    void setPid(std::int32_t pid) {
        locked([&] { pid_ = pid; });
    }
    std::int32_t pid() const {
        return locked([&] { return pid_; });
    }
    bool showsAllFilesValue() const {
        return locked([&] { return showsAllFiles_; });
    }
    // What the next quits answer when a process is running (noErr by default).
    void setQuitResult(int result) {
        locked([&] { quitResult_ = result; });
    }
    void lingerAfterQuit(bool linger) {
        locked([&] { linger_ = linger; });
    }
    int processExistsCount() const {
        return locked([&] { return processExistsCount_; });
    }
    int launchCount() const {
        return locked([&] { return launchCount_; });
    }

private:
    template <class F>
    std::invoke_result_t<F> locked(F f) const {
        std::lock_guard lock(mutex_);
        return f();
    }

    std::shared_ptr<EventLog> log_;
    mutable std::mutex mutex_;
    std::int32_t pid_ = 0, quitPid_ = 0, nextPid_ = 5000;
    bool showsAllFiles_ = false, linger_ = false, opensMiddleClicks_ = false;
    int quitResult_ = noErr, processExistsCount_ = 0, launchCount_ = 0;
};

}  // namespace jorvane::test
