// Keys and clicks become TapEvents for the callback; a watchdog thaws the
// keyboard when the callback takes longer than the decision time-out.

#include "platform/x11/X11EventTapImpl.h"

#include <xcb/xinput.h>

#include <cstdlib>
#include <exception>

namespace jorvane::x11 {

using namespace event_tap;

namespace {

// X button numbers: 1 left, 2 middle, 3 right, 4-7 the wheel, 8 and up the
// extra buttons (the program numbers them from 3).
std::int64_t buttonNumberOf(std::uint32_t xButton) {
    switch (xButton) {
        case 1: return kMouseButtonLeft;
        case 2: return kMouseButtonCenter;
        case 3: return kMouseButtonRight;
        default: return static_cast<std::int64_t>(xButton) - 5;
    }
}

}  // namespace

void X11EventTap::Impl::onKeyPress(const xcb_key_press_event_t* e) {
    // Without an active grab of ours, this press activated one of the
    // passive grabs and the keyboard waits for our decision. Every press
    // is answered all the same: AllowEvents does nothing to a keyboard
    // that is not frozen, and a wrong guess must never leave it frozen.
    const bool frozen = grabKey == 0;
    const bool repeat = pressedKeys.count(e->detail) > 0;
    pressedKeys.insert(e->detail);
    selectRaw();  // watch for the release before the keyboard thaws

    Decision decision = Decision::Pass;
    bool timedOut = false;
    if (enabled && keys) {
        if (std::optional<TapEvent> event =
                keys->keyEvent(e->detail, e->state, true, repeat, {double(e->root_x), double(e->root_y)})) {
            decision = deliver(*event, /*watched=*/true, &timedOut);
        }
    }
    if (timedOut) {
        if (frozen) grabKey = 0;  // the watchdog replayed it
    } else if (decision == Decision::Swallow) {
        xcb_allow_events(conn, XCB_ALLOW_ASYNC_KEYBOARD, e->time);
        if (frozen) grabKey = e->detail;
    } else {
        xcb_allow_events(conn, XCB_ALLOW_REPLAY_KEYBOARD, e->time);
        if (!frozen) {
            log::inDomain(log::Debug, kLog, "key %u came during our grab and cannot be handed on", e->detail);
        }
    }
    xcb_flush(conn);
    if (timedOut) onDecisionTimeout();
}

void X11EventTap::Impl::onKeyRelease(const xcb_key_release_event_t* e) {
    pressedKeys.erase(e->detail);
    if (enabled && keys) {
        if (std::optional<TapEvent> event =
                keys->keyEvent(e->detail, e->state, false, false, {double(e->root_x), double(e->root_y)})) {
            deliver(*event, false, nullptr);
        }
    }
    if (e->detail == grabKey) grabKey = 0;
    selectRaw();
}

void X11EventTap::Impl::onRawEvent(xcb_ge_generic_event_t* event) {
    auto* raw = reinterpret_cast<xcb_input_raw_button_press_event_t*>(event);
    switch (raw->event_type) {
        case XCB_INPUT_RAW_BUTTON_PRESS: onRawButton(raw->detail, raw->time, true); break;
        case XCB_INPUT_RAW_BUTTON_RELEASE: onRawButton(raw->detail, raw->time, false); break;
        case XCB_INPUT_RAW_MOTION:
            if (leftHeld) motionPending = true;
            break;
        case XCB_INPUT_RAW_KEY_RELEASE:
            if (raw->detail < 256) pressedKeys.erase(static_cast<xcb_keycode_t>(raw->detail));
            // Our grab ends with this key's release, also when the server
            // ended it earlier (its window went away) and no core release comes.
            if (raw->detail == grabKey) grabKey = 0;
            selectRaw();
            break;
        default: break;
    }
}

void X11EventTap::Impl::onRawButton(std::uint32_t physical, xcb_timestamp_t time, bool press) {
    // Raw events carry the physical button; apply the pointer mapping
    // (left-handed set-ups swap 1 and 3).
    std::uint32_t button = physical;
    if (physical >= 1 && physical <= pointerMap.size()) button = pointerMap[physical - 1];
    if (button == 0 || button >= buttonOwned.size()) return;
    if (button >= 4 && button <= 7) return;  // the wheel
    if (motionPending) flushMotion();

    if (press) {
        buttonOwned[button] = false;
        if (!enabled || pid == 0 || !callback) return;
        const std::optional<PointerState> pointer = queryPointer(conn, root);
        if (!pointer || !belongsToProcess(pointer->child)) return;
        buttonOwned[button] = true;
        std::int64_t clicks = 1;
        if (lastPress.button == button && time - lastPress.time <= std::uint32_t(options.doubleClickTime.count()) &&
            std::abs(pointer->x - lastPress.x) <= options.doubleClickDistance &&
            std::abs(pointer->y - lastPress.y) <= options.doubleClickDistance) {
            clicks = lastPress.count + 1;
        }
        lastPress = {button, time, pointer->x, pointer->y, clicks};
        buttonClickState[button] = clicks;
        if (button == 1) {
            leftHeld = true;
            selectRaw();
        }
        deliverMouse(button, true, *pointer, clicks);
    } else {
        if (!buttonOwned[button]) return;
        buttonOwned[button] = false;
        if (button == 1) {
            leftHeld = false;
            selectRaw();
        }
        const std::optional<PointerState> pointer = queryPointer(conn, root);
        if (pointer && enabled && callback) deliverMouse(button, false, *pointer, buttonClickState[button]);
    }
}

void X11EventTap::Impl::deliverMouse(std::uint32_t button, bool down, const PointerState& pointer,
                                     std::int64_t clicks) {
    EventType type = down ? kEventOtherMouseDown : kEventOtherMouseUp;
    if (button == 1) type = down ? kEventLeftMouseDown : kEventLeftMouseUp;
    if (button == 3) type = down ? kEventRightMouseDown : kEventRightMouseUp;
    deliver(TapEvent::mouseEvent(type, {double(pointer.x), double(pointer.y)}, buttonNumberOf(button), clicks,
                                 keys ? keys->flagsForState(modifiers) : 0),
            false, nullptr);
}

// One position for a batch of raw motion while the left button is held.
void X11EventTap::Impl::flushMotion() {
    motionPending = false;
    if (!leftHeld || !enabled || !callback) return;
    const std::optional<PointerState> pointer = queryPointer(conn, root);
    if (!pointer || !(pointer->mask & XCB_BUTTON_MASK_1)) return;
    deliver(TapEvent::mouseEvent(kEventLeftMouseDragged, {double(pointer->x), double(pointer->y)}, kMouseButtonLeft,
                                 buttonClickState[1], keys ? keys->flagsForState(modifiers) : 0),
            false, nullptr);
}

// Raw button events always; motion while a tapped left press is held;
// key releases while a tapped key is down.
void X11EventTap::Impl::selectRaw() {
    std::uint32_t mask = XCB_INPUT_XI_EVENT_MASK_RAW_BUTTON_PRESS | XCB_INPUT_XI_EVENT_MASK_RAW_BUTTON_RELEASE;
    if (leftHeld) mask |= XCB_INPUT_XI_EVENT_MASK_RAW_MOTION;
    if (!pressedKeys.empty() || grabKey != 0) mask |= XCB_INPUT_XI_EVENT_MASK_RAW_KEY_RELEASE;
    if (mask == rawMaskSelected) return;
    struct {
        xcb_input_event_mask_t head;
        std::uint32_t mask;
    } selection{{XCB_INPUT_DEVICE_ALL_MASTER, 1}, mask};
    xcb_input_xi_select_events(conn, root, 1, &selection.head);
    rawMaskSelected = mask;
}

// `watched`: the keyboard may be frozen until the callback returns, so the
// watchdog guards the call.
EventTap::Decision X11EventTap::Impl::deliver(const TapEvent& event, bool watched, bool* timedOut) {
    if (!callback) return Decision::Pass;
    if (watched) {
        std::lock_guard lock(watchMutex);
        watchArmed = true;
        watchFired = false;
        watchDeadline = std::chrono::steady_clock::now() + options.decisionTimeout;
        watchChanged.notify_all();
    }
    Decision decision = Decision::Pass;
    try {
        decision = callback(event);
    } catch (const std::exception& exception) {
        log::inDomain(log::Error, kLog, "the tap callback threw: %s", exception.what());
    } catch (...) {
        log::inDomain(log::Error, kLog, "the tap callback threw");
    }
    if (watched) {
        std::lock_guard lock(watchMutex);
        watchArmed = false;
        if (watchFired && timedOut) *timedOut = true;
        watchFired = false;
        watchChanged.notify_all();
    }
    return decision;
}

void X11EventTap::Impl::onDecisionTimeout() {
    log::inDomain(log::Warn, kLog, "the tap callback took longer than %lld ms: key handed on, tap disabled",
                  static_cast<long long>(options.decisionTimeout.count()));
    {
        std::lock_guard lock(stateMutex);
        desired.enabled = false;
        ++requested;
    }
    applyDesired(/*mayDrain=*/false);
    TapEvent notice;
    notice.type = kEventTapDisabledByTimeout;
    deliver(notice, false, nullptr);
}

void X11EventTap::Impl::watch() {
    std::unique_lock lock(watchMutex);
    while (!watchStopping) {
        if (!watchArmed) {
            watchChanged.wait(lock);
            continue;
        }
        if (std::chrono::steady_clock::now() < watchDeadline) {
            watchChanged.wait_until(lock, watchDeadline);
            continue;
        }
        // The tap thread is inside the callback and does not touch the
        // connection; the events this may read are drained afterwards.
        xcb_allow_events(conn, XCB_ALLOW_REPLAY_KEYBOARD, XCB_CURRENT_TIME);
        xcb_flush(conn);
        watchArmed = false;
        watchFired = true;
    }
}

}  // namespace jorvane::x11
