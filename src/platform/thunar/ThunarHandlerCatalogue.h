#pragma once

// The handler catalogue for Thunar 4.18 on X11: every named handler the
// address bar calls, acting on "the front window", which is the Thunar
// browser window the bar belongs to.
//
// Mechanisms, chosen from measurements against Thunar 4.18:
// - the folder of a window is read from its title, which names the full path
//   once xfconf thunar /misc-full-path-in-window-title is true ("file://" URI
//   for paths that are not UTF-8), with the toolbar's location text (AT-SPI)
//   as the fallback;
// - navigation in place types the folder into the toolbar's location entry
//   through AT-SPI and activates it (no focus needed); a folder whose path is
//   not UTF-8 is entered by opening its row in the Details view;
// - selections go through the Details view's table (AT-SPI); in the Icon and
//   Compact views, which AT-SPI cannot see into, the window switches to the
//   Details view for the moment and back, and Thunar scrolls to the selection
//   on the way back;
// - views and reload press the toolbar's hidden buttons through AT-SPI;
// - closing asks the window manager (_NET_CLOSE_WINDOW);
// - new windows and terminals start programs without a shell;
// - servers are mounted through GIO (GioServerMount: a password in the URL is
//   used, anonymous access tried, the user asked through the login prompt),
//   and the window then goes to the server's folder in gvfs's local view
//   ($XDG_RUNTIME_DIR/gvfs/...), or, without that view, is given the address
//   in its location entry.
//
// Every call runs on one worker thread that owns the X connection and
// libatspi (neither is thread-safe), and is bounded by a time-out enforced
// here: the caller gets nothing once it passes, even while Thunar hangs.
// "mount" connects on the caller's own thread (it may wait for the
// user) and only the showing goes to the worker; cancel("mount") gives
// it up, and callWithFailure() says why a mount failed.
// Create one catalogue per process: libatspi is process-wide.

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "filemanager/HandlerCatalogue.h"
#include "filemanager/ServerLoginPrompt.h"

namespace jorvane {

class GioServerMount;

class ThunarHandlerCatalogue : public HandlerCatalogue {
public:
    struct Options {
        // "folder_path", "selected_item", "is_folder_window".
        std::chrono::milliseconds queryTimeout{2000};
        // Navigation, selection, views, reload, closing, new windows, terminals.
        std::chrono::milliseconds commandTimeout{5000};
        // "mount": connecting and logging in, the time the user
        // spends answering questions not counted.
        std::chrono::milliseconds mountTimeout{30000};
        // The bound of each single AT-SPI call inside a handler.
        int atspiCallTimeoutMs = 750;
        // Whether a handler may activate Thunar's window and type Ctrl+L when
        // the window shows path buttons instead of a location entry.
        bool allowFocusFallback = true;
    };

    ThunarHandlerCatalogue();
    // `loginPrompt` asks the user how to log in to servers; without one,
    // servers that need an answer fail.
    explicit ThunarHandlerCatalogue(Options options, std::shared_ptr<ServerLoginPrompt> loginPrompt = nullptr);
    ~ThunarHandlerCatalogue() override;
    ThunarHandlerCatalogue(const ThunarHandlerCatalogue&) = delete;
    ThunarHandlerCatalogue& operator=(const ThunarHandlerCatalogue&) = delete;

    // Commands answer "" when done; queries answer their text ("folder_path"
    // a folder without trailing "/", "selected_item" a path with "/"
    // after a folder or "" for no selection, "is_folder_window" "YES" or "NO").
    // "mount" answers "" once the window shows the server's folder.
    std::optional<std::string> call(std::string_view name, const std::vector<std::string>& params) override;
    // Failures of "mount" come with GIO's reason ("Could not connect
    // to 127.0.0.1: Connection refused") or the login's ("The server refused
    // the login", "Connection cancelled"); other handlers give none.
    HandlerReply callWithFailure(std::string_view name, const std::vector<std::string>& params) override;
    // "mount" only: the mount in progress gives up and withdraws its
    // question to the user.
    void cancel(std::string_view name) override;

    // Every selected item of the front window, as "selected_item"
    // writes them; nothing when the selection cannot be read in time.
    std::optional<std::vector<std::string>> selectedItems();

    // Tells the catalogue which Thunar window the bar belongs to. Without it
    // the front window is the Thunar browser window that was active last
    // (windows of other programs and our own panel do not count), or the
    // topmost Thunar browser window.
    void setFrontWindow(std::uint32_t xid);
    // The window set or seen last; 0 when there was none.
    std::uint32_t frontWindow() const;

    // The bound a handler's call is given.
    std::chrono::milliseconds timeoutFor(std::string_view name) const;

    // Every handler name the catalogue answers.
    static const std::vector<std::string>& handlerNames();

    // Sets xfconf thunar /misc-full-path-in-window-title, which the fast
    // folder query relies on (windows pick it up at their next folder
    // change). Runs xfconf-query; false when that fails.
    static bool enableFullPathInTitle(std::chrono::milliseconds timeout = std::chrono::milliseconds(3000));

    class Worker;

private:
    HandlerReply mountServer(const std::vector<std::string>& params);

    Options options_;
    std::unique_ptr<Worker> worker_;
    std::unique_ptr<GioServerMount> mounter_;
};

}  // namespace jorvane
