#pragma once

// The X server's keyboard as the shortcut recorder's adapters need it: the
// current keymap (as X11Keys, with the server's modifier map) and active
// group, over a connection of our own. XKB tells the connection when the
// keymap or the group changes; every call first takes in those notices
// without waiting, so a layout switched meanwhile is seen at the next call
// and the keymap is read again only when it changed. Thread-safe.

#include <xkbcommon/xkbcommon.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "platform/x11/X11Keys.h"

struct xcb_connection_t;

namespace jorvane::x11 {

class X11Keyboard {
public:
    // Connects to `display` (the DISPLAY variable when empty); nothing when
    // the display or its XKB extension cannot be had.
    static std::shared_ptr<X11Keyboard> open(const std::string& display = {});
    ~X11Keyboard();
    X11Keyboard(const X11Keyboard&) = delete;
    X11Keyboard& operator=(const X11Keyboard&) = delete;

    struct Current {
        std::shared_ptr<const X11Keys> keys;  // null when the keymap cannot be read
        std::uint32_t group = 0;
        xcb_connection_t* connection = nullptr;
        std::uint32_t root = 0;
    };
    // Runs `use` with the current keymap and group, under the keyboard's lock
    // (the connection may be used inside).
    void withCurrent(const std::function<void(const Current&)>& use);

private:
    X11Keyboard(xcb_connection_t* connection, std::uint32_t root, std::uint8_t xkbEventBase);
    void takeNotices();
    void rebuild();

    std::mutex mutex_;
    xcb_connection_t* connection_;
    std::uint32_t root_;
    std::uint8_t xkbEventBase_;
    xkb_context* context_;
    bool dirty_ = true;
    Current current_;
};

}  // namespace jorvane::x11
