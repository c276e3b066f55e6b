#pragma once

// In-memory settings for tests (makeMemoryDefaults, or ScopedStandardDefaults for code that reads
// standardUserDefaults()). A MemoryStore plays the file: the test reads what was saved, edits it as another
// process would, or makes saves fail.

#include <memory>
#include <mutex>
#include <string>
#include <type_traits>
#include <vector>

#include "settings/DefaultsStorage.h"
#include "settings/UserDefaults.h"

namespace jorvane::test {

class MemoryStore {
public:
    MemoryStore() = default;
    explicit MemoryStore(settings::Dictionary initial) : values_(std::move(initial)) {}

    // What the last save left (or the initial values).
    settings::Dictionary values() const {
        return locked([&] { return values_; });
    }
    int saveCount() const {
        return locked([&] { return saves_; });
    }
    // Replaces the values as another process would; the domain sees it at its next check.
    void edit(settings::Dictionary values) {
        locked([&] { values_ = std::move(values), ++version_; });
    }
    // Saves fail with this reason until called again with an empty one.
    void failSaves(std::string reason) {
        locked([&] { failure_ = std::move(reason); });
    }
    // A warning the next load reports (as a damaged file would).
    void warnAtNextLoad(std::string warning) {
        locked([&] { loadWarnings_.push_back(std::move(warning)), ++version_; });
    }

private:
    friend class MemoryDefaultsStorage;
    template <class F>
    std::invoke_result_t<F> locked(F f) const {
        std::lock_guard lock(mutex_);
        return f();
    }
    mutable std::mutex mutex_;
    settings::Dictionary values_;
    int saves_ = 0;
    std::uint64_t version_ = 0;  // bumped by every edit and save
    std::string failure_;
    std::vector<std::string> loadWarnings_;
};

class MemoryDefaultsStorage final : public settings::DefaultsStorage {
public:
    explicit MemoryDefaultsStorage(std::shared_ptr<MemoryStore> store) : store_(std::move(store)) {}
    Loaded load() override {
        std::lock_guard lock(store_->mutex_);
        seen_ = store_->version_;
        return {store_->values_, std::exchange(store_->loadWarnings_, {})};
    }
    Saved save(const settings::Dictionary& values) override {
        std::lock_guard lock(store_->mutex_);
        if (!store_->failure_.empty()) return {false, store_->failure_};
        store_->values_ = values;
        ++store_->saves_;
        seen_ = ++store_->version_;
        return {};
    }
    bool changedSinceLastSync() override {
        std::lock_guard lock(store_->mutex_);
        return seen_ != store_->version_;
    }
    std::string description() const override { return "memory"; }

private:
    std::shared_ptr<MemoryStore> store_;
    std::uint64_t seen_ = ~std::uint64_t{0};
};

// Settings over `store` (a fresh one when null) with the shipped values registered (a test of the
// catalogue keeps them equal to DefaultPreferences.json). Warnings go to `warn`, by default to stderr.
inline std::unique_ptr<settings::UserDefaults> makeMemoryDefaults(std::shared_ptr<MemoryStore> store = nullptr,
                                                                  settings::Warn warn = {}) {
    auto defaults = std::make_unique<settings::UserDefaults>(
        std::make_unique<MemoryDefaultsStorage>(store ? std::move(store) : std::make_shared<MemoryStore>()),
        std::move(warn));
    defaults->registerDefaults(settings::shippedDefaults());
    return defaults;
}

// Installs in-memory settings as settings::standardUserDefaults() for the object's lifetime.
class ScopedStandardDefaults {
public:
    ScopedStandardDefaults() { settings::setStandardUserDefaults(defaults_.get()); }
    ~ScopedStandardDefaults() { settings::setStandardUserDefaults(nullptr); }
    ScopedStandardDefaults(const ScopedStandardDefaults&) = delete;
    ScopedStandardDefaults& operator=(const ScopedStandardDefaults&) = delete;
    settings::UserDefaults& defaults() { return *defaults_; }
    MemoryStore& store() { return *store_; }

private:
    std::shared_ptr<MemoryStore> store_ = std::make_shared<MemoryStore>();
    std::unique_ptr<settings::UserDefaults> defaults_ = makeMemoryDefaults(store_, [](const std::string&) {});
};

}  // namespace jorvane::test
