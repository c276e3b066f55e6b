#pragma once

// Completion of the address bar's text on the real file system. The
// PathWindowController holds one engine and answers its combo box's data
// source calls through it.
//
// A candidate is an absolute path when the typed text is absolute or begins
// with "~", and a bare name relative to the file manager's folder otherwise;
// directories (and links to them) end with "/". The engine keeps the listing
// of the directory it completed last and reads the disk again only when the
// directory part of the text changes, so keystrokes within one folder only
// filter cached names. Everything runs on the main thread.
//
// Text and names are bytes: names that are not valid UTF-8 are listed,
// matched and returned unchanged.

#include "addressbar/DirectoryListing.h"
#include "addressbar/PathWindowViews.h"

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace jorvane {

class CompletionEngine {
public:
    static constexpr std::size_t notFound = static_cast<std::size_t>(-1);

    // What the controller does when the candidates change; either may be empty.
    struct Hooks {
        // After every recomputation for a non-empty text: the combo box must
        // ask again how many items there are.
        std::function<void()> noteNumberOfItemsChanged;
        // The data-source answers that recompute also hand the new candidates
        // to the completion list.
        std::function<void(const std::vector<std::string>&)> setCompletionsContent;
    };

    // The window's folder, as the controller keeps it: `finderLocation` is the
    // stored value (nothing when unknown) and `fetchFinderLocation` the
    // controller's getter, which asks the file manager and stores its answer.
    // The engine calls the getter only when the location is unknown, and that
    // keystroke is completed without it (against the working directory);
    // the stored answer serves the next one.
    using FetchFinderLocation = std::function<void()>;

    struct Completion {
        // The inline completion: the first (shortest) candidate; nothing for a
        // pattern or when there is no candidate.
        std::optional<std::string> completion;
        // Search as you type: a candidate to select in the file manager now
        // (the controller calls "finder_reveal_in_current" with it). Set only
        // for relative text, and only when it differs from the candidate
        // revealed last.
        std::optional<std::string> revealName;
    };

    explicit CompletionEngine(Hooks hooks = {});

    // Rebuilds currentCompletions() for `text`. Empty text empties the list
    // without telling the combo box.
    void updateCompletions(std::string_view text, const std::optional<std::string>& finderLocation,
                           const FetchFinderLocation& fetchFinderLocation);

    // The field's text without the tail that inline completion added (the
    // selected bytes). A range reaching past the text is clipped to it.
    static std::string uncompletedString(std::string_view fieldText, TextRange selectedRange);

    // numberOfItemsInComboBox: recomputes for `uncompleted` unless it is empty
    // or equals the cached directory's path, then counts the candidates.
    std::size_t numberOfItems(std::string_view uncompleted, const std::optional<std::string>& finderLocation,
                              const FetchFinderLocation& fetchFinderLocation);
    // A copy of the candidate at `index`; nothing when out of range.
    std::optional<std::string> objectValueForItemAtIndex(std::size_t index) const;
    // Index of the first candidate equal to `value`, notFound when absent.
    std::size_t indexOfItemWithStringValue(std::string_view value) const;
    // The inline completion of the typed text `s` (comboBox:completedString:).
    Completion completedString(std::string_view s, const std::optional<std::string>& finderLocation,
                               const FetchFinderLocation& fetchFinderLocation);

    const std::vector<std::string>& currentCompletions() const { return currentCompletions_; }
    // The cached listing: nothing before the first listing and when the
    // cached directory could not be listed.
    const std::optional<DirectoryListing>& currentCompletionsDirectoryContent() const {
        return currentCompletionsDirectoryContent_;
    }
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

    // Drops the candidates and the cached listing (the controller's close).
    void clear();

private:
    void refreshCache(const std::string& directory);
    void publishContent() const;

    Hooks hooks_;
    std::vector<std::string> currentCompletions_;
    std::optional<DirectoryListing> currentCompletionsDirectoryContent_;
    std::optional<std::string> currentCompletionsDirectoryPath_;
    std::optional<std::string> searchModeLastRevealedText_;
};

}  // namespace jorvane
