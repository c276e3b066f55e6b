#include "platform/x11/X11Accessibility.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <map>
#include <mutex>
#include <string_view>
#include <tuple>
#include <utility>

#include "platform/x11/X11WindowObserver.h"
#include "platform/x11/X11Windows.h"
#include "util/Diagnostics.h"

namespace jorvane::x11 {

namespace {

using Kind = X11ElementIdentity::Kind;

// Owner name of panels and docks in the window list.
constexpr const char* kDockOwner = "Dock";

// Title layouts kept at most; one per window is all that is ever used.
constexpr std::size_t kTitleCacheSize = 64;

// How long one reading of a frame answers the other of its position and size
// (see X11Element::frameAttribute).
constexpr std::chrono::milliseconds kFramePairing{100};

std::int32_t whole(double v) { return static_cast<std::int32_t>(std::lround(v)); }

}  // namespace

// The connection and what is remembered between calls. Elements keep it
// alive, so an element may outlive the adapter that made it.
struct X11Accessibility::Session : std::enable_shared_from_this<Session> {
    explicit Session(std::string name) : displayName(std::move(name)) {}

    std::mutex mutex;
    const std::string displayName;
    std::unique_ptr<XcbDisplay> display;

    // Where a window's title text box is, relative to its outer frame, as
    // long as the frame keeps its place and size, and where the text was
    // last seen in it while the box was in full view.
    struct TitleLayout {
        std::tuple<std::uint32_t, double, double, double, double, std::uint32_t> key;
        xcb_window_t frame = 0;
        Rect boxInFrame;             // relative to the frame window
        Rect box;                    // relative to the outer frame
        std::optional<InkSpan> ink;  // relative to the box
    };
    std::map<std::uint32_t, TitleLayout> titles;

    // The display, connected again when the connection broke; nullptr when
    // it cannot be reached. Call with the mutex held.
    XcbDisplay* connected() {
        if (display && display->hasError()) {
            log::inDomain(log::Error, kX11AccessibilityLogDomain, "the X connection broke; connecting again");
            display.reset();
            titles.clear();
        }
        if (!display) display = XcbDisplay::connect(displayName);
        return display.get();
    }

    ElementRef element(const X11ElementIdentity& identity);
    std::optional<AttributeValue> attribute(const X11ElementIdentity& identity, Attribute name);
    // The frame of a window or title text element.
    std::optional<Rect> frame(const X11ElementIdentity& identity);

    // Helpers, called with the mutex held on a connected display.
    std::vector<xcb_window_t> clients(const XcbDisplay& d);
    std::optional<xcb_window_t> activeWindow(const XcbDisplay& d);
    std::optional<std::int32_t> pidOf(const XcbDisplay& d, xcb_window_t window);
    std::optional<Rect> titleTextRect(const XcbDisplay& d, xcb_window_t client);
};

namespace {

class X11Element final : public Element {
public:
    X11Element(std::shared_ptr<X11Accessibility::Session> session, X11ElementIdentity identity)
        : session_(std::move(session)), identity_(identity) {}

    bool isEqual(const Element& other) const override {
        const auto* x11 = dynamic_cast<const X11Element*>(&other);
        return x11 && x11->identity_ == identity_;
    }

    std::optional<AttributeValue> copyAttributeValue(Attribute attribute) const override {
        const bool hasFrame = identity_.kind == Kind::Window || identity_.kind == Kind::TitleText;
        if (hasFrame && (attribute == Attribute::Position || attribute == Attribute::Size))
            return frameAttribute(attribute == Attribute::Position);
        return session_->attribute(identity_, attribute);
    }

    const X11ElementIdentity& identity() const { return identity_; }

private:
    // Callers read the position and the size one after the other to learn a
    // frame. One reading answers both: the other attribute, asked of the
    // same element right after, takes the rectangle the first one read.
    // That halves the cost and keeps the two halves of one rectangle.
    std::optional<AttributeValue> frameAttribute(bool position) const {
        const auto now = std::chrono::steady_clock::now();
        std::optional<Rect> rect;
        {
            std::lock_guard lock(pairMutex_);
            if (pending_ && pending_->forPosition == position && now - pending_->readAt < kFramePairing)
                rect = pending_->rect;
            pending_.reset();
        }
        if (!rect) {
            rect = session_->frame(identity_);
            if (!rect) return std::nullopt;
            std::lock_guard lock(pairMutex_);
            pending_ = Pending{*rect, !position, now};
        }
        return position ? AttributeValue{rect->origin} : AttributeValue{rect->size};
    }

    std::shared_ptr<X11Accessibility::Session> session_;
    X11ElementIdentity identity_;
    struct Pending {
        Rect rect;
        bool forPosition;  // the attribute that may still take it
        std::chrono::steady_clock::time_point readAt;
    };
    mutable std::mutex pairMutex_;
    mutable std::optional<Pending> pending_;
};

}  // namespace

ElementRef X11Accessibility::Session::element(const X11ElementIdentity& identity) {
    return std::make_shared<X11Element>(shared_from_this(), identity);
}

std::vector<xcb_window_t> X11Accessibility::Session::clients(const XcbDisplay& d) {
    return readWindowsProperty(d, d.root(), d.atoms().netClientList).value_or(std::vector<xcb_window_t>{});
}

std::optional<xcb_window_t> X11Accessibility::Session::activeWindow(const XcbDisplay& d) {
    // xfwm4 stores two windows here, the active one first; openbox sets 0
    // between two windows and while an override-redirect window of ours has
    // the focus.
    const auto active = readWindowsProperty(d, d.root(), d.atoms().netActiveWindow);
    if (!active || active->empty() || active->front() == 0) return std::nullopt;
    return active->front();
}

std::optional<std::int32_t> X11Accessibility::Session::pidOf(const XcbDisplay& d, xcb_window_t window) {
    const auto properties = readClientProperties(d, {window}, kClientPid).front();
    if (!properties || properties->pid <= 0) return std::nullopt;
    return properties->pid;
}

std::optional<Rect> X11Accessibility::Session::titleTextRect(const XcbDisplay& d, xcb_window_t client) {
    // With the layout found last time, the image of the title's box travels
    // with the request that tells whether that layout still holds.
    auto layout = titles.find(client);
    const InkRequest early =
        layout != titles.end() ? requestInk(d, layout->second.frame, layout->second.boxInFrame) : InkRequest{};
    const auto snapshot = readClientSnapshot(d, client);
    if (!snapshot || snapshot->frame.extents.top == 0) {
        discardInk(d, early);
        return std::nullopt;
    }
    const ClientFrame& geometry = snapshot->frame;
    const Rect outer = geometry.outer();
    auto atOuter = [&outer](const Rect& r) {
        return Rect{{outer.origin.x + r.origin.x, outer.origin.y + r.origin.y}, r.size};
    };

    // The box moves and changes only with the frame.
    const auto key = std::make_tuple(snapshot->parent, outer.origin.x, outer.origin.y, outer.size.width,
                                     outer.size.height, geometry.extents.top);
    std::optional<InkSpan> ink;
    if (layout != titles.end() && layout->second.key == key) {
        ink = inkReply(d, early);
    } else {
        discardInk(d, early);
        const xcb_window_t frame = topLevelOf(d, client);
        if (frame == 0) return std::nullopt;
        const auto frameShape = readWindowShapes(d, {frame}).front();
        const auto box = titleTextBox(d, frame, client, geometry);
        if (!frameShape || !box) return std::nullopt;
        // From frame coordinates to coordinates relative to the outer frame.
        const Rect relative{{box->origin.x + frameShape->rect.origin.x - outer.origin.x,
                             box->origin.y + frameShape->rect.origin.y - outer.origin.y},
                            box->size};
        if (titles.size() >= kTitleCacheSize) titles.clear();
        layout = titles.insert_or_assign(client, TitleLayout{key, frame, *box, relative, std::nullopt}).first;
        ink = measureInk(d, frame, *box);
    }
    TitleLayout& t = layout->second;
    auto narrowed = [&](const std::optional<InkSpan>& span) {
        Rect text = t.box;
        if (span) {
            text.origin.x += span->left;
            text.size.width = span->width;
        }
        return atOuter(text);
    };

    // The text is looked at on every read: the window manager redraws a new
    // title a moment after it is set, and until then the box shows the old
    // one. A box that shows something else than last time may also be
    // covered, by our own address bar for one; then the last measurement
    // made in full view stands.
    if (ink && t.ink && ink->left == t.ink->left && ink->width == t.ink->width) return narrowed(ink);
    if (isCoveredAbove(d, t.frame, atOuter(t.box))) return narrowed(t.ink);
    t.ink = ink;
    return narrowed(ink);
}

std::optional<Rect> X11Accessibility::Session::frame(const X11ElementIdentity& id) {
    std::lock_guard lock(mutex);
    XcbDisplay* d = connected();
    if (!d) return std::nullopt;
    if (id.kind == Kind::TitleText) return titleTextRect(*d, id.window);
    if (id.kind != Kind::Window) return std::nullopt;
    const auto geometry = readClientFrames(*d, {id.window}).front();
    if (!geometry) return std::nullopt;
    return geometry->outer();
}

std::optional<AttributeValue> X11Accessibility::Session::attribute(const X11ElementIdentity& id, Attribute name) {
    // Answers that need no X request.
    if (name == Attribute::Role) {
        switch (id.kind) {
            case Kind::SystemWide: return AttributeValue{Role::SystemWide};
            case Kind::Application: return AttributeValue{Role::Application};
            case Kind::Window: return AttributeValue{Role::Window};
            case Kind::TitleText: return AttributeValue{Role::Text};
        }
    }
    if (id.kind == Kind::Window && name == Attribute::Window) return AttributeValue{element(id)};
    if (id.kind == Kind::Window && name == Attribute::Children)
        return AttributeValue{std::vector<ElementRef>{element({Kind::TitleText, id.window, 0})}};
    if (id.kind == Kind::TitleText && (name == Attribute::Window || name == Attribute::Parent))
        return AttributeValue{element({Kind::Window, id.window, 0})};
    if (id.kind == Kind::TitleText && name == Attribute::Children) return AttributeValue{std::vector<ElementRef>{}};

    std::lock_guard lock(mutex);
    XcbDisplay* d = connected();
    if (!d) return std::nullopt;

    switch (id.kind) {
        case Kind::SystemWide:
            if (name == Attribute::FocusedApplication) {
                const auto active = activeWindow(*d);
                const auto pid = active ? pidOf(*d, *active) : std::nullopt;
                if (pid) return AttributeValue{element({Kind::Application, 0, *pid})};
            }
            return std::nullopt;

        case Kind::Application:
            if (name == Attribute::Windows || name == Attribute::Children) {
                // Front to back. xfwm4 sets the stacking list only once it
                // has restacked something; the client list (oldest first)
                // stands in until then.
                auto order = readWindowsProperty(*d, d->root(), d->atoms().netClientListStacking);
                if (!order || order->empty()) order = readWindowsProperty(*d, d->root(), d->atoms().netClientList);
                if (!order) return std::nullopt;
                std::vector<xcb_window_t> windows(order->rbegin(), order->rend());
                const auto properties = readClientProperties(*d, windows, kClientPid | kClientType);
                std::vector<ElementRef> result;
                for (std::size_t i = 0; i < windows.size(); ++i) {
                    const auto& p = properties[i];
                    if (p && p->pid == id.pid && p->type == WindowType::Normal && !p->transient)
                        result.push_back(element({Kind::Window, windows[i], 0}));
                }
                return AttributeValue{std::move(result)};
            }
            if (name == Attribute::FocusedWindow) {
                const auto active = activeWindow(*d);
                if (active && pidOf(*d, *active) == id.pid) return AttributeValue{element({Kind::Window, *active, 0})};
            }
            return std::nullopt;

        case Kind::Window:
            if (name == Attribute::Title) {
                const auto p = readClientProperties(*d, {id.window}, kClientName).front();
                if (p) return AttributeValue{p->name};
            } else if (name == Attribute::Parent) {
                if (const auto pid = pidOf(*d, id.window)) return AttributeValue{element({Kind::Application, 0, *pid})};
            } else if (name == Attribute::TitleBandHeight) {
                if (const auto snapshot = readClientSnapshot(*d, id.window))
                    return AttributeValue{static_cast<std::int64_t>(snapshot->frame.extents.top)};
            }
            return std::nullopt;

        case Kind::TitleText:
            if (name == Attribute::Value) {
                const auto p = readClientProperties(*d, {id.window}, kClientName).front();
                if (p) return AttributeValue{p->name};
            }
            return std::nullopt;
    }
    return std::nullopt;
}

// ---- X11Accessibility

X11Accessibility::X11Accessibility(std::string displayName)
    : session_(std::make_shared<Session>(std::move(displayName))) {
    std::lock_guard lock(session_->mutex);
    session_->connected();
}

X11Accessibility::~X11Accessibility() = default;

bool X11Accessibility::isConnected() {
    std::lock_guard lock(session_->mutex);
    return session_->connected() != nullptr;
}

ElementRef X11Accessibility::systemWideElement() { return session_->element({Kind::SystemWide, 0, 0}); }

ElementRef X11Accessibility::applicationElement(std::int32_t pid) {
    if (pid <= 0) return nullptr;
    return session_->element({Kind::Application, 0, pid});
}

ElementRef X11Accessibility::windowElement(std::uint32_t clientWindow) {
    if (clientWindow == 0) return nullptr;
    return session_->element({Kind::Window, clientWindow, 0});
}

std::optional<X11ElementIdentity> X11Accessibility::identityOf(const ElementRef& element) {
    const auto* x11 = dynamic_cast<const X11Element*>(element.get());
    if (!x11) return std::nullopt;
    return x11->identity();
}

ElementRef X11Accessibility::elementAtPosition(float x, float y) {
    std::lock_guard lock(session_->mutex);
    XcbDisplay* d = session_->connected();
    if (!d) return nullptr;
    const Point position{x, y};
    const auto lookup = lookUpPoint(*d, position);
    if (!lookup || lookup->topLevel == 0) return nullptr;
    const xcb_window_t client = clientOfTopLevel(*d, lookup->topLevel, lookup->clients);
    if (client == 0) return nullptr;
    const auto frame = readClientFrames(*d, {client}).front();
    if (!frame) return nullptr;
    const Rect outer = frame->outer();
    const Rect band{outer.origin, {outer.size.width, static_cast<double>(frame->extents.top)}};
    return session_->element({band.containsPoint(position) ? Kind::TitleText : Kind::Window, client, 0});
}

namespace {

// One viewable top-level of the window list, while it is built.
struct ListedWindow {
    xcb_window_t window = 0;
    bool managed = false;
    Rect bounds;
};

// The entries at `framed` hold window-manager frames: each becomes the client
// it frames, or 0 for a window of the window manager's own.
void replaceFramesByClients(const XcbDisplay& d, const std::vector<xcb_window_t>& clients,
                            const std::vector<std::size_t>& framed, std::vector<ListedWindow>& entries) {
    std::vector<xcb_window_t> frames;
    for (const std::size_t i : framed) frames.push_back(entries[i].window);
    const auto trees = queryTrees(d, frames);
    for (std::size_t k = 0; k < framed.size(); ++k) {
        ListedWindow& e = entries[framed[k]];
        xcb_window_t client = 0;
        if (trees[k])
            for (const xcb_window_t child : trees[k]->children)
                if (std::find(clients.begin(), clients.end(), child) != clients.end()) client = child;
        if (client == 0) client = clientOfTopLevel(d, e.window, clients);
        e.window = client;
    }
}

}  // namespace

std::vector<WindowInfo> X11Accessibility::windowList() {
    std::lock_guard lock(session_->mutex);
    XcbDisplay* d = session_->connected();
    if (!d) return {};
    const auto rootTree = queryTrees(*d, {d->root()}).front();
    if (!rootTree) return {};
    const std::vector<xcb_window_t> clients = session_->clients(*d);
    const std::vector<xcb_window_t> topLevels(rootTree->children.rbegin(), rootTree->children.rend());
    const auto shapes = readWindowShapes(*d, topLevels);

    // Each viewable top-level stands for the client it frames, or for itself
    // when it is a client or an override-redirect window.
    std::vector<ListedWindow> entries;
    std::vector<std::size_t> framed;  // entries whose client is still to find
    auto isClient = [&clients](xcb_window_t w) {
        return std::find(clients.begin(), clients.end(), w) != clients.end();
    };
    for (std::size_t i = 0; i < topLevels.size(); ++i) {
        const auto& s = shapes[i];
        if (!s || !s->viewable || !s->inputOutput || s->rect.isEmpty()) continue;
        if (isClient(topLevels[i])) {
            entries.push_back({topLevels[i], true, s->rect});
        } else if (s->overrideRedirect) {
            entries.push_back({topLevels[i], false, s->rect});
        } else {
            framed.push_back(entries.size());
            entries.push_back({topLevels[i], true, s->rect});
        }
    }
    replaceFramesByClients(*d, clients, framed, entries);
    std::erase_if(entries, [](const ListedWindow& e) { return e.window == 0; });

    std::vector<xcb_window_t> windows;
    std::vector<xcb_window_t> managed;
    for (const ListedWindow& e : entries) {
        windows.push_back(e.window);
        if (e.managed) managed.push_back(e.window);
    }
    const auto properties = readClientProperties(*d, windows);
    // Bounds as the position and size attributes give them, so that the two agree.
    const auto frames = readClientFrames(*d, managed);

    std::vector<WindowInfo> list;
    for (std::size_t i = 0, m = 0; i < entries.size(); ++i) {
        const ListedWindow& e = entries[i];
        Rect bounds = e.bounds;
        if (e.managed) {
            const auto& frame = frames[m++];
            if (!frame) continue;  // gone meanwhile
            bounds = frame->outer();
        }
        const auto& p = properties[i];
        if (!p) continue;
        if (p->hidden || p->type == WindowType::Desktop) continue;
        WindowInfo info;
        info.ownerName = p->type == WindowType::Dock ? kDockOwner : p->wmClass;
        info.ownerPid = p->pid;
        info.name = p->name;
        info.x = whole(bounds.origin.x);
        info.y = whole(bounds.origin.y);
        info.width = whole(bounds.size.width);
        info.height = whole(bounds.size.height);
        list.push_back(std::move(info));
    }
    return list;
}

Point X11Accessibility::mouseLocation() {
    std::lock_guard lock(session_->mutex);
    XcbDisplay* d = session_->connected();
    if (!d) return {};
    xcb_generic_error_t* error = nullptr;
    const XcbReply<xcb_query_pointer_reply_t> reply(
        xcb_query_pointer_reply(d->connection(), xcb_query_pointer(d->connection(), d->root()), &error));
    if (error) {
        logXError("QueryPointer", d->root(), error);
        std::free(error);
    }
    if (!reply) return {};
    return {static_cast<double>(reply->root_x), static_cast<double>(reply->root_y)};
}

std::unique_ptr<WindowObserver> X11Accessibility::createObserver(std::int32_t pid, WindowObserver::Callback callback) {
    (void)pid;
    auto factory = [session = session_](const X11ElementIdentity& identity) { return session->element(identity); };
    auto observer = std::make_unique<X11WindowObserver>(session_->displayName, std::move(callback), std::move(factory));
    if (!observer->isWatching()) return nullptr;
    return observer;
}

}  // namespace jorvane::x11
