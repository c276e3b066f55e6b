#include "addressbar/CompletionEngine.h"

#include "addressbar/NameFilter.h"
#include "places/FuzzyMatch.h"
#include "util/Dispatch.h"
#include "util/Paths.h"

#include <dirent.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <mutex>

namespace jorvane {

namespace {

bool hasWildcard(std::string_view text) { return text.find_first_of("*?") != std::string_view::npos; }

// Shortest first; equal lengths keep their order. A counting sort on the
// length: the list may hold a whole folder, and lengths span a short range.
void sortByLength(std::vector<std::string>& strings) {
    if (strings.size() < 2) return;
    std::size_t shortest = strings.front().size();
    std::size_t longest = shortest;
    for (const auto& s : strings) {
        shortest = std::min(shortest, s.size());
        longest = std::max(longest, s.size());
    }
    if (shortest == longest) return;
    if (longest - shortest > 65536) {
        std::stable_sort(strings.begin(), strings.end(),
                         [](const std::string& a, const std::string& b) { return a.size() < b.size(); });
        return;
    }
    std::vector<std::size_t> next(longest - shortest + 2, 0);
    for (const auto& s : strings) ++next[s.size() - shortest + 1];
    for (std::size_t i = 1; i < next.size(); ++i) next[i] += next[i - 1];
    std::vector<std::string> sorted(strings.size());
    for (auto& s : strings) sorted[next[s.size() - shortest]++] = std::move(s);
    strings.swap(sorted);
}

}  // namespace

struct CompletionEngine::FolderLoad {
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<std::shared_ptr<const DirectoryListing>> batches;
    bool finished = false;
    bool failed = false;
    // Nobody wants the rest of the folder any more: the reader stops.
    std::atomic<bool> abandoned{false};
};

namespace {

struct Answer {
    std::vector<std::string> candidates;
    CompletionEngine::Progress progress = CompletionEngine::Progress::complete;
    bool unreadable = false;
    bool similar = false;
};

}  // namespace

struct CompletionEngine::Request {
    std::string text;       // as typed
    std::string shownBase;  // what candidates begin with: "" for names in the file manager's folder
    std::string prefix;     // the last component: what names must match
    bool absolute = false;
    std::shared_ptr<FolderLoad> load;
    std::atomic<bool> cancelled{false};
    // The folder has given nothing new for stallAfter (under the load's
    // lock): the stall check's word to the worker.
    bool stallDue = false;

    std::mutex mutex;
    std::condition_variable ready;
    std::optional<Answer> latest;  // the newest answer the main thread has not taken
    bool finished = false;         // the final answer has been given
    bool deliveryQueued = false;
};

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kFreeOnWorkerAbove = 4096;

// Names of the request's folder that hold the typed letters in order, best
// first, for a text that begins no name: a typo, or a few letters of the
// name's words ("rprt" finds "Reports/"). Hidden names only for text that
// begins with ".".
std::vector<std::string> similarNames(const CompletionEngine::Request& request) {
    std::vector<std::shared_ptr<const DirectoryListing>> batches;
    {
        std::lock_guard lock(request.load->mutex);
        batches = request.load->batches;
    }
    const bool hidden = request.prefix.starts_with('.');
    std::vector<std::string> names;
    std::vector<bool> folders;
    for (const auto& batch : batches) {
        for (std::size_t i = 0; i < batch->size(); ++i) {
            const std::string_view name = batch->name(i);
            if (!hidden && name.starts_with('.')) continue;
            names.emplace_back(name);
            folders.push_back(batch->type(i) == DT_DIR);
        }
    }
    std::vector<std::string> similar;
    for (const places::FuzzyHit& hit : places::rankFuzzy(names, request.prefix, CompletionEngine::kMaxSimilarNames)) {
        similar.push_back(request.shownBase + names[hit.index] + (folders[hit.index] ? "/" : ""));
    }
    return similar;
}

// The worker's part of one request: filters the folder's batches as they
// arrive and hands over the grown answer now and then, the final one always.
void runRequest(const std::shared_ptr<CompletionEngine::Request>& request, const CompletionEngine::Options& options,
                const std::weak_ptr<CompletionEngine*>& engine,
                void (*deliver)(const std::weak_ptr<CompletionEngine*>&,
                                const std::shared_ptr<CompletionEngine::Request>&)) {
    CompletionEngine::FolderLoad& load = *request->load;
    const NameFilter filter(request->prefix);
    std::vector<std::string> found;
    // A pattern is offered as a candidate of its own (Return selects all its
    // matches); it takes part in the sort like the others.
    if (filter.hasWildcard()) found.push_back(request->shownBase + request->prefix);
    const std::string& base = request->shownBase;

    const auto hand = [&](Answer answer, bool final) {
        bool queueDelivery = false;
        {
            std::lock_guard lock(request->mutex);
            request->latest = std::move(answer);
            request->finished = final;
            queueDelivery = !std::exchange(request->deliveryQueued, true);
        }
        request->ready.notify_all();
        if (queueDelivery) dispatch::performOnMainThread([engine, request, deliver] { deliver(engine, request); });
    };
    const auto publish = [&](CompletionEngine::Progress progress, bool unreadable, bool final) {
        Answer answer;
        if (unreadable) {
            if (filter.hasWildcard()) answer.candidates.push_back(request->shownBase + request->prefix);
        } else if (final) {
            answer.candidates = std::move(found);
        } else {
            answer.candidates = found;
        }
        sortByLength(answer.candidates);
        answer.progress = progress;
        answer.unreadable = unreadable;
        hand(std::move(answer), final);
    };

    // Kept across entries and batches on purpose: an entry whose lookup
    // failed (a dangling link) keeps the answer of the accepted entry before it.
    bool isDirectory = false;
    std::size_t seen = 0;
    bool published = false;
    bool stalled = false;
    dispatch::TimePoint lastPublished = dispatch::timeSource().now();
    std::vector<std::shared_ptr<const DirectoryListing>> fresh;
    for (;;) {
        bool finished = false;
        {
            std::unique_lock lock(load.mutex);
            load.changed.wait(lock, [&] {
                return request->cancelled.load() || load.batches.size() > seen || load.finished || request->stallDue;
            });
            if (request->cancelled.load()) return;
            const bool moved = load.batches.size() > seen || load.finished;
            request->stallDue = false;
            if (!moved) {
                lock.unlock();
                if (!stalled) publish(CompletionEngine::Progress::notAnswering, false, false);
                stalled = true;
                continue;
            }
            if (load.failed) {
                // The reader dropped the batches of a folder that failed
                // part-way, those seen here included: none of its names
                // count.
                lock.unlock();
                publish(CompletionEngine::Progress::complete, true, true);
                return;
            }
            fresh.assign(load.batches.begin() + static_cast<std::ptrdiff_t>(seen), load.batches.end());
            seen = load.batches.size();
            finished = load.finished;
        }
        stalled = false;
        for (const auto& batch : fresh) {
            const std::size_t count = batch->size();
            for (std::size_t i = 0; i < count; ++i) {
                const std::string_view name = batch->name(i);
                if (!filter.accepts(name, batch->isAscii(i))) continue;
                const unsigned char type = batch->type(i);
                if (type != DirectoryListing::lookupFailed) isDirectory = type == DT_DIR;
                std::string& candidate = found.emplace_back();
                candidate.reserve(base.size() + name.size() + 1);
                candidate.append(base);
                candidate.append(name);
                if (isDirectory) candidate.push_back('/');
            }
            if (request->cancelled.load()) return;
        }
        fresh.clear();
        if (finished) {
            const bool nothingBegins = found.empty() && !request->prefix.empty();
            publish(CompletionEngine::Progress::complete, false, true);
            // The names most like the text follow the empty answer, ranked by
            // likeness: a typo never waits for them.
            if (nothingBegins && !request->cancelled.load()) {
                Answer similar;
                similar.candidates = similarNames(*request);
                similar.similar = true;
                if (!similar.candidates.empty() && !request->cancelled.load()) hand(std::move(similar), true);
            }
            return;
        }
        const dispatch::TimePoint now = dispatch::timeSource().now();
        if (!published || now - lastPublished >= options.publishInterval) {
            publish(CompletionEngine::Progress::reading, false, false);
            published = true;
            lastPublished = now;
        }
    }
}

// Watches the request's folder on the time source's clock, a few times per
// stallAfter: once it has given nothing new for stallAfter, the worker is
// woken to show it as not answering. The checks end with the request (done,
// cancelled or gone); none holds it alive.
void watchForStall(dispatch::TimeSource& clock, const std::weak_ptr<CompletionEngine::Request>& weak,
                   dispatch::Duration stallAfter, std::size_t batchesBefore, dispatch::TimePoint quietSince) {
    const dispatch::Duration step = std::max(stallAfter / 4, dispatch::Duration(1));
    clock.schedule(clock.now() + step, step / 4, [&clock, weak, stallAfter, batchesBefore, quietSince] {
        const std::shared_ptr<CompletionEngine::Request> request = weak.lock();
        if (!request) return;
        CompletionEngine::FolderLoad& load = *request->load;
        const dispatch::TimePoint now = clock.now();
        std::size_t batches = 0;
        bool due = false;
        {
            std::lock_guard lock(load.mutex);
            if (request->cancelled.load() || load.finished) return;
            batches = load.batches.size();
            due = batches == batchesBefore && now - quietSince >= stallAfter;
            if (due) request->stallDue = true;
        }
        if (due) load.changed.notify_all();
        // A folder that moved is quiet from now on; one shown as not
        // answering is looked at again a full stallAfter later.
        watchForStall(clock, weak, stallAfter, batches, batches == batchesBefore && !due ? quietSince : now);
    });
}

}  // namespace

CompletionEngine::CompletionEngine(Hooks hooks) : CompletionEngine(std::move(hooks), Options{}) {}

CompletionEngine::CompletionEngine(Hooks hooks, Options options)
    : hooks_(std::move(hooks)), options_(std::move(options)), self_(std::make_shared<CompletionEngine*>(this)) {
    if (!options_.source) options_.source = DiskFolderSource::shared();
}

CompletionEngine::~CompletionEngine() { clear(); }

void CompletionEngine::cancelRequest() {
    if (!request_) return;
    request_->cancelled.store(true);
    {
        // Under the load's lock, so that a worker between its check and its
        // wait cannot miss the wake-up.
        std::lock_guard lock(request_->load->mutex);
    }
    request_->load->changed.notify_all();
    request_.reset();
}

void CompletionEngine::clear() {
    cancelRequest();
    if (load_) load_->abandoned.store(true);
    load_.reset();
    currentCompletions_.clear();
    answeredText_.clear();
    similarOnly_ = false;
    progress_ = Progress::complete;
    folderUnreadable_ = false;
    currentCompletionsDirectoryPath_.reset();
}

std::shared_ptr<CompletionEngine::FolderLoad> CompletionEngine::loadFor(const std::string& directory) {
    if (load_ && currentCompletionsDirectoryPath_ && *currentCompletionsDirectoryPath_ == directory) return load_;
    // A big folder should not be read on for nothing.
    if (load_) load_->abandoned.store(true);
    load_ = std::make_shared<FolderLoad>();
    currentCompletionsDirectoryPath_ = directory;
    dispatch::globalQueue().async([load = load_, source = options_.source, directory] {
        const bool read = source->read(directory, [&load](DirectoryListing&& batch) {
            auto shared = std::make_shared<const DirectoryListing>(std::move(batch));
            {
                std::lock_guard lock(load->mutex);
                load->batches.push_back(std::move(shared));
            }
            load->changed.notify_all();
            return !load->abandoned.load();
        });
        {
            std::lock_guard lock(load->mutex);
            load->finished = true;
            load->failed = !read;
            // A folder that failed part-way offers none of its names.
            if (!read) load->batches.clear();
        }
        load->changed.notify_all();
    });
    return load_;
}

void CompletionEngine::updateCompletions(std::string_view text, const std::optional<std::string>& fileManagerLocation,
                                         const FetchFileManagerLocation& fetchFileManagerLocation) {
    cancelRequest();
    if (text.empty()) {
        currentCompletions_.clear();
        answeredText_.clear();
        similarOnly_ = false;
        progress_ = Progress::complete;
        return;
    }

    const places::Place place = places::interpretPlaceText(text, options_.placeLookups, places::PlaceUse::completion);
    if (place.kind != places::Place::Kind::path) {
        // A server address, or text that names no place: nothing to list.
        cancelRequest();
        currentCompletions_.clear();
        answeredText_ = std::string(text);
        answeredAbsolute_ = true;
        similarOnly_ = false;
        progress_ = Progress::complete;
        folderUnreadable_ = false;
        if (hooks_.noteNumberOfItemsChanged) hooks_.noteNumberOfItemsChanged();
        return;
    }

    auto request = std::make_shared<Request>();
    request->text = std::string(text);
    const std::string& expanded = place.text;
    request->absolute = !expanded.empty() && expanded.front() == '/';

    // Relative text is one name in the file manager's folder, slashes and
    // all, so "Documents/Sub" completes nothing. Without a known folder this
    // keystroke asks for it and makes do with the text alone.
    std::vector<std::string> components;
    if (request->absolute) {
        components = paths::pathComponents(expanded);
    } else if (fileManagerLocation) {
        components = paths::pathComponents(*fileManagerLocation);
        components.push_back(expanded);
    } else {
        if (fetchFileManagerLocation) fetchFileManagerLocation();
        components = paths::pathComponents(expanded);
    }

    if (!components.empty()) {
        request->prefix = components.back();
        if (request->prefix == "/") request->prefix.clear();
    }
    if (components.size() >= 2) components.pop_back();
    std::string directory = paths::stringByExpandingTildeInPath(paths::pathWithComponents(components));
    // The cache key names the folder without a trailing "/" (a location
    // ending in "/" names the same folder as one without).
    while (directory.size() > 1 && directory.back() == '/') directory.pop_back();
    request->load = loadFor(directory);
    if (request->absolute) {
        std::string base = directory;
        if (base.empty() || base.back() != '/') base.push_back('/');
        // "~/Doc" completes to "~/Documents/", "/tmp/x" to "/tmp/xyz".
        const std::size_t slash = text.rfind('/');
        const bool writtenOtherwise = text.front() == '~' || text.front() == '$';
        request->shownBase =
            writtenOtherwise && slash != std::string_view::npos ? std::string(text.substr(0, slash + 1)) : base;
    }

    request_ = request;
    std::optional<std::size_t> batchesSoFar;
    {
        std::lock_guard lock(request->load->mutex);
        if (!request->load->finished) batchesSoFar = request->load->batches.size();
    }
    if (batchesSoFar) {
        dispatch::TimeSource& clock = dispatch::timeSource();
        watchForStall(clock, request, options_.stallAfter, *batchesSoFar, clock.now());
    }
    dispatch::globalQueue().async([request, options = options_, engine = std::weak_ptr(self_)] {
        runRequest(request, options, engine,
                   [](const std::weak_ptr<CompletionEngine*>& weak, const std::shared_ptr<Request>& answered) {
                       if (const auto self = weak.lock()) (*self)->answerArrived(answered);
                   });
    });

    {
        std::unique_lock lock(request->mutex);
        request->ready.wait_for(lock, options_.waitBudget, [&] { return request->finished; });
    }
    if (!takeAnswer()) {
        // Nothing known yet: the pattern itself, or nothing, while the folder
        // is read.
        currentCompletions_.clear();
        if (NameFilter(request->prefix).hasWildcard())
            currentCompletions_.push_back(request->shownBase + request->prefix);
        answeredText_ = request->text;
        answeredAbsolute_ = request->absolute;
        similarOnly_ = false;
        progress_ = Progress::reading;
        folderUnreadable_ = false;
    }

    if (hooks_.noteNumberOfItemsChanged) hooks_.noteNumberOfItemsChanged();
}

bool CompletionEngine::takeAnswer() {
    if (!request_) return false;
    std::optional<Answer> answer;
    {
        std::lock_guard lock(request_->mutex);
        answer = std::exchange(request_->latest, std::nullopt);
    }
    if (!answer) return false;
    std::vector<std::string> old = std::exchange(currentCompletions_, std::move(answer->candidates));
    // A big list of strings takes milliseconds to free: a worker does it.
    if (old.size() > kFreeOnWorkerAbove)
        dispatch::globalQueue().async([old = std::move(old)]() mutable { old.clear(); });
    answeredText_ = request_->text;
    answeredAbsolute_ = request_->absolute;
    similarOnly_ = answer->similar;
    progress_ = answer->progress;
    folderUnreadable_ = answer->unreadable;
    return true;
}

void CompletionEngine::answerArrived(const std::shared_ptr<Request>& request) {
    {
        std::lock_guard lock(request->mutex);
        request->deliveryQueued = false;
    }
    if (request != request_ || !takeAnswer()) return;
    if (hooks_.noteNumberOfItemsChanged) hooks_.noteNumberOfItemsChanged();
    if (hooks_.answerChanged) hooks_.answerChanged();
}

std::string CompletionEngine::uncompletedString(std::string_view fieldText, TextRange selectedRange) {
    std::string text(fieldText);
    if (selectedRange.length == 0) return text;
    const std::size_t start = std::min(selectedRange.location, text.size());
    text.erase(start, std::min(selectedRange.length, text.size() - start));
    return text;
}

void CompletionEngine::publishContent() const {
    if (hooks_.setCompletionsContent) hooks_.setCompletionsContent(currentCompletions_);
}

std::size_t CompletionEngine::numberOfItems(std::string_view uncompleted,
                                            const std::optional<std::string>& fileManagerLocation,
                                            const FetchFileManagerLocation& fetchFileManagerLocation) {
    // Compared with the cached folder, not with the previous text: typing
    // exactly the cached folder's path keeps the list as it is.
    if (!uncompleted.empty() &&
        (!currentCompletionsDirectoryPath_ || *currentCompletionsDirectoryPath_ != uncompleted)) {
        updateCompletions(uncompleted, fileManagerLocation, fetchFileManagerLocation);
        publishContent();
    }
    return currentCompletions_.size();
}

std::optional<std::string> CompletionEngine::objectValueForItemAtIndex(std::size_t index) const {
    if (index >= currentCompletions_.size()) return std::nullopt;
    return currentCompletions_[index];
}

std::size_t CompletionEngine::indexOfItemWithStringValue(std::string_view value) const {
    const auto it = std::find(currentCompletions_.begin(), currentCompletions_.end(), value);
    return it == currentCompletions_.end() ? notFound : static_cast<std::size_t>(it - currentCompletions_.begin());
}

CompletionEngine::Completion CompletionEngine::completedString(
    std::string_view s, const std::optional<std::string>& fileManagerLocation,
    const FetchFileManagerLocation& fetchFileManagerLocation) {
    Completion result;
    if (hasWildcard(s)) return result;  // patterns are never completed inline
    updateCompletions(s, fileManagerLocation, fetchFileManagerLocation);
    publishContent();
    if (currentCompletions_.empty() || similarOnly_) return result;
    result.completion = currentCompletions_.front();
    result.revealName = nextRevealName();
    return result;
}

std::optional<std::string> CompletionEngine::nextRevealName() {
    // Typing a name reveals its first match in the file manager, once per
    // candidate however long the user types on, and only once the whole
    // folder has been considered: a first match of part of it may not last.
    if (currentCompletions_.empty() || progress_ != Progress::complete || answeredText_.empty() || answeredAbsolute_ ||
        similarOnly_ || hasWildcard(answeredText_))
        return std::nullopt;
    if (searchModeLastRevealedText_ == currentCompletions_.front()) return std::nullopt;
    searchModeLastRevealedText_ = currentCompletions_.front();
    return searchModeLastRevealedText_;
}

}  // namespace jorvane
