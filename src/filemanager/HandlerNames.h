#pragma once

// The names of the file manager's handlers, with the parameters each is
// given. The core calls them through FileManagerCommands; the adapters that
// implement a catalogue answer to the same names.

#include <array>
#include <string_view>

namespace jorvane::handlers {

inline constexpr std::string_view folderPath = "folder_path";           // none -> folder of the front window
inline constexpr std::string_view selectedItem = "selected_item";       // none -> selected item's path
inline constexpr std::string_view isFolderWindow = "is_folder_window";  // none -> notFolderWindow or other
inline constexpr std::string_view showFolder = "show_folder";           // [directory]
inline constexpr std::string_view reveal = "reveal";                    // [path]
inline constexpr std::string_view revealInCurrentFolder = "reveal_in_current_folder";  // [name]
inline constexpr std::string_view selectNames = "select_names";                        // [directory, names joined]
inline constexpr std::string_view mount = "mount";                                     // [URL]
inline constexpr std::string_view newWindow = "new_window";                            // [text of the path field]
inline constexpr std::string_view closeWindow = "close_window";                        // none
inline constexpr std::string_view reload = "reload";                                   // none
inline constexpr std::string_view iconView = "icon_view";                              // none
inline constexpr std::string_view listView = "list_view";                              // none
inline constexpr std::string_view columnView = "column_view";                          // none
inline constexpr std::string_view galleryView = "gallery_view";                        // none
inline constexpr std::string_view openTerminal = "open_terminal";                      // [path]

inline constexpr std::array all = {
    folderPath,  selectedItem, isFolderWindow, showFolder,   reveal, revealInCurrentFolder,
    selectNames, mount,        newWindow,      closeWindow,  reload, iconView,
    listView,    columnView,   galleryView,    openTerminal,
};

// Joins the names of select_names's second parameter.
inline constexpr std::string_view itemSeparator = "|!|";
// The only answer of is_folder_window that means "not a browser window"; any
// other answer, nothing included, means it is one.
inline constexpr std::string_view notFolderWindow = "NO";

}  // namespace jorvane::handlers
