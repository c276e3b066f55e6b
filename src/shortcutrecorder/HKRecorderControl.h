#pragma once

// The hot-key field as the preferences see it: it holds the recorder cell,
// is the cell's delegate and passes the cell's news on to its own delegate.
// The Qt widget that draws the field owns one and implements the cell's view
// (HKRecorderCellView).

#include <string>

#include "shortcutrecorder/HKRecorderCell.h"

namespace jorvane {

class HKRecorderControl;

// Both answers are optional: a delegate that does not say otherwise takes no
// combination for itself.
class HKRecorderDelegate {
public:
    virtual ~HKRecorderDelegate() = default;
    virtual bool hotkeyRecorderIsKeyCodeAndFlagsTaken(HKRecorderControl& /*recorder*/, HKKeyCode /*keyCode*/,
                                                      CGEventFlags /*flags*/, std::string& /*reason*/) {
        return false;
    }
    virtual void hotkeyRecorderKeyComboDidChange(HKRecorderControl& /*recorder*/, CGEventFlags /*flags*/,
                                                 HKKeyCode /*keyCode*/) {}
};

class HKRecorderControl : private HKRecorderCellDelegate {
public:
    explicit HKRecorderControl(settings::UserDefaults* defaults = nullptr, Alerts* alerts = nullptr);
    HKRecorderControl(const HKRecorderControl&) = delete;
    HKRecorderControl& operator=(const HKRecorderControl&) = delete;

    // Not owned.
    void setDelegate(HKRecorderDelegate* delegate) { delegate_ = delegate; }
    HKRecorderDelegate* delegate() const { return delegate_; }

    HKRecorderCell& cell() { return cell_; }
    const HKRecorderCell& cell() const { return cell_; }

    HKKeyCombo keyCombo() const { return cell_.keyCombo(); }
    void setKeyCombo(HKKeyCombo combo) { cell_.setKeyCombo(combo); }
    void setAllowsKeyOnly(bool allowsKeyOnly, bool escapeKeysRecord) {
        cell_.setAllowsKeyOnly(allowsKeyOnly, escapeKeysRecord);
    }
    void setCanCaptureGlobalHotKeys(bool capture) { cell_.setCanCaptureGlobalHotKeys(capture); }
    void setAutosaveName(std::string name) { cell_.setAutosaveName(std::move(name)); }

private:
    bool hotkeyRecorderCellIsKeyCodeAndFlagsTaken(HKRecorderCell& cell, HKKeyCode keyCode, CGEventFlags flags,
                                                  std::string& reason) override;
    void hotkeyRecorderCellKeyComboDidChange(HKRecorderCell& cell, HKKeyCombo combo) override;

    HKRecorderCell cell_;
    HKRecorderDelegate* delegate_ = nullptr;
};

}  // namespace jorvane
