#pragma once

// The program's own folder, its "bundle": the program is <bundle>/bin/jorvane
// and its resources lie in <bundle>/share/jorvane. An unpacked copy in
// ~/Applications/Jorvane or /opt/jorvane is such a folder of its own; an
// install by the package manager puts the program into a prefix shared with
// every other program (/usr), which must never be moved or removed as a
// whole.

#include <filesystem>
#include <string>
#include <vector>

namespace jorvane::bundle {

// The bundle of the program file: the folder above its bin/. A program not
// in a bin/ folder is its own bundle's only file: its folder is returned.
// Empty for an empty path.
std::filesystem::path bundlePathFor(const std::filesystem::path& executable);

// The path made absolute and lexically normal, without a trailing slash
// ("/usr/" and "/usr/./" are /usr): how the bundle's paths are compared.
std::filesystem::path normalPath(const std::filesystem::path& path);

// The program file inside a bundle.
std::filesystem::path executableIn(const std::filesystem::path& bundle);

// Whether the folder is one that other programs or the user's own files
// share: the root, the system prefixes (/usr, /usr/local, /opt, /bin …),
// the home folder and anything above it. Such a folder is never moved or
// deleted on the program's behalf. Compared as normalPath.
bool isSharedPrefix(const std::filesystem::path& folder);

// The applications folders, the user's first: ~/Applications (when HOME is
// set), then /opt, the local one (localApplicationsDirectory).
std::vector<std::string> applicationsDirectoryStrings();
// Where a move into the applications folder goes: /opt.
std::filesystem::path localApplicationsDirectory();

// Whether the bundle lies in an applications folder: its path begins with
// one of them as a string (so "/optical" counts as in "/opt"), or one of its
// components is "Applications".
bool isInApplicationsFolder(const std::filesystem::path& bundle);

}  // namespace jorvane::bundle
