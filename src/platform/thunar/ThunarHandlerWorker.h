#pragma once

// What the parts of ThunarHandlerCatalogue share: the worker that runs every
// handler on its own thread (ThunarHandlerWorker.cpp), the steps on Thunar's
// windows (ThunarWindowSteps.cpp), the handlers (ThunarHandlers.cpp) and the
// path helpers (ThunarHandlerPaths.cpp). Private to the catalogue.

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <glib.h>

#include "platform/thunar/ThunarAtspi.h"
#include "platform/thunar/ThunarHandlerCatalogue.h"
#include "platform/thunar/ThunarText.h"
#include "platform/thunar/ThunarX.h"
#include "util/Diagnostics.h"

namespace jorvane {

namespace thunar {

inline constexpr const char* kLogDomain = "Thunar";
// The catalogue's own call behind selectedItems(); no handler of that name.
inline constexpr std::string_view kSelectedItemsCall = "#selected_items";
// Types a mounted server's address into the front window's location entry.
inline constexpr std::string_view kEnterLocationCall = "#enter_location";
// The trash, recent files and the network's servers: places gvfs always has,
// shown by their address without a mount and without a local path.
inline bool isBuiltInLocation(std::string_view address) {
    return address.starts_with("trash:") || address.starts_with("recent:") || address.starts_with("network:");
}
inline constexpr std::uint32_t kKeysymL = 0x006c;
inline constexpr std::uint32_t kKeysymControlL = 0xffe3;

// The worker never waits on a file system longer than this for one question
// (a network folder whose server went away blocks for minutes): it must keep
// serving the bars meanwhile. A question without an answer answers false or
// nothing, and further questions about the same place answer so at once
// until the file system is back (FileSystemProbe).
inline constexpr std::chrono::milliseconds kFileSystemLimit{500};

bool isDirectory(const std::string& path);
bool exists(const std::string& path);
// Whether the file system says anything about the path within the limit.
bool answers(const std::string& path);
// The path with links, "." and ".." resolved as far as it exists; nothing
// when it cannot be resolved, or not in time.
std::optional<std::string> canonicalPath(const std::string& path);
std::string joinPath(const std::string& folder, const std::string& name);
// Raw names of a folder's entries; none when it cannot be read in time.
std::vector<std::string> entriesOf(const std::string& folder);
// How many rows Thunar shows for a folder while hidden and backup files are
// hidden (its default).
std::size_t visibleEntryCount(const std::vector<std::string>& names);
// The raw name of the entry Thunar displays as `displayed`.
std::optional<std::string> rawNameFor(const std::string& folder, const std::string& displayed);
// A path whose components Thunar displayed with U+FFFD in place of bytes
// that are not UTF-8, mapped back to the file system's bytes.
std::optional<std::string> resolveDisplayedPath(const std::string& displayed);
std::string expandHome(const std::string& text);
// The folder of gvfs's local view that a server location stands for.
std::optional<std::string> serverLocationPath(std::string_view location);
// The view handlers' names and the toolbar buttons they press.
const std::map<std::string_view, ToolbarButton, std::less<>>& viewButtons();
ThunarView viewOfButton(ToolbarButton button);
std::optional<ToolbarButton> buttonOfView(ThunarView view);

}  // namespace thunar

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

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
        thunar::WindowTraits traits;
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
    bool openChildFolder(Window& window, const std::string& folder, const std::string& name,
                         Clock::time_point deadline);
    bool waitForFolder(Window& window, const std::string& folder, Clock::time_point deadline);
    bool switchView(Window& window, thunar::ThunarView view, Clock::time_point deadline);
    // Puts the window back into the view it had, even for a call that is
    // being abandoned: a user must not be left in another view.
    void restoreView(Window& window, thunar::ThunarView view, Clock::time_point deadline);
    std::optional<thunar::DetailsTable> waitForTable(Clock::time_point deadline);
    // Rows of the table whose items have these raw names (in the order found).
    std::vector<int> findRows(thunar::DetailsTable& table, const std::string& folder,
                              const std::vector<std::string>& names, Clock::time_point deadline);
    bool selectItems(Window& window, const std::string& folder, const std::vector<std::string>& names,
                     Clock::time_point deadline);
    std::optional<std::vector<std::string>> selectedNames(Window& window, const std::string& folder,
                                                          Clock::time_point deadline);

    // Handlers.
    std::optional<std::string> folderPath(Call& call);
    std::optional<std::string> selection(Call& call);
    std::optional<std::string> isFolderWindow(Call& call);
    std::optional<std::string> showFolder(Call& call);
    std::optional<std::string> reveal(Call& call);
    std::optional<std::string> revealInCurrentFolder(Call& call);
    std::optional<std::string> selectNames(Call& call);
    std::optional<std::string> enterLocation(Call& call);
    std::optional<std::string> newWindow(Call& call);
    std::optional<std::string> closeWindow(Call& call);
    std::optional<std::string> reload(Call& call);
    std::optional<std::string> setView(Call& call, thunar::ToolbarButton button);
    std::optional<std::string> openTerminal(Call& call);

    std::optional<std::string> fail(const Call& call, const char* why, std::int32_t level = log::Warn) {
        log::inDomain(level, thunar::kLogDomain, "%s: %s", call.name.c_str(), why);
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
    thunar::ThunarX x_;
    thunar::ThunarAtspi atspi_;
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

}  // namespace jorvane
