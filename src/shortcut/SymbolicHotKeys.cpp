#include "shortcut/SymbolicHotKeys.h"

#include <mutex>

namespace jorvane {
namespace {

std::mutex hotKeysMutex;
std::shared_ptr<SymbolicHotKeys> installedHotKeys;

}  // namespace

std::shared_ptr<SymbolicHotKeys> systemSymbolicHotKeys() {
    std::lock_guard lock(hotKeysMutex);
    return installedHotKeys;
}

void setSystemSymbolicHotKeys(std::shared_ptr<SymbolicHotKeys> hotKeys) {
    std::lock_guard lock(hotKeysMutex);
    installedHotKeys = std::move(hotKeys);
}

}  // namespace jorvane
