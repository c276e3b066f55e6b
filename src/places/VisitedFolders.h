#pragma once

// The folders the user visited, as the running program keeps them: the
// history file is read and written on a worker, visits are counted and
// queried on the main thread (a query over 10,000 folders takes tens of
// microseconds).
//
// A visit is counted only for a folder that exists (looked at on the worker)
// and only while remembering is on. Visits made before the file has been
// read are added to what it holds. A change is saved at most once a second.
// Folders that no longer exist are forgotten when a query meets them: the
// answers of each query are looked at on the worker afterwards, and the ones
// that are gone are dropped for the next query.
//
// Use from the main thread only; callbacks from the worker arrive on the
// main queue and are dropped once the object is gone.

#include <cstddef>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "places/HistoryFile.h"
#include "places/VisitHistory.h"

namespace jorvane::places {

class VisitedFolders {
public:
    // The time of a visit, in Unix seconds.
    using WallClock = std::function<UnixSeconds()>;
    // Whether visits are recorded now (the user's preference).
    using Remembering = std::function<bool()>;
    // Something to say in the log (a damaged file set aside, a failed save).
    using Warn = std::function<void(const std::string&)>;

    struct Options {
        std::filesystem::path file = historyFile();
        WallClock now = {};            // the system clock when empty
        Remembering remembering = {};  // always when empty
        Warn warn = {};                // nowhere when empty
    };

    explicit VisitedFolders(Options options);
    ~VisitedFolders();
    VisitedFolders(const VisitedFolders&) = delete;
    VisitedFolders& operator=(const VisitedFolders&) = delete;

    // Starts reading the file on the worker.
    void load();
    bool loaded() const { return loaded_; }

    // Counts a visit of the folder, once the worker has seen that it is one.
    void visit(std::string folder);

    // The best `limit` visited folders for the typed words (see VisitHistory),
    // best first.
    std::vector<std::string> matching(std::string_view typed, std::size_t limit);

    // Forgets every folder and saves the empty history.
    void forget();

    // Waits until the worker has done everything asked of it, saving a
    // pending change first (at quit, and in tests).
    void flush();

    const VisitHistory& history() const { return history_; }

private:
    struct Worker;

    void changed();
    void save();
    void loadFinished(HistoryFile::Loaded loaded);
    UnixSeconds now() const;
    bool remembering() const;

    Options options_;
    std::shared_ptr<Worker> worker_;
    VisitHistory history_;
    SaveLimiter limiter_;
    bool loaded_ = false;
    bool forgotten_ = false;
    // When each folder a query met was last looked at on the worker.
    std::unordered_map<std::string, UnixSeconds> checkedAt_;
    static constexpr UnixSeconds kRecheckAfter = 60;
    // Handed to the worker's callbacks, so that they do nothing once the
    // object is gone.
    std::shared_ptr<VisitedFolders*> self_;
};

}  // namespace jorvane::places
