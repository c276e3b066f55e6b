#pragma once

// Whether a key combination is free to become a hot key. In order: the
// delegate may refuse it; then the desktop's global shortcuts (an unreadable
// list refuses everything; a combination held by another program is refused
// too); then the key equivalents of the program's menu. A refusal comes with
// an error whose texts tell the user why.
//
// The program's menu on Linux: Jorvane has no menu bar; the only menu with
// keys is the address bar's context menu, whose text-editing entries carry
// the desktop's standard keys (standardShortcuts). Its other entry, "Jorvane
// Preferences…", has no key, and the bar's own commands (Ctrl+N, Ctrl+1 …)
// are keys of the bar, not of a menu.

#include <cstdint>
#include <string>
#include <vector>

#include "shortcut/ShortcutKeyNames.h"

namespace jorvane {

struct ShortcutConflict {
    int code = 0;
    std::string localizedDescription;         // the short text
    std::string localizedRecoverySuggestion;  // the long text
    std::vector<std::string> localizedRecoveryOptions;
};

struct ShortcutMenuItem {
    std::string title;
    // The character of the item's key ("c"); empty for an item without one.
    std::string keyEquivalent;
    Modifiers keyEquivalentModifierMask = kModifierCommand;  // modifier layout
    std::vector<ShortcutMenuItem> submenu;
};
using ShortcutMenu = std::vector<ShortcutMenuItem>;

// The menu the validator searches: the address bar's context menu.
const ShortcutMenu& standardShortcuts();

class ShortcutValidator;

class ShortcutValidatorDelegate {
public:
    virtual ~ShortcutValidatorDelegate() = default;
    // True when the combination (modifier flags) must not be used; `reason`
    // (empty on entry) may say why, to end "can't be used because …".
    virtual bool hotkeyValidatorIsKeyCodeAndFlagsTaken(ShortcutValidator& validator, ShortcutKeyCode keyCode,
                                                       Modifiers flags, std::string& reason) = 0;
};

class ShortcutValidator {
public:
    explicit ShortcutValidator(ShortcutValidatorDelegate* delegate = nullptr) : delegate_(delegate) {}

    // Not owned.
    ShortcutValidatorDelegate* delegate() const { return delegate_; }
    void setDelegate(ShortcutValidatorDelegate* delegate) { delegate_ = delegate; }

    // True when taken (recorder flags); `error`, when given, receives the
    // texts (except for an unreadable shortcut list or a key without a name,
    // which refuse silently).
    bool isKeyCodeAndFlagsTaken(ShortcutKeyCode keyCode, std::uint32_t recorderFlags,
                                ShortcutConflict* error = nullptr);
    bool isKeyCodeAndFlagsTakenInMenu(ShortcutKeyCode keyCode, std::uint32_t recorderFlags, const ShortcutMenu& menu,
                                      ShortcutConflict* error = nullptr);

private:
    ShortcutValidatorDelegate* delegate_;
};

}  // namespace jorvane
