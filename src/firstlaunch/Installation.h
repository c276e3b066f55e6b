#pragma once

// What the running program's files are and who put them there, so that the
// program only ever moves or deletes files it installed itself.
//
// Every install made by the project's packaging carries a manifest,
// <root>/share/jorvane/installed-files: a first line naming the kind of
// install, then one path per line, relative to the root, of every file the
// install put there (the manifest included):
//
//   jorvane-installed-files 1 release
//   bin/jorvane
//   share/jorvane/installed-files
//   ...
//
// The kinds:
//   release  an unpacked release archive: a folder of Jorvane's alone, which
//            may be moved into the applications folder and deleted file by file;
//   prefix   `cmake --install` into a prefix other programs share (/usr/local,
//            ~/.local): only the listed files are Jorvane's;
//   package  the package manager's: only the package manager removes it.
// A program without a manifest next to it, or whose manifest is damaged or
// names a file that is not there (a build tree, a loose binary, a copy
// someone made by hand), is of no known install: nothing is ever moved or
// deleted on its behalf.

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace jorvane::installation {

enum class Kind { unknown, release, prefix, package };

inline constexpr std::string_view kManifestPath = "share/jorvane/installed-files";
inline constexpr std::string_view kManifestHeader = "jorvane-installed-files 1";
inline constexpr std::string_view kProgramPath = "bin/jorvane";
// A manifest longer than this is not one of ours.
inline constexpr std::size_t kManifestLimit = 1024 * 1024;

struct Manifest {
    Kind kind = Kind::unknown;
    // Relative, lexically normal paths without "." or ".." components, each
    // once, in the order given.
    std::vector<std::string> files;
};

// Nothing when the text is not a manifest: a wrong header or kind, an empty,
// absolute or escaping path, a NUL, or a text over kManifestLimit.
std::optional<Manifest> parseManifest(std::string_view text);

struct Installation {
    Kind kind = Kind::unknown;
    // The release folder or the prefix: the folder above bin/jorvane.
    std::filesystem::path root;
    std::vector<std::string> files;
};

// The install the program file belongs to: the folder above its bin/, when
// that holds a manifest of a kind whose files are all present (regular files
// or links). Anything else is Kind::unknown with an empty root.
Installation installationOf(const std::filesystem::path& executable);

// Whether the folder is an unpacked release of Jorvane (what may be replaced
// in the applications folder).
bool isReleaseFolder(const std::filesystem::path& folder);

// The listed files as absolute paths, in the manifest's order.
std::vector<std::filesystem::path> installedFiles(const Installation& installation);

struct Removal {
    std::vector<std::filesystem::path> removed;
    std::vector<std::filesystem::path> failed;
};

// Deletes the listed files of a release or prefix install, then the folders
// that held them and are now empty, deepest first: in a release folder every
// such folder and the root itself, in a prefix only share/jorvane and below
// (bin/ and share/ belong to every program there). A file the user added
// stays, and so do the folders that hold it. Nothing for other kinds.
Removal removeInstalledFiles(const Installation& installation);

}  // namespace jorvane::installation
