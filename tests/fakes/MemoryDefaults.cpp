#include "fakes/MemoryDefaults.h"

namespace jorvane::test {

using settings::Dictionary;

Dictionary MemoryStore::values() const {
    std::lock_guard lock(mutex_);
    return values_;
}

int MemoryStore::saveCount() const {
    std::lock_guard lock(mutex_);
    return saves_;
}

void MemoryStore::edit(Dictionary values) {
    std::lock_guard lock(mutex_);
    values_ = std::move(values);
    ++version_;
}

void MemoryStore::failSaves(std::string reason) {
    std::lock_guard lock(mutex_);
    failure_ = std::move(reason);
}

void MemoryStore::warnAtNextLoad(std::string warning) {
    std::lock_guard lock(mutex_);
    loadWarnings_.push_back(std::move(warning));
    ++version_;
}

MemoryDefaultsStorage::MemoryDefaultsStorage(std::shared_ptr<MemoryStore> store) : store_(std::move(store)) {}

settings::DefaultsStorage::Loaded MemoryDefaultsStorage::load() {
    std::lock_guard lock(store_->mutex_);
    seen_ = store_->version_;
    Loaded loaded{store_->values_, std::move(store_->loadWarnings_)};
    store_->loadWarnings_.clear();
    return loaded;
}

settings::DefaultsStorage::Saved MemoryDefaultsStorage::save(const Dictionary& values) {
    std::lock_guard lock(store_->mutex_);
    if (!store_->failure_.empty()) return {false, store_->failure_};
    store_->values_ = values;
    ++store_->saves_;
    seen_ = ++store_->version_;
    return {};
}

bool MemoryDefaultsStorage::changedSinceLastSync() {
    std::lock_guard lock(store_->mutex_);
    return seen_ != store_->version_;
}

std::unique_ptr<settings::UserDefaults> makeMemoryDefaults(std::shared_ptr<MemoryStore> store, settings::Warn warn) {
    if (!store) store = std::make_shared<MemoryStore>();
    auto defaults = std::make_unique<settings::UserDefaults>(std::make_unique<MemoryDefaultsStorage>(std::move(store)),
                                                             std::move(warn));
    defaults->registerDefaults(settings::shippedDefaults());
    return defaults;
}

ScopedStandardDefaults::ScopedStandardDefaults()
    : store_(std::make_shared<MemoryStore>()), defaults_(makeMemoryDefaults(store_, [](const std::string&) {})) {
    settings::setStandardUserDefaults(defaults_.get());
}

ScopedStandardDefaults::~ScopedStandardDefaults() { settings::setStandardUserDefaults(nullptr); }

}  // namespace jorvane::test
