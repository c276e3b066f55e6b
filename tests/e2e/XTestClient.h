#pragma once

// A test's own connection to the X server: it reads windows as other clients
// see them, makes plain windows with the class, owner pid and title a test
// chooses (they go with it), asks the window manager for things, and injects
// input with XTEST, as a user's devices make it.

#include <xcb/xcb.h>

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "Desktop.h"

namespace jorvane::e2e {

struct WindowSpec {
    std::string title = "Jorvane test window";
    std::string wmClass = "JorvaneTest";
    std::int32_t pid = -1;  // _NET_WM_PID; -1: this process
    int x = 200, y = 150, width = 400, height = 240;
    std::uint32_t eventMask = XCB_EVENT_MASK_EXPOSURE;  // what this connection hears of the window
};

class XTestClient {
public:
    explicit XTestClient(const std::string& display);
    ~XTestClient();
    XTestClient(const XTestClient&) = delete;
    XTestClient& operator=(const XTestClient&) = delete;

    bool ok() const;
    xcb_connection_t* connection() const { return c_; }
    xcb_window_t root() const { return root_; }
    // A round trip: the server has acted on everything sent before.
    void sync();
    xcb_atom_t atom(const char* name);

    // ---- Looking at windows

    // The 32-bit values of a property of any type; empty when it is absent.
    std::vector<std::uint32_t> values(xcb_window_t window, const char* property);
    // An 8-bit property of the given type; nothing when absent.
    std::optional<std::string> bytes(xcb_window_t window, xcb_atom_t property, xcb_atom_t type);
    std::string title(xcb_window_t window);    // _NET_WM_NAME, else WM_NAME
    std::string wmClass(xcb_window_t window);  // the class part ("Thunar")
    std::optional<std::int32_t> pid(xcb_window_t window);
    std::vector<xcb_window_t> clientList() { return values(root_, "_NET_CLIENT_LIST"); }
    bool isManaged(xcb_window_t window);
    xcb_window_t activeWindow();
    std::vector<std::uint32_t> frameExtents(xcb_window_t window) { return values(window, "_NET_FRAME_EXTENTS"); }

    // The window's own area in root coordinates.
    std::optional<WindowGeometry> geometry(xcb_window_t window);
    // Its parent's rectangle with the border (the frame, for a managed window).
    std::optional<WindowGeometry> frameGeometry(xcb_window_t window);
    std::vector<xcb_window_t> children(xcb_window_t window);
    xcb_window_t parent(xcb_window_t window);
    bool isOverrideRedirect(xcb_window_t window);
    bool isViewable(xcb_window_t window);
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
    void keyCode(xcb_keycode_t code, bool press);
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
    void setTitle(xcb_window_t window, const std::string& title);
    void rootMessage(xcb_window_t window, const char* type, std::vector<std::uint32_t> data);
    // The X server's time now, as a user's click would carry it (read from
    // a property change on a window of our own); CurrentTime when none comes.
    xcb_timestamp_t serverTime();

    xcb_connection_t* c_ = nullptr;
    xcb_window_t clock_ = XCB_NONE;  // the window serverTime() changes
    xcb_screen_t* screen_ = nullptr;
    xcb_window_t root_ = XCB_NONE;
    std::vector<xcb_window_t> made_;
    std::map<std::string, xcb_atom_t> atoms_;
};

}  // namespace jorvane::e2e
