#pragma once

// The accessibility observer on X11, for the elements of X11Accessibility.
//
// Windows: destroyed (the client window's DestroyNotify), minimized and
// restored (_NET_WM_STATE_HIDDEN or WM_STATE Iconic appearing, going), moved
// and resized (the frame's ConfigureNotify on the root), restacked (any
// top-level raised, lowered, mapped or unmapped) and title changed
// (_NET_WM_NAME or WM_NAME). An application (pid) takes the same for all its
// windows, plus the focused window changed (the element is the new active
// window), activated and deactivated (the active window moved to, or away
// from, a window of the process from another process's).
//
// Its own X11WindowWatcher thread sees the events; the callback runs on the
// main queue. Moves, resizes and restacks are merged: while one is waiting
// on the main queue, the next for the same window and name is dropped.

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "accessibility/WindowObserver.h"
#include "platform/x11/X11Accessibility.h"

namespace jorvane::x11 {

class X11WindowWatcher;

class X11WindowObserver final : public WindowObserver {
public:
    // Makes the element handed to the callback.
    using ElementFactory = std::function<ElementRef(const X11ElementIdentity&)>;

    X11WindowObserver(const std::string& displayName, Callback callback, ElementFactory factory);
    ~X11WindowObserver() override;
    X11WindowObserver(const X11WindowObserver&) = delete;
    X11WindowObserver& operator=(const X11WindowObserver&) = delete;

    // False when the display could not be reached: nothing will be reported.
    bool isWatching() const;

    bool addNotification(const ElementRef& element, WindowNotification notification) override;
    bool removeNotification(const ElementRef& element, WindowNotification notification) override;

    struct Shared;

private:
    std::shared_ptr<Shared> shared_;
    std::unique_ptr<X11WindowWatcher> watcher_;
};

}  // namespace jorvane::x11
