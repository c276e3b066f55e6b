#include "filemanager/SymlinksAndAliases.h"

#include "fakes/TestSupport.h"
#include "unit/ScopedEnv.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>
#include <string>

using namespace jorvane;
namespace links = jorvane::SymlinksAndAliases;

namespace {

// A tree in a temporary folder:
//   real/            folder, with real/file and real/sub/
//   c/               folder, with c/b
//   a/link    -> ../c                  (relative, to a folder)
//   abs       -> <root>/a/../real      (absolute, holding "..")
//   chain1    -> chain2 -> real/file   (a chain ending at a file)
//   dangling  -> missing
//   dirlink   -> real/sub
class Links : public testing::Test {
protected:
    void SetUp() override {
        tmp_.file("real/file", "x");
        tmp_.dir("real/sub");
        tmp_.file("c/b", "y");
        tmp_.symlink("a/link", "../c");
        tmp_.symlink("abs", root() + "/a/../real");
        tmp_.symlink("chain1", "chain2");
        tmp_.symlink("chain2", "real/file");
        tmp_.symlink("dangling", "missing");
        tmp_.symlink("dirlink", "real/sub");
    }

    std::string root() const { return tmp_.str(); }
    std::string at(const std::string& relative) const { return root() + "/" + relative; }

    test::TempDir tmp_;
};

TEST_F(Links, TheRootResolvesToTheRootAndATildePathIsExpandedFirst) {
    EXPECT_EQ(links::stringByResolvingSymlinksAndAliases("/"), "/");
    const test::ScopedEnv home("HOME", root());
    EXPECT_EQ(links::stringByResolvingSymlinksAndAliases("~/a/link/b"), at("c/b"));
}

using Resolve = std::optional<std::string> (*)(const std::string&);
// The four ways of reading links: every component (R), the path itself if a
// link, one step (C), the path followed to its end (I), one step or the path
// as it is (S).
const Resolve R = [](const std::string& p) { return links::stringByResolvingSymlinksAndAliases(p); };
const Resolve C = [](const std::string& p) { return links::stringByConditionallyResolvingSymlink(p); };
const Resolve I = [](const std::string& p) { return links::stringByIterativelyResolvingSymlinkOrAlias(p); };
const Resolve S = [](const std::string& p) { return links::stringByResolvingSymlink(p); };

struct LinkRow {
    const char* name;
    Resolve resolve;
    const char* path;  // "{T}" stands for the tree
    std::optional<std::string> expected;
};

class Resolving : public Links, public testing::WithParamInterface<LinkRow> {};

TEST_P(Resolving, GivesThePathMeant) {
    const auto inTree = [this](const std::string& text) { return test::replaceAll(text, "{T}", root()); };
    const std::optional<std::string>& expected = GetParam().expected;
    EXPECT_EQ(GetParam().resolve(inTree(GetParam().path)), expected ? std::optional(inTree(*expected)) : std::nullopt);
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(Links, Resolving, testing::Values(
    LinkRow{"AFullPathWithoutLinksIsItself", R, "{T}/real/file", "{T}/real/file"},
    LinkRow{"ATrailingSlashGoes", R, "{T}/real/sub/", "{T}/real/sub"},
    LinkRow{"ARelativePathIsRefused", R, "Applications", std::nullopt},
    LinkRow{"AnEmptyPathIsRefused", R, "", std::nullopt},
    LinkRow{"ARelativeLinkInTheMiddleIsJoinedToItsParent", R, "{T}/a/link/b", "{T}/c/b"},
    LinkRow{"ARelativeLinkIsStandardized", C, "{T}/a/link", "{T}/c"},
    LinkRow{"AnAbsoluteTargetIsReturnedAsWritten", C, "{T}/abs", "{T}/a/../real"},
    LinkRow{"AnAbsoluteTargetEndsTheIteration", I, "{T}/abs", "{T}/a/../real"},
    LinkRow{"AnAbsoluteTargetIsStillFollowed", R, "{T}/abs/file", "{T}/a/../real/file"},
    LinkRow{"AChainIsFollowedToItsEnd", I, "{T}/chain1", "{T}/real/file"},
    LinkRow{"OneStepOfAChain", S, "{T}/chain1", "{T}/chain2"},
    LinkRow{"ALinkToAFolderStopsAtTheFolder", I, "{T}/dirlink", "{T}/real/sub"},
    LinkRow{"ALinkToAFolderWithASlash", R, "{T}/dirlink/", "{T}/real/sub"},
    LinkRow{"ADanglingLinkEndsNowhere", I, "{T}/dangling", std::nullopt},
    LinkRow{"ADanglingLinkResolvesToNothing", R, "{T}/dangling", std::nullopt},
    LinkRow{"ADanglingLinkInTheMiddleResolvesToNothing", R, "{T}/dangling/x", std::nullopt},
    LinkRow{"ADanglingLinkCanStillBeRead", C, "{T}/dangling", "{T}/missing"},
    LinkRow{"AMissingComponentResolvesToNothing", R, "{T}/nothing/here", std::nullopt},
    LinkRow{"AMissingPathEndsNowhere", I, "{T}/nothing", std::nullopt},
    LinkRow{"AFileIsNoLink", C, "{T}/real/file", std::nullopt},
    LinkRow{"AMissingPathIsNoLink", C, "{T}/nothing", std::nullopt},
    LinkRow{"AFileResolvesToItselfInOneStep", S, "{T}/real/file", "{T}/real/file"},
    LinkRow{"AMissingPathResolvesToItselfInOneStep", S, "{T}/nothing", "{T}/nothing"}),
    [](const auto& row) { return std::string(row.param.name); });
// clang-format on

TEST_F(Links, ALongTargetIsReadWhole) {
    std::string deep = "real";
    for (int i = 0; i < 8; ++i) deep += "/" + std::string(60, char('a' + i));
    tmp_.file(deep + "/file", "z");
    const std::string target = at(deep + "/file");
    ASSERT_GT(target.size(), 512u);
    tmp_.symlink("long", target);
    EXPECT_EQ(links::stringByConditionallyResolvingSymlink(at("long")), target);
    EXPECT_EQ(links::stringByResolvingSymlinksAndAliases(at("long")), target);
}

TEST_F(Links, APathHoldingANulByteNamesNoFile) {
    const std::string withNul = at("real/file") + std::string("\0/x", 3);
    EXPECT_EQ(links::stringByIterativelyResolvingSymlinkOrAlias(withNul), std::nullopt);
    EXPECT_EQ(links::stringByConditionallyResolvingSymlink(at("abs") + std::string("\0", 1)), std::nullopt);
    EXPECT_EQ(links::stringByResolvingSymlinksAndAliases(withNul), std::nullopt);
}

}  // namespace
