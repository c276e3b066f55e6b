// The event tap's connections: the tap's own (XInput 2.2, XKB state and
// mapping notifications, the root's properties) and the one for synthetic
// input (XTEST); the keyboard and pointer mappings read from the server.

#include "platform/x11/X11EventTapImpl.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <xcb/xinput.h>
#include <xcb/xtest.h>
// <xcb/xkb.h> names a structure field `explicit`.
#define explicit explicit_
#include <xcb/xkb.h>
#undef explicit
#include <xkbcommon/xkbcommon-x11.h>

#include <cstring>

namespace jorvane::x11 {

using namespace event_tap;

namespace event_tap {

// Logs an X error and frees it; BadWindow is expected for windows that went
// away and is logged at debug level only.
void logXError(const char* request, xcb_generic_error_t* error) {
    if (!error) return;
    log::inDomain(error->error_code == kBadWindow ? log::Debug : log::Warn, kLog,
                  "%s failed: X error %u (request %u.%u)", request, error->error_code, error->major_code,
                  error->minor_code);
    std::free(error);
}

static xcb_window_t rootOf(xcb_connection_t* c, int screen) {
    xcb_screen_iterator_t it = xcb_setup_roots_iterator(xcb_get_setup(c));
    for (int i = 0; i < screen && it.rem > 1; ++i) xcb_screen_next(&it);
    return it.rem ? it.data->root : xcb_window_t{XCB_NONE};
}

xcb_connection_t* connectTo(const std::string& displayName, xcb_window_t* root) {
    int screen = 0;
    xcb_connection_t* c = xcb_connect(displayName.empty() ? nullptr : displayName.c_str(), &screen);
    if (xcb_connection_has_error(c)) {
        xcb_disconnect(c);
        return nullptr;
    }
    *root = rootOf(c, screen);
    return c;
}

bool hasXInput22(xcb_connection_t* c) {
    const xcb_query_extension_reply_t* ext = xcb_get_extension_data(c, &xcb_input_id);
    if (!ext || !ext->present) return false;
    auto version = own(xcb_input_xi_query_version_reply(c, xcb_input_xi_query_version(c, 2, 2), nullptr));
    return version && (version->major_version > 2 || (version->major_version == 2 && version->minor_version >= 2));
}

bool hasXTest(xcb_connection_t* c) {
    const xcb_query_extension_reply_t* ext = xcb_get_extension_data(c, &xcb_test_id);
    if (!ext || !ext->present) return false;
    return own(xcb_test_get_version_reply(c, xcb_test_get_version(c, 2, 2), nullptr)) != nullptr;
}

xcb_atom_t internAtom(xcb_connection_t* c, const char* name) {
    auto reply =
        own(xcb_intern_atom_reply(c, xcb_intern_atom(c, 0, static_cast<uint16_t>(std::strlen(name)), name), nullptr));
    return reply ? reply->atom : xcb_atom_t{XCB_ATOM_NONE};
}

std::optional<PointerState> queryPointer(xcb_connection_t* c, xcb_window_t root) {
    auto reply = own(xcb_query_pointer_reply(c, xcb_query_pointer(c, root), nullptr));
    if (!reply) return std::nullopt;
    return PointerState{reply->child, reply->root_x, reply->root_y, reply->mask};
}

}  // namespace event_tap

bool X11EventTap::Impl::open() {
    conn = connectTo(options.displayName, &root);
    if (!conn) {
        log::inDomain(log::Error, kLog, "cannot connect to the X display");
        return false;
    }
    if (!hasXInput22(conn)) {
        log::inDomain(log::Error, kLog, "the X server lacks XInput 2.2");
        return false;
    }
    xiOpcode = xcb_get_extension_data(conn, &xcb_input_id)->major_opcode;
    std::uint16_t xkbMajor = 0, xkbMinor = 0;
    if (!xkb_x11_setup_xkb_extension(conn, XKB_X11_MIN_MAJOR_XKB_VERSION, XKB_X11_MIN_MINOR_XKB_VERSION,
                                     XKB_X11_SETUP_XKB_EXTENSION_NO_FLAGS, &xkbMajor, &xkbMinor, &xkbEventBase,
                                     nullptr)) {
        log::inDomain(log::Error, kLog, "the X server lacks XKB");
        return false;
    }
    keyboardId = xkb_x11_get_core_keyboard_device_id(conn);

    // Holding a key gives repeated presses and one release, instead of
    // release-press pairs that would end our grab at every repetition.
    auto flags = own(xcb_xkb_per_client_flags_reply(
        conn,
        xcb_xkb_per_client_flags(conn, XCB_XKB_ID_USE_CORE_KBD, XCB_XKB_PER_CLIENT_FLAG_DETECTABLE_AUTO_REPEAT,
                                 XCB_XKB_PER_CLIENT_FLAG_DETECTABLE_AUTO_REPEAT, 0, 0, 0),
        nullptr));
    if (!flags || !(flags->value & XCB_XKB_PER_CLIENT_FLAG_DETECTABLE_AUTO_REPEAT)) {
        log::inDomain(log::Warn, kLog, "detectable auto-repeat is not supported: held keys end the grab");
    }

    const std::uint16_t events =
        XCB_XKB_EVENT_TYPE_NEW_KEYBOARD_NOTIFY | XCB_XKB_EVENT_TYPE_MAP_NOTIFY | XCB_XKB_EVENT_TYPE_STATE_NOTIFY;
    const std::uint16_t mapParts = XCB_XKB_MAP_PART_KEY_TYPES | XCB_XKB_MAP_PART_KEY_SYMS |
                                   XCB_XKB_MAP_PART_MODIFIER_MAP | XCB_XKB_MAP_PART_EXPLICIT_COMPONENTS |
                                   XCB_XKB_MAP_PART_KEY_ACTIONS | XCB_XKB_MAP_PART_VIRTUAL_MODS |
                                   XCB_XKB_MAP_PART_VIRTUAL_MOD_MAP;
    xcb_xkb_select_events_details_t details{};
    details.affectNewKeyboard = XCB_XKB_NKN_DETAIL_KEYCODES;
    details.newKeyboardDetails = XCB_XKB_NKN_DETAIL_KEYCODES;
    // The modifier state, in order with the raw button events: a click's
    // flags are the modifiers when the server handled it, not when we
    // get to ask.
    details.affectState = XCB_XKB_STATE_PART_GROUP_STATE | XCB_XKB_STATE_PART_MODIFIER_STATE;
    details.stateDetails = XCB_XKB_STATE_PART_GROUP_STATE | XCB_XKB_STATE_PART_MODIFIER_STATE;
    logXError("XkbSelectEvents",
              xcb_request_check(conn, xcb_xkb_select_events_aux_checked(conn, XCB_XKB_ID_USE_CORE_KBD, events, 0, 0,
                                                                        mapParts, mapParts, &details)));

    atomClientList = internAtom(conn, "_NET_CLIENT_LIST");
    atomWmPid = internAtom(conn, "_NET_WM_PID");
    const std::uint32_t rootMask = XCB_EVENT_MASK_PROPERTY_CHANGE;
    logXError("ChangeWindowAttributes(root)",
              xcb_request_check(conn, xcb_change_window_attributes_checked(conn, root, XCB_CW_EVENT_MASK, &rootMask)));
    selectRaw();

    xkbContext = xkb_context_new(XKB_CONTEXT_NO_FLAGS);
    if (!xkbContext) return false;
    rebuildKeymap();
    rebuildPointerMap();
    if (!keys) return false;

    postConn = connectTo(options.displayName, &postRoot);
    if (!postConn || !hasXTest(postConn)) {
        log::inDomain(log::Error, kLog, "the X server lacks XTEST");
        return false;
    }
    wakeFd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    return wakeFd >= 0;
}

void X11EventTap::Impl::close() {
    if (postConn) {
        std::lock_guard lock(postMutex);
        releaseInjected();
        xcb_disconnect(postConn);
        postConn = nullptr;
    }
    if (conn) xcb_disconnect(conn);
    conn = nullptr;
    if (xkbContext) xkb_context_unref(xkbContext);
    xkbContext = nullptr;
    if (wakeFd >= 0) ::close(wakeFd);
    wakeFd = -1;
}

void X11EventTap::Impl::rebuildKeymap() {
    keymapDirty = false;
    keyboardId = xkb_x11_get_core_keyboard_device_id(conn);
    xkb_keymap* keymap = keyboardId >= 0
                             ? xkb_x11_keymap_new_from_device(xkbContext, conn, keyboardId, XKB_KEYMAP_COMPILE_NO_FLAGS)
                             : nullptr;
    if (!keymap) {
        log::inDomain(log::Error, kLog, "cannot read the keyboard mapping");
        return;
    }
    ModifierMap modifierMap;
    if (auto mapping = own(xcb_get_modifier_mapping_reply(conn, xcb_get_modifier_mapping(conn), nullptr))) {
        const xcb_keycode_t* codes = xcb_get_modifier_mapping_keycodes(mapping.get());
        const int perModifier = mapping->keycodes_per_modifier;
        for (int index = 0; index < 8; ++index) {
            for (int i = 0; i < perModifier; ++i) {
                if (xcb_keycode_t code = codes[index * perModifier + i]) modifierMap[index].push_back(code);
            }
        }
    }
    if (auto state = own(xcb_xkb_get_state_reply(conn, xcb_xkb_get_state(conn, XCB_XKB_ID_USE_CORE_KBD), nullptr))) {
        group = state->group;
        sharedGroup = group;
        modifiers = state->mods;
    }
    keys = std::make_shared<const X11Keys>(keymap, modifierMap);
    xkb_keymap_unref(keymap);
    {
        std::lock_guard lock(keysMutex);
        sharedKeys = keys;
    }
    grabsDirty = true;
}

void X11EventTap::Impl::rebuildPointerMap() {
    pointerMapDirty = false;
    auto mapping = own(xcb_get_pointer_mapping_reply(conn, xcb_get_pointer_mapping(conn), nullptr));
    pointerMap.clear();
    if (!mapping) return;
    const std::uint8_t* map = xcb_get_pointer_mapping_map(mapping.get());
    pointerMap.assign(map, map + xcb_get_pointer_mapping_map_length(mapping.get()));
}

}  // namespace jorvane::x11
