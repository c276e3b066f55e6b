#pragma once

// What a key types in the current layout, for the key naming
// (KeyboardLayout). A virtual key code stands for the X keys that give it in
// the active group (X11Keys); the first of them is asked with xkbcommon, with
// Num Lock on (keypad keys type digits, as a Mac keypad does) and Shift and
// Alt as the flags say. A dead key answers its spacing accent ("^" for
// dead_circumflex), since it types nothing by itself.

#include <xkbcommon/xkbcommon.h>

#include <memory>
#include <optional>
#include <string>

#include "platform/x11/X11Keyboard.h"
#include "platform/x11/X11Keys.h"
#include "shortcut/KeyboardLayout.h"

namespace jorvane::x11 {

// The text the key with this code types in `group` of the keys' keymap;
// nothing when no key gives the code.
std::optional<std::string> typedText(const X11Keys& keys, KeyCode code, Modifiers flags, std::uint32_t group);

// A fixed keymap and group (a keymap compiled from names, for tests and tools).
class XkbKeyboardLayout final : public KeyboardLayout {
public:
    // Takes a reference on the keymap; a null keymap is "no layout".
    XkbKeyboardLayout(xkb_keymap* keymap, std::uint32_t group);
    bool hasLayout() const override { return keys_ != nullptr; }
    std::optional<std::string> characterForKeyCode(KeyCode code, Modifiers flags) const override;

private:
    std::unique_ptr<X11Keys> keys_;
    std::uint32_t group_;
};

// The X server's current keymap and group.
class X11KeyboardLayout final : public KeyboardLayout {
public:
    // A null keyboard (no display) is "no layout".
    explicit X11KeyboardLayout(std::shared_ptr<X11Keyboard> keyboard) : keyboard_(std::move(keyboard)) {}
    bool hasLayout() const override;
    std::optional<std::string> characterForKeyCode(KeyCode code, Modifiers flags) const override;

private:
    std::shared_ptr<X11Keyboard> keyboard_;
};

}  // namespace jorvane::x11
