#pragma once

// Which file manager process the program works with, kept true from the
// program's start to its end: the file manager may start after the program
// (at login), run as a daemon without windows, be started by D-Bus
// activation, crash, quit and come back, possibly under a process id that an
// earlier process had.
//
//   waiting       --a file manager process is found or shows a first window--> running(pid): attach(pid)
//   running(pid)  --another process shows a first window--> running(new): detach(pid), attach(new)
//   running(pid)  --the same process shows a first window again--> running(pid): attach(pid) anew
//                 (its windows were all gone; a process id may have been reused meanwhile)
//   running(pid)  --its last window goes and the process has ended, or it ends--> waiting: detach(pid)
//   running(pid)  --its last window goes and the process lives on--> looked at again after
//                 kEndCheckDelay (quitting takes a moment; a daemon lives on and stays attached)
//
// "Waiting for <file manager>" is logged once each time the program starts
// waiting. Nothing polls while waiting: the window watcher's notices drive
// every change. Main thread only; the delayed look runs on the main queue.

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "util/Dispatch.h"

namespace jorvane {

class FileManagerLifecycle {
public:
    static constexpr dispatch::Duration kEndCheckDelay = std::chrono::seconds(3);

    struct Hooks {
        // Connects everything that follows the process: the event tap, the
        // window observer, the handler catalogue.
        std::function<void(std::int32_t pid)> attach;
        // Drops everything of a process that is gone.
        std::function<void(std::int32_t pid)> detach;
        std::function<bool(std::int32_t pid)> processExists;
        std::string fileManagerName = "Thunar";
    };

    explicit FileManagerLifecycle(Hooks hooks);
    ~FileManagerLifecycle();
    FileManagerLifecycle(const FileManagerLifecycle&) = delete;
    FileManagerLifecycle& operator=(const FileManagerLifecycle&) = delete;

    // At the program's start: the process running now, or 0 for none.
    void started(std::int32_t runningPid);
    // A process of the file manager showed its first window (or, started as
    // a daemon, was found otherwise).
    void appeared(std::int32_t pid);
    // The last window of a process of the file manager went away.
    void windowsGone(std::int32_t pid);
    // The process has ended (a daemon ends without a window going).
    void ended(std::int32_t pid);

    // The process attached now; 0 while waiting.
    std::int32_t pid() const { return pid_; }

private:
    void attach(std::int32_t pid);
    void detach();
    void wait();
    void checkEnded(std::int32_t pid);
    void cancelCheck();

    Hooks hooks_;
    std::int32_t pid_ = 0;
    std::optional<dispatch::TimeSource::TimerId> check_;
    // Delayed looks hold it weakly and do nothing once the owner is gone.
    std::shared_ptr<FileManagerLifecycle*> self_;
};

}  // namespace jorvane
