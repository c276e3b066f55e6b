#pragma once

// The images the address bar shows: the search symbol (drawn here, so no
// image file has to ship), the icon of the item a path names (from the icon
// theme), and the program's own icon.

#include <QIcon>

#include <cstdint>
#include <functional>
#include <memory>
#include <string_view>

#include "addressbar/PathWindowViews.h"

namespace jorvane::ui {

// A magnifying glass, light on the bar's dark background.
QIcon searchIcon();
// The icon of the item at `path` (bytes): the theme's folder icon for a
// folder, the type icon for a file, the trash or a remote folder for such
// locations, a plain folder when nothing else fits.
QIcon iconForPath(std::string_view path);
// The icon for a BarImage; a null icon for none.
QIcon iconFor(const BarImage& image);
// Shows the icon of a BarImage through `apply` (on the main thread). The
// icon of a file needs a look at the file, which may block on a file system
// that does not answer: a plain folder stands in at once, and the file's own
// icon follows from a worker, unless another image was shown meanwhile.
class IconLookup : public std::enable_shared_from_this<IconLookup> {
public:
    void show(const BarImage& image, std::function<void(const QIcon&)> apply);

private:
    std::uint64_t serial_ = 0;
};

// The application's window icon when one is set, else Jorvane's own (an
// address bar over a folder), drawn here.
QIcon applicationIcon();

}  // namespace jorvane::ui
