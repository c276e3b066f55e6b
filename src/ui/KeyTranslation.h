#pragma once

// Qt key presses in the core's vocabulary: virtual key codes of the US layout
// and the device-independent modifier flags (Ctrl is Command, Super (Qt's
// Meta) is Control, Alt is Option), and the editing commands the address
// bar's field hands to its controller.
//
// The key code comes preferably from the X key itself (its scan code, looked
// up by the same rule as the event tap: the key's first-level keysym in the
// active layout, so Ctrl+Shift+. is "." on every layout and a recorded hot
// key matches in the bar as it does in the file manager). Without an X key
// (another Qt platform, synthetic events) Qt's key stands in, read on the US
// layout: Qt reports shifted punctuation ("!" for Shift+1), which goes back
// to its US key.

#include <QKeyEvent>

#include <cstdint>
#include <functional>
#include <optional>

#include "addressbar/PathWindowViews.h"

namespace jorvane::ui {

// The virtual key code of an X key (scan code) under an X state (the group
// in bits 13-14), or nothing when it cannot say.
using NativeKeyCodes = std::function<std::optional<KeyCode>(std::uint32_t scanCode, std::uint32_t state)>;

Modifiers flagsForQtModifiers(Qt::KeyboardModifiers modifiers);
// The key code of a Qt key on the US layout; KeypadModifier picks the keypad's
// keys. Nothing for keys without a code.
std::optional<KeyCode> keyCodeForQtKey(int key, Qt::KeyboardModifiers modifiers);

// The core's key event for a Qt key press: the code from `native` when it
// knows the key, else from Qt's key; the flags from Qt's modifiers plus the
// flags the key implies (keypad, function keys); the characters the key types.
// Nothing for keys without a code (they go straight to text editing).
std::optional<KeyEvent> keyEventFor(const QKeyEvent& event, const NativeKeyCodes& native = {});

// The field's editing command for a key press: Down, Up, Return/Enter, Tab,
// Shift+Tab, Ctrl+Up, Ctrl+Down, Escape; `other` for everything else.
TextCommand textCommandFor(int key, Qt::KeyboardModifiers modifiers);

}  // namespace jorvane::ui
