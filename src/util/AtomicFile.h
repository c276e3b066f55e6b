#pragma once

// Files that the program owns and rewrites whole (the settings, the visit
// history): reading one without blocking on something that is not a file,
// replacing one so that a reader sees the old version or the new one and never
// half of one, and setting a damaged one aside so that it is never lost.

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

namespace jorvane::atomic_file {

struct ReadResult {
    enum class Status {
        ok,          // `text` holds the whole file
        missing,     // no such file
        unreadable,  // exists but cannot be opened or read (`error` is the errno)
        notRegular,  // a FIFO, a device, a folder: left alone, nothing read
        tooLarge,    // larger than the limit: left alone, nothing read
    };
    Status status = Status::missing;
    std::string text;
    int error = 0;
    std::uint64_t size = 0;
};

// Opens without blocking (a FIFO in its place does not hold the caller up),
// and reads only a regular file of at most `sizeLimit` bytes.
ReadResult readRegularFile(const std::filesystem::path& file, std::uint64_t sizeLimit);

// Writes `text` to a temporary file in the same folder (created when needed),
// flushes it to disk, renames it over `file` and flushes the folder. The old
// file's permissions are kept. Returns an empty string on success, else what
// went wrong, in words; on failure the old file is untouched.
std::string replaceContents(const std::filesystem::path& file, std::string_view text);

// Renames `from` to `to` only when `to` does not exist (renameat2's NOREPLACE,
// or a look first where the file system lacks it). On failure errno says why.
bool renameNoReplace(const std::filesystem::path& from, const std::filesystem::path& to);

struct SetAsideResult {
    bool done = false;
    std::filesystem::path newPath;  // where the file went, when done
    int error = 0;                  // errno of the failed rename, when not
};

// Renames a damaged file to "<name>.corrupt-<local time>" (with "-2", "-3" …
// added when that name is taken), never replacing another file.
SetAsideResult setAside(const std::filesystem::path& damaged);

}  // namespace jorvane::atomic_file
