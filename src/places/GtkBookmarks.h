#pragma once

// The bookmarks that Thunar and the other GTK file managers keep in
// $XDG_CONFIG_HOME/gtk-3.0/bookmarks: one per line, a URI and an optional
// label after the first space ("file:///home/ann/My%20Files Files").

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "places/PlaceText.h"

namespace jorvane::places {

struct Bookmark {
    std::string name;  // the label, else the folder's last component, else the URI
    Place place;       // a local path (from a file URI) or a location URL
    bool operator==(const Bookmark&) const = default;
};

// $XDG_CONFIG_HOME/gtk-3.0/bookmarks when the variable holds an absolute
// path, else ~/.config/gtk-3.0/bookmarks.
std::filesystem::path gtkBookmarksFile();

// The bookmarks in file order. Lines that name no place this program can
// show (other schemes, file URIs of other hosts, empty lines) are skipped.
// A trailing carriage return is dropped. Never fails.
std::vector<Bookmark> parseGtkBookmarks(std::string_view text);

}  // namespace jorvane::places
