// The bar's completion: the field's data source, the answers that arrive
// after the keystroke, and the completion list under the field.

#include <algorithm>
#include <cmath>
#include <utility>

#include "addressbar/PathWindowController.h"
#include "filemanager/FileManagerCommands.h"
#include "places/BookmarkList.h"
#include "places/VisitedFolders.h"

namespace jorvane {

// ---- completion

void PathWindowController::updateCompletions(std::string_view text) {
    engine_.updateCompletions(text, fileManagerLocation_, [this] { askForFileManagerLocation(); });
    collectListRows();
}

void PathWindowController::askForFileManagerLocation() {
    if (std::exchange(locationAsked_, true)) return;
    bridge_.getPathAsync([weak = std::weak_ptr(self_)](std::optional<std::string> path) {
        const auto self = weak.lock();
        if (!self) return;
        PathWindowController& bar = **self;
        bar.locationAsked_ = false;
        // A place without a path (the trash) leaves the text as it is.
        if (!path || bar.fileManagerLocation_ || bar.closed_ || !bar.views_.panel->isVisible()) return;
        bar.fileManagerLocation_ = std::move(path);
        bar.updateCompletions(bar.uncompletedString());
        if (bar.views_.completions->isVisible()) bar.refreshCompletionList();
    });
}

std::string PathWindowController::uncompletedString() const {
    return CompletionEngine::uncompletedString(views_.field->stringValue(), views_.field->selectedRange());
}

std::size_t PathWindowController::completionCount() {
    return engine_.numberOfItems(uncompletedString(), fileManagerLocation_, [this] { askForFileManagerLocation(); });
}

std::optional<std::string> PathWindowController::objectValueForItemAtIndex(std::size_t index) const {
    return engine_.objectValueForItemAtIndex(index);
}

std::size_t PathWindowController::indexOfItemWithStringValue(std::string_view value) const {
    return engine_.indexOfItemWithStringValue(value);
}

std::optional<std::string> PathWindowController::completedString(std::string_view typed) {
    // A completion that arrives later still completes this text.
    inlineText_ = std::string(typed);
    CompletionEngine::Completion completion =
        engine_.completedString(typed, fileManagerLocation_, [this] { askForFileManagerLocation(); });
    // Search as you type: the first match is selected in the window, in the
    // background, so that a slow file manager never holds up the typing.
    if (completion.revealName) bridge_.revealInCurrentAsync(*completion.revealName);
    // Words that name nothing here may name a visited folder.
    if (!completion.completion) return visitedSuggestionFor(std::string(typed));
    return completion.completion;
}

void PathWindowController::completionAnswerChanged() {
    const std::vector<std::string>& candidates = engine_.currentCompletions();
    const bool complete = engine_.progress() == CompletionEngine::Progress::complete;
    if (views_.completions->isVisible()) refreshCompletionList();
    if (inlineText_ && engine_.answeredText() == *inlineText_ && !candidates.empty() &&
        !engine_.candidatesAreSimilarNames() && candidates.front().find_first_of("*?") == std::string::npos) {
        views_.field->completeInline(*inlineText_, candidates.front());
        if (const std::optional<std::string> name = engine_.nextRevealName()) bridge_.revealInCurrentAsync(*name);
    } else if (inlineText_) {
        if (const std::optional<std::string> suggestion = visitedSuggestionFor(*inlineText_))
            views_.field->completeInline(*inlineText_, *suggestion);
    }
    if (pendingPattern_ && engine_.answeredText() == *pendingPattern_) {
        if (complete) {
            const std::string pattern = *std::exchange(pendingPattern_, std::nullopt);
            selectPatternMatches(pattern);
        } else if (engine_.progress() == CompletionEngine::Progress::notAnswering) {
            // Its matches may never be known: the wait ends here.
            cancelPendingPattern();
            views_.field->showProblem(kFolderNotAnsweringMessage);
        }
    }
}

std::string PathWindowController::completionNote() const {
    std::string note;
    const std::size_t count = engine_.currentCompletions().size();
    if (count > kMaxListRows) note = std::to_string(count - kMaxListRows) + " more";
    const char* state = nullptr;
    switch (engine_.progress()) {
        case CompletionEngine::Progress::complete: break;
        case CompletionEngine::Progress::reading: state = "Reading folder\u2026"; break;
        case CompletionEngine::Progress::notAnswering: state = kFolderNotAnsweringMessage; break;
    }
    if (state) note += note.empty() ? state : std::string(" \u2014 ") + state;
    return note;
}

void PathWindowController::collectListRows() {
    const std::vector<std::string>& candidates = engine_.currentCompletions();
    listRows_.assign(candidates.begin(),
                     candidates.begin() + static_cast<std::ptrdiff_t>(std::min(candidates.size(), kMaxListRows)));
    visitedStart_ = listRows_.size();
    const std::string typed = uncompletedString();
    if (visitedFolders_ && mayNameVisitedFolder(typed)) {
        // Shown as folders are among the candidates: with their "/".
        for (std::string& folder : visitedFolders_->matching(typed, kMaxVisitedRows))
            listRows_.push_back(folder.ends_with('/') ? folder : folder + "/");
    }
    bookmarksStart_ = listRows_.size();
    rowTargets_.assign(listRows_.size(), std::string{});
    if (bookmarks_ && mayNameVisitedFolder(typed)) {
        for (const places::Bookmark& bookmark : bookmarks_->matching(typed, kMaxBookmarkRows)) {
            std::string folder = bookmark.place.text;
            if (!folder.ends_with('/')) folder += '/';
            // A folder the list offers already is not offered twice.
            if (std::find(listRows_.begin(), listRows_.end(), folder) != listRows_.end()) continue;
            listRows_.push_back(bookmark.name + kFolderAfterText + folder);
            rowTargets_.push_back(std::move(folder));
        }
    }
}

const std::string& PathWindowController::rowTarget(std::size_t row) const {
    return row < rowTargets_.size() && !rowTargets_[row].empty() ? rowTargets_[row] : listRows_[row];
}

void PathWindowController::refreshCompletionList() {
    // New content drops the list's selection; a visible list keeps the
    // user's choice (by its text, wherever it moved) or chooses its first
    // row, so that Return always has a choice.
    std::optional<std::string> chosen;
    const bool visible = views_.completions->isVisible();
    if (visible) {
        const int selected = views_.completions->selectedRow();
        if (selected >= 0 && static_cast<std::size_t>(selected) < listRows_.size())
            chosen = listRows_[static_cast<std::size_t>(selected)];
    }
    collectListRows();
    views_.completions->setContent(listRows_);
    std::vector<CompletionsListView::Group> groups;
    if (visitedStart_ > 0 && engine_.candidatesAreSimilarNames()) groups.push_back({0, kSimilarTitle});
    if (visitedStart_ < bookmarksStart_) groups.push_back({visitedStart_, kVisitedTitle});
    if (bookmarksStart_ < listRows_.size()) groups.push_back({bookmarksStart_, kBookmarksTitle});
    views_.completions->setGroups(groups);
    const std::string note = completionNote();
    views_.completions->setNote(note);
    if (visible) {
        // Rows that arrive after the list opened make it grow (or shrink).
        const Rect frame = listFrame(!note.empty());
        if (frame.size.height != listHeight_) {
            views_.completions->setFrame(frame, true);
            listHeight_ = frame.size.height;
        }
    }
    if (visible && !listRows_.empty()) {
        const auto found = chosen ? std::find(listRows_.begin(), listRows_.end(), *chosen) : listRows_.end();
        views_.completions->selectRow(found == listRows_.end() ? 0 : static_cast<int>(found - listRows_.begin()));
    }
}

// ---- completion list

void PathWindowController::showPopup() {
    updateCompletions(uncompletedString());
    // The list shows what was just computed, with its first row chosen: a
    // visible list always has a choice for Return.
    refreshCompletionList();
    placeList(!completionNote().empty());
}

void PathWindowController::offerChoices(const std::vector<std::string>& choices) {
    listRows_ = choices;
    visitedStart_ = bookmarksStart_ = listRows_.size();
    rowTargets_.clear();
    views_.completions->setContent(listRows_);
    views_.completions->setGroups({});
    views_.completions->setNote({});
    placeList(false);
}

Rect PathWindowController::listFrame(bool withNote) const {
    const Rect panelFrame = views_.panel->frame();
    const std::size_t noteRows = withNote ? 1 : 0;
    const std::size_t rows = std::min(listRows_.size() + noteRows, kMaxPopupRows);
    const double height =
        rows == 0 ? kEmptyPopupHeight : std::trunc(static_cast<double>(rows) * views_.completions->rowHeight());
    // Hangs from the field's bottom edge, as wide as the field.
    const Rect fieldFrame = views_.field->frame();
    return {{panelFrame.origin.x + fieldFrame.origin.x, panelFrame.origin.y + fieldFrame.origin.y - height},
            {fieldFrame.size.width, height}};
}

void PathWindowController::placeList(bool withNote) {
    if (!listRows_.empty()) views_.completions->selectRow(0);
    const Rect frame = listFrame(withNote);
    views_.completions->setFrame(frame, true);
    listHeight_ = frame.size.height;
    views_.completions->raise();
    // Looks active, yet the bar keeps the keyboard: the bar's keys move the
    // list's selection.
    views_.completions->showActive();
}

void PathWindowController::popupButtonClicked() {
    if (views_.completions->isVisible()) {
        hideCompletions();
        return;
    }
    moveCaretToEnd();
    showPopup();
}

void PathWindowController::completionChosen() {
    const int row = views_.completions->selectedRow();
    if (row < 0 || static_cast<std::size_t>(row) >= listRows_.size()) return;
    views_.field->setStringValue(rowTarget(static_cast<std::size_t>(row)));
    pathEditorEnter();
}

}  // namespace jorvane
