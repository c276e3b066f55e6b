#pragma once

// Notifications of the accessibility interface: an observer is told about
// elements ("AXUIElementDestroyed" of a window, "AXWindowMiniaturized" ...)
// and calls back with the element concerned and the notification's name.
// Observers are made by the accessibility interface (AccessibilityAPI::
// createObserver) for one process; callbacks always arrive on the main queue.

#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace jorvane {

class Element;
using ElementRef = std::shared_ptr<const Element>;

// Of a window (or of an application, for all its windows).
inline constexpr std::string_view kElementDestroyed = "AXUIElementDestroyed";
inline constexpr std::string_view kWindowMinimized = "AXWindowMiniaturized";
inline constexpr std::string_view kWindowRestored = "AXWindowDeminiaturized";
// The window's frame moved or changed size (a drag gives a burst of them,
// merged while the main queue has not yet run the previous one).
inline constexpr std::string_view kWindowMoved = "AXWindowMoved";
inline constexpr std::string_view kWindowResized = "AXWindowResized";
// The stacking order of the screen's windows changed (one was raised,
// lowered, shown or hidden), so the window may now be covered or uncovered.
// Merged like the moves. macOS has no such notification; a floating panel
// there never needs it.
inline constexpr std::string_view kWindowRestacked = "JVWindowRestacked";
// The window's title changed (a file-manager window went to another folder).
// Merged like the moves.
inline constexpr std::string_view kWindowTitleChanged = "AXTitleChanged";
// Of an application: the element is the newly focused window for the first,
// the application for the other two.
inline constexpr std::string_view kFocusedWindowChanged = "AXFocusedWindowChanged";
inline constexpr std::string_view kApplicationActivated = "AXApplicationActivated";
inline constexpr std::string_view kApplicationDeactivated = "AXApplicationDeactivated";

class WindowObserver {
public:
    // The element concerned and the notification's name, on the main queue.
    using Callback = std::function<void(const ElementRef& element, const std::string& notification)>;

    // No callback runs after the observer is destroyed (destroy it on the
    // main thread).
    virtual ~WindowObserver() = default;

    // Starts telling about `notification` of the element: a window, or an
    // application for the notification of any of its windows. A window
    // event reaches the callback once, even when both the window and its
    // application asked for it. False when the element cannot be observed
    // (gone, null, of another interface) or the notification is not
    // supported for that kind of element.
    virtual bool addNotification(const ElementRef& element, std::string_view notification) = 0;
    // Stops it; false when it was not added. A notification already on its
    // way to the main queue may still arrive.
    virtual bool removeNotification(const ElementRef& element, std::string_view notification) = 0;
};

}  // namespace jorvane
