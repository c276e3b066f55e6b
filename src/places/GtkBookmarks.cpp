#include "places/GtkBookmarks.h"

#include <cstdlib>

#include "util/Paths.h"

namespace jorvane::places {

std::filesystem::path gtkBookmarksFile() {
    if (const char* config = std::getenv("XDG_CONFIG_HOME"); config && config[0] == '/') {
        return std::filesystem::path(config) / "gtk-3.0" / "bookmarks";
    }
    std::string home = paths::stringByExpandingTildeInPath("~");
    if (home == "~") home = ".";
    return std::filesystem::path(home) / ".config" / "gtk-3.0" / "bookmarks";
}

std::vector<Bookmark> parseGtkBookmarks(std::string_view text) {
    std::vector<Bookmark> bookmarks;
    std::size_t pos = 0;
    while (pos < text.size()) {
        std::size_t end = text.find('\n', pos);
        if (end == std::string_view::npos) end = text.size();
        std::string_view line = text.substr(pos, end - pos);
        pos = end + 1;
        if (line.ends_with('\r')) line.remove_suffix(1);
        const std::size_t space = line.find(' ');
        const std::string_view uri = line.substr(0, space);
        const std::string_view label = space == std::string_view::npos ? std::string_view{} : line.substr(space + 1);

        Bookmark bookmark;
        if (std::optional<std::string> path = pathOfFileUri(uri)) {
            bookmark.place = Place{Place::Kind::path, std::move(*path)};
            bookmark.name = paths::lastPathComponent(bookmark.place.text);
        } else if (isLocationUrl(uri)) {
            bookmark.place = Place{Place::Kind::location, std::string(uri)};
            bookmark.name = std::string(uri);
        } else {
            continue;
        }
        if (!label.empty()) bookmark.name = std::string(label);
        bookmarks.push_back(std::move(bookmark));
    }
    return bookmarks;
}

}  // namespace jorvane::places
