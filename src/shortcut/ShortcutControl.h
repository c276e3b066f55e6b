#pragma once

// The hot-key field as the preferences see it: it holds the recorder cell,
// is the cell's delegate and passes the cell's news on to its own delegate.
// The Qt widget that draws the field owns one and implements the cell's view
// (ShortcutRecorderView).

#include <string>

#include "shortcut/ShortcutRecorder.h"

namespace jorvane {

class ShortcutControl;

// Both answers are optional: a delegate that does not say otherwise takes no
// combination for itself.
class ShortcutControlDelegate {
public:
    virtual ~ShortcutControlDelegate() = default;
    virtual bool hotkeyRecorderIsKeyCodeAndFlagsTaken(ShortcutControl& /*recorder*/, ShortcutKeyCode /*keyCode*/,
                                                      Modifiers /*flags*/, std::string& /*reason*/) {
        return false;
    }
    virtual void shortcutChanged(ShortcutControl& /*recorder*/, Modifiers /*flags*/, ShortcutKeyCode /*keyCode*/) {}
};

class ShortcutControl : private ShortcutRecorderDelegate {
public:
    explicit ShortcutControl(settings::UserDefaults* defaults = nullptr, Alerts* alerts = nullptr);
    ShortcutControl(const ShortcutControl&) = delete;
    ShortcutControl& operator=(const ShortcutControl&) = delete;

    // Not owned.
    void setDelegate(ShortcutControlDelegate* delegate) { delegate_ = delegate; }
    ShortcutControlDelegate* delegate() const { return delegate_; }

    ShortcutRecorder& cell() { return cell_; }
    const ShortcutRecorder& cell() const { return cell_; }

    ShortcutCombo keyCombo() const { return cell_.keyCombo(); }
    void setKeyCombo(ShortcutCombo combo) { cell_.setKeyCombo(combo); }
    void setAllowsKeyOnly(bool allowsKeyOnly, bool escapeKeysRecord) {
        cell_.setAllowsKeyOnly(allowsKeyOnly, escapeKeysRecord);
    }
    void setCanCaptureGlobalHotKeys(bool capture) { cell_.setCanCaptureGlobalHotKeys(capture); }
    void setAutosaveName(std::string name) { cell_.setAutosaveName(std::move(name)); }

private:
    bool hotkeyRecorderCellIsKeyCodeAndFlagsTaken(ShortcutRecorder& cell, ShortcutKeyCode keyCode, Modifiers flags,
                                                  std::string& reason) override;
    void recorderShortcutChanged(ShortcutRecorder& cell, ShortcutCombo combo) override;

    ShortcutRecorder cell_;
    ShortcutControlDelegate* delegate_ = nullptr;
};

}  // namespace jorvane
