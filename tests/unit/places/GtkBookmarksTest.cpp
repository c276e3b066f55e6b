#include "places/GtkBookmarks.h"

#include "fakes/TestSupport.h"
#include "places/BookmarkList.h"
#include "util/Dispatch.h"

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
    for (const auto& [xdg, file] : {std::pair<std::optional<std::string>, const char*>{"/srv/conf", "/srv/conf"},
                                    {std::nullopt, "/home/ann/.config"}}) {
        jorvane::test::ScopedEnv config("XDG_CONFIG_HOME", xdg);
        EXPECT_EQ(gtkBookmarksFile(), std::string(file) + "/gtk-3.0/bookmarks");
    }
}

using jorvane::places::BookmarkList;

std::vector<std::string> namesMatching(BookmarkList& list, std::string_view typed) {
    list.refresh();
    list.flush();
    jorvane::dispatch::mainQueue().drain();
    std::vector<std::string> names;
    for (const Bookmark& bookmark : list.matching(typed, 5)) names.push_back(bookmark.name);
    return names;
}

TEST(BookmarkList, FollowsTheFileAndMatchesWordsOfNameOrFolderInOrder) {
    const jorvane::test::TempDir dir;
    BookmarkList list(dir.path() / "bookmarks");
    using Names = std::vector<std::string>;
    EXPECT_EQ(namesMatching(list, "work"), Names{}) << "no file holds no bookmarks";

    dir.file("bookmarks",
             "file:///home/ann/Projects/2026 Work this year\nfile:///srv/Music Tunes\n"
             "sftp://host/work Work server\n");
    EXPECT_EQ(namesMatching(list, "WORK year"), Names{"Work this year"});
    EXPECT_EQ(namesMatching(list, "year work"), Names{}) << "words in the order typed";
    EXPECT_EQ(namesMatching(list, "srv mus"), Names{"Tunes"}) << "words of the folder";
    EXPECT_EQ(namesMatching(list, "  "), Names{}) << "no words, no bookmarks";
    EXPECT_EQ(namesMatching(list, "w"), Names{"Work this year"}) << "a word at a name's very start";

    // A changed file is read again (a size that differs, whatever the clock).
    dir.file("bookmarks", "file:///home/ann/Projects/2026 Work\n");
    EXPECT_EQ(namesMatching(list, "work"), Names{"Work"});
    // Up to a mebibyte it is read; over it, it is no bookmarks file, whatever it holds.
    std::string full = "file:///home/ann/Projects/2026 Work\n";
    full.resize(1 << 20, '\n');
    dir.file("bookmarks", full);
    EXPECT_EQ(namesMatching(list, "work"), Names{"Work"});
    dir.file("bookmarks", "file:///home/ann/Projects/2026 Work\n" + std::string(1 << 20, '\n'));
    EXPECT_EQ(namesMatching(list, "work"), Names{});
    std::filesystem::remove(dir.path() / "bookmarks");
    EXPECT_EQ(namesMatching(list, "work"), Names{});
}

}  // namespace
