#pragma once

// A test's own connection to the X server: it reads windows as other clients
// see them, makes plain windows with the class, owner pid and title a test
// chooses (they go with it), asks the window manager for things, and injects
// input with XTEST, as a user's devices make it.

#include <xcb/xcb.h>

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Desktop.h"
#include "platform/x11/X11Windows.h"

namespace jorvane::e2e {

struct WindowSpec {
    std::string title = "Jorvane test window";
    std::int32_t pid = -1;  // _NET_WM_PID; -1: this process
    int x = 200, y = 150, width = 400, height = 240;
    std::uint32_t eventMask = XCB_EVENT_MASK_EXPOSURE;  // what this connection hears of the window
};

class XTestClient {
public:
    // Throws std::runtime_error when the display cannot be reached.
    explicit XTestClient(const std::string& display);
    ~XTestClient();
    XTestClient(const XTestClient&) = delete;
    XTestClient& operator=(const XTestClient&) = delete;

    bool ok() const { return !display_->hasError(); }
    xcb_connection_t* connection() const { return c_; }
    xcb_window_t root() const { return root_; }
    // The connection as the program's own X11 readers take it (platform/x11/X11Windows).
    const x11::XcbDisplay& display() const { return *display_; }
    // A round trip: the server has acted on everything sent before.
    void sync();
    // A round trip that gives up after `within`: false while another client
    // holds the server grabbed (the late reply is dropped when it comes).
    bool answers(std::chrono::milliseconds within);
    xcb_atom_t atom(const char* name);

    // ---- Looking at windows (read as the program reads them)

    // The 32-bit values of a property of any type; empty when it is absent.
    std::vector<std::uint32_t> values(xcb_window_t window, const char* property);
    bool hasProperty(xcb_window_t window, const char* property);
    // Title, class, pid ...; the defaults for a window that is gone.
    x11::ClientProperties properties(xcb_window_t window, unsigned mask = x11::kClientAll);
    std::string title(xcb_window_t window) { return properties(window, x11::kClientName).name; }
    std::string wmClass(xcb_window_t window) { return properties(window, x11::kClientClass).wmClass; }
    std::optional<std::int32_t> pid(xcb_window_t window);
    std::vector<xcb_window_t> clientList() { return windows(display_->atoms().netClientList); }
    xcb_window_t activeWindow();
    std::vector<std::uint32_t> frameExtents(xcb_window_t window) { return values(window, "_NET_FRAME_EXTENTS"); }

    // The window's own area in root coordinates.
    std::optional<WindowGeometry> geometry(xcb_window_t window);
    std::vector<xcb_window_t> children(xcb_window_t window);
    xcb_window_t inputFocus();
    // The focus is on the window or one of its children.
    bool focusIsIn(xcb_window_t window);

    // ---- Windows of our own

    // Maps the window and waits until the window manager manages and frames it.
    xcb_window_t create(const WindowSpec& shape);
    // Gives the window the X input focus and waits until it has it.
    bool focus(xcb_window_t window);

    // ---- Asking the window manager (no wait)

    void activate(xcb_window_t window);
    void iconify(xcb_window_t window);
    void close(xcb_window_t window);

    // ---- Input through XTEST

    // The key that types the keysym, first levels first ("g" is not found as Shift+something).
    std::optional<xcb_keycode_t> keycode(xcb_keysym_t keysym);
    bool key(xcb_keysym_t keysym, bool press);
    // Presses the modifiers in order, the key, then releases the key and the
    // modifiers in reverse order.
    bool chord(const std::vector<xcb_keysym_t>& modifiers, xcb_keysym_t keysym);
    bool tap(xcb_keysym_t keysym) { return chord({}, keysym); }
    void moveTo(int x, int y);
    // With a `settle` time, returns once the server has acted on the button
    // (false when it did not in time): openbox freezes the pointer on a click
    // into a client until it has looked at it, and what comes next must not
    // overtake the click.
    bool button(std::uint8_t button, bool press, std::chrono::milliseconds settle = {});
    bool click(int x, int y, std::uint8_t button = 1, std::chrono::milliseconds settle = {});

private:
    std::vector<xcb_window_t> windows(xcb_atom_t property);  // a window list on the root
    void keyCode(xcb_keycode_t code, bool press);
    void rootMessage(xcb_window_t window, const char* type, std::vector<std::uint32_t> data);
    // The X server's time now, as a user's click would carry it (read from
    // a property change on a window of our own); CurrentTime when none comes.
    xcb_timestamp_t serverTime();

    std::unique_ptr<x11::XcbDisplay> display_;
    xcb_connection_t* c_ = nullptr;
    xcb_window_t root_ = XCB_NONE;
    xcb_window_t clock_ = XCB_NONE;  // the window serverTime() changes
    std::vector<xcb_window_t> made_;
    std::map<std::string, xcb_atom_t> atoms_;
};

}  // namespace jorvane::e2e
