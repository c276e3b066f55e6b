#pragma once

// Completion of the address bar's text on the file system. The
// PathWindowController holds one engine and answers its combo box's data
// source calls through it.
//
// The typed text is read as a place first (places/PlaceText: "~", "~user",
// "$VAR", a file:// URI, "." and ".."); a server address or text that names
// no place completes nothing. A candidate is a path when the text names an
// absolute one, and a bare name relative to the file manager's folder
// otherwise. Text that names its folder another way ("~/Doc", "$HOME/Doc")
// keeps that way in its candidates ("~/Documents/"), so that inline
// completion extends what was typed. Directories (and links to them) end
// with "/". Shorter candidates come first.
//
// When no name begins with the text (and it is no pattern), the empty answer
// is followed by the folder's names most like the text, best first
// (places/FuzzyMatch: its letters in order, at word starts), at most
// kMaxSimilarNames of them, as a later answer: candidatesAreSimilarNames()
// says so, and they are never completed inline nor revealed as the user
// types.
//
// Threads. The main thread never touches the file system here: the folder is
// read, and the names filtered, on worker threads. A text is answered from
// what is known once the worker has finished or a short wait budget has
// passed, whichever comes first; when the work goes on longer (a huge folder,
// a file system that does not answer), the answer grows as the worker
// produces more, and Hooks::answerChanged tells the controller on the main
// thread. Whether a folder has stopped answering is judged by timers on
// dispatch::timeSource(), which wake the worker. A newer text cancels the
// work for an older one. The engine keeps
// the names of the folder it completed last (read once, shared read-only by
// the workers) and reads the folder again only when the directory part of
// the text changes.
//
// Text and names are bytes: names that are not valid UTF-8 are listed,
// matched and returned unchanged.

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "addressbar/FolderSource.h"
#include "addressbar/PathWindowViews.h"
#include "places/PlaceText.h"

namespace jorvane {

class CompletionEngine {
public:
    static constexpr std::size_t notFound = static_cast<std::size_t>(-1);
    static constexpr std::size_t kMaxSimilarNames = 50;

    struct Options {
        // How long the main thread waits for a text's answer before it goes
        // on with what is known: well inside one frame. A real wait for the
        // worker threads (on the steady clock, not on dispatch::timeSource()):
        // virtual time would make it either nothing or for ever.
        std::chrono::nanoseconds waitBudget = std::chrono::milliseconds(4);
        // While a folder is being read, a grown answer is handed over at
        // most this often.
        std::chrono::nanoseconds publishInterval = std::chrono::milliseconds(40);
        // A folder that has given nothing new for this long is shown as not
        // answering (on dispatch::timeSource(), looked at four times in that
        // span, so up to a quarter of it late).
        std::chrono::nanoseconds stallAfter = std::chrono::seconds(2);
        // Where folders are read; the real file system when null.
        std::shared_ptr<FolderSource> source;
        // Home folders and environment variables named in the text.
        places::PlaceLookups placeLookups = places::systemPlaceLookups();
    };

    // What the controller does when the candidates change; any may be empty.
    struct Hooks {
        // After every recomputation for a non-empty text: the combo box must
        // ask again how many items there are.
        std::function<void()> noteNumberOfItemsChanged;
        // The data-source answers that recompute also hand the new candidates
        // to the completion list.
        std::function<void(const std::vector<std::string>&)> setCompletionsContent;
        // The answer grew or finished after its text was first answered (on
        // the main thread, from the main queue).
        std::function<void()> answerChanged;
    };

    // How complete the current answer is.
    enum class Progress {
        complete,      // every name of the folder has been considered
        reading,       // the folder is still being read
        notAnswering,  // the folder has given nothing for a while
    };

    // The window's folder, as the controller keeps it: `fileManagerLocation` is the
    // stored value (nothing when unknown) and `fetchFileManagerLocation` the
    // controller's getter, which asks the file manager and stores its answer.
    // The engine calls the getter only when the location is unknown, and that
    // keystroke is completed without it (against the working directory);
    // the stored answer serves the next one.
    using FetchFileManagerLocation = std::function<void()>;

    struct Completion {
        // The inline completion: the first (shortest) candidate; nothing for a
        // pattern or when there is no candidate (yet).
        std::optional<std::string> completion;
        // Search as you type: a candidate to select in the file manager now
        // (the controller calls "reveal_in_current_folder" with it). Set only
        // for relative text, and only when it differs from the candidate
        // revealed last.
        std::optional<std::string> revealName;
    };

    explicit CompletionEngine(Hooks hooks = {});
    CompletionEngine(Hooks hooks, Options options);
    ~CompletionEngine();
    CompletionEngine(const CompletionEngine&) = delete;
    CompletionEngine& operator=(const CompletionEngine&) = delete;

    // Rebuilds currentCompletions() for `text` (waiting at most the budget).
    // Empty text empties the list without telling the combo box.
    void updateCompletions(std::string_view text, const std::optional<std::string>& fileManagerLocation,
                           const FetchFileManagerLocation& fetchFileManagerLocation);

    // The field's text without the tail that inline completion added (the
    // selected bytes). A range reaching past the text is clipped to it.
    static std::string uncompletedString(std::string_view fieldText, TextRange selectedRange);

    // completionCount: recomputes for `uncompleted` unless it is empty
    // or equals the cached directory's path, then counts the candidates.
    std::size_t numberOfItems(std::string_view uncompleted, const std::optional<std::string>& fileManagerLocation,
                              const FetchFileManagerLocation& fetchFileManagerLocation);
    // A copy of the candidate at `index`; nothing when out of range.
    std::optional<std::string> objectValueForItemAtIndex(std::size_t index) const;
    // Index of the first candidate equal to `value`, notFound when absent.
    std::size_t indexOfItemWithStringValue(std::string_view value) const;
    // The inline completion of the typed text `s` (comboBox:completedString:).
    Completion completedString(std::string_view s, const std::optional<std::string>& fileManagerLocation,
                               const FetchFileManagerLocation& fetchFileManagerLocation);
    // The search-as-you-type step of completedString for the current answer:
    // its first candidate when the text is relative and that candidate was
    // not revealed last.
    std::optional<std::string> nextRevealName();

    const std::vector<std::string>& currentCompletions() const { return currentCompletions_; }
    // The text the current candidates answer (uncompleted, as typed).
    const std::string& answeredText() const { return answeredText_; }
    // Whether that text names a path of its own (not a name in the file
    // manager's folder).
    bool answeredAbsolute() const { return answeredAbsolute_; }
    // Whether the candidates only resemble the text: no name begins with it.
    bool candidatesAreSimilarNames() const { return similarOnly_; }
    Progress progress() const { return progress_; }
    // Whether the cached folder could not be read (missing, not a folder, no
    // permission, failed part-way).
    bool folderUnreadable() const { return folderUnreadable_; }
    // The cached directory (tilde expanded, no trailing "/" except for "/");
    // nothing before the first listing.
    const std::optional<std::string>& currentCompletionsDirectoryPath() const {
        return currentCompletionsDirectoryPath_;
    }

    // The candidate last revealed by search as you type; a typed text equal
    // to it is not treated as a search pattern.
    const std::optional<std::string>& searchModeLastRevealedText() const { return searchModeLastRevealedText_; }
    void setSearchModeLastRevealedText(std::optional<std::string> text) {
        searchModeLastRevealedText_ = std::move(text);
    }

    // Drops the candidates and the cached listing, and cancels the work
    // under way (the controller's close).
    void clear();

    struct FolderLoad;
    struct Request;

private:
    std::shared_ptr<FolderLoad> loadFor(const std::string& directory);
    void cancelRequest();
    // Takes the request's newest answer, if it has one; true when it did.
    bool takeAnswer();
    void answerArrived(const std::shared_ptr<Request>& request);
    void publishContent() const;

    Hooks hooks_;
    Options options_;
    std::vector<std::string> currentCompletions_;
    std::string answeredText_;
    bool answeredAbsolute_ = false;
    bool similarOnly_ = false;
    Progress progress_ = Progress::complete;
    bool folderUnreadable_ = false;
    std::shared_ptr<FolderLoad> load_;
    std::shared_ptr<Request> request_;
    std::optional<std::string> currentCompletionsDirectoryPath_;
    std::optional<std::string> searchModeLastRevealedText_;
    // Deliveries from the main queue check it: the engine may be gone.
    std::shared_ptr<CompletionEngine*> self_;
};

}  // namespace jorvane
