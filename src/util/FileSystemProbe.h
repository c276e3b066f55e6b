#pragma once

// Questions to the file system that come back within a time limit. A folder
// on a network file system whose server went away (NFS, sshfs, gvfs) blocks
// every look into it for minutes or for ever; the thread that asks must not
// block with it. Each question runs on a thread of a small pool of its own;
// the asker waits at most the limit, and a question without an answer by then
// answers nothing while its thread stays with the file system. From then on,
// until that thread gets its answer, a question about the same path or one
// below it answers nothing at once.

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace jorvane::FileSystemProbe {

using Duration = std::chrono::nanoseconds;

// Threads that may wait on the file system at once. With all of them stuck a
// question waits its limit and answers nothing.
inline constexpr std::size_t kMaxThreads = 8;

namespace detail {
// Runs `work` on a probe thread; true when it has run within the limit.
bool run(const std::string& path, std::function<void()> work, Duration limit, const std::function<bool()>& givenUp);
}  // namespace detail

// The answer of `question`, which looks at `path` (and only below it), or
// nothing when it has not come within `limit`, or when `givenUp` (asked every
// few milliseconds while waiting, may be empty) says the asker has lost
// interest.
template <typename T>
std::optional<T> ask(const std::string& path, std::function<T()> question, Duration limit,
                     const std::function<bool()>& givenUp = {}) {
    // Shared: a question given up on still answers, into nowhere.
    auto answer = std::make_shared<std::optional<T>>();
    if (!detail::run(
            path, [answer, question = std::move(question)] { *answer = question(); }, limit, givenUp))
        return std::nullopt;
    return std::move(*answer);
}

// Whether the path names a directory, links followed.
std::optional<bool> isDirectory(const std::string& path, Duration limit, const std::function<bool()>& givenUp = {});
// Whether the path names anything, a link to nothing included.
std::optional<bool> exists(const std::string& path, Duration limit);
// The raw names of a folder's entries; none for a folder that cannot be read.
std::optional<std::vector<std::string>> entries(const std::string& folder, Duration limit);

// Whether a question about the path, or a folder above it, is waiting on the
// file system past its limit.
bool isStuck(const std::string& path);

}  // namespace jorvane::FileSystemProbe
