#include "fakes/FakeAccessibility.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <mutex>
#include <stdexcept>

#include "accessibility/WindowLookup.h"

namespace jorvane::test {

namespace {
// Bounds every walk through a tree the test may have made cyclic.
constexpr int kMaxDepth = 10000;
}  // namespace

struct FakeAccessibility::World {
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
    struct Placement {
        Rect area;
        ElementNode node;
    };

    mutable std::mutex mutex;
    std::vector<Node> nodes;            // node id - 1
    std::vector<StackEntry> stack;      // front first
    std::vector<Placement> placements;  // latest last
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
    Node& get(ElementNode n, const char* what) {
        Node* node = find(n);
        if (!node) throw std::invalid_argument(std::string("FakeAccessibility::") + what + ": no such node");
        return *node;
    }
    ElementNode add() {
        nodes.emplace_back();
        return ElementNode{static_cast<int>(nodes.size())};
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
        std::optional<Point> position = read<Point>(n, Attribute::Position);
        std::optional<Size> size = read<Size>(n, Attribute::Size);
        if (!position || !size) return std::nullopt;
        return Rect{*position, *size};
    }
    void appendTo(ElementNode parent, Attribute attribute, ElementNode child) {
        Node& node = get(parent, "append");
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
        const std::vector<ElementNode> children =
            read<std::vector<ElementNode>>(n, Attribute::Children).value_or(std::vector<ElementNode>{});
        for (auto it = children.rbegin(); it != children.rend(); ++it) {
            const std::optional<Rect> f = frame(*it);
            if (f && f->containsPoint(p)) return deepestAt(*it, p, depth + 1);
        }
        return n;
    }
    ElementNode hitTest(Point p) {
        for (auto it = placements.rbegin(); it != placements.rend(); ++it)
            if (it->area.containsPoint(p)) return it->node;
        for (const StackEntry& entry : stack) {
            if (!entry.window) {
                const Rect r{{double(entry.foreign.x), double(entry.foreign.y)},
                             {double(entry.foreign.width), double(entry.foreign.height)}};
                if (r.containsPoint(p)) return ElementNode{};
                continue;
            }
            Node* window = find(entry.window);
            if (!window || window->destroyed) continue;
            const std::optional<Rect> f = frame(entry.window);
            if (f && f->containsPoint(p)) return deepestAt(entry.window, p, 0);
        }
        return ElementNode{};
    }
};

namespace {

class FakeElement final : public Element {
public:
    FakeElement(std::shared_ptr<FakeAccessibility::World> world, ElementNode node)
        : world_(std::move(world)), node_(node) {}

    bool isEqual(const Element& other) const override {
        const auto* fake = dynamic_cast<const FakeElement*>(&other);
        return fake && fake->world_ == world_ && fake->node_ == node_;
    }

    std::optional<AttributeValue> copyAttributeValue(Attribute attribute) const override;

    const std::shared_ptr<FakeAccessibility::World>& world() const { return world_; }
    ElementNode node() const { return node_; }

private:
    std::shared_ptr<FakeAccessibility::World> world_;
    ElementNode node_;
};

ElementRef makeElement(const std::shared_ptr<FakeAccessibility::World>& world, ElementNode node) {
    if (!node) return nullptr;
    return std::make_shared<FakeElement>(world, node);
}

std::optional<AttributeValue> FakeElement::copyAttributeValue(Attribute attribute) const {
    std::lock_guard lock(world_->mutex);
    ++world_->reads[attribute];

    FakeAccessibility::World::Node* node = world_->find(node_);
    if (!node || node->destroyed) return std::nullopt;
    auto it = node->attributes.find(attribute);
    if (it == node->attributes.end()) return std::nullopt;
    return std::visit(
        [this](const auto& value) -> std::optional<AttributeValue> {
            using T = std::decay_t<decltype(value)>;
            if constexpr (std::is_same_v<T, ElementNode>) {
                // An element attribute naming no node reads as missing.
                if (!value) return std::nullopt;
                return AttributeValue{makeElement(world_, value)};
            } else if constexpr (std::is_same_v<T, std::vector<ElementNode>>) {
                std::vector<ElementRef> elements;
                for (ElementNode n : value)
                    if (n) elements.push_back(makeElement(world_, n));
                return AttributeValue{std::move(elements)};
            } else {
                return AttributeValue{value};
            }
        },
        it->second);
}

}  // namespace

FakeAccessibility::FakeAccessibility() : world_(std::make_shared<World>()) {
    std::lock_guard lock(world_->mutex);
    world_->systemWide = world_->add();
    world_->get(world_->systemWide, "systemWide").attributes.insert_or_assign(Attribute::Role, Role::SystemWide);
}

FakeAccessibility::~FakeAccessibility() = default;

ElementNode FakeAccessibility::addApplication(std::int32_t pid, std::string name) {
    std::lock_guard lock(world_->mutex);
    if (world_->applications.count(pid))
        throw std::invalid_argument("FakeAccessibility::addApplication: pid " + std::to_string(pid) + " exists");
    const ElementNode app = world_->add();
    World::Node& node = world_->get(app, "addApplication");
    node.isApplication = true;
    node.pid = pid;
    node.appName = name;
    node.attributes.insert_or_assign(Attribute::Role, Role::Application);
    node.attributes.insert_or_assign(Attribute::Title, std::move(name));
    node.attributes.insert_or_assign(Attribute::Windows, std::vector<ElementNode>{});
    node.attributes.insert_or_assign(Attribute::Children, std::vector<ElementNode>{});
    world_->applications[pid] = app;
    return app;
}

ElementNode FakeAccessibility::addWindow(ElementNode application, std::string title, Rect frame) {
    std::lock_guard lock(world_->mutex);
    World::Node* app = world_->find(application);
    if (!app || app->destroyed || !app->isApplication)
        throw std::invalid_argument("FakeAccessibility::addWindow: not an application");
    const ElementNode window = world_->add();
    World::Node& node = world_->get(window, "addWindow");
    node.application = application;
    node.attributes.insert_or_assign(Attribute::Role, Role::Window);
    node.attributes.insert_or_assign(Attribute::Title, std::move(title));
    node.attributes.insert_or_assign(Attribute::Position, frame.origin);
    node.attributes.insert_or_assign(Attribute::Size, frame.size);
    node.attributes.insert_or_assign(Attribute::Parent, application);
    node.attributes.insert_or_assign(Attribute::Children, std::vector<ElementNode>{});
    world_->appendTo(application, Attribute::Windows, window);
    world_->appendTo(application, Attribute::Children, window);
    world_->stack.insert(world_->stack.begin(), World::StackEntry{window, {}});
    return window;
}

ElementNode FakeAccessibility::addElement(ElementNode parent, Role role, std::optional<Rect> frame) {
    std::lock_guard lock(world_->mutex);
    if (parent) world_->get(parent, "addElement");
    const ElementNode element = world_->add();
    const ElementNode window = world_->windowAncestor(parent);
    World::Node& node = world_->get(element, "addElement");
    node.attributes.insert_or_assign(Attribute::Role, role);
    node.attributes.insert_or_assign(Attribute::Children, std::vector<ElementNode>{});
    if (parent) node.attributes.insert_or_assign(Attribute::Parent, parent);
    if (window) node.attributes.insert_or_assign(Attribute::Window, window);
    if (frame) {
        node.attributes.insert_or_assign(Attribute::Position, frame->origin);
        node.attributes.insert_or_assign(Attribute::Size, frame->size);
    }
    if (parent) world_->appendTo(parent, Attribute::Children, element);
    return element;
}

ElementNode FakeAccessibility::addStaticText(ElementNode parent, std::string text, Rect frame) {
    const ElementNode element = addElement(parent, Role::Text, frame);
    setAttribute(element, Attribute::Value, std::move(text));
    return element;
}

ElementNode FakeAccessibility::addChain(ElementNode top, std::size_t length, Role role) {
    ElementNode current = top;
    for (std::size_t i = 0; i < length; ++i) {
        current = addElement(current, role);
        removeAttribute(current, Attribute::Window);
    }
    return current;
}

void FakeAccessibility::setAttribute(ElementNode node, Attribute attribute, FakeAttributeValue value) {
    std::lock_guard lock(world_->mutex);
    world_->get(node, "setAttribute").attributes.insert_or_assign(attribute, std::move(value));
}

void FakeAccessibility::removeAttribute(ElementNode node, Attribute attribute) {
    std::lock_guard lock(world_->mutex);
    world_->get(node, "removeAttribute").attributes.erase(attribute);
}

void FakeAccessibility::setFrame(ElementNode node, Rect frame) {
    std::lock_guard lock(world_->mutex);
    auto& attributes = world_->get(node, "setFrame").attributes;
    attributes.insert_or_assign(Attribute::Position, frame.origin);
    attributes.insert_or_assign(Attribute::Size, frame.size);
}

void FakeAccessibility::setTitle(ElementNode node, std::string title) {
    setAttribute(node, Attribute::Title, std::move(title));
}

void FakeAccessibility::destroy(ElementNode node) {
    std::lock_guard lock(world_->mutex);
    World::Node& gone = world_->get(node, "destroy");
    gone.destroyed = true;
    for (World::Node& n : world_->nodes) {
        for (Attribute list : {Attribute::Children, Attribute::Windows}) {
            auto it = n.attributes.find(list);
            if (it == n.attributes.end()) continue;
            if (auto* members = std::get_if<std::vector<ElementNode>>(&it->second)) std::erase(*members, node);
        }
    }
    std::erase_if(world_->stack, [node](const World::StackEntry& e) { return e.window == node; });
    std::erase_if(world_->placements, [node](const World::Placement& p) { return p.node == node; });
    std::erase_if(world_->applications, [node](const auto& entry) { return entry.second == node; });
}

void FakeAccessibility::setMouseLocation(Point location) {
    std::lock_guard lock(world_->mutex);
    world_->mouse = location;
}

void FakeAccessibility::raise(ElementNode window) {
    std::lock_guard lock(world_->mutex);
    auto& stack = world_->stack;
    auto it =
        std::find_if(stack.begin(), stack.end(), [window](const World::StackEntry& e) { return e.window == window; });
    if (it == stack.end()) throw std::invalid_argument("FakeAccessibility::raise: not a window");
    std::rotate(stack.begin(), it, it + 1);
}

void FakeAccessibility::addForeignWindow(WindowInfo info) {
    std::lock_guard lock(world_->mutex);
    world_->stack.insert(world_->stack.begin(), World::StackEntry{ElementNode{}, std::move(info)});
}

void FakeAccessibility::setWindowList(std::optional<std::vector<WindowInfo>> list) {
    std::lock_guard lock(world_->mutex);
    world_->windowListOverride = std::move(list);
}

void FakeAccessibility::placeElement(Rect area, ElementNode node) {
    std::lock_guard lock(world_->mutex);
    world_->placements.push_back({area, node});
}

void FakeAccessibility::setFocusedWindow(ElementNode window) {
    std::lock_guard lock(world_->mutex);
    auto& system = world_->get(world_->systemWide, "setFocusedWindow").attributes;
    if (auto it = system.find(Attribute::FocusedApplication); it != system.end()) {
        if (const ElementNode* app = std::get_if<ElementNode>(&it->second))
            if (World::Node* previous = world_->find(*app)) previous->attributes.erase(Attribute::FocusedWindow);
        system.erase(it);
    }
    if (!window) return;
    World::Node& w = world_->get(window, "setFocusedWindow");
    if (!w.application) throw std::invalid_argument("FakeAccessibility::setFocusedWindow: not a window");
    system.insert_or_assign(Attribute::FocusedApplication, w.application);
    world_->get(w.application, "setFocusedWindow").attributes.insert_or_assign(Attribute::FocusedWindow, window);
}

ElementRef FakeAccessibility::element(ElementNode node) const { return makeElement(world_, node); }

ElementNode FakeAccessibility::nodeOf(const ElementRef& element) const {
    const auto* fake = dynamic_cast<const FakeElement*>(element.get());
    if (!fake || fake->world() != world_) return ElementNode{};
    return fake->node();
}

std::size_t FakeAccessibility::readCount(Attribute attribute) const {
    std::lock_guard lock(world_->mutex);
    auto it = world_->reads.find(attribute);
    return it == world_->reads.end() ? 0 : it->second;
}

ElementRef FakeAccessibility::systemWideElement() {
    std::lock_guard lock(world_->mutex);
    return makeElement(world_, world_->systemWide);
}

ElementRef FakeAccessibility::applicationElement(std::int32_t pid) {
    std::lock_guard lock(world_->mutex);
    auto it = world_->applications.find(pid);
    return it == world_->applications.end() ? nullptr : makeElement(world_, it->second);
}

ElementRef FakeAccessibility::elementAtPosition(float x, float y) {
    ElementNode hit;
    {
        std::lock_guard lock(world_->mutex);
        hit = world_->hitTest(Point{x, y});
    }
    return element(hit);
}

std::vector<WindowInfo> FakeAccessibility::windowList() {
    std::lock_guard lock(world_->mutex);
    if (world_->windowListOverride) return *world_->windowListOverride;
    std::vector<WindowInfo> list;
    for (const World::StackEntry& entry : world_->stack) {
        if (!entry.window) {
            list.push_back(entry.foreign);
            continue;
        }
        World::Node* window = world_->find(entry.window);
        if (!window || window->destroyed) continue;
        WindowInfo info;
        if (World::Node* app = world_->find(window->application)) {
            info.ownerName = app->appName;
            info.ownerPid = app->pid;
        }
        info.name = world_->read<std::string>(entry.window, Attribute::Title).value_or("");
        if (const std::optional<Rect> f = world_->frame(entry.window)) {
            info.x = static_cast<std::int32_t>(std::lround(f->origin.x));
            info.y = static_cast<std::int32_t>(std::lround(f->origin.y));
            info.width = static_cast<std::int32_t>(std::lround(f->size.width));
            info.height = static_cast<std::int32_t>(std::lround(f->size.height));
        }
        list.push_back(std::move(info));
    }
    return list;
}

Point FakeAccessibility::mouseLocation() {
    std::lock_guard lock(world_->mutex);
    return world_->mouse;
}

ScopedAccessibility::ScopedAccessibility(std::shared_ptr<AccessibilityAPI> api)
    : previous_(WindowLookup::accessibility()) {
    WindowLookup::setAccessibility(std::move(api));
}

ScopedAccessibility::~ScopedAccessibility() { WindowLookup::setAccessibility(previous_); }

}  // namespace jorvane::test
