#pragma once

// Observers for tests. ObservableAccessibility wraps an accessibility interface (usually a
// FakeAccessibility) and hands out FakeWindowObservers, which record what they watch; the test posts
// notifications, which reach the callback on the calling thread (the real ones arrive on the main queue).
// FakeWorkspaceObserver plays the workspace's application notices. Log entries: "observer.create <pid>",
// "observer.add <notification>", "workspace.setCallback", "workspace.clearCallback".

#include <mutex>

#include "accessibility/Accessibility.h"
#include "accessibility/WindowObserver.h"
#include "accessibility/WorkspaceObserver.h"
#include "fakes/FakePathWindowViews.h"

namespace jorvane::test {

class FakeWindowObserver final : public WindowObserver {
public:
    FakeWindowObserver(Callback callback, std::shared_ptr<EventLog> log)
        : callback_(std::move(callback)), log_(std::move(log)) {}

    bool addNotification(const ElementRef& element, WindowNotification notification) override {
        if (!element) return false;
        log_->add("observer.add " + std::string(nameOf(notification)));
        std::lock_guard lock(mutex_);
        added_.emplace_back(element, notification);
        return true;
    }
    bool removeNotification(const ElementRef& element, WindowNotification notification) override {
        std::lock_guard lock(mutex_);
        return std::erase_if(added_, [&](const auto& entry) {
                   return entry.second == notification && sameElement(entry.first, element);
               }) > 0;
    }

    // ---- test side: the notification reaches the callback whether it was added or not
    void post(const ElementRef& element, WindowNotification notification) {
        if (callback_) callback_(element, notification);
    }
    // The notifications added for elements equal to this one, in order.
    std::vector<WindowNotification> notificationsOf(const ElementRef& element) const {
        std::lock_guard lock(mutex_);
        std::vector<WindowNotification> names;
        for (const auto& [watched, name] : added_)
            if (sameElement(watched, element)) names.push_back(name);
        return names;
    }

private:
    Callback callback_;
    std::shared_ptr<EventLog> log_;
    mutable std::mutex mutex_;
    std::vector<std::pair<ElementRef, WindowNotification>> added_;
};

class ObservableAccessibility final : public AccessibilityAPI {
public:
    ObservableAccessibility(std::shared_ptr<AccessibilityAPI> inner, std::shared_ptr<EventLog> log)
        : inner_(std::move(inner)), log_(std::move(log)) {}

    ElementRef systemWideElement() override { return inner_->systemWideElement(); }
    ElementRef applicationElement(std::int32_t pid) override { return inner_->applicationElement(pid); }
    ElementRef elementAtPosition(float x, float y) override { return inner_->elementAtPosition(x, y); }
    std::vector<WindowInfo> windowList() override { return inner_->windowList(); }
    Point mouseLocation() override { return inner_->mouseLocation(); }
    std::unique_ptr<WindowObserver> createObserver(std::int32_t pid, WindowObserver::Callback callback) override {
        log_->add("observer.create " + std::to_string(pid));
        auto observer = std::make_unique<Registered>(std::move(callback), log_, registry_);
        std::lock_guard lock(registry_->mutex);
        registry_->alive.push_back(&observer->observer);
        ++registry_->created;
        return observer;
    }

    // ---- test side
    // The newest observer still alive, or null.
    FakeWindowObserver* observer() const {
        std::lock_guard lock(registry_->mutex);
        return registry_->alive.empty() ? nullptr : registry_->alive.back();
    }
    std::size_t createdCount() const {
        std::lock_guard lock(registry_->mutex);
        return registry_->created;
    }

private:
    // The observers alive, so that the test can reach the one the code made.
    struct Registry {
        std::mutex mutex;
        std::vector<FakeWindowObserver*> alive;
        std::size_t created = 0;
    };
    // Leaves the registry when the code under test destroys it.
    struct Registered final : WindowObserver {
        Registered(Callback callback, std::shared_ptr<EventLog> log, std::shared_ptr<Registry> registry)
            : observer(std::move(callback), std::move(log)), registry(std::move(registry)) {}
        ~Registered() override {
            std::lock_guard lock(registry->mutex);
            std::erase(registry->alive, &observer);
        }
        bool addNotification(const ElementRef& element, WindowNotification notification) override {
            return observer.addNotification(element, notification);
        }
        bool removeNotification(const ElementRef& element, WindowNotification notification) override {
            return observer.removeNotification(element, notification);
        }
        FakeWindowObserver observer;
        std::shared_ptr<Registry> registry;
    };

    std::shared_ptr<AccessibilityAPI> inner_;
    std::shared_ptr<EventLog> log_;
    std::shared_ptr<Registry> registry_ = std::make_shared<Registry>();
};

class FakeWorkspaceObserver final : public WorkspaceObserver {
public:
    explicit FakeWorkspaceObserver(std::shared_ptr<EventLog> log = std::make_shared<EventLog>())
        : log_(std::move(log)) {}
    bool setCallback(Callback callback) override {
        log_->add(callback ? "workspace.setCallback" : "workspace.clearCallback");
        callback_ = std::move(callback);
        return true;
    }

    // ---- test side: the subscriber hears at once, on the calling thread
    void post(WorkspaceEvent event, std::int32_t pid, bool isFileManager, std::string name) {
        if (callback_) callback_({event, pid, std::move(name), isFileManager});
    }
    void launched(std::int32_t pid, bool isFileManager = true, std::string name = "Thunar") {
        post(WorkspaceEvent::Launched, pid, isFileManager, std::move(name));
    }
    void windowsGone(std::int32_t pid, bool isFileManager = true, std::string name = "Thunar") {
        post(WorkspaceEvent::Quit, pid, isFileManager, std::move(name));
    }
    void deactivated(std::int32_t pid, bool isFileManager = true, std::string name = "Thunar") {
        post(WorkspaceEvent::LeftFront, pid, isFileManager, std::move(name));
    }

private:
    std::shared_ptr<EventLog> log_;
    Callback callback_;
};

}  // namespace jorvane::test
