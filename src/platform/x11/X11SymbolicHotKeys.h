#pragma once

// The desktop's global shortcuts on X11 (SymbolicHotKeys):
//   - the list: Xfce's shortcuts, read with `xfconf-query -c
//     xfce4-keyboard-shortcuts -l -v` (no shell, bounded in time). For each
//     provider ("/commands", "/xfwm4") the "custom" set counts when its
//     "override" is true, else the "default" set, as Xfce does. xfwm4's
//     cancel and arrow keys act only while a window is moved or resized and
//     are listed as disabled; accelerators with modifiers the recorder has
//     no bit for (Hyper, Mod3 …) or keys it has no code for are left out.
//     Outside Xfce (XDG_CURRENT_DESKTOP without "XFCE") the list is empty:
//     the channel's shipped defaults would be read although nothing applies
//     them. Without xfconf-query the list is empty too; a query that fails or
//     hangs is an unreadable list.
//   - held combinations: a test grab of the combination on the root window
//     (each Caps Lock / Num Lock variant), which the server refuses with
//     BadAccess when another program (xfsettingsd, openbox, xbindkeys) holds
//     it; our own grabs are let go at once.

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/x11/X11Keyboard.h"
#include "shortcut/SymbolicHotKeys.h"

namespace jorvane::x11 {

// One GTK accelerator ("<Primary><Alt>Delete") as a key code and recorder
// modifiers; nothing when it cannot be represented.
std::optional<SymbolicHotKey> symbolicHotKeyForAccelerator(std::string_view accelerator);
// The active shortcuts in the output of `xfconf-query -l -v` for the channel.
std::vector<SymbolicHotKey> parseXfceShortcuts(std::string_view listing);

class X11SymbolicHotKeys final : public SymbolicHotKeys {
public:
    struct Options {
        // Read Xfce's list (by default: when the session is Xfce).
        bool readXfceList = false;
        // The program to run (tests substitute their own).
        std::string xfconfQuery = "xfconf-query";
        std::chrono::milliseconds timeout{3000};
    };
    static Options defaultOptions();

    // `keyboard` may be null: nothing is then known to be held.
    X11SymbolicHotKeys(std::shared_ptr<X11Keyboard> keyboard, Options options);

    std::optional<std::vector<SymbolicHotKey>> copySymbolicHotKeys() override;
    bool isHeldByAnotherProgram(ShortcutKeyCode keyCode, std::uint32_t recorderFlags) override;
    std::string settingsName() const override;

private:
    std::shared_ptr<X11Keyboard> keyboard_;
    Options options_;
};

}  // namespace jorvane::x11
