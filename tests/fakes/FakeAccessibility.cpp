#include "fakes/FakeAccessibility.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <mutex>
#include <stdexcept>

#include "bridges/AXUtils.h"

namespace jorvane::test {

namespace {
constexpr std::string_view kRole = "AXRole";
constexpr std::string_view kWindow = "AXWindow";
constexpr std::string_view kParent = "AXParent";
constexpr std::string_view kChildren = "AXChildren";
constexpr std::string_view kWindows = "AXWindows";
constexpr std::string_view kTitle = "AXTitle";
constexpr std::string_view kPosition = "AXPosition";
constexpr std::string_view kSize = "AXSize";
// Bounds every walk through a tree the test may have made cyclic.
constexpr int kMaxDepth = 10000;
}  // namespace

struct FakeAccessibility::World {
    struct Node {
        std::map<std::string, FakeAXValue, std::less<>> attributes;
        bool destroyed = false;
        AXNode application;     // windows: their application
        std::int32_t pid = 0;   // applications
        std::string appName;    // applications
        bool isApplication = false;
        bool onScreen = true;   // windows
    };
    // A window of ours, or another program's window when `window` is no node.
    struct StackEntry {
        AXNode window;
        AXWindowInfo foreign;
    };
    struct Placement {
        Rect area;
        AXNode node;
    };

    mutable std::mutex mutex;
    std::vector<Node> nodes;  // node id - 1
    std::vector<StackEntry> stack;  // front first
    std::vector<Placement> placements;  // latest last
    std::optional<std::vector<AXWindowInfo>> windowListOverride;
    std::map<std::int32_t, AXNode> applications;
    AXNode systemWide;
    Point mouse;
    std::map<std::string, std::size_t, std::less<>> reads;
    std::size_t elementAtPositionCount = 0;

    // All below: with the mutex held.
    Node* find(AXNode n) {
        if (n.id <= 0 || static_cast<std::size_t>(n.id) > nodes.size()) return nullptr;
        return &nodes[static_cast<std::size_t>(n.id - 1)];
    }
    Node& get(AXNode n, const char* what) {
        Node* node = find(n);
        if (!node) throw std::invalid_argument(std::string("FakeAccessibility::") + what + ": no such node");
        return *node;
    }
    AXNode add() {
        nodes.emplace_back();
        return AXNode{static_cast<int>(nodes.size())};
    }
    template <class T>
    std::optional<T> read(AXNode n, std::string_view attribute) {
        Node* node = find(n);
        if (!node || node->destroyed) return std::nullopt;
        auto it = node->attributes.find(attribute);
        if (it == node->attributes.end()) return std::nullopt;
        if (const T* value = std::get_if<T>(&it->second)) return *value;
        return std::nullopt;
    }
    std::optional<Rect> frame(AXNode n) {
        std::optional<Point> position = read<Point>(n, kPosition);
        std::optional<Size> size = read<Size>(n, kSize);
        if (!position || !size) return std::nullopt;
        return Rect{*position, *size};
    }
    void appendTo(AXNode parent, std::string_view attribute, AXNode child) {
        Node& node = get(parent, "append");
        auto it = node.attributes.find(attribute);
        if (it == node.attributes.end() || !std::holds_alternative<std::vector<AXNode>>(it->second))
            it = node.attributes.insert_or_assign(std::string(attribute), std::vector<AXNode>{}).first;
        std::get<std::vector<AXNode>>(it->second).push_back(child);
    }
    AXNode windowAncestor(AXNode n) {
        for (int depth = 0; n && depth < kMaxDepth; ++depth) {
            if (read<std::string>(n, kRole) == kWindow) return n;
            n = read<AXNode>(n, kParent).value_or(AXNode{});
        }
        return AXNode{};
    }
    AXNode deepestAt(AXNode n, Point p, int depth) {
        if (depth > kMaxDepth) return n;
        const std::vector<AXNode> children = read<std::vector<AXNode>>(n, kChildren).value_or(std::vector<AXNode>{});
        for (auto it = children.rbegin(); it != children.rend(); ++it) {
            const std::optional<Rect> f = frame(*it);
            if (f && f->containsPoint(p)) return deepestAt(*it, p, depth + 1);
        }
        return n;
    }
    AXNode hitTest(Point p) {
        for (auto it = placements.rbegin(); it != placements.rend(); ++it)
            if (it->area.containsPoint(p)) return it->node;
        for (const StackEntry& entry : stack) {
            if (!entry.window) {
                const Rect r{{double(entry.foreign.x), double(entry.foreign.y)},
                             {double(entry.foreign.width), double(entry.foreign.height)}};
                if (r.containsPoint(p)) return AXNode{};
                continue;
            }
            Node* window = find(entry.window);
            if (!window || window->destroyed || !window->onScreen) continue;
            const std::optional<Rect> f = frame(entry.window);
            if (f && f->containsPoint(p)) return deepestAt(entry.window, p, 0);
        }
        return AXNode{};
    }
};

namespace {

class FakeElement final : public AXUIElement {
public:
    FakeElement(std::shared_ptr<FakeAccessibility::World> world, AXNode node) : world_(std::move(world)), node_(node) {}

    bool isEqual(const AXUIElement& other) const override {
        const auto* fake = dynamic_cast<const FakeElement*>(&other);
        return fake && fake->world_ == world_ && fake->node_ == node_;
    }

    std::optional<AXValue> copyAttributeValue(std::string_view attribute) const override;

    const std::shared_ptr<FakeAccessibility::World>& world() const { return world_; }
    AXNode node() const { return node_; }

private:
    std::shared_ptr<FakeAccessibility::World> world_;
    AXNode node_;
};

AXUIElementRef makeElement(const std::shared_ptr<FakeAccessibility::World>& world, AXNode node) {
    if (!node) return nullptr;
    return std::make_shared<FakeElement>(world, node);
}

std::optional<AXValue> FakeElement::copyAttributeValue(std::string_view attribute) const {
    std::lock_guard lock(world_->mutex);
    auto counted = world_->reads.find(attribute);
    if (counted == world_->reads.end()) counted = world_->reads.emplace(std::string(attribute), 0).first;
    ++counted->second;

    FakeAccessibility::World::Node* node = world_->find(node_);
    if (!node || node->destroyed) return std::nullopt;
    auto it = node->attributes.find(attribute);
    if (it == node->attributes.end()) return std::nullopt;
    return std::visit(
        [this](const auto& value) -> std::optional<AXValue> {
            using T = std::decay_t<decltype(value)>;
            if constexpr (std::is_same_v<T, AXNode>) {
                // An element attribute naming no node reads as missing.
                if (!value) return std::nullopt;
                return AXValue{makeElement(world_, value)};
            } else if constexpr (std::is_same_v<T, std::vector<AXNode>>) {
                std::vector<AXUIElementRef> elements;
                for (AXNode n : value)
                    if (n) elements.push_back(makeElement(world_, n));
                return AXValue{std::move(elements)};
            } else {
                return AXValue{value};
            }
        },
        it->second);
}

}  // namespace

FakeAccessibility::FakeAccessibility() : world_(std::make_shared<World>()) {
    std::lock_guard lock(world_->mutex);
    world_->systemWide = world_->add();
    world_->get(world_->systemWide, "systemWide").attributes.insert_or_assign(std::string(kRole), "AXSystemWide");
}

FakeAccessibility::~FakeAccessibility() = default;

AXNode FakeAccessibility::systemWide() const {
    std::lock_guard lock(world_->mutex);
    return world_->systemWide;
}

AXNode FakeAccessibility::addApplication(std::int32_t pid, std::string name) {
    std::lock_guard lock(world_->mutex);
    if (world_->applications.count(pid))
        throw std::invalid_argument("FakeAccessibility::addApplication: pid " + std::to_string(pid) + " exists");
    const AXNode app = world_->add();
    World::Node& node = world_->get(app, "addApplication");
    node.isApplication = true;
    node.pid = pid;
    node.appName = name;
    node.attributes.insert_or_assign(std::string(kRole), "AXApplication");
    node.attributes.insert_or_assign(std::string(kTitle), std::move(name));
    node.attributes.insert_or_assign(std::string(kWindows), std::vector<AXNode>{});
    node.attributes.insert_or_assign(std::string(kChildren), std::vector<AXNode>{});
    world_->applications[pid] = app;
    return app;
}

AXNode FakeAccessibility::application(std::int32_t pid) const {
    std::lock_guard lock(world_->mutex);
    auto it = world_->applications.find(pid);
    return it == world_->applications.end() ? AXNode{} : it->second;
}

AXNode FakeAccessibility::addWindow(AXNode application, std::string title, Rect frame) {
    std::lock_guard lock(world_->mutex);
    World::Node* app = world_->find(application);
    if (!app || app->destroyed || !app->isApplication)
        throw std::invalid_argument("FakeAccessibility::addWindow: not an application");
    const AXNode window = world_->add();
    World::Node& node = world_->get(window, "addWindow");
    node.application = application;
    node.attributes.insert_or_assign(std::string(kRole), std::string(kWindow));
    node.attributes.insert_or_assign(std::string(kTitle), std::move(title));
    node.attributes.insert_or_assign(std::string(kPosition), frame.origin);
    node.attributes.insert_or_assign(std::string(kSize), frame.size);
    node.attributes.insert_or_assign(std::string(kParent), application);
    node.attributes.insert_or_assign(std::string(kChildren), std::vector<AXNode>{});
    world_->appendTo(application, kWindows, window);
    world_->appendTo(application, kChildren, window);
    world_->stack.insert(world_->stack.begin(), World::StackEntry{window, {}});
    return window;
}

AXNode FakeAccessibility::addElement(AXNode parent, std::string role, std::optional<Rect> frame) {
    std::lock_guard lock(world_->mutex);
    if (parent) world_->get(parent, "addElement");
    const AXNode element = world_->add();
    const AXNode window = world_->windowAncestor(parent);
    World::Node& node = world_->get(element, "addElement");
    node.attributes.insert_or_assign(std::string(kRole), std::move(role));
    node.attributes.insert_or_assign(std::string(kChildren), std::vector<AXNode>{});
    if (parent) node.attributes.insert_or_assign(std::string(kParent), parent);
    if (window) node.attributes.insert_or_assign(std::string(kWindow), window);
    if (frame) {
        node.attributes.insert_or_assign(std::string(kPosition), frame->origin);
        node.attributes.insert_or_assign(std::string(kSize), frame->size);
    }
    if (parent) world_->appendTo(parent, kChildren, element);
    return element;
}

AXNode FakeAccessibility::addStaticText(AXNode parent, std::string text, Rect frame) {
    const AXNode element = addElement(parent, "AXStaticText", frame);
    setAttribute(element, "AXValue", std::move(text));
    return element;
}

AXNode FakeAccessibility::addChain(AXNode top, std::size_t length, std::string role) {
    AXNode current = top;
    for (std::size_t i = 0; i < length; ++i) {
        current = addElement(current, role);
        removeAttribute(current, kWindow);
    }
    return current;
}

void FakeAccessibility::setAttribute(AXNode node, std::string attribute, FakeAXValue value) {
    std::lock_guard lock(world_->mutex);
    world_->get(node, "setAttribute").attributes.insert_or_assign(std::move(attribute), std::move(value));
}

void FakeAccessibility::removeAttribute(AXNode node, std::string_view attribute) {
    std::lock_guard lock(world_->mutex);
    auto& attributes = world_->get(node, "removeAttribute").attributes;
    if (auto it = attributes.find(attribute); it != attributes.end()) attributes.erase(it);
}

std::optional<FakeAXValue> FakeAccessibility::attribute(AXNode node, std::string_view attribute) const {
    std::lock_guard lock(world_->mutex);
    const World::Node* n = world_->find(node);
    if (!n) return std::nullopt;
    auto it = n->attributes.find(attribute);
    if (it == n->attributes.end()) return std::nullopt;
    return it->second;
}

void FakeAccessibility::setFrame(AXNode node, Rect frame) {
    std::lock_guard lock(world_->mutex);
    auto& attributes = world_->get(node, "setFrame").attributes;
    attributes.insert_or_assign(std::string(kPosition), frame.origin);
    attributes.insert_or_assign(std::string(kSize), frame.size);
}

void FakeAccessibility::setTitle(AXNode node, std::string title) { setAttribute(node, std::string(kTitle), std::move(title)); }

void FakeAccessibility::destroy(AXNode node) {
    std::lock_guard lock(world_->mutex);
    World::Node& gone = world_->get(node, "destroy");
    gone.destroyed = true;
    for (World::Node& n : world_->nodes) {
        for (std::string_view list : {kChildren, kWindows}) {
            auto it = n.attributes.find(list);
            if (it == n.attributes.end()) continue;
            if (auto* members = std::get_if<std::vector<AXNode>>(&it->second)) std::erase(*members, node);
        }
    }
    std::erase_if(world_->stack, [node](const World::StackEntry& e) { return e.window == node; });
    std::erase_if(world_->placements, [node](const World::Placement& p) { return p.node == node; });
    std::erase_if(world_->applications, [node](const auto& entry) { return entry.second == node; });
}

bool FakeAccessibility::isDestroyed(AXNode node) const {
    std::lock_guard lock(world_->mutex);
    const World::Node* n = world_->find(node);
    return n && n->destroyed;
}

void FakeAccessibility::setMouseLocation(Point location) {
    std::lock_guard lock(world_->mutex);
    world_->mouse = location;
}

void FakeAccessibility::raise(AXNode window) {
    std::lock_guard lock(world_->mutex);
    auto& stack = world_->stack;
    auto it = std::find_if(stack.begin(), stack.end(), [window](const World::StackEntry& e) { return e.window == window; });
    if (it == stack.end()) throw std::invalid_argument("FakeAccessibility::raise: not a window");
    std::rotate(stack.begin(), it, it + 1);
}

void FakeAccessibility::setOnScreen(AXNode window, bool onScreen) {
    std::lock_guard lock(world_->mutex);
    world_->get(window, "setOnScreen").onScreen = onScreen;
}

void FakeAccessibility::addForeignWindow(AXWindowInfo info) {
    std::lock_guard lock(world_->mutex);
    world_->stack.insert(world_->stack.begin(), World::StackEntry{AXNode{}, std::move(info)});
}

void FakeAccessibility::setWindowList(std::optional<std::vector<AXWindowInfo>> list) {
    std::lock_guard lock(world_->mutex);
    world_->windowListOverride = std::move(list);
}

void FakeAccessibility::placeElement(Rect area, AXNode node) {
    std::lock_guard lock(world_->mutex);
    world_->placements.push_back({area, node});
}

void FakeAccessibility::clearPlacements() {
    std::lock_guard lock(world_->mutex);
    world_->placements.clear();
}

void FakeAccessibility::setFocusedWindow(AXNode window) {
    std::lock_guard lock(world_->mutex);
    auto& system = world_->get(world_->systemWide, "setFocusedWindow").attributes;
    if (auto it = system.find("AXFocusedApplication"); it != system.end()) {
        if (const AXNode* app = std::get_if<AXNode>(&it->second))
            if (World::Node* previous = world_->find(*app)) previous->attributes.erase("AXFocusedWindow");
        system.erase(it);
    }
    if (!window) return;
    World::Node& w = world_->get(window, "setFocusedWindow");
    if (!w.application) throw std::invalid_argument("FakeAccessibility::setFocusedWindow: not a window");
    system.insert_or_assign("AXFocusedApplication", w.application);
    world_->get(w.application, "setFocusedWindow").attributes.insert_or_assign("AXFocusedWindow", window);
}

AXUIElementRef FakeAccessibility::element(AXNode node) const { return makeElement(world_, node); }

AXNode FakeAccessibility::nodeOf(const AXUIElementRef& element) const {
    const auto* fake = dynamic_cast<const FakeElement*>(element.get());
    if (!fake || fake->world() != world_) return AXNode{};
    return fake->node();
}

std::size_t FakeAccessibility::readCount(std::string_view attribute) const {
    std::lock_guard lock(world_->mutex);
    auto it = world_->reads.find(attribute);
    return it == world_->reads.end() ? 0 : it->second;
}

std::size_t FakeAccessibility::elementAtPositionCount() const {
    std::lock_guard lock(world_->mutex);
    return world_->elementAtPositionCount;
}

void FakeAccessibility::resetCounts() {
    std::lock_guard lock(world_->mutex);
    world_->reads.clear();
    world_->elementAtPositionCount = 0;
}

AXUIElementRef FakeAccessibility::systemWideElement() { return element(systemWide()); }

AXUIElementRef FakeAccessibility::applicationElement(std::int32_t pid) { return element(application(pid)); }

AXUIElementRef FakeAccessibility::elementAtPosition(float x, float y) {
    AXNode hit;
    {
        std::lock_guard lock(world_->mutex);
        ++world_->elementAtPositionCount;
        hit = world_->hitTest(Point{x, y});
    }
    return element(hit);
}

std::vector<AXWindowInfo> FakeAccessibility::windowList() {
    std::lock_guard lock(world_->mutex);
    if (world_->windowListOverride) return *world_->windowListOverride;
    std::vector<AXWindowInfo> list;
    for (const World::StackEntry& entry : world_->stack) {
        if (!entry.window) {
            list.push_back(entry.foreign);
            continue;
        }
        World::Node* window = world_->find(entry.window);
        if (!window || window->destroyed || !window->onScreen) continue;
        AXWindowInfo info;
        if (World::Node* app = world_->find(window->application)) {
            info.ownerName = app->appName;
            info.ownerPid = app->pid;
        }
        info.name = world_->read<std::string>(entry.window, kTitle).value_or("");
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

ScopedAccessibility::ScopedAccessibility(std::shared_ptr<AccessibilityAPI> api) : previous_(AXUtils::accessibility()) {
    AXUtils::setAccessibility(std::move(api));
}

ScopedAccessibility::~ScopedAccessibility() { AXUtils::setAccessibility(previous_); }

}  // namespace jorvane::test
