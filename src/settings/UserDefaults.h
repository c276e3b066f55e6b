#pragma once

// The defaults domain: the program's settings, read by every subsystem at the
// moment it needs them (nothing keeps a copy, so a change in the preferences
// takes effect at the next event that consults it).
//
// A read looks at three layers: a value stored by the program or the user
// (persisted), then a registered value (from DefaultPreferences.json, never
// persisted), then the type's empty value (false, 0, ""). A stored value of
// the wrong type for its key is ignored, with a warning when it is loaded.
//
// Every set is written to the storage at once, atomically; synchronize()
// writes what could not be written before and picks up changes someone else
// made to the store (a person editing settings.json). Reads look at the
// store's modification time at most once per kStaleAfter.
//
// Thread-safe: the key-event thread reads while the preferences window writes.
// Reads never wait for the disk: storage I/O runs under its own lock, and the
// values' lock is never held across it.

#include "settings/DefaultsCatalogue.h"
#include "settings/DefaultsStorage.h"
#include "util/Dispatch.h"

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>

namespace jorvane::settings {

using Warn = std::function<void(const std::string&)>;

class UserDefaults {
public:
    static constexpr dispatch::Duration kStaleAfter = std::chrono::seconds(1);

    // `storage` may be null: values then live in memory for the run only.
    // `warn` hears about damaged or unreadable stores, ignored values and
    // failed saves; by default it prints to standard error. It is called on
    // whichever thread read or wrote, with no lock of the domain held.
    explicit UserDefaults(std::unique_ptr<DefaultsStorage> storage, Warn warn = {});
    // Makes a last attempt to save changes that could not be saved before.
    ~UserDefaults();
    UserDefaults(const UserDefaults&) = delete;
    UserDefaults& operator=(const UserDefaults&) = delete;

    // Adds these values to the registration layer (later calls win per key).
    // Values of the wrong type for a known key are skipped with a warning.
    void registerDefaults(const Dictionary& values);

    template <typename T>
    T get(const Key<T>& key) const;
    std::int64_t integerForKey(const Key<std::int64_t>& key) const { return get(key); }
    bool boolForKey(const Key<bool>& key) const { return get(key); }
    std::string stringForKey(const Key<std::string>& key) const { return get(key); }
    Dictionary dictionaryForKey(const Key<Dictionary>& key) const { return get(key); }
    // Whether a usable value is stored (not merely registered) for the key.
    bool hasStoredValue(const KeyBase& key) const;

    template <typename T>
    void set(const Key<T>& key, T value);
    void setInteger(std::int64_t value, const Key<std::int64_t>& key) { set(key, value); }
    void setBool(bool value, const Key<bool>& key) { set(key, value); }
    void setObject(std::string value, const Key<std::string>& key) { set(key, std::move(value)); }
    void setObject(Dictionary value, const Key<Dictionary>& key) { set(key, std::move(value)); }
    // The key reads as its registered value again.
    void removeObjectForKey(const KeyBase& key);

    // Saves changes not yet saved and takes in changes made to the store by
    // others. False when changes remain unsaved (the warning says why).
    bool synchronize();
    // Reads the store again now, whatever its modification time says.
    // Changes of ours that are not saved yet stay on top.
    void reload();

private:
    struct Pending {
        std::uint64_t generation;
        std::optional<Value> value;  // none: removed
    };
    using Warnings = std::vector<std::string>;

    const Value* lookupLocked(const KeyBase& key) const;
    void store(const KeyBase& key, std::optional<Value> value);
    void refreshIfStale() const;
    // These run with ioMutex_ held.
    void loadLocked(Warnings& warnings) const;
    bool flushLocked(Warnings& warnings);
    void emit(const Warnings& warnings) const;

    // Taken before mutex_ when both are needed; serialises storage calls.
    mutable std::mutex ioMutex_;
    std::unique_ptr<DefaultsStorage> storage_;
    std::string lastSaveError_;

    // Guards the layers; never held across storage I/O.
    mutable std::mutex mutex_;
    Dictionary registered_;
    mutable Dictionary stored_;  // the store's values with our pending changes on top
    mutable std::map<std::string, Pending> pending_;
    std::uint64_t generation_ = 0;
    mutable dispatch::TimePoint lastCheck_;

    Warn warn_;
};

extern template bool UserDefaults::get(const Key<bool>&) const;
extern template std::int64_t UserDefaults::get(const Key<std::int64_t>&) const;
extern template std::string UserDefaults::get(const Key<std::string>&) const;
extern template Dictionary UserDefaults::get(const Key<Dictionary>&) const;
extern template void UserDefaults::set(const Key<bool>&, bool);
extern template void UserDefaults::set(const Key<std::int64_t>&, std::int64_t);
extern template void UserDefaults::set(const Key<std::string>&, std::string);
extern template void UserDefaults::set(const Key<Dictionary>&, Dictionary);

// The shipped registered values, resources/DefaultPreferences.json (installed
// as share/jorvane/DefaultPreferences.json).
inline constexpr std::string_view kDefaultPreferencesFileName = "DefaultPreferences.json";

struct RegistrationResult {
    bool registered = false;
    std::string error;  // why nothing was registered
};

// Reads the resource and registers its values. A missing or unreadable file,
// or one that does not hold a JSON object, registers nothing (every key then
// reads as false, 0 or empty) and says why; launch goes on either way.
RegistrationResult registerDefaultPreferences(UserDefaults& defaults, const std::filesystem::path& resourceFile);

// The process-wide domain that subsystems read. The composition root installs
// the file-backed one; tests install an in-memory one. Until something is
// installed it is a memory-only domain with nothing registered.
UserDefaults& standardUserDefaults();
// The caller keeps ownership and must restore nullptr before destroying it.
void setStandardUserDefaults(UserDefaults* defaults);

}  // namespace jorvane::settings
