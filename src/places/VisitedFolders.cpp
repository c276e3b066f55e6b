#include "places/VisitedFolders.h"

#include <chrono>
#include <system_error>
#include <utility>

#include "util/Dispatch.h"
#include "util/FileSystemProbe.h"

namespace jorvane::places {

namespace {

// Whether the path is a folder: nothing when the file system has not said
// within a second (a network folder whose server went away), so that one
// such folder never holds up the saves and checks queued behind it.
std::optional<bool> isFolder(const std::string& path) {
    return FileSystemProbe::isDirectory(path, std::chrono::seconds(1));
}

}  // namespace

// Everything that touches the disk, one thing after another.
struct VisitedFolders::Worker {
    explicit Worker(std::filesystem::path file) : file(std::move(file)) {}
    dispatch::OperationQueue queue{1};
    HistoryFile file;
    std::unique_ptr<dispatch::TimerSource> saveTimer;
};

VisitedFolders::VisitedFolders(Options options)
    : options_(std::move(options)),
      worker_(std::make_shared<Worker>(options_.file)),
      self_(std::make_shared<VisitedFolders*>(this)) {
    worker_->saveTimer = std::make_unique<dispatch::TimerSource>(dispatch::mainQueue(), [weak = std::weak_ptr(self_)] {
        if (const auto self = weak.lock()) (*self)->save();
    });
}

VisitedFolders::~VisitedFolders() {
    self_.reset();
    worker_->saveTimer.reset();
    worker_->queue.waitUntilAllOperationsAreFinished();
}

UnixSeconds VisitedFolders::now() const {
    if (options_.now) return options_.now();
    return std::chrono::duration_cast<std::chrono::seconds>(std::chrono::system_clock::now().time_since_epoch())
        .count();
}

bool VisitedFolders::remembering() const { return !options_.remembering || options_.remembering(); }

void VisitedFolders::load() {
    worker_->queue.addOperation([worker = worker_, weak = std::weak_ptr(self_)] {
        HistoryFile::Loaded loaded = worker->file.load();
        dispatch::performOnMainThread([weak, loaded = std::move(loaded)]() mutable {
            if (const auto self = weak.lock()) (*self)->loadFinished(std::move(loaded));
        });
    });
}

void VisitedFolders::loadFinished(HistoryFile::Loaded loaded) {
    if (options_.warn) {
        for (const std::string& warning : loaded.warnings) options_.warn(warning);
    }
    // Visits counted while the file was read come on top of what it holds,
    // unless the user asked to forget everything meanwhile.
    if (forgotten_) loaded.history.clear();
    const bool visitedMeanwhile = !history_.empty() || forgotten_;
    for (const VisitedFolder& folder : history_.folders()) loaded.history.add(folder);
    history_ = std::move(loaded.history);
    loaded_ = true;
    if (visitedMeanwhile) changed();
}

void VisitedFolders::visit(std::string folder) {
    if (!remembering()) return;
    const UnixSeconds when = now();
    worker_->queue.addOperation([folder = std::move(folder), when, weak = std::weak_ptr(self_)] {
        if (!isFolder(folder).value_or(false)) return;
        dispatch::performOnMainThread([weak, folder, when] {
            const auto self = weak.lock();
            // The preference may have been turned off meanwhile.
            if (!self || !(*self)->remembering()) return;
            if ((*self)->history_.visit(folder, when)) (*self)->changed();
        });
    });
}

std::vector<std::string> VisitedFolders::matching(std::string_view typed, std::size_t limit) {
    std::vector<std::string> paths;
    for (RankedFolder& ranked : history_.query(typed, now(), limit)) paths.push_back(std::move(ranked.path));
    // Folders that are gone are dropped before the next query. Every
    // keystroke queries: a folder is looked at again only after a while.
    const UnixSeconds at = now();
    std::vector<std::string> unchecked;
    for (const std::string& path : paths) {
        auto [checked, fresh] = checkedAt_.try_emplace(path, at);
        if (!fresh && at - checked->second < kRecheckAfter) continue;
        checked->second = at;
        unchecked.push_back(path);
    }
    if (unchecked.empty()) return paths;
    worker_->queue.addOperation([unchecked = std::move(unchecked), weak = std::weak_ptr(self_)] {
        std::vector<std::string> gone;
        for (const std::string& path : unchecked) {
            // One that does not answer is not gone: it may come back.
            if (!isFolder(path).value_or(true)) gone.push_back(path);
        }
        if (gone.empty()) return;
        dispatch::performOnMainThread([weak, gone = std::move(gone)] {
            const auto self = weak.lock();
            if (!self) return;
            bool removed = false;
            for (const std::string& path : gone) removed = (*self)->history_.remove(path) || removed;
            if (removed) (*self)->changed();
        });
    });
    return paths;
}

void VisitedFolders::forget() {
    history_.clear();
    checkedAt_.clear();
    if (!loaded_) forgotten_ = true;
    changed();
}

void VisitedFolders::changed() {
    // Nothing is written before the file has been read: a save would put a
    // part of the history over the whole of it.
    if (!loaded_) return;
    const dispatch::TimePoint at = dispatch::timeSource().now();
    limiter_.changed(at);
    const dispatch::TimePoint due = *limiter_.saveDueAt();
    if (due <= at) {
        save();
    } else {
        worker_->saveTimer->setTimer(due - at, std::chrono::milliseconds(100));
    }
}

void VisitedFolders::save() {
    if (!limiter_.saveDueAt()) return;
    limiter_.saving(dispatch::timeSource().now());
    worker_->queue.addOperation([worker = worker_, history = history_, weak = std::weak_ptr(self_)] {
        const std::string failure = worker->file.save(history);
        if (failure.empty()) return;
        dispatch::performOnMainThread([weak, failure] {
            const auto self = weak.lock();
            if (self && (*self)->options_.warn)
                (*self)->options_.warn("The visited folders were not saved: " + failure);
        });
    });
}

void VisitedFolders::flush() {
    if (loaded_ && limiter_.saveDueAt()) {
        worker_->saveTimer->disarm();
        save();
    }
    worker_->queue.waitUntilAllOperationsAreFinished();
}

}  // namespace jorvane::places
