// The path toolkit: standardizing, the home folder, components, and case-insensitive matching.
#include "util/Paths.h"

#include <gtest/gtest.h>

#include <tuple>

#include "unit/ScopedEnv.h"

#include <pwd.h>
#include <unistd.h>

using namespace jorvane;
using Strings = std::vector<std::string>;

namespace {

using Rows = std::vector<std::pair<std::string, std::string>>;

template <class F>
void expectEach(const Rows& rows, F f) {
    for (const auto& [in, out] : rows) EXPECT_EQ(f(in), out) << "'" << in << "'";
}

TEST(Paths, StandardizingResolvesDotsSlashesAndTheHomeFolder) {
    test::ScopedEnv home("HOME", "/home/ann");
    // clang-format off
    expectEach({{"/tmp/scratch.tiff", "/tmp/scratch.tiff"},
                {"/tmp//a/./b/", "/tmp/a/b"},
                {"/a/b/../c", "/a/c"},
                {"/a/b/..", "/a"},
                {"/../../a", "/a"},
                {"/", "/"},
                {"///", "/"},
                {"a/../b", "a/../b"},  // relative paths keep dot-dot
                {"./a//./b/", "a/b"},
                {"./.", "."},
                {"", ""},
                {"~", "/home/ann"},
                {"~/Documents/../Music/", "/home/ann/Music"},
                {"~nosuchuser-jorvane/a/./../b", "~nosuchuser-jorvane/a/../b"},  // an unknown user's is relative
                {"/a/~/b", "/a/~/b"},
                {"/a/.../b", "/a/.../b"},
                {"/a/.hidden/.", "/a/.hidden"}},
               paths::stringByStandardizingPath);
    expectEach({{"~", "/home/ann"},
                {"~/", "/home/ann"},
                {"~//x//y/", "/home/ann/x/y"},
                {"~/./..", "/home/ann/./.."},
                {"~nosuchuser-jorvane/x/", "~nosuchuser-jorvane/x/"},
                {"/tmp//x/", "/tmp//x/"},
                {"x/~", "x/~"},
                {"", ""},
                {std::string("~root\0x/y", 9), std::string("~root\0x/y", 9)}},  // a NUL in a user name
               paths::stringByExpandingTildeInPath);
    // clang-format on
    test::ScopedEnv root("HOME", "/");
    EXPECT_EQ(paths::stringByExpandingTildeInPath("~"), "/");
    EXPECT_EQ(paths::stringByExpandingTildeInPath("~/a"), "/a");
}

// The current user's own entry stands for "~user" and for a missing HOME.
TEST(Paths, TildeUserAndTildeWithoutHomeComeFromThePasswordEntry) {
    const passwd* me = ::getpwuid(::getuid());
    if (!me || !me->pw_dir || !*me->pw_dir) GTEST_SKIP() << "no password entry for this user";
    const std::string home = paths::stringByStandardizingPath(me->pw_dir);
    EXPECT_EQ(paths::stringByExpandingTildeInPath(std::string("~") + me->pw_name + "/x/"),
              paths::stringByAppendingPathComponent(home, "x"));
    for (const std::optional<std::string>& unset : {std::optional<std::string>(), std::optional<std::string>("")}) {
        test::ScopedEnv guard("HOME", unset);
        EXPECT_EQ(paths::stringByExpandingTildeInPath("~/x"), paths::stringByAppendingPathComponent(home, "x"));
    }
}

TEST(Paths, ComponentsSplitAndJoin) {
    // clang-format off
    const std::pair<const char*, Strings> split[] = {
        {"tmp/scratch", {"tmp", "scratch"}}, {"/tmp/scratch", {"/", "tmp", "scratch"}},
        {"/tmp/scratch/", {"/", "tmp", "scratch", "/"}}, {"a//b", {"a", "b"}}, {"//a//", {"/", "a", "/"}},
        {"/", {"/"}}, {"//", {"/"}}, {"a/", {"a", "/"}}, {"~/x", {"~", "x"}}, {"./a/..", {".", "a", ".."}}, {"", {}}};
    for (const auto& [path, components] : split) EXPECT_EQ(paths::pathComponents(path), components) << path;
    const std::pair<Strings, const char*> joined[] = {
        {{"/", "tmp", "scratch"}, "/tmp/scratch"}, {{"/", "tmp", "/"}, "/tmp/"}, {{"tmp", ""}, "tmp/"},
        {{"a", "/", "b"}, "a/b"}, {{"a", "", "b"}, "a/b"}, {{"/", "home", "Documents/Sub"}, "/home/Documents/Sub"},
        {{"a/", "/b"}, "a/b"}, {{"", "a"}, "a"}, {{"/"}, "/"}, {{"/", "/"}, "/"}, {{}, ""}};
    for (const auto& [components, path] : joined) EXPECT_EQ(paths::pathWithComponents(components), path) << path;
    const std::tuple<const char*, const char*, const char*> appended[] = {
        {"/tmp", "scratch.tiff", "/tmp/scratch.tiff"}, {"/tmp/", "scratch.tiff", "/tmp/scratch.tiff"},
        {"/", "scratch.tiff", "/scratch.tiff"}, {"", "scratch.tiff", "scratch.tiff"}, {"/tmp/", "", "/tmp"},
        {"/", "", "/"}, {"", "", ""}, {"/tmp", "/a//b/", "/tmp/a/b"},
        {"/home/ann", "Documents/Sub", "/home/ann/Documents/Sub"}, {"/tmp", "~", "/tmp/~"}};
    // clang-format on
    for (const auto& [path, component, expected] : appended)
        EXPECT_EQ(paths::stringByAppendingPathComponent(path, component), expected) << path << " + " << component;
    // clang-format off
    expectEach({{"/tmp/scratch.tiff", "/tmp"}, {"/tmp/lock/", "/tmp"}, {"/tmp/", "/"}, {"/tmp", "/"}, {"/", "/"},
                {"scratch.tiff", ""}, {"scratch/", ""}, {"a/b", "a"}, {"//a//b//", "/a"}, {"/tmp/*.log", "/tmp"},
                {"", ""}},
               paths::stringByDeletingLastPathComponent);
    expectEach({{"/tmp/scratch.tiff", "scratch.tiff"}, {"/tmp/scratch", "scratch"}, {"/tmp/", "tmp"},
                {"scratch///", "scratch"}, {"/", "/"}, {"///", "/"}, {"a", "a"}, {"", ""}},
               paths::lastPathComponent);
    // clang-format on
    for (const char* path : {"/", "/tmp", "~", "~ann/x"}) EXPECT_TRUE(paths::isAbsolutePath(path)) << path;
    for (const char* path : {"tmp/x", "./x", " /x", ""}) EXPECT_FALSE(paths::isAbsolutePath(path)) << path;
}

struct MatchCase {
    std::string text, pattern;
    bool matches;
};

TEST(Paths, CaseInsensitiveLikeMatchesTheWholeNameWithWildcards) {
    // clang-format off
    const MatchCase rows[] = {
        {"report.txt", "report.txt", true}, {"Report.TXT", "rEPORT.txt", true}, {"report.txt", "report", false},
        {"report", "report.txt", false}, {"", "", true}, {"a", "", false},
        // Stars, with backtracking.
        {"Report.TXT", "*.txt", true}, {"", "*", true}, {"annual-report-2023", "*REPORT*", true},
        {"annual-summary", "*report*", false}, {"report.txt", "*report", false}, {"abc", "a***c", true},
        {"abcabd", "*abd", true}, {"mississippi", "m*iss*ppi", true}, {"mississippi", "m*iss*x", false},
        {"bc", "*abc", false}, {"ab", "a*ab", false}, {"aab", "a*?b", true}, {"a*b", "a*b", true},
        {"axyzb", "a*b", true},
        // Question marks.
        {"abc", "a?c", true}, {"ac", "a?c", false}, {"abc", "????", false}, {"", "?", false},
        {"ab", "*?*?*", true}, {"a", "*?*?*", false},
        // Unicode folding.
        {"ÄBC", "*bc", true}, {"ΣΟΦΙΑ", "σοφια", true}, {"ΟΔΟΣ", "οδος", true}, {"STRAẞE", "straße", true},
        {"straße", "strasse", false}, {"\u212Aelvin", "kelvin", true}, {"\u0131", "i", false},
        {"\u13A0", "\uAB70", true}, {"\U00010400", "\U00010428", true},
        // "?" takes a whole multi-byte character.
        {"ä", "?", true}, {"ä", "??", false}, {"日本.txt", "??.TXT", true}, {"\U0001F600", "?", true},
        {"Ünïcödé-Nämé", "*NÄ?É", true},
        // Bytes that are not UTF-8 are one character each.
        {"\xff", "\xff", true}, {"\xff", "\xfe", false}, {"\xff\xfe", "??", true}, {"a\xff" "b", "A*B", true},
        {"\xC3", "?", true}, {"\xC3", "ä", false}, {"\xC0\xAF", "??", true}, {"\xC0\xAF", "/", false},
        {"\xED\xA0\x80", "???", true}, {"\xF0\x9F\x98" "A", "????", true}, {"\xF0\x9F" "A\x80", "????", true}, {"\xC3\xC3\x84", "?ä", true}, {"ä", "\xC3", false},
    };
    // clang-format on
    for (const MatchCase& row : rows)
        EXPECT_EQ(paths::isCaseInsensitiveLike(row.text, row.pattern), row.matches) << row.text << " ~ " << row.pattern;
}

TEST(Paths, PathologicalPatternsFinishAndAnswerCorrectly) {
    const std::string as(10000, 'a');
    EXPECT_FALSE(paths::isCaseInsensitiveLike(as, "*a*a*a*a*a*a*a*a*b"));
    EXPECT_TRUE(paths::isCaseInsensitiveLike(as, "*a*a*a*a*a*a*a*a*a"));
    EXPECT_FALSE(paths::isCaseInsensitiveLike(as, std::string(20, '?') + "*b"));
    EXPECT_TRUE(paths::isCaseInsensitiveLike(as + "B", "*A*A*A*A*A*A*A*A*b"));
    std::string umlauts;
    for (int i = 0; i < 5000; ++i) umlauts += i % 2 ? "ä" : "Ä";
    EXPECT_FALSE(paths::isCaseInsensitiveLike(umlauts, "*ä*Ä*ä*Ä*ä*Ä*ä*Ä*b"));
    EXPECT_TRUE(paths::isCaseInsensitiveLike(umlauts, "*ä*Ä*ä*Ä*ä*Ä*ä*?"));
    EXPECT_FALSE(paths::isCaseInsensitiveLike(std::string(10000, '\xff'), "*\xff*\xff*\xff*\xff*b"));
}

TEST(Paths, CaseInsensitivePrefix) {
    // clang-format off
    const MatchCase rows[] = {{"Documents", "doc", true}, {"Documents", "DOCUMENTS", true}, {"Documents", "", true},
                              {"Doc", "docs", false},     {"Music", "doc", false},          {"ÄPFEL", "äp", true},
                              {"Ärger", "a", false},      {"\u212Aelvin", "kel", true},     {"a*b", "A*", true},
                              {"abc", "a?", false},       {"\xff" "abc", "\xff" "A", true}, {"ä", "\xC3", false}};
    // clang-format on
    for (const MatchCase& row : rows) {
        EXPECT_EQ(paths::hasCaseInsensitivePrefix(row.text, row.pattern), row.matches)
            << row.text << " " << row.pattern;
        // Completion accepts a name by either test; without wildcards they must agree.
        if (row.pattern.find_first_of("*?") == std::string::npos) {
            EXPECT_EQ(paths::isCaseInsensitiveLike(row.text, row.pattern + "*"), row.matches) << row.text;
        }
    }
}

TEST(Paths, DecodesWellFormedUtf8AndTakesAnythingElseByteByByte) {
    const std::vector<std::tuple<const char*, std::string, char32_t, std::size_t>> rows = {
        {"ASCII", "a", U'a', 1},
        {"two bytes", "\xC3\xA4", U'\u00E4', 2},
        {"three bytes", "\xE2\x82\xAC", U'\u20AC', 3},
        {"four bytes, the text's last", "\xF0\x9F\x98\x80", U'\U0001F600', 4},
        {"the last code point", "\xF4\x8F\xBF\xBF", U'\U0010FFFF', 4},
        {"a two-byte overlong form", "\xC1\xBF", paths::kInvalidByte + 0xC1, 1},
        {"a three-byte overlong form", "\xE0\x9F\xBF", paths::kInvalidByte + 0xE0, 1},
        {"a surrogate", "\xED\xA0\x80", paths::kInvalidByte + 0xED, 1},
        {"a four-byte overlong form", "\xF0\x8F\xBF\xBF", paths::kInvalidByte + 0xF0, 1},
        {"beyond the last code point", "\xF4\x90\x80\x80", paths::kInvalidByte + 0xF4, 1},
        {"a five-byte lead", "\xF8\x88\x80\x80", paths::kInvalidByte + 0xF8, 1},
        {"a lone continuation byte", "\x80\x80\x80\x80", paths::kInvalidByte + 0x80, 1},
        {"four bytes cut short", "\xF0\x9F\x98", paths::kInvalidByte + 0xF0, 1},
    };
    for (const auto& [name, text, character, length] : rows) {
        SCOPED_TRACE(name);
        std::size_t i = 0;
        EXPECT_EQ(paths::decodeCharacter(text, i), character);
        EXPECT_EQ(i, length);
    }
}

}  // namespace
