#include "XTestClient.h"

#include <gtest/gtest.h>
#include <xcb/xcbext.h>
#include <xcb/xtest.h>

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <stdexcept>

namespace jorvane::e2e {

namespace {

template <class T>
using Reply = x11::XcbReply<T>;

constexpr milliseconds kManageWait{5000};

}  // namespace

XTestClient::XTestClient(const std::string& display) : display_(x11::XcbDisplay::connect(display)) {
    if (!display_) throw std::runtime_error("cannot connect to " + display);
    c_ = display_->connection();
    root_ = display_->root();
}

XTestClient::~XTestClient() {
    if (!ok()) return;
    for (const xcb_window_t w : made_) xcb_destroy_window(c_, w);
    sync();  // gone before whatever the test does next
}

void XTestClient::sync() { std::free(xcb_get_input_focus_reply(c_, xcb_get_input_focus(c_), nullptr)); }

bool XTestClient::answers(milliseconds within) {
    const unsigned int request = xcb_get_input_focus(c_).sequence;
    xcb_flush(c_);
    const auto deadline = Clock::now() + within;
    for (;;) {
        void* reply = nullptr;
        xcb_generic_error_t* error = nullptr;
        if (xcb_poll_for_reply(c_, request, &reply, &error)) {
            std::free(reply);
            std::free(error);
            return true;
        }
        if (Clock::now() >= deadline) {
            xcb_discard_reply(c_, request);
            return false;
        }
        pollfd readable{xcb_get_file_descriptor(c_), POLLIN, 0};
        ::poll(&readable, 1, 10);
    }
}

xcb_atom_t XTestClient::atom(const char* name) {
    xcb_atom_t& known = atoms_[name];
    if (known != XCB_ATOM_NONE) return known;
    const auto length = static_cast<std::uint16_t>(std::strlen(name));
    Reply<xcb_intern_atom_reply_t> reply(xcb_intern_atom_reply(c_, xcb_intern_atom(c_, 0, length, name), nullptr));
    return known = reply ? reply->atom : static_cast<xcb_atom_t>(XCB_ATOM_NONE);
}

// ---- Looking at windows

std::vector<std::uint32_t> XTestClient::values(xcb_window_t window, const char* property) {
    Reply<xcb_get_property_reply_t> reply(
        xcb_get_property_reply(c_, xcb_get_property(c_, 0, window, atom(property), XCB_ATOM_ANY, 0, 4096), nullptr));
    if (!reply || reply->format != 32) return {};
    const auto* v = static_cast<const std::uint32_t*>(xcb_get_property_value(reply.get()));
    return {v, v + xcb_get_property_value_length(reply.get()) / 4};
}

bool XTestClient::hasProperty(xcb_window_t window, const char* property) {
    Reply<xcb_get_property_reply_t> reply(
        xcb_get_property_reply(c_, xcb_get_property(c_, 0, window, atom(property), XCB_ATOM_ANY, 0, 0), nullptr));
    return reply && reply->type != XCB_ATOM_NONE;
}

x11::ClientProperties XTestClient::properties(xcb_window_t window, unsigned mask) {
    return x11::readClientProperties(*display_, {window}, mask).front().value_or(x11::ClientProperties{});
}

std::optional<std::int32_t> XTestClient::pid(xcb_window_t window) {
    const std::int32_t pid = properties(window, x11::kClientPid).pid;
    return pid > 0 ? std::optional(pid) : std::nullopt;
}

std::vector<xcb_window_t> XTestClient::windows(xcb_atom_t property) {
    return x11::readWindowsProperty(*display_, root_, property).value_or(std::vector<xcb_window_t>{});
}

xcb_window_t XTestClient::activeWindow() {
    const std::vector<xcb_window_t> active = windows(display_->atoms().netActiveWindow);
    return active.empty() ? 0 : active.front();
}

std::optional<WindowGeometry> XTestClient::geometry(xcb_window_t window) {
    Reply<xcb_get_geometry_reply_t> size(xcb_get_geometry_reply(c_, xcb_get_geometry(c_, window), nullptr));
    Reply<xcb_translate_coordinates_reply_t> origin(
        xcb_translate_coordinates_reply(c_, xcb_translate_coordinates(c_, window, root_, 0, 0), nullptr));
    if (!size || !origin) return std::nullopt;
    return WindowGeometry{origin->dst_x, origin->dst_y, size->width, size->height};
}

std::vector<xcb_window_t> XTestClient::children(xcb_window_t window) {
    const std::optional<x11::WindowTree> tree = x11::queryTrees(*display_, {window}).front();
    return tree ? tree->children : std::vector<xcb_window_t>{};
}

xcb_window_t XTestClient::inputFocus() {
    Reply<xcb_get_input_focus_reply_t> reply(xcb_get_input_focus_reply(c_, xcb_get_input_focus(c_), nullptr));
    return reply ? reply->focus : XCB_NONE;
}

bool XTestClient::focusIsIn(xcb_window_t window) {
    xcb_window_t focus = inputFocus();
    for (int step = 0; step < 8 && focus != XCB_NONE && focus != root_ && focus != window; ++step) {
        const std::optional<x11::WindowTree> tree = x11::queryTrees(*display_, {focus}).front();
        focus = tree ? tree->parent : XCB_NONE;
    }
    return focus == window && window != XCB_NONE;
}

// ---- Windows of our own

xcb_window_t XTestClient::create(const WindowSpec& shape) {
    const xcb_window_t w = xcb_generate_id(c_);
    const xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(c_)).data;
    const std::uint32_t attributes[] = {screen->white_pixel, shape.eventMask};
    xcb_create_window(c_, XCB_COPY_FROM_PARENT, w, root_, static_cast<std::int16_t>(shape.x),
                      static_cast<std::int16_t>(shape.y), static_cast<std::uint16_t>(shape.width),
                      static_cast<std::uint16_t>(shape.height), 0, XCB_WINDOW_CLASS_INPUT_OUTPUT, screen->root_visual,
                      XCB_CW_BACK_PIXEL | XCB_CW_EVENT_MASK, attributes);
    const std::string wmClass("jorvane-test\0JorvaneTest\0", 25);
    xcb_change_property(c_, XCB_PROP_MODE_REPLACE, w, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING, 8,
                        static_cast<std::uint32_t>(wmClass.size()), wmClass.data());
    const auto pid = static_cast<std::uint32_t>(shape.pid == -1 ? getpid() : shape.pid);
    xcb_change_property(c_, XCB_PROP_MODE_REPLACE, w, atom("_NET_WM_PID"), XCB_ATOM_CARDINAL, 32, 1, &pid);
    const xcb_atom_t type = atom("_NET_WM_WINDOW_TYPE_NORMAL");
    xcb_change_property(c_, XCB_PROP_MODE_REPLACE, w, atom("_NET_WM_WINDOW_TYPE"), XCB_ATOM_ATOM, 32, 1, &type);
    // WM_NORMAL_HINTS with USPosition and USSize: the window manager places
    // the window where we say.
    const std::uint32_t hints[18] = {1 | 2, static_cast<std::uint32_t>(shape.x), static_cast<std::uint32_t>(shape.y),
                                     static_cast<std::uint32_t>(shape.width), static_cast<std::uint32_t>(shape.height)};
    xcb_change_property(c_, XCB_PROP_MODE_REPLACE, w, XCB_ATOM_WM_NORMAL_HINTS, XCB_ATOM_WM_SIZE_HINTS, 32, 18, hints);
    for (const auto& [property, encoding] : {std::pair{atom("_NET_WM_NAME"), atom("UTF8_STRING")},
                                             std::pair<xcb_atom_t, xcb_atom_t>{XCB_ATOM_WM_NAME, XCB_ATOM_STRING}})
        xcb_change_property(c_, XCB_PROP_MODE_REPLACE, w, property, encoding, 8,
                            static_cast<std::uint32_t>(shape.title.size()), shape.title.data());
    made_.push_back(w);
    // The frame extents are set on this very window: the client list alone
    // can still name an earlier window of the same id (the server reuses ids).
    // Openbox sometimes drops a map request that comes while it is still
    // starting (the window stays unmapped); asking again helps.
    bool managed = false;
    for (int attempt = 0; attempt < 3 && !managed; ++attempt) {
        xcb_map_window(c_, w);
        xcb_flush(c_);
        managed = waitUntil(
            [&] {
                const std::vector<xcb_window_t> list = clientList();
                return std::count(list.begin(), list.end(), w) && frameExtents(w).size() == 4;
            },
            kManageWait / 3);
    }
    EXPECT_TRUE(managed) << "the window manager did not take window " << shape.title;
    return w;
}

bool XTestClient::focus(xcb_window_t window) {
    xcb_set_input_focus(c_, XCB_INPUT_FOCUS_PARENT, window, XCB_CURRENT_TIME);
    return waitUntil([&] { return inputFocus() == window; }, kManageWait);
}

// ---- Asking the window manager

void XTestClient::rootMessage(xcb_window_t window, const char* type, std::vector<std::uint32_t> data) {
    xcb_client_message_event_t event{};
    event.response_type = XCB_CLIENT_MESSAGE;
    event.format = 32;
    event.window = window;
    event.type = atom(type);
    std::copy_n(data.begin(), std::min<std::size_t>(data.size(), 5), event.data.data32);
    xcb_send_event(c_, 0, root_, XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY,
                   reinterpret_cast<const char*>(&event));
    sync();
}

xcb_timestamp_t XTestClient::serverTime() {
    if (clock_ == XCB_NONE) {
        clock_ = xcb_generate_id(c_);
        const std::uint32_t mask = XCB_EVENT_MASK_PROPERTY_CHANGE;
        xcb_create_window(c_, 0, clock_, root_, -1, -1, 1, 1, 0, XCB_WINDOW_CLASS_INPUT_ONLY, XCB_COPY_FROM_PARENT,
                          XCB_CW_EVENT_MASK, &mask);
        made_.push_back(clock_);
    }
    const xcb_atom_t property = atom("JORVANE_TEST_CLOCK");
    xcb_change_property(c_, XCB_PROP_MODE_APPEND, clock_, property, XCB_ATOM_STRING, 8, 0, "");
    xcb_flush(c_);
    // Only this window's property changes are asked for on this connection.
    for (int events = 0; events < 1000; ++events) {
        xcb_generic_event_t* event = xcb_wait_for_event(c_);
        if (!event) break;
        const bool ours = (event->response_type & 0x7f) == XCB_PROPERTY_NOTIFY &&
                          reinterpret_cast<xcb_property_notify_event_t*>(event)->window == clock_;
        const xcb_timestamp_t time = ours ? reinterpret_cast<xcb_property_notify_event_t*>(event)->time : 0;
        std::free(event);
        if (ours) return time;
    }
    return XCB_CURRENT_TIME;
}

// Stamped with the server's time, as a task bar's click is: a client that
// hands the focus on (GTK's answer to the window manager) then stamps its own
// request with that time too, and a later request of another client wins.
void XTestClient::activate(xcb_window_t window) { rootMessage(window, "_NET_ACTIVE_WINDOW", {2, serverTime()}); }
void XTestClient::iconify(xcb_window_t window) { rootMessage(window, "WM_CHANGE_STATE", {3}); }  // IconicState
void XTestClient::close(xcb_window_t window) { rootMessage(window, "_NET_CLOSE_WINDOW", {XCB_CURRENT_TIME, 2}); }

// ---- Input

std::optional<xcb_keycode_t> XTestClient::keycode(xcb_keysym_t keysym) {
    const xcb_setup_t* setup = xcb_get_setup(c_);
    const int count = setup->max_keycode - setup->min_keycode + 1;
    Reply<xcb_get_keyboard_mapping_reply_t> mapping(xcb_get_keyboard_mapping_reply(
        c_, xcb_get_keyboard_mapping(c_, setup->min_keycode, static_cast<std::uint8_t>(count)), nullptr));
    if (!mapping || keysym == 0) return std::nullopt;
    const xcb_keysym_t* syms = xcb_get_keyboard_mapping_keysyms(mapping.get());
    const int perCode = mapping->keysyms_per_keycode;
    for (int level = 0; level < perCode; ++level)
        for (int code = 0; code < count; ++code)
            if (syms[code * perCode + level] == keysym) return static_cast<xcb_keycode_t>(setup->min_keycode + code);
    return std::nullopt;
}

void XTestClient::keyCode(xcb_keycode_t code, bool press) {
    xcb_test_fake_input(c_, press ? XCB_KEY_PRESS : XCB_KEY_RELEASE, code, XCB_CURRENT_TIME, XCB_NONE, 0, 0, 0);
    sync();
}

bool XTestClient::key(xcb_keysym_t keysym, bool press) {
    const std::optional<xcb_keycode_t> code = keycode(keysym);
    if (code) keyCode(*code, press);
    return code.has_value();
}

bool XTestClient::chord(const std::vector<xcb_keysym_t>& modifiers, xcb_keysym_t keysym) {
    std::vector<xcb_keycode_t> codes;
    for (const xcb_keysym_t sym : modifiers) codes.push_back(keycode(sym).value_or(0));
    const std::optional<xcb_keycode_t> code = keycode(keysym);
    if (!code || std::count(codes.begin(), codes.end(), 0)) return false;
    for (const xcb_keycode_t modifier : codes) keyCode(modifier, true);
    keyCode(*code, true);
    keyCode(*code, false);
    for (auto it = codes.rbegin(); it != codes.rend(); ++it) keyCode(*it, false);
    return true;
}

void XTestClient::moveTo(int x, int y) {
    xcb_test_fake_input(c_, XCB_MOTION_NOTIFY, 0, XCB_CURRENT_TIME, root_, static_cast<std::int16_t>(x),
                        static_cast<std::int16_t>(y), 0);
    sync();
}

bool XTestClient::button(std::uint8_t button, bool press, milliseconds settle) {
    xcb_test_fake_input(c_, press ? XCB_BUTTON_PRESS : XCB_BUTTON_RELEASE, button, XCB_CURRENT_TIME, XCB_NONE, 0, 0, 0);
    sync();
    if (settle == milliseconds::zero()) return true;
    const auto bit = static_cast<std::uint16_t>(XCB_BUTTON_MASK_1 << (button - 1));
    return waitUntil(
        [&] {
            Reply<xcb_query_pointer_reply_t> pointer(
                xcb_query_pointer_reply(c_, xcb_query_pointer(c_, root_), nullptr));
            return pointer && static_cast<bool>(pointer->mask & bit) == press;
        },
        settle);
}

bool XTestClient::click(int x, int y, std::uint8_t b, milliseconds settle) {
    moveTo(x, y);
    const bool pressed = button(b, true, settle);
    return button(b, false, settle) && pressed;
}

}  // namespace jorvane::e2e
