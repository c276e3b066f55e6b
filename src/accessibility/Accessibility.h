#pragma once

// The accessibility interface as the core sees it: elements with named
// attributes, the element at a screen position, application elements, and
// the window server's list of on-screen windows. The X11 adapter implements
// it over the window manager's frames and the file manager's client windows;
// tests build trees of their own.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "accessibility/WindowObserver.h"
#include "util/Geometry.h"

namespace jorvane {

class Element;
using ElementRef = std::shared_ptr<const Element>;

// What an element can be asked about.
enum class Attribute {
    Role,                // Role: what kind of element it is
    Title,               // text: a window's title, an application's name
    Value,               // text: what a text element shows
    Position,            // Point: the top-left corner of its frame
    Size,                // Size: its frame's size
    Parent,              // element: the element that holds it
    Window,              // element: the window it belongs to (a window: itself)
    Children,            // elements: the elements it holds
    Windows,             // elements: an application's windows, front to back
    FocusedApplication,  // element: the system-wide element's focused application
    FocusedWindow,       // element: an application's focused window
    TitleBandHeight,     // number: the band a window manager draws above a window's content
};

// What kind of user-interface object an element is.
enum class Role {
    SystemWide,   // the whole desktop, the root of every query
    Application,  // one process
    Window,       // a top-level window
    Text,         // a piece of text, such as a window's title
    Group,        // a container without a meaning of its own
    Button,
};

// An attribute's value: text, a point, a size, one element or several, a
// flag, a number or a role.
using AttributeValue =
    std::variant<std::string, Point, Size, ElementRef, std::vector<ElementRef>, bool, std::int64_t, Role>;

class Element {
public:
    virtual ~Element() = default;
    // Whether two elements stand for the same user-interface object. Every
    // query returns a new element object, so pointer identity means nothing.
    virtual bool isEqual(const Element& other) const = 0;
    // The attribute's value, or nothing when the element has no such
    // attribute, is gone, or cannot be asked.
    virtual std::optional<AttributeValue> copyAttributeValue(Attribute attribute) const = 0;
};

// Null-safe identity of two elements (two nulls are equal).
inline bool sameElement(const ElementRef& a, const ElementRef& b) {
    if (!a || !b) return !a && !b;
    return a.get() == b.get() || a->isEqual(*b);
}

// Typed reads of an attribute; nothing when it is missing or of another type.
template <class T>
std::optional<T> copyAttribute(const ElementRef& element, Attribute attribute) {
    if (!element) return std::nullopt;
    std::optional<AttributeValue> value = element->copyAttributeValue(attribute);
    if (!value) return std::nullopt;
    if (const T* typed = std::get_if<T>(&*value)) return *typed;
    return std::nullopt;
}

// One entry of the window server's list of on-screen windows.
struct WindowInfo {
    std::string ownerName;  // "Dock" marks panels and docks, which are skipped
    std::int32_t ownerPid = 0;
    std::string name;
    // Whole points, as the window server reports them.
    std::int32_t x = 0, y = 0, width = 0, height = 0;
};

class AccessibilityAPI {
public:
    virtual ~AccessibilityAPI() = default;
    virtual ElementRef systemWideElement() = 0;
    virtual ElementRef applicationElement(std::int32_t pid) = 0;
    // The deepest element at a global position (origin at the top left).
    virtual ElementRef elementAtPosition(float x, float y) = 0;
    // On-screen windows without desktop elements, front to back.
    virtual std::vector<WindowInfo> windowList() = 0;
    // The mouse's current global position (origin at the top left).
    virtual Point mouseLocation() = 0;
    // An observer for the process's elements whose callbacks arrive on the
    // main queue; null when this interface cannot observe anything.
    virtual std::unique_ptr<WindowObserver> createObserver(std::int32_t pid, WindowObserver::Callback callback) {
        (void)pid;
        (void)callback;
        return nullptr;
    }
};

}  // namespace jorvane
