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

#include <execinfo.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "addressbar/PathWindowController.h"
#include "app/AppcastUpdater.h"
#include "app/CommandLine.h"
#include "app/Installation.h"
#include "app/JorvaneAppDelegate.h"
#include "app/MoveToApplications.h"
#include "app/SingleInstance.h"
#include "app/UpdateAlert.h"
#include "app/WelcomeAlerts.h"
#include "bridges/AXUtils.h"
#include "bridges/VJASWrapper.h"
#include "places/VisitedFolders.h"
#include "platform/CurlHttpClient.h"
#include "platform/GioWorkspace.h"
#include "platform/LaunchEnvironment.h"
#include "platform/LinuxBundleServices.h"
#include "platform/UnixInstanceChannel.h"
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
#include "shortcutrecorder/KeyboardLayout.h"
#include "shortcutrecorder/SymbolicHotKeys.h"
#include "ui/AboutWindow.h"
#include "ui/MainLoop.h"
#include "ui/PreferencesWindow.h"
#include "ui/QtAlerts.h"
#include "ui/ServerLoginDialog.h"
#include "ui/QtApplication.h"
#include "ui/QtPathWindowViews.h"
#include "ui/QtScreens.h"
#include "ui/X11KeyboardMap.h"
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
        KMLogInDomain(KMLogLevelInfo, kLog, "bar made for window 0x%x", window_);
    }
    ~WiredPanel() override { KMLogInDomain(KMLogLevelInfo, kLog, "bar of window 0x%x removed", window_); }
    WiredPanel(const WiredPanel&) = delete;
    WiredPanel& operator=(const WiredPanel&) = delete;

    Rect frame() const override { return panel_->frame(); }
    void setFrame(const Rect& frame, bool display, bool animate) override { panel_->setFrame(frame, display, animate); }
    bool isVisible() const override { return panel_->isVisible(); }
    void orderFrontRegardless() override {
        if (window_ != 0) catalogue_->setFrontWindow(window_);
        panel_->orderFrontRegardless();
    }
    void makeKeyWindow() override { panel_->makeKeyWindow(); }
    void orderOut() override { panel_->orderOut(); }
    void close() override {
        KMLogInDomain(KMLogLevelDebug, kLog, "bar of window 0x%x closed", window_);
        panel_->close();
    }

private:
    std::unique_ptr<PathPanelView> panel_;
    std::shared_ptr<ThunarHandlerCatalogue> catalogue_;
    std::uint32_t window_;
};

// Turns SIGINT, SIGTERM and SIGHUP into a quit of the event loop. The signals
// are blocked before any thread starts, so every thread inherits the mask
// and they all arrive at the descriptor.
class QuitSignals {
public:
    static sigset_t blockAll() {
        sigset_t set;
        sigemptyset(&set);
        sigaddset(&set, SIGINT);
        sigaddset(&set, SIGTERM);
        sigaddset(&set, SIGHUP);
        pthread_sigmask(SIG_BLOCK, &set, nullptr);
        return set;
    }

    explicit QuitSignals(const sigset_t& set) : fd_(signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK)) {
        if (fd_ < 0) return;
        notifier_ = std::make_unique<QSocketNotifier>(fd_, QSocketNotifier::Read);
        QObject::connect(notifier_.get(), &QSocketNotifier::activated, [this] {
            signalfd_siginfo info{};
            while (read(fd_, &info, sizeof info) == static_cast<ssize_t>(sizeof info))
                KMLogInDomain(KMLogLevelInfo, kLog, "signal %u: quitting", info.ssi_signo);
            QApplication::quit();
        });
    }
    ~QuitSignals() {
        notifier_.reset();
        if (fd_ >= 0) close(fd_);
    }
    QuitSignals(const QuitSignals&) = delete;
    QuitSignals& operator=(const QuitSignals&) = delete;

private:
    int fd_;
    std::unique_ptr<QSocketNotifier> notifier_;
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

// A crash leaves its stack on standard error (the log) before the default
// action ends the process.
void reportCrash(int signal) {
    const char* name = strsignal(signal);
    (void)!write(STDERR_FILENO, "jorvane: fatal signal: ", 23);
    (void)!write(STDERR_FILENO, name, std::strlen(name));
    (void)!write(STDERR_FILENO, "\n", 1);
    void* frames[64];
    backtrace_symbols_fd(frames, backtrace(frames, 64), STDERR_FILENO);
    std::signal(signal, SIG_DFL);
    raise(signal);
}

void reportCrashes() {
    // Loads the unwinder now: not from inside the handler.
    void* frame[1];
    backtrace(frame, 1);
    for (int signal : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT}) std::signal(signal, reportCrash);
}

void configureLog() {
    const char* text = std::getenv("JORVANE_LOG");
    const launch::LogSettings settings = launch::parseLogSettings(text ? text : "");
    launch::applyLogSettings(settings);
    for (const std::string& error : settings.errors) std::fprintf(stderr, "jorvane: JORVANE_LOG: %s\n", error.c_str());
}

std::uint32_t clientWindowOf(const AXUIElementRef& element) {
    const std::optional<x11::X11ElementIdentity> identity = x11::X11Accessibility::identityOf(element);
    return identity ? identity->window : 0;
}

}  // namespace

int main(int argc, char** argv) {
    reportCrashes();
    // Read before anything needs a display; the toolkit never sees it.
    const std::vector<std::string_view> arguments(argv + std::min(argc, 1), argv + argc);
    const commandline::Parsed command = commandline::parse(arguments);
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
    configureLog();

    const std::optional<std::string> problem =
        launch::displayProblem(launch::SessionVariables::fromEnvironment(), [](const std::string& display) {
            return x11::checkX11InputSupport(display).displayReachable;
        });
    if (problem) {
        std::fprintf(stderr, "%s\n", problem->c_str());
        return launch::kNoDisplayExitCode;
    }
    if (const char* wayland = std::getenv("WAYLAND_DISPLAY"); wayland && *wayland)
        KMLogInDomain(KMLogLevelWarn, kLog,
                      "a Wayland session: only Thunar windows on X11 (GDK_BACKEND=x11) get an address bar");

    // One program per session and display: a second start asks the running
    // one to show itself (or to open its preferences, or to quit) and ends.
    UnixInstanceChannel instances;
    std::string_view request = SingleInstance::kReopenMessage;
    if (command.action == commandline::Action::preferences) request = SingleInstance::kPreferencesMessage;
    if (command.action == commandline::Action::quit) request = SingleInstance::kQuitMessage;
    switch (SingleInstance::atStart(instances, request)) {
        case SingleInstance::Start::run:
        case SingleInstance::Start::runUnguarded:
            if (command.action == commandline::Action::quit) {
                std::fprintf(stderr, "jorvane: Jorvane is not running\n");
                return 1;
            }
            break;
        case SingleInstance::Start::handedOver:
            KMLogInDomain(KMLogLevelInfo, kLog, "Jorvane runs already: it was asked to %s",
                          std::string(request == SingleInstance::kReopenMessage ? "show itself" : request).c_str());
            return 0;
        case SingleInstance::Start::otherUnreachable:
            std::fprintf(stderr, "jorvane: Jorvane runs already but does not answer at %s\n",
                         instances.socketPath().c_str());
            return 1;
    }

    const sigset_t quitSignals = QuitSignals::blockAll();

    // The bars are X11 windows laid over X11 windows, whatever else the
    // session offers.
    qputenv("QT_QPA_PLATFORM", "xcb");
    // The main thread runs Qt's own event loop, not GLib's default context:
    // libatspi hands the connections it opens to each application (a Thunar
    // that starts again) to GLib's default context, and the Thunar worker
    // uses them on its own thread; dispatched on this thread as well, they
    // crashed the program after a few Thunar restarts.
    if (!qEnvironmentVariableIsSet("QT_NO_GLIB")) qputenv("QT_NO_GLIB", "1");
    int toolkitArgc = std::min(argc, 1);
    QApplication app(toolkitArgc, argv);
    QApplication::setApplicationName("Jorvane");
    QApplication::setApplicationVersion(JORVANE_VERSION);
    // The program lives in the background: closing an alert or hiding the
    // last bar does not end it.
    QApplication::setQuitOnLastWindowClosed(false);
    ui::MainLoop mainLoop;
    QuitSignals signals(quitSignals);

    settings::UserDefaults defaults(std::make_unique<settings::FileDefaultsStorage>(), [](const std::string& warning) {
        KMLogInDomain(KMLogLevelWarn, "Settings", "%s", warning.c_str());
    });
    settings::setStandardUserDefaults(&defaults);
    const AtScopeEnd uninstallDefaults([] { settings::setStandardUserDefaults(nullptr); });

    // The program's own file: its resources, its bundle, its login item.
    const std::filesystem::path ownExecutable = launch::currentExecutable();
    const installation::Installation installed = installation::installationOf(ownExecutable);
    const std::filesystem::path resources = launch::resourceDirectoryFor(ownExecutable);
    KMLogInDomain(KMLogLevelDebug, kLog, "resources in %s", resources.c_str());

    // Key names follow the server's layout; the recorder checks the desktop's
    // shortcuts.
    const std::shared_ptr<x11::X11Keyboard> keyboard = x11::X11Keyboard::open();
    setCurrentKeyboardLayout(std::make_shared<x11::X11KeyboardLayout>(keyboard));
    setSystemSymbolicHotKeys(
        std::make_shared<x11::X11SymbolicHotKeys>(keyboard, x11::X11SymbolicHotKeys::defaultOptions()));
    const AtScopeEnd uninstallKeyboard([] {
        setSystemSymbolicHotKeys(nullptr);
        setCurrentKeyboardLayout(nullptr);
    });

    auto accessibility = std::make_shared<x11::X11Accessibility>();
    AXUtils::setAccessibility(accessibility);
    const AtScopeEnd uninstallAccessibility([] { AXUtils::setAccessibility(nullptr); });
    // Servers that ask how to log in ask through the program's own dialog.
    auto catalogue = std::make_shared<ThunarHandlerCatalogue>(ThunarHandlerCatalogue::Options{},
                                                              std::make_shared<ui::QtServerLoginPrompt>());
    VJASWrapper::setSharedCatalogue(catalogue);
    // The shared wrapper lives on; its catalogue's worker ends with the run.
    const AtScopeEnd uninstallCatalogue([] { VJASWrapper::setSharedCatalogue(nullptr); });
    // A window's folder is read from its title, which names the full path
    // once this Thunar setting is on (windows take it up at their next
    // folder change). In the background: xfconf may take a moment.
    dispatch::globalQueue().async([] {
        if (!ThunarHandlerCatalogue::enableFullPathInTitle())
            KMLogInDomain(KMLogLevelWarn, kLog, "cannot turn on thunar /misc-full-path-in-window-title");
    });

    x11::X11EventTap eventTap;
    x11::X11WorkspaceObserver workspaceObserver;
    x11::X11EnvironmentCheck environment;
    ThunarFileManagerProcess fileManager;
    ui::QtAlerts alerts;
    ui::QtScreens screens;
    GioWorkspace files;
    ui::DesktopURLOpener urls;
    // The feed is the user's setting (none ships): without one nothing is
    // ever fetched. Plain http:// only for a feed the user stored himself.
    CurlHttpClient::Options feedClient;
    feedClient.allowPlainHttp = defaults.hasStoredValue(settings::keys::updateFeedUrl);
    AppcastUpdater updater(
        std::make_shared<CurlHttpClient>(feedClient),
        AppcastUpdater::Options{.feedUrl = defaults.stringForKey(settings::keys::updateFeedUrl),
                                .currentVersion = JORVANE_VERSION},
        [&alerts, &urls](const UpdateOffer& offer) {
            UpdateAlert::offer(alerts, offer, JORVANE_VERSION, [&urls](const std::string& url) {
                if (!urls.openURL(url)) KMLogInDomain(KMLogLevelWarn, kLog, "cannot open %s", url.c_str());
            });
        });
    VJASWrapper& bridge = VJASWrapper::sharedVJASWrapper();

    // The folders visited, so that a few words of a path can go back to one.
    places::VisitedFolders visitedFolders({
        .remembering = [&defaults] { return defaults.boolForKey(settings::keys::rememberVisitedFolders); },
        .warn = [](const std::string& warning) { KMLogInDomain(KMLogLevelWarn, kLog, "%s", warning.c_str()); },
    });
    visitedFolders.load();

    JorvaneAppDelegate* running = nullptr;
    ui::QtApplication application([&running] {
        if (running) running->applicationDidResignActive();
    });

    auto makeController = [&](AXUIElementRef axWindow, PathWindowDelegate& delegate) {
        const std::uint32_t window = clientWindowOf(axWindow);
        ui::QtPathWindow qt = ui::makePathWindowViews();
        qt.views.panel = std::make_unique<WiredPanel>(std::move(qt.views.panel), catalogue, window);
        auto controller = std::make_unique<PathWindowController>(
            std::move(axWindow), std::move(qt.views),
            PathWindowController::Dependencies{bridge, defaults, files, screens, delegate, {}, &visitedFolders});
        ui::connectToController(*qt.events, *controller);
        // The bar had the keyboard: it goes back to the Thunar window.
        qt.events->didOrderOut = [&fileManager, window] { fileManager.activateWindow(window); };
        return controller;
    };

    // The welcome of a first launch, with the offer to move an unpacked
    // release into the applications folder (JORVANE_APPLICATIONS_FOLDER
    // names another one than /opt, for trying the move without privileges).
    LinuxBundleServices bundleServices;
    auto firstLaunch = [&] {
        const PlatformNames names = withRecordedHotKey(PlatformNames{}, defaults);
        const char* chosen = std::getenv("JORVANE_APPLICATIONS_FOLDER");
        const std::string local = chosen && *chosen == '/' ? chosen : "/opt";
        const MoveToApplications::Context move{
            .system = bundleServices,
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
            .offerMove = MoveToApplications::isOffered(installed, local),
            .localApplicationsDirectory = bundleServices.resolveLinks(local).value_or(std::string{}),
            .hasLoginItemWithPath = LoginItem::HasLoginItemWithPath,
            .installLoginItemWithPath = LoginItem::InstallLoginItemWithPath,
            .moveToApplications =
                [move] {
                    const MoveToApplications::Outcome outcome = MoveToApplications::moveToApplicationsAndRestart(move);
                    return outcome == MoveToApplications::Outcome::inBackground ||
                           outcome == MoveToApplications::Outcome::relaunched ||
                           outcome == MoveToApplications::Outcome::handedOver;
                },
        });
    };

    // The preferences and about windows: a new one at each request. A change
    // in the preferences counts from the next event; the tap learns at once
    // which keys it may have to swallow.
    const std::shared_ptr<ui::X11KeyboardMap> preferencesKeys = ui::X11KeyboardMap::forApplication();
    auto openAbout = [&alerts, &application, ownExecutable, installed] {
        ui::AboutWindow::open(ui::AboutWindow::Dependencies{alerts, application, ownExecutable, installed,
                                                            JORVANE_VERSION, nullptr});
    };
    auto openPreferences = [&defaults, &alerts, &running, &visitedFolders, ownExecutable, preferencesKeys, openAbout] {
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
            .settingsDidChange =
                [&running] {
                    if (running) running->settingsDidChange();
                },
            .native = std::move(native),
            .fileManager = PlatformNames{}.fileManager,
            .forgetVisitedFolders = [&visitedFolders] { visitedFolders.forget(); },
        });
    };

    JorvaneAppDelegate delegate(JorvaneAppDelegate::Ports{
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
        .makeController = makeController,
        .firstLaunch = firstLaunch,
        .openPreferences = openPreferences,
        .about = openAbout,
        .names = PlatformNames{},
        .defaultPreferences = resources / settings::kDefaultPreferencesFileName,
        .version = JORVANE_VERSION,
        .folderShown = [&visitedFolders](const std::string& folder) { visitedFolders.visit(folder); },
    });
    running = &delegate;

    // settings.json edited by hand (the hot key, the activations) counts
    // from the next event; the tap must learn the keys it may swallow now.
    // A monitor plugged in or removed moves screens about: the bars go
    // rather than stay where a screen was; the next click opens them anew.
    QObject::connect(qApp, &QGuiApplication::screenAdded, [&delegate] { delegate.applicationDidResignActive(); });
    QObject::connect(qApp, &QGuiApplication::screenRemoved, [&delegate] { delegate.applicationDidResignActive(); });

    QFileSystemWatcher settingsWatcher;
    const std::filesystem::path settingsFolder = settings::settingsDirectory();
    std::error_code error;
    std::filesystem::create_directories(settingsFolder, error);
    if (!error) settingsWatcher.addPath(QString::fromStdString(settingsFolder.string()));
    QObject::connect(&settingsWatcher, &QFileSystemWatcher::directoryChanged, [&defaults, &delegate] {
        defaults.reload();
        delegate.settingsDidChange();
    });

    delegate.applicationDidFinishLaunching();
    int status = 0;
    if (delegate.isTerminating() || application.terminateRequested()) {
        KMLogInDomain(KMLogLevelInfo, kLog, "launch ended the program");
        // Quit in the welcome is the user's choice, not a failure.
        status = delegate.userDeclinedLaunch() ? 0 : 1;
    } else {
        // Later starts are heard once the launch is done (one that came
        // during the welcome waits until now). The notifier rests while an
        // alert is up, so that alerts do not pile up inside each other.
        std::unique_ptr<QSocketNotifier> reopens;
        if (instances.listeningDescriptor() >= 0) {
            reopens = std::make_unique<QSocketNotifier>(instances.listeningDescriptor(), QSocketNotifier::Read);
            QObject::connect(reopens.get(), &QSocketNotifier::activated, [&instances, &delegate, &reopens] {
                reopens->setEnabled(false);
                const SingleInstance::Requests requests{
                    .reopen = [&delegate] { delegate.applicationShouldHandleReopen(); },
                    .openPreferences = [&delegate] { delegate.openPreferences(); },
                    .quit = [] { QApplication::quit(); },
                };
                while (const std::optional<std::string> message = instances.takeMessage())
                    SingleInstance::received(*message, requests);
                reopens->setEnabled(true);
            });
        }
        // Started with --preferences and none running: this one opens them.
        if (command.action == commandline::Action::preferences) delegate.openPreferences();
        if (delegate.finderPid() > 0)
            KMLogInDomain(KMLogLevelInfo, kLog, "running beside Thunar (process %d)", delegate.finderPid());
        else
            KMLogInDomain(KMLogLevelInfo, kLog, "running beside Thunar once it starts");
        status = QApplication::exec();
    }
    // The last visits reach the disk before the program goes.
    visitedFolders.flush();

    running = nullptr;
    // Everything goes in reverse order: the delegate (tap, observer, bars)
    // first, then the adapters, then the process-wide installations.
    return status;
}
