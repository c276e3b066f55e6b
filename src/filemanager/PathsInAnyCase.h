#pragma once

// A path typed with the wrong case ("/USR/share/DOC") found on disk. Looks
// into the file system: call it off the main thread, through
// FileSystemProbe, since a folder on the way may not answer.

#include <cstddef>
#include <string>
#include <vector>

namespace jorvane {

// The existing paths whose components equal those of the absolute `path`
// when case is ignored (the completion's case folding), in the order the
// folders list them, at most `limit`. A component that exists as typed is
// taken as typed, without looking for others. A trailing "/" is kept.
// Nothing for a relative path or one that exists as typed.
std::vector<std::string> pathsInAnyCase(const std::string& path, std::size_t limit);

}  // namespace jorvane
