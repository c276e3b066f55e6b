#include "addressbar/FolderSource.h"

#include <dirent.h>
#include <sys/stat.h>

#include <climits>
#include <optional>

namespace jorvane {

bool DiskFolderSource::read(const std::string& path, const BatchSink& sink) {
    std::optional<DirectoryReader> reader = DirectoryReader::open(path);
    if (!reader) return false;
    std::string base = path;
    if (base.empty() || base.back() != '/') base.push_back('/');
    // The listing's type answers "is it a directory?" for everything but
    // links and unknown types. A folder we may not search lists its names,
    // yet every lookup of an entry in it fails, as does one of a path the
    // kernel finds too long: those are looked up too, so that they fail the
    // same way.
    const bool typesUsable = reader->searchable();
    std::string entry = base;
    for (;;) {
        DirectoryListing batch;
        const DirectoryReader::Status status = reader->readBatch(batch, kBatchBytes);
        if (status == DirectoryReader::Status::failed) return false;
        for (std::size_t i = 0; i < batch.size(); ++i) {
            const unsigned char type = batch.type(i);
            const std::string_view name = batch.name(i);
            if (typesUsable && type != DT_LNK && type != DT_UNKNOWN && base.size() + name.size() < PATH_MAX) continue;
            entry.resize(base.size());
            entry.append(name);
            struct stat found;
            if (::stat(entry.c_str(), &found) != 0)
                batch.setType(i, DirectoryListing::lookupFailed);
            else
                batch.setType(i, S_ISDIR(found.st_mode) ? DT_DIR : DT_REG);
        }
        if (!sink(std::move(batch))) return true;
        if (status == DirectoryReader::Status::finished) return true;
    }
}

std::shared_ptr<FolderSource> DiskFolderSource::shared() {
    static const auto source = std::make_shared<DiskFolderSource>();
    return source;
}

}  // namespace jorvane
