// The passive key grabs on the client windows, for every lock-key variant;
// a grab another program held at the time is tried again later.

#include "platform/x11/X11EventTapImpl.h"

#include <algorithm>
#include <utility>

namespace jorvane::x11 {

using namespace event_tap;

void X11EventTap::Impl::retryRefusedGrabs() {
    if (!grabRetryAt || std::chrono::steady_clock::now() < *grabRetryAt) return;
    grabRetryAt.reset();
    // A grab refused again waits twice as long as the last time (0.5, 1, 2 s
    // ... up to the longest delay); once all are held the next refusal starts
    // from the first delay again.
    grabRetryDelay = std::min(grabRetryDelay * 2, kGrabRetryLongestDelay);
    const std::set<xcb_window_t> windows = std::exchange(refusedGrabs, {});
    for (xcb_window_t window : windows) {
        if (!clientFrames.count(window) || !enabled || pid == 0) continue;
        grabKeys(window);
    }
    if (refusedGrabs.empty()) grabRetryDelay = kGrabRetryFirstDelay;
}

void X11EventTap::Impl::regrabAll() {
    grabsDirty = false;
    for (const auto& [client, frame] : clientFrames) {
        if (enabled && pid != 0) {
            grabKeys(client);
        } else {
            ungrabKeys(client);
        }
    }
}

void X11EventTap::Impl::grabKeys(xcb_window_t window) {
    using Grab = std::pair<xcb_keycode_t, std::uint16_t>;
    std::set<Grab> wanted;
    std::map<Grab, const KeyCombo*> comboOf;  // for the log
    if (keys) {
        const std::vector<std::uint16_t> variants = keys->lockVariants();
        for (const KeyCombo& combo : swallowKeys) {
            const std::optional<std::uint16_t> modifiers = keys->stateForFlags(combo.flags);
            const std::vector<xkb_keycode_t>& keycodes = keys->keycodes(combo.keyCode, group);
            if (!modifiers || keycodes.empty()) {
                log::inDomain(log::Warn, kLog, "key %u with flags 0x%llx has no key on this keyboard; not tapped",
                              combo.keyCode, static_cast<unsigned long long>(combo.flags));
                continue;
            }
            for (xkb_keycode_t keycode : keycodes) {
                for (std::uint16_t variant : variants) {
                    const Grab grab{static_cast<xcb_keycode_t>(keycode),
                                    static_cast<std::uint16_t>(*modifiers | variant)};
                    wanted.insert(grab);
                    comboOf.emplace(grab, &combo);
                }
            }
        }
    }
    std::set<Grab>& held = heldGrabs[window];
    for (auto it = held.begin(); it != held.end();) {
        if (wanted.count(*it)) {
            ++it;
            continue;
        }
        xcb_ungrab_key(conn, it->first, window, it->second);
        it = held.erase(it);
    }
    std::vector<std::pair<Grab, xcb_void_cookie_t>> cookies;
    for (const Grab& grab : wanted) {
        if (held.count(grab)) continue;
        cookies.emplace_back(grab, xcb_grab_key_checked(conn, 1, window, grab.second, grab.first, XCB_GRAB_MODE_ASYNC,
                                                        XCB_GRAB_MODE_SYNC));
    }
    for (const auto& [grab, cookie] : cookies) {
        xcb_generic_error_t* error = xcb_request_check(conn, cookie);
        if (!error) {
            held.insert(grab);
            continue;
        }
        const KeyCombo& combo = *comboOf.at(grab);
        log::inDomain(error->error_code == kBadWindow ? log::Debug : log::Warn, kLog,
                      "grab of key %u with flags 0x%llx on window 0x%x failed: X error %u%s", combo.keyCode,
                      static_cast<unsigned long long>(combo.flags), window, error->error_code,
                      error->error_code == XCB_ACCESS ? " (another program holds it; tried again later)" : "");
        if (error->error_code == XCB_ACCESS) {
            refusedGrabs.insert(window);
            if (!grabRetryAt) grabRetryAt = std::chrono::steady_clock::now() + grabRetryDelay;
        }
        std::free(error);
    }
}

void X11EventTap::Impl::ungrabKeys(xcb_window_t window) {
    heldGrabs.erase(window);
    logXError("UngrabKey",
              xcb_request_check(conn, xcb_ungrab_key_checked(conn, XCB_GRAB_ANY, window, XCB_MOD_MASK_ANY)));
}

}  // namespace jorvane::x11
