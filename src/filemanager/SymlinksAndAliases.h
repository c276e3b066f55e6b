#pragma once

// Turns a path into the path of the object it really designates, following
// symbolic links (and, where the platform has them, alias files) component by
// component. Used to find the real applications folder before installing into
// it. Every function answers std::nullopt on failure and never throws; a path
// holding a NUL byte names no file and gives std::nullopt.
//
// Linux has no alias files: the alias steps answer "no alias" for every path,
// and the rest of the algorithm is the same as where aliases exist.

#include <optional>
#include <string>
#include <string_view>

namespace jorvane::SymlinksAndAliases {

// The fully resolved absolute path: the path is standardized (tilde expanded,
// "." and ".." and doubled slashes removed), then each component in turn is
// appended and resolved with stringByIterativelyResolvingSymlinkOrAlias.
// Nullopt when the standardized path is not absolute or a component cannot be
// resolved (missing, dangling link, unreadable). "/" gives "/".
std::optional<std::string> stringByResolvingSymlinksAndAliases(std::string_view path);

// The path with its last component resolved again and again until it
// designates neither a symbolic link nor an alias. Directories are never asked
// whether they are aliases. Nullopt when the path or a step's target does not
// exist. A cycle of links is followed for ever (see the loop).
std::optional<std::string> stringByIterativelyResolvingSymlinkOrAlias(std::string_view path);

// The link target (as stringByConditionallyResolvingSymlink gives it), or the
// path itself when it is no symbolic link.
std::optional<std::string> stringByResolvingSymlink(std::string_view path);

// The link target when the path is a symbolic link, else nullopt. An absolute
// target is returned exactly as stored in the link (not standardized); a
// relative one is joined to the link's parent folder and standardized.
std::optional<std::string> stringByConditionallyResolvingSymlink(std::string_view path);

// The alias target when the path is an alias file, else nullopt. Always
// nullopt on Linux.
std::optional<std::string> stringByConditionallyResolvingAlias(std::string_view path);

}  // namespace jorvane::SymlinksAndAliases
