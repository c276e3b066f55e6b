#pragma once

// The accessibility interface on X11, over the window manager's frames and
// the EWMH properties of client windows. Window managers draw title bars
// themselves, so the tree is shallow:
//
//   system-wide   role SystemWide; FocusedApplication (the application of
//                 the active window)
//   application   keyed by pid: role Application; Windows and Children (its
//                 managed client windows of type NORMAL, not transient:
//                 dialogs are left out; front to back), FocusedWindow (the
//                 active window when it is one of the process's)
//   window        keyed by the client window (frame windows belong to the
//                 window manager and change when it restarts): role Window;
//                 Title (_NET_WM_NAME, else WM_NAME), Position/Size (the
//                 outer frame: the client's area grown by _NET_FRAME_EXTENTS),
//                 Parent (its application, by _NET_WM_PID), Window (itself),
//                 Children (its title text), TitleBandHeight (the frame's
//                 top extent: title bar and top border)
//   title text    role Text; Value (the title), Window/Parent (its window),
//                 Position/Size (where the window manager drew the title
//                 text, below)
//
// The title text's rectangle: the box the window manager draws the title
// in (see titleTextBox in X11Windows.h), narrowed to the columns that carry
// the drawn text, so that, as with a title drawn by the system itself, a
// click well left or right of the title text misses it. The text is looked
// at on every read (one GetImage of the box), since the window manager
// redraws a new title a moment after it is set. When the box shows
// something new while a window covers it (our own address bar, for one),
// the last measurement made in full view stands; without one, and for an
// empty title, the whole box does, and a click anywhere on the title bar
// between its buttons counts as a click on the title.
//
// The element at a position: the top-level window there, mapped to the
// client it frames; its title text when the position lies in the frame's
// title band, else the window. Nothing over the desktop, the window
// manager's own windows or override-redirect windows (menus, our panels).
//
// The window list: every viewable top-level window front to back (the
// server's stacking order, which holds override-redirect windows such as
// menus and our own panels too), minimised (hidden) and desktop windows
// left out, each with its frame, _NET_WM_PID, WM_CLASS class as owner name
// ("Dock" for windows of type DOCK) and title.
//
// The adapter owns its X connection and reconnects when it breaks. Any
// thread may call it; calls are serialised. Every query that meets an X
// error (a window vanishing while it is read) answers nothing and logs.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "accessibility/Accessibility.h"
#include "accessibility/WindowObserver.h"

namespace jorvane::x11 {

// What an element of this adapter stands for.
struct X11ElementIdentity {
    enum class Kind { SystemWide, Application, Window, TitleText };
    Kind kind = Kind::SystemWide;
    std::uint32_t window = 0;  // the client window, for Window and TitleText
    std::int32_t pid = 0;      // the process, for Application
    friend bool operator==(const X11ElementIdentity&, const X11ElementIdentity&) = default;
};

class X11Accessibility final : public AccessibilityAPI {
public:
    // An empty display name is $DISPLAY. An unreachable display gives an
    // adapter that answers nothing and tries again at each call.
    explicit X11Accessibility(std::string displayName = {});
    ~X11Accessibility() override;
    X11Accessibility(const X11Accessibility&) = delete;
    X11Accessibility& operator=(const X11Accessibility&) = delete;

    // Whether the display can be reached now.
    bool isConnected();

    ElementRef systemWideElement() override;
    // Null for pid 0 or less.
    ElementRef applicationElement(std::int32_t pid) override;
    ElementRef elementAtPosition(float x, float y) override;
    std::vector<WindowInfo> windowList() override;
    // (0, 0) when the display cannot be asked.
    Point mouseLocation() override;
    // An X11WindowObserver on its own connection; the pid is not needed on X11,
    // where any window or application can be observed.
    std::unique_ptr<WindowObserver> createObserver(std::int32_t pid, WindowObserver::Callback callback) override;

    // The element of a client window (null for 0).
    ElementRef windowElement(std::uint32_t clientWindow);
    // What an element of an X11 adapter stands for; nothing for other elements.
    static std::optional<X11ElementIdentity> identityOf(const ElementRef& element);

    struct Session;

private:
    std::shared_ptr<Session> session_;
};

}  // namespace jorvane::x11
