// The client windows of the tapped process, read from _NET_CLIENT_LIST and
// _NET_WM_PID, and the frames the window manager put them in.

#include "platform/x11/X11EventTapImpl.h"

namespace jorvane::x11 {

using namespace event_tap;

std::int32_t X11EventTap::Impl::pidOfReply(xcb_get_property_reply_t* reply) {
    if (!reply || reply->format != 32 || xcb_get_property_value_length(reply) < 4) return 0;
    return *static_cast<const std::int32_t*>(xcb_get_property_value(reply));
}

std::int32_t X11EventTap::Impl::windowPid(xcb_window_t window) {
    auto reply = own(
        xcb_get_property_reply(conn, xcb_get_property(conn, 0, window, atomWmPid, XCB_ATOM_CARDINAL, 0, 1), nullptr));
    return pidOfReply(reply.get());
}

xcb_window_t X11EventTap::Impl::frameOf(xcb_window_t client) {
    xcb_window_t window = client;
    for (int depth = 0; depth < 32; ++depth) {
        auto tree = own(xcb_query_tree_reply(conn, xcb_query_tree(conn, window), nullptr));
        if (!tree || tree->parent == tree->root || tree->parent == XCB_NONE) return window;
        window = tree->parent;
    }
    return window;
}

bool X11EventTap::Impl::belongsToProcess(xcb_window_t topLevel) {
    if (topLevel == XCB_NONE) return false;
    for (const auto& [client, frame] : clientFrames) {
        if (frame == topLevel) return true;
    }
    // The process's unmanaged windows: menus, tooltips, drag icons.
    auto attributes = own(xcb_get_window_attributes_reply(conn, xcb_get_window_attributes(conn, topLevel), nullptr));
    return attributes && attributes->override_redirect && windowPid(topLevel) == pid;
}

void X11EventTap::Impl::refreshClients() {
    clientsDirty = false;
    std::set<xcb_window_t> current;
    auto list = own(xcb_get_property_reply(
        conn, xcb_get_property(conn, 0, root, atomClientList, XCB_ATOM_WINDOW, 0, 8192), nullptr));
    std::set<xcb_window_t> listed;
    if (list && list->format == 32) {
        const auto* windows = static_cast<const xcb_window_t*>(xcb_get_property_value(list.get()));
        const int count = xcb_get_property_value_length(list.get()) / 4;
        listed.insert(windows, windows + count);
    }
    // Every owner is read anew, all requests before the first answer: the
    // server reuses the ids of destroyed windows, so a remembered owner
    // can belong to another window by now.
    std::vector<std::pair<xcb_window_t, xcb_get_property_cookie_t>> cookies;
    for (xcb_window_t window : listed) {
        cookies.emplace_back(window, xcb_get_property(conn, 0, window, atomWmPid, XCB_ATOM_CARDINAL, 0, 1));
    }
    for (const auto& [window, cookie] : cookies) {
        if (pidOfReply(own(xcb_get_property_reply(conn, cookie, nullptr)).get()) == pid && pid != 0) {
            current.insert(window);
        }
    }
    for (auto it = clientFrames.begin(); it != clientFrames.end();) {
        if (current.count(it->first)) {
            ++it;
            continue;
        }
        forgetClient(it->first);
        it = clientFrames.erase(it);
    }
    for (xcb_window_t window : current) {
        if (clientFrames.count(window)) continue;
        const std::uint32_t mask = XCB_EVENT_MASK_STRUCTURE_NOTIFY;
        xcb_generic_error_t* error =
            xcb_request_check(conn, xcb_change_window_attributes_checked(conn, window, XCB_CW_EVENT_MASK, &mask));
        if (error) {
            logXError("ChangeWindowAttributes(client)", error);
            continue;  // gone already
        }
        clientFrames[window] = frameOf(window);
        if (enabled) grabKeys(window);
    }
    publishTappedWindows();
}

void X11EventTap::Impl::forgetClient(xcb_window_t window) {
    ungrabKeys(window);
    const std::uint32_t none = 0;
    xcb_change_window_attributes(conn, window, XCB_CW_EVENT_MASK, &none);
}

void X11EventTap::Impl::dropClients() {
    for (const auto& [client, frame] : clientFrames) forgetClient(client);
    clientFrames.clear();
    publishTappedWindows();
}

void X11EventTap::Impl::publishTappedWindows() {
    std::vector<std::uint32_t> windows;
    for (const auto& [client, frame] : clientFrames) windows.push_back(client);
    std::lock_guard lock(stateMutex);
    tappedWindowsCopy = std::move(windows);
}

}  // namespace jorvane::x11
