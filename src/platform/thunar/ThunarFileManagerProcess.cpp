#include "platform/thunar/ThunarFileManagerProcess.h"
#include "platform/linux/ExternalPrograms.h"

#include <gio/gio.h>
#include <xcb/xcb.h>

#include <algorithm>
#include <cctype>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <thread>

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "platform/thunar/ThunarProcess.h"
#include "platform/thunar/ThunarText.h"
#include "platform/x11/X11Windows.h"
#include "util/Diagnostics.h"
#include "util/FileSystemProbe.h"

namespace jorvane {

namespace {

constexpr const char* kLog = "ThunarProcess";
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

std::string lowered(std::string_view text) {
    std::string out(text);
    std::transform(out.begin(), out.end(), out.begin(), [](unsigned char c) { return std::tolower(c); });
    return out;
}

std::string trimmed(std::string text) {
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back()))) text.pop_back();
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.front()))) text.erase(text.begin());
    return text;
}

// The process's state letter from /proc (R, S, Z ...); nothing when it is gone.
std::optional<char> processState(std::int32_t pid) {
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
    if (!stat) return std::nullopt;
    std::string line;
    std::getline(stat, line);
    // The name in parentheses may hold anything; the state follows the last ")".
    const std::size_t close = line.rfind(')');
    if (close == std::string::npos || close + 2 >= line.size()) return std::nullopt;
    return line[close + 2];
}

std::vector<std::string> commandLine(std::int32_t pid) {
    std::ifstream file("/proc/" + std::to_string(pid) + "/cmdline", std::ios::binary);
    std::vector<std::string> args;
    std::string arg;
    while (std::getline(file, arg, '\0')) args.push_back(arg);
    return args;
}

// A folder that does not say within half a second that it is one (a network
// folder whose server went away) counts as none: the relaunch must not wait.
bool isDirectory(const std::string& path) {
    return FileSystemProbe::isDirectory(path, std::chrono::milliseconds(500)).value_or(false);
}

std::filesystem::path homeFolder() {
    if (const char* home = std::getenv("HOME"); home && *home == '/') return home;
    return "/";
}

// Whether asking the session bus can start nothing: GIO launches a bus of its
// own (dbus-launch) when it finds no address.
bool sessionBusKnown() {
    if (const char* address = std::getenv("DBUS_SESSION_BUS_ADDRESS"); address && *address) return true;
    const char* runtime = std::getenv("XDG_RUNTIME_DIR");
    if (!runtime || !*runtime) return false;
    std::error_code error;
    return std::filesystem::exists(std::filesystem::path(runtime) / "bus", error);
}

}  // namespace

ThunarFileManagerProcess::ThunarFileManagerProcess() : ThunarFileManagerProcess(Options{}) {}

ThunarFileManagerProcess::ThunarFileManagerProcess(Options options) : options_(std::move(options)) {}

// Waits for a process to end on a pidfd, beside an eventfd that cancels the wait.
class ThunarFileManagerProcess::EndWatch {
public:
    EndWatch(std::int32_t pid, std::function<void()> ended) {
        const int pidFd = static_cast<int>(::syscall(SYS_pidfd_open, pid, 0));
        cancel_ = ::eventfd(0, EFD_CLOEXEC);
        if (pidFd < 0 || cancel_ < 0) {
            if (pidFd >= 0) ::close(pidFd);
            log::inDomain(log::Warn, kLog, "cannot watch process %d for its end: %s", pid, std::strerror(errno));
            return;
        }
        thread_ = std::thread([pidFd, cancel = cancel_, ended = std::move(ended)] {
            pollfd fds[2] = {{pidFd, POLLIN, 0}, {cancel, POLLIN, 0}};
            while (::poll(fds, 2, -1) < 0 && errno == EINTR) {
            }
            const bool processEnded = (fds[0].revents & POLLIN) && !(fds[1].revents & POLLIN);
            ::close(pidFd);
            if (processEnded && ended) ended();
        });
    }
    ~EndWatch() {
        if (cancel_ >= 0) {
            const std::uint64_t one = 1;
            [[maybe_unused]] const ssize_t n = ::write(cancel_, &one, sizeof one);
        }
        if (thread_.joinable()) thread_.join();
        if (cancel_ >= 0) ::close(cancel_);
    }
    EndWatch(const EndWatch&) = delete;
    EndWatch& operator=(const EndWatch&) = delete;

private:
    int cancel_ = -1;
    std::thread thread_;
};

ThunarFileManagerProcess::~ThunarFileManagerProcess() = default;

void ThunarFileManagerProcess::watchEnd(std::int32_t pid, std::function<void()> ended) {
    endWatch_.reset();
    if (pid > 0) endWatch_ = std::make_unique<EndWatch>(pid, std::move(ended));
}

x11::XcbDisplay* ThunarFileManagerProcess::displayLocked() {
    if (display_ && display_->hasError()) display_.reset();
    if (!display_) display_ = x11::XcbDisplay::connect(options_.displayName);
    if (!display_) return nullptr;
    // Events nobody selected still come (MappingNotify): drop them.
    while (xcb_generic_event_t* event = xcb_poll_for_event(display_->connection())) std::free(event);
    return display_.get();
}

std::vector<ThunarFileManagerProcess::Client> ThunarFileManagerProcess::thunarWindows() {
    std::lock_guard lock(mutex_);
    std::vector<Client> found;
    x11::XcbDisplay* display = displayLocked();
    if (!display) return found;
    std::optional<std::vector<xcb_window_t>> stacking =
        x11::readWindowsProperty(*display, display->root(), display->atoms().netClientListStacking);
    if (!stacking || stacking->empty())
        stacking = x11::readWindowsProperty(*display, display->root(), display->atoms().netClientList);
    if (!stacking) return found;
    const std::vector<std::optional<x11::ClientProperties>> properties = x11::readClientProperties(*display, *stacking);
    // The stacking list runs bottom to top.
    for (std::size_t i = stacking->size(); i-- > 0;) {
        const std::optional<x11::ClientProperties>& client = properties[i];
        if (!client || lowered(client->wmClass) != "thunar") continue;
        if (client->type != x11::WindowType::Normal || client->transient) continue;
        found.push_back(Client{(*stacking)[i], client->pid, client->name});
    }
    return found;
}

std::int32_t ThunarFileManagerProcess::busOwnerPid() {
    if (!sessionBusKnown()) return 0;
    GError* error = nullptr;
    gchar* address = g_dbus_address_get_for_bus_sync(G_BUS_TYPE_SESSION, nullptr, &error);
    if (!address) {
        log::inDomain(log::Debug, kLog, "no session bus: %s", error ? error->message : "?");
        g_clear_error(&error);
        return 0;
    }
    // A connection of our own: the shared one would end the program when the
    // bus goes away.
    GDBusConnection* bus = g_dbus_connection_new_for_address_sync(
        address,
        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                          G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
        nullptr, nullptr, &error);
    g_free(address);
    if (!bus) {
        log::inDomain(log::Debug, kLog, "cannot reach the session bus: %s", error ? error->message : "?");
        g_clear_error(&error);
        return 0;
    }
    // NO_AUTO_START: D-Bus activation of Thunar hangs; only ask who owns it.
    GVariant* reply = g_dbus_connection_call_sync(
        bus, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "GetConnectionUnixProcessID",
        g_variant_new("(s)", std::string(kBusName).c_str()), G_VARIANT_TYPE("(u)"), G_DBUS_CALL_FLAGS_NO_AUTO_START,
        static_cast<gint>(options_.busTimeout.count()), nullptr, &error);
    std::int32_t pid = 0;
    if (reply) {
        guint32 value = 0;
        g_variant_get(reply, "(u)", &value);
        pid = static_cast<std::int32_t>(value);
        g_variant_unref(reply);
    } else {
        g_clear_error(&error);  // nobody owns the name
    }
    g_dbus_connection_close_sync(bus, nullptr, nullptr);
    g_object_unref(bus);
    return pid;
}

std::int32_t ThunarFileManagerProcess::runningApplicationPid() {
    for (const Client& client : thunarWindows())
        if (client.pid > 0 && processExists(client.pid)) return client.pid;
    // "thunar --daemon" runs without a window.
    const std::int32_t pid = busOwnerPid();
    return pid > 0 && processExists(pid) ? pid : 0;
}

bool ThunarFileManagerProcess::processExists(std::int32_t pid) {
    if (pid < 1) return false;
    if (kill(pid, 0) != 0 && errno != EPERM) return false;
    // A process that has ended but is not yet reaped by its parent is gone.
    const std::optional<char> state = processState(pid);
    return state && *state != 'Z' && *state != 'X';
}

bool ThunarFileManagerProcess::showsAllFiles() {
    const thunar::ProcessResult result = thunar::runProcess(
        {std::string(external::kXfconfQuery), "-c", "thunar", "-p", "/last-show-hidden"}, options_.commandTimeout);
    // Never set: xfconf-query fails, and Thunar hides them.
    return result.exitCode == 0 && trimmed(result.output) == "true";
}

void ThunarFileManagerProcess::setShowsAllFiles(bool show) {
    const thunar::ProcessResult result =
        thunar::runProcess({std::string(external::kXfconfQuery), "-c", "thunar", "-p", "/last-show-hidden", "-n", "-t",
                            "bool", "-s", show ? "true" : "false"},
                           options_.commandTimeout);
    if (result.exitCode != 0)
        log::inDomain(log::Warn, kLog, "cannot set thunar /last-show-hidden: %s",
                      result.started ? trimmed(result.output).c_str() : "xfconf-query cannot be started");
}

std::optional<std::string> ThunarFileManagerProcess::folderOfWindowTitle(std::string_view title) const {
    return thunar::folderFromTitle(title);
}

std::vector<std::string> ThunarFileManagerProcess::openFolders(std::int32_t pid) {
    std::vector<std::string> folders;
    for (const Client& client : thunarWindows()) {
        if (client.pid != pid) continue;
        if (std::optional<std::string> folder = thunar::folderFromTitle(client.title);
            folder && std::find(folders.begin(), folders.end(), *folder) == folders.end())
            folders.push_back(*folder);
    }
    return folders;
}

int ThunarFileManagerProcess::quitApplication(std::string_view bundleIdentifier) {
    const std::string identifier = lowered(bundleIdentifier);
    if (identifier != lowered(kIdentifier) && identifier != lowered(kBusName) && identifier != "thunar")
        return procNotFound;
    const std::int32_t pid = runningApplicationPid();
    if (pid < 1) return procNotFound;

    std::vector<std::string> folders = openFolders(pid);
    const std::vector<std::string> args = commandLine(pid);
    const bool daemon = std::find(args.begin(), args.end(), "--daemon") != args.end();
    {
        std::lock_guard lock(mutex_);
        reopen_ = std::move(folders);
        relaunchAsDaemon_ = daemon;
    }

    const thunar::ProcessResult result = thunar::runProcess({"thunar", "--quit"}, options_.commandTimeout);
    if (!result.started) {
        log::inDomain(log::Warn, kLog, "cannot start \"thunar --quit\"");
        return procNotFound;
    }
    if (result.timedOut) return errAETimeout;
    if (result.exitCode != 0)
        log::inDomain(log::Info, kLog, "\"thunar --quit\" answered %d: %s", result.exitCode,
                      trimmed(result.output).c_str());

    // Thunar saves its state before it goes: wait until the process is gone,
    // so that the next start does not hand its windows to the old one.
    const auto deadline = Clock::now() + options_.quitTimeout;
    while (processExists(pid)) {
        if (Clock::now() >= deadline) return errAETimeout;
        std::this_thread::sleep_for(milliseconds(20));
    }
    return noErr;
}

bool ThunarFileManagerProcess::launch() {
    std::vector<std::string> folders;
    bool daemon = false;
    {
        std::lock_guard lock(mutex_);
        folders.swap(reopen_);
        daemon = relaunchAsDaemon_;
        relaunchAsDaemon_ = false;
    }
    std::erase_if(folders, [](const std::string& folder) { return !isDirectory(folder); });
    const std::filesystem::path home = homeFolder();

    if (daemon) {
        if (!thunar::spawnDetached({"thunar", "--daemon"}, home)) {
            log::inDomain(log::Warn, kLog, "cannot start \"thunar --daemon\"");
            return false;
        }
        if (folders.empty()) return true;
        // The windows go to the daemon once it has its name.
        const auto deadline = Clock::now() + options_.commandTimeout;
        while (busOwnerPid() == 0 && Clock::now() < deadline) std::this_thread::sleep_for(milliseconds(50));
    }
    std::vector<std::string> argv = {"thunar"};
    if (folders.empty())
        argv.push_back(home.string());
    else
        argv.insert(argv.end(), folders.begin(), folders.end());
    if (!thunar::spawnDetached(argv, home)) {
        log::inDomain(log::Warn, kLog, "cannot start \"thunar\"");
        return false;
    }
    return true;
}

bool ThunarFileManagerProcess::bringToFront(std::int32_t pid) {
    for (const Client& client : thunarWindows())
        if (client.pid == pid) return activateWindow(client.window);
    return false;
}

// Straight, rather than through the window manager: a request to it waits
// in its queue, and one it handles late (on a loaded machine, after the user
// opened the next bar) would take the keyboard from that bar.
bool ThunarFileManagerProcess::giveKeyboardTo(std::uint32_t window) {
    if (window == 0) return false;
    {
        std::lock_guard lock(mutex_);
        x11::XcbDisplay* display = displayLocked();
        if (!display) return false;
        const xcb_void_cookie_t cookie =
            xcb_set_input_focus_checked(display->connection(), XCB_INPUT_FOCUS_POINTER_ROOT, window, XCB_CURRENT_TIME);
        xcb_generic_error_t* error = xcb_request_check(display->connection(), cookie);
        if (!error) return true;
        // Not showing (minimised, gone): the window manager decides.
        x11::logXError("SetInputFocus", window, error);
        std::free(error);
    }
    return activateWindow(window);
}

bool ThunarFileManagerProcess::activateWindow(std::uint32_t window) {
    if (window == 0) return false;
    std::lock_guard lock(mutex_);
    x11::XcbDisplay* display = displayLocked();
    if (!display) return false;
    xcb_client_message_event_t event{};
    event.response_type = XCB_CLIENT_MESSAGE;
    event.format = 32;
    event.window = window;
    event.type = display->atoms().netActiveWindow;
    event.data.data32[0] = 2;  // source indication: a pager, which window managers obey
    event.data.data32[1] = XCB_CURRENT_TIME;
    const xcb_void_cookie_t cookie =
        xcb_send_event_checked(display->connection(), 0, display->root(),
                               XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY,
                               reinterpret_cast<const char*>(&event));
    if (xcb_generic_error_t* error = xcb_request_check(display->connection(), cookie)) {
        x11::logXError("SendEvent(_NET_ACTIVE_WINDOW)", window, error);
        std::free(error);
        return false;
    }
    return true;
}

}  // namespace jorvane
