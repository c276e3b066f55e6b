#pragma once

// The file manager's process for tests: a pid that quits and comes back
// with a new one, a hidden-files setting, and a record of what was asked.
// Thread-safe (the core restarts the file manager from a background queue).
//
// quitApplication ends the running process (its pid stops existing, unless
// lingerAfterQuit plays a process that does not end); launch starts a new
// one with the next pid, but says nothing to the workspace: the test
// announces the launch itself. Log entries: "fm.runningApplicationPid",
// "fm.showsAllFiles", "fm.setShowsAllFiles 0|1", "fm.quit <identifier>",
// "fm.launch", "fm.bringToFront <pid>". processExists is counted, not logged.

#include <cstdint>
#include <memory>
#include <mutex>
#include <string_view>

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
    std::int32_t runningApplicationPid() override;
    bool processExists(std::int32_t pid) override;
    bool showsAllFiles() override;
    void setShowsAllFiles(bool show) override;
    int quitApplication(std::string_view bundleIdentifier) override;
    bool launch() override;
    bool bringToFront(std::int32_t pid) override;
    bool opensMiddleClickedFolderInNewWindow() const override { return opensMiddleClicks_; }

    // ---- test side
    void setOpensMiddleClickedFolderInNewWindow(bool opens) { opensMiddleClicks_ = opens; }
    // The running process (0: not running).
    void setPid(std::int32_t pid);
    std::int32_t pid() const;
    bool showsAllFilesValue() const;
    // What the next quits answer when a process is running (noErr by default).
    void setQuitResult(int result);
    void lingerAfterQuit(bool linger);
    int processExistsCount() const;
    int launchCount() const;

private:
    std::shared_ptr<EventLog> log_;
    mutable std::mutex mutex_;
    std::int32_t pid_ = 0;
    std::int32_t quitPid_ = 0;
    std::int32_t nextPid_ = 5000;
    bool showsAllFiles_ = false;
    int quitResult_ = noErr;
    bool linger_ = false;
    int processExistsCount_ = 0;
    int launchCount_ = 0;
    bool opensMiddleClicks_ = false;
};

}  // namespace jorvane::test
