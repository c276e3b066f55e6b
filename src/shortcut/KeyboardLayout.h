#pragma once

// The current keyboard layout, as the key naming asks it: what a key types.
// Key codes name key positions by the US layout (VirtualKeyCodes.h), so a
// letter key's name depends on the layout in use (the key that types "z" on a
// German keyboard is where the US layout has "y"). The X11 adapter answers
// from the server's keymap and active group; tests install a fake.

#include <memory>
#include <optional>
#include <string>

#include "keys/VirtualKeyCodes.h"

namespace jorvane {

class KeyboardLayout {
public:
    virtual ~KeyboardLayout() = default;

    // False when there is no current layout to ask (the keyboard mapping
    // could not be read); names then read "???".
    virtual bool hasLayout() const = 0;

    // The text (UTF-8) the key with this code types in the current layout
    // with the Shift and Option bits of `flags` held (other bits are
    // ignored). Keypad keys answer their Num Lock character ("1" for
    // Keypad1), a dead key its spacing accent ("^"), and a key that types
    // nothing "" (a modifier). Nothing when the translation fails: the layout
    // has no key for the code.
    virtual std::optional<std::string> characterForKeyCode(KeyCode code, Modifiers flags) const = 0;
};

// The layout the key naming uses; none until the composition root installs
// one (names of layout-dependent keys then read "???"). Thread-safe.
std::shared_ptr<const KeyboardLayout> currentKeyboardLayout();
void setCurrentKeyboardLayout(std::shared_ptr<const KeyboardLayout> layout);

}  // namespace jorvane
