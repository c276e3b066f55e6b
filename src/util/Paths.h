#pragma once

// The path toolkit that completion and navigation rely on. Paths are byte
// strings, as on Linux: nothing here requires valid UTF-8. It standardizes,
// expands tildes, splits into components and joins. None of them touches the file
// system; only tilde expansion reads the environment and the password file.

#include <string>
#include <string_view>
#include <vector>

namespace jorvane::paths {

// "~" and "~/x" expand to the home folder ($HOME when set and not empty, else
// the password entry of the real user); "~user" and "~user/x" to that user's
// home. When something was expanded, doubled slashes in the result are folded
// and a trailing "/" is dropped (except for "/" itself). An unknown user, or
// text that does not start with "~", is returned unchanged.
std::string stringByExpandingTildeInPath(std::string_view path);

// Tilde expanded, "." components removed, doubled and trailing slashes
// removed, and for absolute paths ".." resolved against the preceding
// component (lexically: the file system is not consulted, "/.." is "/").
// In relative paths ".." components are kept, since there is nothing to
// resolve them against. A relative path made only of "." gives ".".
// A leading "/private" is not special on Linux.
std::string stringByStandardizingPath(std::string_view path);

// "/a/b/" gives {"/", "a", "b", "/"}; "a//b" gives {"a", "b"}; "/" and "//"
// give {"/"}; "" gives {}. No component is empty, and "/" appears only first
// (absolute path) or last (trailing slash).
std::vector<std::string> pathComponents(std::string_view path);
// The inverse: components joined with one "/" between them. A "/" or empty
// component contributes a trailing slash when it is last and nothing
// elsewhere (except a leading "/", which makes the path absolute); doubled
// slashes are folded. So pathWithComponents(pathComponents(p)) is p with its
// runs of slashes folded, a trailing slash kept.
std::string pathWithComponents(const std::vector<std::string>& components);

// "/a" + "b" gives "/a/b"; "/a/" + "b" gives "/a/b"; "/" + "b" gives "/b";
// "" + "b" gives "b"; "/a" + "" gives "/a"; doubled slashes in the result are
// folded and a trailing slash dropped (except for "/").
std::string stringByAppendingPathComponent(std::string_view path, std::string_view component);
// "/a/b" gives "/a"; "/a/b/" gives "/a"; "/a" gives "/"; "/" gives "/";
// "a" gives ""; "a/" gives ""; "" gives "".
std::string stringByDeletingLastPathComponent(std::string_view path);
// "/a/b" gives "b"; "/a/b/" gives "b"; "b///" gives "b"; "/" gives "/"; "" gives "".
std::string lastPathComponent(std::string_view path);

// A leading "/" or "~".
bool isAbsolutePath(std::string_view path);

// Whole-string match of `text` against `pattern`, where "*" matches any run
// of characters and "?" exactly one character, ignoring case (Unicode simple
// case folding, one code point to one code point, so "ß" does not match "ss").
// There is no escape: "*" and "?" in the pattern are always wildcards.
// Runs in O(|text| * |pattern|) at worst, never exponential. Bytes that are not
// valid UTF-8 count as one character each and match only themselves (or "?"
// and "*").
bool isCaseInsensitiveLike(std::string_view text, std::string_view pattern);

// Whether `text` begins with `prefix`, character by character with the same
// folding as isCaseInsensitiveLike ("*" and "?" are ordinary characters here).
bool hasCaseInsensitivePrefix(std::string_view text, std::string_view prefix);

// The character-level pieces of the two matchers above, for other
// case-insensitive comparisons. A byte that does not begin a well-formed
// UTF-8 character decodes to kInvalidByte + its value (above the Unicode
// range, so it equals only itself) and advances `i` by one.
inline constexpr char32_t kInvalidByte = 0x110000;
// Decodes the character at text[i] (i < text.size()) and advances i past it.
char32_t decodeCharacter(std::string_view text, std::size_t& i);
// Simple case folding of one decoded character (invalid bytes unchanged).
char32_t foldCharacter(char32_t c);
// The whole text folded and encoded again as UTF-8, invalid bytes kept as
// they are: two texts are equal ignoring case when their folded forms are
// byte-equal, and (for a searched text that is valid UTF-8) one contains the
// other ignoring case when the folded forms do. ASCII text costs one pass and
// no decoding.
std::string caseFolded(std::string_view text);

}  // namespace jorvane::paths
