#include "platform/x11/X11Windows.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "util/Diagnostics.h"

namespace jorvane::x11 {

namespace {

// Core protocol error codes that say the window (or drawable) is gone.
constexpr std::uint8_t kBadWindow = 3;
constexpr std::uint8_t kBadDrawable = 9;
// WM_STATE's state field for an iconified window (ICCCM).
constexpr std::uint32_t kWmStateIconic = 3;

// Longest property value read, in 32-bit units: enough for a title of 4 KiB
// or a client list of 4096 windows.
constexpr std::uint32_t kPropertyLength = 1024;

// A pixel is ink when one of its channels differs this much from the row's
// background. Anti-aliased glyph edges fall below it, their stems do not;
// the gradients title bars are painted with change far less from one
// column to the next.
constexpr int kInkThreshold = 48;

template <class T>
XcbReply<T> own(T* reply) {
    return XcbReply<T>(reply);
}

// Takes the error out of a reply call, logs it and frees it.
class ErrorSlot {
public:
    ErrorSlot(const char* request, std::uint32_t window) : request_(request), window_(window) {}
    ~ErrorSlot() {
        if (error_) {
            logXError(request_, window_, error_);
            std::free(error_);
        }
    }
    ErrorSlot(const ErrorSlot&) = delete;
    ErrorSlot& operator=(const ErrorSlot&) = delete;
    xcb_generic_error_t** operator&() { return &error_; }

private:
    const char* request_;
    std::uint32_t window_;
    xcb_generic_error_t* error_ = nullptr;
};

xcb_get_property_cookie_t requestProperty(const XcbDisplay& d, xcb_window_t window, xcb_atom_t property,
                                          xcb_atom_t type = XCB_ATOM_ANY) {
    return xcb_get_property(d.connection(), 0, window, property, type, 0, kPropertyLength);
}

// The reply, or nothing (logged) when the window is gone.
XcbReply<xcb_get_property_reply_t> propertyReply(const XcbDisplay& d, xcb_get_property_cookie_t cookie,
                                                 std::uint32_t window) {
    ErrorSlot error("GetProperty", window);
    return own(xcb_get_property_reply(d.connection(), cookie, &error));
}

std::vector<std::uint32_t> cardinals(const xcb_get_property_reply_t* reply) {
    if (!reply || reply->format != 32) return {};
    const auto* data = static_cast<const std::uint32_t*>(xcb_get_property_value(reply));
    const int count = xcb_get_property_value_length(reply) / 4;
    return {data, data + count};
}

std::string bytes(const xcb_get_property_reply_t* reply) {
    if (!reply || reply->format != 8) return {};
    const char* data = static_cast<const char*>(xcb_get_property_value(reply));
    return std::string(data, static_cast<std::size_t>(xcb_get_property_value_length(reply)));
}

std::string latin1ToUtf8(const std::string& latin1) {
    std::string out;
    out.reserve(latin1.size());
    for (const char ch : latin1) {
        const auto c = static_cast<unsigned char>(ch);
        if (c < 0x80) {
            out += static_cast<char>(c);
        } else {
            out += static_cast<char>(0xC0 | (c >> 6));
            out += static_cast<char>(0x80 | (c & 0x3F));
        }
    }
    return out;
}

xcb_atom_t intern(xcb_connection_t* c, xcb_intern_atom_cookie_t cookie, const char* name) {
    ErrorSlot error("InternAtom", 0);
    const auto reply = own(xcb_intern_atom_reply(c, cookie, &error));
    if (!reply) log::inDomain(log::Warn, kX11AccessibilityLogDomain, "cannot intern atom %s", name);
    return reply ? reply->atom : xcb_atom_t{XCB_ATOM_NONE};
}

bool intersects(const Rect& a, const Rect& b) {
    return a.minX() < b.maxX() && b.minX() < a.maxX() && a.minY() < b.maxY() && b.minY() < a.maxY();
}

double area(const Rect& r) { return r.size.width * r.size.height; }

}  // namespace

void logXError(const char* request, std::uint32_t window, const xcb_generic_error_t* error) {
    if (!error) return;
    const bool gone = error->error_code == kBadWindow || error->error_code == kBadDrawable;
    log::inDomain(gone ? log::Debug : log::Warn, kX11AccessibilityLogDomain,
                  "%s on window 0x%x failed: X error %u (major %u, minor %u, resource 0x%x)%s", request, window,
                  error->error_code, error->major_code, error->minor_code, error->resource_id,
                  gone ? ", the window is gone" : "");
}

// ---- XcbDisplay

std::unique_ptr<XcbDisplay> XcbDisplay::connect(const std::string& displayName) {
    int screenNumber = 0;
    xcb_connection_t* c = xcb_connect(displayName.empty() ? nullptr : displayName.c_str(), &screenNumber);
    if (!c || xcb_connection_has_error(c)) {
        log::inDomain(
            log::Error, kX11AccessibilityLogDomain, "cannot connect to the X display \"%s\"",
            displayName.empty() ? (std::getenv("DISPLAY") ? std::getenv("DISPLAY") : "") : displayName.c_str());
        if (c) xcb_disconnect(c);
        return nullptr;
    }
    std::unique_ptr<XcbDisplay> d(new XcbDisplay);
    d->connection_ = c;
    const xcb_setup_t* setup = xcb_get_setup(c);
    xcb_screen_iterator_t screens = xcb_setup_roots_iterator(setup);
    for (int i = 0; i < screenNumber && screens.rem; ++i) xcb_screen_next(&screens);
    if (!screens.rem) {
        log::inDomain(log::Error, kX11AccessibilityLogDomain, "the X display has no screen %d", screenNumber);
        return nullptr;
    }
    d->root_ = screens.data->root;

    const std::uint8_t rootDepth = screens.data->root_depth;
    for (xcb_format_iterator_t f = xcb_setup_pixmap_formats_iterator(setup); f.rem; xcb_format_next(&f))
        if (f.data->depth == rootDepth) d->images32Bit_ = f.data->bits_per_pixel == 32 && rootDepth >= 24;
    d->imagesLsbFirst_ = setup->image_byte_order == XCB_IMAGE_ORDER_LSB_FIRST;

    struct Name {
        xcb_atom_t XcbAtoms::*member;
        const char* name;
    };
    static constexpr Name names[] = {
        {&XcbAtoms::utf8String, "UTF8_STRING"},
        {&XcbAtoms::netWmName, "_NET_WM_NAME"},
        {&XcbAtoms::netWmPid, "_NET_WM_PID"},
        {&XcbAtoms::netFrameExtents, "_NET_FRAME_EXTENTS"},
        {&XcbAtoms::netActiveWindow, "_NET_ACTIVE_WINDOW"},
        {&XcbAtoms::netClientList, "_NET_CLIENT_LIST"},
        {&XcbAtoms::netClientListStacking, "_NET_CLIENT_LIST_STACKING"},
        {&XcbAtoms::netWmWindowType, "_NET_WM_WINDOW_TYPE"},
        {&XcbAtoms::netWmWindowTypeNormal, "_NET_WM_WINDOW_TYPE_NORMAL"},
        {&XcbAtoms::netWmWindowTypeDialog, "_NET_WM_WINDOW_TYPE_DIALOG"},
        {&XcbAtoms::netWmWindowTypeDock, "_NET_WM_WINDOW_TYPE_DOCK"},
        {&XcbAtoms::netWmWindowTypeDesktop, "_NET_WM_WINDOW_TYPE_DESKTOP"},
        {&XcbAtoms::netWmState, "_NET_WM_STATE"},
        {&XcbAtoms::netWmStateHidden, "_NET_WM_STATE_HIDDEN"},
        {&XcbAtoms::wmState, "WM_STATE"},
    };
    std::vector<xcb_intern_atom_cookie_t> cookies;
    for (const Name& n : names)
        cookies.push_back(xcb_intern_atom(c, 0, static_cast<std::uint16_t>(std::strlen(n.name)), n.name));
    for (std::size_t i = 0; i < std::size(names); ++i)
        d->atoms_.*(names[i].member) = intern(c, cookies[i], names[i].name);
    return d;
}

XcbDisplay::~XcbDisplay() {
    if (connection_) xcb_disconnect(connection_);
}

// ---- client windows

std::vector<std::optional<ClientProperties>> readClientProperties(const XcbDisplay& d,
                                                                  const std::vector<xcb_window_t>& windows,
                                                                  unsigned mask) {
    const XcbAtoms& a = d.atoms();
    struct Cookies {
        xcb_get_property_cookie_t pid, wmClass, netName, wmName, type, transient, netState, wmState;
    };
    std::vector<Cookies> cookies(windows.size());
    for (std::size_t i = 0; i < windows.size(); ++i) {
        const xcb_window_t w = windows[i];
        Cookies& c = cookies[i];
        if (mask & kClientPid) c.pid = requestProperty(d, w, a.netWmPid, XCB_ATOM_CARDINAL);
        if (mask & kClientClass) c.wmClass = requestProperty(d, w, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING);
        if (mask & kClientName) {
            c.netName = requestProperty(d, w, a.netWmName, a.utf8String);
            c.wmName = requestProperty(d, w, XCB_ATOM_WM_NAME);
        }
        if (mask & kClientType) {
            c.type = requestProperty(d, w, a.netWmWindowType, XCB_ATOM_ATOM);
            c.transient = requestProperty(d, w, XCB_ATOM_WM_TRANSIENT_FOR, XCB_ATOM_WINDOW);
        }
        if (mask & kClientState) {
            c.netState = requestProperty(d, w, a.netWmState, XCB_ATOM_ATOM);
            c.wmState = requestProperty(d, w, a.wmState, a.wmState);
        }
    }
    // Every reply is collected, also after a failure, so that none is left
    // waiting in the connection.
    std::vector<std::optional<ClientProperties>> result(windows.size());
    for (std::size_t i = 0; i < windows.size(); ++i) {
        const xcb_window_t w = windows[i];
        const Cookies& c = cookies[i];
        ClientProperties p;
        bool ok = true;
        auto take = [&](bool wanted, xcb_get_property_cookie_t cookie) {
            if (!wanted) return XcbReply<xcb_get_property_reply_t>();
            auto reply = propertyReply(d, cookie, w);
            ok = ok && reply;
            return reply;
        };
        if (const auto r = take(mask & kClientPid, c.pid)) {
            const auto values = cardinals(r.get());
            if (!values.empty()) p.pid = static_cast<std::int32_t>(values.front());
        }
        if (const auto r = take(mask & kClientClass, c.wmClass)) {
            const std::string value = bytes(r.get());
            const std::size_t nul = value.find('\0');
            p.wmInstance = value.substr(0, nul);
            if (nul != std::string::npos) {
                const std::size_t end = value.find('\0', nul + 1);
                p.wmClass = value.substr(nul + 1, end == std::string::npos ? std::string::npos : end - nul - 1);
            }
        }
        {
            const auto netName = take(mask & kClientName, c.netName);
            const auto wmName = take(mask & kClientName, c.wmName);
            if (netName && netName->type == a.utf8String && netName->value_len > 0) {
                p.name = bytes(netName.get());
            } else if (wmName) {
                // WM_NAME is Latin-1 (STRING) or, from some programs, UTF-8;
                // compound text is passed on as it is.
                p.name = wmName->type == XCB_ATOM_STRING ? latin1ToUtf8(bytes(wmName.get())) : bytes(wmName.get());
            }
        }
        {
            const auto type = take(mask & kClientType, c.type);
            const auto transient = take(mask & kClientType, c.transient);
            p.transient = transient && !cardinals(transient.get()).empty();
            bool typed = false;
            for (const std::uint32_t atom : cardinals(type.get())) {
                if (atom == a.netWmWindowTypeNormal)
                    p.type = WindowType::Normal;
                else if (atom == a.netWmWindowTypeDialog)
                    p.type = WindowType::Dialog;
                else if (atom == a.netWmWindowTypeDock)
                    p.type = WindowType::Dock;
                else if (atom == a.netWmWindowTypeDesktop)
                    p.type = WindowType::Desktop;
                else
                    continue;  // a type we do not know: the next one decides
                typed = true;
                break;
            }
            if (!typed && type && !cardinals(type.get()).empty()) p.type = WindowType::Other;
            if (!typed && p.type == WindowType::Normal && p.transient) p.type = WindowType::Dialog;
        }
        {
            const auto netState = take(mask & kClientState, c.netState);
            const auto wmState = take(mask & kClientState, c.wmState);
            for (const std::uint32_t atom : cardinals(netState.get()))
                if (atom == a.netWmStateHidden) p.hidden = true;
            const auto state = cardinals(wmState.get());
            if (!state.empty() && state.front() == kWmStateIconic) p.hidden = true;
        }
        if (ok) result[i] = std::move(p);
    }
    return result;
}

std::optional<std::vector<xcb_window_t>> readWindowsProperty(const XcbDisplay& d, xcb_window_t window,
                                                             xcb_atom_t property) {
    const auto reply = propertyReply(d, requestProperty(d, window, property, XCB_ATOM_WINDOW), window);
    if (!reply) return std::nullopt;
    return cardinals(reply.get());
}

namespace {

struct FrameCookies {
    xcb_translate_coordinates_cookie_t origin;
    xcb_get_geometry_cookie_t geometry;
    xcb_get_property_cookie_t extents;
};

FrameCookies requestFrame(const XcbDisplay& d, xcb_window_t client) {
    return {xcb_translate_coordinates(d.connection(), client, d.root(), 0, 0), xcb_get_geometry(d.connection(), client),
            requestProperty(d, client, d.atoms().netFrameExtents, XCB_ATOM_CARDINAL)};
}

std::optional<ClientFrame> frameReply(const XcbDisplay& d, const FrameCookies& cookies, xcb_window_t client) {
    ErrorSlot originError("TranslateCoordinates", client);
    ErrorSlot geometryError("GetGeometry", client);
    const auto origin = own(xcb_translate_coordinates_reply(d.connection(), cookies.origin, &originError));
    const auto geometry = own(xcb_get_geometry_reply(d.connection(), cookies.geometry, &geometryError));
    const auto extents = propertyReply(d, cookies.extents, client);
    if (!origin || !geometry || !extents) return std::nullopt;
    ClientFrame frame;
    frame.client = {{static_cast<double>(origin->dst_x), static_cast<double>(origin->dst_y)},
                    {static_cast<double>(geometry->width), static_cast<double>(geometry->height)}};
    const auto e = cardinals(extents.get());
    if (e.size() >= 4) frame.extents = {e[0], e[1], e[2], e[3]};
    return frame;
}

}  // namespace

std::vector<std::optional<ClientFrame>> readClientFrames(const XcbDisplay& d,
                                                         const std::vector<xcb_window_t>& clients) {
    std::vector<FrameCookies> cookies;
    cookies.reserve(clients.size());
    for (const xcb_window_t w : clients) cookies.push_back(requestFrame(d, w));
    std::vector<std::optional<ClientFrame>> result(clients.size());
    for (std::size_t i = 0; i < clients.size(); ++i) result[i] = frameReply(d, cookies[i], clients[i]);
    return result;
}

std::optional<ClientSnapshot> readClientSnapshot(const XcbDisplay& d, xcb_window_t client) {
    const FrameCookies frameCookies = requestFrame(d, client);
    const xcb_query_tree_cookie_t treeCookie = xcb_query_tree(d.connection(), client);
    const auto frame = frameReply(d, frameCookies, client);
    ErrorSlot treeError("QueryTree", client);
    const auto tree = own(xcb_query_tree_reply(d.connection(), treeCookie, &treeError));
    if (!frame || !tree) return std::nullopt;
    return ClientSnapshot{*frame, tree->parent};
}

std::vector<std::optional<WindowTree>> queryTrees(const XcbDisplay& d, const std::vector<xcb_window_t>& windows) {
    std::vector<xcb_query_tree_cookie_t> cookies;
    cookies.reserve(windows.size());
    for (const xcb_window_t w : windows) cookies.push_back(xcb_query_tree(d.connection(), w));
    std::vector<std::optional<WindowTree>> result(windows.size());
    for (std::size_t i = 0; i < windows.size(); ++i) {
        ErrorSlot error("QueryTree", windows[i]);
        const auto reply = own(xcb_query_tree_reply(d.connection(), cookies[i], &error));
        if (!reply) continue;
        const xcb_window_t* children = xcb_query_tree_children(reply.get());
        result[i] = WindowTree{reply->parent, {children, children + xcb_query_tree_children_length(reply.get())}};
    }
    return result;
}

std::vector<std::optional<WindowShape>> readWindowShapes(const XcbDisplay& d,
                                                         const std::vector<xcb_window_t>& windows) {
    struct Cookies {
        xcb_get_geometry_cookie_t geometry;
        xcb_get_window_attributes_cookie_t attributes;
    };
    std::vector<Cookies> cookies;
    cookies.reserve(windows.size());
    for (const xcb_window_t w : windows)
        cookies.push_back({xcb_get_geometry(d.connection(), w), xcb_get_window_attributes(d.connection(), w)});
    std::vector<std::optional<WindowShape>> result(windows.size());
    for (std::size_t i = 0; i < windows.size(); ++i) {
        ErrorSlot geometryError("GetGeometry", windows[i]);
        ErrorSlot attributesError("GetWindowAttributes", windows[i]);
        const auto geometry = own(xcb_get_geometry_reply(d.connection(), cookies[i].geometry, &geometryError));
        const auto attributes =
            own(xcb_get_window_attributes_reply(d.connection(), cookies[i].attributes, &attributesError));
        if (!geometry || !attributes) continue;
        const double border = geometry->border_width;
        result[i] = WindowShape{{{static_cast<double>(geometry->x), static_cast<double>(geometry->y)},
                                 {geometry->width + 2 * border, geometry->height + 2 * border}},
                                attributes->map_state == XCB_MAP_STATE_VIEWABLE,
                                attributes->_class == XCB_WINDOW_CLASS_INPUT_OUTPUT,
                                attributes->override_redirect != 0};
    }
    return result;
}

std::optional<PointLookup> lookUpPoint(const XcbDisplay& d, Point position) {
    const auto x = static_cast<std::int16_t>(std::clamp(position.x, -32768.0, 32767.0));
    const auto y = static_cast<std::int16_t>(std::clamp(position.y, -32768.0, 32767.0));
    const auto clientsCookie = requestProperty(d, d.root(), d.atoms().netClientList, XCB_ATOM_WINDOW);
    const auto childCookie = xcb_translate_coordinates(d.connection(), d.root(), d.root(), x, y);
    const auto clients = propertyReply(d, clientsCookie, d.root());
    ErrorSlot error("TranslateCoordinates", d.root());
    const auto child = own(xcb_translate_coordinates_reply(d.connection(), childCookie, &error));
    if (!clients || !child) return std::nullopt;
    return PointLookup{child->child, cardinals(clients.get())};
}

xcb_window_t clientOfTopLevel(const XcbDisplay& d, xcb_window_t topLevel, const std::vector<xcb_window_t>& clients) {
    auto isClient = [&](xcb_window_t w) { return std::find(clients.begin(), clients.end(), w) != clients.end(); };
    if (topLevel == 0) return 0;
    if (isClient(topLevel)) return topLevel;
    // Reparenting window managers put the client right into the frame
    // (openbox, xfwm4); some wrap it once more.
    std::vector<xcb_window_t> level{topLevel};
    for (int depth = 0; depth < 2 && !level.empty(); ++depth) {
        std::vector<xcb_window_t> next;
        for (const auto& tree : queryTrees(d, level)) {
            if (!tree) continue;
            for (const xcb_window_t child : tree->children) {
                if (isClient(child)) return child;
                next.push_back(child);
            }
        }
        level = std::move(next);
    }
    return 0;
}

xcb_window_t topLevelOf(const XcbDisplay& d, xcb_window_t window) {
    // A client sits a level or two below the root; the bound stops a broken
    // tree from keeping us here.
    for (int step = 0; step < 8 && window != 0; ++step) {
        const auto tree = queryTrees(d, {window}).front();
        if (!tree) return 0;
        if (tree->parent == d.root() || tree->parent == 0) return window;
        window = tree->parent;
    }
    return 0;
}

// ---- the title's box

std::optional<Rect> titleTextBox(const XcbDisplay& d, xcb_window_t frame, xcb_window_t client,
                                 const ClientFrame& geometry) {
    const FrameExtents& e = geometry.extents;
    const Rect outer = geometry.outer();
    if (e.top == 0) return std::nullopt;
    const Rect band{{static_cast<double>(e.left), 0},
                    {std::max(0.0, outer.size.width - e.left - e.right), static_cast<double>(e.top)}};
    if (frame == client) return band;

    const auto tree = queryTrees(d, {frame}).front();
    if (!tree) return std::nullopt;
    std::vector<xcb_window_t> children;
    for (const xcb_window_t w : tree->children)
        if (w != client) children.push_back(w);
    const auto shapes = readWindowShapes(d, children);

    // The windows drawn in the title band: the title bar, its buttons, the
    // resize grips at its top and corners.
    struct Piece {
        xcb_window_t window;
        Rect rect;
    };
    std::vector<Piece> pieces;
    for (std::size_t i = 0; i < children.size(); ++i) {
        const auto& s = shapes[i];
        if (!s || !s->viewable || !s->inputOutput || s->rect.isEmpty()) continue;
        if (s->rect.minY() >= 0 && s->rect.maxY() <= e.top) pieces.push_back({children[i], s->rect});
    }
    if (pieces.empty()) return band;
    const Piece title = *std::max_element(pieces.begin(), pieces.end(),
                                          [](const Piece& a, const Piece& b) { return area(a.rect) < area(b.rect); });

    // A title bar with windows of its own (openbox): the label is the widest
    // of those as tall as half the bar at least; buttons are square and
    // small, the grips flat.
    if (const auto titleTree = queryTrees(d, {title.window}).front(); titleTree && !titleTree->children.empty()) {
        const auto inner = readWindowShapes(d, titleTree->children);
        std::optional<Rect> label;
        for (const auto& s : inner) {
            if (!s || !s->viewable || !s->inputOutput || s->rect.size.height * 2 < title.rect.size.height) continue;
            if (!label || s->rect.size.width > label->size.width) label = s->rect;
        }
        if (label && label->size.width * 4 >= title.rect.size.width)
            return Rect{{title.rect.origin.x + label->origin.x, title.rect.origin.y + label->origin.y}, label->size};
    }

    // A flat title bar (xfwm4): the buttons are windows as tall as the bar
    // lying on it; the text goes in the widest gap between them, below a
    // resize grip along the top.
    std::vector<std::pair<double, double>> taken;  // x spans of buttons
    double top = title.rect.minY();
    for (const Piece& p : pieces) {
        if (p.window == title.window) continue;
        const bool onTitle = p.rect.minX() < title.rect.maxX() && p.rect.maxX() > title.rect.minX();
        if (!onTitle) continue;
        if (p.rect.size.height * 2 >= title.rect.size.height && p.rect.size.width * 2 < title.rect.size.width)
            taken.emplace_back(p.rect.minX(), p.rect.maxX());
        else if (p.rect.size.width * 4 >= title.rect.size.width * 3 && p.rect.minY() <= title.rect.minY())
            top = std::max(top, p.rect.maxY());
    }
    std::sort(taken.begin(), taken.end());
    double gapLeft = 0, gapWidth = -1;
    double cursor = title.rect.minX();
    taken.emplace_back(title.rect.maxX(), title.rect.maxX());
    for (const auto& [from, to] : taken) {
        if (from - cursor > gapWidth) {
            gapLeft = cursor;
            gapWidth = from - cursor;
        }
        cursor = std::max(cursor, to);
    }
    if (gapWidth <= 0 || top >= title.rect.maxY()) return std::nullopt;
    return Rect{{gapLeft, top}, {gapWidth, title.rect.maxY() - top}};
}

std::optional<InkSpan> inkSpanOfPixels(const std::vector<std::uint32_t>& pixels, int width, int height) {
    if (width <= 0 || height <= 0 || pixels.size() < static_cast<std::size_t>(width) * height) return std::nullopt;
    int first = width, last = -1;
    for (int y = 0; y < height; ++y) {
        const std::uint32_t* line = pixels.data() + static_cast<std::size_t>(y) * width;
        // The row's background is the colour of most of its pixels (text
        // covers far less of a title row than the paint around it), found
        // by a majority vote.
        std::uint32_t background = 0;
        for (int x = 0, votes = 0; x < width; ++x) {
            const std::uint32_t p = line[x] & 0xFFFFFF;
            if (votes == 0) background = p;
            votes += p == background ? 1 : -1;
        }
        for (int x = 0; x < width; ++x) {
            if (x >= first && x <= last) continue;
            const std::uint32_t p = line[x] & 0xFFFFFF;
            const int dr = std::abs(static_cast<int>((p >> 16) & 0xFF) - static_cast<int>((background >> 16) & 0xFF));
            const int dg = std::abs(static_cast<int>((p >> 8) & 0xFF) - static_cast<int>((background >> 8) & 0xFF));
            const int db = std::abs(static_cast<int>(p & 0xFF) - static_cast<int>(background & 0xFF));
            if (std::max({dr, dg, db}) >= kInkThreshold) {
                first = std::min(first, x);
                last = std::max(last, x);
            }
        }
    }
    if (last < 0) return std::nullopt;
    return InkSpan{static_cast<double>(first), static_cast<double>(last - first + 1)};
}

InkRequest requestInk(const XcbDisplay& d, xcb_window_t frame, const Rect& box) {
    InkRequest request{frame, box, {}, false};
    if (!d.imagesAre32BitPixels() || box.isEmpty()) return request;
    request.cookie =
        xcb_get_image(d.connection(), XCB_IMAGE_FORMAT_Z_PIXMAP, frame, static_cast<std::int16_t>(box.origin.x),
                      static_cast<std::int16_t>(box.origin.y), static_cast<std::uint16_t>(box.size.width),
                      static_cast<std::uint16_t>(box.size.height), ~0u);
    request.sent = true;
    return request;
}

std::optional<InkSpan> inkReply(const XcbDisplay& d, const InkRequest& request) {
    if (!request.sent) return std::nullopt;
    ErrorSlot error("GetImage", request.frame);
    const auto image = own(xcb_get_image_reply(d.connection(), request.cookie, &error));
    if (!image) return std::nullopt;
    const auto width = static_cast<int>(request.box.size.width);
    const auto height = static_cast<int>(request.box.size.height);
    const std::size_t count = static_cast<std::size_t>(width) * height;
    if (static_cast<std::size_t>(xcb_get_image_data_length(image.get())) < count * 4) return std::nullopt;
    const std::uint8_t* data = xcb_get_image_data(image.get());
    std::vector<std::uint32_t> pixels(count);
    for (std::size_t i = 0; i < count; ++i) {
        const std::uint8_t* p = data + i * 4;
        pixels[i] = d.imagesLeastSignificantByteFirst()
                        ? (std::uint32_t{p[2]} << 16) | (std::uint32_t{p[1]} << 8) | p[0]
                        : (std::uint32_t{p[1]} << 16) | (std::uint32_t{p[2]} << 8) | p[3];
    }
    return inkSpanOfPixels(pixels, width, height);
}

void discardInk(const XcbDisplay& d, const InkRequest& request) {
    if (request.sent) xcb_discard_reply(d.connection(), request.cookie.sequence);
}

std::optional<InkSpan> measureInk(const XcbDisplay& d, xcb_window_t frame, const Rect& box) {
    return inkReply(d, requestInk(d, frame, box));
}

bool isCoveredAbove(const XcbDisplay& d, xcb_window_t topLevel, const Rect& area) {
    const auto tree = queryTrees(d, {d.root()}).front();
    if (!tree) return true;
    const auto self = std::find(tree->children.begin(), tree->children.end(), topLevel);
    if (self == tree->children.end()) return true;
    const std::vector<xcb_window_t> above(self + 1, tree->children.end());
    // A window that went away in the meantime covers nothing.
    for (const auto& s : readWindowShapes(d, above))
        if (s && s->viewable && s->inputOutput && intersects(s->rect, area)) return true;
    return false;
}

}  // namespace jorvane::x11
