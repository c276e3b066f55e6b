#pragma once

// The visit history on disk: $XDG_DATA_HOME/jorvane/history
// (~/.local/share/jorvane/history by default), in the text form of
// VisitHistory.h, and the pace at which it is saved.
//
// load() and save() touch the disk and may block: call them off the UI thread.
// Saving replaces the file atomically (temporary file, flush, rename). A file
// with lines that cannot be read is never written over: it is renamed to
// "history.corrupt-<time>" and the lines that could be read are kept, so the
// next save writes them to a fresh file. A path that is not a regular file,
// or a file larger than any history, is left as it is; the history starts
// empty and is not saved there.

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "places/VisitHistory.h"
#include "util/Dispatch.h"

namespace jorvane::places {

// $XDG_DATA_HOME/jorvane/history when the variable holds an absolute path
// (a relative one is ignored, as XDG says), else ~/.local/share/jorvane/history.
std::filesystem::path historyFile();

class HistoryFile {
public:
    explicit HistoryFile(std::filesystem::path file = historyFile());

    struct Loaded {
        VisitHistory history;
        std::vector<std::string> warnings;  // for the log: what was wrong and what was done
    };
    // A missing file is an empty history, without warning.
    Loaded load();
    // Empty on success, else what went wrong, in words.
    std::string save(const VisitHistory& history);

    const std::filesystem::path& file() const { return file_; }

    static constexpr std::uint64_t kSizeLimit = 16 * 1024 * 1024;

private:
    std::filesystem::path file_;
    // Set while the file must not be written over (see above).
    std::string refuseSaves_;
};

// At most one save per interval while folders are being visited: after a
// change, a save is due at once when the last one is at least an interval
// old, else when it will be. Time is passed in.
class SaveLimiter {
public:
    explicit SaveLimiter(dispatch::Duration interval = std::chrono::seconds(1)) : interval_(interval) {}

    // The history changed at `now`.
    void changed(dispatch::TimePoint now);
    // When the pending change should be saved (nullopt: nothing to save).
    // The caller saves then, or arms a timer for it.
    std::optional<dispatch::TimePoint> saveDueAt() const;
    bool saveDue(dispatch::TimePoint now) const { return saveDueAt() && *saveDueAt() <= now; }
    // A save of the history as it is starts at `now` (whatever its outcome:
    // a failing disk is not retried faster than the interval). Changes after
    // this call are pending again.
    void saving(dispatch::TimePoint now);

private:
    dispatch::Duration interval_;
    std::optional<dispatch::TimePoint> lastSave_;
    bool pending_ = false;
    dispatch::TimePoint firstChange_{};
};

}  // namespace jorvane::places
