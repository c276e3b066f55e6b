#pragma once

// The user's login items: programs the desktop session starts at login. On
// Linux they are the XDG autostart entries of the user, `.desktop` files in
// $XDG_CONFIG_HOME/autostart/ (~/.config/autostart/ when the variable is
// unset or not absolute). An entry is a login item for the program its Exec
// line starts (the first argument, unquoted by the Desktop Entry rules).
//
// Semantics:
//   - The list is walked in the order of the entries' file names (byte by
//     byte); XDG autostart itself has no order.
//   - Entries that cannot be read, have no Exec, or are switched off (Hidden,
//     or X-GNOME-Autostart-enabled=false) are not items: they are neither
//     reported nor removed, as the desktop does not start them either.
//   - Paths are compared exactly, byte for byte: no normalising, no symbolic
//     links resolved, no case folding.
//   - Installing adds one new file named after the program
//     ("<program>.desktop", "<program>-2.desktop" … for a name already taken)
//     and never rewrites an existing file; a program that already has an
//     item is left as it is, so installing twice leaves one entry.
//   - Removal deletes the matching entries' files and nothing else; the
//     user's entries for other programs are never touched.
// Files are written atomically (a temporary file linked into place, which
// also refuses to replace a file that appeared meanwhile). Failures are
// logged and otherwise silent.

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace jorvane::LoginItem {

// Adds an item that starts the program at `path`, unless it has one.
void InstallLoginItemWithPath(std::string_view path);
// Removes every item whose program's file name (last path component) is
// `name`.
void RemoveLoginItemWithFileName(std::string_view name);
// Removes every item for the program at `path`.
void RemoveLoginItemWithPath(std::string_view path);
// Whether some item starts the program at `path`.
bool HasLoginItemWithPath(std::string_view path);

// ---- The XDG form, for tests and for anyone who writes entries.

// $XDG_CONFIG_HOME/autostart, or $HOME/.config/autostart.
std::filesystem::path autostartDirectory();

// One argument of an Exec line: quoted when it holds a reserved character
// (space, quotes, backslash, shell metacharacters), with '"', '`', '$' and
// '\' escaped inside the quotes; '%' doubled.
std::string quoteExecArgument(std::string_view argument);
// The arguments of an Exec value (already unescaped as a string value), or
// nothing when a quote is not closed. "%%" reads as "%".
std::optional<std::vector<std::string>> splitExecArguments(std::string_view exec);
// The program an autostart entry's text starts (its Exec line's first
// argument), or nothing when the entry is not an item: no Exec in the
// [Desktop Entry] group, an unclosed quote, or switched off.
std::optional<std::string> programOfEntryText(std::string_view text);
// The general escapes of a string value: "\\" "\n" "\t" "\r", and "\s" for a
// leading space.
std::string escapeDesktopValue(std::string_view value);
std::string unescapeDesktopValue(std::string_view value);

}  // namespace jorvane::LoginItem
