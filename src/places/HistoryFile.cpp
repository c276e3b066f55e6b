#include "places/HistoryFile.h"

#include <cstdlib>
#include <cstring>

#include "util/AtomicFile.h"
#include "util/Paths.h"

namespace jorvane::places {

namespace fs = std::filesystem;

fs::path historyFile() {
    if (const char* data = std::getenv("XDG_DATA_HOME"); data && data[0] == '/') {
        return fs::path(data) / "jorvane" / "history";
    }
    std::string home = paths::stringByExpandingTildeInPath("~");
    if (home == "~") home = ".";  // no home at all
    return fs::path(home) / ".local" / "share" / "jorvane" / "history";
}

HistoryFile::HistoryFile(fs::path file) : file_(std::move(file)) {}

HistoryFile::Loaded HistoryFile::load() {
    using Status = atomic_file::ReadResult::Status;
    Loaded loaded;
    const std::string name = file_.string();
    atomic_file::ReadResult read = atomic_file::readRegularFile(file_, kSizeLimit);
    std::string damage;
    switch (read.status) {
        case Status::missing: refuseSaves_.clear(); return loaded;
        case Status::notRegular:
        case Status::tooLarge:
            refuseSaves_ =
                name + (read.status == Status::notRegular ? " is not a regular file"
                                                          : " is too large for a history of visited folders");
            loaded.warnings.push_back(refuseSaves_ + "; it was left as it is and visited folders are not saved");
            return loaded;
        case Status::unreadable: damage = "cannot be read (" + std::string(std::strerror(read.error)) + ")"; break;
        case Status::ok: {
            ParsedHistory parsed = parseHistory(read.text);
            loaded.history = std::move(parsed.history);
            if (parsed.rejectedLines == 0) {
                refuseSaves_.clear();
                return loaded;
            }
            damage = "has " + std::to_string(parsed.rejectedLines) +
                     " line(s) that cannot be read (the first is line " + std::to_string(parsed.firstRejectedLine) +
                     ")";
            break;
        }
    }
    const atomic_file::SetAsideResult moved = atomic_file::setAside(file_);
    if (moved.done) {
        refuseSaves_.clear();
        loaded.warnings.push_back(name + " " + damage + "; it was set aside as " + moved.newPath.filename().string() +
                                  " and the folders that could be read are kept");
    } else {
        refuseSaves_ = name + " " + damage + " and could not be set aside (" + std::strerror(moved.error) + ")";
        loaded.warnings.push_back(refuseSaves_ + "; visited folders are not saved until it is repaired or removed");
    }
    return loaded;
}

std::string HistoryFile::save(const VisitHistory& history) {
    if (!refuseSaves_.empty()) return refuseSaves_;
    return atomic_file::replaceContents(file_, serialiseHistory(history));
}

void SaveLimiter::changed(dispatch::TimePoint now) {
    if (!pending_) firstChange_ = now;
    pending_ = true;
}

std::optional<dispatch::TimePoint> SaveLimiter::saveDueAt() const {
    if (!pending_) return std::nullopt;
    if (!lastSave_) return firstChange_;
    return std::max(firstChange_, *lastSave_ + interval_);
}

void SaveLimiter::saving(dispatch::TimePoint now) {
    lastSave_ = now;
    pending_ = false;
}

}  // namespace jorvane::places
