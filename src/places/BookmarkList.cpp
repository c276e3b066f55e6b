#include "places/BookmarkList.h"

#include <fstream>
#include <optional>
#include <sstream>
#include <system_error>
#include <utility>

#include "places/VisitHistory.h"
#include "util/Dispatch.h"

namespace jorvane::places {

namespace {

// A bookmarks file is a few lines; anything larger is not one.
constexpr std::uintmax_t kMaxFileSize = 1 << 20;

struct Stamp {
    std::uintmax_t size = 0;
    std::filesystem::file_time_type time{};
    bool operator==(const Stamp&) const = default;
};

}  // namespace

struct BookmarkList::Worker {
    explicit Worker(std::filesystem::path file) : file(std::move(file)) {}
    dispatch::OperationQueue queue{1};
    const std::filesystem::path file;
    std::optional<Stamp> lastRead;  // worker only
};

BookmarkList::BookmarkList(std::filesystem::path file)
    : worker_(std::make_shared<Worker>(std::move(file))), self_(std::make_shared<BookmarkList*>(this)) {}

BookmarkList::~BookmarkList() {
    self_.reset();
    worker_->queue.waitUntilAllOperationsAreFinished();
}

void BookmarkList::refresh() {
    // One read waiting is enough: a later one would read the same file.
    if (worker_->queue.operationCount() > 0) return;
    worker_->queue.addOperation([worker = worker_, weak = std::weak_ptr(self_)] {
        std::error_code error;
        Stamp stamp{std::filesystem::file_size(worker->file, error), {}};
        if (!error) stamp.time = std::filesystem::last_write_time(worker->file, error);
        if (error) stamp = {};
        if (worker->lastRead == stamp) return;
        worker->lastRead = stamp;
        std::vector<Bookmark> bookmarks;
        if (!error && stamp.size <= kMaxFileSize) {
            std::ifstream in(worker->file, std::ios::binary);
            std::ostringstream text;
            text << in.rdbuf();
            bookmarks = parseGtkBookmarks(text.str());
        }
        dispatch::performOnMainThread([weak, bookmarks = std::move(bookmarks)]() mutable {
            if (const auto self = weak.lock()) (*self)->bookmarks_ = std::move(bookmarks);
        });
    });
}

std::vector<Bookmark> BookmarkList::matching(std::string_view typed, std::size_t limit) const {
    std::vector<Bookmark> found;
    const TypedWords words(typed);
    if (words.empty()) return found;
    for (const Bookmark& bookmark : bookmarks_) {
        if (found.size() == limit) break;
        if (bookmark.place.kind != Place::Kind::path) continue;
        if (words.foundIn(bookmark.name) || words.foundIn(bookmark.place.text)) found.push_back(bookmark);
    }
    return found;
}

void BookmarkList::flush() { worker_->queue.waitUntilAllOperationsAreFinished(); }

}  // namespace jorvane::places
