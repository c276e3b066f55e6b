#include "app/JorvaneApp.h"

#include <algorithm>
#include <array>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <thread>
#include <utility>

#include "accessibility/WindowLookup.h"
#include "app/Alerts.h"
#include "app/Application.h"
#include "app/EnvironmentCheck.h"
#include "app/FileManagerProcess.h"
#include "app/WindowCoverage.h"
#include "filemanager/FileManagerCommands.h"
#include "firstlaunch/WelcomeAlerts.h"
#include "settings/UserDefaults.h"
#include "updater/Updater.h"
#include "util/Diagnostics.h"
#include "util/Dispatch.h"

namespace jorvane {

namespace {

constexpr const char* kLog = "App";

// What the observer is told about the file manager as a whole, and about
// each window that gets a bar.
constexpr std::array kApplicationNotifications = {WindowNotification::FocusedWindowChanged,
                                                  WindowNotification::ApplicationDeactivated,
                                                  WindowNotification::Minimized, WindowNotification::TitleChanged};
constexpr std::array kWindowNotifications = {WindowNotification::ElementDestroyed, WindowNotification::Minimized,
                                             WindowNotification::Moved, WindowNotification::Resized,
                                             WindowNotification::Restacked};

// Height of the band a bar covers when its panel has no height yet.
constexpr double kDefaultBarHeight = 22;

constexpr std::string_view kQuit = "Quit";
constexpr std::string_view kSessionMessage = "Jorvane cannot work in this session.";
constexpr std::string_view kSessionInformative =
    "To see clicks and keys in Finder windows, Jorvane needs what this session lacks: ";
constexpr std::string_view kSessionInformativeEnd = ". Start Jorvane again in a session that offers it.";

std::string join(const std::vector<std::string>& items, std::string_view separator) {
    std::string joined;
    for (std::size_t i = 0; i < items.size(); ++i) {
        if (i > 0) joined.append(separator);
        joined.append(items[i]);
    }
    return joined;
}

}  // namespace

struct JorvaneApp::Background {
    std::mutex mutex;
    std::condition_variable idle;
    std::size_t running = 0;  // queued or running on the global queue
    bool stopping = false;
    std::optional<dispatch::TimeSource::TimerId> relaunchTimer;

    // Counts the work in before it is queued, so that the delegate's end can
    // wait for it; false once the delegate is going.
    bool enter() {
        std::lock_guard lock(mutex);
        if (stopping) return false;
        ++running;
        return true;
    }
    void leave() {
        {
            std::lock_guard lock(mutex);
            --running;
        }
        idle.notify_all();
    }
};

JorvaneApp::JorvaneApp(Ports ports)
    : ports_(std::move(ports)),
      self_(std::make_shared<JorvaneApp*>(this)),
      background_(std::make_shared<Background>()) {}

JorvaneApp::~JorvaneApp() {
    // No tap callback runs once uninstall has returned; main-queue blocks
    // find self_ gone.
    if (ports_.eventTap.isInstalled()) ports_.eventTap.uninstall();
    if (subscribed_) ports_.workspace.setCallback({});
    windowObserver_.reset();
    {
        std::unique_lock lock(background_->mutex);
        background_->stopping = true;
        if (background_->relaunchTimer) dispatch::timeSource().cancel(*background_->relaunchTimer);
        background_->relaunchTimer.reset();
        background_->idle.wait(lock, [this] { return background_->running == 0; });
    }
    self_.reset();
}

// ---- launch

void JorvaneApp::finishLaunching() {
    const settings::RegistrationResult registration =
        settings::registerDefaultPreferences(ports_.defaults, ports_.defaultPreferences);
    if (!registration.registered)
        log::inDomain(log::Error, kLog, "no defaults registered: %s", registration.error.c_str());
    ports_.defaults.setObject(ports_.version, settings::keys::version);

    // Before the session check, so that a check runs even when the program
    // then ends.
    ports_.updater.setUpdateCheckInterval(
        static_cast<double>(ports_.defaults.integerForKey(settings::keys::updateCheckInterval)));
    ports_.updater.checkForUpdatesInBackground();

    ports_.workspace.setCallback([weak = std::weak_ptr(self_)](const WorkspaceNotification& notification) {
        const auto self = weak.lock();
        if (!self) return;
        switch (notification.event) {
            case WorkspaceEvent::Launched: (*self)->onApplicationLaunched(notification); break;
            case WorkspaceEvent::Quit: (*self)->onApplicationQuit(notification); break;
            case WorkspaceEvent::LeftFront: (*self)->onApplicationLeftFront(notification); break;
        }
    });
    subscribed_ = true;

    if (!checkAccessibilityEnabled()) return;

    // The welcome comes before the file manager is looked for, so a first
    // launch without it greets and then explains.
    if (!ports_.defaults.boolForKey(settings::keys::notFirstLaunch) && ports_.firstLaunch && !ports_.firstLaunch()) {
        userDeclinedLaunch_ = true;
        terminate();
        return;
    }

    // From login on, the program usually starts before the file manager:
    // it then waits for one, and follows each one that comes and goes.
    lifecycle_ = std::make_unique<FileManagerLifecycle>(FileManagerLifecycle::Hooks{
        .attach = [this](std::int32_t pid) { attachFileManager(pid); },
        .detach = [this](std::int32_t pid) { detachFileManager(pid); },
        .processExists = [this](std::int32_t pid) { return ports_.fileManager.processExists(pid); },
        .fileManagerName = ports_.names.fileManager,
    });
    lifecycle_->started(runningFileManager());

    ports_.application.activateIgnoringOtherApps();
    ports_.application.deactivate();
}

bool JorvaneApp::checkAccessibilityEnabled() {
    const std::vector<std::string> missing = ports_.environment.missingRequirements();
    if (missing.empty()) return true;
    AlertSpec alert;
    alert.messageText = forPlatform(kSessionMessage, ports_.names);
    alert.informativeText =
        forPlatform(kSessionInformative, ports_.names) + join(missing, ", ") + std::string(kSessionInformativeEnd);
    alert.buttons = {std::string(kQuit)};
    alert.style = AlertSpec::Style::critical;
    ports_.alerts.runModal(alert);
    terminate();
    return false;
}

bool JorvaneApp::applicationShouldHandleReopen(bool /*hasVisibleWindows*/) {
    return WelcomeAlerts::applicationShouldHandleReopen(
        ports_.alerts, withRecordedHotKey(ports_.names, ports_.defaults), [this] { openPreferences(); });
}

std::int32_t JorvaneApp::runningFileManager() { return ports_.fileManager.runningApplicationPid(); }

void JorvaneApp::terminate() {
    terminating_ = true;
    ports_.application.terminate();
}

// ---- the registry of bars

PathWindowController* JorvaneApp::barFor(const ElementRef& window, bool create) {
    if (!window) return nullptr;
    // Every query hands out a new element object: compare what they stand for.
    const auto found = std::find_if(pathControllers_.begin(), pathControllers_.end(), [&](const auto& controller) {
        return sameElement(controller->windowElement(), window);
    });
    if (found != pathControllers_.end()) return found->get();
    if (!create) return nullptr;
    if (!ports_.makeController) {
        log::inDomain(log::Error, kLog, "cannot make a bar: no controller factory");
        return nullptr;
    }

    std::unique_ptr<PathWindowController> controller;
    try {
        controller = ports_.makeController(window, *this);
    } catch (const std::exception& error) {
        log::inDomain(log::Error, kLog, "cannot make a bar: %s", error.what());
    }
    if (!controller) return nullptr;
    // A new bar starts hidden; the caller shows it.
    controller->window().hide();
    if (windowObserver_)
        for (WindowNotification notification : kWindowNotifications)
            windowObserver_->addNotification(window, notification);
    pathControllers_.push_back(std::move(controller));
    return pathControllers_.back().get();
}

PathWindowController* JorvaneApp::barForFocusedWindow() {
    const ElementRef application = ports_.accessibility.applicationElement(fileManagerPid_);
    const std::optional<ElementRef> focused = copyAttribute<ElementRef>(application, Attribute::FocusedWindow);
    if (!focused || !*focused) return nullptr;
    return barFor(*focused, true);
}

void JorvaneApp::removeController(PathWindowController* controller) {
    if (draggedController_ == controller) draggedController_ = nullptr;
    std::erase_if(pathControllers_, [controller](const auto& c) { return c.get() == controller; });
}

void JorvaneApp::hideAll() {
    for (const auto& controller : pathControllers_) controller->hide();
}

// ---- watching the file manager

void JorvaneApp::installWindowObserver() {
    const std::int32_t pid = fileManagerPid_;
    const ElementRef application = ports_.accessibility.applicationElement(pid);
    if (!windowObserver_) {
        windowObserver_ = ports_.accessibility.createObserver(
            pid, [weak = std::weak_ptr(self_)](const ElementRef& element, WindowNotification notification) {
                if (const auto self = weak.lock()) (*self)->onWindowNotification(element, notification);
            });
    }
    if (!windowObserver_) {
        // Bars then never close or hide with their windows.
        log::inDomain(log::Warn, kLog, "no accessibility observer for process %d", pid);
        return;
    }
    for (WindowNotification notification : kApplicationNotifications)
        windowObserver_->addNotification(application, notification);
}

void JorvaneApp::onWindowNotification(const ElementRef& element, WindowNotification notification) {
    switch (notification) {
        case WindowNotification::ElementDestroyed: {
            PathWindowController* controller = barFor(element, false);
            if (!controller) return;
            // The controller's close closes its panel.
            controller->completionsWindow().close();
            controller->close();
            removeController(controller);
            return;
        }
        case WindowNotification::Minimized:
            if (PathWindowController* controller = barFor(element, false)) controller->hide();
            return;
        case WindowNotification::Moved:
        case WindowNotification::Resized: {
            PathWindowController* controller = barFor(element, false);
            if (controller && controller->window().isVisible()) controller->updateSize();
            // A window moved over another's title covers that bar too.
            hideCoveredBars();
            return;
        }
        case WindowNotification::Restacked: hideCoveredBars(); return;
        case WindowNotification::TitleChanged: {
            // A window that went to another folder names it in its title
            // (when the file manager shows whole paths there).
            const std::optional<std::string> title = copyAttribute<std::string>(element, Attribute::Title);
            if (!title || !ports_.folderShown) return;
            if (const std::optional<std::string> folder = ports_.fileManager.folderOfWindowTitle(*title))
                ports_.folderShown(*folder);
            return;
        }
        // The application's own notices (focus changes, deactivation) and a
        // restored window change nothing: deactivation is the workspace's to
        // report, and bars come back only when the user asks.
        case WindowNotification::Restored:
        case WindowNotification::FocusedWindowChanged:
        case WindowNotification::ApplicationActivated:
        case WindowNotification::ApplicationDeactivated: return;
    }
}

void JorvaneApp::hideCoveredBars() {
    std::optional<std::vector<WindowInfo>> windows;  // read once, and only for a visible bar
    for (const auto& controller : pathControllers_) {
        if (!controller->window().isVisible()) continue;
        Rect frame;
        if (!WindowLookup::getWindowFrame(controller->windowElement(), frame)) continue;
        if (!windows) windows = ports_.accessibility.windowList();
        double band = controller->window().frame().size.height;
        if (band <= 0) band = kDefaultBarHeight;
        if (isTitleBandCovered(*windows, fileManagerPid_, frame, band)) {
            log::inDomain(log::Debug, kLog, "a window covers the title band at %g,%g: its bar hides", frame.origin.x,
                          frame.origin.y);
            controller->hide();
        }
    }
}

void JorvaneApp::deactivated() {
    log::inDomain(log::Debug, kLog, "the program lost the front: bars hide");
    hideAll();
}

void JorvaneApp::onApplicationLeftFront(const WorkspaceNotification& notification) {
    if (!notification.isFileManager) return;
    log::inDomain(log::Debug, kLog, "the file manager left the front: bars hide");
    hideAll();
}

void JorvaneApp::onApplicationLaunched(const WorkspaceNotification& notification) {
    // After a failed launch the program is on its way out: no new tap.
    if (!notification.isFileManager || terminating_ || !lifecycle_) return;
    lifecycle_->appeared(notification.pid);
    if (launchAfterToggleHidden_.exchange(false)) ports_.fileManager.bringToFront(notification.pid);
}

void JorvaneApp::onApplicationQuit(const WorkspaceNotification& notification) {
    if (notification.isFileManager && lifecycle_) lifecycle_->windowsGone(notification.pid);
}

void JorvaneApp::attachFileManager(std::int32_t pid) {
    // The process attached already (a file manager that lives on without
    // windows, whose first window came): its tap and bars stay. Taking the
    // tap down and up again would lose the keys pressed in between.
    if (pid == fileManagerPid_ && ports_.eventTap.isInstalled()) return;
    hideAll();
    fileManagerPid_ = pid;
    // The tap follows the process. The observer follows windows, whichever
    // process they belong to: one is enough for every file manager to come.
    ports_.eventTap.setEnabled(false);
    ports_.eventTap.uninstall();
    installEventTap();
    installWindowObserver();
    ports_.fileManager.watchEnd(pid, [weak = std::weak_ptr(self_), pid] {
        dispatch::mainQueue().async([weak, pid] {
            const auto self = weak.lock();
            if (self && (*self)->lifecycle_) (*self)->lifecycle_->ended(pid);
        });
    });
}

void JorvaneApp::detachFileManager(std::int32_t /*pid*/) {
    hideAll();
    fileManagerPid_ = 0;
    ports_.eventTap.setEnabled(false);
    ports_.eventTap.uninstall();
}

// ---- the event tap

void JorvaneApp::installEventTap() {
    const std::int32_t pid = fileManagerPid_;
    if (!ports_.eventTap.install(pid, [this](const TapEvent& event) { return eventTapCallback(event); }))
        log::inDomain(log::Warn, kLog, "no event tap on process %d: title clicks and keys will not open bars", pid);
    refreshSwallowableKeys(true);
}

void JorvaneApp::refreshSwallowableKeys(bool always) {
    const activation::SwallowableKeys keys = activation::swallowableKeys(ports_.defaults);
    if (!always && swallowableKeys_ == keys) return;
    swallowableKeys_ = keys;
    ports_.eventTap.setSwallowableKeys(keys.toVector());
}

void JorvaneApp::settingsChanged() { refreshSwallowableKeys(false); }

EventTap::Decision JorvaneApp::eventTapCallback(const TapEvent& event) {
    switch (event.type) {
        case kEventTapDisabledByTimeout: ports_.eventTap.setEnabled(true); return EventTap::Decision::Pass;
        case kEventKeyDown:
        case kEventKeyUp: {
            const activation::KeyDecision decision = activation::decideKeyEvent(event, ports_.defaults, hotKeyChord_);
            if (decision.action != activation::KeyAction::none) startKeyAction(decision.action);
            return decision.decision;
        }
        case kEventLeftMouseDragged:
        case kEventLeftMouseUp:
        case kEventOtherMouseUp:
            // Mouse events reach the file manager whatever we decide, so
            // they need no answer here: all their work runs on the main
            // thread, where the registry and the drag state live.
            dispatch::mainQueue().async([weak = std::weak_ptr(self_), event] {
                if (const auto self = weak.lock()) (*self)->handleMouseEvent(event);
            });
            return EventTap::Decision::Pass;
        default: return EventTap::Decision::Pass;
    }
}

void JorvaneApp::startKeyAction(activation::KeyAction action) {
    using activation::KeyAction;
    // Runs only for the few keys that act (a hot-key release, an extra
    // shortcut); the presses that are merely swallowed or passed queue
    // nothing and allocate nothing.
    switch (action) {
        case KeyAction::none: break;
        case KeyAction::reloadScript: runInBackground([this] { ports_.bridge.call(handlers::reload); }); break;
        case KeyAction::openTerminal:
            runInBackground([this] {
                if (const std::optional<std::string> folder = ports_.bridge.call(handlers::folderPath))
                    ports_.bridge.call(handlers::openTerminal, {*folder});
            });
            break;
        case KeyAction::toggleHiddenFiles: toggleShowHidden(); break;
        case KeyAction::showBarForFocusedWindow:
            dispatch::mainQueue().async([weak = std::weak_ptr(self_)] {
                const auto self = weak.lock();
                if (!self) return;
                if (PathWindowController* controller = (*self)->barForFocusedWindow()) {
                    controller->show(false);
                    (*self)->refreshSwallowableKeys(false);
                }
            });
            break;
        case KeyAction::hotKey:
            dispatch::mainQueue().async([weak = std::weak_ptr(self_)] {
                if (const auto self = weak.lock()) (*self)->show();
            });
            break;
    }
}

void JorvaneApp::handleMouseEvent(const TapEvent& event) {
    const Modifiers flags = event.flags & kShortcutModifierMask;
    switch (event.type) {
        case kEventLeftMouseDragged: {
            // The bar goes once per drag, at its first event.
            if (dragInProgress_) return;
            dragInProgress_ = true;
            dragStartLocation_ = event.location;
            draggedController_ = barFor(WindowLookup::windowUnderMouse(), false);
            if (draggedController_ && draggedController_->window().isVisible())
                draggedController_->hide();
            else
                draggedController_ = nullptr;
            return;
        }
        case kEventLeftMouseUp: {
            if (flags != 0 || !ports_.defaults.boolForKey(settings::keys::activateByTitlebar)) return;
            // The drag state belongs to the title-bar logic: only a plain
            // mouse up with title activation on ends a drag, and such a
            // mouse up ends a drag rather than clicks.
            if (dragInProgress_) {
                dragInProgress_ = false;
                log::inDomain(log::Debug, kLog, "a drag ended at %g,%g", event.location.x, event.location.y);
                return;
            }
            const ElementRef window = WindowLookup::windowUnderMouse();
            const ElementRef title = window ? WindowLookup::titleElementForWindow(window) : ElementRef{};
            Rect titleFrame;
            if (title) WindowLookup::getWindowFrame(title, titleFrame);
            if (!title || !activation::widenedTitleFrame(titleFrame).containsPoint(event.location)) {
                log::inDomain(log::Debug, kLog, "a click at %g,%g is on no title (%s)", event.location.x,
                              event.location.y,
                              !window  ? "no window"
                              : !title ? "no title"
                                       : "outside it");
                return;
            }
            PathWindowController* controller = barFor(window, true);
            if (!controller) return;
            log::inDomain(log::Debug, kLog, "a click on the title at %g,%g: its bar shows", event.location.x,
                          event.location.y);
            controller->show(true, true);
            refreshSwallowableKeys(false);
            return;
        }
        case kEventOtherMouseUp:
            if (flags == 0 && static_cast<std::uint16_t>(event.buttonNumber) == kMouseButtonCenter &&
                !ports_.fileManager.opensMiddleClickedFolderInNewWindow()) {
                dispatch::mainQueue().async([weak = std::weak_ptr(self_)] {
                    if (const auto self = weak.lock()) (*self)->middleClick();
                });
            }
            return;
        default: return;
    }
}

void JorvaneApp::middleClick() {
    const Point location = ports_.eventTap.mouseLocation();
    for (const TapEvent& event : activation::middleClickEvents(location))
        if (!ports_.eventTap.post(event))
            log::inDomain(log::Warn, kLog, "could not post the clicks of a middle click at %g,%g", location.x,
                          location.y);
}

// ---- restarting the file manager

int JorvaneApp::quitApplicationWithBundleID(std::string_view bundleIdentifier) {
    return ports_.fileManager.quitApplication(bundleIdentifier);
}

void JorvaneApp::toggleShowHidden() {
    runInBackground([this] { toggleShowHiddenNow(); });
}

void JorvaneApp::toggleShowHiddenNow() {
    FileManagerProcess& fileManager = ports_.fileManager;
    fileManager.setShowsAllFiles(!fileManager.showsAllFiles());

    // A running file manager ignores the changed setting: restart it. A quit
    // that fails is logged and the restart goes on anyway.
    if (const int status = quitApplicationWithBundleID(ports_.names.fileManagerIdentifier); status != noErr)
        log::inDomain(log::Warn, kLog, "quitting %s answered %d", ports_.names.fileManager.c_str(), status);
    const std::int32_t oldPid = fileManagerPid_;
    for (int i = 0; i < kQuitPolls && fileManager.processExists(oldPid); ++i) std::this_thread::yield();

    // The wait runs on the time source rather than on this thread.
    const std::shared_ptr<Background> background = background_;
    std::lock_guard lock(background->mutex);
    if (background->stopping) return;
    dispatch::TimeSource& time = dispatch::timeSource();
    // A restart already waiting gives way: one start is enough.
    if (background->relaunchTimer) time.cancel(*background->relaunchTimer);
    background->relaunchTimer =
        time.schedule(time.now() + dispatch::seconds(kRelaunchDelay), dispatch::Duration::zero(), [this, background] {
            {
                std::lock_guard fired(background->mutex);
                background->relaunchTimer.reset();
                if (background->stopping) return;
                ++background->running;
            }
            dispatch::globalQueue().async([this, background] {
                relaunchFileManager();
                background->leave();
            });
        });
}

void JorvaneApp::relaunchFileManager() {
    // Set before the start: the launch notice that follows brings the file
    // manager to the front and clears it.
    launchAfterToggleHidden_ = true;
    if (!ports_.fileManager.launch())
        log::inDomain(log::Warn, kLog, "could not start %s again", ports_.names.fileManager.c_str());
}

bool JorvaneApp::runInBackground(std::function<void()> work) {
    const std::shared_ptr<Background> background = background_;
    if (!background->enter()) return false;
    dispatch::globalQueue().async([background, work = std::move(work)] {
        work();
        background->leave();
    });
    return true;
}

void JorvaneApp::waitUntilIdle() {
    std::unique_lock lock(background_->mutex);
    background_->idle.wait(lock, [this] { return background_->running == 0; });
}

// ---- PathWindowDelegate

void JorvaneApp::show() {
    PathWindowController* controller = barForFocusedWindow();
    if (!controller) {
        log::inDomain(log::Debug, kLog, "hot key: no focused window of process %d", fileManagerPid_.load());
        return;
    }
    controller->show();
    refreshSwallowableKeys(false);
}

void JorvaneApp::openPreferences() {
    if (ports_.openPreferences)
        ports_.openPreferences();
    else
        log::inDomain(log::Info, kLog, "no preferences window in this build");
}

void JorvaneApp::about() {
    if (ports_.about)
        ports_.about();
    else
        log::inDomain(log::Info, kLog, "no about window in this build");
}

}  // namespace jorvane
