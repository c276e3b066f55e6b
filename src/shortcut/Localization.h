#pragma once

// Localised texts of the shortcut recorder. The code names every text the
// user reads by its source text (the key), and the table gives the text as
// shown on this platform: here, keys named as Linux keyboards and desktops
// name them.
//
// The "HotkeyRecorder" table:
//   - modifiers in words: Command is "Ctrl", Control is "Super", Option is
//     "Alt", Shift is "Shift". The readable form joins them with " + "
//     ("Ctrl + Shift + G"). The glyph form (the Mac's ⌃⌥⇧⌘ symbols, which
//     mean nothing on a PC keyboard) becomes the compact form desktops use
//     for accelerators: the same words joined with "+" and no spaces, in the
//     glyph order Super, Alt, Shift, Ctrl ("Shift+Ctrl+G").
//   - keys drawn as symbols on a Mac keyboard get the names printed on PC
//     keys: ⌫ "Backspace", ⌦ "Delete", ⎋ "Esc", ↩ "Enter", ⇥ "Tab", ⇞ "Page
//     Up", ⇟ "Page Down", ↖ "Home", ↘ "End", the arrows "Left", "Right", "Up",
//     "Down", ⌅ (keypad Enter) "Pad Enter", ⌧ (keypad Clear, Num Lock on a PC)
//     "Num Lock", and the Help key "?" "Insert" (it sits where Insert is).
//   - the system-wide shortcut message points to the desktop's settings,
//     which the platform names (SymbolicHotKeys::settingsName).
// Any other key reads as itself, as a missing entry does on the Mac.

#include <initializer_list>
#include <string>
#include <string_view>

namespace jorvane {

inline constexpr std::string_view kHotkeyRecorderTable = "HotkeyRecorder";

// The text for `key` in `table`; the key itself when the table has no entry
// for it (or there is no such table).
std::string localizedString(std::string_view key, std::string_view table);

// `format` with each "%@" replaced by the next argument, in order ("%%" is a
// percent sign). Placeholders beyond the arguments are left out.
std::string stringWithFormat(std::string_view format, std::initializer_list<std::string_view> arguments);

}  // namespace jorvane
