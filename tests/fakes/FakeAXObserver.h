#pragma once

// Accessibility observers for tests. ObservableAccessibility wraps any
// accessibility interface (usually a FakeAccessibility) and hands out
// FakeAXObservers, which record what they were asked to watch and let the
// test tell about notifications:
//
//     auto ax = std::make_shared<test::FakeAccessibility>();
//     test::ObservableAccessibility accessibility(ax, log);
//     ... the code under test calls accessibility.createObserver(pid, callback) ...
//     accessibility.observer()->notify(ax->element(window), "AXUIElementDestroyed");
//
// notify() reaches the callback only when the notification was added for an
// element equal to the one given or to its "AXParent" (its application), as
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

#include "bridges/AXObserver.h"
#include "bridges/Accessibility.h"
#include "fakes/FakePathWindowViews.h"

namespace jorvane::test {

class FakeAXObserver final : public AXObserver {
public:
    FakeAXObserver(std::int32_t pid, Callback callback, std::shared_ptr<EventLog> log);

    bool addNotification(const AXUIElementRef& element, std::string_view notification) override;
    bool removeNotification(const AXUIElementRef& element, std::string_view notification) override;

    // ---- test side
    std::int32_t pid() const { return pid_; }
    bool notify(const AXUIElementRef& element, std::string_view notification);
    void post(const AXUIElementRef& element, std::string_view notification);
    // The notifications added for elements equal to this one, in order.
    std::vector<std::string> notificationsOf(const AXUIElementRef& element) const;

private:
    std::int32_t pid_;
    Callback callback_;
    std::shared_ptr<EventLog> log_;
    mutable std::mutex mutex_;
    std::vector<std::pair<AXUIElementRef, std::string>> added_;
};

class ObservableAccessibility final : public AccessibilityAPI {
public:
    ObservableAccessibility(std::shared_ptr<AccessibilityAPI> inner, std::shared_ptr<EventLog> log);
    ~ObservableAccessibility() override;

    AXUIElementRef systemWideElement() override { return inner_->systemWideElement(); }
    AXUIElementRef applicationElement(std::int32_t pid) override { return inner_->applicationElement(pid); }
    AXUIElementRef elementAtPosition(float x, float y) override { return inner_->elementAtPosition(x, y); }
    std::vector<AXWindowInfo> windowList() override { return inner_->windowList(); }
    Point mouseLocation() override { return inner_->mouseLocation(); }
    std::unique_ptr<AXObserver> createObserver(std::int32_t pid, AXObserver::Callback callback) override;

    // ---- test side
    // The newest observer still alive, or null.
    FakeAXObserver* observer() const;
    std::size_t createdCount() const;

    struct Registry;

private:
    std::shared_ptr<AccessibilityAPI> inner_;
    std::shared_ptr<EventLog> log_;
    std::shared_ptr<Registry> registry_;
};

}  // namespace jorvane::test
