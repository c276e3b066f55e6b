#pragma once

// One address bar: the floating panel laid over the title bar of one
// file-manager window, with its path field, icon, spinner and completion
// list. The controller knows the window only by its accessibility element,
// talks to the file manager only through the FileManagerCommands and to the screen
// only through the passive views, so every decision below is made here.
//
// Life cycle: created hidden by the registry of bars for a window that has
// been activated; shown (show) and hidden (hide, loss of key status, the hot
// key again, Escape, a window that turns out not to be a browser window)
// many times; closed when the window goes away.
//
// Keys reach the bar at three stations, each of which may consume them:
// handleKeyDown (the panel offers every key press first: Ctrl shortcuts),
// the field editor's keyDown filter (pathFieldEditor()), and the editing
// commands of the text field (handleEditCommand: Return, Tab, arrows,
// Escape).
//
// Threads. The controller is used on the main thread only, and whatever
// comes back from other threads reaches it through the main queue (guarded
// by self_, since the controller may be gone by then). Thunar is asked
// synchronously, through the bridge's bounded calls, only for the window's
// folder when none is stored as a command needs it (fileManagerLocation()).
// Everything else runs on the bridge's queues: what the bar shows as it
// opens (is it a folder window, its folder, its selection), navigations and
// reveals, the selection of a pattern's matches, the other commands, search
// as you type, fetching the folder and connecting to a server; openings,
// navigations, selections and connections show the spinner when they take
// longer than kSpinnerDelay.
// Completion reads and filters folders on worker threads (CompletionEngine)
// and waits only its short budget for them; later answers arrive through
// completionAnswerChanged.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "accessibility/Accessibility.h"
#include "addressbar/CompletionEngine.h"
#include "addressbar/PathFieldEditor.h"
#include "addressbar/PathWindowViews.h"
#include "filemanager/FileManagerCommands.h"

namespace jorvane {

class DelayedAction;
class PathWindowDelegate;
class Screens;
enum class Navigated;
class Workspace;
namespace settings {
class UserDefaults;
}
namespace places {
class VisitedFolders;
class BookmarkList;
}  // namespace places

class PathWindowController {
public:
    // What the bar uses besides its views; all must outlive the controller.
    struct Dependencies {
        FileManagerCommands& bridge;
        settings::UserDefaults& defaults;
        Workspace& workspace;
        Screens& screens;
        PathWindowDelegate& delegate;
        // How completion waits and where it reads folders.
        CompletionEngine::Options completion = {};
        // The folders visited before, offered by a few words of their path;
        // none when null.
        places::VisitedFolders* visitedFolders = nullptr;
        // The file manager's bookmarks, offered by words of their name; none
        // when null.
        places::BookmarkList* bookmarks = nullptr;
    };

    // Seconds of work before the spinner shows.
    static constexpr double kSpinnerDelay = 0.3;
    // The panel is this much wider than its text.
    static constexpr double kTextMargin = 150;
    // The spinner sits this far left of the panel's right edge.
    static constexpr double kSpinnerInset = 50;
    // The panel covers the window's title band from one point above the
    // window; a band lower than this (a frame of borders only) leaves the
    // panel its own height.
    static constexpr double kMinTitleBand = 12;
    // The panel is at least this much narrower than its window...
    static constexpr double kWindowMargin = 160;
    // ...and at least this much wider than the window's title text.
    static constexpr double kTitleMargin = 50;
    // The completion list shows at most this many rows at once (it scrolls).
    static constexpr std::size_t kMaxPopupRows = 6;
    // Height of the completion list when there is no candidate.
    static constexpr double kEmptyPopupHeight = 20;
    // The list holds at most this many candidates; a last row says how many
    // more match (inline completion and patterns still see them all).
    static constexpr std::size_t kMaxListRows = 300;
    // Return on a pattern selects at most this many of its matches: in a
    // folder of 2,000 Thunar took 2.3 s for 200 names and 4.8 s for 400,
    // near the 5 s a command may take.
    static constexpr std::size_t kMaxSelectedNames = 200;
    // The list offers at most this many visited folders, under this title.
    static constexpr std::size_t kMaxVisitedRows = 5;
    static constexpr const char* kVisitedTitle = "Visited folders";
    // After them, at most this many bookmarks, each as its name and folder.
    static constexpr std::size_t kMaxBookmarkRows = 5;
    static constexpr const char* kBookmarksTitle = "Bookmarks";
    // Between a text and the folder it stands for: inline completion of
    // words that name nothing in the folder offers the best visited folder
    // after them ("proj rep — /home/u/Projects/Reports/"), and a bookmark's
    // row shows its name before its folder.
    static constexpr const char* kFolderAfterText = " \u2014 ";
    // Above the folder's names that only resemble the text.
    static constexpr const char* kSimilarTitle = "Similar names";
    // Shown in the bar when a navigation got no answer, even after a retry.
    static constexpr const char* kNoAnswerMessage = "Thunar did not answer";
    // Shown in the list while its folder gives nothing, and in the bar when a
    // pattern's folder stopped answering before all its matches were known or
    // the file system did not say in time what a navigation's path is.
    static constexpr const char* kFolderNotAnsweringMessage = "The folder does not answer";

    // The bar of the window `windowElement`. The views
    // must all be given (std::invalid_argument otherwise).
    PathWindowController(ElementRef windowElement, PathWindowViews views, Dependencies dependencies);
    ~PathWindowController();
    PathWindowController(const PathWindowController&) = delete;
    PathWindowController& operator=(const PathWindowController&) = delete;

    // ---- identity and views
    const ElementRef& windowElement() const { return windowElement_; }
    // The title text of the window's title bar, or null.
    ElementRef titleElement() const;
    PathPanelView& window() { return *views_.panel; }
    PathFieldView& pathEditor() { return *views_.field; }
    SpinnerView& spinner() { return *views_.spinner; }
    CompletionsListView& completionsWindow() { return *views_.completions; }
    const PathFieldEditor& pathFieldEditor() const { return pathFieldEditor_; }

    // ---- opening, hiding, placement
    // show(true).
    void show();
    // Opens the bar at once with an empty field, then asks the file manager
    // in the background whether the window is a browser window (hides again
    // if it answers "NO"). With `fill` the field then shows the window's
    // folder (or the selection, by preference), wholly selected with
    // `selectFilled`, and the folder's icon, unless the user has typed
    // meanwhile; without it the field stays empty, in search form.
    void show(bool fill, bool selectFilled = false);
    // The answers to an opening, on the main queue.
    struct Opening {
        std::uint64_t number = 0;  // the answers of an opening that is not the last are dropped
        bool fill = true;
        bool selectFilled = false;
        bool withSelection = false;  // the field shows the selection rather than the folder
    };
    void frontWindowDescribed(const FileManagerCommands::FrontWindow& window, const Opening& opening);
    // Orders out the panel and the completion list.
    void hide();
    // The panel lost key status: the bar disappears.
    void focusLost();
    // The window went away: closes the panel and drops the completion data.
    void close();
    bool isClosed() const { return closed_; }
    // Centres the panel over the window's title bar, as wide as its text
    // needs within the window's bounds, never narrower while visible.
    void updateSize();

    // ---- spinner
    // (Re)arms the timer that shows the spinner after kSpinnerDelay.
    void startSpinnerTimer();
    // Drops a pending showing and hides the spinner.
    void stopSpinner();

    // ---- the window's folder
    // Asks the file manager for the folder in the background; the answer goes
    // to fileManagerLocationFetched on the main queue.
    void fetchFileManagerLocation();
    // `asked`: the field's text when it was fetched; text typed since stays.
    void fileManagerLocationFetched(std::optional<std::string> path, const std::string& asked);
    // The folder the window shows; when none is stored, asks the file manager
    // ("folder_path") and stores its answer, which may again be none.
    const std::optional<std::string>& fileManagerLocation();
    // For completion: asks in the background (once at a time) and lets the
    // keystroke make do without; the answer completes the text anew.
    void askForFileManagerLocation();
    // The stored folder, without asking anyone.
    const std::optional<std::string>& storedFileManagerLocation() const { return fileManagerLocation_; }
    void setFileManagerLocation(std::optional<std::string> location) { fileManagerLocation_ = std::move(location); }

    // The icon left of the text.
    const BarImage& currentImage() const { return currentImage_; }
    void setCurrentImage(BarImage image);

    // The candidate last revealed by search as you type; a text equal to it
    // is not a search pattern.
    const std::optional<std::string>& searchModeLastRevealedText() const;
    void setSearchModeLastRevealedText(std::optional<std::string> text);

    // ---- small commands
    void about();
    void showPreferences();

    // ---- keyboard
    // The panel's shortcuts; true when the key press was handled (and must
    // go no further).
    bool handleKeyDown(const KeyEvent& event);
    // The text field's editing commands; true when handled here, false to let
    // the field perform the command itself.
    bool handleEditCommand(TextCommand command);
    // The field's text changed.
    void textChanged();

    // ---- path entry and navigation
    // Turns the field's text into one file-manager action: mount a server,
    // show a folder, reveal an item or select every match of a pattern.
    void pathEditorEnter();
    // A relative text with "*" or "?" that search as you type has not
    // produced. Empty text is not a pattern.
    bool isSearchString(std::string_view text) const;
    // Shows the folder (or reveals the item) in the background, with the
    // spinner.
    // `asTyped`, when given, is the text before "~", "$VAR" or ".." were
    // read in it: it goes first when it names something on disk.
    // The field is brought to the path gone to while it still shows
    // `fieldText` (the path itself unless given).
    void showFolder(const std::string& path, const std::string& asTyped = {},
                    std::optional<std::string> fieldText = std::nullopt);
    void reveal(const std::string& path, const std::string& asTyped = {});
    // Connects to the server in the background, with the spinner. Once
    // connected the field shows the folder the window went to; a failure
    // leaves the text in the bar (bringing the bar back if it had gone) with
    // a short message saying why. Escape and close() give the attempt up.
    void mount(const std::string& url);
    // The parent folder of the field's path (Up, Ctrl-Up, Shift-Tab).
    void navigateToParentDirectory();
    void setPath(const std::string& path);

    // ---- completion (the field's data source)
    void updateCompletions(std::string_view text);
    // The field's text without the tail that inline completion selected.
    std::string uncompletedString() const;
    std::size_t completionCount();
    std::optional<std::string> objectValueForItemAtIndex(std::size_t index) const;
    // CompletionEngine::notFound when absent.
    std::size_t indexOfItemWithStringValue(std::string_view value) const;
    // The inline completion of the typed text; reveals the first candidate of
    // a relative text in the file manager ("reveal_in_current_folder").
    std::optional<std::string> completedString(std::string_view typed);
    const std::vector<std::string>& currentCompletions() const { return engine_.currentCompletions(); }
    const CompletionEngine& completionEngine() const { return engine_; }

    // ---- completion list
    // Recomputes the candidates and shows the list under the field.
    void showPopup();
    // The field's arrow button: shows or hides the list.
    void popupButtonClicked();
    // A row of the list was chosen: it goes into the field and is entered.
    void completionChosen();

    // The text of the list's last row: how many more candidates match, and
    // whether the folder is still being read; empty when neither.
    std::string completionNote() const;
    // The rows the list holds now: the folder's candidates (at most
    // kMaxListRows), then the visited folders that match the typed words.
    const std::vector<std::string>& listRows() const { return listRows_; }

    // Text that may name a visited folder by words of its path: not a path
    // from the root, home or a variable, not quoted, not a server address,
    // not a pattern.
    static bool mayNameVisitedFolder(std::string_view text);

private:
    void completionAnswerChanged();
    // Opens the list with these paths alone, the first chosen.
    void offerChoices(const std::vector<std::string>& choices);
    // Places the list under the field, its first row chosen, and shows it.
    void placeList(bool withNote);
    // Where the list goes for its rows (and the note row, if any).
    Rect listFrame(bool withNote) const;
    // The list's rows for the current candidates and typed text.
    void collectListRows();
    // Hands the rows and the note to the list.
    void refreshCompletionList();
    // Asks Thunar to select the pattern's matches (at most
    // kMaxSelectedNames), with the spinner; its answer is shown like a
    // navigation's.
    void selectPatternMatches(const std::string& text);
    // Gives up a pattern waiting for its folder, and its spinner.
    void cancelPendingPattern();
    void navigationFinished(Navigated outcome);
    // Counts a visit of the folder when the history is kept.
    void noteVisit(const std::string& folder);
    // The best visited folder for a text the window's folder has no
    // candidate for.
    std::optional<std::string> visitedFolderFor(const std::string& text);
    // The same from the folder's answer as it stands, for inline completion:
    // the field's text with the folder after the typed words, remembered
    // for Return.
    std::optional<std::string> visitedSuggestionFor(const std::string& typed);
    std::optional<std::string> bestVisitedFolderNow(const std::string& text);
    void hideCompletions();
    void mountFinished(std::uint64_t attempt, const std::string& url, std::optional<std::string> failure);
    void cancelMount();
    void openFieldItem();
    void moveCaretToEnd();
    std::vector<std::string> fieldTextParams() const;

    ElementRef windowElement_;
    PathWindowViews views_;
    FileManagerCommands& bridge_;
    settings::UserDefaults& defaults_;
    Workspace& workspace_;
    Screens& screens_;
    PathWindowDelegate& delegate_;
    PathFieldEditor pathFieldEditor_;
    // Before engine_, which takes the completion options.
    places::PlaceLookups placeLookups_;
    CompletionEngine engine_;
    std::optional<std::string> fileManagerLocation_;
    BarImage currentImage_;
    // The text the user typed last, while its inline completion may still
    // arrive; nothing after any other change.
    std::optional<std::string> inlineText_;
    // The visited folder inline completion offered last, with the field's
    // text that offered it: Return on exactly that text goes there.
    struct VisitedSuggestion {
        std::string fieldText;
        std::string folder;
    };
    std::optional<VisitedSuggestion> visitedSuggestion_;
    // What the field shows when the window's place has no path: the address
    // just connected to (the trash, recent files).
    std::string locationFallback_;
    bool locationAsked_ = false;  // a background question for the folder is on its way
    std::uint64_t openings_ = 0;  // counts openings and hidings: see frontWindowDescribed
    // A pattern entered while its folder was still being read: its matches
    // are selected once they are all known. Typing, Escape, closing and a
    // folder that stops answering give it up.
    std::optional<std::string> pendingPattern_;
    // The rows the list holds now, and where its visited folders begin.
    std::vector<std::string> listRows_;
    std::size_t visitedStart_ = 0;
    std::size_t bookmarksStart_ = 0;
    // What choosing each row enters, where that is not the row's text (a
    // bookmark's row shows its name too).
    std::vector<std::string> rowTargets_;
    const std::string& rowTarget(std::size_t row) const;
    // The height the list was given last.
    double listHeight_ = 0;
    places::VisitedFolders* visitedFolders_;
    places::BookmarkList* bookmarks_;
    std::shared_ptr<DelayedAction> spinnerTimer_;
    // Blocks that come back on the main queue check it: the controller may
    // be gone by then.
    std::shared_ptr<PathWindowController*> self_;
    bool closed_ = false;
    // The server connection in progress, if any; finished or given-up
    // attempts that report late are recognised by their number.
    bool mounting_ = false;
    std::uint64_t mountAttempt_ = 0;
};

}  // namespace jorvane
