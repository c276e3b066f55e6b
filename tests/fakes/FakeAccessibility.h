#pragma once

// An accessibility interface for tests, thread-safe: a tree of nodes with free-form attributes built by the
// test, plus the screen around it (a window stack that yields the window list and the element at a point,
// the mouse). The element at a point: the latest placeElement() area holding it wins; otherwise the stack
// front to back: a foreign window there means nothing of ours, a window whose frame holds the point gives
// its deepest descendant holding it. Every query returns a new element object.

#include <algorithm>
#include <cmath>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <ostream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>
#include <variant>
#include <vector>

#include "accessibility/Accessibility.h"
#include "accessibility/WindowLookup.h"
#include "util/Geometry.h"

namespace jorvane::test {

// A node of the fake tree. The default value is no node.
struct ElementNode {
    int id = 0;
    explicit operator bool() const { return id != 0; }
    friend bool operator==(ElementNode, ElementNode) = default;
    friend std::ostream& operator<<(std::ostream& os, ElementNode n) { return os << "Node#" << n.id; }
};

// An attribute value as the test writes it: elements are named by node.
using FakeAttributeValue =
    std::variant<std::string, Point, Size, ElementNode, std::vector<ElementNode>, bool, std::int64_t, Role>;

namespace fake_ax {

constexpr int kMaxDepth = 10000;  // bounds every walk through a tree the test may have made cyclic

struct World {
    struct Node {
        std::map<Attribute, FakeAttributeValue> attributes;
        bool destroyed = false;
        ElementNode application;  // windows: their application
        std::int32_t pid = 0;     // applications
        std::string appName;      // applications
        bool isApplication = false;
    };
    // A window of ours, or another program's window when `window` is no node.
    struct StackEntry {
        ElementNode window;
        WindowInfo foreign;
    };

    mutable std::mutex mutex;
    std::vector<Node> nodes;                               // node id - 1
    std::vector<StackEntry> stack;                         // front first
    std::vector<std::pair<Rect, ElementNode>> placements;  // latest last
    std::optional<std::vector<WindowInfo>> windowListOverride;
    std::map<std::int32_t, ElementNode> applications;
    ElementNode systemWide;
    Point mouse;
    std::map<Attribute, std::size_t> reads;

    // All below: with the mutex held.
    Node* find(ElementNode n) {
        if (n.id <= 0 || static_cast<std::size_t>(n.id) > nodes.size()) return nullptr;
        return &nodes[static_cast<std::size_t>(n.id - 1)];
    }
    Node& get(ElementNode n) {
        if (Node* node = find(n)) return *node;
        throw std::invalid_argument("FakeAccessibility: no such node");
    }
    ElementNode add(Role role) {
        nodes.emplace_back();
        set(nodes.back(), Attribute::Role, role);
        set(nodes.back(), Attribute::Children, std::vector<ElementNode>{});
        return ElementNode{static_cast<int>(nodes.size())};
    }
    static void set(Node& node, Attribute attribute, FakeAttributeValue value) {
        node.attributes.insert_or_assign(attribute, std::move(value));
    }
    template <class T>
    std::optional<T> read(ElementNode n, Attribute attribute) {
        Node* node = find(n);
        if (!node || node->destroyed) return std::nullopt;
        auto it = node->attributes.find(attribute);
        if (it == node->attributes.end()) return std::nullopt;
        if (const T* value = std::get_if<T>(&it->second)) return *value;
        return std::nullopt;
    }
    std::optional<Rect> frame(ElementNode n) {
        const std::optional<Point> position = read<Point>(n, Attribute::Position);
        const std::optional<Size> size = read<Size>(n, Attribute::Size);
        if (!position || !size) return std::nullopt;
        return Rect{*position, *size};
    }
    void setFrame(ElementNode n, Rect frame) {
        set(get(n), Attribute::Position, frame.origin);
        set(get(n), Attribute::Size, frame.size);
    }
    void appendTo(ElementNode parent, Attribute attribute, ElementNode child) {
        Node& node = get(parent);
        auto it = node.attributes.find(attribute);
        if (it == node.attributes.end() || !std::holds_alternative<std::vector<ElementNode>>(it->second))
            it = node.attributes.insert_or_assign(attribute, std::vector<ElementNode>{}).first;
        std::get<std::vector<ElementNode>>(it->second).push_back(child);
    }
    ElementNode windowAncestor(ElementNode n) {
        for (int depth = 0; n && depth < kMaxDepth; ++depth) {
            if (read<Role>(n, Attribute::Role) == Role::Window) return n;
            n = read<ElementNode>(n, Attribute::Parent).value_or(ElementNode{});
        }
        return ElementNode{};
    }
    ElementNode deepestAt(ElementNode n, Point p, int depth) {
        if (depth > kMaxDepth) return n;
        const auto children =
            read<std::vector<ElementNode>>(n, Attribute::Children).value_or(std::vector<ElementNode>{});
        for (auto it = children.rbegin(); it != children.rend(); ++it) {
            const std::optional<Rect> f = frame(*it);
            if (f && f->containsPoint(p)) return deepestAt(*it, p, depth + 1);
        }
        return n;
    }
    ElementNode hitTest(Point p) {
        for (auto it = placements.rbegin(); it != placements.rend(); ++it)
            if (it->first.containsPoint(p)) return it->second;
        for (const StackEntry& entry : stack) {
            if (!entry.window) {
                const WindowInfo& w = entry.foreign;
                if (Rect{{double(w.x), double(w.y)}, {double(w.width), double(w.height)}}.containsPoint(p))
                    return ElementNode{};
                continue;
            }
            const std::optional<Rect> f = frame(entry.window);
            if (f && f->containsPoint(p) && !get(entry.window).destroyed) return deepestAt(entry.window, p, 0);
        }
        return ElementNode{};
    }
};

class Element final : public jorvane::Element {
public:
    Element(std::shared_ptr<World> world, ElementNode node) : world_(std::move(world)), node_(node) {}
    static ElementRef make(const std::shared_ptr<World>& world, ElementNode node) {
        return node ? std::make_shared<Element>(world, node) : nullptr;
    }

    bool isEqual(const jorvane::Element& other) const override {
        const auto* fake = dynamic_cast<const Element*>(&other);
        return fake && fake->world_ == world_ && fake->node_ == node_;
    }
    std::optional<AttributeValue> copyAttributeValue(Attribute attribute) const override {
        std::lock_guard lock(world_->mutex);
        ++world_->reads[attribute];
        World::Node* node = world_->find(node_);
        if (!node || node->destroyed) return std::nullopt;
        auto it = node->attributes.find(attribute);
        if (it == node->attributes.end()) return std::nullopt;
        return std::visit(
            [this](const auto& value) -> std::optional<AttributeValue> {
                using T = std::decay_t<decltype(value)>;
                if constexpr (std::is_same_v<T, ElementNode>) {
                    if (!value) return std::nullopt;  // an element attribute naming no node reads as missing
                    return AttributeValue{make(world_, value)};
                } else if constexpr (std::is_same_v<T, std::vector<ElementNode>>) {
                    std::vector<ElementRef> elements;
                    for (ElementNode n : value)
                        if (n) elements.push_back(make(world_, n));
                    return AttributeValue{std::move(elements)};
                } else {
                    return AttributeValue{value};
                }
            },
            it->second);
    }

    const std::shared_ptr<World>& world() const { return world_; }
    ElementNode node() const { return node_; }

private:
    std::shared_ptr<World> world_;
    ElementNode node_;
};

}  // namespace fake_ax

class FakeAccessibility final : public AccessibilityAPI {
public:
    FakeAccessibility() {
        std::lock_guard lock(world_->mutex);
        world_->systemWide = world_->add(Role::SystemWide);
    }

    // ---- building the tree with the attributes the real tree has; a new window is in front of all
    ElementNode addApplication(std::int32_t pid, std::string name = "Thunar") {
        std::lock_guard lock(world_->mutex);
        if (world_->applications.count(pid)) throw std::invalid_argument("FakeAccessibility: pid exists");
        const ElementNode app = world_->add(Role::Application);
        Node& node = world_->get(app);
        node.isApplication = true;
        node.pid = pid;
        node.appName = name;
        World::set(node, Attribute::Title, std::move(name));
        World::set(node, Attribute::Windows, std::vector<ElementNode>{});
        return world_->applications[pid] = app;
    }
    ElementNode addWindow(ElementNode application, std::string title, Rect frame) {
        std::lock_guard lock(world_->mutex);
        if (Node* app = world_->find(application); !app || app->destroyed || !app->isApplication)
            throw std::invalid_argument("FakeAccessibility::addWindow: not an application");
        const ElementNode window = world_->add(Role::Window);
        Node& node = world_->get(window);
        node.application = application;
        World::set(node, Attribute::Title, std::move(title));
        World::set(node, Attribute::Parent, application);
        world_->setFrame(window, frame);
        world_->appendTo(application, Attribute::Windows, window);
        world_->appendTo(application, Attribute::Children, window);
        world_->stack.insert(world_->stack.begin(), World::StackEntry{window, {}});
        return window;
    }
    // A child of `parent`, or a free element when parent is no node.
    ElementNode addElement(ElementNode parent, Role role, std::optional<Rect> frame = std::nullopt) {
        std::lock_guard lock(world_->mutex);
        if (parent) world_->get(parent);
        const ElementNode element = world_->add(role);
        const ElementNode window = world_->windowAncestor(parent);
        Node& node = world_->get(element);
        if (parent) World::set(node, Attribute::Parent, parent);
        if (window) World::set(node, Attribute::Window, window);
        if (frame) world_->setFrame(element, *frame);
        if (parent) world_->appendTo(parent, Attribute::Children, element);
        return element;
    }
    // A text child whose value is the text.
    ElementNode addStaticText(ElementNode parent, std::string text, Rect frame) {
        const ElementNode element = addElement(parent, Role::Text, frame);
        setAttribute(element, Attribute::Value, std::move(text));
        return element;
    }
    // A chain of `length` elements below `top` without a window attribute, each the parent of the next; the deepest.
    ElementNode addChain(ElementNode top, std::size_t length, Role role = Role::Group) {
        for (std::size_t i = 0; i < length; ++i) {
            top = addElement(top, role);
            removeAttribute(top, Attribute::Window);
        }
        return top;
    }
    void setAttribute(ElementNode node, Attribute attribute, FakeAttributeValue value) {
        locked([&] { World::set(world_->get(node), attribute, std::move(value)); });
    }
    void removeAttribute(ElementNode node, Attribute attribute) {
        locked([&] { world_->get(node).attributes.erase(attribute); });
    }
    void setFrame(ElementNode node, Rect frame) {
        locked([&] { world_->setFrame(node, frame); });
    }
    void setTitle(ElementNode node, std::string title) { setAttribute(node, Attribute::Title, std::move(title)); }
    // The node goes away: it answers nothing and leaves its parent's lists, the stack and the placements.
    void destroy(ElementNode node) {
        std::lock_guard lock(world_->mutex);
        world_->get(node).destroyed = true;
        for (Node& n : world_->nodes)
            for (const Attribute list : {Attribute::Children, Attribute::Windows})
                if (auto it = n.attributes.find(list); it != n.attributes.end())
                    if (auto* members = std::get_if<std::vector<ElementNode>>(&it->second)) std::erase(*members, node);
        std::erase_if(world_->stack, [node](const World::StackEntry& e) { return e.window == node; });
        std::erase_if(world_->placements, [node](const auto& p) { return p.second == node; });
        std::erase_if(world_->applications, [node](const auto& entry) { return entry.second == node; });
    }

    // ---- the screen
    void setMouseLocation(Point location) {
        locked([&] { world_->mouse = location; });
    }
    // Moves a window to the front of the stack.
    void raise(ElementNode window) {
        std::lock_guard lock(world_->mutex);
        auto& stack = world_->stack;
        auto it = std::find_if(stack.begin(), stack.end(), [&](const auto& e) { return e.window == window; });
        if (it == stack.end()) throw std::invalid_argument("FakeAccessibility::raise: not a window");
        std::rotate(stack.begin(), it, it + 1);
    }
    // Another program's window, in front of every window so far. Owner "Dock" plays a panel.
    void addForeignWindow(WindowInfo info) {
        locked([&] { world_->stack.insert(world_->stack.begin(), World::StackEntry{ElementNode{}, std::move(info)}); });
    }
    // Replaces the derived window list; nullopt derives it again.
    void setWindowList(std::optional<std::vector<WindowInfo>> list) {
        locked([&] { world_->windowListOverride = std::move(list); });
    }
    // Whatever lies in `area` is `node` (no node: nothing at all), above everything placed before.
    void placeElement(Rect area, ElementNode node) {
        locked([&] { world_->placements.emplace_back(area, node); });
    }
    // The focused application becomes the window's application and its focused window the window;
    // no node clears both.
    void setFocusedWindow(ElementNode window) {
        std::lock_guard lock(world_->mutex);
        auto& system = world_->get(world_->systemWide).attributes;
        if (auto it = system.find(Attribute::FocusedApplication); it != system.end()) {
            if (const ElementNode* app = std::get_if<ElementNode>(&it->second))
                if (Node* previous = world_->find(*app)) previous->attributes.erase(Attribute::FocusedWindow);
            system.erase(it);
        }
        if (!window) return;
        const ElementNode app = world_->get(window).application;
        if (!app) throw std::invalid_argument("FakeAccessibility::setFocusedWindow: not a window");
        system.insert_or_assign(Attribute::FocusedApplication, app);
        World::set(world_->get(app), Attribute::FocusedWindow, window);
    }

    // ---- looking at elements and what was asked
    ElementRef element(ElementNode node) const { return fake_ax::Element::make(world_, node); }
    // The node of one of this fake's elements; no node for null or foreign ones.
    ElementNode nodeOf(const ElementRef& element) const {
        const auto* fake = dynamic_cast<const fake_ax::Element*>(element.get());
        return fake && fake->world() == world_ ? fake->node() : ElementNode{};
    }
    // Attribute reads so far, by attribute name (missing ones included).
    std::size_t readCount(Attribute attribute) const {
        return locked([&] { return world_->reads.contains(attribute) ? world_->reads.at(attribute) : 0; });
    }

    // ---- AccessibilityAPI
    ElementRef systemWideElement() override { return element(world_->systemWide); }
    // Null for a pid without an application node.
    ElementRef applicationElement(std::int32_t pid) override {
        return locked(
            [&] { return world_->applications.contains(pid) ? element(world_->applications[pid]) : nullptr; });
    }
    ElementRef elementAtPosition(float x, float y) override {
        return locked([&] { return element(world_->hitTest(Point{x, y})); });
    }
    std::vector<WindowInfo> windowList() override {
        std::lock_guard lock(world_->mutex);
        if (world_->windowListOverride) return *world_->windowListOverride;
        std::vector<WindowInfo> list;
        for (const World::StackEntry& entry : world_->stack) {
            if (!entry.window) {
                list.push_back(entry.foreign);
                continue;
            }
            const Node& window = world_->get(entry.window);
            if (window.destroyed) continue;
            WindowInfo info;
            if (Node* app = world_->find(window.application)) info.ownerName = app->appName, info.ownerPid = app->pid;
            info.name = world_->read<std::string>(entry.window, Attribute::Title).value_or("");
            if (const std::optional<Rect> f = world_->frame(entry.window)) {
                const auto round = [](double v) { return static_cast<std::int32_t>(std::lround(v)); };
                info.x = round(f->origin.x), info.y = round(f->origin.y);
                info.width = round(f->size.width), info.height = round(f->size.height);
            }
            list.push_back(std::move(info));
        }
        return list;
    }
    Point mouseLocation() override {
        return locked([&] { return world_->mouse; });
    }

private:
    using World = fake_ax::World;
    using Node = World::Node;
    template <class F>
    std::invoke_result_t<F> locked(F f) const {
        std::lock_guard lock(world_->mutex);
        return f();
    }
    // Shared with the element objects, which may outlive the fake.
    std::shared_ptr<World> world_ = std::make_shared<World>();
};

// Installs an accessibility interface for WindowLookup for one scope and puts the previous one back.
class ScopedAccessibility {
public:
    explicit ScopedAccessibility(std::shared_ptr<AccessibilityAPI> api) : previous_(WindowLookup::accessibility()) {
        WindowLookup::setAccessibility(std::move(api));
    }
    ~ScopedAccessibility() { WindowLookup::setAccessibility(previous_); }
    ScopedAccessibility(const ScopedAccessibility&) = delete;
    ScopedAccessibility& operator=(const ScopedAccessibility&) = delete;

private:
    std::shared_ptr<AccessibilityAPI> previous_;
};

}  // namespace jorvane::test
