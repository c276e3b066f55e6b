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
#include <string_view>
#include <variant>
#include <vector>

#include "bridges/AXObserver.h"
#include "util/Geometry.h"

namespace jorvane {

class AXUIElement;
using AXUIElementRef = std::shared_ptr<const AXUIElement>;

// An attribute's value: text ("AXRole", "AXTitle"), a point ("AXPosition"),
// a size ("AXSize"), one element ("AXWindow", "AXParent", "AXFocusedWindow")
// or several ("AXChildren", "AXWindows"), a flag or a number.
using AXValue = std::variant<std::string, Point, Size, AXUIElementRef, std::vector<AXUIElementRef>, bool, std::int64_t>;

class AXUIElement {
public:
    virtual ~AXUIElement() = default;
    // Whether two elements stand for the same user-interface object. Every
    // query returns a new element object, so pointer identity means nothing.
    virtual bool isEqual(const AXUIElement& other) const = 0;
    // The attribute's value, or nothing when the element has no such
    // attribute, is gone, or cannot be asked.
    virtual std::optional<AXValue> copyAttributeValue(std::string_view attribute) const = 0;
};

// Null-safe identity of two elements (two nulls are equal).
inline bool AXUIElementEqual(const AXUIElementRef& a, const AXUIElementRef& b) {
    if (!a || !b) return !a && !b;
    return a.get() == b.get() || a->isEqual(*b);
}

// Typed reads of an attribute; nothing when it is missing or of another type.
template <class T>
std::optional<T> AXCopyAttribute(const AXUIElementRef& element, std::string_view attribute) {
    if (!element) return std::nullopt;
    std::optional<AXValue> value = element->copyAttributeValue(attribute);
    if (!value) return std::nullopt;
    if (const T* typed = std::get_if<T>(&*value)) return *typed;
    return std::nullopt;
}

// One entry of the window server's list of on-screen windows.
struct AXWindowInfo {
    std::string ownerName;  // "Dock" marks panels and docks, which are skipped
    std::int32_t ownerPid = 0;
    std::string name;
    // Whole points, as the window server reports them.
    std::int32_t x = 0, y = 0, width = 0, height = 0;
};

class AccessibilityAPI {
public:
    virtual ~AccessibilityAPI() = default;
    virtual AXUIElementRef systemWideElement() = 0;
    virtual AXUIElementRef applicationElement(std::int32_t pid) = 0;
    // The deepest element at a global position (origin at the top left).
    virtual AXUIElementRef elementAtPosition(float x, float y) = 0;
    // On-screen windows without desktop elements, front to back.
    virtual std::vector<AXWindowInfo> windowList() = 0;
    // The mouse's current global position (origin at the top left).
    virtual Point mouseLocation() = 0;
    // AXObserverCreate: an observer for the process's elements whose
    // callbacks arrive on the main queue; null when this interface cannot
    // observe anything.
    virtual std::unique_ptr<AXObserver> createObserver(std::int32_t pid, AXObserver::Callback callback) {
        (void)pid;
        (void)callback;
        return nullptr;
    }
};

}  // namespace jorvane
