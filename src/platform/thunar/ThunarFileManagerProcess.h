#pragma once

// Thunar as a process (the FileManagerProcess port): found by its windows
// (WM_CLASS "Thunar" and _NET_WM_PID) or, when it runs as a daemon without
// a window, by the owner of its D-Bus name org.xfce.FileManager; asked to
// quit with "thunar --quit" and started again with "thunar", reopening the
// folders its windows showed; brought to the front with a _NET_ACTIVE_WINDOW
// message. Its hidden-files choice is xfconf's thunar /last-show-hidden,
// which new windows take up (running ones ignore it).
//
// Programs are started without a shell, each bounded by a time-out. Any
// thread may call; the X connection is shared under a lock and made again
// when it breaks.

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "app/FileManagerProcess.h"

namespace jorvane {

namespace x11 {
class XcbDisplay;
}

class ThunarFileManagerProcess final : public FileManagerProcess {
public:
    struct Options {
        std::string displayName;  // empty: $DISPLAY
        // "thunar --quit" and xfconf-query.
        std::chrono::milliseconds commandTimeout{5000};
        // How long a quit may take until the process has gone.
        std::chrono::milliseconds quitTimeout{10000};
        // Each D-Bus call.
        std::chrono::milliseconds busTimeout{1000};
    };

    // The identifiers that name Thunar to quitApplication (any case).
    static constexpr std::string_view kIdentifier = "org.xfce.Thunar";
    static constexpr std::string_view kBusName = "org.xfce.FileManager";

    ThunarFileManagerProcess();
    explicit ThunarFileManagerProcess(Options options);
    ~ThunarFileManagerProcess() override;
    ThunarFileManagerProcess(const ThunarFileManagerProcess&) = delete;
    ThunarFileManagerProcess& operator=(const ThunarFileManagerProcess&) = delete;

    std::int32_t runningApplicationPid() override;
    bool processExists(std::int32_t pid) override;
    bool showsAllFiles() override;
    void setShowsAllFiles(bool show) override;
    int quitApplication(std::string_view bundleIdentifier) override;
    bool launch() override;
    bool bringToFront(std::int32_t pid) override;
    // A thread waits on a pidfd of the process: no polling.
    void watchEnd(std::int32_t pid, std::function<void()> ended) override;
    // Thunar opens a middle-clicked folder in a new tab or window itself; a
    // synthetic Ctrl+double-click would then also open it in place.
    bool opensMiddleClickedFolderInNewWindow() const override { return true; }
    std::optional<std::string> folderOfWindowTitle(std::string_view title) const override;

    // Asks the window manager to make the window active.
    bool activateWindow(std::uint32_t window);
    // Gives the keyboard straight to the window, which must be showing (it
    // goes back to a Thunar window when its bar closes); the window manager
    // is asked instead when the window cannot take it.
    bool giveKeyboardTo(std::uint32_t window);

    // The folders the process's browser windows show, front first.
    std::vector<std::string> openFolders(std::int32_t pid);

private:
    struct Client {
        std::uint32_t window = 0;
        std::int32_t pid = 0;
        std::string title;
    };
    // Thunar's browser windows, front first; empty when X cannot be asked.
    std::vector<Client> thunarWindows();
    std::int32_t busOwnerPid();
    x11::XcbDisplay* displayLocked();

    class EndWatch;
    std::unique_ptr<EndWatch> endWatch_;
    Options options_;
    mutable std::mutex mutex_;
    std::unique_ptr<x11::XcbDisplay> display_;
    std::vector<std::string> reopen_;
    // The quit process ran as "thunar --daemon": so does the next one.
    bool relaunchAsDaemon_ = false;
};

}  // namespace jorvane
