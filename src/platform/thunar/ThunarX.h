#pragma once

// The X11 side of the Thunar handlers: window properties (title, pid, class,
// role, type), the window manager's lists, frames, closing and activating
// windows, and XTEST keys. One object per connection, used by one thread.

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/thunar/ThunarText.h"

struct xcb_connection_t;

namespace jorvane::thunar {

struct XRect {
    int x = 0, y = 0, width = 0, height = 0;
};

class ThunarX {
public:
    ThunarX() = default;
    ~ThunarX();
    ThunarX(const ThunarX&) = delete;
    ThunarX& operator=(const ThunarX&) = delete;

    // Connects to $DISPLAY and selects property changes on the root window.
    bool open();
    bool isOpen() const { return connection_ != nullptr; }
    bool hasError() const;
    int fileDescriptor() const;

    // Reads the queued events; calls `onActive` with the new
    // _NET_ACTIVE_WINDOW value each time the window manager changes it.
    void processEvents(const std::function<void(std::uint32_t)>& onActive);

    std::optional<std::uint32_t> activeWindow();
    // Managed client windows, bottom to top.
    std::vector<std::uint32_t> clientListStacking();
    bool isManaged(std::uint32_t window);

    std::optional<std::string> title(std::uint32_t window);
    std::optional<int> pid(std::uint32_t window);
    WindowTraits traits(std::uint32_t window);
    // The window's outer frame in root coordinates (the client plus
    // _NET_FRAME_EXTENTS).
    std::optional<XRect> frame(std::uint32_t window);

    // Asks the window manager to close the window (_NET_CLOSE_WINDOW).
    bool requestClose(std::uint32_t window);
    // Asks the window manager to activate the window (_NET_ACTIVE_WINDOW).
    bool requestActivate(std::uint32_t window);

    // Presses and releases a key with modifiers held, through XTEST.
    // `modifierKeysyms` are pressed in order and released in reverse.
    bool sendKey(std::uint32_t keysym, const std::vector<std::uint32_t>& modifierKeysyms);
    // Whether a key of the keyboard is down (the user's own modifiers).
    bool anyModifierDown();

private:
    std::uint32_t atom(const char* name);
    std::optional<std::vector<std::uint32_t>> cardinals(std::uint32_t window, std::uint32_t property,
                                                        std::uint32_t type);
    std::optional<std::string> stringProperty(std::uint32_t window, std::uint32_t property, std::uint32_t type);
    std::optional<std::uint8_t> keycodeFor(std::uint32_t keysym);

    xcb_connection_t* connection_ = nullptr;
    std::uint32_t root_ = 0;
    std::uint32_t netActiveWindow_ = 0;
    std::map<std::string, std::uint32_t> atoms_;  // atoms never change on a server
};

}  // namespace jorvane::thunar
