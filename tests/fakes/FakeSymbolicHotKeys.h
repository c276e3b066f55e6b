#pragma once

// The desktop's global shortcuts for tests: a list to hand out (or an
// unreadable one), combinations another program holds, and a count of the
// questions asked. Install it with ScopedSymbolicHotKeys.

#include <memory>
#include <set>
#include <utility>
#include <vector>

#include "shortcut/SymbolicHotKeys.h"

namespace jorvane::test {

class FakeSymbolicHotKeys final : public SymbolicHotKeys {
public:
    std::optional<std::vector<SymbolicHotKey>> copySymbolicHotKeys() override {
        ++listReads;
        return hotKeys;
    }
    bool isHeldByAnotherProgram(ShortcutKeyCode keyCode, std::uint32_t recorderFlags) override {
        ++probes;
        return held.count({keyCode, recorderFlags}) > 0;
    }
    std::string settingsName() const override { return settings; }

    // ---- test side
    std::optional<std::vector<SymbolicHotKey>> hotKeys = std::vector<SymbolicHotKey>{};
    std::set<std::pair<ShortcutKeyCode, std::uint32_t>> held;
    std::string settings;
    int listReads = 0;
    int probes = 0;
};

class ScopedSymbolicHotKeys {
public:
    ScopedSymbolicHotKeys() : hotKeys_(std::make_shared<FakeSymbolicHotKeys>()) { setSystemSymbolicHotKeys(hotKeys_); }
    ~ScopedSymbolicHotKeys() { setSystemSymbolicHotKeys(nullptr); }
    ScopedSymbolicHotKeys(const ScopedSymbolicHotKeys&) = delete;
    ScopedSymbolicHotKeys& operator=(const ScopedSymbolicHotKeys&) = delete;

    FakeSymbolicHotKeys& hotKeys() { return *hotKeys_; }

private:
    std::shared_ptr<FakeSymbolicHotKeys> hotKeys_;
};

}  // namespace jorvane::test
