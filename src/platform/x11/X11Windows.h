#pragma once

// What the accessibility adapters read of the window manager's world over
// xcb: client windows and their properties, the frames around them, the
// stacking of top-level windows and the box in which a frame's title text
// is drawn.
//
// Every read that concerns several windows sends all its requests before it
// waits for the first reply, so one call costs one round trip. Every reply
// is checked: a window that vanishes while it is read gives nullopt (logged
// at debug level, since windows vanish all the time), any other X error is
// logged as a warning; none is fatal.
//
// Coordinates are root coordinates (origin at the top left of the screen)
// unless a name says otherwise.

#include <xcb/xcb.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "util/Geometry.h"

namespace jorvane::x11 {

template <class T>
struct XcbFree {
    void operator()(T* p) const { std::free(p); }
};
template <class T>
using XcbReply = std::unique_ptr<T, XcbFree<T>>;

// The log domain of the accessibility adapters.
inline constexpr const char* kX11AccessibilityLogDomain = "X11Accessibility";

// Logs an X error with the request that caused it and the window it named.
// Errors that mean "the window is gone" go to the debug level.
void logXError(const char* request, std::uint32_t window, const xcb_generic_error_t* error);

struct XcbAtoms {
    xcb_atom_t utf8String = 0;
    xcb_atom_t netWmName = 0;
    xcb_atom_t netWmPid = 0;
    xcb_atom_t netFrameExtents = 0;
    xcb_atom_t netActiveWindow = 0;
    xcb_atom_t netClientList = 0;
    xcb_atom_t netClientListStacking = 0;
    xcb_atom_t netWmWindowType = 0;
    xcb_atom_t netWmWindowTypeNormal = 0;
    xcb_atom_t netWmWindowTypeDialog = 0;
    xcb_atom_t netWmWindowTypeDock = 0;
    xcb_atom_t netWmWindowTypeDesktop = 0;
    xcb_atom_t netWmState = 0;
    xcb_atom_t netWmStateHidden = 0;
    xcb_atom_t wmState = 0;
};

// A connection to the display with its first screen's root and the atoms.
// Disconnects when destroyed.
class XcbDisplay {
public:
    // Nothing (and a log line) when the display cannot be reached. An empty
    // name is $DISPLAY.
    static std::unique_ptr<XcbDisplay> connect(const std::string& displayName);
    ~XcbDisplay();
    XcbDisplay(const XcbDisplay&) = delete;
    XcbDisplay& operator=(const XcbDisplay&) = delete;

    xcb_connection_t* connection() const { return connection_; }
    xcb_window_t root() const { return root_; }
    const XcbAtoms& atoms() const { return atoms_; }
    // The connection broke (the server went away): no request may be made.
    bool hasError() const { return xcb_connection_has_error(connection_) != 0; }
    // How the server sends 24- and 32-bit images: 32 bits a pixel, in this
    // byte order. False when it sends them some other way.
    bool imagesAre32BitPixels() const { return images32Bit_; }
    bool imagesLeastSignificantByteFirst() const { return imagesLsbFirst_; }

private:
    XcbDisplay() = default;
    xcb_connection_t* connection_ = nullptr;
    xcb_window_t root_ = 0;
    XcbAtoms atoms_;
    bool images32Bit_ = false;
    bool imagesLsbFirst_ = true;
};

enum class WindowType { Normal, Dialog, Dock, Desktop, Other };

// Properties of a client window. Missing ones keep these values.
struct ClientProperties {
    std::int32_t pid = 0;    // _NET_WM_PID
    std::string wmInstance;  // WM_CLASS, first string
    std::string wmClass;     // WM_CLASS, second string
    std::string name;        // _NET_WM_NAME, else WM_NAME (Latin-1 made UTF-8)
    // _NET_WM_WINDOW_TYPE's first known type; without one, Normal, or Dialog
    // for a transient window, as the window-manager conventions say.
    WindowType type = WindowType::Normal;
    bool transient = false;  // WM_TRANSIENT_FOR is set
    bool hidden = false;     // _NET_WM_STATE_HIDDEN, or WM_STATE Iconic
};

// Which properties to read: a window list needs all, a pid lookup one.
enum ClientPropertyMask : unsigned {
    kClientPid = 1u << 0,
    kClientClass = 1u << 1,
    kClientName = 1u << 2,
    kClientType = 1u << 3,  // includes the transient flag
    kClientState = 1u << 4,
    kClientAll = 0x1f,
};

// One entry per window, nullopt for a window that is gone.
std::vector<std::optional<ClientProperties>> readClientProperties(const XcbDisplay& display,
                                                                  const std::vector<xcb_window_t>& windows,
                                                                  unsigned mask = kClientAll);

// A property holding windows (_NET_CLIENT_LIST, _NET_ACTIVE_WINDOW): empty
// when missing, nullopt on error.
std::optional<std::vector<xcb_window_t>> readWindowsProperty(const XcbDisplay& display, xcb_window_t window,
                                                             xcb_atom_t property);

// _NET_FRAME_EXTENTS: the frame's borders around the client.
struct FrameExtents {
    std::uint32_t left = 0, right = 0, top = 0, bottom = 0;
};

struct ClientFrame {
    Rect client;  // the client's own area
    FrameExtents extents;
    // The outer frame: the client's area grown by the extents.
    Rect outer() const {
        return {{client.origin.x - extents.left, client.origin.y - extents.top},
                {client.size.width + extents.left + extents.right, client.size.height + extents.top + extents.bottom}};
    }
};

// One entry per client, nullopt for a client that is gone.
std::vector<std::optional<ClientFrame>> readClientFrames(const XcbDisplay& display,
                                                         const std::vector<xcb_window_t>& clients);

// The client's frame and parent in one round trip: what decides whether a
// remembered title box still holds.
struct ClientSnapshot {
    ClientFrame frame;
    xcb_window_t parent = 0;
};
std::optional<ClientSnapshot> readClientSnapshot(const XcbDisplay& display, xcb_window_t client);

struct WindowTree {
    xcb_window_t parent = 0;
    std::vector<xcb_window_t> children;  // bottom to top
};
std::vector<std::optional<WindowTree>> queryTrees(const XcbDisplay& display, const std::vector<xcb_window_t>& windows);

// Geometry and map state of a window, relative to its parent.
struct WindowShape {
    Rect rect;  // outer rectangle, the border included
    bool viewable = false;
    bool inputOutput = true;  // InputOnly windows draw nothing
    bool overrideRedirect = false;
};
std::vector<std::optional<WindowShape>> readWindowShapes(const XcbDisplay& display,
                                                         const std::vector<xcb_window_t>& windows);

// The root's child at the position (what XTranslateCoordinates finds; 0
// when there is none) and the client list, in one round trip. Nothing on
// error.
struct PointLookup {
    xcb_window_t topLevel = 0;
    std::vector<xcb_window_t> clients;
};
std::optional<PointLookup> lookUpPoint(const XcbDisplay& display, Point position);

// The client window a top-level window holds: itself when it is a client,
// else the client among its children or grandchildren. 0 when it holds none
// (an override-redirect window, the window manager's own windows).
xcb_window_t clientOfTopLevel(const XcbDisplay& display, xcb_window_t topLevel,
                              const std::vector<xcb_window_t>& clients);

// The root's child that holds the window (its frame, or itself): 0 when
// the window is gone.
xcb_window_t topLevelOf(const XcbDisplay& display, xcb_window_t window);

// The box, relative to the frame, in which the window manager draws the
// title text of the client: the label window of a title bar that has one
// (openbox), else the widest gap between the title bar's buttons below its
// resize grip (xfwm4), else the whole title band inside the side borders.
// Nothing when the frame has no title band.
std::optional<Rect> titleTextBox(const XcbDisplay& display, xcb_window_t frame, xcb_window_t client,
                                 const ClientFrame& geometry);

// The columns of `box` (relative to the frame) that carry the drawn title:
// those where some pixel stands out from its row's background colour.
// Nothing when the box shows no text or cannot be read.
struct InkSpan {
    double left = 0;   // first column with ink, relative to the box
    double width = 0;  // up to and including the last one
};
std::optional<InkSpan> measureInk(const XcbDisplay& display, xcb_window_t frame, const Rect& box);
// The same in two halves, so that the image travels with other requests.
// Every request is either answered or discarded.
struct InkRequest {
    xcb_window_t frame = 0;
    Rect box;
    xcb_get_image_cookie_t cookie{};
    bool sent = false;
};
InkRequest requestInk(const XcbDisplay& display, xcb_window_t frame, const Rect& box);
std::optional<InkSpan> inkReply(const XcbDisplay& display, const InkRequest& request);
void discardInk(const XcbDisplay& display, const InkRequest& request);

// Whether a window stacked above the top-level covers part of the area
// (what is drawn there is then not the top-level's). True on error.
bool isCoveredAbove(const XcbDisplay& display, xcb_window_t topLevel, const Rect& area);

// The ink rule on its own: pixels in rows, 0xRRGGBB. Exposed for the tests.
std::optional<InkSpan> inkSpanOfPixels(const std::vector<std::uint32_t>& pixels, int width, int height);

}  // namespace jorvane::x11
