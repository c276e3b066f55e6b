#include "settings/UserDefaults.h"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>

namespace jorvane::settings {

namespace {

std::string inQuotes(std::string_view name) { return '"' + std::string(name) + '"'; }

std::string jsonTypeName(const Value& value) {
    if (value.is_boolean()) return "a boolean";
    if (value.is_number_float()) return "a number with a fraction";
    if (value.is_number()) return "an integer";
    if (value.is_string()) return "a string";
    if (value.is_object()) return "an object";
    if (value.is_array()) return "a list";
    if (value.is_null()) return "null";
    return "a value";
}

// Lines about the values of a loaded store that will be ignored.
void checkTypes(const Dictionary& values, const std::string& where, std::vector<std::string>& warnings) {
    for (const auto& [name, value] : values) {
        const std::optional<ValueType> type = typeOfKey(name);
        if (!type) continue;  // a key of a later version, or the user's own: kept, never read
        if (!conformsTo(value, *type)) {
            warnings.push_back(where + ": " + inQuotes(name) + " should be " + std::string(valueTypeName(*type)) +
                               " but is " + jsonTypeName(value) + "; it is ignored");
            continue;
        }
        if (*type == ValueType::Dictionary && name.starts_with(keys::hotkeyRecorderPrefix)) {
            std::vector<std::string> problems;
            HotkeyRecorderEntry::fromDictionary(value.get_ref<const Dictionary&>(), &problems);
            for (const std::string& problem : problems) {
                warnings.push_back(where + ": in " + inQuotes(name) + ", " + problem + "; it is ignored");
            }
        }
    }
}

template <typename T>
T convert(const Value& value) {
    if constexpr (std::is_same_v<T, bool>) {
        return value.is_boolean() ? value.get<bool>() : value != 0;
    } else if constexpr (std::is_same_v<T, std::int64_t>) {
        return value.is_number_float() ? static_cast<std::int64_t>(value.get<double>()) : value.get<std::int64_t>();
    } else if constexpr (std::is_same_v<T, std::string>) {
        return value.get<std::string>();
    } else {
        return value.get<Dictionary>();
    }
}

void printWarning(const std::string& line) { std::fprintf(stderr, "jorvane: warning: %s\n", line.c_str()); }

}  // namespace

UserDefaults::UserDefaults(std::unique_ptr<DefaultsStorage> storage, Warn warn)
    : storage_(std::move(storage)), warn_(warn ? std::move(warn) : Warn(printWarning)) {
    lastCheck_ = dispatch::timeSource().now();
    if (!storage_) return;
    Warnings warnings;
    {
        std::lock_guard io(ioMutex_);
        loadLocked(warnings);
    }
    emit(warnings);
}

UserDefaults::~UserDefaults() {
    if (!storage_) return;
    Warnings warnings;
    {
        std::lock_guard io(ioMutex_);
        bool pending;
        {
            std::lock_guard lock(mutex_);
            pending = !pending_.empty();
        }
        if (pending) flushLocked(warnings);
    }
    emit(warnings);
}

void UserDefaults::emit(const Warnings& warnings) const {
    for (const std::string& line : warnings) warn_(line);
}

void UserDefaults::registerDefaults(const Dictionary& values) {
    Warnings warnings;
    {
        std::lock_guard lock(mutex_);
        for (const auto& [name, value] : values) {
            const std::optional<ValueType> type = typeOfKey(name);
            if (type && !conformsTo(value, *type)) {
                warnings.push_back("registered value of " + inQuotes(name) + " should be " +
                                   std::string(valueTypeName(*type)) + " but is " + jsonTypeName(value) +
                                   "; it is ignored");
                continue;
            }
            registered_[name] = value;
        }
    }
    emit(warnings);
}

const Value* UserDefaults::lookupLocked(const KeyBase& key) const {
    if (auto it = stored_.find(key.name()); it != stored_.end() && conformsTo(it->second, key.type())) {
        return &it->second;
    }
    if (auto it = registered_.find(key.name()); it != registered_.end() && conformsTo(it->second, key.type())) {
        return &it->second;
    }
    return nullptr;
}

template <typename T>
T UserDefaults::get(const Key<T>& key) const {
    refreshIfStale();
    std::lock_guard lock(mutex_);
    const Value* value = lookupLocked(key);
    return value ? convert<T>(*value) : T{};
}

bool UserDefaults::hasStoredValue(const KeyBase& key) const {
    refreshIfStale();
    std::lock_guard lock(mutex_);
    auto it = stored_.find(key.name());
    return it != stored_.end() && conformsTo(it->second, key.type());
}

template <typename T>
void UserDefaults::set(const Key<T>& key, T value) {
    store(key, Value(std::move(value)));
}

void UserDefaults::removeObjectForKey(const KeyBase& key) { store(key, std::nullopt); }

void UserDefaults::store(const KeyBase& key, std::optional<Value> value) {
    {
        std::lock_guard lock(mutex_);
        auto it = stored_.find(key.name());
        const bool unchanged = value ? (it != stored_.end() && it->second == *value) : it == stored_.end();
        // Writing back what is already there (the launch's "version", the
        // preferences window re-storing the hot key) costs no disk write.
        if (unchanged) return;
        if (value) {
            stored_[key.name()] = *value;
        } else {
            stored_.erase(it);
        }
        pending_[key.name()] = Pending{++generation_, std::move(value)};
        if (!storage_) {
            pending_.clear();
            return;
        }
    }
    Warnings warnings;
    {
        std::lock_guard io(ioMutex_);
        flushLocked(warnings);
    }
    emit(warnings);
}

bool UserDefaults::synchronize() {
    if (!storage_) return true;
    Warnings warnings;
    bool ok;
    {
        std::lock_guard io(ioMutex_);
        ok = flushLocked(warnings);
    }
    emit(warnings);
    return ok;
}

void UserDefaults::reload() {
    if (!storage_) return;
    Warnings warnings;
    {
        std::lock_guard io(ioMutex_);
        loadLocked(warnings);
    }
    emit(warnings);
}

void UserDefaults::refreshIfStale() const {
    if (!storage_) return;
    {
        std::lock_guard lock(mutex_);
        const dispatch::TimePoint now = dispatch::timeSource().now();
        if (now - lastCheck_ < kStaleAfter) return;
        lastCheck_ = now;
    }
    // A save or load under way brings the values up to date by itself; the
    // reader does not wait for it.
    std::unique_lock io(ioMutex_, std::try_to_lock);
    if (!io.owns_lock()) return;
    if (!storage_->changedSinceLastSync()) return;
    Warnings warnings;
    loadLocked(warnings);
    io.unlock();
    emit(warnings);
}

void UserDefaults::loadLocked(Warnings& warnings) const {
    DefaultsStorage::Loaded loaded = storage_->load();
    warnings.insert(warnings.end(), loaded.warnings.begin(), loaded.warnings.end());
    checkTypes(loaded.values, storage_->description(), warnings);
    std::lock_guard lock(mutex_);
    stored_ = std::move(loaded.values);
    for (const auto& [name, change] : pending_) {
        if (change.value) {
            stored_[name] = *change.value;
        } else {
            stored_.erase(name);
        }
    }
    lastCheck_ = dispatch::timeSource().now();
}

bool UserDefaults::flushLocked(Warnings& warnings) {
    // Someone else's edit of another key must survive our write: the last
    // writer wins per key, not per file. The lock keeps another program from
    // writing between our read and our write.
    const std::unique_ptr<DefaultsStorage::UpdateLock> updating = storage_->lockForUpdate();
    if (storage_->changedSinceLastSync()) loadLocked(warnings);
    Dictionary snapshot;
    std::uint64_t generation;
    {
        std::lock_guard lock(mutex_);
        if (pending_.empty()) return true;
        snapshot = stored_;
        generation = generation_;
    }
    const DefaultsStorage::Saved saved = storage_->save(snapshot);
    if (!saved.ok) {
        // Said once per cause, not at every set.
        if (saved.error != lastSaveError_) {
            warnings.push_back("settings not saved to " + storage_->description() + ": " + saved.error);
            lastSaveError_ = saved.error;
        }
        return false;
    }
    lastSaveError_.clear();
    std::lock_guard lock(mutex_);
    std::erase_if(pending_, [generation](const auto& entry) { return entry.second.generation <= generation; });
    lastCheck_ = dispatch::timeSource().now();
    return true;
}

template bool UserDefaults::get(const Key<bool>&) const;
template std::int64_t UserDefaults::get(const Key<std::int64_t>&) const;
template std::string UserDefaults::get(const Key<std::string>&) const;
template Dictionary UserDefaults::get(const Key<Dictionary>&) const;
template void UserDefaults::set(const Key<bool>&, bool);
template void UserDefaults::set(const Key<std::int64_t>&, std::int64_t);
template void UserDefaults::set(const Key<std::string>&, std::string);
template void UserDefaults::set(const Key<Dictionary>&, Dictionary);

RegistrationResult registerDefaultPreferences(UserDefaults& defaults, const std::filesystem::path& resourceFile) {
    std::ifstream in(resourceFile, std::ios::binary);
    if (!in) {
        return {false, "cannot read " + resourceFile.string() + ": " + std::strerror(errno)};
    }
    std::ostringstream text;
    text << in.rdbuf();
    if (in.bad()) {
        return {false, "cannot read " + resourceFile.string() + ": " + std::strerror(errno)};
    }
    Value parsed;
    try {
        parsed = Value::parse(text.str());
    } catch (const nlohmann::json::exception& e) {
        // parse_error, or out_of_range for a number too large for a double.
        return {false, resourceFile.string() + " is not valid JSON: " + e.what()};
    }
    if (!parsed.is_object()) {
        return {false, resourceFile.string() + " does not hold a JSON object"};
    }
    defaults.registerDefaults(parsed.get_ref<const Dictionary&>());
    return {true, {}};
}

namespace {

std::atomic<UserDefaults*> installedDefaults{nullptr};

UserDefaults& memoryOnlyDefaults() {
    static UserDefaults defaults(nullptr);
    return defaults;
}

}  // namespace

UserDefaults& standardUserDefaults() {
    UserDefaults* installed = installedDefaults.load(std::memory_order_acquire);
    return installed ? *installed : memoryOnlyDefaults();
}

void setStandardUserDefaults(UserDefaults* defaults) { installedDefaults.store(defaults, std::memory_order_release); }

}  // namespace jorvane::settings
