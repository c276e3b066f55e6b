#include "shortcut/ShortcutControl.h"

namespace jorvane {

ShortcutControl::ShortcutControl(settings::UserDefaults* defaults, Alerts* alerts) : cell_(defaults, alerts) {
    cell_.setDelegate(this);
}

bool ShortcutControl::hotkeyRecorderCellIsKeyCodeAndFlagsTaken(ShortcutRecorder&, ShortcutKeyCode keyCode,
                                                               Modifiers flags, std::string& reason) {
    return delegate_ && delegate_->hotkeyRecorderIsKeyCodeAndFlagsTaken(*this, keyCode, flags, reason);
}

void ShortcutControl::recorderShortcutChanged(ShortcutRecorder&, ShortcutCombo combo) {
    if (delegate_) delegate_->shortcutChanged(*this, combo.flags, combo.code);
}

}  // namespace jorvane
