#include "addressbar/PathFieldEditor.h"

#include <algorithm>
#include <array>

#include "addressbar/PathWindowDelegate.h"

namespace jorvane {

namespace {

// Keys whose Ctrl shortcut the panel handles (or that the file manager's view
// switch uses) and which the text system would otherwise take as editing
// keys too.
constexpr std::array kConsumedWithCommand = {
    kKeyW, kKeyN, kKeyT, kKeyR, kKey1, kKey2, kKey3, kKey4,
};

}  // namespace

bool PathFieldEditor::keyDown(const KeyEvent& event) {
    if ((event.modifierFlags & kShortcutModifierMask) != kModifierCommand) return false;
    return std::find(kConsumedWithCommand.begin(), kConsumedWithCommand.end(), event.keyCode) !=
           kConsumedWithCommand.end();
}

std::vector<MenuItem> PathFieldEditor::menuForEvent(std::vector<MenuItem> inherited) const {
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
