#pragma once

// Whether a key combination is free to become a hot key. In order: the
// delegate may refuse it; then the desktop's global shortcuts (an unreadable
// list refuses everything; a combination held by another program is refused
// too); then the key equivalents of the program's menu. A refusal comes with
// an error whose texts tell the user why.
//
// The program's menu on Linux: Jorvane has no menu bar; the only menu with
// keys is the address bar's context menu, whose text-editing entries carry
// the desktop's standard keys (HKMainMenu). Its other entry, "Jorvane
// Preferences…", has no key, and the bar's own commands (Ctrl+N, Ctrl+1 …)
// are keys of the bar, not of a menu.

#include <cstdint>
#include <string>
#include <vector>

#include "shortcutrecorder/HKKeyCodeTransformer.h"

namespace jorvane {

struct HKError {
    std::string domain = "NSCocoaErrorDomain";
    int code = 0;
    std::string localizedDescription;         // the short text
    std::string localizedRecoverySuggestion;  // the long text
    std::vector<std::string> localizedRecoveryOptions;
};

struct HKMenuItem {
    std::string title;
    // The character of the item's key ("c"); empty for an item without one.
    std::string keyEquivalent;
    CGEventFlags keyEquivalentModifierMask = kCGEventFlagMaskCommand;  // Cocoa layout
    std::vector<HKMenuItem> submenu;
};
using HKMenu = std::vector<HKMenuItem>;

// The menu the validator searches: the address bar's context menu.
const HKMenu& HKMainMenu();

class HKValidator;

class HKValidatorDelegate {
public:
    virtual ~HKValidatorDelegate() = default;
    // True when the combination (Cocoa flags) must not be used; `reason`
    // (empty on entry) may say why, to end "can't be used because …".
    virtual bool hotkeyValidatorIsKeyCodeAndFlagsTaken(HKValidator& validator, HKKeyCode keyCode,
                                                       CGEventFlags flags, std::string& reason) = 0;
};

class HKValidator {
public:
    explicit HKValidator(HKValidatorDelegate* delegate = nullptr) : delegate_(delegate) {}

    // Not owned.
    HKValidatorDelegate* delegate() const { return delegate_; }
    void setDelegate(HKValidatorDelegate* delegate) { delegate_ = delegate; }

    // True when taken (Carbon flags); `error`, when given, receives the
    // texts (except for an unreadable shortcut list or a key without a name,
    // which refuse silently).
    bool isKeyCodeAndFlagsTaken(HKKeyCode keyCode, std::uint32_t carbonFlags, HKError* error = nullptr);
    bool isKeyCodeAndFlagsTakenInMenu(HKKeyCode keyCode, std::uint32_t carbonFlags, const HKMenu& menu,
                                      HKError* error = nullptr);

private:
    HKValidatorDelegate* delegate_;
};

}  // namespace jorvane
