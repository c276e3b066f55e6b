#pragma once

// A dictionary that several threads may share: every access takes the
// instance's own recursive lock. Values are returned by copy, so what a caller
// holds after the call is its own. Sequences of calls (read, then write) are
// not atomic as a whole.

#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

namespace jorvane {

// Keys are kept ordered, so allKeys() and any walk over them are
// deterministic.
template <class K, class V, class Compare = std::less<K>>
class ZTSynchronizedMutableDictionary {
public:
    void setObject(V value, const K& key) {
        std::lock_guard lock(mutex_);
        dict_.insert_or_assign(key, std::move(value));
    }

    std::optional<V> objectForKey(const K& key) const {
        std::lock_guard lock(mutex_);
        auto it = dict_.find(key);
        if (it == dict_.end()) return std::nullopt;
        return it->second;
    }

    void removeObjectForKey(const K& key) {
        std::lock_guard lock(mutex_);
        dict_.erase(key);
    }

    void removeAllObjects() {
        std::lock_guard lock(mutex_);
        dict_.clear();
    }

    std::vector<K> allKeys() const {
        std::lock_guard lock(mutex_);
        std::vector<K> keys;
        keys.reserve(dict_.size());
        for (const auto& entry : dict_) keys.push_back(entry.first);
        return keys;
    }

private:
    mutable std::recursive_mutex mutex_;
    std::map<K, V, Compare> dict_;
};

}  // namespace jorvane
