// The composition root: the only place that knows the core, the X11 and
// Thunar adapters and the Qt views, and wires them together.
//
// Start: the log's thresholds (JORVANE_LOG), the display check (exit code 2
// without a usable X display), the Qt application without a window of its
// own, the settings domain on its file, the adapters, then the delegate's
// launch sequence. SIGINT, SIGTERM and SIGHUP end the event loop, and
// everything is taken down in the reverse order, the tap first.

#include <QApplication>
#include <QFileSystemWatcher>
#include <QSocketNotifier>
#include <QString>

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "accessibility/WindowLookup.h"
#include "addressbar/PathWindowController.h"
#include "app/CommandLine.h"
#include "app/JorvaneApp.h"
#include "app/SingleInstance.h"
#include "filemanager/FileManagerCommands.h"
#include "firstlaunch/Installation.h"
#include "firstlaunch/SystemInstall.h"
#include "firstlaunch/WelcomeAlerts.h"
#include "places/BookmarkList.h"
#include "places/VisitedFolders.h"
#include "platform/linux/CrashReport.h"
#include "platform/linux/CurlHttpClient.h"
#include "platform/linux/GioWorkspace.h"
#include "platform/linux/LaunchEnvironment.h"
#include "platform/linux/LinuxInstallServices.h"
#include "platform/linux/UnixInstanceChannel.h"
#include "platform/thunar/ThunarFileManagerProcess.h"
#include "platform/thunar/ThunarHandlerCatalogue.h"
#include "platform/x11/X11Accessibility.h"
#include "platform/x11/X11EnvironmentCheck.h"
#include "platform/x11/X11EventTap.h"
#include "platform/x11/X11Keyboard.h"
#include "platform/x11/X11KeyboardLayout.h"
#include "platform/x11/X11SymbolicHotKeys.h"
#include "platform/x11/X11WorkspaceObserver.h"
#include "settings/FileDefaultsStorage.h"
#include "settings/LoginItems.h"
#include "settings/UserDefaults.h"
#include "shortcut/KeyboardLayout.h"
#include "shortcut/SymbolicHotKeys.h"
#include "ui/AboutWindow.h"
#include "ui/MainLoop.h"
#include "ui/PreferencesWindow.h"
#include "ui/QtAlerts.h"
#include "ui/QtApplication.h"
#include "ui/QtPathWindowViews.h"
#include "ui/QtScreens.h"
#include "ui/QuitSignals.h"
#include "ui/ServerLoginDialog.h"
#include "ui/X11KeyboardMap.h"
#include "updater/AppcastUpdater.h"
#include "updater/UpdateAlert.h"
#include "util/Diagnostics.h"
#include "util/Dispatch.h"

namespace {

using namespace jorvane;

constexpr const char* kLog = "Jorvane";

// The panel of one bar as this program wires it: when the bar comes forward
// the handler catalogue learns which Thunar window "the front window" is
// (while the bar has the keyboard, the window manager names no active
// window), and the bar's life goes to the log.
class WiredPanel final : public PathPanelView {
public:
    WiredPanel(std::unique_ptr<PathPanelView> panel, std::shared_ptr<ThunarHandlerCatalogue> catalogue,
               std::uint32_t window)
        : panel_(std::move(panel)), catalogue_(std::move(catalogue)), window_(window) {
        log::inDomain(log::Info, kLog, "bar made for window 0x%x", window_);
    }
    ~WiredPanel() override { log::inDomain(log::Info, kLog, "bar of window 0x%x removed", window_); }
    WiredPanel(const WiredPanel&) = delete;
    WiredPanel& operator=(const WiredPanel&) = delete;

    Rect frame() const override { return panel_->frame(); }
    void setFrame(const Rect& frame, bool display, bool animate) override { panel_->setFrame(frame, display, animate); }
    bool isVisible() const override { return panel_->isVisible(); }
    void raise() override {
        if (window_ != 0) catalogue_->setFrontWindow(window_);
        panel_->raise();
    }
    void focus() override { panel_->focus(); }
    void hide() override { panel_->hide(); }
    void close() override {
        log::inDomain(log::Debug, kLog, "bar of window 0x%x closed", window_);
        panel_->close();
    }

private:
    std::unique_ptr<PathPanelView> panel_;
    std::shared_ptr<ThunarHandlerCatalogue> catalogue_;
    std::uint32_t window_;
};

// Runs an action when the scope ends: takes back a process-wide
// installation before the object installed goes.
class AtScopeEnd {
public:
    explicit AtScopeEnd(std::function<void()> action) : action_(std::move(action)) {}
    ~AtScopeEnd() { action_(); }
    AtScopeEnd(const AtScopeEnd&) = delete;
    AtScopeEnd& operator=(const AtScopeEnd&) = delete;

private:
    std::function<void()> action_;
};

void configureLog() {
    const char* text = std::getenv("JORVANE_LOG");
    const launch::LogSettings settings = launch::parseLogSettings(text ? text : "");
    launch::applyLogSettings(settings);
    for (const std::string& error : settings.errors) std::fprintf(stderr, "jorvane: JORVANE_LOG: %s\n", error.c_str());
}

std::uint32_t clientWindowOf(const ElementRef& element) {
    const std::optional<x11::X11ElementIdentity> identity = x11::X11Accessibility::identityOf(element);
    return identity ? identity->window : 0;
}

// --help, --version and a bad command line answer without starting; the
// exit code then, nothing for a start.
std::optional<int> answerWithoutStarting(const commandline::Parsed& command) {
    switch (command.action) {
        case commandline::Action::help: std::fputs(commandline::usage().c_str(), stdout); return 0;
        case commandline::Action::version: std::printf("jorvane %s\n", JORVANE_VERSION); return 0;
        case commandline::Action::error:
            std::fprintf(stderr, "%s\n", command.error.c_str());
            return commandline::kUsageExitCode;
        case commandline::Action::run:
        case commandline::Action::preferences:
        case commandline::Action::quit: break;
    }
    return std::nullopt;
}

// The exit code when there is no usable X display; warns about Wayland,
// where only Thunar windows on X11 get a bar.
std::optional<int> refuseWithoutDisplay() {
    const std::optional<std::string> problem = launch::displayProblem(
        launch::SessionVariables::fromEnvironment(),
        [](const std::string& display) { return x11::checkX11InputSupport(display).displayReachable; });
    if (problem) {
        std::fprintf(stderr, "%s\n", problem->c_str());
        return launch::kNoDisplayExitCode;
    }
    if (const char* wayland = std::getenv("WAYLAND_DISPLAY"); wayland && *wayland)
        log::inDomain(log::Warn, kLog,
                      "a Wayland session: only Thunar windows on X11 (GDK_BACKEND=x11) get an address bar");
    return std::nullopt;
}

// One program per session and display: a second start asks the running one
// to show itself (or to open its preferences, or to quit) and ends with the
// exit code returned; nothing when this one is to run.
std::optional<int> handOverToRunningInstance(UnixInstanceChannel& instances, commandline::Action action) {
    std::string_view request = SingleInstance::kReopenMessage;
    if (action == commandline::Action::preferences) request = SingleInstance::kPreferencesMessage;
    if (action == commandline::Action::quit) request = SingleInstance::kQuitMessage;
    switch (SingleInstance::atStart(instances, request)) {
        case SingleInstance::Start::run:
        case SingleInstance::Start::runUnguarded:
            if (action == commandline::Action::quit) {
                std::fprintf(stderr, "jorvane: Jorvane is not running\n");
                return 1;
            }
            break;
        case SingleInstance::Start::handedOver:
            log::inDomain(log::Info, kLog, "Jorvane runs already: it was asked to %s",
                          std::string(request == SingleInstance::kReopenMessage ? "show itself" : request).c_str());
            return 0;
        case SingleInstance::Start::otherUnreachable:
            std::fprintf(stderr, "jorvane: Jorvane runs already but does not answer at %s\n",
                         instances.socketPath().c_str());
            return 1;
    }
    return std::nullopt;
}

// What Qt must know before the application object exists.
void prepareToolkit() {
    // The bars are X11 windows laid over X11 windows, whatever else the
    // session offers.
    qputenv("QT_QPA_PLATFORM", "xcb");
    // The main thread runs Qt's own event loop, not GLib's default context:
    // libatspi hands the connections it opens to each application (a Thunar
    // that starts again) to GLib's default context, and the Thunar worker
    // uses them on its own thread; dispatched on this thread as well, they
    // crashed the program after a few Thunar restarts.
    if (!qEnvironmentVariableIsSet("QT_NO_GLIB")) qputenv("QT_NO_GLIB", "1");
}

void describeApplication() {
    QApplication::setApplicationName("Jorvane");
    QApplication::setApplicationVersion(JORVANE_VERSION);
    // The program lives in the background: closing an alert or hiding the
    // last bar does not end it.
    QApplication::setQuitOnLastWindowClosed(false);
}

// The settings domain on its file; problems with the file go to the log.
settings::UserDefaults openSettings() {
    return settings::UserDefaults(std::make_unique<settings::FileDefaultsStorage>(), [](const std::string& warning) {
        log::inDomain(log::Warn, "Settings", "%s", warning.c_str());
    });
}

std::filesystem::path resourcesBeside(const std::filesystem::path& ownExecutable) {
    std::filesystem::path resources = launch::resourceDirectoryFor(ownExecutable);
    log::inDomain(log::Debug, kLog, "resources in %s", resources.c_str());
    return resources;
}

AtScopeEnd installStandardDefaults(settings::UserDefaults& defaults) {
    settings::setStandardUserDefaults(&defaults);
    return AtScopeEnd([] { settings::setStandardUserDefaults(nullptr); });
}

// Key names follow the server's layout; the recorder checks the desktop's
// shortcuts.
AtScopeEnd installKeyboard() {
    const std::shared_ptr<x11::X11Keyboard> keyboard = x11::X11Keyboard::open();
    setCurrentKeyboardLayout(std::make_shared<x11::X11KeyboardLayout>(keyboard));
    setSystemSymbolicHotKeys(
        std::make_shared<x11::X11SymbolicHotKeys>(keyboard, x11::X11SymbolicHotKeys::defaultOptions()));
    return AtScopeEnd([] {
        setSystemSymbolicHotKeys(nullptr);
        setCurrentKeyboardLayout(nullptr);
    });
}

AtScopeEnd installAccessibility(std::shared_ptr<x11::X11Accessibility> accessibility) {
    WindowLookup::setAccessibility(std::move(accessibility));
    return AtScopeEnd([] { WindowLookup::setAccessibility(nullptr); });
}

// Servers that ask how to log in ask through the program's own dialog.
std::shared_ptr<ThunarHandlerCatalogue> makeCatalogue() {
    return std::make_shared<ThunarHandlerCatalogue>(ThunarHandlerCatalogue::Options{},
                                                    std::make_shared<ui::QtServerLoginPrompt>());
}

AtScopeEnd installCatalogue(std::shared_ptr<ThunarHandlerCatalogue> catalogue) {
    FileManagerCommands::setSharedCatalogue(std::move(catalogue));
    // The shared wrapper lives on; its catalogue's worker ends with the run.
    return AtScopeEnd([] { FileManagerCommands::setSharedCatalogue(nullptr); });
}

// A window's folder is read from its title, which names the full path once
// this Thunar setting is on (windows take it up at their next folder
// change). In the background: xfconf may take a moment.
void turnOnFullPathTitles() {
    dispatch::globalQueue().async([] {
        if (!ThunarHandlerCatalogue::enableFullPathInTitle())
            log::inDomain(log::Warn, kLog, "cannot turn on thunar /misc-full-path-in-window-title");
    });
}

// The feed is the user's setting (none ships): without one nothing is ever
// fetched. Plain http:// only for a feed the user stored himself.
AppcastUpdater makeUpdater(settings::UserDefaults& defaults, ui::QtAlerts& alerts, ui::DesktopURLOpener& urls) {
    CurlHttpClient::Options feedClient;
    feedClient.allowPlainHttp = defaults.hasStoredValue(settings::keys::updateFeedUrl);
    return AppcastUpdater(std::make_shared<CurlHttpClient>(feedClient),
                          AppcastUpdater::Options{.feedUrl = defaults.stringForKey(settings::keys::updateFeedUrl),
                                                  .currentVersion = JORVANE_VERSION},
                          [&alerts, &urls](const UpdateOffer& offer) {
                              UpdateAlert::offer(alerts, offer, JORVANE_VERSION, [&urls](const std::string& url) {
                                  if (!urls.openURL(url)) log::inDomain(log::Warn, kLog, "cannot open %s", url.c_str());
                              });
                          });
}

// The bar of one Thunar window, over the Qt views.
JorvaneApp::ControllerFactory makeControllerFactory(std::shared_ptr<ThunarHandlerCatalogue> catalogue,
                                                    FileManagerCommands& bridge, settings::UserDefaults& defaults,
                                                    GioWorkspace& files, ui::QtScreens& screens,
                                                    ThunarFileManagerProcess& fileManager,
                                                    places::VisitedFolders& visitedFolders,
                                                    places::BookmarkList& bookmarks) {
    return [catalogue = std::move(catalogue), &bridge, &defaults, &files, &screens, &fileManager, &visitedFolders,
            &bookmarks](ElementRef windowElement, PathWindowDelegate& delegate) {
        const std::uint32_t window = clientWindowOf(windowElement);
        ui::QtPathWindow qt = ui::makePathWindowViews();
        qt.views.panel = std::make_unique<WiredPanel>(std::move(qt.views.panel), catalogue, window);
        auto controller = std::make_unique<PathWindowController>(
            std::move(windowElement), std::move(qt.views),
            PathWindowController::Dependencies{
                bridge, defaults, files, screens, delegate, {}, &visitedFolders, &bookmarks});
        ui::connectToController(*qt.events, *controller);
        // The bar had the keyboard: it goes back to the Thunar window.
        qt.events->didOrderOut = [&fileManager, window] { fileManager.giveKeyboardTo(window); };
        return controller;
    };
}

// The welcome of a first launch, with the offer to move an unpacked release
// into the applications folder (JORVANE_APPLICATIONS_FOLDER names another one
// than /opt, for trying the move without privileges).
JorvaneApp::FirstLaunch makeFirstLaunch(LinuxInstallServices& installServices, ui::QtAlerts& alerts,
                                        ui::QtApplication& application, settings::UserDefaults& defaults,
                                        const installation::Installation& installed,
                                        const std::filesystem::path& ownExecutable) {
    return [&installServices, &alerts, &application, &defaults, &installed, &ownExecutable] {
        const PlatformNames names = withRecordedHotKey(PlatformNames{}, defaults);
        const char* chosen = std::getenv("JORVANE_APPLICATIONS_FOLDER");
        const std::string local = chosen && *chosen == '/' ? chosen : "/opt";
        const systemInstall::Context move{
            .system = installServices,
            .alerts = alerts,
            .application = application,
            .names = names,
            .installation = installed,
            .localApplicationsDirectory = local,
            .uniqueSuffix = std::to_string(getpid()),
            .runInBackground = [](std::function<void()> work) { dispatch::globalQueue().async(std::move(work)); },
        };
        return WelcomeAlerts::runWelcome(WelcomeAlerts::Welcome{
            .alerts = alerts,
            .defaults = defaults,
            .names = names,
            .executable = ownExecutable.string(),
            .offerMove = systemInstall::isOffered(installed, local),
            .localApplicationsDirectory = installServices.resolveLinks(local).value_or(std::string{}),
            .hasLoginItemWithPath = LoginItem::HasLoginItemWithPath,
            .installLoginItemWithPath = LoginItem::InstallLoginItemWithPath,
            .installSystemWide =
                [move] {
                    const systemInstall::Outcome outcome = systemInstall::installAndRestart(move);
                    return outcome == systemInstall::Outcome::inBackground ||
                           outcome == systemInstall::Outcome::relaunched ||
                           outcome == systemInstall::Outcome::handedOver;
                },
        });
    };
}

// The about window: a new one at each request.
std::function<void()> makeOpenAbout(ui::QtAlerts& alerts, ui::QtApplication& application,
                                    const std::filesystem::path& ownExecutable,
                                    const installation::Installation& installed) {
    return [&alerts, &application, ownExecutable, installed] {
        ui::AboutWindow::open(
            ui::AboutWindow::Dependencies{alerts, application, ownExecutable, installed, JORVANE_VERSION, nullptr});
    };
}

// The preferences window: a new one at each request. A change in the
// preferences counts from the next event; the tap learns at once which keys
// it may have to swallow. `running` is the delegate once there is one.
std::function<void()> makeOpenPreferences(settings::UserDefaults& defaults, ui::QtAlerts& alerts, JorvaneApp*& running,
                                          const std::filesystem::path& ownExecutable, std::function<void()> openAbout,
                                          places::VisitedFolders& visitedFolders) {
    const std::shared_ptr<ui::X11KeyboardMap> preferencesKeys = ui::X11KeyboardMap::forApplication();
    return [&defaults, &alerts, &running, &visitedFolders, ownExecutable, preferencesKeys,
            openAbout = std::move(openAbout)] {
        ui::NativeKeyCodes native;
        if (preferencesKeys) {
            // A layout switched since the last window counts.
            preferencesKeys->invalidate();
            native = [preferencesKeys](std::uint32_t scanCode, std::uint32_t state) {
                return preferencesKeys->keyCode(scanCode, state);
            };
        }
        ui::PreferencesWindow::open(ui::PreferencesWindow::Dependencies{
            .defaults = defaults,
            .alerts = alerts,
            .executablePath = ownExecutable.string(),
            .about = openAbout,
            .settingsChanged =
                [&running] {
                    if (running) running->settingsChanged();
                },
            .native = std::move(native),
            .fileManager = PlatformNames{}.fileManager,
            .forgetVisitedFolders = [&visitedFolders] { visitedFolders.forget(); },
        });
    };
}

// A monitor plugged in or removed moves screens about: the bars go rather
// than stay where a screen was; the next click opens them anew.
void followScreenChanges(JorvaneApp& delegate) {
    QObject::connect(qApp, &QGuiApplication::screenAdded, [&delegate] { delegate.deactivated(); });
    QObject::connect(qApp, &QGuiApplication::screenRemoved, [&delegate] { delegate.deactivated(); });
}

// settings.json edited by hand (the hot key, the activations) counts from
// the next event; the tap must learn the keys it may swallow now.
void watchSettingsFolder(QFileSystemWatcher& watcher, settings::UserDefaults& defaults, JorvaneApp& delegate) {
    const std::filesystem::path settingsFolder = settings::settingsDirectory();
    std::error_code error;
    std::filesystem::create_directories(settingsFolder, error);
    if (!error) watcher.addPath(QString::fromStdString(settingsFolder.string()));
    QObject::connect(&watcher, &QFileSystemWatcher::directoryChanged, [&defaults, &delegate] {
        defaults.reload();
        delegate.settingsChanged();
    });
}

// Later starts are heard once the launch is done (one that came during the
// welcome waits until now). The notifier rests while an alert is up, so that
// alerts do not pile up inside each other.
std::unique_ptr<QSocketNotifier> listenForLaterStarts(UnixInstanceChannel& instances, JorvaneApp& delegate) {
    if (instances.listeningDescriptor() < 0) return nullptr;
    auto reopens = std::make_unique<QSocketNotifier>(instances.listeningDescriptor(), QSocketNotifier::Read);
    QSocketNotifier* notifier = reopens.get();
    QObject::connect(notifier, &QSocketNotifier::activated, [&instances, &delegate, notifier] {
        notifier->setEnabled(false);
        const SingleInstance::Requests requests{
            .reopen = [&delegate] { delegate.applicationShouldHandleReopen(); },
            .openPreferences = [&delegate] { delegate.openPreferences(); },
            .quit = [] { QApplication::quit(); },
        };
        while (const std::optional<std::string> message = instances.takeMessage())
            SingleInstance::received(*message, requests);
        notifier->setEnabled(true);
    });
    return reopens;
}

// Launches, then runs the event loop until the program quits; the exit code.
int launchAndRun(JorvaneApp& delegate, ui::QtApplication& application, UnixInstanceChannel& instances,
                 commandline::Action action) {
    delegate.finishLaunching();
    if (delegate.isTerminating() || application.terminateRequested()) {
        log::inDomain(log::Info, kLog, "launch ended the program");
        // Quit in the welcome is the user's choice, not a failure.
        return delegate.userDeclinedLaunch() ? 0 : 1;
    }
    const std::unique_ptr<QSocketNotifier> reopens = listenForLaterStarts(instances, delegate);
    // Started with --preferences and none running: this one opens them.
    if (action == commandline::Action::preferences) delegate.openPreferences();
    if (delegate.fileManagerPid() > 0)
        log::inDomain(log::Info, kLog, "running beside Thunar (process %d)", delegate.fileManagerPid());
    else
        log::inDomain(log::Info, kLog, "running beside Thunar once it starts");
    return QApplication::exec();
}

}  // namespace

// Every adapter is a local of main(), made in the order the others need them
// and destroyed in reverse; the steps are named functions above, so what is
// left here is the list of parts and their wiring, read top to bottom.
int main(int argc, char** argv) {
    reportCrashes();
    // Read before anything needs a display; the toolkit never sees it.
    const std::vector<std::string_view> arguments(argv + std::min(argc, 1), argv + argc);
    const commandline::Parsed command = commandline::parse(arguments);
    if (const std::optional<int> exitCode = answerWithoutStarting(command)) return *exitCode;
    configureLog();
    if (const std::optional<int> exitCode = refuseWithoutDisplay()) return *exitCode;
    UnixInstanceChannel instances;
    if (const std::optional<int> exitCode = handOverToRunningInstance(instances, command.action)) return *exitCode;

    const sigset_t quitSignals = ui::QuitSignals::blockAll();
    prepareToolkit();
    int toolkitArgc = std::min(argc, 1);
    QApplication app(toolkitArgc, argv);
    describeApplication();
    ui::MainLoop mainLoop;
    ui::QuitSignals signals(quitSignals);

    settings::UserDefaults defaults = openSettings();
    const AtScopeEnd uninstallDefaults = installStandardDefaults(defaults);

    // The program's own file: its resources, its install, its login item.
    const std::filesystem::path ownExecutable = launch::currentExecutable();
    const installation::Installation installed = installation::installationOf(ownExecutable);
    const std::filesystem::path resources = resourcesBeside(ownExecutable);

    const AtScopeEnd uninstallKeyboard = installKeyboard();
    auto accessibility = std::make_shared<x11::X11Accessibility>();
    const AtScopeEnd uninstallAccessibility = installAccessibility(accessibility);
    const std::shared_ptr<ThunarHandlerCatalogue> catalogue = makeCatalogue();
    const AtScopeEnd uninstallCatalogue = installCatalogue(catalogue);
    turnOnFullPathTitles();

    x11::X11EventTap eventTap;
    x11::X11WorkspaceObserver workspaceObserver;
    x11::X11EnvironmentCheck environment;
    ThunarFileManagerProcess fileManager;
    ui::QtAlerts alerts;
    ui::QtScreens screens;
    GioWorkspace files;
    ui::DesktopURLOpener urls;
    AppcastUpdater updater = makeUpdater(defaults, alerts, urls);
    FileManagerCommands& bridge = FileManagerCommands::shared();
    // The folders visited, so that a few words of a path can go back to one.
    places::VisitedFolders visitedFolders({
        .remembering = [&defaults] { return defaults.boolForKey(settings::keys::rememberVisitedFolders); },
        .warn = [](const std::string& warning) { log::inDomain(log::Warn, kLog, "%s", warning.c_str()); },
    });
    visitedFolders.load();
    // Thunar's bookmarks, offered by name.
    places::BookmarkList bookmarks;

    JorvaneApp* running = nullptr;
    ui::QtApplication application([&running] {
        if (running) running->deactivated();
    });
    LinuxInstallServices installServices;
    const std::function<void()> openAbout = makeOpenAbout(alerts, application, ownExecutable, installed);
    JorvaneApp delegate(JorvaneApp::Ports{
        .defaults = defaults,
        .accessibility = *accessibility,
        .eventTap = eventTap,
        .workspace = workspaceObserver,
        .alerts = alerts,
        .application = application,
        .environment = environment,
        .fileManager = fileManager,
        .updater = updater,
        .bridge = bridge,
        .makeController =
            makeControllerFactory(catalogue, bridge, defaults, files, screens, fileManager, visitedFolders, bookmarks),
        .firstLaunch = makeFirstLaunch(installServices, alerts, application, defaults, installed, ownExecutable),
        .openPreferences = makeOpenPreferences(defaults, alerts, running, ownExecutable, openAbout, visitedFolders),
        .about = openAbout,
        .names = PlatformNames{},
        .defaultPreferences = resources / settings::kDefaultPreferencesFileName,
        .version = JORVANE_VERSION,
        .folderShown = [&visitedFolders](const std::string& folder) { visitedFolders.visit(folder); },
    });
    running = &delegate;
    followScreenChanges(delegate);
    QFileSystemWatcher settingsWatcher;
    watchSettingsFolder(settingsWatcher, defaults, delegate);

    const int status = launchAndRun(delegate, application, instances, command.action);
    // The last visits reach the disk before the program goes.
    visitedFolders.flush();
    running = nullptr;
    // Everything goes in reverse order: the delegate (tap, observer, bars)
    // first, then the adapters, then the process-wide installations.
    return status;
}
