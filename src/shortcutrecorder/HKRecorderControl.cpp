#include "shortcutrecorder/HKRecorderControl.h"

namespace jorvane {

HKRecorderControl::HKRecorderControl(settings::UserDefaults* defaults, Alerts* alerts) : cell_(defaults, alerts) {
    cell_.setDelegate(this);
}

bool HKRecorderControl::hotkeyRecorderCellIsKeyCodeAndFlagsTaken(HKRecorderCell&, HKKeyCode keyCode,
                                                                 CGEventFlags flags, std::string& reason) {
    return delegate_ && delegate_->hotkeyRecorderIsKeyCodeAndFlagsTaken(*this, keyCode, flags, reason);
}

void HKRecorderControl::hotkeyRecorderCellKeyComboDidChange(HKRecorderCell&, HKKeyCombo combo) {
    if (delegate_) delegate_->hotkeyRecorderKeyComboDidChange(*this, combo.flags, combo.code);
}

}  // namespace jorvane
