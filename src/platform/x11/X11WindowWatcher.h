#pragma once

// A thread that watches the window manager's world on a connection of its
// own and reports what the observers turn into notifications: watched
// client windows destroyed, minimised or restored, their frames moved,
// resized or restacked; the active window changing; client windows
// appearing.
//
// The thread sleeps in poll() on the X connection and an eventfd that
// wakes it for new work or shutdown; it never wakes while nothing happens.
// It selects SubstructureNotify and PropertyChange on the root (frames
// configured, mapped and unmapped; _NET_ACTIVE_WINDOW and _NET_CLIENT_LIST)
// and StructureNotify and PropertyChange on each watched client (its own
// DestroyNotify, which the root does not see since the client is not its
// child; its _NET_WM_STATE and WM_STATE; its reparenting into a frame).
//
// A client is hidden while _NET_WM_STATE holds _NET_WM_STATE_HIDDEN or
// WM_STATE is Iconic (openbox and xfwm4 set both; openbox unmaps the frame
// a moment later). The active window is _NET_ACTIVE_WINDOW's first value
// (xfwm4 stores two); 0, which openbox sets between two windows and while an
// override-redirect window has the focus, is not a change.
//
// If the connection breaks the thread logs it and ends; the watcher then
// reports nothing more.

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace jorvane::x11 {

struct WindowEvent {
    enum class Kind {
        Destroyed,      // a watched client window was destroyed
        Minimized,      // a watched client became hidden
        Deminimized,    // ... and shown again
        Moved,          // the frame of a watched client moved
        Resized,        // ... or changed size
        Restacked,      // top-levels were raised, lowered, mapped or unmapped: one event per watched client
        TitleChanged,   // a watched client's title changed
        ActiveChanged,  // another window became active: `window`, was `previousWindow`
        ClientAdded,    // a client window joined the client list
        ProcessLeft,    // the last client window of a process left the client list
    };
    Kind kind = Kind::Destroyed;
    std::uint32_t window = 0;
    std::int32_t pid = 0;  // the window's process, 0 when unknown
    std::string wmClass;   // the window's WM_CLASS class
    // ActiveChanged: the window active before (0 for none) and its process.
    std::uint32_t previousWindow = 0;
    std::int32_t previousPid = 0;
    std::string previousClass;
    // ClientAdded: no other window of this process is in the client list
    // (its first window, or the first since all of them went).
    bool newProcess = false;
};

class X11WindowWatcher {
public:
    // Runs on the watcher's thread, one event at a time.
    using Handler = std::function<void(const WindowEvent&)>;

    // Connects, learns the client list and the active window (the baseline:
    // no events for what is already there) and starts the thread. Nothing
    // (logged) when the display cannot be reached.
    static std::unique_ptr<X11WindowWatcher> start(const std::string& displayName, Handler handler);
    // Stops the thread; the handler is not running and never runs again.
    ~X11WindowWatcher();
    X11WindowWatcher(const X11WindowWatcher&) = delete;
    X11WindowWatcher& operator=(const X11WindowWatcher&) = delete;

    // Reports the client's destruction, minimising, moves and restacking.
    // False when it is gone or the connection is broken.
    bool watchWindow(std::uint32_t client);
    void unwatchWindow(std::uint32_t client);
    // Watches every client window of the process, present and future.
    void watchProcess(std::int32_t pid);
    void unwatchProcess(std::int32_t pid);

    bool isRunning() const;

    struct State;

private:
    X11WindowWatcher() = default;
    std::unique_ptr<State> state_;
};

}  // namespace jorvane::x11
