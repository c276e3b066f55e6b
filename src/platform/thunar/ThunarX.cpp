#include "platform/thunar/ThunarX.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>

#include <xcb/xcb.h>
#include <xcb/xtest.h>

namespace jorvane::thunar {

namespace {

struct FreeDeleter {
    void operator()(void* p) const { std::free(p); }
};
template <class T>
using Reply = std::unique_ptr<T, FreeDeleter>;

}  // namespace

ThunarX::~ThunarX() {
    if (connection_) xcb_disconnect(connection_);
}

bool ThunarX::open() {
    if (connection_) return true;
    int screenNumber = 0;
    xcb_connection_t* connection = xcb_connect(nullptr, &screenNumber);
    if (!connection || xcb_connection_has_error(connection)) {
        if (connection) xcb_disconnect(connection);
        return false;
    }
    xcb_screen_iterator_t it = xcb_setup_roots_iterator(xcb_get_setup(connection));
    for (int i = 0; i < screenNumber && it.rem; ++i) xcb_screen_next(&it);
    if (!it.rem) {
        xcb_disconnect(connection);
        return false;
    }
    connection_ = connection;
    root_ = it.data->root;
    netActiveWindow_ = atom("_NET_ACTIVE_WINDOW");
    const std::uint32_t mask = XCB_EVENT_MASK_PROPERTY_CHANGE;
    xcb_change_window_attributes(connection_, root_, XCB_CW_EVENT_MASK, &mask);
    xcb_flush(connection_);
    return true;
}

bool ThunarX::hasError() const { return !connection_ || xcb_connection_has_error(connection_) != 0; }

int ThunarX::fileDescriptor() const { return connection_ ? xcb_get_file_descriptor(connection_) : -1; }

std::uint32_t ThunarX::atom(const char* name) {
    if (auto it = atoms_.find(name); it != atoms_.end()) return it->second;
    if (!connection_) return XCB_ATOM_NONE;
    Reply<xcb_intern_atom_reply_t> reply(xcb_intern_atom_reply(
        connection_, xcb_intern_atom(connection_, 0, static_cast<std::uint16_t>(std::strlen(name)), name), nullptr));
    if (!reply) return XCB_ATOM_NONE;
    atoms_[name] = reply->atom;
    return reply->atom;
}

void ThunarX::processEvents(const std::function<void(std::uint32_t)>& onActive) {
    if (!connection_) return;
    // Asking for the active window (and whatever the callback asks) reads
    // the socket while waiting for the reply, which moves later events into
    // xcb's queue where the socket's readiness no longer announces them:
    // drain again until a round brings no change of the active window.
    for (;;) {
        bool activeChanged = false;
        while (xcb_generic_event_t* event = xcb_poll_for_event(connection_)) {
            if ((event->response_type & 0x7f) == XCB_PROPERTY_NOTIFY) {
                auto* notify = reinterpret_cast<xcb_property_notify_event_t*>(event);
                if (notify->window == root_ && notify->atom == netActiveWindow_) activeChanged = true;
            }
            std::free(event);
        }
        if (!activeChanged) return;
        std::optional<std::uint32_t> active = activeWindow();
        if (active && onActive) onActive(*active);
    }
}

std::optional<std::vector<std::uint32_t>> ThunarX::cardinals(std::uint32_t window, std::uint32_t property,
                                                             std::uint32_t type) {
    if (!connection_ || property == XCB_ATOM_NONE) return std::nullopt;
    Reply<xcb_get_property_reply_t> reply(xcb_get_property_reply(
        connection_, xcb_get_property(connection_, 0, window, property, type, 0, 4096), nullptr));
    if (!reply || reply->type != type || reply->format != 32) return std::nullopt;
    const auto* values = static_cast<const std::uint32_t*>(xcb_get_property_value(reply.get()));
    const int count = xcb_get_property_value_length(reply.get()) / 4;
    return std::vector<std::uint32_t>(values, values + count);
}

std::optional<std::string> ThunarX::stringProperty(std::uint32_t window, std::uint32_t property, std::uint32_t type) {
    if (!connection_ || property == XCB_ATOM_NONE) return std::nullopt;
    Reply<xcb_get_property_reply_t> reply(xcb_get_property_reply(
        connection_, xcb_get_property(connection_, 0, window, property, type, 0, 16384), nullptr));
    if (!reply || reply->type != type || reply->format != 8) return std::nullopt;
    const auto* bytes = static_cast<const char*>(xcb_get_property_value(reply.get()));
    return std::string(bytes, static_cast<std::size_t>(xcb_get_property_value_length(reply.get())));
}

std::optional<std::uint32_t> ThunarX::activeWindow() {
    auto values = cardinals(root_, netActiveWindow_, XCB_ATOM_WINDOW);
    if (!values || values->empty()) return std::nullopt;
    return values->front();
}

std::vector<std::uint32_t> ThunarX::clientListStacking() {
    auto values = cardinals(root_, atom("_NET_CLIENT_LIST_STACKING"), XCB_ATOM_WINDOW);
    if (!values) values = cardinals(root_, atom("_NET_CLIENT_LIST"), XCB_ATOM_WINDOW);
    return values.value_or(std::vector<std::uint32_t>{});
}

bool ThunarX::isManaged(std::uint32_t window) {
    if (window == 0) return false;
    auto values = cardinals(root_, atom("_NET_CLIENT_LIST"), XCB_ATOM_WINDOW);
    return values && std::find(values->begin(), values->end(), window) != values->end();
}

std::optional<std::string> ThunarX::title(std::uint32_t window) {
    if (auto name = stringProperty(window, atom("_NET_WM_NAME"), atom("UTF8_STRING"))) return name;
    return stringProperty(window, XCB_ATOM_WM_NAME, XCB_ATOM_STRING);
}

std::optional<int> ThunarX::pid(std::uint32_t window) {
    auto values = cardinals(window, atom("_NET_WM_PID"), XCB_ATOM_CARDINAL);
    if (!values || values->empty() || values->front() == 0) return std::nullopt;
    return static_cast<int>(values->front());
}

WindowTraits ThunarX::traits(std::uint32_t window) {
    WindowTraits traits;
    if (auto wmClass = stringProperty(window, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING)) {
        const std::size_t nul = wmClass->find('\0');
        traits.wmClassInstance = wmClass->substr(0, nul);
        if (nul != std::string::npos) {
            std::string rest = wmClass->substr(nul + 1);
            traits.wmClassName = rest.substr(0, rest.find('\0'));
        }
    }
    traits.role = stringProperty(window, atom("WM_WINDOW_ROLE"), XCB_ATOM_STRING).value_or("");
    if (auto types = cardinals(window, atom("_NET_WM_WINDOW_TYPE"), XCB_ATOM_ATOM); types && !types->empty())
        traits.typeNormal = types->front() == atom("_NET_WM_WINDOW_TYPE_NORMAL");
    if (auto transient = cardinals(window, XCB_ATOM_WM_TRANSIENT_FOR, XCB_ATOM_WINDOW);
        transient && !transient->empty())
        traits.transient = transient->front() != 0;
    return traits;
}

std::optional<XRect> ThunarX::frame(std::uint32_t window) {
    if (!connection_) return std::nullopt;
    Reply<xcb_get_geometry_reply_t> geometry(
        xcb_get_geometry_reply(connection_, xcb_get_geometry(connection_, window), nullptr));
    if (!geometry) return std::nullopt;
    Reply<xcb_translate_coordinates_reply_t> origin(xcb_translate_coordinates_reply(
        connection_, xcb_translate_coordinates(connection_, window, root_, 0, 0), nullptr));
    if (!origin) return std::nullopt;
    XRect rect{origin->dst_x, origin->dst_y, geometry->width, geometry->height};
    if (auto extents = cardinals(window, atom("_NET_FRAME_EXTENTS"), XCB_ATOM_CARDINAL);
        extents && extents->size() == 4) {
        const auto& e = *extents;  // left, right, top, bottom
        rect.x -= static_cast<int>(e[0]);
        rect.y -= static_cast<int>(e[2]);
        rect.width += static_cast<int>(e[0] + e[1]);
        rect.height += static_cast<int>(e[2] + e[3]);
    }
    return rect;
}

bool ThunarX::requestClose(std::uint32_t window) {
    if (!connection_ || window == 0) return false;
    xcb_client_message_event_t event{};
    event.response_type = XCB_CLIENT_MESSAGE;
    event.format = 32;
    event.window = window;
    event.type = atom("_NET_CLOSE_WINDOW");
    event.data.data32[0] = XCB_CURRENT_TIME;
    event.data.data32[1] = 2;  // source indication: a pager, i.e. on the user's behalf
    xcb_void_cookie_t cookie = xcb_send_event_checked(
        connection_, 0, root_, XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY,
        reinterpret_cast<const char*>(&event));
    Reply<xcb_generic_error_t> error(xcb_request_check(connection_, cookie));
    return !error;
}

bool ThunarX::requestActivate(std::uint32_t window) {
    if (!connection_ || window == 0) return false;
    xcb_client_message_event_t event{};
    event.response_type = XCB_CLIENT_MESSAGE;
    event.format = 32;
    event.window = window;
    event.type = netActiveWindow_;
    event.data.data32[0] = 2;  // source indication: a pager
    event.data.data32[1] = XCB_CURRENT_TIME;
    xcb_void_cookie_t cookie = xcb_send_event_checked(
        connection_, 0, root_, XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY,
        reinterpret_cast<const char*>(&event));
    Reply<xcb_generic_error_t> error(xcb_request_check(connection_, cookie));
    return !error;
}

std::optional<std::uint8_t> ThunarX::keycodeFor(std::uint32_t keysym) {
    const xcb_setup_t* setup = xcb_get_setup(connection_);
    const std::uint8_t first = setup->min_keycode;
    const int count = setup->max_keycode - setup->min_keycode + 1;
    Reply<xcb_get_keyboard_mapping_reply_t> mapping(xcb_get_keyboard_mapping_reply(
        connection_, xcb_get_keyboard_mapping(connection_, first, static_cast<std::uint8_t>(count)), nullptr));
    if (!mapping) return std::nullopt;
    const xcb_keysym_t* syms = xcb_get_keyboard_mapping_keysyms(mapping.get());
    const int perCode = mapping->keysyms_per_keycode;
    for (int code = 0; code < count; ++code) {
        // Only the first level, so that no Shift is implied.
        if (perCode > 0 && syms[code * perCode] == keysym) return static_cast<std::uint8_t>(first + code);
    }
    return std::nullopt;
}

bool ThunarX::anyModifierDown() {
    if (!connection_) return false;
    Reply<xcb_query_pointer_reply_t> pointer(
        xcb_query_pointer_reply(connection_, xcb_query_pointer(connection_, root_), nullptr));
    if (!pointer) return false;
    constexpr std::uint16_t kModifiers =
        XCB_MOD_MASK_SHIFT | XCB_MOD_MASK_CONTROL | XCB_MOD_MASK_1 | XCB_MOD_MASK_4 | XCB_MOD_MASK_5;
    return (pointer->mask & kModifiers) != 0;
}

bool ThunarX::sendKey(std::uint32_t keysym, const std::vector<std::uint32_t>& modifierKeysyms) {
    if (!connection_) return false;
    std::vector<std::uint8_t> modifiers;
    for (std::uint32_t sym : modifierKeysyms) {
        auto code = keycodeFor(sym);
        if (!code) return false;
        modifiers.push_back(*code);
    }
    auto key = keycodeFor(keysym);
    if (!key) return false;
    for (std::uint8_t code : modifiers)
        xcb_test_fake_input(connection_, XCB_KEY_PRESS, code, XCB_CURRENT_TIME, XCB_NONE, 0, 0, 0);
    xcb_test_fake_input(connection_, XCB_KEY_PRESS, *key, XCB_CURRENT_TIME, XCB_NONE, 0, 0, 0);
    xcb_test_fake_input(connection_, XCB_KEY_RELEASE, *key, XCB_CURRENT_TIME, XCB_NONE, 0, 0, 0);
    for (auto it = modifiers.rbegin(); it != modifiers.rend(); ++it)
        xcb_test_fake_input(connection_, XCB_KEY_RELEASE, *it, XCB_CURRENT_TIME, XCB_NONE, 0, 0, 0);
    // A round trip, so that the keys are in the server's queue on return.
    Reply<xcb_get_input_focus_reply_t> sync(
        xcb_get_input_focus_reply(connection_, xcb_get_input_focus(connection_), nullptr));
    return sync != nullptr;
}

}  // namespace jorvane::thunar
