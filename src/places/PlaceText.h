#pragma once

// What a user typed or pasted into the address bar, read as a place: a local
// path or a location URL. Pure text work: the environment and home folders
// are looked up through the functions passed in, and the file system is
// never consulted.
//
// In order:
//  1. Line breaks around the text are dropped (a pasted line ends in one).
//     Other spaces are kept: names may begin or end with a space.
//  2. Shell quoting, as a terminal shows a path: when the text, spaces around
//     it aside, begins with a single or double quote, or holds a
//     backslash-escaped space ("My\ Files"), it is read as one shell word:
//     '…' is literal, "…" takes \" \\ \$ \` escapes and expands variables, an
//     unquoted backslash escapes the next character, an unquoted "~" at the
//     start is a home folder. Text that is not one shell word (an unclosed
//     quote, a second word) is read as plain text instead.
//  3. A location URL of a scheme the desktop can mount or show (sftp, ssh,
//     smb, ftp, ftps, dav, davs, afp, nfs, http, https, mtp, trash, recent,
//     network), written in lower case followed by "://", is returned as it
//     stands.
//  4. A "file://" URI (empty host or "localhost") becomes its path, with
//     %-escapes decoded to bytes, also those that are not UTF-8 ("%E9");
//     a malformed escape ("%zz") stays as written; "%00" makes the text
//     invalid, since no path holds a NUL. No variable or "~" is expanded in
//     a URI. A file URI naming another host is invalid.
//  5. Plain text: "~" and "~user" at the start (up to the first "/") become
//     the home folder; "$NAME" and "${NAME}" (NAME of letters, digits and
//     "_", not starting with a digit) become the variable's value. An unknown
//     user or an unset variable leaves that part as typed (a folder may well
//     be called "$NAME"); a variable set to "" expands to nothing.
//  6. A NUL byte in the text, or in a variable's value or home folder put
//     into it, makes it invalid: no path holds one.
//  7. The path is tidied lexically: doubled slashes folded, "." components
//     dropped, ".." removes the component before it ("/.." is "/"; in a
//     relative path a leading ".." is kept, relative paths stay relative).
//     A trailing slash is kept. For completion, the last component is kept as
//     typed when no slash follows it, since the user may be typing a hidden
//     name ("/home/u/." on the way to "/home/u/.config").

#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace jorvane::places {

struct PlaceLookups {
    // The value of an environment variable, nullopt when it is not set.
    std::function<std::optional<std::string>(std::string_view name)> variable;
    // A user's home folder ("" names the current user), nullopt when unknown.
    std::function<std::optional<std::string>(std::string_view user)> home;
};

// The process environment and the password database.
PlaceLookups systemPlaceLookups();

struct Place {
    enum class Kind {
        path,      // a local path, absolute or relative to the current folder
        location,  // a location URL, to mount or show as it stands
        invalid,   // names no place (see above); `text` is the text as typed
    };
    Kind kind = Kind::path;
    std::string text;
    bool operator==(const Place&) const = default;
};

enum class PlaceUse { navigation, completion };

Place interpretPlaceText(std::string_view typed, const PlaceLookups& lookups, PlaceUse use = PlaceUse::navigation);

// Whether `text` begins with one of the location schemes above and "://".
bool isLocationUrl(std::string_view text);

// The path of a local "file://" URI, %-escapes decoded; nullopt when `uri`
// is not one (another scheme, another host, a NUL byte or "%00", no path).
std::optional<std::string> pathOfFileUri(std::string_view uri);

}  // namespace jorvane::places
