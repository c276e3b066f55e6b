#include "util/Paths.h"

#include <gtest/gtest.h>

#include "unit/ScopedEnv.h"

#include <pwd.h>
#include <unistd.h>

#include <optional>
#include <string>
#include <vector>

using namespace jorvane;

namespace {

using HomeGuard = test::ScopedEnv;

struct StringCase {
    const char* name;
    const char* input;
    const char* expected;
};

std::string rowName(const testing::TestParamInfo<StringCase>& row) { return row.param.name; }

class WithHome : public testing::TestWithParam<StringCase> {
protected:
    HomeGuard home_{"HOME", "/home/ann"};
};

class Standardizing : public WithHome {};

TEST_P(Standardizing, GivesTheExpectedPath) {
    EXPECT_EQ(paths::stringByStandardizingPath(GetParam().input), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Paths, Standardizing,
    testing::Values(StringCase{"AStandardPathStaysAsItIs", "/tmp/scratch.tiff", "/tmp/scratch.tiff"},
                    StringCase{"DoubledSlashesAndDotsGoAndTheTrailingSlashToo", "/tmp//a/./b/", "/tmp/a/b"},
                    StringCase{"DotDotRemovesThePrecedingComponent", "/a/b/../c", "/a/c"},
                    StringCase{"DotDotAtTheEndOfAnAbsolutePathClimbs", "/a/b/..", "/a"},
                    StringCase{"DotDotAboveTheRootStaysAtTheRoot", "/../../a", "/a"},
                    StringCase{"TheRootAloneIsTheRoot", "/", "/"}, StringCase{"SlashesOnlyAreTheRoot", "///", "/"},
                    StringCase{"RelativePathsKeepDotDot", "a/../b", "a/../b"},
                    StringCase{"RelativePathsLoseDotsAndDoubledSlashes", "./a//./b/", "a/b"},
                    StringCase{"ALoneDotStaysADot", "./.", "."}, StringCase{"EmptyStaysEmpty", "", ""},
                    StringCase{"TildeIsTheHomeFolder", "~", "/home/ann"},
                    StringCase{"TildePathsAreExpandedAndThenResolved", "~/Documents/../Music/", "/home/ann/Music"},
                    StringCase{"AnUnknownUsersTildeIsARelativePath", "~nosuchuser-jorvane/a/./../b",
                               "~nosuchuser-jorvane/a/../b"},
                    StringCase{"ATildeInsideThePathIsAName", "/a/~/b", "/a/~/b"},
                    StringCase{"ThreeDotsAreAName", "/a/.../b", "/a/.../b"},
                    StringCase{"HiddenNamesAreNames", "/a/.hidden/.", "/a/.hidden"}),
    rowName);

class ExpandingTilde : public WithHome {};

TEST_P(ExpandingTilde, GivesTheExpectedPath) {
    EXPECT_EQ(paths::stringByExpandingTildeInPath(GetParam().input), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Paths, ExpandingTilde,
    testing::Values(StringCase{"TildeAloneIsHome", "~", "/home/ann"},
                    StringCase{"TildeSlashLosesTheTrailingSlash", "~/", "/home/ann"},
                    StringCase{"TildePathIsJoinedToHomeWithSlashesFolded", "~//x//y/", "/home/ann/x/y"},
                    StringCase{"DotsAreLeftAlone", "~/./..", "/home/ann/./.."},
                    StringCase{"AnUnknownUserIsLeftUnchanged", "~nosuchuser-jorvane/x/", "~nosuchuser-jorvane/x/"},
                    StringCase{"APathWithoutTildeIsLeftUnchanged", "/tmp//x/", "/tmp//x/"},
                    StringCase{"ATildeLaterInThePathIsLeftUnchanged", "x/~", "x/~"},
                    StringCase{"EmptyIsLeftUnchanged", "", ""}),
    rowName);

// The current user's own entry stands for "~user" and for a missing HOME.
TEST(Paths, TildeUserAndTildeWithoutHomeComeFromThePasswordEntry) {
    const passwd* me = ::getpwuid(::getuid());
    if (!me || !me->pw_dir || !*me->pw_dir) GTEST_SKIP() << "no password entry for this user";
    const std::string home = paths::stringByStandardizingPath(me->pw_dir);
    EXPECT_EQ(paths::stringByExpandingTildeInPath(std::string("~") + me->pw_name + "/x/"),
              paths::stringByAppendingPathComponent(home, "x"));
    for (const std::optional<std::string>& unset : {std::optional<std::string>(), std::optional<std::string>("")}) {
        HomeGuard guard("HOME", unset);
        EXPECT_EQ(paths::stringByExpandingTildeInPath("~/x"), paths::stringByAppendingPathComponent(home, "x"));
    }
}

TEST(Paths, AHomeAtTheRootGivesNoDoubledSlash) {
    HomeGuard root("HOME", "/");
    EXPECT_EQ(paths::stringByExpandingTildeInPath("~"), "/");
    EXPECT_EQ(paths::stringByExpandingTildeInPath("~/a"), "/a");
}

TEST(Paths, AUserNameHoldingANulByteIsUnknown) {
    const std::string withNul("~root\0x/y", 9);
    EXPECT_EQ(paths::stringByExpandingTildeInPath(withNul), withNul);
}

struct ComponentsCase {
    const char* name;
    const char* path;
    std::vector<std::string> components;
};

class Components : public testing::TestWithParam<ComponentsCase> {};

TEST_P(Components, SplitsThePath) { EXPECT_EQ(paths::pathComponents(GetParam().path), GetParam().components); }

INSTANTIATE_TEST_SUITE_P(
    Paths, Components,
    testing::Values(ComponentsCase{"ARelativePathHasItsNames", "tmp/scratch", {"tmp", "scratch"}},
                    ComponentsCase{"AnAbsolutePathStartsWithSlash", "/tmp/scratch", {"/", "tmp", "scratch"}},
                    ComponentsCase{"ATrailingSlashIsALastSlash", "/tmp/scratch/", {"/", "tmp", "scratch", "/"}},
                    ComponentsCase{"DoubledSlashesSeparateOnce", "a//b", {"a", "b"}},
                    ComponentsCase{"DoubledSlashesAroundANameCountOnce", "//a//", {"/", "a", "/"}},
                    ComponentsCase{"TheRootIsOneSlash", "/", {"/"}},
                    ComponentsCase{"SlashesOnlyAreOneSlash", "//", {"/"}},
                    ComponentsCase{"ARelativeNameWithTrailingSlash", "a/", {"a", "/"}},
                    ComponentsCase{"ATildeIsAnOrdinaryComponent", "~/x", {"~", "x"}},
                    ComponentsCase{"DotsAreKept", "./a/..", {".", "a", ".."}}, ComponentsCase{"EmptyHasNone", "", {}}),
    [](const testing::TestParamInfo<ComponentsCase>& row) { return std::string(row.param.name); });

struct JoinCase {
    const char* name;
    std::vector<std::string> components;
    const char* path;
};

class JoiningComponents : public testing::TestWithParam<JoinCase> {};

TEST_P(JoiningComponents, GivesThePath) {
    EXPECT_EQ(paths::pathWithComponents(GetParam().components), GetParam().path);
}

INSTANTIATE_TEST_SUITE_P(
    Paths, JoiningComponents,
    testing::Values(
        JoinCase{"ALeadingSlashMakesItAbsolute", {"/", "tmp", "scratch"}, "/tmp/scratch"},
        JoinCase{"ALastSlashIsATrailingSlash", {"/", "tmp", "/"}, "/tmp/"},
        JoinCase{"ALastEmptyComponentIsATrailingSlash", {"tmp", ""}, "tmp/"},
        JoinCase{"ASlashInTheMiddleAddsNothing", {"a", "/", "b"}, "a/b"},
        JoinCase{"AnEmptyComponentInTheMiddleAddsNothing", {"a", "", "b"}, "a/b"},
        JoinCase{"AComponentHoldingSlashesIsJoinedAsItStands", {"/", "home", "Documents/Sub"}, "/home/Documents/Sub"},
        JoinCase{"SlashesAtTheSeamsAreFolded", {"a/", "/b"}, "a/b"}, JoinCase{"TheRootAloneIsTheRoot", {"/"}, "/"},
        JoinCase{"TwoSlashesAreTheRoot", {"/", "/"}, "/"}, JoinCase{"NoComponentsIsEmpty", {}, ""}),
    [](const testing::TestParamInfo<JoinCase>& row) { return std::string(row.param.name); });

struct AppendCase {
    const char* name;
    const char* path;
    const char* component;
    const char* expected;
};

class Appending : public testing::TestWithParam<AppendCase> {};

TEST_P(Appending, GivesTheJoinedPath) {
    EXPECT_EQ(paths::stringByAppendingPathComponent(GetParam().path, GetParam().component), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Paths, Appending,
    testing::Values(AppendCase{"ToAFolder", "/tmp", "scratch.tiff", "/tmp/scratch.tiff"},
                    AppendCase{"ToAFolderWithTrailingSlash", "/tmp/", "scratch.tiff", "/tmp/scratch.tiff"},
                    AppendCase{"ToTheRoot", "/", "scratch.tiff", "/scratch.tiff"},
                    AppendCase{"ToNothing", "", "scratch.tiff", "scratch.tiff"},
                    AppendCase{"NothingToAFolderDropsTheTrailingSlash", "/tmp/", "", "/tmp"},
                    AppendCase{"NothingToTheRoot", "/", "", "/"}, AppendCase{"NothingToNothing", "", "", ""},
                    AppendCase{"AComponentWithSlashesIsFolded", "/tmp", "/a//b/", "/tmp/a/b"},
                    AppendCase{"ARelativeTextWithSlashes", "/home/ann", "Documents/Sub", "/home/ann/Documents/Sub"},
                    AppendCase{"ATildeIsNotExpanded", "/tmp", "~", "/tmp/~"}),
    [](const testing::TestParamInfo<AppendCase>& row) { return std::string(row.param.name); });

class DeletingLastComponent : public testing::TestWithParam<StringCase> {};

TEST_P(DeletingLastComponent, GivesTheParent) {
    EXPECT_EQ(paths::stringByDeletingLastPathComponent(GetParam().input), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Paths, DeletingLastComponent,
    testing::Values(StringCase{"OfAFile", "/tmp/scratch.tiff", "/tmp"},
                    StringCase{"OfAFolderWithTrailingSlash", "/tmp/lock/", "/tmp"},
                    StringCase{"OfATopFolderWithTrailingSlash", "/tmp/", "/"}, StringCase{"OfATopFolder", "/tmp", "/"},
                    StringCase{"OfTheRoot", "/", "/"}, StringCase{"OfABareName", "scratch.tiff", ""},
                    StringCase{"OfABareNameWithTrailingSlash", "scratch/", ""},
                    StringCase{"OfARelativePath", "a/b", "a"}, StringCase{"WithDoubledSlashes", "//a//b//", "/a"},
                    StringCase{"OfAPattern", "/tmp/*.log", "/tmp"}, StringCase{"OfNothing", "", ""}),
    rowName);

class LastComponent : public testing::TestWithParam<StringCase> {};

TEST_P(LastComponent, GivesTheName) { EXPECT_EQ(paths::lastPathComponent(GetParam().input), GetParam().expected); }

INSTANTIATE_TEST_SUITE_P(Paths, LastComponent,
                         testing::Values(StringCase{"OfAFile", "/tmp/scratch.tiff", "scratch.tiff"},
                                         StringCase{"OfAFolder", "/tmp/scratch", "scratch"},
                                         StringCase{"OfAFolderWithTrailingSlash", "/tmp/", "tmp"},
                                         StringCase{"OfANameWithSlashes", "scratch///", "scratch"},
                                         StringCase{"OfTheRoot", "/", "/"}, StringCase{"OfSlashesOnly", "///", "/"},
                                         StringCase{"OfABareName", "a", "a"}, StringCase{"OfNothing", "", ""}),
                         rowName);

TEST(Paths, AbsolutePathsBeginWithSlashOrTilde) {
    EXPECT_TRUE(paths::isAbsolutePath("/"));
    EXPECT_TRUE(paths::isAbsolutePath("/tmp"));
    EXPECT_TRUE(paths::isAbsolutePath("~"));
    EXPECT_TRUE(paths::isAbsolutePath("~ann/x"));
    EXPECT_FALSE(paths::isAbsolutePath("tmp/x"));
    EXPECT_FALSE(paths::isAbsolutePath("./x"));
    EXPECT_FALSE(paths::isAbsolutePath(" /x"));
    EXPECT_FALSE(paths::isAbsolutePath(""));
}

}  // namespace
