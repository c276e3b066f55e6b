#pragma once

// Notifications of the accessibility interface: an observer is told about
// elements (a window destroyed, minimized, moved ...) and calls back with the
// element concerned and what happened to it.
// Observers are made by the accessibility interface (AccessibilityAPI::
// createObserver) for one process; callbacks always arrive on the main queue.

#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace jorvane {

class Element;
using ElementRef = std::shared_ptr<const Element>;

// What an observer tells about.
enum class WindowNotification {
    // Of a window (or of an application, for all its windows).
    ElementDestroyed,
    Minimized,
    Restored,
    // The window's frame moved or changed size (a drag gives a burst of them,
    // merged while the main queue has not yet run the previous one).
    Moved,
    Resized,
    // The stacking order of the screen's windows changed (one was raised,
    // lowered, shown or hidden), so the window may now be covered or
    // uncovered. Merged like the moves.
    Restacked,
    // The window's title changed (a file-manager window went to another
    // folder). Merged like the moves.
    TitleChanged,
    // Of an application: the element is the newly focused window for the
    // first, the application for the other two.
    FocusedWindowChanged,
    ApplicationActivated,
    ApplicationDeactivated,
};

// A short name for logs and test output ("moved", "title changed").
std::string_view nameOf(WindowNotification notification);

class WindowObserver {
public:
    // The element concerned and what happened, on the main queue.
    using Callback = std::function<void(const ElementRef& element, WindowNotification notification)>;

    // No callback runs after the observer is destroyed (destroy it on the
    // main thread).
    virtual ~WindowObserver() = default;

    // Starts telling about `notification` of the element: a window, or an
    // application for the notification of any of its windows. A window
    // event reaches the callback once, even when both the window and its
    // application asked for it. False when the element cannot be observed
    // (gone, null, of another interface) or the notification is not
    // supported for that kind of element.
    virtual bool addNotification(const ElementRef& element, WindowNotification notification) = 0;
    // Stops it; false when it was not added. A notification already on its
    // way to the main queue may still arrive.
    virtual bool removeNotification(const ElementRef& element, WindowNotification notification) = 0;
};

}  // namespace jorvane
