#include "platform/x11/X11WindowObserver.h"

#include <algorithm>
#include <map>
#include <mutex>
#include <set>
#include <utility>

#include "platform/x11/X11WindowWatcher.h"
#include "util/Dispatch.h"

namespace jorvane::x11 {

namespace {

using Kind = X11ElementIdentity::Kind;

// What a window (or, for all its windows, an application) can be observed for.
// Everything else only an application can be observed for.
bool isPerWindow(WindowNotification notification) {
    switch (notification) {
        case WindowNotification::FocusedWindowChanged:
        case WindowNotification::ApplicationActivated:
        case WindowNotification::ApplicationDeactivated: return false;
        default: return true;
    }
}

}  // namespace

// The subscriptions and the callback, shared with the deliveries waiting on
// the main queue, which may outlive the observer.
struct X11WindowObserver::Shared {
    std::mutex mutex;
    Callback callback;  // emptied when the observer goes
    ElementFactory factory;
    std::map<std::uint32_t, std::set<WindowNotification>> windows;
    std::map<std::int32_t, std::set<WindowNotification>> applications;
    // Merged notifications waiting on the main queue.
    std::set<std::pair<std::uint32_t, WindowNotification>> pending;

    bool wants(std::uint32_t window, std::int32_t pid, WindowNotification name) {
        const auto w = windows.find(window);
        if (w != windows.end() && w->second.count(name)) return true;
        const auto a = applications.find(pid);
        return pid > 0 && a != applications.end() && a->second.count(name);
    }

    // With the mutex held.
    void deliver(const std::shared_ptr<Shared>& self, X11ElementIdentity element, WindowNotification name, bool merge) {
        if (merge && !pending.emplace(element.window, name).second) return;
        dispatch::MainQueue::shared().async([self, element, name, merge] {
            Callback callback;
            ElementFactory factory;
            {
                std::lock_guard lock(self->mutex);
                if (merge) self->pending.erase({element.window, name});
                callback = self->callback;
                factory = self->factory;
            }
            if (callback) callback(factory(element), name);
        });
    }

    void handle(const std::shared_ptr<Shared>& self, const WindowEvent& e) {
        std::lock_guard lock(mutex);
        const X11ElementIdentity window{Kind::Window, e.window, 0};
        auto windowEvent = [&](WindowNotification name, bool merge) {
            if (wants(e.window, e.pid, name)) deliver(self, window, name, merge);
        };
        switch (e.kind) {
            case WindowEvent::Kind::Destroyed:
                windowEvent(WindowNotification::ElementDestroyed, false);
                windows.erase(e.window);
                return;
            case WindowEvent::Kind::Minimized: windowEvent(WindowNotification::Minimized, false); return;
            case WindowEvent::Kind::Deminimized: windowEvent(WindowNotification::Restored, false); return;
            case WindowEvent::Kind::Moved: windowEvent(WindowNotification::Moved, true); return;
            case WindowEvent::Kind::Resized: windowEvent(WindowNotification::Resized, true); return;
            case WindowEvent::Kind::Restacked: windowEvent(WindowNotification::Restacked, true); return;
            case WindowEvent::Kind::TitleChanged: windowEvent(WindowNotification::TitleChanged, true); return;
            case WindowEvent::Kind::ActiveChanged: {
                auto applicationWants = [&](std::int32_t pid, WindowNotification name) {
                    const auto a = applications.find(pid);
                    return pid > 0 && a != applications.end() && a->second.count(name);
                };
                if (applicationWants(e.pid, WindowNotification::FocusedWindowChanged))
                    deliver(self, window, WindowNotification::FocusedWindowChanged, false);
                if (e.pid == e.previousPid) return;
                if (applicationWants(e.previousPid, WindowNotification::ApplicationDeactivated))
                    deliver(self, {Kind::Application, 0, e.previousPid}, WindowNotification::ApplicationDeactivated,
                            false);
                if (applicationWants(e.pid, WindowNotification::ApplicationActivated))
                    deliver(self, {Kind::Application, 0, e.pid}, WindowNotification::ApplicationActivated, false);
                return;
            }
            case WindowEvent::Kind::ClientAdded:
            case WindowEvent::Kind::ProcessLeft: return;
        }
    }
};

X11WindowObserver::X11WindowObserver(const std::string& displayName, Callback callback, ElementFactory factory)
    : shared_(std::make_shared<Shared>()) {
    shared_->callback = std::move(callback);
    shared_->factory = std::move(factory);
    std::weak_ptr<Shared> weak = shared_;
    watcher_ = X11WindowWatcher::start(displayName, [weak](const WindowEvent& e) {
        if (const auto self = weak.lock()) self->handle(self, e);
    });
}

X11WindowObserver::~X11WindowObserver() {
    watcher_.reset();  // no event after this
    std::lock_guard lock(shared_->mutex);
    shared_->callback = nullptr;
}

bool X11WindowObserver::isWatching() const { return watcher_ && watcher_->isRunning(); }

bool X11WindowObserver::addNotification(const ElementRef& element, WindowNotification notification) {
    const auto identity = X11Accessibility::identityOf(element);
    if (!identity || !watcher_) return false;
    const bool perWindow = isPerWindow(notification);
    switch (identity->kind) {
        case Kind::Window:
            if (!perWindow || !watcher_->watchWindow(identity->window)) return false;
            {
                std::lock_guard lock(shared_->mutex);
                shared_->windows[identity->window].emplace(notification);
            }
            return true;
        case Kind::Application:
            if (perWindow) watcher_->watchProcess(identity->pid);
            {
                std::lock_guard lock(shared_->mutex);
                shared_->applications[identity->pid].emplace(notification);
            }
            return true;
        case Kind::SystemWide:
        case Kind::TitleText: return false;
    }
    return false;
}

bool X11WindowObserver::removeNotification(const ElementRef& element, WindowNotification notification) {
    const auto identity = X11Accessibility::identityOf(element);
    if (!identity || !watcher_) return false;
    bool lastOfWindow = false, lastPerWindowOfApplication = false;
    {
        std::lock_guard lock(shared_->mutex);
        if (identity->kind == Kind::Window) {
            const auto it = shared_->windows.find(identity->window);
            if (it == shared_->windows.end() || !it->second.erase(notification)) return false;
            if (it->second.empty()) {
                shared_->windows.erase(it);
                lastOfWindow = true;
            }
        } else if (identity->kind == Kind::Application) {
            const auto it = shared_->applications.find(identity->pid);
            if (it == shared_->applications.end() || !it->second.erase(notification)) return false;
            lastPerWindowOfApplication = std::none_of(it->second.begin(), it->second.end(), isPerWindow);
            if (it->second.empty()) shared_->applications.erase(it);
        } else {
            return false;
        }
    }
    if (lastOfWindow) watcher_->unwatchWindow(identity->window);
    if (lastPerWindowOfApplication) watcher_->unwatchProcess(identity->pid);
    return true;
}

}  // namespace jorvane::x11
