#pragma once

// Accessibility observers for tests. ObservableAccessibility wraps any
// accessibility interface (usually a FakeAccessibility) and hands out
// FakeWindowObservers, which record what they were asked to watch and let the
// test tell about notifications.
// notify() reaches the callback only when the notification was added for an
// element equal to the one given or to its parent (its application), as
// a real observer's would; post() reaches it regardless. The callback is
// called on the calling thread (the real one arrives on the main queue).
// Log entries: "observer.create <pid>", "observer.add <notification>".

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "accessibility/Accessibility.h"
#include "accessibility/WindowObserver.h"
#include "fakes/FakePathWindowViews.h"

namespace jorvane::test {

class FakeWindowObserver final : public WindowObserver {
public:
    FakeWindowObserver(std::int32_t pid, Callback callback, std::shared_ptr<EventLog> log);

    bool addNotification(const ElementRef& element, WindowNotification notification) override;
    bool removeNotification(const ElementRef& element, WindowNotification notification) override;

    // ---- test side
    std::int32_t pid() const { return pid_; }
    bool notify(const ElementRef& element, WindowNotification notification);
    void post(const ElementRef& element, WindowNotification notification);
    // The notifications added for elements equal to this one, in order.
    std::vector<WindowNotification> notificationsOf(const ElementRef& element) const;

private:
    std::int32_t pid_;
    Callback callback_;
    std::shared_ptr<EventLog> log_;
    mutable std::mutex mutex_;
    std::vector<std::pair<ElementRef, WindowNotification>> added_;
};

class ObservableAccessibility final : public AccessibilityAPI {
public:
    ObservableAccessibility(std::shared_ptr<AccessibilityAPI> inner, std::shared_ptr<EventLog> log);
    ~ObservableAccessibility() override;

    ElementRef systemWideElement() override { return inner_->systemWideElement(); }
    ElementRef applicationElement(std::int32_t pid) override { return inner_->applicationElement(pid); }
    ElementRef elementAtPosition(float x, float y) override { return inner_->elementAtPosition(x, y); }
    std::vector<WindowInfo> windowList() override { return inner_->windowList(); }
    Point mouseLocation() override { return inner_->mouseLocation(); }
    std::unique_ptr<WindowObserver> createObserver(std::int32_t pid, WindowObserver::Callback callback) override;

    // ---- test side
    // The newest observer still alive, or null.
    FakeWindowObserver* observer() const;
    std::size_t createdCount() const;

    struct Registry;

private:
    std::shared_ptr<AccessibilityAPI> inner_;
    std::shared_ptr<EventLog> log_;
    std::shared_ptr<Registry> registry_;
};

}  // namespace jorvane::test
