#include "places/GtkBookmarks.h"

#include <gtest/gtest.h>

#include "unit/ScopedEnv.h"

using namespace jorvane::places;

namespace {

TEST(GtkBookmarks, ReadsLabelsFoldersAndLocationsAndSkipsTheRest) {
    const std::string text =
        "file:///home/ann/My%20Files\n"
        "file:///home/ann/Projects/2026 Work this year\r\n"
        "\n"
        "sftp://ann@host/srv Server\n"
        "file:///srv/caf%E9\n"
        "computer:/// Computer\n"
        "file://other-host/share Elsewhere\n"
        "file:///\n"
        "smb://nas/share";
    const std::vector<Bookmark> expected = {
        {"My Files", {Place::Kind::path, "/home/ann/My Files"}},
        {"Work this year", {Place::Kind::path, "/home/ann/Projects/2026"}},
        {"Server", {Place::Kind::location, "sftp://ann@host/srv"}},
        {"caf\xE9", {Place::Kind::path, "/srv/caf\xE9"}},
        {"/", {Place::Kind::path, "/"}},
        {"smb://nas/share", {Place::Kind::location, "smb://nas/share"}},
    };
    EXPECT_EQ(parseGtkBookmarks(text), expected);
}

TEST(GtkBookmarks, FileFollowsXdgConfigHome) {
    jorvane::test::ScopedEnv home("HOME", "/home/ann");
    {
        jorvane::test::ScopedEnv xdg("XDG_CONFIG_HOME", "/srv/conf");
        EXPECT_EQ(gtkBookmarksFile(), "/srv/conf/gtk-3.0/bookmarks");
    }
    jorvane::test::ScopedEnv xdg("XDG_CONFIG_HOME", std::nullopt);
    EXPECT_EQ(gtkBookmarksFile(), "/home/ann/.config/gtk-3.0/bookmarks");
}

}  // namespace
