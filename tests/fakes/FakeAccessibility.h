#pragma once

// An accessibility interface for tests: a tree of nodes with free-form
// attributes built by the test, plus the screen around it (a window stack
// that yields the window list and the element at a position, the mouse).
// Element at a position: the latest placeElement() area containing it wins;
// otherwise the stack front to back: a foreign window there means nothing of
// ours, a window whose frame contains the point gives its deepest descendant
// containing it. Every query returns a new element object. Thread-safe.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "accessibility/Accessibility.h"
#include "util/Geometry.h"

namespace jorvane::test {

// A node of the fake tree. The default value is no node.
struct ElementNode {
    int id = 0;
    explicit operator bool() const { return id != 0; }
    friend bool operator==(ElementNode, ElementNode) = default;
    friend std::ostream& operator<<(std::ostream& os, ElementNode n) { return os << "node#" << n.id; }
};

// An attribute value as the test writes it: elements are named by node.
using FakeAttributeValue =
    std::variant<std::string, Point, Size, ElementNode, std::vector<ElementNode>, bool, std::int64_t, Role>;

class FakeAccessibility final : public AccessibilityAPI {
public:
    FakeAccessibility();
    ~FakeAccessibility() override;

    // ---- building the tree: nodes with the attributes the real tree has
    // (role, title, parent, children, windows, window, position, size); a
    // new window is in front of every window.
    ElementNode addApplication(std::int32_t pid, std::string name = "Thunar");
    ElementNode addWindow(ElementNode application, std::string title, Rect frame);
    // A child of `parent`, or a free element when parent is no node.
    ElementNode addElement(ElementNode parent, Role role, std::optional<Rect> frame = std::nullopt);
    // A text child whose value is the text.
    ElementNode addStaticText(ElementNode parent, std::string text, Rect frame);
    // A chain of `length` elements of the role below `top`, each the parent of
    // the next; returns the deepest (or `top` for length 0).
    ElementNode addChain(ElementNode top, std::size_t length, Role role = Role::Group);

    void setAttribute(ElementNode node, Attribute attribute, FakeAttributeValue value);
    void removeAttribute(ElementNode node, Attribute attribute);
    // Position and size.
    void setFrame(ElementNode node, Rect frame);
    void setTitle(ElementNode node, std::string title);
    // The node goes away: its elements answer nothing, it leaves its parent's
    // children and windows, the window stack and the placements.
    void destroy(ElementNode node);

    // ---- the screen
    void setMouseLocation(Point location);
    // Moves a window to the front of the stack.
    void raise(ElementNode window);
    // Another program's window, in front of every window so far. Owner "Dock"
    // plays a panel.
    void addForeignWindow(WindowInfo info);
    // Replaces the derived window list; nullopt derives it again.
    void setWindowList(std::optional<std::vector<WindowInfo>> list);
    // Whatever lies in `area` is `node` (no node: nothing at all), above
    // everything placed before and above the window stack.
    void placeElement(Rect area, ElementNode node);
    // The system-wide focused application becomes the window's application
    // and the application's focused window the window; no node clears both.
    void setFocusedWindow(ElementNode window);

    // ---- looking at elements and what was asked
    ElementRef element(ElementNode node) const;
    // The node of one of this fake's elements; no node for null or foreign ones.
    ElementNode nodeOf(const ElementRef& element) const;
    // Attribute reads so far (of missing ones too).
    std::size_t readCount(Attribute attribute) const;

    // ---- AccessibilityAPI
    ElementRef systemWideElement() override;
    // Null for a pid without an application node.
    ElementRef applicationElement(std::int32_t pid) override;
    ElementRef elementAtPosition(float x, float y) override;
    std::vector<WindowInfo> windowList() override;
    Point mouseLocation() override;

    struct World;  // shared with the element objects, which may outlive the fake

private:
    std::shared_ptr<World> world_;
};

// Installs an accessibility interface for WindowLookup for one scope and puts the
// previous one back on leaving.
class ScopedAccessibility {
public:
    explicit ScopedAccessibility(std::shared_ptr<AccessibilityAPI> api);
    ~ScopedAccessibility();
    ScopedAccessibility(const ScopedAccessibility&) = delete;
    ScopedAccessibility& operator=(const ScopedAccessibility&) = delete;

private:
    std::shared_ptr<AccessibilityAPI> previous_;
};

}  // namespace jorvane::test
