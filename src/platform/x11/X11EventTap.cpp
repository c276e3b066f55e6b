#include "platform/x11/X11EventTap.h"

#include <algorithm>
#include <utility>

#include "platform/x11/X11EventTapImpl.h"

namespace jorvane::x11 {

using namespace event_tap;

std::string X11InputSupport::missing() const {
    if (!displayReachable) return "an X display";
    std::string result;
    auto add = [&](const char* what) {
        if (!result.empty()) result += ", ";
        result += what;
    };
    if (!xinput22) add("XInput 2.2");
    if (!xtest) add("XTEST");
    return result;
}

X11InputSupport checkX11InputSupport(const std::string& displayName) {
    X11InputSupport support;
    xcb_window_t root = XCB_NONE;
    xcb_connection_t* c = connectTo(displayName, &root);
    if (!c) return support;
    support.displayReachable = true;
    support.xinput22 = hasXInput22(c);
    support.xtest = hasXTest(c);
    xcb_disconnect(c);
    return support;
}

X11EventTap::X11EventTap(X11EventTapOptions options) : impl_(std::make_unique<Impl>(std::move(options))) {
    impl_->connected = impl_->open();
    if (!impl_->connected) {
        impl_->close();
        return;
    }
    impl_->watchdog = std::thread([impl = impl_.get()] { impl->watch(); });
    impl_->thread = std::thread([impl = impl_.get()] { impl->run(); });
}

X11EventTap::~X11EventTap() {
    if (impl_->connected) {
        {
            std::lock_guard lock(impl_->stateMutex);
            impl_->stopping = true;
        }
        impl_->appliedChanged.notify_all();
        impl_->wake();
        if (impl_->thread.joinable()) impl_->thread.join();
        {
            std::lock_guard lock(impl_->watchMutex);
            impl_->watchStopping = true;
        }
        impl_->watchChanged.notify_all();
        if (impl_->watchdog.joinable()) impl_->watchdog.join();
    }
    impl_->close();
}

bool X11EventTap::isConnected() const { return impl_->connected; }

bool X11EventTap::install(std::int32_t pid, Callback callback) {
    if (!impl_->connected || pid <= 0 || !callback) return false;
    impl_->request([&](Impl::Desired& desired) {
        desired.pid = pid;
        desired.callback = std::move(callback);
        desired.enabled = true;
    });
    return true;
}

void X11EventTap::uninstall() {
    impl_->request([](Impl::Desired& desired) {
        desired.pid = 0;
        desired.callback = nullptr;
    });
}

bool X11EventTap::isInstalled() const {
    std::lock_guard lock(impl_->stateMutex);
    return impl_->desired.pid != 0 && impl_->desired.callback;
}

void X11EventTap::setEnabled(bool enabled) {
    impl_->request([enabled](Impl::Desired& desired) { desired.enabled = enabled; });
}

bool X11EventTap::isEnabled() const {
    std::lock_guard lock(impl_->stateMutex);
    return impl_->desired.enabled;
}

void X11EventTap::setSwallowableKeys(std::vector<KeyCombo> keys) {
    for (KeyCombo& combo : keys) combo.flags &= kShortcutModifierMask;
    std::sort(keys.begin(), keys.end(), [](const KeyCombo& a, const KeyCombo& b) {
        return a.keyCode != b.keyCode ? a.keyCode < b.keyCode : a.flags < b.flags;
    });
    keys.erase(std::unique(keys.begin(), keys.end()), keys.end());
    impl_->request([&](Impl::Desired& desired) { desired.keys = std::move(keys); });
}

bool X11EventTap::post(const TapEvent& event) { return impl_->connected && impl_->post(event); }

Point X11EventTap::mouseLocation() { return impl_->connected ? impl_->mouseLocation() : Point{}; }

void X11EventTap::sync() {
    impl_->request([](Impl::Desired& desired) { ++desired.syncs; });
}

std::vector<std::uint32_t> X11EventTap::tappedWindows() const {
    std::lock_guard lock(impl_->stateMutex);
    return impl_->tappedWindowsCopy;
}

}  // namespace jorvane::x11
