#include "Desktop.h"

#include <poll.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <thread>

#include "ProcessSweep.h"
#include "XTestClient.h"
#include "platform/thunar/ThunarText.h"

extern char** environ;

namespace jorvane::e2e {

namespace fs = std::filesystem;

namespace {

constexpr milliseconds kStartTimeout{20000};  // for each program of the desktop to come up

std::unique_ptr<Desktop>& sharedInstance() {
    static std::unique_ptr<Desktop> instance;
    return instance;
}

std::string& sharedError() {
    static std::string error;
    return error;
}

// Reads one line from a descriptor within the time-out; nothing when none came whole.
std::optional<std::string> readLine(int fd, milliseconds timeout) {
    std::string line;
    char c = 0;
    pollfd entry{fd, POLLIN, 0};
    for (const auto deadline = Clock::now() + timeout; Clock::now() < deadline;) {
        if (poll(&entry, 1, 20) <= 0) continue;
        const ssize_t n = read(fd, &c, 1);
        if (n < 0 && errno == EINTR) continue;
        if (n != 1) break;
        if (c == '\n') return line;
        line.push_back(c);
    }
    return std::nullopt;
}

}  // namespace

bool waitUntil(const std::function<bool()>& condition, milliseconds timeout, milliseconds interval) {
    const auto deadline = Clock::now() + timeout;
    for (;;) {
        if (condition()) return true;
        if (Clock::now() >= deadline) return false;
        std::this_thread::sleep_for(interval);
    }
}

// ---- Life cycle

Desktop::Desktop(DesktopOptions options) : options_(std::move(options)) {
    try {
        start();
    } catch (...) {
        stop();
        throw;
    }
}

Desktop::~Desktop() { stop(); }

Desktop& Desktop::shared() {
    std::unique_ptr<Desktop>& instance = sharedInstance();
    if (instance) return *instance;
    if (!sharedError().empty()) throw std::runtime_error(sharedError());
    try {
        instance = std::make_unique<Desktop>();
    } catch (const std::exception& error) {
        sharedError() = error.what();
        throw;
    }
    return *instance;
}

Desktop* Desktop::sharedIfRunning() { return sharedInstance().get(); }

void Desktop::stopShared() { sharedInstance().reset(); }

void Desktop::start() {
    std::string pattern = (fs::temp_directory_path() / "jorvane-e2e-XXXXXX").string();
    if (!mkdtemp(pattern.data())) throw std::runtime_error("cannot create the temporary folder");
    root_ = pattern;
    marker_ = root_.filename().string();
    for (const char* dir : {"home", "home/.config", "home/.cache", "home/.local/share", "run", "data"})
        fs::create_directories(root_ / dir);
    fs::permissions(root_ / "run", fs::perms::owner_all, fs::perm_options::replace);
#ifdef JORVANE_E2E_OUTPUT_DIR
    outputDir_ = JORVANE_E2E_OUTPUT_DIR;
#else
    outputDir_ = root_ / "output";
#endif
    fs::create_directories(outputDir_);

    startReaper();
    setSessionFolders();
    startXvfb();
    setVariable("DISPLAY", display_);
    setVariable("DBUS_SESSION_BUS_ADDRESS", startSessionBus());
    startAccessibilityBus();
    startWindowManager();
    configureThunar();
    if (options_.startThunar) startThunar();
}

void Desktop::stop() {
    if (stopped_) return;
    stopped_ = true;
    for (auto it = atStop_.rbegin(); it != atStop_.rend(); ++it) (*it)();
    atStop_.clear();
    x_.reset();
    // Thunar first, so that it does not see its services vanish; then the
    // rest in reverse start order, and everything D-Bus started for us.
    std::vector<pid_t> order(pids_.rbegin(), pids_.rend());
    if (thunarPid_ > 0) {
        stopSessionProcesses({thunarPid_}, {}, {getpid(), reaperPid_}, milliseconds(2000));
    }
    stopSessionProcesses(order, marker_, {getpid(), reaperPid_}, milliseconds(3000));
    restoreProcessEnvironment();
    if (reaperPipe_ >= 0) {
        close(reaperPipe_);  // the reaper finds nothing left and ends
        reaperPipe_ = -1;
    }
    if (reaperPid_ > 0) {
        const auto deadline = Clock::now() + milliseconds(5000);
        while (waitpid(reaperPid_, nullptr, WNOHANG) == 0 && Clock::now() < deadline)
            std::this_thread::sleep_for(milliseconds(10));
        if (processAlive(reaperPid_)) {
            kill(reaperPid_, SIGKILL);
            waitpid(reaperPid_, nullptr, 0);
        }
        reaperPid_ = -1;
    }
    removeSessionRoot(root_);
}

// ---- Processes

std::vector<std::string> Desktop::childEnvironment() const {
    static const std::vector<std::string> dropped = {
        "NO_AT_BRIDGE", "AT_SPI_BUS_ADDRESS", "SESSION_MANAGER", "WAYLAND_DISPLAY",     "LC_ALL",
        "LANGUAGE",     "XDG_SESSION_TYPE",   "XAUTHORITY",      "DESKTOP_AUTOSTART_ID"};
    std::vector<std::string> env;
    for (char** entry = environ; entry && *entry; ++entry) {
        const std::string text = *entry;
        const std::string name = text.substr(0, text.find('='));
        if (std::find(dropped.begin(), dropped.end(), name) != dropped.end()) continue;
        if (name == "LANG" || name == "GDK_BACKEND") continue;
        env.push_back(text);
    }
    // English texts and UTF-8 file names, whatever the machine's locale.
    env.push_back("LANG=C.UTF-8");
    env.push_back("GDK_BACKEND=x11");
    return env;
}

void Desktop::track(pid_t pid) {
    pids_.push_back(pid);
    if (reaperPipe_ >= 0) {
        const std::string line = std::to_string(pid) + "\n";
        [[maybe_unused]] const ssize_t written = write(reaperPipe_, line.data(), line.size());
    }
}

pid_t Desktop::spawnWithPipe(const std::vector<std::string>& argv, const std::string& logName, int* readEnd,
                             const std::optional<fs::path>& workingDirectory,
                             const std::vector<std::string>& environment) {
    std::optional<subprocess::Pipe> pipe;
    if (readEnd && !(pipe = subprocess::openPipe())) throw std::runtime_error("pipe failed");
    subprocess::SpawnOptions options;
    options.environment = childEnvironment();
    for (const std::string& change : environment) {
        const std::string name = change.substr(0, change.find('=')) + "=";
        std::erase_if(*options.environment, [&](const std::string& entry) { return entry.starts_with(name); });
        if (change.size() >= name.size()) options.environment->push_back(change);
    }
    options.workingDirectory = workingDirectory;
    options.outputFile = outputDir_ / (logName + ".log");
    if (pipe) options.descriptor3 = pipe->writeEnd;
    // A session of its own (the default): the terminal's signals are for the tests.
    std::string error;
    const std::optional<int> pid = subprocess::spawn(argv, options, &error);
    if (pipe) close(pipe->writeEnd);
    if (!pid) {
        if (pipe) close(pipe->readEnd);
        throw std::runtime_error("cannot start " + (argv.empty() ? std::string("nothing") : argv.front()) + ": " +
                                 error);
    }
    track(*pid);
    if (readEnd) *readEnd = pipe->readEnd;
    return *pid;
}

pid_t Desktop::spawn(const std::vector<std::string>& argv, const std::string& logName,
                     const std::optional<fs::path>& workingDirectory, const std::vector<std::string>& environment) {
    return spawnWithPipe(argv, logName, nullptr, workingDirectory, environment);
}

RunResult Desktop::run(const std::vector<std::string>& argv, milliseconds timeout) {
    subprocess::RunOptions options;
    options.environment = childEnvironment();
    options.outputLimit = 16 * 1024 * 1024;
    options.grace = milliseconds(0);
    return subprocess::run(argv, timeout, options);
}

void Desktop::stopProcess(pid_t pid, milliseconds grace) {
    stopSessionProcesses({pid}, {}, {getpid(), reaperPid_}, grace);
    if (pid == thunarPid_) thunarPid_ = -1;
}

bool Desktop::suspend(pid_t pid) { return pid > 1 && kill(pid, SIGSTOP) == 0; }

bool Desktop::resume(pid_t pid) { return pid > 1 && kill(pid, SIGCONT) == 0; }

// ---- Start-up steps

void Desktop::startReaper() {
#ifdef JORVANE_E2E_REAPER
    std::optional<subprocess::Pipe> pipe = subprocess::openPipe();
    if (!pipe) throw std::runtime_error("pipe failed");
    subprocess::SpawnOptions options;
    options.input = pipe->readEnd;
    options.outputFile = outputDir_ / "reaper.log";
    std::string error;
    const std::optional<int> pid = subprocess::spawn({JORVANE_E2E_REAPER, marker_, root_.string()}, options, &error);
    close(pipe->readEnd);
    if (!pid) {
        close(pipe->writeEnd);
        throw std::runtime_error("cannot start the reaper: " + error);
    }
    reaperPid_ = *pid;
    reaperPipe_ = pipe->writeEnd;
#endif
}

void Desktop::startXvfb() {
    int readEnd = -1;
    // -displayfd: Xvfb picks a free display itself and says which.
    spawnWithPipe({"Xvfb", "-displayfd", "3", "-screen", "0", "1280x800x24", "-nolisten", "tcp", "-noreset"}, "xvfb",
                  &readEnd);
    std::optional<std::string> number = readLine(readEnd, kStartTimeout);
    close(readEnd);
    if (!number || number->empty()) throw std::runtime_error("Xvfb did not start");
    display_ = ":" + *number;
    x_ = std::make_unique<XTestClient>(display_);
}

std::string Desktop::startSessionBus() {
    int readEnd = -1;
    const std::string address = "unix:path=" + (root_ / "run" / "bus").string();
    spawnWithPipe({"dbus-daemon", "--session", "--nofork", "--nopidfile", "--address=" + address, "--print-address=3"},
                  "dbus-session", &readEnd);
    std::optional<std::string> printed = readLine(readEnd, kStartTimeout);
    close(readEnd);
    if (!printed || printed->empty()) throw std::runtime_error("the D-Bus session bus did not start");
    return *printed;
}

void Desktop::setVariable(const std::string& name, const std::optional<std::string>& value) {
    const char* old = std::getenv(name.c_str());
    savedEnvironment_.emplace_back(name, old ? std::optional<std::string>(old) : std::nullopt);
    if (value)
        setenv(name.c_str(), value->c_str(), 1);
    else
        unsetenv(name.c_str());
}

void Desktop::setSessionFolders() {
    // Before any program starts: D-Bus hands its own environment to the
    // services it activates (xfconfd writes its settings under XDG_CONFIG_HOME).
    setVariable("HOME", home().string());
    setVariable("XDG_CONFIG_HOME", (home() / ".config").string());
    setVariable("XDG_CACHE_HOME", (home() / ".cache").string());
    setVariable("XDG_DATA_HOME", (home() / ".local/share").string());
    setVariable("XDG_RUNTIME_DIR", (root_ / "run").string());
    // Programs that the code under test starts belong to the desktop too.
    setVariable(kSessionMarkerVariable, marker_);
    // GTK's accessibility bridge must load, and find the bus on its own.
    setVariable("NO_AT_BRIDGE", std::nullopt);
    setVariable("AT_SPI_BUS_ADDRESS", std::nullopt);
    setVariable("DBUS_SESSION_BUS_ADDRESS", std::nullopt);
}

void Desktop::restoreProcessEnvironment() {
    for (auto it = savedEnvironment_.rbegin(); it != savedEnvironment_.rend(); ++it) {
        if (it->second)
            setenv(it->first.c_str(), it->second->c_str(), 1);
        else
            unsetenv(it->first.c_str());
    }
    savedEnvironment_.clear();
}

bool Desktop::nameHasOwner(const std::string& name) {
    RunResult result = run({"dbus-send", "--session", "--print-reply", "--dest=org.freedesktop.DBus",
                            "/org/freedesktop/DBus", "org.freedesktop.DBus.NameHasOwner", "string:" + name},
                           milliseconds(3000));
    return result.exitCode == 0 && result.output.find("boolean true") != std::string::npos;
}

void Desktop::startAccessibilityBus() {
    // GTK's accessibility bridge asks the session bus for org.a11y.Bus and
    // talks to the registry on the bus that the launcher starts. Starting the
    // launcher ourselves (rather than through activation) gives its pid and
    // has the bus up before Thunar.
    const fs::path launcher = "/usr/libexec/at-spi-bus-launcher";
    if (!fs::exists(launcher)) throw std::runtime_error("at-spi-bus-launcher is missing (install at-spi2-core)");
    spawn({launcher.string(), "--launch-immediately"}, "at-spi-bus-launcher");
    const bool up =
        waitUntil([this] { return x_->hasProperty(x_->root(), "AT_SPI_BUS"); }, kStartTimeout, milliseconds(20));
    if (!up || !nameHasOwner("org.a11y.Bus")) throw std::runtime_error("the accessibility bus did not start");
}

void Desktop::startWindowManager() {
    if (options_.windowManager.empty()) return;
    std::vector<std::string> argv;
    if (options_.windowManager == "openbox")
        argv = {"openbox", "--sm-disable"};
    else if (options_.windowManager == "xfwm4")
        argv = {"xfwm4", "--compositor=off", "--sm-client-disable"};
    else
        throw std::runtime_error("unknown window manager " + options_.windowManager);
    spawn(argv, options_.windowManager);
    const bool up = waitUntil([this] { return x_->values(x_->root(), "_NET_SUPPORTING_WM_CHECK").size() == 1; },
                              kStartTimeout, milliseconds(20));
    if (!up) throw std::runtime_error(options_.windowManager + " did not start");
}

void Desktop::configureThunar() {
    if (!options_.startThunar) return;
    // xfconfd starts through D-Bus activation on our bus, with our XDG folders.
    if (!setXfconf("thunar", "/misc-full-path-in-window-title", "bool", "true") ||
        xfconf("thunar", "/misc-full-path-in-window-title") != "true")
        throw std::runtime_error("xfconf cannot be reached on the private bus");
}

void Desktop::startThunar(const std::optional<fs::path>& folder) {
    thunarPid_ = spawn(
        folder ? std::vector<std::string>{"thunar", folder->string()} : std::vector<std::string>{"thunar", "--daemon"},
        "thunar");
    const bool up = waitUntil([this] { return nameHasOwner("org.xfce.FileManager"); }, kStartTimeout, milliseconds(50));
    if (!up) throw std::runtime_error("Thunar did not take org.xfce.FileManager");
}

void Desktop::restartThunar() {
    stopThunar();
    startThunar();
}

void Desktop::stopThunar(bool crash) {
    if (thunarPid_ > 0) {
        if (crash) kill(thunarPid_, SIGKILL);
        stopProcess(thunarPid_);
        thunarPid_ = -1;
    }
    waitUntil([this] { return !nameHasOwner("org.xfce.FileManager"); }, milliseconds(5000), milliseconds(50));
}

// ---- X11

std::vector<std::uint32_t> Desktop::clientWindows() { return x_ ? x_->clientList() : std::vector<std::uint32_t>{}; }
std::string Desktop::title(std::uint32_t window) { return x_ ? x_->title(window) : std::string(); }
std::string Desktop::wmClass(std::uint32_t window) { return x_ ? x_->wmClass(window) : std::string(); }
std::optional<pid_t> Desktop::windowPid(std::uint32_t window) { return x_ ? x_->pid(window) : std::nullopt; }
std::optional<WindowGeometry> Desktop::geometry(std::uint32_t window) {
    return x_ ? x_->geometry(window) : std::nullopt;
}
std::uint32_t Desktop::activeWindow() { return x_ ? x_->activeWindow() : 0; }

std::vector<std::uint32_t> Desktop::thunarWindows() {
    std::vector<std::uint32_t> windows;
    for (std::uint32_t window : clientWindows())
        if (wmClass(window) == "Thunar") windows.push_back(window);
    return windows;
}

std::optional<std::uint32_t> Desktop::waitForWindow(const std::function<bool(std::uint32_t)>& predicate,
                                                    milliseconds timeout) {
    std::optional<std::uint32_t> found;
    waitUntil(
        [&] {
            for (std::uint32_t window : clientWindows()) {
                if (predicate(window)) {
                    found = window;
                    return true;
                }
            }
            return false;
        },
        timeout, milliseconds(20));
    return found;
}

std::optional<std::uint32_t> Desktop::openThunarWindow(const fs::path& folder, milliseconds timeout) {
    const std::vector<std::uint32_t> before = thunarWindows();
    const RunResult client = run({"thunar", folder.string()}, timeout);
    if (client.exitCode != 0) return std::nullopt;
    return waitForWindow(
        [&](std::uint32_t window) {
            if (std::find(before.begin(), before.end(), window) != before.end()) return false;
            if (wmClass(window) != "Thunar") return false;
            if (thunarPid_ > 0 && windowPid(window) != thunarPid_) return false;
            // Paths that are not UTF-8 appear as escaped file:// URIs: Thunar's own reading of its titles.
            return thunar::folderFromTitle(title(window)) == folder.string();
        },
        timeout);
}

bool Desktop::waitForWindowGone(std::uint32_t window, milliseconds timeout) {
    return waitUntil(
        [&] {
            const std::vector<std::uint32_t> windows = clientWindows();
            return std::find(windows.begin(), windows.end(), window) == windows.end();
        },
        timeout, milliseconds(20));
}

bool Desktop::waitForTitle(std::uint32_t window, const std::string& expected, milliseconds timeout) {
    return waitUntil([&] { return title(window) == expected; }, timeout, milliseconds(5));
}

bool Desktop::activate(std::uint32_t window, milliseconds timeout) {
    if (!x_) return false;
    x_->activate(window);
    return waitUntil([&] { return activeWindow() == window; }, timeout, milliseconds(10));
}

bool Desktop::closeWindow(std::uint32_t window, milliseconds timeout) {
    if (!x_) return false;
    x_->close(window);
    return waitForWindowGone(window, timeout);
}

void Desktop::closeThunarWindows() {
    for (std::uint32_t window : thunarWindows()) closeWindow(window, milliseconds(3000));
}

bool Desktop::screenshot(const fs::path& file) {
    std::error_code error;
    fs::create_directories(file.parent_path(), error);
    return run({"import", "-display", display_, "-window", "root", file.string()}, milliseconds(15000)).exitCode == 0;
}

bool Desktop::setXfconf(const std::string& channel, const std::string& property, const std::string& type,
                        const std::string& value) {
    return run({"xfconf-query", "-c", channel, "-p", property, "-n", "-t", type, "-s", value}, milliseconds(5000))
               .exitCode == 0;
}

std::optional<std::string> Desktop::xfconf(const std::string& channel, const std::string& property) {
    RunResult result = run({"xfconf-query", "-c", channel, "-p", property}, milliseconds(5000));
    if (result.exitCode != 0) return std::nullopt;
    while (!result.output.empty() && result.output.back() == '\n') result.output.pop_back();
    return result.output;
}

}  // namespace jorvane::e2e
