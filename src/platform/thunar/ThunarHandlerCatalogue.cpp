#include "platform/thunar/ThunarHandlerCatalogue.h"
#include "platform/ExternalPrograms.h"
#include "platform/GioServerMount.h"

#include <array>
#include <atomic>
#include <condition_variable>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <map>
#include <mutex>
#include <sys/stat.h>
#include <thread>

#include <glib-unix.h>
#include <gio/gio.h>
#include <glib.h>

#include "platform/thunar/ThunarAtspi.h"
#include "platform/thunar/ThunarProcess.h"
#include "platform/thunar/ThunarText.h"
#include "platform/thunar/ThunarX.h"
#include "util/Diagnostics.h"

namespace jorvane {

using namespace thunar;
namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

namespace {

constexpr const char* kLogDomain = "Thunar";
// The catalogue's own call behind selectedItems(); no handler of that name.
constexpr std::string_view kSelectedItemsCall = "#selected_items";
// Types a mounted server's address into the front window's location entry.
constexpr std::string_view kEnterLocationCall = "#enter_location";
constexpr std::uint32_t kKeysymL = 0x006c;
constexpr std::uint32_t kKeysymControlL = 0xffe3;

bool isDirectory(const std::string& path) {
    struct stat info {};
    return stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

bool exists(const std::string& path) {
    struct stat info {};
    return lstat(path.c_str(), &info) == 0;
}

std::string joinPath(const std::string& folder, const std::string& name) {
    if (folder.empty() || folder.back() == '/') return folder + name;
    return folder + "/" + name;
}

// Raw names of a folder's entries.
std::vector<std::string> entriesOf(const std::string& folder) {
    std::vector<std::string> names;
    std::error_code error;
    for (fs::directory_iterator it(folder, error), end; !error && it != end; it.increment(error))
        names.push_back(it->path().filename().string());
    return names;
}

// How many rows Thunar shows for a folder while hidden and backup files are
// hidden (its default).
std::size_t visibleEntryCount(const std::vector<std::string>& names) {
    std::size_t count = 0;
    for (const std::string& name : names)
        if (!name.empty() && name.front() != '.' && name.back() != '~') ++count;
    return count;
}

// The raw name of the entry Thunar displays as `displayed`.
std::optional<std::string> rawNameFor(const std::string& folder, const std::string& displayed) {
    if (isValidUtf8(displayed) && exists(joinPath(folder, displayed))) return displayed;
    for (const std::string& name : entriesOf(folder))
        if (displayedNameMatches(displayed, name)) return name;
    return std::nullopt;
}

// A path whose components Thunar displayed with U+FFFD in place of bytes
// that are not UTF-8, mapped back to the file system's bytes.
std::optional<std::string> resolveDisplayedPath(const std::string& displayed) {
    if (displayed.empty() || displayed.front() != '/') return std::nullopt;
    if (exists(displayed)) return displayed;
    std::string resolved;
    std::size_t start = 1;
    while (start <= displayed.size()) {
        std::size_t slash = displayed.find('/', start);
        if (slash == std::string::npos) slash = displayed.size();
        const std::string component = displayed.substr(start, slash - start);
        start = slash + 1;
        if (component.empty()) continue;
        const std::string parent = resolved.empty() ? "/" : resolved;
        std::optional<std::string> raw = rawNameFor(parent, component);
        if (!raw) return std::nullopt;
        resolved = joinPath(parent, *raw);
    }
    return resolved.empty() ? std::string("/") : resolved;
}

std::string expandHome(const std::string& text) {
    if (text == "~" || text.rfind("~/", 0) == 0) {
        const char* home = std::getenv("HOME");
        if (home && *home) return std::string(home) + text.substr(1);
    }
    return text;
}

// The folder of gvfs's local view ($XDG_RUNTIME_DIR/gvfs/...) that a server
// location stands for: Thunar names such a folder in its title by the
// server's address ("sftp://ann@host/srv") once its GIO knows the view.
// Nothing for other locations ("trash:///" is no folder of the view).
std::optional<std::string> serverLocationPath(std::string_view location) {
    static constexpr std::array<std::string_view, 12> kServerSchemes = {
        "sftp", "ssh", "ftp", "ftps", "smb", "dav", "davs", "afp", "nfs", "http", "https", "webdav"};
    const std::size_t end = location.find("://");
    if (end == std::string_view::npos) return std::nullopt;
    if (std::find(kServerSchemes.begin(), kServerSchemes.end(), location.substr(0, end)) == kServerSchemes.end())
        return std::nullopt;
    GFile* file = g_file_new_for_uri(std::string(location).c_str());
    char* path = g_file_get_path(file);
    std::optional<std::string> result;
    if (path && isDirectory(path)) result = path;
    g_free(path);
    g_object_unref(file);
    return result;
}

const std::map<std::string, ToolbarButton, std::less<>>& viewButtons() {
    // Thunar has no fourth view: Cover Flow was a list of the files under a
    // strip of large previews, so its closest relative is the Details view.
    static const std::map<std::string, ToolbarButton, std::less<>> buttons = {
        {"finder_iconview", ToolbarButton::IconView},
        {"finder_listview", ToolbarButton::ListView},
        {"finder_columnview", ToolbarButton::CompactView},
        {"finder_flowview", ToolbarButton::ListView},
    };
    return buttons;
}

ThunarView viewOfButton(ToolbarButton button) {
    switch (button) {
    case ToolbarButton::IconView: return ThunarView::Icon;
    case ToolbarButton::ListView: return ThunarView::Details;
    case ToolbarButton::CompactView: return ThunarView::Compact;
    case ToolbarButton::Reload: break;
    }
    return ThunarView::Unknown;
}

std::optional<ToolbarButton> buttonOfView(ThunarView view) {
    switch (view) {
    case ThunarView::Icon: return ToolbarButton::IconView;
    case ThunarView::Details: return ToolbarButton::ListView;
    case ThunarView::Compact: return ToolbarButton::CompactView;
    case ThunarView::Unknown: break;
    }
    return std::nullopt;
}

}  // namespace

// ---- The worker: one thread, one GLib main context, the X connection and
// libatspi. Calls arrive as jobs through g_main_context_invoke.

class ThunarHandlerCatalogue::Worker {
public:
    explicit Worker(const Options& options) : options_(options) {
        context_ = g_main_context_new();
        loop_ = g_main_loop_new(context_, FALSE);
        thread_ = std::thread([this] { run(); });
    }

    ~Worker() {
        stopping_.store(true);
        g_main_context_invoke_full(
            context_, G_PRIORITY_HIGH,
            [](gpointer loop) -> gboolean {
                g_main_loop_quit(static_cast<GMainLoop*>(loop));
                return G_SOURCE_REMOVE;
            },
            loop_, nullptr);
        thread_.join();
        g_main_loop_unref(loop_);
        // libatspi stays attached to the context it was given (it has no way
        // to let go), so a context that libatspi used lives on.
        if (!atspi_.isInitialised()) g_main_context_unref(context_);
    }

    std::optional<std::string> call(std::string_view name, const std::vector<std::string>& params,
                                    milliseconds timeout);

    std::atomic<std::uint32_t> front{0};

private:
    struct Call {
        std::string name;
        std::vector<std::string> params;
        Clock::time_point deadline;
        std::uint64_t serial = 0;
        // For a search-as-you-type reveal: the number of other calls that
        // had arrived when it was asked for.
        std::uint64_t othersBefore = 0;
        std::mutex mutex;
        std::condition_variable done;
        bool finished = false;
        std::optional<std::string> result;
    };

    struct Window {
        std::uint32_t xid = 0;
        int pid = 0;
        std::string title;
        WindowTraits traits;
    };

    void run();
    void execute(Call& call);
    std::optional<std::string> dispatch(Call& call);

    // Front window and its folder.
    void noteActive(std::uint32_t xid);
    std::optional<Window> frontWindow(bool browserOnly);
    std::optional<std::string> folderOf(const Window& window);
    bool useWindow(const Window& window);
    bool refreshTitle(Window& window);

    // Steps shared by the handlers.
    bool navigate(Window& window, const std::string& folder, Clock::time_point deadline);
    bool navigateUtf8(Window& window, const std::string& folder, Clock::time_point deadline);
    bool openLocationEntryWithKeys(Window& window, Clock::time_point deadline);
    bool openChildFolder(Window& window, const std::string& folder, const std::string& name, Clock::time_point deadline);
    bool waitForFolder(Window& window, const std::string& folder, Clock::time_point deadline);
    bool switchView(Window& window, ThunarView view, Clock::time_point deadline);
    // Puts the window back into the view it had, even for a call that is
    // being abandoned: a user must not be left in another view.
    void restoreView(Window& window, ThunarView view, Clock::time_point deadline);
    std::optional<DetailsTable> waitForTable(Clock::time_point deadline);
    // Rows of the table whose items have these raw names (in the order found).
    std::vector<int> findRows(DetailsTable& table, const std::string& folder, const std::vector<std::string>& names,
                              Clock::time_point deadline);
    bool selectItems(Window& window, const std::string& folder, const std::vector<std::string>& names, Clock::time_point deadline);
    std::optional<std::vector<std::string>> selectedNames(Window& window, const std::string& folder,
                                                          Clock::time_point deadline);

    // Handlers.
    std::optional<std::string> getPath(Call& call);
    std::optional<std::string> getSelection(Call& call);
    std::optional<std::string> isFinderWindow(Call& call);
    std::optional<std::string> setPath(Call& call);
    std::optional<std::string> reveal(Call& call);
    std::optional<std::string> revealInCurrent(Call& call);
    std::optional<std::string> select2(Call& call);
    std::optional<std::string> enterLocation(Call& call);
    std::optional<std::string> newWindow(Call& call);
    std::optional<std::string> closeWindow(Call& call);
    std::optional<std::string> reload(Call& call);
    std::optional<std::string> setView(Call& call, ToolbarButton button);
    std::optional<std::string> openTerminal(Call& call);

    std::optional<std::string> fail(const Call& call, const char* why) {
        KMLogInDomain(KMLogLevelWarn, kLogDomain, "%s: %s", call.name.c_str(), why);
        return std::nullopt;
    }
    // Past the deadline, or the running call is a reveal that a newer call
    // has taken the worker from.
    bool expired(Clock::time_point deadline) const {
        return Clock::now() >= deadline ||
               (!restoring_ && abandonedSerial_.load() != 0 && abandonedSerial_.load() == runningSerial_.load());
    }
    static void pause(milliseconds ms) { std::this_thread::sleep_for(ms); }
    bool ensureAtspi();

    Options options_;
    GMainContext* context_ = nullptr;
    GMainLoop* loop_ = nullptr;
    std::thread thread_;
    ThunarX x_;
    ThunarAtspi atspi_;
    bool atspiFailed_ = false;
    std::atomic<bool> stopping_{false};
    std::atomic<int> pending_{0};  // jobs queued and not yet done
    // Search-as-you-type reveals give way to every other call: pending ones
    // are dropped and a running one is abandoned at its next step.
    std::atomic<std::uint64_t> nextSerial_{0};
    std::atomic<std::uint64_t> otherCalls_{0};
    std::atomic<std::uint64_t> runningSerial_{0};
    std::atomic<bool> runningReveal_{false};
    std::atomic<std::uint64_t> abandonedSerial_{0};
    bool restoring_ = false;
};

void ThunarHandlerCatalogue::Worker::run() {
    g_main_context_push_thread_default(context_);
    GSource* xSource = nullptr;
    if (x_.open()) {
        // The window that is active now, unless the owner named one already.
        if (std::optional<std::uint32_t> active = x_.activeWindow()) {
            if (*active != 0 && isThunarBrowserWindow(x_.traits(*active))) {
                std::uint32_t none = 0;
                front.compare_exchange_strong(none, *active);
            }
        }
        xSource = g_unix_fd_source_new(x_.fileDescriptor(), G_IO_IN);
        GUnixFDSourceFunc onEvents = [](gint, GIOCondition, gpointer self) -> gboolean {
            auto* worker = static_cast<Worker*>(self);
            worker->x_.processEvents([worker](std::uint32_t xid) { worker->noteActive(xid); });
            // A broken connection stays readable: stop watching it.
            if (worker->x_.hasError()) {
                KMLogInDomain(KMLogLevelWarn, kLogDomain, "the X connection broke");
                return G_SOURCE_REMOVE;
            }
            return G_SOURCE_CONTINUE;
        };
        g_source_set_callback(xSource, G_SOURCE_FUNC(onEvents), this, nullptr);
        g_source_attach(xSource, context_);
    } else {
        KMLogInDomain(KMLogLevelWarn, kLogDomain, "cannot connect to the X display");
    }
    g_main_loop_run(loop_);
    if (xSource) {
        g_source_destroy(xSource);
        g_source_unref(xSource);
    }
    // Jobs still queued answer nothing at once and wake their callers (a
    // bounded number of rounds: Thunar's events may keep arriving).
    for (int round = 0; round < 1000 && pending_.load() > 0; ++round) g_main_context_iteration(context_, FALSE);
    g_main_context_pop_thread_default(context_);
}

std::optional<std::string> ThunarHandlerCatalogue::Worker::call(std::string_view name,
                                                               const std::vector<std::string>& params,
                                                               milliseconds timeout) {
    auto job = std::make_shared<Call>();
    job->name = std::string(name);
    job->params = params;
    job->deadline = Clock::now() + timeout;
    job->serial = nextSerial_.fetch_add(1) + 1;
    const bool reveal = job->name == "finder_reveal_in_current";
    if (reveal) {
        job->othersBefore = otherCalls_.load();
    } else {
        otherCalls_.fetch_add(1);
        if (runningReveal_.load()) abandonedSerial_.store(runningSerial_.load());
    }
    pending_.fetch_add(1);
    g_main_context_invoke_full(
        // Ahead of the reveals that wait.
        context_, reveal ? G_PRIORITY_DEFAULT : G_PRIORITY_HIGH,
        [](gpointer data) -> gboolean {
            auto& self = *static_cast<std::pair<Worker*, std::shared_ptr<Call>>*>(data);
            self.first->execute(*self.second);
            return G_SOURCE_REMOVE;
        },
        new std::pair<Worker*, std::shared_ptr<Call>>(this, job),
        [](gpointer data) {
            auto* self = static_cast<std::pair<Worker*, std::shared_ptr<Call>>*>(data);
            self->first->pending_.fetch_sub(1);
            // A job dropped without running still wakes its caller.
            {
                std::lock_guard lock(self->second->mutex);
                self->second->finished = true;
            }
            self->second->done.notify_all();
            delete self;
        });

    std::unique_lock lock(job->mutex);
    if (!job->done.wait_until(lock, job->deadline, [&] { return job->finished; })) {
        KMLogInDomain(KMLogLevelWarn, kLogDomain, "%s: no answer within %lld ms", job->name.c_str(),
                      static_cast<long long>(timeout.count()));
        return std::nullopt;
    }
    return job->result;
}

void ThunarHandlerCatalogue::Worker::execute(Call& call) {
    std::optional<std::string> result;
    const bool reveal = call.name == "finder_reveal_in_current";
    runningSerial_.store(call.serial);
    runningReveal_.store(reveal);
    // A call that came after this reveal was asked for has changed what
    // the user looks at: the reveal is stale.
    const bool stale = reveal && otherCalls_.load() != call.othersBefore;
    // A job whose caller gave up before it started is not run at all.
    if (!stale && !expired(call.deadline) && !stopping_.load()) result = dispatch(call);
    runningReveal_.store(false);
    runningSerial_.store(0);
    std::lock_guard lock(call.mutex);
    call.result = std::move(result);
    call.finished = true;
    call.done.notify_all();
}

std::optional<std::string> ThunarHandlerCatalogue::Worker::dispatch(Call& call) {
    const std::string& name = call.name;
    if (name == "finder_get_path") return getPath(call);
    if (name == "finder_get_selection" || name == kSelectedItemsCall) return getSelection(call);
    if (name == "is_finder_win") return isFinderWindow(call);
    if (name == "finder_set_path") return setPath(call);
    if (name == "finder_reveal") return reveal(call);
    if (name == "finder_reveal_in_current") return revealInCurrent(call);
    if (name == "finder_select2") return select2(call);
    if (name == kEnterLocationCall) return enterLocation(call);
    if (name == "finder_new_win") return newWindow(call);
    if (name == "close_finder_win") return closeWindow(call);
    if (name == "reload") return reload(call);
    if (name == "open_terminal") return openTerminal(call);
    if (auto view = viewButtons().find(name); view != viewButtons().end()) return setView(call, view->second);
    return fail(call, "no such handler");
}

bool ThunarHandlerCatalogue::Worker::ensureAtspi() {
    if (atspi_.isInitialised()) return true;
    if (atspiFailed_) return false;
    if (!atspi_.initialise(context_, options_.atspiCallTimeoutMs)) {
        atspiFailed_ = true;
        KMLogInDomain(KMLogLevelWarn, kLogDomain, "the accessibility bus cannot be reached");
        return false;
    }
    return true;
}

// ---- Front window

void ThunarHandlerCatalogue::Worker::noteActive(std::uint32_t xid) {
    // Openbox passes through 0 on every change, and our own panel takes the
    // focus while the bar is open: only Thunar's browser windows count.
    if (xid == 0 || !isThunarBrowserWindow(x_.traits(xid))) return;
    front.store(xid);
}

std::optional<ThunarHandlerCatalogue::Worker::Window> ThunarHandlerCatalogue::Worker::frontWindow(bool browserOnly) {
    if (!x_.isOpen()) return std::nullopt;
    x_.processEvents([this](std::uint32_t xid) { noteActive(xid); });
    auto describe = [this](std::uint32_t xid) {
        Window window;
        window.xid = xid;
        window.traits = x_.traits(xid);
        window.pid = x_.pid(xid).value_or(0);
        window.title = x_.title(xid).value_or("");
        return window;
    };
    const std::uint32_t remembered = front.load();
    if (remembered != 0 && x_.isManaged(remembered)) {
        Window window = describe(remembered);
        if (isThunarWindow(window.traits)) {
            if (browserOnly && !isThunarBrowserWindow(window.traits)) return std::nullopt;
            return window;
        }
    }
    std::vector<std::uint32_t> stacking = x_.clientListStacking();
    for (auto it = stacking.rbegin(); it != stacking.rend(); ++it) {
        Window window = describe(*it);
        if (isThunarBrowserWindow(window.traits)) return window;
    }
    return std::nullopt;
}

bool ThunarHandlerCatalogue::Worker::refreshTitle(Window& window) {
    std::optional<std::string> title = x_.title(window.xid);
    if (!title) return false;
    window.title = *title;
    return true;
}

bool ThunarHandlerCatalogue::Worker::useWindow(const Window& window) {
    if (!ensureAtspi() || window.pid == 0) return false;
    return atspi_.selectWindow(window.xid, window.pid, window.title, x_.frame(window.xid));
}

std::optional<std::string> ThunarHandlerCatalogue::Worker::folderOf(const Window& window) {
    if (std::optional<std::string> folder = folderFromTitle(window.title)) return folder;
    // A location that is not a local folder ("trash:///") has no path,
    // unless it is a server's folder in gvfs's local view.
    const std::string_view location = titleLocation(window.title);
    if (location.find("://") != std::string_view::npos) return serverLocationPath(location);
    // The title shows only the folder's name: read the location entry, unless
    // it holds something else (the user's typing, a failed location).
    if (!useWindow(window)) return std::nullopt;
    std::optional<std::string> text = atspi_.locationText();
    if (!text || text->empty() || text->front() != '/') return std::nullopt;
    std::optional<std::string> path = resolveDisplayedPath(withoutTrailingSlash(*text));
    if (!path || !isDirectory(*path)) return std::nullopt;
    std::optional<PathSplit> split = splitParent(*path);
    if (split && !displayedNameMatches(std::string(location), split->name)) return std::nullopt;
    return path;
}

// ---- Shared steps

bool ThunarHandlerCatalogue::Worker::waitForFolder(Window& window, const std::string& folder, Clock::time_point deadline) {
    const std::string wanted = withoutTrailingSlash(folder);
    std::error_code error;
    const fs::path canonical = fs::weakly_canonical(wanted, error);
    std::string mappedTitle;
    while (!expired(deadline)) {
        if (refreshTitle(window)) {
            std::optional<std::string> shown = folderFromTitle(window.title);
            // A server's folder may be named by its address: asked once per title.
            if (!shown && window.title != mappedTitle) {
                mappedTitle = window.title;
                shown = serverLocationPath(titleLocation(window.title));
            }
            if (shown && (*shown == wanted || (!error && fs::weakly_canonical(*shown, error) == canonical)))
                return true;
        }
        pause(milliseconds(2));
    }
    return false;
}

bool ThunarHandlerCatalogue::Worker::openLocationEntryWithKeys(Window& window, Clock::time_point deadline) {
    if (!options_.allowFocusFallback) return false;
    // The path-buttons location bar has no entry until Ctrl+L, which Thunar
    // takes only with the focus.
    if (x_.activeWindow() != window.xid) {
        x_.requestActivate(window.xid);
        while (x_.activeWindow() != window.xid) {
            if (expired(deadline)) return false;
            pause(milliseconds(5));
        }
    }
    // The user's own modifiers would change the key.
    while (x_.anyModifierDown()) {
        if (expired(deadline)) return false;
        pause(milliseconds(10));
    }
    if (!x_.sendKey(kKeysymL, {kKeysymControlL})) return false;
    while (!atspi_.hasLocationEntry()) {
        if (expired(deadline)) return false;
        pause(milliseconds(5));
    }
    return true;
}

bool ThunarHandlerCatalogue::Worker::navigateUtf8(Window& window, const std::string& folder, Clock::time_point deadline) {
    if (!useWindow(window)) return false;
    if (!atspi_.hasLocationEntry() && !openLocationEntryWithKeys(window, deadline)) return false;
    if (!atspi_.enterLocation(folder)) return false;
    return waitForFolder(window, folder, deadline);
}

bool ThunarHandlerCatalogue::Worker::navigate(Window& window, const std::string& folder, Clock::time_point deadline) {
    const std::string wanted = withoutTrailingSlash(folder);
    if (folderFromTitle(window.title) == wanted) return true;
    if (isValidUtf8(wanted)) return navigateUtf8(window, wanted, deadline);
    // D-Bus carries only UTF-8, and Thunar's entry takes no %-escapes: go to
    // the deepest folder whose path is UTF-8, then open each remaining
    // folder's row as a double click would.
    std::vector<std::string> components;
    std::string prefix = wanted;
    while (!isValidUtf8(prefix)) {
        std::optional<PathSplit> split = splitParent(prefix);
        if (!split) return false;
        components.insert(components.begin(), split->name);
        prefix = split->parent;
    }
    if (!navigate(window, prefix, deadline)) return false;
    std::string current = prefix;
    for (const std::string& name : components) {
        if (!openChildFolder(window, current, name, deadline)) return false;
        current = joinPath(current, name);
    }
    return true;
}

bool ThunarHandlerCatalogue::Worker::openChildFolder(Window& window, const std::string& folder,
                                                     const std::string& name, Clock::time_point deadline) {
    if (!useWindow(window)) return false;
    const ThunarView original = atspi_.currentView();
    if (original != ThunarView::Details && !switchView(window, ThunarView::Details, deadline)) return false;
    bool opened = false;
    if (std::optional<DetailsTable> table = waitForTable(deadline)) {
        std::vector<int> rows = findRows(*table, folder, {name}, deadline);
        if (!rows.empty() && table->clearSelection() && table->selectRow(rows.front()) &&
            table->activateRow(rows.front()))
            opened = waitForFolder(window, joinPath(folder, name), deadline);
    }
    if (original != ThunarView::Details && original != ThunarView::Unknown) {
        // Give the window its own view back, whatever happened.
        if (useWindow(window)) restoreView(window, original, deadline);
    }
    return opened;
}

bool ThunarHandlerCatalogue::Worker::switchView(Window& window, ThunarView view, Clock::time_point deadline) {
    std::optional<ToolbarButton> button = buttonOfView(view);
    if (!button) return false;
    if (atspi_.currentView() == view) return true;
    if (!atspi_.pressButton(*button)) return false;
    // The button's action runs in Thunar's idle time: wait for the new view.
    while (!expired(deadline)) {
        if (atspi_.currentView() == view) return true;
        pause(milliseconds(3));
    }
    (void)window;
    return false;
}

void ThunarHandlerCatalogue::Worker::restoreView(Window& window, ThunarView view, Clock::time_point deadline) {
    restoring_ = true;
    switchView(window, view, std::max(deadline, Clock::now() + milliseconds(500)));
    restoring_ = false;
}

std::optional<DetailsTable> ThunarHandlerCatalogue::Worker::waitForTable(Clock::time_point deadline) {
    while (!expired(deadline)) {
        if (std::optional<DetailsTable> table = atspi_.detailsTable()) return table;
        pause(milliseconds(3));
    }
    return std::nullopt;
}

std::vector<int> ThunarHandlerCatalogue::Worker::findRows(DetailsTable& table, const std::string& folder,
                                                          const std::vector<std::string>& names, Clock::time_point deadline) {
    const std::vector<std::string> entries = entriesOf(folder);
    const std::size_t expectedRows = visibleEntryCount(entries);
    std::vector<int> rows;
    int scannedCount = -1;
    // Thunar fills the view while it reads the folder: scan again while rows
    // keep coming and names are missing.
    while (!expired(deadline)) {
        const int count = table.rowCount();
        if (count != scannedCount) {
            scannedCount = count;
            rows.clear();
            std::vector<bool> found(names.size(), false);
            std::size_t foundCount = 0;
            for (int row = 0; row < count && foundCount < names.size() && !expired(deadline); ++row) {
                std::optional<std::string> shown = table.nameAt(row);
                if (!shown) continue;
                for (std::size_t i = 0; i < names.size(); ++i) {
                    if (!found[i] && displayedNameMatches(*shown, names[i])) {
                        found[i] = true;
                        ++foundCount;
                        rows.push_back(row);
                        break;
                    }
                }
            }
            if (foundCount == names.size()) return rows;
            // Everything Thunar shows is there; the rest is hidden.
            if (static_cast<std::size_t>(count) >= expectedRows) return rows;
        }
        pause(milliseconds(10));
    }
    return rows;
}

bool ThunarHandlerCatalogue::Worker::selectItems(Window& window, const std::string& folder,
                                                 const std::vector<std::string>& names, Clock::time_point deadline) {
    std::vector<std::string> present;
    for (const std::string& name : names)
        if (exists(joinPath(folder, name))) present.push_back(name);
    if (present.empty()) return false;
    if (!useWindow(window)) return false;
    const ThunarView original = atspi_.currentView();
    // AT-SPI sees the files only in the Details view. Switching back from it
    // makes Thunar scroll to the selection.
    if (original != ThunarView::Details && !switchView(window, ThunarView::Details, deadline)) return false;
    bool selected = false;
    if (std::optional<DetailsTable> table = waitForTable(deadline)) {
        std::vector<int> rows = findRows(*table, folder, present, deadline);
        if (!rows.empty() && table->clearSelection()) {
            selected = true;
            for (int row : rows) selected = table->selectRow(row) && selected;
            if (original == ThunarView::Details) table->scrollToRow(*std::min_element(rows.begin(), rows.end()));
        }
    }
    if (original != ThunarView::Details && original != ThunarView::Unknown) {
        restoreView(window, original, deadline);
    }
    return selected;
}

std::optional<std::vector<std::string>> ThunarHandlerCatalogue::Worker::selectedNames(Window& window,
                                                                                     const std::string& folder,
                                                                                     Clock::time_point deadline) {
    const ThunarView original = atspi_.currentView();
    if (original != ThunarView::Details) {
        // The status bar names a single selected item and shows the free
        // space when nothing is selected; for several items, or a text it
        // does not know, look at the Details view.
        auto startsWith = [](const std::string& text, const std::string& prefix) {
            return !prefix.empty() && text.rfind(prefix, 0) == 0;
        };
        auto contains = [](const std::string& text, const std::string& part) {
            return !part.empty() && text.find(part) != std::string::npos;
        };
        std::optional<std::string> status = atspi_.statusText();
        // Right after a change of folder or view Thunar says it is loading.
        while (status && !expired(deadline) &&
               (*status == ThunarAtspi::translated("Loading folder contents...") ||
                *status == "Loading folder contents...")) {
            pause(milliseconds(10));
            status = atspi_.statusText();
        }
        if (status && !startsWith(*status, ThunarAtspi::formatPrefix("Selection: %s")) &&
            !startsWith(*status, "Selection: ")) {
            if (std::optional<std::string> name = selectedNameFromStatus(*status, entriesOf(folder)))
                return std::vector<std::string>{*name};
            if (contains(*status, ThunarAtspi::formatPrefix("Free space: %s")) || contains(*status, "Free space: "))
                return std::vector<std::string>{};
        }
        if (!switchView(window, ThunarView::Details, deadline)) return std::nullopt;
    }
    std::optional<std::vector<std::string>> result;
    if (std::optional<DetailsTable> table = waitForTable(deadline)) {
        result.emplace();
        for (int row : table->selectedRows()) {
            std::optional<std::string> shown = table->nameAt(row);
            std::optional<std::string> raw = shown ? rawNameFor(folder, *shown) : std::nullopt;
            if (!raw) {
                result.reset();
                break;
            }
            result->push_back(*raw);
        }
    }
    if (original != ThunarView::Details && original != ThunarView::Unknown)
        restoreView(window, original, deadline);
    return result;
}

// ---- Handlers

std::optional<std::string> ThunarHandlerCatalogue::Worker::getPath(Call& call) {
    std::optional<Window> window = frontWindow(true);
    if (!window) return fail(call, "no Thunar browser window");
    std::optional<std::string> folder = folderOf(*window);
    if (!folder) return fail(call, "the window shows no local folder");
    return folder;
}

std::optional<std::string> ThunarHandlerCatalogue::Worker::getSelection(Call& call) {
    std::optional<Window> window = frontWindow(true);
    if (!window) return fail(call, "no Thunar browser window");
    std::optional<std::string> folder = folderOf(*window);
    if (!folder) return fail(call, "the window shows no local folder");
    if (!useWindow(*window)) return fail(call, "the window cannot be reached through AT-SPI");
    std::optional<std::vector<std::string>> names = selectedNames(*window, *folder, call.deadline);
    if (!names) return fail(call, "the selection cannot be read");
    // The first selected item (Thunar lists them in the view's order), or
    // every one, separated by NUL, for selectedItems().
    const bool all = call.name == kSelectedItemsCall;
    std::string answer;
    for (const std::string& name : *names) {
        std::string path = joinPath(*folder, name);
        if (isDirectory(path)) path += '/';
        if (!all) return path;
        answer += path;
        answer.push_back('\0');
    }
    return answer;
}

std::optional<std::string> ThunarHandlerCatalogue::Worker::isFinderWindow(Call&) {
    std::optional<Window> window = frontWindow(false);
    if (!window) return std::string("NO");
    return std::string(isThunarBrowserWindow(window->traits) ? "YES" : "NO");
}

std::optional<std::string> ThunarHandlerCatalogue::Worker::setPath(Call& call) {
    if (call.params.empty() || call.params.front().empty()) return fail(call, "no folder given");
    const std::string folder = withoutTrailingSlash(expandHome(call.params.front()));
    // A file in Thunar's location entry opens the file (and an error dialog
    // when nothing opens it), so only folders go there.
    if (folder.front() != '/' || !isDirectory(folder)) return fail(call, "not a folder");
    std::optional<Window> window = frontWindow(true);
    if (!window) return fail(call, "no Thunar browser window");
    if (!navigate(*window, folder, call.deadline)) return fail(call, "the window did not go to the folder");
    return std::string();
}

std::optional<std::string> ThunarHandlerCatalogue::Worker::reveal(Call& call) {
    if (call.params.empty()) return fail(call, "no path given");
    std::optional<PathSplit> split = splitParent(expandHome(call.params.front()));
    if (!split) return fail(call, "not an absolute path of an item");
    if (!exists(joinPath(split->parent, split->name))) return fail(call, "no such item");
    std::optional<Window> window = frontWindow(true);
    if (!window) return fail(call, "no Thunar browser window");
    if (!navigate(*window, split->parent, call.deadline)) return fail(call, "the window did not go to the folder");
    if (!selectItems(*window, split->parent, {split->name}, call.deadline)) return fail(call, "the item was not selected");
    return std::string();
}

std::optional<std::string> ThunarHandlerCatalogue::Worker::revealInCurrent(Call& call) {
    if (call.params.empty()) return fail(call, "no name given");
    const std::string name = withoutTrailingSlash(call.params.front());
    if (name.empty() || name.find('/') != std::string::npos || name == "." || name == "..")
        return fail(call, "not a plain name");
    std::optional<Window> window = frontWindow(true);
    if (!window) return fail(call, "no Thunar browser window");
    std::optional<std::string> folder = folderOf(*window);
    if (!folder) return fail(call, "the window shows no local folder");
    if (!selectItems(*window, *folder, {name}, call.deadline)) return fail(call, "the item was not selected");
    return std::string();
}

std::optional<std::string> ThunarHandlerCatalogue::Worker::select2(Call& call) {
    if (call.params.size() < 2) return fail(call, "needs a folder and a list of names");
    const std::string folder = withoutTrailingSlash(expandHome(call.params[0]));
    if (folder.empty() || folder.front() != '/' || !isDirectory(folder)) return fail(call, "not a folder");
    std::vector<std::string> names = splitItemList(call.params[1]);
    if (names.empty()) return fail(call, "no names given");
    std::optional<Window> window = frontWindow(true);
    if (!window) return fail(call, "no Thunar browser window");
    if (!navigate(*window, folder, call.deadline)) return fail(call, "the window did not go to the folder");
    if (!selectItems(*window, folder, names, call.deadline)) return fail(call, "the items were not selected");
    return std::string();
}

std::optional<std::string> ThunarHandlerCatalogue::Worker::enterLocation(Call& call) {
    if (call.params.empty() || !isValidUtf8(call.params.front())) return fail(call, "no address given");
    // Thunar opens a location that is mounted already without asking.
    std::optional<Window> window = frontWindow(true);
    if (!window) return fail(call, "no Thunar browser window");
    if (!useWindow(*window)) return fail(call, "the window cannot be reached through AT-SPI");
    if (!atspi_.hasLocationEntry() && !openLocationEntryWithKeys(*window, call.deadline))
        return fail(call, "the window has no location entry");
    if (!atspi_.enterLocation(call.params.front())) return fail(call, "the location was not entered");
    return std::string();
}

std::optional<std::string> ThunarHandlerCatalogue::Worker::newWindow(Call& call) {
    std::string text = call.params.empty() ? std::string() : expandHome(call.params.front());
    std::optional<Window> window = frontWindow(true);
    std::optional<std::string> current = window ? folderOf(*window) : std::nullopt;
    if (!text.empty() && text.front() != '/' && current) text = joinPath(*current, text);
    std::string folder;
    if (!text.empty() && text.front() == '/' && isDirectory(text)) {
        folder = withoutTrailingSlash(text);
    } else if (std::optional<PathSplit> split = splitParent(text); split && isDirectory(split->parent)) {
        folder = split->parent;
    } else if (current) {
        folder = *current;
    } else if (const char* home = std::getenv("HOME"); home && *home) {
        folder = home;
    } else {
        folder = "/";
    }
    // `thunar FOLDER` hands the folder to the running Thunar, which opens a
    // window and the client ends; with no Thunar running it becomes Thunar.
    std::optional<int> pid = spawnDetached({"thunar", folder});
    if (!pid) return fail(call, "thunar cannot be started");
    const auto left = std::chrono::duration_cast<milliseconds>(call.deadline - Clock::now());
    std::optional<int> code = waitForDetached(*pid, std::max(left - milliseconds(100), milliseconds(0)));
    if (code && *code != 0) return fail(call, "thunar refused the folder");
    return std::string();
}

std::optional<std::string> ThunarHandlerCatalogue::Worker::closeWindow(Call& call) {
    std::optional<Window> window = frontWindow(true);
    if (!window) return fail(call, "no Thunar browser window");
    // Never the process: one Thunar serves every window. A window with
    // several tabs asks first.
    if (!x_.requestClose(window->xid)) return fail(call, "the window manager refused");
    atspi_.forgetWindow(window->xid);
    front.compare_exchange_strong(window->xid, 0);
    return std::string();
}

std::optional<std::string> ThunarHandlerCatalogue::Worker::reload(Call& call) {
    std::optional<Window> window = frontWindow(true);
    if (!window) return fail(call, "no Thunar browser window");
    if (!useWindow(*window)) return fail(call, "the window cannot be reached through AT-SPI");
    if (!atspi_.pressButton(ToolbarButton::Reload)) return fail(call, "the reload button cannot be pressed");
    return std::string();
}

std::optional<std::string> ThunarHandlerCatalogue::Worker::setView(Call& call, ToolbarButton button) {
    std::optional<Window> window = frontWindow(true);
    if (!window) return fail(call, "no Thunar browser window");
    if (!useWindow(*window)) return fail(call, "the window cannot be reached through AT-SPI");
    if (!switchView(*window, viewOfButton(button), call.deadline)) return fail(call, "the view did not change");
    return std::string();
}

std::optional<std::string> ThunarHandlerCatalogue::Worker::openTerminal(Call& call) {
    if (call.params.empty() || call.params.front().empty()) return fail(call, "no folder given");
    std::string folder = withoutTrailingSlash(expandHome(call.params.front()));
    if (!isDirectory(folder)) {
        std::optional<PathSplit> split = splitParent(folder);
        if (!split || !isDirectory(split->parent)) return fail(call, "no such folder");
        folder = split->parent;
    }
    // The Debian alternative first, then the desktop's preferred terminal
    // (exo-open needs xfce4-mime-helper to find it), then common terminals.
    std::vector<std::vector<std::string>> candidates;
    if (findExecutable("x-terminal-emulator")) candidates.push_back({"x-terminal-emulator"});
    if (findExecutable("exo-open") && findExecutable("xfce4-mime-helper"))
        candidates.push_back({"exo-open", "--launch", "TerminalEmulator", "--working-directory", folder});
    for (const char* terminal : {"xfce4-terminal", "gnome-terminal", "konsole", "xterm"})
        if (findExecutable(terminal)) candidates.push_back({terminal});
    if (candidates.empty()) return fail(call, "no terminal emulator is installed");
    for (const std::vector<std::string>& argv : candidates) {
        std::optional<int> pid = spawnDetached(argv, fs::path(folder));
        if (!pid) continue;
        // A launcher that fails says so at once; a terminal keeps running.
        std::optional<int> code = waitForDetached(*pid, milliseconds(150));
        if (!code || *code == 0) return std::string();
        KMLogInDomain(KMLogLevelWarn, kLogDomain, "%s: %s failed with %d", call.name.c_str(), argv.front().c_str(),
                      *code);
    }
    return fail(call, "no terminal could be started");
}

// ---- The catalogue

ThunarHandlerCatalogue::ThunarHandlerCatalogue() : ThunarHandlerCatalogue(Options{}) {}

ThunarHandlerCatalogue::ThunarHandlerCatalogue(Options options, std::shared_ptr<ServerLoginPrompt> loginPrompt)
    : options_(options),
      worker_(std::make_unique<Worker>(options_)),
      mounter_(std::make_unique<GioServerMount>(std::move(loginPrompt),
                                                GioServerMount::Options{options.mountTimeout})) {}

ThunarHandlerCatalogue::~ThunarHandlerCatalogue() {
    // Mounts in progress give up before the worker goes.
    mounter_->cancel();
}

std::optional<std::string> ThunarHandlerCatalogue::call(std::string_view name, const std::vector<std::string>& params) {
    return callWithFailure(name, params).answer;
}

HandlerReply ThunarHandlerCatalogue::callWithFailure(std::string_view name, const std::vector<std::string>& params) {
    const std::vector<std::string>& names = handlerNames();
    if (std::find(names.begin(), names.end(), name) == names.end()) {
        KMLogInDomain(KMLogLevelWarn, kLogDomain, "%.*s: no such handler", static_cast<int>(name.size()), name.data());
        return {};
    }
    if (name == "finder_mount") return mountServer(params);
    return {worker_->call(name, params, timeoutFor(name)), {}};
}

void ThunarHandlerCatalogue::cancel(std::string_view name) {
    if (name == "finder_mount") mounter_->cancel();
}

HandlerReply ThunarHandlerCatalogue::mountServer(const std::vector<std::string>& params) {
    // Runs on the caller's thread: a mount may wait for the user's answer,
    // and the worker serves the other handlers meanwhile.
    if (params.empty() || params.front().empty() || !isValidUtf8(params.front())) {
        KMLogInDomain(KMLogLevelWarn, kLogDomain, "finder_mount: not a server address");
        return {std::nullopt, "Not a server address"};
    }
    const GioServerMount::Outcome outcome = mounter_->mount(params.front());
    if (!outcome.mounted) return {std::nullopt, outcome.failure};
    // The same window shows the server's folder, through gvfs's local view
    // when there is one (completion then works in it like anywhere else).
    if (outcome.localPath) {
        const std::string& path = *outcome.localPath;
        if (worker_->call(isDirectory(path) ? "finder_set_path" : "finder_reveal", {path}, options_.commandTimeout))
            return {std::string(), {}};
    } else if (std::optional<std::string> address = GioServerMount::withoutPassword(params.front())) {
        if (worker_->call(kEnterLocationCall, {*address}, options_.commandTimeout)) return {std::string(), {}};
    }
    KMLogInDomain(KMLogLevelWarn, kLogDomain, "finder_mount: mounted, but the window did not show it");
    return {std::nullopt, "Connected, but Thunar did not show the folder"};
}

std::optional<std::vector<std::string>> ThunarHandlerCatalogue::selectedItems() {
    std::optional<std::string> answer = worker_->call(kSelectedItemsCall, {}, options_.queryTimeout);
    if (!answer) return std::nullopt;
    std::vector<std::string> paths;
    std::size_t start = 0;
    for (std::size_t end; (end = answer->find('\0', start)) != std::string::npos; start = end + 1)
        paths.push_back(answer->substr(start, end - start));
    return paths;
}

void ThunarHandlerCatalogue::setFrontWindow(std::uint32_t xid) { worker_->front.store(xid); }

std::uint32_t ThunarHandlerCatalogue::frontWindow() const { return worker_->front.load(); }

std::chrono::milliseconds ThunarHandlerCatalogue::timeoutFor(std::string_view name) const {
    if (name == "finder_get_path" || name == "finder_get_selection" || name == "is_finder_win")
        return options_.queryTimeout;
    // Connecting has its own bound (questions to the user not counted), then
    // the window is shown the folder.
    if (name == "finder_mount") return options_.mountTimeout + options_.commandTimeout;
    return options_.commandTimeout;
}

const std::vector<std::string>& ThunarHandlerCatalogue::handlerNames() {
    static const std::vector<std::string> names = {
        "finder_get_path", "finder_get_selection", "is_finder_win",    "finder_set_path",  "finder_reveal",
        "finder_reveal_in_current", "finder_select2", "finder_mount", "finder_new_win",   "close_finder_win",
        "reload",          "finder_iconview",     "finder_listview",  "finder_columnview", "finder_flowview",
        "open_terminal"};
    return names;
}

bool ThunarHandlerCatalogue::enableFullPathInTitle(std::chrono::milliseconds timeout) {
    ProcessResult result = runProcess({std::string(external::kXfconfQuery), "-c", "thunar", "-p", "/misc-full-path-in-window-title", "-n",
                                       "-t", "bool", "-s", "true"},
                                      timeout);
    return result.started && !result.timedOut && result.exitCode == 0;
}

}  // namespace jorvane
