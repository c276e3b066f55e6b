#include "places/PlaceText.h"

#include <gtest/gtest.h>

#include <map>

#include "unit/TableSupport.h"

using namespace jorvane::places;
using jorvane::test::SentenceName;

namespace jorvane::places {
void PrintTo(const Place& place, std::ostream* out) {
    static const char* const kinds[] = {"path", "location", "invalid"};
    *out << kinds[static_cast<int>(place.kind)] << " \"" << place.text << "\"";
}
}  // namespace jorvane::places

namespace {

// HOME=/home/ann, PROJ=/srv/projects, EMPTY="", SPACED="/a b"; users ann and bob.
PlaceLookups testLookups() {
    PlaceLookups lookups;
    lookups.variable = [](std::string_view name) -> std::optional<std::string> {
        static const std::map<std::string, std::string, std::less<>> env = {
            {"HOME", "/home/ann"}, {"PROJ", "/srv/projects"}, {"EMPTY", ""}, {"SPACED", "/a b"}};
        const auto it = env.find(name);
        if (it == env.end()) return std::nullopt;
        return it->second;
    };
    lookups.home = [](std::string_view user) -> std::optional<std::string> {
        if (user.empty() || user == "ann") return "/home/ann";
        if (user == "bob") return "/users/bob";
        return std::nullopt;
    };
    return lookups;
}

struct Row {
    const char* name;
    std::string typed;
    Place::Kind kind;
    std::string expected;
    PlaceUse use = PlaceUse::navigation;
};

class PlaceTextReading : public testing::TestWithParam<Row> {};

TEST_P(PlaceTextReading, GivesThePlaceMeant) {
    const Place place = interpretPlaceText(GetParam().typed, testLookups(), GetParam().use);
    EXPECT_EQ(place, (Place{GetParam().kind, GetParam().expected}));
}

constexpr auto path = Place::Kind::path;
constexpr auto location = Place::Kind::location;
constexpr auto invalid = Place::Kind::invalid;

INSTANTIATE_TEST_SUITE_P(Plain, PlaceTextReading,
                         testing::Values(Row{"an ordinary path stays", "/usr/share/doc", path, "/usr/share/doc"},
                                         Row{"a trailing slash stays", "/usr/share/", path, "/usr/share/"},
                                         Row{"a relative name stays relative", "Documents/x", path, "Documents/x"},
                                         Row{"spaces around a plain name are part of it", " name ", path, " name "},
                                         Row{"a pasted line break goes", "/tmp/x\n", path, "/tmp/x"},
                                         Row{"an empty text stays empty", "", path, ""},
                                         Row{"a NUL byte is invalid", std::string("/tmp/a\0b", 8), invalid,
                                             std::string("/tmp/a\0b", 8)}),
                         SentenceName{});

INSTANTIATE_TEST_SUITE_P(Expansion, PlaceTextReading,
                         testing::Values(Row{"tilde is the home folder", "~/Documents", path, "/home/ann/Documents"},
                                         Row{"tilde alone", "~", path, "/home/ann"},
                                         Row{"tilde and a user", "~bob/src", path, "/users/bob/src"},
                                         Row{"an unknown user stays as typed", "~nobody/src", path, "~nobody/src"},
                                         Row{"tilde inside a name is a letter", "/tmp/a~b", path, "/tmp/a~b"},
                                         Row{"a variable", "$PROJ/web", path, "/srv/projects/web"},
                                         Row{"a variable in braces", "${HOME}/x", path, "/home/ann/x"},
                                         Row{"braces let letters follow", "/mnt/${EMPTY}data", path, "/mnt/data"},
                                         Row{"an unset variable stays as typed", "$NOPE/x", path, "$NOPE/x"},
                                         Row{"an unclosed brace stays as typed", "${HOME/x", path, "${HOME/x"},
                                         Row{"a lone dollar stays", "/tmp/$", path, "/tmp/$"},
                                         Row{"a dollar before a digit stays", "/tmp/$1", path, "/tmp/$1"},
                                         Row{"a variable set to nothing expands to nothing", "$EMPTY/tmp", path,
                                             "/tmp"}),
                         SentenceName{});

INSTANTIATE_TEST_SUITE_P(Dots, PlaceTextReading,
                         testing::Values(Row{"dot and dot dot are resolved", "/a/./b/../c", path, "/a/c"},
                                         Row{"dot dot above the root is the root", "/../..", path, "/"},
                                         Row{"doubled slashes fold", "//a///b", path, "/a/b"},
                                         Row{"relative leading dot dot is kept", "../../x/./y", path, "../../x/y"},
                                         Row{"relative dot dot cancels a name", "a/../b", path, "b"},
                                         Row{"expanded then resolved", "~/../bob", path, "/home/bob"},
                                         Row{"for completion a last dot is kept", "/home/ann/.", path, "/home/ann/.",
                                             PlaceUse::completion},
                                         Row{"for completion a last dot dot name is kept", "/a/b/..c", path, "/a/b/..c",
                                             PlaceUse::completion},
                                         Row{"for completion earlier dot dots are resolved", "/a/b/../c", path, "/a/c",
                                             PlaceUse::completion},
                                         Row{"for navigation a last dot dot climbs", "/a/b/..", path, "/a"}),
                         SentenceName{});

INSTANTIATE_TEST_SUITE_P(
    Quoting, PlaceTextReading,
    testing::Values(Row{"single quotes are literal", "'/tmp/My Files/$HOME'", path, "/tmp/My Files/$HOME"},
                    Row{"double quotes expand variables", "\"$HOME/My Files\"", path, "/home/ann/My Files"},
                    Row{"double quotes take escapes", "\"/tmp/say \\\"hi\\\"\"", path, "/tmp/say \"hi\""},
                    Row{"an escaped dollar in double quotes is a dollar", "\"/tmp/\\$HOME\"", path, "/tmp/$HOME"},
                    Row{"the shell's quote of a quote", "'/tmp/it'\\''s'", path, "/tmp/it's"},
                    Row{"escaped spaces", "/tmp/My\\ Files/a\\ b", path, "/tmp/My Files/a b"},
                    Row{"tilde before escaped spaces", "~/My\\ Files", path, "/home/ann/My Files"},
                    Row{"spaces around quotes go", "  '/tmp/a b'  \n", path, "/tmp/a b"},
                    Row{"one blank after a quote goes", "'/tmp/a b' ", path, "/tmp/a b"},
                    Row{"an unclosed quote is plain text", "'/tmp/a", path, "'/tmp/a"},
                    Row{"an escaped quote at the end closes nothing", "\"/tmp/a\\\"", path, "\"/tmp/a\\\""},
                    Row{"two quoted words are plain text", "'/a' '/b'", path, "'/a' '/b'"},
                    Row{"a backslash without an escaped space is a letter", "/tmp/a\\b", path, "/tmp/a\\b"},
                    Row{"a quoted URL is a URL", "'sftp://host/a b'", location, "sftp://host/a b"}),
    SentenceName{});

INSTANTIATE_TEST_SUITE_P(
    FileUri, PlaceTextReading,
    testing::Values(Row{"percent escapes are decoded", "file:///home/ann/My%20Files", path, "/home/ann/My Files"},
                    Row{"a byte that is not UTF-8", "file:///tmp/caf%E9", path, "/tmp/caf\xE9"},
                    Row{"lower-case escapes", "file:///tmp/caf%e9%2f", path, "/tmp/caf\xE9/"},
                    Row{"an escape cut short at the end stays", "file:///tmp/a%4", path, "/tmp/a%4"},
                    Row{"UTF-8 escapes", "file:///tmp/%C3%A4", path, "/tmp/\xC3\xA4"},
                    Row{"localhost is this machine", "file://localhost/etc", path, "/etc"},
                    Row{"a malformed escape stays", "file:///tmp/100%zz", path, "/tmp/100%zz"},
                    Row{"no expansion inside", "file:///tmp/$HOME~", path, "/tmp/$HOME~"},
                    Row{"dots resolved after decoding", "file:///a/b/%2E%2E/c", path, "/a/c"},
                    Row{"a NUL byte is invalid", "file:///tmp/a%00b", invalid, "file:///tmp/a%00b"},
                    Row{"another host is invalid", "file://server/share", invalid, "file://server/share"}),
    SentenceName{});

// clang-format off
INSTANTIATE_TEST_SUITE_P(Locations, PlaceTextReading, testing::Values(
    Row{"sftp", "sftp://ann@host/srv", location, "sftp://ann@host/srv"}, Row{"ssh", "ssh://host", location, "ssh://host"},
    Row{"smb", "smb://nas/share", location, "smb://nas/share"}, Row{"ftps", "ftps://host/", location, "ftps://host/"},
    Row{"davs", "davs://host/dav", location, "davs://host/dav"}, Row{"nfs", "nfs://host/export", location, "nfs://host/export"},
    Row{"https", "https://host/dav/", location, "https://host/dav/"}, Row{"mtp", "mtp://Phone/", location, "mtp://Phone/"},
    Row{"trash", "trash:///", location, "trash:///"}, Row{"recent", "recent:///", location, "recent:///"},
    Row{"network", "network:///", location, "network:///"},
    Row{"a percent escape in a URL stays", "smb://nas/My%20Share", location, "smb://nas/My%20Share"},
    Row{"an upper case scheme is a name", "FTP://host", path, "FTP:/host"},
    Row{"a scheme without slashes is a name", "https:x", path, "https:x"},
    Row{"an unknown scheme is a name", "gopher://host", path, "gopher:/host"}),
    SentenceName{});
// clang-format on

TEST(PlaceText, FileUriPathIsReadOnlyFromLocalFileUris) {
    EXPECT_EQ(pathOfFileUri("file:///a%2Fb"), "/a/b");
    EXPECT_EQ(pathOfFileUri("file://"), std::nullopt);
    EXPECT_EQ(pathOfFileUri("sftp://host/x"), std::nullopt);
}

}  // namespace
