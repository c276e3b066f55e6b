#pragma once

// An in-memory defaults domain for tests of any subsystem (makeMemoryDefaults,
// or ScopedStandardDefaults for code that reads standardUserDefaults()).
// A MemoryStore plays the file: the test reads what was saved, edits it as
// another process would, or makes saves fail.

#include "settings/DefaultsStorage.h"
#include "settings/UserDefaults.h"

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace jorvane::test {

class MemoryStore {
public:
    MemoryStore() = default;
    explicit MemoryStore(settings::Dictionary initial) : values_(std::move(initial)) {}

    // What the last save left (or the initial values).
    settings::Dictionary values() const;
    int saveCount() const;
    // Replaces the stored values as another process would; the domain sees
    // the change at its next check.
    void edit(settings::Dictionary values);
    // Saves fail with this reason until called again with an empty one.
    void failSaves(std::string reason);
    // Warnings the next load reports (as a damaged file would).
    void warnAtNextLoad(std::string warning);

private:
    friend class MemoryDefaultsStorage;
    mutable std::mutex mutex_;
    settings::Dictionary values_;
    int saves_ = 0;
    std::uint64_t version_ = 0;  // bumped by every edit and save
    std::string failure_;
    std::vector<std::string> loadWarnings_;
};

class MemoryDefaultsStorage final : public settings::DefaultsStorage {
public:
    explicit MemoryDefaultsStorage(std::shared_ptr<MemoryStore> store);
    Loaded load() override;
    Saved save(const settings::Dictionary& values) override;
    bool changedSinceLastSync() override;
    std::string description() const override { return "memory"; }

private:
    std::shared_ptr<MemoryStore> store_;
    std::uint64_t seen_ = ~std::uint64_t{0};
};

// A domain over `store` (a fresh one when null) with the catalogue's shipped
// values registered (the same values as DefaultPreferences.json, which a test
// of the catalogue keeps equal). Warnings go to `warn`, by default to
// standard error.
std::unique_ptr<settings::UserDefaults> makeMemoryDefaults(std::shared_ptr<MemoryStore> store = nullptr,
                                                           settings::Warn warn = {});

// Installs an in-memory domain as settings::standardUserDefaults() for the
// lifetime of the object.
class ScopedStandardDefaults {
public:
    ScopedStandardDefaults();
    ~ScopedStandardDefaults();
    ScopedStandardDefaults(const ScopedStandardDefaults&) = delete;
    ScopedStandardDefaults& operator=(const ScopedStandardDefaults&) = delete;

    settings::UserDefaults& defaults() { return *defaults_; }
    MemoryStore& store() { return *store_; }

private:
    std::shared_ptr<MemoryStore> store_;
    std::unique_ptr<settings::UserDefaults> defaults_;
};

}  // namespace jorvane::test
