#pragma once

// The one way to query or command the file manager. Callers name a handler of
// the handler catalogue, pass a list of strings and get a string or nothing
// back; they never talk to the file manager themselves.
//
// Time-outs: every handler call is bounded by the catalogue's own time-out
// (the Thunar adapter enforces it). The wrapper adds none, so a synchronous
// call blocks its caller at most for the catalogue's bound. A navigation also
// asks the file system what its path is; that question is bounded too
// (Options::folderAnswerLimit), so a folder that does not answer never holds
// up the navigations after it.

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "filemanager/HandlerCatalogue.h"
#include "filemanager/HandlerNames.h"
#include "util/Dispatch.h"

namespace jorvane {

// How a navigation ended.
enum class Navigated {
    answered,           // the file manager did it
    fileManagerSilent,  // the file manager did not answer, even when asked again
    folderSilent,       // the file system did not say in time what the path is; the file manager was not asked
};

class FileManagerCommands {
public:
    struct Options {
        // How long a navigation waits for the file system to say whether its
        // path is a directory.
        std::chrono::nanoseconds folderAnswerLimit = std::chrono::seconds(1);
        // Whether a path is a directory, links followed; the real file system
        // when empty (tests put in one that never answers). Asked on a thread
        // of FileSystemProbe, never on the navigation queue itself.
        std::function<bool(const std::string&)> isDirectory;
    };

    // Told whether the file manager answered the command.
    using FinishedBlock = std::function<void(bool answered)>;
    using NavigatedBlock = std::function<void(Navigated outcome)>;
    using PathBlock = std::function<void(std::optional<std::string> path)>;
    using FailureBlock = std::function<void(std::optional<std::string> failure)>;

    // Without a catalogue every call answers nothing.
    explicit FileManagerCommands(std::shared_ptr<HandlerCatalogue> catalogue = nullptr);
    FileManagerCommands(std::shared_ptr<HandlerCatalogue> catalogue, Options options);
    // Drops the requests that wait and waits for the running ones.
    ~FileManagerCommands();
    FileManagerCommands(const FileManagerCommands&) = delete;
    FileManagerCommands& operator=(const FileManagerCommands&) = delete;

    // The process-wide instance, created on first use and never destroyed.
    static FileManagerCommands& shared();
    // Installs the shared instance's catalogue: main does so once at start,
    // tests put in fakes. nullptr takes it away again.
    static void setSharedCatalogue(std::shared_ptr<HandlerCatalogue> catalogue);

    void setCatalogue(std::shared_ptr<HandlerCatalogue> catalogue);
    std::shared_ptr<HandlerCatalogue> catalogue() const;

    // Synchronous: returns when the handler has answered, on the caller's
    // thread. The name is lower-cased; the parameters go in order.
    std::optional<std::string> call(std::string_view name) const;
    std::optional<std::string> call(std::string_view name, const std::vector<std::string>& params) const;

    // Navigation on the serial set-path queue: the newest request replaces
    // those still waiting, and one still waiting for the file system; one
    // that has asked the file manager finishes. An existing directory (links
    // followed) is shown with "show_folder", anything else is revealed
    // with "reveal"; a path the file system says nothing about within
    // the limit goes to neither. A call that got no answer is tried once
    // more. Then `finishedBlock` runs on the main queue with the outcome,
    // unless a newer navigation replaced this one.
    void showFolderAsync(std::string path, NavigatedBlock finishedBlock);
    // Where such a navigation went.
    struct Arrival {
        Navigated outcome = Navigated::answered;
        // The path navigated to: the one asked for, or the one path on disk
        // that it names in another case ("/USR/share/DOC" for
        // "/usr/share/doc").
        std::string path;
        // Several paths on disk name it in another case: none was shown,
        // the file manager was not asked, and these are the choices.
        std::vector<std::string> choices;
    };
    using ArrivedBlock = std::function<void(const Arrival& arrival)>;
    // showFolderAsync that also finds a path typed in the wrong case. When
    // `asTyped` is given (the text before "~", "$VAR" or ".." were read in
    // it) and names something on disk, it goes first: a folder may well be
    // called "$HOME".
    void goToAsync(std::string path, ArrivedBlock finishedBlock, std::string asTyped = {});
    // At most this many paths in another case are offered.
    static constexpr std::size_t kMaxCaseChoices = 20;
    // "reveal" [path] on the same queue and terms; a path naming a
    // directory (links followed) gets a trailing "/" first. The block also
    // gets the path as revealed.
    using RevealedBlock = std::function<void(Navigated outcome, const std::string& revealed)>;
    void revealAsync(std::string path, RevealedBlock finishedBlock, std::string asTyped = {});
    // Any other command, in the order given, on a serial queue of its own;
    // `finishedBlock` (may be empty) as above. Never retried: a command
    // like "close the window" must not happen twice.
    void commandAsync(std::string name, std::vector<std::string> params, FinishedBlock finishedBlock = {});
    // "folder_path" on the serial get-path queue, same replacement rule;
    // `completion` gets the answer (maybe nothing) on the main queue.
    void getPathAsync(PathBlock completion);
    // What a bar needs as it opens.
    struct FrontWindow {
        // False only when the file manager said the window is not a browser window.
        bool isFolderWindow = true;
        std::optional<std::string> folder;
        // Asked only when wanted.
        std::optional<std::string> selection;
    };
    using FrontWindowBlock = std::function<void(const FrontWindow& window)>;
    // Asks whether the front window is a browser window, then (unless it is
    // not) `withFolder` its folder and `withSelection` its selected item, on
    // the serial front-window queue with the same replacement rule;
    // `completion` gets the answers on the main queue.
    void describeFrontWindowAsync(bool withFolder, bool withSelection, FrontWindowBlock completion);
    // "reveal_in_current_folder" [name] on the serial reveal queue, same
    // replacement rule: while the user types, only the newest name is still
    // selected when the file manager is slow. Nothing is reported back.
    void revealInCurrentAsync(std::string name);
    // "mount" [url] on the serial mount queue, same replacement rule.
    // `done` runs on the main queue: with nothing when the server is mounted
    // and shown, else with the reason in a short text for the user (the
    // catalogue's own, or a general one when it gives none). A mount taken
    // away by cancelMount() before it started never reports.
    void mountAsync(std::string url, FailureBlock done);
    // Drops the waiting mount and asks the running one to give up (it then
    // reports a failure).
    void cancelMount();
    // "open_terminal" [path] on the global queue; nothing is reported back.
    void openTerminal(std::string path);

    // Waits until the serial queues are empty (tests, shutdown).
    void waitUntilIdle();

    struct Core;

private:
    // Shared with the queued work, so that a task on the global queue never
    // outlives what it calls.
    std::shared_ptr<Core> core_;
    // Declared last: destroyed first, so no operation runs on a dead core.
    dispatch::OperationQueue showFolderQueue_{1};
    dispatch::OperationQueue getPathQueue_{1};
    dispatch::OperationQueue frontWindowQueue_{1};
    dispatch::OperationQueue revealQueue_{1};
    dispatch::OperationQueue commandQueue_{1};
    dispatch::OperationQueue mountQueue_{1};
};

}  // namespace jorvane
