#pragma once

// The file manager's bookmarks as the running program offers them: the file
// is read on a worker whenever it may have changed (each time a bar opens),
// and the bookmarks whose name holds the typed words are looked up on the
// main thread from what was read last.
//
// Use from the main thread only; the worker's answers arrive on the main
// queue and are dropped once the object is gone.

#include <cstddef>
#include <filesystem>
#include <memory>
#include <string_view>
#include <vector>

#include "places/GtkBookmarks.h"

namespace jorvane::places {

class BookmarkList {
public:
    explicit BookmarkList(std::filesystem::path file = gtkBookmarksFile());
    ~BookmarkList();
    BookmarkList(const BookmarkList&) = delete;
    BookmarkList& operator=(const BookmarkList&) = delete;

    // Reads the file again on the worker when its size or time changed. A
    // file that is gone or cannot be read holds no bookmarks.
    void refresh();

    // At most `limit` local folders whose name (or, failing that, path)
    // holds the typed words in order, ignoring case; in the file's order.
    // Text without words matches none.
    std::vector<Bookmark> matching(std::string_view typed, std::size_t limit) const;

    // Waits for the worker (tests).
    void flush();

    const std::vector<Bookmark>& all() const { return bookmarks_; }

private:
    struct Worker;
    std::shared_ptr<Worker> worker_;
    std::vector<Bookmark> bookmarks_;
    std::shared_ptr<BookmarkList*> self_;
};

}  // namespace jorvane::places
