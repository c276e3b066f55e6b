// Fuzzes the reading of typed and pasted place text and of the GTK
// bookmarks file.
//
// Any bytes as typed text, for navigation and for completion: nothing
// crashes; a path read for navigation that is absolute has no doubled slash
// and no "." or ".." component, and is read back unchanged; a location is
// the text itself. The same bytes as a bookmarks file give absolute paths
// and locations only.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "places/GtkBookmarks.h"
#include "places/PlaceText.h"
#include "util/Paths.h"

using namespace jorvane::places;
namespace paths = jorvane::paths;

namespace {

[[noreturn]] void fail(const char* what) {
    std::fprintf(stderr, "property violated: %s\n", what);
    std::abort();
}

#define CHECK(cond)               \
    do {                          \
        if (!(cond)) fail(#cond); \
    } while (0)

const PlaceLookups& lookups() {
    static const PlaceLookups fixed = [] {
        PlaceLookups l;
        l.variable = [](std::string_view name) -> std::optional<std::string> {
            if (name == "HOME") return "/home/u";
            if (name == "EMPTY") return "";
            if (name == "ODD") return "a b/../'c\"$HOME";
            return std::nullopt;
        };
        l.home = [](std::string_view user) -> std::optional<std::string> {
            if (user.empty()) return "/home/u";
            if (user == "bob") return "/b";
            return std::nullopt;
        };
        return l;
    }();
    return fixed;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view input(reinterpret_cast<const char*>(data), size);

    const Place place = interpretPlaceText(input, lookups(), PlaceUse::navigation);
    interpretPlaceText(input, lookups(), PlaceUse::completion);
    if (place.kind == Place::Kind::path && !place.text.empty() && place.text.front() == '/') {
        CHECK(place.text.find("//") == std::string::npos);
        for (const std::string& part : paths::pathComponents(place.text)) CHECK(part != "." && part != "..");
        // A tidy absolute path without anything to expand or unquote reads back as itself.
        if (place.text.find_first_of("$'\"\\\r\n") == std::string::npos && !place.text.starts_with("/file:")) {
            CHECK(interpretPlaceText(place.text, lookups()) == place);
        }
    }
    if (place.kind == Place::Kind::location) CHECK(isLocationUrl(place.text));

    for (const Bookmark& bookmark : parseGtkBookmarks(input)) {
        if (bookmark.place.kind == Place::Kind::path) {
            CHECK(!bookmark.place.text.empty() && bookmark.place.text.front() == '/');
            CHECK(bookmark.place.text.find('\0') == std::string::npos);
        } else {
            CHECK(bookmark.place.kind == Place::Kind::location && isLocationUrl(bookmark.place.text));
        }
    }
    return 0;
}
