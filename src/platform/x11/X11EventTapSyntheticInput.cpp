// Synthetic input through XTEST on the second connection, so that a caller
// blocked in post() never holds up the tap.

#include "platform/x11/X11EventTapImpl.h"

#include <xcb/xtest.h>

#include <algorithm>
#include <cmath>

namespace jorvane::x11 {

using namespace event_tap;

namespace {

std::optional<std::uint8_t> xButtonOf(std::int64_t buttonNumber) {
    switch (buttonNumber) {
        case kMouseButtonLeft: return 1;
        case kMouseButtonRight: return 3;
        case kMouseButtonCenter: return 2;
        default:
            if (buttonNumber >= 3 && buttonNumber <= 250) return static_cast<std::uint8_t>(buttonNumber + 5);
            return std::nullopt;
    }
}

// What XTEST is to fake for an event: the pointer moved, a button or a key
// pressed or released (`detail`: the X button or key code).
struct FakeInput {
    enum class Kind { Motion, Button, Key } kind = Kind::Motion;
    bool press = false;
    std::uint8_t detail = 0;
};

// Nothing, logged, for an event that cannot be posted on this keyboard.
std::optional<FakeInput> fakeInputFor(const TapEvent& event, const X11Keys& keys, std::uint32_t group) {
    FakeInput input;
    switch (event.type) {
        case kEventLeftMouseDown:
        case kEventLeftMouseUp:
            input.kind = FakeInput::Kind::Button;
            input.press = event.type == kEventLeftMouseDown;
            input.detail = 1;
            break;
        case kEventRightMouseDown:
        case kEventRightMouseUp:
            input.kind = FakeInput::Kind::Button;
            input.press = event.type == kEventRightMouseDown;
            input.detail = 3;
            break;
        case kEventOtherMouseDown:
        case kEventOtherMouseUp: {
            const std::optional<std::uint8_t> button = xButtonOf(event.buttonNumber);
            if (!button) {
                log::inDomain(log::Warn, kLog, "cannot post a click of button %lld",
                              static_cast<long long>(event.buttonNumber));
                return std::nullopt;
            }
            input.kind = FakeInput::Kind::Button;
            input.press = event.type == kEventOtherMouseDown;
            input.detail = *button;
            break;
        }
        case kEventMouseMoved:
        case kEventLeftMouseDragged:
        case kEventRightMouseDragged:
        case kEventOtherMouseDragged: break;
        case kEventKeyDown:
        case kEventKeyUp: {
            const std::vector<xkb_keycode_t>& keycodes = keys.keycodes(event.keyCode, group);
            if (keycodes.empty()) {
                log::inDomain(log::Warn, kLog, "cannot post key %u: no key on this keyboard types it", event.keyCode);
                return std::nullopt;
            }
            input.kind = FakeInput::Kind::Key;
            input.press = event.type == kEventKeyDown;
            input.detail = static_cast<std::uint8_t>(keycodes.front());
            break;
        }
        default: log::inDomain(log::Warn, kLog, "cannot post events of type %u", event.type); return std::nullopt;
    }
    return input;
}

}  // namespace

std::shared_ptr<const X11Keys> X11EventTap::Impl::currentKeys() const {
    std::lock_guard lock(keysMutex);
    return sharedKeys;
}

void X11EventTap::Impl::fake(std::uint8_t type, std::uint8_t detail, std::int16_t x, std::int16_t y) {
    xcb_test_fake_input(postConn, type, detail, XCB_CURRENT_TIME, type == XCB_MOTION_NOTIFY ? postRoot : XCB_NONE, x, y,
                        XCB_NONE);
}

// Waits until the user holds none of Shift, Ctrl, Alt and Super (keys we
// hold ourselves do not count); false when the time-out passes first.
bool X11EventTap::Impl::waitForModifierRelease(const X11Keys& k) {
    const std::uint16_t interesting = kXShiftMask | kXControlMask | k.modifierBits().alt | k.modifierBits().super;
    const auto deadline = std::chrono::steady_clock::now() + options.modifierReleaseTimeout;
    for (;;) {
        auto keymap = own(xcb_query_keymap_reply(postConn, xcb_query_keymap(postConn), nullptr));
        if (!keymap) return false;
        bool held = false;
        for (std::size_t index = 0; index < 8 && !held; ++index) {
            if (!(interesting & (1u << index))) continue;
            for (xcb_keycode_t key : k.modifierMap()[index]) {
                const bool down = keymap->keys[key / 8] & (1u << (key % 8));
                const bool ours = std::any_of(injected.begin(), injected.end(),
                                              [&](const auto& entry) { return entry.second == key; });
                if (down && !ours) {
                    held = true;
                    break;
                }
            }
        }
        if (!held) return true;
        if (std::chrono::steady_clock::now() >= deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}

// Presses and releases our own modifier keys so that exactly `state`'s
// modifiers are held by us.
bool X11EventTap::Impl::holdModifiers(const X11Keys& k, std::uint16_t state) {
    for (std::uint16_t bit = 1; bit < 0x100; bit = static_cast<std::uint16_t>(bit << 1)) {
        if (bit == kXLockMask || bit == k.modifierBits().numLock) continue;
        const bool want = state & bit;
        auto held = injected.find(bit);
        if (want && held == injected.end()) {
            const std::optional<xkb_keycode_t> key = k.keyForModifier(bit);
            if (!key) return false;
            fake(XCB_KEY_PRESS, static_cast<std::uint8_t>(*key));
            injected[bit] = static_cast<xcb_keycode_t>(*key);
        } else if (!want && held != injected.end()) {
            fake(XCB_KEY_RELEASE, held->second);
            injected.erase(held);
        }
    }
    return true;
}

void X11EventTap::Impl::releaseInjected() {
    if (!postConn) return;
    for (const auto& [bit, key] : injected) fake(XCB_KEY_RELEASE, key);
    injected.clear();
    xcb_flush(postConn);
}

// A window manager that grabs clicks synchronously (openbox on clicks into
// clients) freezes the pointer until it has looked at the press, while
// keys go on: a modifier posted next would overtake the click. So wait,
// bounded, until the server has acted on a posted button.
void X11EventTap::Impl::waitForButtonState(std::uint8_t button, bool down) {
    if (button < 1 || button > 5) return;  // no state bit to watch
    const std::uint16_t bit = static_cast<std::uint16_t>(XCB_BUTTON_MASK_1 << (button - 1));
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(250);
    for (;;) {
        const std::optional<PointerState> pointer = queryPointer(postConn, postRoot);
        if (!pointer || bool(pointer->mask & bit) == down) return;
        if (std::chrono::steady_clock::now() >= deadline) {
            log::inDomain(log::Warn, kLog, "button %u still %s after 250 ms", button, down ? "up" : "down");
            return;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

bool X11EventTap::Impl::post(const TapEvent& event) {
    std::lock_guard lock(postMutex);
    if (!postConn || xcb_connection_has_error(postConn)) return false;
    const std::shared_ptr<const X11Keys> k = currentKeys();
    if (!k) return false;

    const std::optional<FakeInput> input = fakeInputFor(event, *k, sharedGroup.load());
    if (!input) return false;
    const auto [kind, press, detail] = *input;
    const std::optional<std::uint16_t> state = k->stateForFlags(event.flags);
    if (!state) {
        log::inDomain(log::Warn, kLog, "cannot post flags 0x%llx: a modifier has no key on this keyboard",
                      static_cast<unsigned long long>(event.flags));
        return false;
    }
    if (!waitForModifierRelease(*k)) {
        log::inDomain(log::Warn, kLog,
                      "the user kept holding modifiers for %lld ms; event of type %u (key %u) not posted",
                      static_cast<long long>(options.modifierReleaseTimeout.count()), event.type, event.keyCode);
        return false;
    }
    if (!holdModifiers(*k, *state)) return false;
    if (kind != FakeInput::Kind::Key) {
        const auto clamp = [](double v) {
            return static_cast<std::int16_t>(std::clamp(std::lround(v), -32768L, 32767L));
        };
        fake(XCB_MOTION_NOTIFY, 0, clamp(event.location.x), clamp(event.location.y));
    }
    if (kind == FakeInput::Kind::Button) {
        fake(press ? XCB_BUTTON_PRESS : XCB_BUTTON_RELEASE, detail);
        waitForButtonState(detail, press);
    }
    if (kind == FakeInput::Kind::Key) fake(press ? XCB_KEY_PRESS : XCB_KEY_RELEASE, detail);
    if (kind != FakeInput::Kind::Motion && !press) holdModifiers(*k, 0);
    // A round trip: the server has acted on the events when post() returns.
    free(xcb_get_input_focus_reply(postConn, xcb_get_input_focus(postConn), nullptr));
    return !xcb_connection_has_error(postConn);
}

Point X11EventTap::Impl::mouseLocation() {
    std::lock_guard lock(postMutex);
    if (!postConn) return {};
    const std::optional<PointerState> pointer = queryPointer(postConn, postRoot);
    return pointer ? Point{double(pointer->x), double(pointer->y)} : Point{};
}

}  // namespace jorvane::x11
