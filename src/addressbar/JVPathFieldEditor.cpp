#include "addressbar/JVPathFieldEditor.h"

#include <algorithm>
#include <array>

#include "addressbar/PathWindowDelegate.h"

namespace jorvane {

namespace {

// Keys whose Ctrl shortcut the panel handles (or that the file manager's view
// switch uses) and which the text system would otherwise take as editing
// keys too.
constexpr std::array kConsumedWithCommand = {
    kVK_ANSI_W, kVK_ANSI_N, kVK_ANSI_T, kVK_ANSI_R, kVK_ANSI_1, kVK_ANSI_2, kVK_ANSI_3, kVK_ANSI_4,
};

}  // namespace

bool JVPathFieldEditor::keyDown(const KeyEvent& event) {
    if ((event.modifierFlags & kShortcutModifierMask) != kCGEventFlagMaskCommand) return false;
    return std::find(kConsumedWithCommand.begin(), kConsumedWithCommand.end(), event.keyCode) !=
           kConsumedWithCommand.end();
}

std::vector<MenuItem> JVPathFieldEditor::menuForEvent(std::vector<MenuItem> inherited) const {
    inherited.push_back(MenuItem::separatorItem());
    MenuItem preferences;
    preferences.title = std::string(kPreferencesItemTitle);
    preferences.image = MenuItem::Image::applicationIcon;
    preferences.imageSize = {kMenuImageSide, kMenuImageSide};
    preferences.action = [&delegate = delegate_] { delegate.openPreferences(); };
    inherited.push_back(std::move(preferences));
    return inherited;
}

}  // namespace jorvane
