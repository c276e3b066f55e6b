#pragma once

// Where completion gets the names of a folder: the port that completion's
// worker reads through, so that tests can stand in a folder that is slow or
// never answers. Reads run on completion's worker threads, never on the main
// thread, and may block for as long as the file system does.

#include <functional>
#include <memory>
#include <string>

#include "addressbar/DirectoryListing.h"

namespace jorvane {

class FolderSource {
public:
    // Receives each batch as it is read; answers false to stop reading.
    using BatchSink = std::function<bool(DirectoryListing&& batch)>;

    virtual ~FolderSource() = default;
    // Reads the folder `path` batch by batch. In every batch, entries that
    // are links or of unknown type, and every entry of a folder that cannot
    // be searched, carry the type found by looking them up (links followed):
    // DT_DIR for a directory, DT_REG for anything else, or
    // DirectoryListing::lookupFailed. False when the folder cannot be read,
    // from the start or part-way; true when it was read to the end or the
    // sink stopped it.
    virtual bool read(const std::string& path, const BatchSink& sink) = 0;
};

// The real file system.
class DiskFolderSource final : public FolderSource {
public:
    // About this many bytes of names per batch: a few thousand entries, so
    // that the first names of a huge folder arrive within milliseconds.
    static constexpr std::size_t kBatchBytes = 64 * 1024;

    bool read(const std::string& path, const BatchSink& sink) override;

    // The instance completion uses unless it is given another.
    static std::shared_ptr<FolderSource> shared();
};

}  // namespace jorvane
