#pragma once

// Text rules of Thunar 4.18 that the handler catalogue relies on: how a
// window's title names its folder, how Thunar displays names that are not
// UTF-8, how its status bar names a single selected item, and which windows
// are browser windows. Pure functions, no toolkit: the tests check them
// without a display.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "filemanager/HandlerNames.h"

namespace jorvane::thunar {

// The folder a browser window shows, from its title. With xfconf
// /misc-full-path-in-window-title set Thunar writes "<path> - Thunar", or
// "file:///<escaped path> - Thunar" when the path is not UTF-8. Locations that
// are no local folder ("trash:///", "network:///") and titles without a full
// path give nothing.
std::optional<std::string> folderFromTitle(std::string_view title);

// The title text before Thunar's " - Thunar" suffix (the whole title when
// there is no suffix).
std::string_view titleLocation(std::string_view title);

// Decodes %XX escapes; nothing when an escape is malformed. The result may
// hold any byte except NUL.
std::optional<std::string> percentDecode(std::string_view text);

// Whether the bytes are well-formed UTF-8 by GLib's rules: no overlong forms,
// no surrogates, nothing above U+10FFFF, no NUL.
bool isValidUtf8(std::string_view bytes);

// GLib's repair of a file name for display: every byte that does not start
// a well-formed sequence becomes U+FFFD.
std::string makeValidUtf8(std::string_view bytes);

// Whether a name that Thunar displays (in its views, tooltips, status bar)
// stands for the file whose name has these bytes. Thunar shows names that
// are not UTF-8 repaired and followed by a translated " (invalid encoding)".
bool displayedNameMatches(std::string_view displayed, std::string_view rawName);

// Splits select_names's list of names at handlers::itemSeparator. Empty names are
// dropped, and so is one leading "/" that the caller left when it cut the
// folder off a pattern, and a trailing "/" that marks a folder.
std::vector<std::string> splitItemList(std::string_view joined);

// A path without its trailing "/" characters ("/" stays "/").
std::string withoutTrailingSlash(std::string_view path);

// The parent folder and the last component of an absolute path, after
// trailing "/" are removed. Nothing for "/" itself or a relative path.
struct PathSplit {
    std::string parent;
    std::string name;
};
std::optional<PathSplit> splitParent(std::string_view path);

// The name of the one selected item from the status bar, which Thunar writes
// as "\"<name>\"  |  <size>  |  <type>" (the quotes depend on the language).
// The candidates are the raw names of the folder's entries; the longest one
// whose displayed form is quoted at the start of the text wins. Nothing when
// no candidate fits (no selection, or several items selected).
std::optional<std::string> selectedNameFromStatus(std::string_view status, const std::vector<std::string>& candidates);

// Removes the mnemonic underscores of a GTK label ("_Icon View" -> "Icon View",
// "__" -> "_").
std::string stripMnemonic(std::string_view label);

// The properties of an X client window that tell Thunar's windows apart.
struct WindowTraits {
    std::string wmClassInstance;  // first string of WM_CLASS ("thunar")
    std::string wmClassName;      // second string of WM_CLASS ("Thunar")
    std::string role;             // WM_WINDOW_ROLE
    bool typeNormal = true;       // _NET_WM_WINDOW_TYPE is NORMAL, or missing
    bool transient = false;       // WM_TRANSIENT_FOR is set
};

// Any window of Thunar's process: WM_CLASS "Thunar".
bool isThunarWindow(const WindowTraits& traits);
// A browser window that shows a folder: Thunar's, of type NORMAL, not
// transient, with a WM_WINDOW_ROLE "Thunar-..." (dialogs have other roles).
bool isThunarBrowserWindow(const WindowTraits& traits);

}  // namespace jorvane::thunar
