#pragma once

// The desktop's global keyboard shortcuts, which a recorded hot key must not
// take. The Linux adapter reads Xfce's shortcut list (the xfconf channel
// "xfce4-keyboard-shortcuts") and asks the X server whether another program
// holds a combination (a test grab that answers BadAccess), which covers
// window managers and key daemons that keep no list (openbox, xbindkeys).

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "shortcut/ShortcutKeyNames.h"

namespace jorvane {

struct SymbolicHotKey {
    bool enabled = true;
    ShortcutKeyCode keyCode = kNoShortcutKey;
    std::int32_t modifiers = 0;  // recorder layout

    bool operator==(const SymbolicHotKey&) const = default;
};

class SymbolicHotKeys {
public:
    virtual ~SymbolicHotKeys() = default;

    // The desktop's shortcut list in its own order; nothing when the list
    // exists but cannot be read (the caller then counts every combination as
    // taken). A desktop that keeps no list answers an empty one.
    virtual std::optional<std::vector<SymbolicHotKey>> copySymbolicHotKeys() = 0;

    // Whether another program holds the combination for itself.
    virtual bool isHeldByAnotherProgram(ShortcutKeyCode /*keyCode*/, std::uint32_t /*recorderFlags*/) { return false; }

    // Where the user changes the desktop's shortcuts, to end the sentence
    // "most shortcuts can be changed in …"; empty when unknown.
    virtual std::string settingsName() const { return {}; }
};

// What the validator asks; none until the composition root installs an
// adapter (no desktop shortcut is known then). Thread-safe.
std::shared_ptr<SymbolicHotKeys> systemSymbolicHotKeys();
void setSystemSymbolicHotKeys(std::shared_ptr<SymbolicHotKeys> hotKeys);

}  // namespace jorvane
