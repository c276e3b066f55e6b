// The bar's places beyond the window's folder: the folders visited before,
// offered by words of their path, and servers, connected in the background.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "addressbar/PathWindowController.h"
#include "filemanager/FileManagerCommands.h"
#include "places/VisitedFolders.h"

namespace jorvane {

// ---- visited folders

void PathWindowController::noteVisit(const std::string& folder) {
    if (visitedFolders_) visitedFolders_->visit(folder);
}

bool PathWindowController::mayNameVisitedFolder(std::string_view text) {
    return !text.empty() && std::string_view("/~$'\"").find(text.front()) == std::string_view::npos &&
           text.find("://") == std::string_view::npos && text.find_first_of("*?") == std::string_view::npos;
}

std::optional<std::string> PathWindowController::visitedFolderFor(const std::string& text) {
    if (!visitedFolders_ || !mayNameVisitedFolder(text)) return std::nullopt;
    updateCompletions(text);
    return bestVisitedFolderNow(text);
}

std::optional<std::string> PathWindowController::bestVisitedFolderNow(const std::string& text) {
    // Only once the folder's own answer for the text is known to be empty:
    // a name here always wins.
    if (!visitedFolders_ || !mayNameVisitedFolder(text) || engine_.answeredText() != text ||
        engine_.progress() != CompletionEngine::Progress::complete ||
        (!engine_.currentCompletions().empty() && !engine_.candidatesAreSimilarNames()))
        return std::nullopt;
    std::vector<std::string> best = visitedFolders_->matching(text, 1);
    if (best.empty()) return std::nullopt;
    return best.front();
}

std::optional<std::string> PathWindowController::visitedSuggestionFor(const std::string& typed) {
    std::optional<std::string> folder = bestVisitedFolderNow(typed);
    if (!folder) return std::nullopt;
    if (!folder->ends_with('/')) *folder += '/';
    visitedSuggestion_ = VisitedSuggestion{typed + kFolderAfterText + *folder, *folder};
    return visitedSuggestion_->fieldText;
}

// ---- servers

void PathWindowController::mount(const std::string& url) {
    // Connecting may take long and ask the user: it runs in the background,
    // the spinner says so, and the result comes back here. A new address
    // replaces the one still connecting.
    if (mounting_) bridge_.cancelMount();
    const std::uint64_t attempt = ++mountAttempt_;
    mounting_ = true;
    startSpinnerTimer();
    bridge_.mountAsync(url, [weak = std::weak_ptr(self_), attempt, url](std::optional<std::string> failure) {
        if (const auto self = weak.lock()) (*self)->mountFinished(attempt, url, std::move(failure));
    });
}

void PathWindowController::mountFinished(std::uint64_t attempt, const std::string& url,
                                         std::optional<std::string> failure) {
    // A connection given up, or replaced by a newer one, reports nothing.
    if (!mounting_ || attempt != mountAttempt_ || closed_) return;
    mounting_ = false;
    if (!failure) {
        // The window shows the server's folder now: the field follows it,
        // and keeps the address for a place that has no path (the trash).
        locationFallback_ = url;
        fetchFileManagerLocation();
        return;
    }
    stopSpinner();
    // A question to the user may have taken the bar away: it comes back with
    // the text, so that it can be corrected.
    if (!views_.panel->isVisible()) {
        updateSize();
        views_.panel->raise();
        views_.panel->focus();
    }
    views_.field->showProblem(*failure);
}

void PathWindowController::cancelMount() {
    if (!mounting_) return;
    mounting_ = false;
    stopSpinner();
    bridge_.cancelMount();
}

}  // namespace jorvane
