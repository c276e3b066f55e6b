#include "ui/X11KeyboardMap.h"

#include <QGuiApplication>

#include <xcb/xcb.h>
#include <xkbcommon/xkbcommon-x11.h>

#include "platform/x11/X11Keys.h"
#include "util/Diagnostics.h"

namespace jorvane::ui {

namespace {
constexpr const char* kLog = "ui";
}

std::shared_ptr<X11KeyboardMap> X11KeyboardMap::forApplication() {
    auto* application = qGuiApp ? qGuiApp->nativeInterface<QNativeInterface::QX11Application>() : nullptr;
    if (!application || !application->connection()) return nullptr;
    return std::make_shared<X11KeyboardMap>(application->connection());
}

X11KeyboardMap::X11KeyboardMap(xcb_connection_t* connection)
    : connection_(connection), context_(xkb_context_new(XKB_CONTEXT_NO_FLAGS)) {}

X11KeyboardMap::~X11KeyboardMap() {
    keys_.reset();
    if (context_) xkb_context_unref(context_);
}

std::optional<KeyCode> X11KeyboardMap::keyCode(std::uint32_t scanCode, std::uint32_t state) {
    if (stale_) rebuild();
    if (!keys_) return std::nullopt;
    return keys_->virtualKeyCode(scanCode, x11::groupOfState(static_cast<std::uint16_t>(state)));
}

void X11KeyboardMap::rebuild() {
    stale_ = false;
    if (!connection_ || !context_ || xcb_connection_has_error(connection_)) return;
    // Qt has set the extension up on its connection already; asking again
    // costs one round trip, once.
    if (!extensionReady_) {
        extensionReady_ =
            xkb_x11_setup_xkb_extension(connection_, XKB_X11_MIN_MAJOR_XKB_VERSION, XKB_X11_MIN_MINOR_XKB_VERSION,
                                        XKB_X11_SETUP_XKB_EXTENSION_NO_FLAGS, nullptr, nullptr, nullptr, nullptr) == 1;
        if (!extensionReady_) {
            log::inDomain(log::Warn, kLog, "no XKB on the display: keys are named by Qt's key codes");
            return;
        }
    }
    const std::int32_t device = xkb_x11_get_core_keyboard_device_id(connection_);
    xkb_keymap* keymap =
        device >= 0 ? xkb_x11_keymap_new_from_device(context_, connection_, device, XKB_KEYMAP_COMPILE_NO_FLAGS)
                    : nullptr;
    if (!keymap) {
        log::inDomain(log::Warn, kLog, "cannot read the keyboard mapping: keys are named by Qt's key codes");
        keys_.reset();
        return;
    }
    // Only the key codes are asked for, which need no modifier map.
    keys_ = std::make_unique<x11::X11Keys>(keymap, x11::ModifierMap{});
    xkb_keymap_unref(keymap);
}

}  // namespace jorvane::ui
