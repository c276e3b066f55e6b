#include "fakes/FakeWindowObserver.h"

namespace jorvane::test {

FakeWindowObserver::FakeWindowObserver(std::int32_t pid, Callback callback, std::shared_ptr<EventLog> log)
    : pid_(pid), callback_(std::move(callback)), log_(std::move(log)) {}

bool FakeWindowObserver::addNotification(const ElementRef& element, WindowNotification notification) {
    if (!element) return false;
    log_->add("observer.add " + std::string(nameOf(notification)));
    std::lock_guard lock(mutex_);
    added_.emplace_back(element, notification);
    return true;
}

bool FakeWindowObserver::removeNotification(const ElementRef& element, WindowNotification notification) {
    std::lock_guard lock(mutex_);
    return std::erase_if(added_, [&](const auto& entry) {
               return entry.second == notification && sameElement(entry.first, element);
           }) > 0;
}

bool FakeWindowObserver::notify(const ElementRef& element, WindowNotification notification) {
    const ElementRef parent = copyAttribute<ElementRef>(element, Attribute::Parent).value_or(nullptr);
    bool subscribed = false;
    {
        std::lock_guard lock(mutex_);
        for (const auto& [watched, name] : added_)
            if (name == notification && (sameElement(watched, element) || (parent && sameElement(watched, parent))))
                subscribed = true;
    }
    if (subscribed) post(element, notification);
    return subscribed;
}

void FakeWindowObserver::post(const ElementRef& element, WindowNotification notification) {
    if (callback_) callback_(element, notification);
}

std::vector<WindowNotification> FakeWindowObserver::notificationsOf(const ElementRef& element) const {
    std::lock_guard lock(mutex_);
    std::vector<WindowNotification> names;
    for (const auto& [watched, name] : added_)
        if (sameElement(watched, element)) names.push_back(name);
    return names;
}

// The observers alive, so that the test can reach the one the code made.
struct ObservableAccessibility::Registry {
    std::mutex mutex;
    std::vector<FakeWindowObserver*> alive;
    std::size_t created = 0;
};

namespace {

// Leaves the registry when the code under test destroys it.
class RegisteredObserver final : public WindowObserver {
public:
    RegisteredObserver(std::unique_ptr<FakeWindowObserver> observer,
                       std::shared_ptr<ObservableAccessibility::Registry> registry)
        : observer_(std::move(observer)), registry_(std::move(registry)) {}
    ~RegisteredObserver() override {
        std::lock_guard lock(registry_->mutex);
        std::erase(registry_->alive, observer_.get());
    }
    bool addNotification(const ElementRef& element, WindowNotification notification) override {
        return observer_->addNotification(element, notification);
    }
    bool removeNotification(const ElementRef& element, WindowNotification notification) override {
        return observer_->removeNotification(element, notification);
    }

private:
    std::unique_ptr<FakeWindowObserver> observer_;
    std::shared_ptr<ObservableAccessibility::Registry> registry_;
};

}  // namespace

ObservableAccessibility::ObservableAccessibility(std::shared_ptr<AccessibilityAPI> inner, std::shared_ptr<EventLog> log)
    : inner_(std::move(inner)), log_(std::move(log)), registry_(std::make_shared<Registry>()) {}

ObservableAccessibility::~ObservableAccessibility() = default;

std::unique_ptr<WindowObserver> ObservableAccessibility::createObserver(std::int32_t pid,
                                                                        WindowObserver::Callback callback) {
    log_->add("observer.create " + std::to_string(pid));
    auto observer = std::make_unique<FakeWindowObserver>(pid, std::move(callback), log_);
    std::lock_guard lock(registry_->mutex);
    registry_->alive.push_back(observer.get());
    ++registry_->created;
    return std::make_unique<RegisteredObserver>(std::move(observer), registry_);
}

FakeWindowObserver* ObservableAccessibility::observer() const {
    std::lock_guard lock(registry_->mutex);
    return registry_->alive.empty() ? nullptr : registry_->alive.back();
}

std::size_t ObservableAccessibility::createdCount() const {
    std::lock_guard lock(registry_->mutex);
    return registry_->created;
}

}  // namespace jorvane::test
