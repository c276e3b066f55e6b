#pragma once

// The application core: brings the program up, keeps the registry of
// address bars (one PathWindowController per file-manager window that has
// been activated), follows the file manager's windows and process, and turns
// clicks and keys in the file manager into activations.
//
// Launch (finishLaunching), in this order: register the
// shipped defaults, store the version, start the update check, subscribe to
// the workspace's notifications, check the session (an alert and the end
// when something is missing), greet on the first launch, hand the file
// manager's process to its lifecycle (FileManagerLifecycle.h: attached at
// once when it runs, else waited for; every later start, crash, quit and
// restart of the file manager re-attaches or detaches the event tap and the
// accessibility observer), step back into the background.
//
// Threads. Everything here runs on the main thread except:
//  - eventTapCallback, which the tap calls on its own thread. Key events are
//    decided right there (they depend only on the settings, which are
//    thread-safe) and their actions queued: showing a bar on the main queue,
//    file-manager commands on the global queue. Mouse events cannot be
//    swallowed on X11, so they pass at once and their whole handling (drag
//    state, title-bar hit test, the registry) runs later on the main queue;
//    the registry and the drag state are thus only ever touched there.
//  - the file-manager restart of toggleShowHidden, which runs on the
//    global queue and touches only the FileManagerProcess port and an atomic
//    flag, never a bar.
//
// Windows and bars (the accessibility observer's notices, on the main queue):
//   destroyed                 the window's bar is closed and leaves the registry
//   minimized                 the bar hides
//   moved, resized            a visible bar follows the window's frame
//   restacked                 a visible bar whose title band another window
//                             now covers hides
//   title changed             the folder the title names counts as visited
//   anything else             nothing; in particular a restored window or an
//                             uncovered one does not bring its bar back: bars
//                             open only on the user's request.
// The moved, resized and restacked notices exist because on X11 the bar is a
// window of its own above every other, not a panel attached to the file
// manager's window.

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "accessibility/Accessibility.h"
#include "accessibility/WindowObserver.h"
#include "accessibility/WorkspaceObserver.h"
#include "addressbar/PathWindowController.h"
#include "addressbar/PathWindowDelegate.h"
#include "app/ActivationEvents.h"
#include "app/EventTap.h"
#include "app/FileManagerLifecycle.h"
#include "app/PlatformNames.h"

namespace jorvane {

class Alerts;
class Application;
class EnvironmentCheck;
class FileManagerProcess;
class Updater;
class FileManagerCommands;
namespace settings {
class UserDefaults;
}

class JorvaneApp final : public PathWindowDelegate {
public:
    // Makes the bar of a window, hidden; main builds it over the Qt views,
    // tests over fakes. It may return null or throw: no bar is made then.
    using ControllerFactory =
        std::function<std::unique_ptr<PathWindowController>(ElementRef windowElement, PathWindowDelegate& delegate)>;
    // The welcome sequence of a first launch; false when the user chose to
    // quit.
    using FirstLaunch = std::function<bool()>;

    // What the composition root supplies. The references must outlive the
    // delegate.
    struct Ports {
        settings::UserDefaults& defaults;
        // Application elements and the observer; WindowLookup (window under the
        // mouse, title element, frames) asks the interface installed there.
        AccessibilityAPI& accessibility;
        EventTap& eventTap;
        WorkspaceObserver& workspace;
        Alerts& alerts;
        Application& application;
        EnvironmentCheck& environment;
        FileManagerProcess& fileManager;
        Updater& updater;
        FileManagerCommands& bridge;
        ControllerFactory makeController;
        FirstLaunch firstLaunch;                // empty: nothing on a first launch
        std::function<void()> openPreferences;  // empty: nothing (logged)
        std::function<void()> about;            // empty: nothing (logged)
        PlatformNames names;
        // The shipped DefaultPreferences.json.
        std::filesystem::path defaultPreferences;
        std::string version;
        // A file-manager window shows this folder now (its title changed);
        // empty: nothing.
        std::function<void(const std::string& folder)> folderShown = {};
    };

    // How often toggleShowHidden asks whether the old process is gone
    // (without waiting in between), and how long it then waits before it
    // starts the file manager again.
    static constexpr int kQuitPolls = 50;
    static constexpr double kRelaunchDelay = 1.0;

    explicit JorvaneApp(Ports ports);
    // Removes the tap, the observer and the workspace subscription, drops a
    // pending relaunch and waits for running background work.
    ~JorvaneApp() override;
    JorvaneApp(const JorvaneApp&) = delete;
    JorvaneApp& operator=(const JorvaneApp&) = delete;

    // ---- launch
    void finishLaunching();
    // The session check: true when the program can work here; otherwise an
    // alert says what is missing and the program ends.
    bool checkAccessibilityEnabled();
    // The file manager's pid, 0 when it is not running.
    std::int32_t runningFileManager();
    std::int32_t fileManagerPid() const { return fileManagerPid_.load(); }
    // True once the program has asked to end.
    bool isTerminating() const { return terminating_; }
    // True when the launch ended because the user chose to quit in the
    // welcome, not because something was missing.
    bool userDeclinedLaunch() const { return userDeclinedLaunch_; }
    // The program was started again while it runs: the "already running"
    // alert, whose second button opens the preferences. Always true.
    bool applicationShouldHandleReopen(bool hasVisibleWindows = false);

    // ---- the registry of bars
    const std::vector<std::unique_ptr<PathWindowController>>& pathControllers() const { return pathControllers_; }
    // The bar of the window (compared with sameElement), made when there
    // is none and `create` is set. Null for a null window.
    PathWindowController* barFor(const ElementRef& window, bool create);
    PathWindowController* barFor(const ElementRef& window) { return barFor(window, true); }
    // The bar of the file manager's focused window, made when needed; null
    // when it has no focused window.
    PathWindowController* barForFocusedWindow();

    // ---- watching the file manager
    void installWindowObserver();
    void onWindowNotification(const ElementRef& element, WindowNotification notification);
    // This program lost the front: every bar hides.
    void deactivated();
    void onApplicationLeftFront(const WorkspaceNotification& notification);
    void onApplicationLaunched(const WorkspaceNotification& notification);
    void onApplicationQuit(const WorkspaceNotification& notification);
    // The file manager process the program works with (0 while it waits for one).

    // ---- the event tap
    void installEventTap();
    // The tap's callback; any thread (the tap's own in the program).
    EventTap::Decision eventTapCallback(const TapEvent& event);
    // The mouse part of the callback, on the main thread.
    void handleMouseEvent(const TapEvent& event);
    // Turns a middle click into a click and a Command double click at the
    // mouse (posted through the tap).
    void middleClick();
    bool dragInProgress() const { return dragInProgress_; }
    // The settings may have changed: the tap learns which keys it may have to
    // swallow now.
    void settingsChanged();

    // ---- restarting the file manager
    // Asks the application to quit and waits for its answer (noErr or why
    // not). Blocks: background threads only.
    int quitApplicationWithBundleID(std::string_view bundleIdentifier);
    bool launchAfterToggleHidden() const { return launchAfterToggleHidden_.load(); }
    // Waits until no background work of the delegate is queued or running (a
    // relaunch still waiting for its time does not count).
    void waitUntilIdle();

    // ---- PathWindowDelegate
    // The hot key's action: the bar of the focused window, with its folder.
    void show() override;
    // Flips whether the file manager shows hidden files and restarts it: in
    // the background, so any thread may call it and it returns at once.
    void toggleShowHidden() override;
    void openPreferences() override;
    void about() override;

private:
    struct Background;

    void terminate();
    void hideAll();
    void attachFileManager(std::int32_t pid);
    void detachFileManager(std::int32_t pid);
    void startKeyAction(activation::KeyAction action);
    bool runInBackground(std::function<void()> work);
    void toggleShowHiddenNow();
    void relaunchFileManager();
    void refreshSwallowableKeys(bool always);
    void removeController(PathWindowController* controller);
    void hideCoveredBars();

    Ports ports_;
    std::unique_ptr<FileManagerLifecycle> lifecycle_;
    std::unique_ptr<WindowObserver> windowObserver_;
    std::atomic<bool> launchAfterToggleHidden_{false};
    std::vector<std::unique_ptr<PathWindowController>> pathControllers_;
    std::atomic<std::int32_t> fileManagerPid_{0};
    bool terminating_ = false;
    bool userDeclinedLaunch_ = false;
    bool subscribed_ = false;

    // The tap's state, main thread only.
    bool dragInProgress_ = false;
    Point dragStartLocation_;
    PathWindowController* draggedController_ = nullptr;
    std::optional<activation::SwallowableKeys> swallowableKeys_;

    // The hot key held down, on the tap's thread only (key events are decided there).
    activation::HotKeyChord hotKeyChord_;

    // Main-queue blocks hold it weakly and do nothing once it is gone.
    std::shared_ptr<JorvaneApp*> self_;
    std::shared_ptr<Background> background_;
};

}  // namespace jorvane
