#pragma once

// The few questions the program asks of the accessibility interface: which
// window lies under the mouse, where an element is on the screen, which
// child of a window is its title text. The event tap asks them for every
// title-bar click, so they are cheap and never fail loudly: without an
// answer they return null or false.
//
// Frames are in global coordinates with the origin at the top left, the
// space of the mouse location and of the window list.

#include <memory>

#include "accessibility/Accessibility.h"
#include "util/Geometry.h"

namespace jorvane {

class WindowLookup {
public:
    WindowLookup() = delete;

    // The interface the methods ask: installed once by main, swapped by
    // tests. Without one every method answers null or false.
    static void setAccessibility(std::shared_ptr<AccessibilityAPI> api);
    static std::shared_ptr<AccessibilityAPI> accessibility();

    // The window under the mouse: first through the element at the mouse
    // position and its window or window ancestor, then through the front-most
    // entry of the window list that contains the mouse.
    static ElementRef windowUnderMouse();
    // The window's last text child: the title text of its title bar.
    static ElementRef titleElementForWindow(const ElementRef& window);
    // True when both the position and the size were read. The origin is
    // written as soon as the position is known, even when the size is not.
    static bool getWindowFrame(const ElementRef& element, Rect& frame);
    // The height of the band the window manager draws above the window's
    // content (title bar and top border), when the window reports one.
    static std::optional<double> titleBandHeight(const ElementRef& window);
    // The focused window of the focused application.
    static ElementRef focusedWindow();
};

}  // namespace jorvane
