#pragma once

// The path toolkit that completion and navigation rely on. Paths are byte
// strings, as on Linux: nothing here requires valid UTF-8. The semantics are
// those of the classic Cocoa path methods of the same names (standardizing,
// tilde expansion, components and joining).

#include <string>
#include <string_view>
#include <vector>

namespace jorvane::paths {

// "~" and "~/x" expand to the home folder ($HOME, else the password entry);
// "~user" and "~user/x" to that user's home. An unknown user, or text that
// does not start with "~", is returned unchanged. A trailing "/" is dropped
// from the result, except for "/" itself.
std::string stringByExpandingTildeInPath(std::string_view path);

// Tilde expanded, "." components removed, ".." resolved against the
// preceding component for absolute paths, doubled and trailing slashes
// removed. A leading "/private" is not special on Linux.
std::string stringByStandardizingPath(std::string_view path);

// "/a/b/" gives {"/", "a", "b", "/"}; "a//b" gives {"a", "b"}; "" gives {}.
std::vector<std::string> pathComponents(std::string_view path);
// The inverse: {"/", "a", "b"} gives "/a/b"; a "/" component anywhere but first
// contributes a trailing slash only when it is last.
std::string pathWithComponents(const std::vector<std::string>& components);

// "/a" + "b" gives "/a/b"; "/a/" + "b" gives "/a/b"; "" + "b" gives "b";
// "/a" + "" gives "/a"; doubled slashes in the result are folded and a
// trailing slash dropped (except for "/").
std::string stringByAppendingPathComponent(std::string_view path, std::string_view component);
// "/a/b" gives "/a"; "/a" gives "/"; "/" gives "/"; "a" gives ""; "a/" gives "".
std::string stringByDeletingLastPathComponent(std::string_view path);
// "/a/b/" gives "b"; "/" gives "/"; "" gives "".
std::string lastPathComponent(std::string_view path);

// A leading "/" or "~".
bool isAbsolutePath(std::string_view path);

// Whole-string match of `text` against `pattern`, where "*" matches any run
// of characters and "?" exactly one character, ignoring case (Unicode simple
// case folding). Runs in O(|text| * |pattern|) at worst, never exponential.
// Bytes that are not valid UTF-8 count as one character each and match only
// themselves (or "?" / "*").
bool isCaseInsensitiveLike(std::string_view text, std::string_view pattern);

// Case-insensitive prefix test with the same folding as isCaseInsensitiveLike.
bool hasCaseInsensitivePrefix(std::string_view text, std::string_view prefix);

}  // namespace jorvane::paths
