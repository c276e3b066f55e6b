#include "accessibility/WindowLookup.h"

#include <limits>
#include <mutex>
#include <string>
#include <vector>

namespace jorvane {

namespace {

// Window-list entries of this owner are panels and docks, never the window
// the user means.
constexpr std::string_view kDockOwner = "Dock";
// Parent steps taken at most when looking for an element's window: deep
// enough for any real window, a bound for a broken or cyclic tree.
constexpr int kMaxParentSteps = 100;

std::mutex installedMutex;
std::shared_ptr<AccessibilityAPI> installed;

bool hasRole(const ElementRef& element, Role role) {
    const std::optional<Role> value = copyAttribute<Role>(element, Attribute::Role);
    return value && *value == role;
}

// Stage 1: the element at the mouse position, and its window.
ElementRef windowThroughHierarchy(AccessibilityAPI& api, Point mouse) {
    const ElementRef hit = api.elementAtPosition(static_cast<float>(mouse.x), static_cast<float>(mouse.y));
    if (!hit) return nullptr;
    ElementRef current = copyAttribute<ElementRef>(hit, Attribute::Window).value_or(nullptr);
    if (!current) {
        // No window attribute: climb until an element is a window.
        current = hit;
        for (int step = 0; step < kMaxParentSteps && current && !hasRole(current, Role::Window); ++step)
            current = copyAttribute<ElementRef>(current, Attribute::Parent).value_or(nullptr);
    }
    // Whatever the window attribute named, or where the climb stopped, must really be
    // a window.
    if (!current || !hasRole(current, Role::Window)) return nullptr;
    return current;
}

// Stage 2: the front-most window-list entry under the mouse, matched to one
// of its application's windows by title and exact origin.
ElementRef windowThroughWindowList(AccessibilityAPI& api, Point mouse) {
    const std::vector<WindowInfo> list = api.windowList();
    const WindowInfo* entry = nullptr;
    Rect bounds;
    for (const WindowInfo& info : list) {
        if (info.ownerName == kDockOwner) continue;
        const Rect r{{static_cast<double>(info.x), static_cast<double>(info.y)},
                     {static_cast<double>(info.width), static_cast<double>(info.height)}};
        if (r.containsPoint(mouse)) {
            entry = &info;
            bounds = r;
            break;  // what lies behind the front-most hit does not count
        }
    }
    if (!entry) return nullptr;

    const ElementRef application = api.applicationElement(entry->ownerPid);
    const std::optional<std::vector<ElementRef>> windows =
        copyAttribute<std::vector<ElementRef>>(application, Attribute::Windows);
    if (!windows) return nullptr;
    for (const ElementRef& window : *windows) {
        const std::optional<std::string> title = copyAttribute<std::string>(window, Attribute::Title);
        // Not-a-number never equals anything: a window whose position cannot
        // be read never matches. Its size does not matter.
        constexpr double nan = std::numeric_limits<double>::quiet_NaN();
        Rect frame{{nan, nan}, {}};
        WindowLookup::getWindowFrame(window, frame);
        // Titles repeat (two windows on one folder); the exact origin tells
        // them apart.
        if (title && *title == entry->name && frame.origin.x == bounds.origin.x && frame.origin.y == bounds.origin.y)
            return window;
    }
    return nullptr;
}

}  // namespace

void WindowLookup::setAccessibility(std::shared_ptr<AccessibilityAPI> api) {
    std::lock_guard lock(installedMutex);
    installed = std::move(api);
}

std::shared_ptr<AccessibilityAPI> WindowLookup::accessibility() {
    std::lock_guard lock(installedMutex);
    return installed;
}

ElementRef WindowLookup::windowUnderMouse() {
    const std::shared_ptr<AccessibilityAPI> api = accessibility();
    if (!api) return nullptr;
    const Point mouse = api->mouseLocation();
    if (ElementRef window = windowThroughHierarchy(*api, mouse)) return window;
    return windowThroughWindowList(*api, mouse);
}

ElementRef WindowLookup::titleElementForWindow(const ElementRef& window) {
    const std::optional<std::vector<ElementRef>> children =
        copyAttribute<std::vector<ElementRef>>(window, Attribute::Children);
    if (!children) return nullptr;
    ElementRef title;
    // Not the first match: the title bar's text is the last text.
    for (const ElementRef& child : *children)
        if (hasRole(child, Role::Text)) title = child;
    return title;
}

bool WindowLookup::getWindowFrame(const ElementRef& element, Rect& frame) {
    const std::optional<Point> position = copyAttribute<Point>(element, Attribute::Position);
    if (!position) return false;
    frame.origin = *position;
    const std::optional<Size> size = copyAttribute<Size>(element, Attribute::Size);
    if (!size) return false;
    frame.size = *size;
    return true;
}

std::optional<double> WindowLookup::titleBandHeight(const ElementRef& window) {
    const std::optional<std::int64_t> height = copyAttribute<std::int64_t>(window, Attribute::TitleBandHeight);
    if (!height || *height <= 0) return std::nullopt;
    return static_cast<double>(*height);
}

ElementRef WindowLookup::focusedWindow() {
    const std::shared_ptr<AccessibilityAPI> api = accessibility();
    if (!api) return nullptr;
    const ElementRef application =
        copyAttribute<ElementRef>(api->systemWideElement(), Attribute::FocusedApplication).value_or(nullptr);
    return copyAttribute<ElementRef>(application, Attribute::FocusedWindow).value_or(nullptr);
}

}  // namespace jorvane
