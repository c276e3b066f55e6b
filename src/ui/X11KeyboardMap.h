#pragma once

// The virtual key codes of X keys as Qt's own X connection reports them, by
// the event tap's rule (x11::X11Keys), so that the bar and the tap name every
// key alike. The keyboard mapping is read on first use and again after
// invalidate(): the bar invalidates it whenever it opens, which picks up a
// layout switched in the meantime without listening for mapping changes.

#include <cstdint>
#include <memory>
#include <optional>

#include "keys/VirtualKeyCodes.h"

struct xcb_connection_t;
struct xkb_context;

namespace jorvane::x11 {
class X11Keys;
}

namespace jorvane::ui {

class X11KeyboardMap {
public:
    // The map over Qt's X connection; nothing when Qt does not run on X11.
    static std::shared_ptr<X11KeyboardMap> forApplication();

    explicit X11KeyboardMap(xcb_connection_t* connection);
    ~X11KeyboardMap();
    X11KeyboardMap(const X11KeyboardMap&) = delete;
    X11KeyboardMap& operator=(const X11KeyboardMap&) = delete;

    // The code of the X key `scanCode` in the group of the X `state`.
    std::optional<KeyCode> keyCode(std::uint32_t scanCode, std::uint32_t state);
    void invalidate() { stale_ = true; }

private:
    void rebuild();

    xcb_connection_t* connection_;
    xkb_context* context_ = nullptr;
    bool extensionReady_ = false;
    bool stale_ = true;
    std::unique_ptr<x11::X11Keys> keys_;
};

}  // namespace jorvane::ui
