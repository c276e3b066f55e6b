// The tap thread: it sleeps in poll() on the connection and the wake-up
// descriptor, applies what the callers asked for between events, and hands
// each event to its handler.

#include "platform/x11/X11EventTapImpl.h"

#include <poll.h>
#include <unistd.h>

#include <xcb/xinput.h>
// <xcb/xkb.h> names a structure field `explicit`.
#define explicit explicit_
#include <xcb/xkb.h>
#undef explicit

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

namespace jorvane::x11 {

using namespace event_tap;

void X11EventTap::Impl::wake() const {
    const std::uint64_t one = 1;
    if (wakeFd >= 0 && ::write(wakeFd, &one, sizeof one) < 0 && errno != EAGAIN) {
        log::inDomain(log::Warn, kLog, "cannot wake the tap thread: %s", std::strerror(errno));
    }
}

void X11EventTap::Impl::run() {
    tapThreadId = std::this_thread::get_id();
    for (;;) {
        {
            std::lock_guard lock(stateMutex);
            if (stopping) break;
        }
        applyDesired(/*mayDrain=*/true);
        const bool healthy = !xcb_connection_has_error(conn);
        if (healthy) {
            drainEvents();
        } else if (!connectionErrorLogged) {
            connectionErrorLogged = true;
            log::inDomain(log::Error, kLog, "the X connection broke; the tap sees nothing from now on");
        }
        pollfd fds[2] = {{wakeFd, POLLIN, 0}, {xcb_get_file_descriptor(conn), POLLIN, 0}};
        if (::poll(fds, healthy ? 2 : 1, pollTimeout()) < 0 && errno != EINTR) {
            log::inDomain(log::Error, kLog, "poll failed: %s", std::strerror(errno));
            break;
        }
        if (fds[0].revents & POLLIN) {
            std::uint64_t count = 0;
            [[maybe_unused]] ssize_t n = ::read(wakeFd, &count, sizeof count);
        }
    }
}

// Handles every event the connection has, then the work they left
// (client list, frames, keymap, grabs, coalesced motion). Ends with the
// output flushed and nothing queued, so that poll() will see the next event.
void X11EventTap::Impl::drainEvents() {
    for (;;) {
        while (xcb_generic_event_t* event = xcb_poll_for_event(conn)) {
            handleEvent(event);
            std::free(event);
        }
        if (motionPending) {
            flushMotion();
            continue;
        }
        retryRefusedGrabs();
        if (clientsDirty || framesDirty || keymapDirty || grabsDirty || pointerMapDirty) {
            applyDirty();
            continue;
        }
        xcb_flush(conn);
        // Flushing may have read events into the queue.
        xcb_generic_event_t* queued = xcb_poll_for_queued_event(conn);
        if (!queued) return;
        handleEvent(queued);
        std::free(queued);
    }
}

// Until a refused grab is due again; otherwise for ever (no wake-ups while idle).
int X11EventTap::Impl::pollTimeout() const {
    if (!grabRetryAt) return -1;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(*grabRetryAt - std::chrono::steady_clock::now());
    return static_cast<int>(std::max<std::int64_t>(left.count(), 0));
}

void X11EventTap::Impl::applyDirty() {
    if (pointerMapDirty) rebuildPointerMap();
    if (keymapDirty) rebuildKeymap();  // sets grabsDirty
    if (clientsDirty) refreshClients();
    if (framesDirty) {
        for (auto& [client, frame] : clientFrames) frame = frameOf(client);
        framesDirty = false;
    }
    if (grabsDirty) regrabAll();
}

// `mayDrain`: called from the loop, not from inside an event's handling.
void X11EventTap::Impl::applyDesired(bool mayDrain) {
    Desired next;
    std::uint64_t generation = 0;
    {
        std::lock_guard lock(stateMutex);
        if (applied == requested) return;
        next = desired;
        generation = requested;
    }
    const bool pidChanged = next.pid != pid;
    const bool regrab = next.enabled != enabled || next.keys != swallowKeys;
    if (pidChanged) {
        dropClients();
        pid = next.pid;
        buttonOwned.fill(false);
        leftHeld = false;
        motionPending = false;
    }
    callback = std::move(next.callback);
    enabled = next.enabled;
    swallowKeys = std::move(next.keys);
    if (pidChanged && pid != 0) {
        refreshClients();
    } else if (regrab) {
        regrabAll();
    }
    selectRaw();
    xcb_flush(conn);
    if (next.syncs != syncs && mayDrain && !xcb_connection_has_error(conn)) {
        // A round trip puts every event the server sent before it in the
        // queue; handle them all before answering.
        std::free(xcb_get_input_focus_reply(conn, xcb_get_input_focus(conn), nullptr));
        drainEvents();
    }
    syncs = next.syncs;
    {
        std::lock_guard lock(stateMutex);
        applied = generation;
    }
    appliedChanged.notify_all();
}

void X11EventTap::Impl::handleEvent(xcb_generic_event_t* event) {
    const std::uint8_t type = event->response_type & 0x7f;
    if (type == 0) {
        auto* error = reinterpret_cast<xcb_generic_error_t*>(event);
        log::inDomain(error->error_code == kBadWindow ? log::Debug : log::Warn, kLog,
                      "X error %u (request %u.%u, sequence %u)", error->error_code, error->major_code,
                      error->minor_code, error->sequence);
        return;
    }
    switch (type) {
        case XCB_KEY_PRESS: onKeyPress(reinterpret_cast<xcb_key_press_event_t*>(event)); return;
        case XCB_KEY_RELEASE: onKeyRelease(reinterpret_cast<xcb_key_release_event_t*>(event)); return;
        case XCB_PROPERTY_NOTIFY: {
            auto* e = reinterpret_cast<xcb_property_notify_event_t*>(event);
            if (e->window == root && e->atom == atomClientList) clientsDirty = true;
            return;
        }
        case XCB_REPARENT_NOTIFY: {
            auto* e = reinterpret_cast<xcb_reparent_notify_event_t*>(event);
            if (clientFrames.count(e->window)) framesDirty = true;
            return;
        }
        case XCB_DESTROY_NOTIFY: {
            auto* e = reinterpret_cast<xcb_destroy_notify_event_t*>(event);
            heldGrabs.erase(e->window);
            if (clientFrames.erase(e->window)) publishTappedWindows();
            return;
        }
        case XCB_MAPPING_NOTIFY: {
            auto* e = reinterpret_cast<xcb_mapping_notify_event_t*>(event);
            if (e->request == XCB_MAPPING_POINTER) {
                pointerMapDirty = true;
            } else {
                keymapDirty = true;
            }
            return;
        }
        case XCB_GE_GENERIC: {
            auto* e = reinterpret_cast<xcb_ge_generic_event_t*>(event);
            if (e->extension == xiOpcode) onRawEvent(e);
            return;
        }
        default: break;
    }
    if (type == xkbEventBase) onXkbEvent(event);
}

void X11EventTap::Impl::onXkbEvent(xcb_generic_event_t* event) {
    // Every XKB event shares the base code; the kind is in the second byte.
    const std::uint8_t kind = reinterpret_cast<const std::uint8_t*>(event)[1];
    if (kind == XCB_XKB_NEW_KEYBOARD_NOTIFY || kind == XCB_XKB_MAP_NOTIFY) {
        keymapDirty = true;
    } else if (kind == XCB_XKB_STATE_NOTIFY) {
        auto* e = reinterpret_cast<xcb_xkb_state_notify_event_t*>(event);
        modifiers = e->mods;
        if (e->group != group) {
            group = e->group;
            sharedGroup = group;
            grabsDirty = true;  // the keys that type a code depend on the group
        }
    }
}

}  // namespace jorvane::x11
