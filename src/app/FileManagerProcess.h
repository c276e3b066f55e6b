#pragma once

// The file manager as a process: found, asked to quit, started again and
// brought to the front, and its setting for showing hidden files. The
// Thunar adapter finds it by its windows, quits it with "thunar --quit",
// keeps the hidden-files choice in xfconf (/last-show-hidden, which a
// running window ignores, hence the restart) and raises its window with a
// _NET_ACTIVE_WINDOW message.
//
// Every method may be called from any thread; quitting and launching block
// their caller until the file manager has answered (bounded by the
// adapter's time-outs), so they belong on a background queue.

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace jorvane {

// Results of quitApplication, as the system numbers them.
inline constexpr int noErr = 0;
inline constexpr int procNotFound = -600;   // no such application is running
inline constexpr int errAETimeout = -1712;  // it did not answer in time

class FileManagerProcess {
public:
    virtual ~FileManagerProcess() = default;

    // The running file manager's process id; 0 when it is not running.
    virtual std::int32_t runningApplicationPid() = 0;
    // Whether the process still exists (it may be ending).
    virtual bool processExists(std::int32_t pid) = 0;

    // Whether the file manager is set to show hidden files; read anew from
    // its settings each time (never set reads false).
    virtual bool showsAllFiles() = 0;
    virtual void setShowsAllFiles(bool show) = 0;

    // Asks the application with that identifier to quit and waits for its
    // answer: noErr, or why it could not be asked or did not answer.
    virtual int quitApplication(std::string_view bundleIdentifier) = 0;
    // Starts the file manager; false when it could not be started.
    virtual bool launch() = 0;
    // Brings the process's front window to the front.
    virtual bool bringToFront(std::int32_t pid) = 0;

    // The folder a window of the file manager shows, as its title names it;
    // nothing when the title does not name a whole path.
    virtual std::optional<std::string> folderOfWindowTitle(std::string_view title) const {
        (void)title;
        return std::nullopt;
    }

    // Whether a middle click on a folder already opens it in a new window
    // (or tab) in the file manager itself. The tap cannot keep the click
    // from the file manager, so the program then adds no clicks of its own.
    virtual bool opensMiddleClickedFolderInNewWindow() const { return false; }

    // Calls `ended` once, on some thread, when the process ends (a daemon
    // without windows ends without a window going); replaces the previous
    // watch. Without support, nothing is called.
    virtual void watchEnd(std::int32_t pid, std::function<void()> ended) {
        (void)pid;
        (void)ended;
    }
};

}  // namespace jorvane
