#pragma once

// The end-to-end desktop: a private X server (Xvfb), D-Bus session bus with
// the accessibility bus, a window manager, xfconf and Thunar, in a temporary
// HOME, plus the helpers the tests need to look at windows and drive them.
// Every process is started without a shell and remembered by pid; stop()
// stops them all, and a reaper process does the same if the test process
// dies first. One desktop per test process (Desktop::shared()); while it
// runs, this process's DISPLAY, DBUS_SESSION_BUS_ADDRESS, HOME and XDG_*
// point at it, so code under test talks to it as to a real session.

#include <sys/types.h>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/linux/Subprocess.h"

namespace jorvane::e2e {

class XTestClient;

using std::chrono::milliseconds;

struct DesktopOptions {
    std::string windowManager = "openbox";  // or "xfwm4"
    // Start `thunar --daemon` (its windows open with openThunarWindow), with
    // the full path in its windows' titles.
    bool startThunar = true;
};

struct WindowGeometry {
    int x = 0, y = 0, width = 0, height = 0;  // the client window, root coordinates
};

// stdout and stderr together in `output`.
using RunResult = subprocess::RunResult;

class Desktop {
public:
    // Throws std::runtime_error naming the step that failed (after stopping what had started).
    explicit Desktop(DesktopOptions options = {});
    ~Desktop();
    Desktop(const Desktop&) = delete;
    Desktop& operator=(const Desktop&) = delete;

    // Stops every process, restores this process's environment and removes the temporary folder.
    void stop();
    // Runs before stop() stops anything (last added first).
    void atStop(std::function<void()> action) { atStop_.push_back(std::move(action)); }

    // The desktop of this test process, started on first use; throws when it cannot start.
    static Desktop& shared();
    static Desktop* sharedIfRunning();
    static void stopShared();

    const std::string& display() const { return display_; }
    const std::filesystem::path& root() const { return root_; }
    std::filesystem::path home() const { return root_ / "home"; }
    std::filesystem::path dataDir() const { return root_ / "data"; }  // for the tests' files
    const std::filesystem::path& outputDir() const { return outputDir_; }
    pid_t thunarPid() const { return thunarPid_; }
    XTestClient& x() { return *x_; }  // the desktop's own X connection (one thread)

    // ---- Processes (no shell; argv goes to the program as it is)

    // Starts a program that the desktop stops at the end, its output in
    // <outputDir>/<logName>.log; `environment`: "NAME=value" sets, "NAME" removes.
    pid_t spawn(const std::vector<std::string>& argv, const std::string& logName,
                const std::optional<std::filesystem::path>& workingDirectory = std::nullopt,
                const std::vector<std::string>& environment = {});
    // Runs a program to its end, at most for `timeout`.
    RunResult run(const std::vector<std::string>& argv, milliseconds timeout = milliseconds(10000));
    void stopProcess(pid_t pid, milliseconds grace = milliseconds(2000));  // SIGTERM, SIGKILL after `grace`
    bool suspend(pid_t pid);                                               // SIGSTOP
    bool resume(pid_t pid);                                                // SIGCONT
    void restartThunar();
    // Ends Thunar (SIGTERM, or SIGKILL as a crash would) and waits until its D-Bus name is free.
    void stopThunar(bool crash = false);
    // Starts Thunar as a daemon, or showing `folder` as a user opens it, and
    // waits until it holds its D-Bus name.
    void startThunar(const std::optional<std::filesystem::path>& folder = std::nullopt);

    // ---- Windows

    std::vector<std::uint32_t> clientWindows();  // _NET_CLIENT_LIST
    std::vector<std::uint32_t> thunarWindows();
    // `thunar FOLDER`, and the new window that shows it; nothing when none came in time.
    std::optional<std::uint32_t> openThunarWindow(const std::filesystem::path& folder,
                                                  milliseconds timeout = milliseconds(10000));
    // The first client window for which the predicate holds, polled until the time-out.
    std::optional<std::uint32_t> waitForWindow(const std::function<bool(std::uint32_t)>& predicate,
                                               milliseconds timeout);
    bool waitForWindowGone(std::uint32_t window, milliseconds timeout);
    bool waitForTitle(std::uint32_t window, const std::string& title, milliseconds timeout);

    std::string title(std::uint32_t window);    // _NET_WM_NAME, else WM_NAME
    std::string wmClass(std::uint32_t window);  // the class part ("Thunar")
    std::optional<pid_t> windowPid(std::uint32_t window);
    std::optional<WindowGeometry> geometry(std::uint32_t window);
    std::uint32_t activeWindow();
    bool activate(std::uint32_t window, milliseconds timeout = milliseconds(3000));
    // Asks the window manager to close the window and waits until it is gone.
    bool closeWindow(std::uint32_t window, milliseconds timeout = milliseconds(5000));
    void closeThunarWindows();

    // ---- Evidence and settings

    bool screenshot(const std::filesystem::path& file);
    bool setXfconf(const std::string& channel, const std::string& property, const std::string& type,
                   const std::string& value);
    std::optional<std::string> xfconf(const std::string& channel, const std::string& property);
    bool nameHasOwner(const std::string& name);

private:
    void start();
    void startReaper();
    void startXvfb();
    std::string startSessionBus();  // its address
    void startAccessibilityBus();
    void startWindowManager();
    void configureThunar();
    void setSessionFolders();
    void setVariable(const std::string& name, const std::optional<std::string>& value);
    void restoreProcessEnvironment();
    std::vector<std::string> childEnvironment() const;
    pid_t spawnWithPipe(const std::vector<std::string>& argv, const std::string& logName, int* readEnd,
                        const std::optional<std::filesystem::path>& workingDirectory = std::nullopt,
                        const std::vector<std::string>& environment = {});
    void track(pid_t pid);

    DesktopOptions options_;
    std::filesystem::path root_;
    std::filesystem::path outputDir_;
    std::string marker_;
    std::string display_;
    pid_t reaperPid_ = -1;
    int reaperPipe_ = -1;
    pid_t thunarPid_ = -1;
    std::vector<pid_t> pids_;  // in start order
    std::vector<std::pair<std::string, std::optional<std::string>>> savedEnvironment_;
    std::unique_ptr<XTestClient> x_;
    bool stopped_ = false;
    std::vector<std::function<void()>> atStop_;
};

// Polls the condition every `interval` until it holds or the time-out passes.
bool waitUntil(const std::function<bool()>& condition, milliseconds timeout, milliseconds interval = milliseconds(10));

// Thunar's title of a window on the folder (with the full path in titles).
inline std::string titleOf(const std::filesystem::path& folder) { return folder.string() + " - Thunar"; }

using Clock = std::chrono::steady_clock;
inline long long millisecondsSince(Clock::time_point start) {
    return std::chrono::duration_cast<milliseconds>(Clock::now() - start).count();
}

}  // namespace jorvane::e2e
