#include "addressbar/CompletionEngine.h"

#include "addressbar/NameFilter.h"
#include "util/Paths.h"

#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <climits>

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

CompletionEngine::CompletionEngine(Hooks hooks) : hooks_(std::move(hooks)) {}

void CompletionEngine::clear() {
    currentCompletions_.clear();
    currentCompletionsDirectoryContent_.reset();
    currentCompletionsDirectoryPath_.reset();
}

void CompletionEngine::refreshCache(const std::string& directory) {
    if (currentCompletionsDirectoryPath_ && *currentCompletionsDirectoryPath_ == directory) return;
    // Drop the old listing first: a big folder should not be held twice.
    currentCompletionsDirectoryContent_.reset();
    currentCompletionsDirectoryContent_ = DirectoryListing::read(directory);
    currentCompletionsDirectoryPath_ = directory;
}

void CompletionEngine::updateCompletions(std::string_view text, const std::optional<std::string>& finderLocation,
                                         const FetchFinderLocation& fetchFinderLocation) {
    if (text.empty()) {
        currentCompletions_.clear();
        return;
    }

    // Tilde expansion drops a trailing "/", which says "list this folder".
    const bool endsWithSlash = text.back() == '/';
    std::string expanded = paths::stringByExpandingTildeInPath(text);
    if (endsWithSlash && (expanded.empty() || expanded.back() != '/')) expanded.push_back('/');
    const bool absolute = !expanded.empty() && expanded.front() == '/';

    // Relative text is one name in the file manager's folder, slashes and
    // all, so "Documents/Sub" completes nothing. Without a known folder this
    // keystroke asks for it and makes do with the text alone.
    std::vector<std::string> components;
    if (absolute) {
        components = paths::pathComponents(expanded);
    } else if (finderLocation) {
        components = paths::pathComponents(*finderLocation);
        components.push_back(expanded);
    } else {
        if (fetchFinderLocation) fetchFinderLocation();
        components = paths::pathComponents(expanded);
    }

    std::string prefix;
    if (!components.empty()) {
        prefix = components.back();
        if (prefix == "/") prefix.clear();
    }
    if (components.size() >= 2) components.pop_back();
    std::string directory = paths::stringByExpandingTildeInPath(paths::pathWithComponents(components));
    // The cache key names the folder without a trailing "/" (a location
    // ending in "/" names the same folder as one without).
    while (directory.size() > 1 && directory.back() == '/') directory.pop_back();
    refreshCache(directory);

    currentCompletions_.clear();
    std::string base = directory;
    if (base.empty() || base.back() != '/') base.push_back('/');

    const NameFilter filter(prefix);
    // A pattern is offered as a candidate of its own (Return selects all its
    // matches); it takes part in the sort like the others.
    if (filter.hasWildcard()) currentCompletions_.push_back(expanded);

    if (const auto& listing = currentCompletionsDirectoryContent_) {
        // The listing's type answers "is it a directory?" for everything but
        // links and unknown types, which need a lookup that follows the link.
        // A lookup would fail for every entry of a folder we may not search,
        // and for a path the kernel finds too long: those are looked up too,
        // so that they fail the same way.
        const bool typesUsable = listing->searchable();
        std::string path = base;
        // Kept across entries on purpose: an entry whose lookup fails (a
        // dangling link) keeps the answer of the accepted entry before it.
        bool isDirectory = false;
        const std::size_t count = listing->size();
        for (std::size_t i = 0; i < count; ++i) {
            const std::string_view name = listing->name(i);
            if (!filter.accepts(name, listing->isAscii(i))) continue;
            const unsigned char type = listing->type(i);
            if (typesUsable && type != DT_LNK && type != DT_UNKNOWN && base.size() + name.size() < PATH_MAX) {
                isDirectory = type == DT_DIR;
            } else {
                path.resize(base.size());
                path.append(name);
                struct stat status;
                if (::stat(path.c_str(), &status) == 0) isDirectory = S_ISDIR(status.st_mode);
            }
            std::string& candidate = currentCompletions_.emplace_back();
            candidate.reserve((absolute ? base.size() : 0) + name.size() + 1);
            if (absolute) candidate.append(base);
            candidate.append(name);
            if (isDirectory) candidate.push_back('/');
        }
    }

    sortByLength(currentCompletions_);

    if (hooks_.noteNumberOfItemsChanged) hooks_.noteNumberOfItemsChanged();
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
                                            const std::optional<std::string>& finderLocation,
                                            const FetchFinderLocation& fetchFinderLocation) {
    // Compared with the cached folder, not with the previous text: typing
    // exactly the cached folder's path keeps the list as it is.
    if (!uncompleted.empty() &&
        (!currentCompletionsDirectoryPath_ || *currentCompletionsDirectoryPath_ != uncompleted)) {
        updateCompletions(uncompleted, finderLocation, fetchFinderLocation);
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

CompletionEngine::Completion CompletionEngine::completedString(std::string_view s,
                                                               const std::optional<std::string>& finderLocation,
                                                               const FetchFinderLocation& fetchFinderLocation) {
    Completion result;
    if (hasWildcard(s)) return result;  // patterns are never completed inline
    updateCompletions(s, finderLocation, fetchFinderLocation);
    publishContent();
    if (currentCompletions_.empty()) return result;
    result.completion = currentCompletions_.front();
    // Typing a name reveals its first match in the file manager, once per
    // candidate however long the user types on.
    if (s.front() != '/' && searchModeLastRevealedText_ != result.completion) {
        searchModeLastRevealedText_ = result.completion;
        result.revealName = result.completion;
    }
    return result;
}

}  // namespace jorvane
