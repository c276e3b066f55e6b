#include "platform/x11/X11Keyboard.h"

#include <xcb/xcb.h>
#include <xkbcommon/xkbcommon-x11.h>

#include <cstdlib>
#include <memory>

// <xcb/xkb.h> names a structure field `explicit`.
#define explicit explicit_
#include <xcb/xkb.h>
#undef explicit

#include "util/Diagnostics.h"

namespace jorvane::x11 {
namespace {

constexpr const char* kLog = "x11-keyboard";

struct FreeDeleter {
    void operator()(void* p) const { std::free(p); }
};
template <typename T>
std::unique_ptr<T, FreeDeleter> own(T* p) {
    return std::unique_ptr<T, FreeDeleter>(p);
}

}  // namespace

std::shared_ptr<X11Keyboard> X11Keyboard::open(const std::string& display) {
    xcb_connection_t* connection = xcb_connect(display.empty() ? nullptr : display.c_str(), nullptr);
    if (!connection || xcb_connection_has_error(connection)) {
        log::inDomain(log::Warn, kLog, "cannot connect to the X display");
        if (connection) xcb_disconnect(connection);
        return nullptr;
    }
    std::uint8_t eventBase = 0;
    if (!xkb_x11_setup_xkb_extension(connection, XKB_X11_MIN_MAJOR_XKB_VERSION, XKB_X11_MIN_MINOR_XKB_VERSION,
                                     XKB_X11_SETUP_XKB_EXTENSION_NO_FLAGS, nullptr, nullptr, &eventBase, nullptr)) {
        log::inDomain(log::Warn, kLog, "the X server lacks XKB");
        xcb_disconnect(connection);
        return nullptr;
    }
    const std::uint16_t events =
        XCB_XKB_EVENT_TYPE_NEW_KEYBOARD_NOTIFY | XCB_XKB_EVENT_TYPE_MAP_NOTIFY | XCB_XKB_EVENT_TYPE_STATE_NOTIFY;
    const std::uint16_t mapParts = XCB_XKB_MAP_PART_KEY_TYPES | XCB_XKB_MAP_PART_KEY_SYMS |
                                   XCB_XKB_MAP_PART_MODIFIER_MAP | XCB_XKB_MAP_PART_VIRTUAL_MODS;
    xcb_xkb_select_events_details_t details{};
    details.affectNewKeyboard = XCB_XKB_NKN_DETAIL_KEYCODES;
    details.newKeyboardDetails = XCB_XKB_NKN_DETAIL_KEYCODES;
    details.affectState = XCB_XKB_STATE_PART_GROUP_STATE;
    details.stateDetails = XCB_XKB_STATE_PART_GROUP_STATE;
    if (auto error = own(
            xcb_request_check(connection, xcb_xkb_select_events_aux_checked(connection, XCB_XKB_ID_USE_CORE_KBD, events,
                                                                            0, 0, mapParts, mapParts, &details)))) {
        log::inDomain(log::Warn, kLog, "XkbSelectEvents failed: X error %u; layout changes may be missed",
                      error->error_code);
    }
    const xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(connection)).data;
    return std::shared_ptr<X11Keyboard>(new X11Keyboard(connection, screen ? screen->root : 0, eventBase));
}

X11Keyboard::X11Keyboard(xcb_connection_t* connection, std::uint32_t root, std::uint8_t xkbEventBase)
    : connection_(connection),
      root_(root),
      xkbEventBase_(xkbEventBase),
      context_(xkb_context_new(XKB_CONTEXT_NO_FLAGS)) {
    current_.connection = connection_;
    current_.root = root_;
}

X11Keyboard::~X11Keyboard() {
    current_.keys.reset();
    if (context_) xkb_context_unref(context_);
    xcb_disconnect(connection_);
}

void X11Keyboard::withCurrent(const std::function<void(const Current&)>& use) {
    std::lock_guard lock(mutex_);
    takeNotices();
    if (dirty_) rebuild();
    use(current_);
}

void X11Keyboard::takeNotices() {
    if (xcb_connection_has_error(connection_)) return;
    while (auto event = own(xcb_poll_for_event(connection_))) {
        if ((event->response_type & 0x7F) != xkbEventBase_) continue;
        const std::uint8_t kind = reinterpret_cast<const std::uint8_t*>(event.get())[1];
        if (kind == XCB_XKB_NEW_KEYBOARD_NOTIFY || kind == XCB_XKB_MAP_NOTIFY) {
            dirty_ = true;
        } else if (kind == XCB_XKB_STATE_NOTIFY) {
            current_.group = reinterpret_cast<const xcb_xkb_state_notify_event_t*>(event.get())->group;
        }
    }
}

void X11Keyboard::rebuild() {
    dirty_ = false;
    if (!context_ || xcb_connection_has_error(connection_)) {
        current_.keys.reset();
        return;
    }
    const std::int32_t device = xkb_x11_get_core_keyboard_device_id(connection_);
    xkb_keymap* keymap =
        device >= 0 ? xkb_x11_keymap_new_from_device(context_, connection_, device, XKB_KEYMAP_COMPILE_NO_FLAGS)
                    : nullptr;
    if (!keymap) {
        log::inDomain(log::Warn, kLog, "cannot read the keyboard mapping");
        current_.keys.reset();
        return;
    }
    ModifierMap modifierMap;
    if (auto mapping =
            own(xcb_get_modifier_mapping_reply(connection_, xcb_get_modifier_mapping(connection_), nullptr))) {
        const xcb_keycode_t* codes = xcb_get_modifier_mapping_keycodes(mapping.get());
        const int perModifier = mapping->keycodes_per_modifier;
        for (int index = 0; index < 8; ++index) {
            for (int i = 0; i < perModifier; ++i) {
                if (xcb_keycode_t code = codes[index * perModifier + i]) modifierMap[index].push_back(code);
            }
        }
    }
    if (auto state = own(
            xcb_xkb_get_state_reply(connection_, xcb_xkb_get_state(connection_, XCB_XKB_ID_USE_CORE_KBD), nullptr))) {
        current_.group = state->group;
    }
    current_.keys = std::make_shared<const X11Keys>(keymap, modifierMap);
    xkb_keymap_unref(keymap);
}

}  // namespace jorvane::x11
