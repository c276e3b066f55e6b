#include "addressbar/PathWindowController.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "accessibility/WindowLookup.h"
#include "addressbar/PathWindowDelegate.h"
#include "addressbar/Screens.h"
#include "addressbar/Workspace.h"
#include "filemanager/FileManagerCommands.h"
#include "keys/VirtualKeyCodes.h"
#include "places/BookmarkList.h"
#include "places/VisitedFolders.h"
#include "settings/UserDefaults.h"
#include "util/DelayedAction.h"
#include "util/Diagnostics.h"
#include "util/Paths.h"

namespace jorvane {

namespace {

// Locations that are connected to (or, for the trash, recent files and the
// network, shown) through the file manager rather than navigated to as
// paths: every kind the desktop's gvfs knows. Case matters: "FTP://" is a
// name like any other.
constexpr std::array<std::string_view, 15> kMountPrefixes = {
    "ftp://", "afp://",  "http://", "https://", "smb://",   "sftp://",   "ssh://",    "ftps://",
    "dav://", "davs://", "nfs://",  "mtp://",   "trash://", "recent://", "network://"};

constexpr Modifiers kCommand = kModifierCommand;
constexpr Modifiers kCommandShift = kModifierCommand | kModifierShift;

// Puts the form of the path the file manager arrived at (a folder's "/", the
// case on disk) in place of the text that asked for it, unless the user has
// typed something else meanwhile. A field whose whole text the user selected
// to type over stays wholly selected.
void showArrival(PathFieldView& field, const std::string& asked, const std::string& arrived) {
    const std::string text = field.stringValue();
    if (text != asked) return;
    const TextRange selected = field.selectedRange();
    field.setStringValue(arrived);
    if (!text.empty() && selected == TextRange{0, text.size()}) field.selectAll();
}

bool hasWildcard(std::string_view text) { return text.find_first_of("*?") != std::string_view::npos; }

// Text in which "~" or "$" was read may also be the name of a folder as it
// stands ("$HOME" is a fine folder name): navigation tries it first.
bool mayNameALiteralPlace(std::string_view text) { return text.find_first_of("$~") != std::string_view::npos; }

bool isMountURL(std::string_view text) {
    return std::any_of(kMountPrefixes.begin(), kMountPrefixes.end(),
                       [text](std::string_view prefix) { return text.starts_with(prefix); });
}

void removeAll(std::string& text, std::string_view what) {
    if (what.empty()) return;
    for (std::size_t at = text.find(what); at != std::string::npos; at = text.find(what, at))
        text.erase(at, what.size());
}

std::string join(const std::vector<std::string>& items, std::string_view separator) {
    std::string joined;
    for (std::size_t i = 0; i < items.size(); ++i) {
        if (i > 0) joined.append(separator);
        joined.append(items[i]);
    }
    return joined;
}

PathWindowViews checked(PathWindowViews views) {
    if (!views.panel || !views.field || !views.spinner || !views.completions)
        throw std::invalid_argument("PathWindowController: the panel, field, spinner and completion list are required");
    return views;
}

}  // namespace

PathWindowController::PathWindowController(ElementRef windowElement, PathWindowViews views, Dependencies dependencies)
    : windowElement_(std::move(windowElement)),
      views_(checked(std::move(views))),
      bridge_(dependencies.bridge),
      defaults_(dependencies.defaults),
      workspace_(dependencies.workspace),
      screens_(dependencies.screens),
      delegate_(dependencies.delegate),
      pathFieldEditor_(dependencies.delegate),
      placeLookups_(dependencies.completion.placeLookups),
      engine_(CompletionEngine::Hooks{[field = views_.field.get()] { field->noteNumberOfItemsChanged(); },
                                      [this](const std::vector<std::string>&) { refreshCompletionList(); },
                                      [this] { completionAnswerChanged(); }},
              std::move(dependencies.completion)),
      visitedFolders_(dependencies.visitedFolders),
      bookmarks_(dependencies.bookmarks),
      self_(std::make_shared<PathWindowController*>(this)) {}

PathWindowController::~PathWindowController() {
    // A spinner showing still pending must not reach the views that go now.
    if (spinnerTimer_) spinnerTimer_->pause();
}

ElementRef PathWindowController::titleElement() const { return WindowLookup::titleElementForWindow(windowElement_); }

// ---- opening, hiding, placement

void PathWindowController::show() { show(true); }

void PathWindowController::show(bool fill, bool selectFilled) {
    // The bar appears at once, and the file manager is asked in the
    // background (is it a browser window, its folder, its selection): the
    // spinner shows when it is slow to answer, and whatever the user types
    // meanwhile stays.
    startSpinnerTimer();
    const Opening opening{++openings_, fill, selectFilled,
                          fill && defaults_.integerForKey(settings::keys::activationPathBehaviour) != 1};
    views_.field->setStringValue({});
    if (fill)
        setFileManagerLocation(std::nullopt);
    else
        setCurrentImage(BarImage::search());
    updateSize();
    views_.panel->raise();
    views_.panel->focus();
    // The user may have bookmarked a folder since the bar last opened.
    if (bookmarks_) bookmarks_->refresh();
    bridge_.describeFrontWindowAsync(fill, opening.withSelection,
                                     [weak = std::weak_ptr(self_), opening](const auto& window) {
                                         if (const auto self = weak.lock())
                                             (*self)->frontWindowDescribed(window, opening);
                                     });
}

void PathWindowController::frontWindowDescribed(const FileManagerCommands::FrontWindow& window,
                                                const Opening& opening) {
    // The bar was hidden, closed or opened again since it asked.
    if (closed_ || opening.number != openings_) return;
    // Only the answer "NO" means "not a browser window"; no answer at all
    // leaves the bar open. The spinner stays armed: it shows in the hidden
    // panel, and the next opening hides it again.
    if (!window.isFolderWindow) {
        log::inDomain(log::Debug, "Bar", "the window is not a folder window: no bar");
        hide();
        return;
    }
    stopSpinner();
    if (!opening.fill) return;
    setFileManagerLocation(window.folder);
    const std::optional<std::string>& text = opening.withSelection ? window.selection : window.folder;
    // Text the user typed meanwhile stays.
    if (views_.field->stringValue().empty() && text && !text->empty()) {
        views_.field->setStringValue(*text);
        if (opening.selectFilled) views_.field->selectAll();
    }
    setCurrentImage(window.folder ? BarImage::iconForFile(*window.folder) : BarImage::search());
    // The text has changed, so the width may have too.
    updateSize();
    views_.panel->raise();
}

void PathWindowController::hide() {
    // Answers to an earlier opening no longer fill the bar.
    ++openings_;
    inlineText_.reset();
    views_.panel->hide();
    hideCompletions();
}

void PathWindowController::focusLost() {
    log::inDomain(log::Debug, "Bar", "the bar lost the keyboard: it hides");
    hide();
}

void PathWindowController::close() {
    cancelMount();
    cancelPendingPattern();
    views_.panel->close();
    views_.completions->setContent({});
    engine_.clear();
    closed_ = true;
}

void PathWindowController::updateSize() {
    // Accessibility frames have their origin at the top left of the first
    // screen, panel frames at its bottom left. Frames that cannot be read
    // stay zero.
    const double textWidth = views_.field->textWidth(views_.field->stringValue());
    Rect frame = views_.panel->frame();
    Rect windowFrame;
    WindowLookup::getWindowFrame(windowElement_, windowFrame);
    const bool wasVisible = views_.panel->isVisible();

    double width = std::trunc(textWidth + kTextMargin);
    // While the user types the bar only ever grows (about the window's
    // centre, below): a bar that shrank and jumped with every deleted
    // character would be hard to look at. It takes its natural width again
    // when it is next shown.
    if (wasVisible) width = std::max(width, std::trunc(frame.size.width));

    const ElementRef title = titleElement();
    if (!title) return;

    // At least a third of the window and wider than the title text, at most
    // the window less room for its buttons; the upper bound wins, even when
    // it is negative (a very narrow window).
    double lower = std::trunc(windowFrame.size.width / 3);
    const double upper = std::trunc(windowFrame.size.width - kWindowMargin);
    Rect titleFrame;
    WindowLookup::getWindowFrame(title, titleFrame);
    if (titleFrame.size.width + kTitleMargin > lower) lower = std::trunc(titleFrame.size.width + kTitleMargin);
    width = std::max(width, lower);
    width = std::min(width, upper);

    frame.size.width = width;
    frame.origin.x = windowFrame.origin.x + windowFrame.size.width / 2 - std::trunc(width / 2);
    // As high as the window manager's title band, so that the panel neither
    // covers the window's content nor leaves title text showing below it.
    Point spinnerOrigin = views_.spinner->frameOrigin();
    if (const std::optional<double> band = WindowLookup::titleBandHeight(windowElement_);
        band && *band >= kMinTitleBand && *band + 1 != frame.size.height) {
        // The spinner stays centred in the new height.
        spinnerOrigin.y += std::trunc((*band + 1 - frame.size.height) / 2);
        frame.size.height = *band + 1;
    }
    // The top edge lies one point above the window's top edge. The flip
    // always uses the first screen, whatever screen the window is on.
    const std::vector<Rect> screens = screens_.screenFrames();
    const double firstScreenHeight = screens.empty() ? 0 : screens.front().size.height;
    frame.origin.y = firstScreenHeight - windowFrame.origin.y - frame.size.height + 1;
    views_.panel->setFrame(frame, true, wasVisible);

    spinnerOrigin.x = width - kSpinnerInset;
    views_.spinner->setFrameOrigin(spinnerOrigin);
}

// ---- spinner

void PathWindowController::startSpinnerTimer() {
    if (!spinnerTimer_) {
        spinnerTimer_ = DelayedAction::invocationOnMainQueueWithBlock([weak = std::weak_ptr(self_)] {
            const auto self = weak.lock();
            if (!self) return;
            SpinnerView& spinner = *(*self)->views_.spinner;
            spinner.startAnimation();
            spinner.setHidden(false);
        });
    }
    // Re-arming postpones the showing: only work that lasts shows it.
    spinnerTimer_->fireIn(kSpinnerDelay);
}

void PathWindowController::stopSpinner() {
    if (spinnerTimer_) spinnerTimer_->pause();
    // Hidden, not stopped: the next showing finds it animating.
    views_.spinner->setHidden(true);
}

// ---- the window's folder

void PathWindowController::fetchFileManagerLocation() {
    bridge_.getPathAsync(
        [weak = std::weak_ptr(self_), asked = views_.field->stringValue()](std::optional<std::string> path) {
            if (const auto self = weak.lock()) (*self)->fileManagerLocationFetched(std::move(path), asked);
        });
}

void PathWindowController::fileManagerLocationFetched(std::optional<std::string> path, const std::string& asked) {
    stopSpinner();
    setFileManagerLocation(path);
    if (path) noteVisit(*path);
    showArrival(*views_.field, asked, path.value_or(locationFallback_));
    locationFallback_.clear();
    // No folder has no icon of its own: the search image stands in.
    setCurrentImage(path ? BarImage::iconForFile(*path) : BarImage::search());
}

const std::optional<std::string>& PathWindowController::fileManagerLocation() {
    if (!fileManagerLocation_) fileManagerLocation_ = bridge_.call(handlers::folderPath);
    return fileManagerLocation_;
}

void PathWindowController::setCurrentImage(BarImage image) {
    currentImage_ = std::move(image);
    views_.field->setImage(currentImage_);
}

const std::optional<std::string>& PathWindowController::searchModeLastRevealedText() const {
    return engine_.searchModeLastRevealedText();
}

void PathWindowController::setSearchModeLastRevealedText(std::optional<std::string> text) {
    engine_.setSearchModeLastRevealedText(std::move(text));
}

// ---- small commands

void PathWindowController::about() { delegate_.about(); }

void PathWindowController::showPreferences() { delegate_.openPreferences(); }

// ---- keyboard

bool PathWindowController::handleKeyDown(const KeyEvent& event) {
    // Only the four shortcut modifiers count, and all of them: Ctrl+Alt+W is
    // not Ctrl+W.
    const Modifiers flags = event.modifierFlags & kShortcutModifierMask;
    const KeyCode key = event.keyCode;
    const bool command = flags == kCommand;
    const bool commandShift = flags == kCommandShift;

    // The order matters: a hot key recorded as Ctrl+Return or Ctrl+O opens
    // the item, and one equal to any later row closes the bar instead.
    if (command && (key == kKeyReturn || key == kKeyO)) {
        openFieldItem();
        return true;
    }
    // Read now rather than kept: the preferences may have changed it.
    if (static_cast<std::int64_t>(key) == defaults_.integerForKey(settings::keys::hotkeyKeycode) &&
        static_cast<std::int64_t>(flags) == defaults_.integerForKey(settings::keys::hotkeyFlags)) {
        // The hot key again closes the bar; the list is left alone.
        views_.panel->hide();
        return true;
    }
    if (command && key == kKeyH) {
        std::string home = paths::stringByExpandingTildeInPath("~/");
        if (home.empty() || home.back() != '/') home.push_back('/');
        views_.field->setStringValue(home);
        pathEditorEnter();
        return true;
    }
    if (command && key == kKeyN) {
        hide();
        // The new window is then the focused one: give it its bar.
        bridge_.commandAsync(std::string(handlers::newWindow), fieldTextParams(),
                             [weak = std::weak_ptr(self_), &delegate = delegate_](bool) {
                                 if (weak.lock()) delegate.show();
                             });
        return true;
    }
    if (command && key == kKeyW) {
        hide();
        bridge_.commandAsync(std::string(handlers::closeWindow), {});
        return true;
    }
    if (command && key == kKeyT) {
        hide();
        bridge_.openTerminal(views_.field->stringValue());
        return true;
    }
    if (command && key == kKeyR) {
        bridge_.commandAsync(std::string(handlers::reload), {});
        return true;
    }
    if (commandShift && key == kKeyF) {
        setPath({});
        show(false);
        return true;
    }
    if (commandShift && key == kKeyPeriod) {
        hide();
        delegate_.toggleShowHidden();
        return true;
    }
    if (command) {
        switch (key) {
            case kKey1: bridge_.commandAsync(std::string(handlers::iconView), {}); return true;
            case kKey2: bridge_.commandAsync(std::string(handlers::listView), {}); return true;
            case kKey3: bridge_.commandAsync(std::string(handlers::columnView), {}); return true;
            case kKey4: bridge_.commandAsync(std::string(handlers::galleryView), {}); return true;
            default: break;
        }
    }
    return false;
}

// One case per edit command of the field, each saying what the command does
// with the list shown and without: a table that reads best whole.
bool PathWindowController::handleEditCommand(TextCommand command) {
    CompletionsListView& list = *views_.completions;
    const bool listVisible = list.isVisible();
    const int row = list.selectedRow();
    const std::size_t count = listRows_.size();
    const TextRange selection = views_.field->selectedRange();

    switch (command) {
        case TextCommand::moveDown:
            if (listVisible) {
                // Compared unsigned, so that "no row" (-1) is never below the
                // last row.
                const auto unsignedRow = static_cast<std::uint64_t>(static_cast<std::int64_t>(row));
                if (unsignedRow < static_cast<std::uint64_t>(count) - 1) {
                    list.scrollRowToVisible(row + 1);
                    list.selectRow(row + 1);
                } else if (row < 0 && count > 0) {
                    list.selectRow(0);
                }
            } else {
                // A caret at the very start would leave the list's first
                // choice hard to reach: go to the end first.
                if (selection.location == 0) moveCaretToEnd();
                showPopup();
            }
            return true;
        case TextCommand::moveUp:
            if (listVisible && row > 0) {
                list.scrollRowToVisible(row - 1);
                list.selectRow(row - 1);
            } else if (listVisible && row == 0) {
                // The list keeps a selection while it shows: above its
                // first row it goes away.
                hideCompletions();
            } else {
                navigateToParentDirectory();
            }
            return true;
        case TextCommand::insertNewline:
            if (listVisible) {
                // The chosen candidate; with none (an empty list) the text
                // as typed.
                if (row >= 0 && static_cast<std::size_t>(row) < listRows_.size())
                    views_.field->setStringValue(rowTarget(static_cast<std::size_t>(row)));
                pathEditorEnter();
            } else if (selection.length != 0) {
                pathEditorEnter();
            } else {
                // Return on the folder the window already shows closes the
                // bar (and shows the folder again). A pattern stays open, so
                // that Return repeats its selection.
                const std::string text = views_.field->stringValue();
                if (!isSearchString(text) && fileManagerLocation_ == text) hide();
                pathEditorEnter();
            }
            return true;
        case TextCommand::insertTab:
            if (selection.length != 0) {
                // Accepts the inline completion and goes there.
                pathEditorEnter();
            } else if (!listVisible) {
                showPopup();
            } else {
                handleEditCommand(TextCommand::moveDown);
            }
            return true;
        case TextCommand::insertBacktab:
            handleEditCommand(listVisible ? TextCommand::moveUp : TextCommand::moveToBeginningOfDocument);
            return true;
        case TextCommand::moveToBeginningOfDocument: navigateToParentDirectory(); return true;
        case TextCommand::moveToEndOfDocument: openFieldItem(); return true;
        case TextCommand::cancelOperation:
            // Escape closes the list first and the bar second, giving up a
            // connection to a server on the way. Either gives up a pattern
            // waiting for its folder.
            cancelPendingPattern();
            if (listVisible) {
                hideCompletions();
            } else {
                cancelMount();
                hide();
            }
            return true;
        case TextCommand::other: break;
    }
    return false;
}

void PathWindowController::textChanged() {
    // A completion still on its way belongs to a text that is gone; the
    // field asks again after typing. So does a pattern waiting for its
    // folder: the user has gone on.
    inlineText_.reset();
    cancelPendingPattern();
    if (views_.field->stringValue().empty()) setCurrentImage(BarImage::search());
}

// ---- path entry and navigation

void PathWindowController::pathEditorEnter() {
    hideCompletions();
    inlineText_.reset();
    pendingPattern_.reset();
    // Accepts whatever inline completion is selected.
    moveCaretToEnd();
    const std::string text = views_.field->stringValue();
    std::optional<std::string> shown = text;
    const std::optional<VisitedSuggestion> suggested = std::exchange(visitedSuggestion_, std::nullopt);
    // "~/Documents", "$HOME/x", a file:// URI or a path in quotes goes where
    // it names; text that names no place is taken as it stands.
    const places::Place place = places::interpretPlaceText(text, placeLookups_);
    const std::string target = place.kind == places::Place::Kind::invalid ? text : place.text;

    if (suggested && suggested->fieldText == text) {
        // The visited folder that inline completion offered.
        showFolder(suggested->folder);
        fileManagerLocation_ = suggested->folder;
        shown = suggested->folder;
    } else if (isMountURL(target)) {
        mount(target);
    } else if (target.empty()) {
        // Shows the window's folder again and puts it back into the field.
        shown = fileManagerLocation();
        if (shown) showFolder(*shown);
        fileManagerLocation_ = shown;
    } else if (target.front() == '/' && !hasWildcard(target)) {
        // A folder is shown, anything else revealed in its folder.
        std::string asTyped;
        if (mayNameALiteralPlace(text)) {
            if (text.front() == '/') {
                asTyped = text;
            } else if (fileManagerLocation_) {
                asTyped = paths::stringByAppendingPathComponent(*fileManagerLocation_, text);
            }
        }
        // Until the navigation has looked which of the two is there, the
        // field shows the text as typed.
        shown = asTyped.empty() ? target : text;
        showFolder(target, asTyped, *shown);
        fileManagerLocation_ = target;
    } else if (const std::optional<std::string> visited = visitedFolderFor(text)) {
        // Words of a visited folder's path that name nothing here.
        showFolder(*visited);
        fileManagerLocation_ = *visited;
        shown = *visited;
    } else if (!hasWildcard(target)) {
        // A name in the window's folder.
        if (const std::optional<std::string>& base = fileManagerLocation()) {
            const std::string path = paths::stringByAppendingPathComponent(*base, target);
            // The field shows a folder with its "/" when completion knows
            // it is one; the navigation looks for itself, off this thread.
            const std::vector<std::string>& known = engine_.currentCompletions();
            const bool knownFolder =
                !target.ends_with('/') && std::find(known.begin(), known.end(), target + "/") != known.end();
            reveal(path, mayNameALiteralPlace(text) ? paths::stringByAppendingPathComponent(*base, text) : "");
            shown = knownFolder ? path + "/" : path;
        }
    } else {
        // A pattern: select everything it matches, in its own folder when it
        // names one.
        if (paths::isAbsolutePath(target)) fileManagerLocation_ = paths::stringByDeletingLastPathComponent(target);
        updateCompletions(target);
        if (engine_.progress() == CompletionEngine::Progress::complete) {
            selectPatternMatches(target);
        } else {
            // The folder is still being read: the matches are selected when
            // they are all known.
            pendingPattern_ = target;
            startSpinnerTimer();
        }
    }

    views_.field->setStringValue(shown.value_or(std::string{}));
    updateSize();
}

bool PathWindowController::isSearchString(std::string_view text) const {
    if (text.empty() || text.front() == '/') return false;
    const std::optional<std::string>& revealed = engine_.searchModeLastRevealedText();
    return hasWildcard(text) && !(revealed && *revealed == text);
}

void PathWindowController::selectPatternMatches(const std::string& text) {
    const std::optional<std::string> base = fileManagerLocation();
    std::vector<std::string> names;
    std::size_t matches = 0;
    for (const std::string& candidate : engine_.currentCompletions()) {
        if (candidate == text) continue;
        ++matches;
        if (names.size() == kMaxSelectedNames) continue;
        std::string name = candidate;
        if (base && paths::isAbsolutePath(name)) removeAll(name, *base);
        names.push_back(std::move(name));
    }
    // Without a folder the handler gets no parameters at all.
    std::vector<std::string> params;
    if (base) params = {*base, join(names, handlers::itemSeparator)};
    // Selecting a few hundred names takes Thunar seconds: the spinner shows
    // meanwhile, and only its answer says what was selected.
    startSpinnerTimer();
    bridge_.commandAsync(std::string(handlers::selectNames), std::move(params),
                         [weak = std::weak_ptr(self_), selected = names.size(), matches](bool answered) {
                             const auto self = weak.lock();
                             if (!self || (*self)->closed_) return;
                             (*self)->navigationFinished(answered ? Navigated::answered : Navigated::fileManagerSilent);
                             if (answered && matches > selected)
                                 (*self)->views_.field->showProblem("Selected the first " + std::to_string(selected) +
                                                                    " of " + std::to_string(matches) + " matches");
                         });
}

void PathWindowController::cancelPendingPattern() {
    if (!std::exchange(pendingPattern_, std::nullopt)) return;
    stopSpinner();
}

void PathWindowController::navigationFinished(Navigated outcome) {
    stopSpinner();
    if (outcome == Navigated::fileManagerSilent) views_.field->showProblem(kNoAnswerMessage);
    if (outcome == Navigated::folderSilent) views_.field->showProblem(kFolderNotAnsweringMessage);
}

void PathWindowController::showFolder(const std::string& path, const std::string& asTyped,
                                      std::optional<std::string> fieldText) {
    if (!fieldText) fieldText = path;
    startSpinnerTimer();
    bridge_.goToAsync(
        path,
        [weak = std::weak_ptr(self_), path, fieldText = *fieldText](const FileManagerCommands::Arrival& arrival) {
            const auto self = weak.lock();
            if (!self) return;
            PathWindowController& bar = **self;
            if (!arrival.choices.empty()) {
                // Several paths on disk name it in another case: the user picks.
                if (!bar.closed_ && bar.views_.panel->isVisible() && bar.views_.field->stringValue() == fieldText)
                    bar.offerChoices(arrival.choices);
            } else if (arrival.path != fieldText) {
                // Found as typed, or in another case: the field shows it, unless
                // the user has typed something else meanwhile.
                showArrival(*bar.views_.field, fieldText, arrival.path);
                if (bar.fileManagerLocation_ == path) bar.fileManagerLocation_ = arrival.path;
            }
            if (arrival.outcome == Navigated::answered && arrival.choices.empty()) bar.noteVisit(arrival.path);
            bar.navigationFinished(arrival.outcome);
        },
        asTyped);
}

void PathWindowController::reveal(const std::string& path, const std::string& asTyped) {
    startSpinnerTimer();
    bridge_.revealAsync(
        path,
        [weak = std::weak_ptr(self_), path](Navigated outcome, const std::string& revealed) {
            const auto self = weak.lock();
            if (!self) return;
            // A folder shows with its "/" once the navigation has looked,
            // unless the user has typed something else meanwhile.
            if (revealed != path) showArrival(*(*self)->views_.field, path, revealed);
            if (outcome == Navigated::answered && revealed.ends_with('/')) (*self)->noteVisit(path);
            (*self)->navigationFinished(outcome);
        },
        asTyped);
}

void PathWindowController::navigateToParentDirectory() {
    std::string text = views_.field->stringValue();
    // With a visited folder offered inline, Up goes to that folder's parent.
    if (visitedSuggestion_ && visitedSuggestion_->fieldText == text) text = visitedSuggestion_->folder;
    std::string parent;
    if (text.empty() || text == "/") {
        // Nothing above: the field empties (showing the search image) and
        // entering the empty text brings the window's folder back.
        views_.field->setStringValue({});
        textChanged();
    } else {
        parent = paths::stringByDeletingLastPathComponent(text);
        if (parent != "/") parent.push_back('/');
    }
    views_.field->setStringValue(parent);
    pathEditorEnter();
}

void PathWindowController::setPath(const std::string& path) { views_.field->setStringValue(path); }

// ---- helpers

void PathWindowController::hideCompletions() { views_.completions->hide(); }

void PathWindowController::openFieldItem() { workspace_.openFile(views_.field->stringValue()); }

void PathWindowController::moveCaretToEnd() { views_.field->setSelectedRange({views_.field->stringValue().size(), 0}); }

std::vector<std::string> PathWindowController::fieldTextParams() const { return {views_.field->stringValue()}; }

}  // namespace jorvane
