#include "shortcut/KeyboardLayout.h"

#include <mutex>

namespace jorvane {
namespace {

std::mutex layoutMutex;
std::shared_ptr<const KeyboardLayout> installedLayout;

}  // namespace

std::shared_ptr<const KeyboardLayout> currentKeyboardLayout() {
    std::lock_guard lock(layoutMutex);
    return installedLayout;
}

void setCurrentKeyboardLayout(std::shared_ptr<const KeyboardLayout> layout) {
    std::lock_guard lock(layoutMutex);
    installedLayout = std::move(layout);
}

}  // namespace jorvane
