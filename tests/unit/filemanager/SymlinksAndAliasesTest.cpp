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

TEST_F(Links, AFullPathWithoutLinksResolvesToItself) {
    EXPECT_EQ(links::stringByResolvingSymlinksAndAliases(at("real/file")), at("real/file"));
    EXPECT_EQ(links::stringByResolvingSymlinksAndAliases(at("real/sub/")), at("real/sub"));
}

TEST_F(Links, TheRootResolvesToTheRoot) { EXPECT_EQ(links::stringByResolvingSymlinksAndAliases("/"), "/"); }

TEST_F(Links, ARelativePathIsRefused) {
    EXPECT_EQ(links::stringByResolvingSymlinksAndAliases("Applications"), std::nullopt);
    EXPECT_EQ(links::stringByResolvingSymlinksAndAliases(""), std::nullopt);
}

TEST_F(Links, ATildePathIsExpandedBeforeResolving) {
    const test::ScopedEnv home("HOME", root());
    EXPECT_EQ(links::stringByResolvingSymlinksAndAliases("~/a/link/b"), at("c/b"));
}

TEST_F(Links, ARelativeLinkInTheMiddleIsJoinedToItsParentAndStandardized) {
    EXPECT_EQ(links::stringByResolvingSymlinksAndAliases(at("a/link/b")), at("c/b"));
    EXPECT_EQ(links::stringByConditionallyResolvingSymlink(at("a/link")), at("c"));
}

TEST_F(Links, AnAbsoluteTargetIsReturnedAsWrittenAndStillFollowed) {
    EXPECT_EQ(links::stringByConditionallyResolvingSymlink(at("abs")), root() + "/a/../real");
    EXPECT_EQ(links::stringByIterativelyResolvingSymlinkOrAlias(at("abs")), root() + "/a/../real");
    EXPECT_EQ(links::stringByResolvingSymlinksAndAliases(at("abs/file")), root() + "/a/../real/file");
}

TEST_F(Links, AChainIsFollowedToItsEnd) {
    EXPECT_EQ(links::stringByIterativelyResolvingSymlinkOrAlias(at("chain1")), at("real/file"));
    EXPECT_EQ(links::stringByResolvingSymlink(at("chain1")), at("chain2"));
}

TEST_F(Links, ALinkToAFolderStopsAtTheFolder) {
    EXPECT_EQ(links::stringByIterativelyResolvingSymlinkOrAlias(at("dirlink")), at("real/sub"));
    EXPECT_EQ(links::stringByResolvingSymlinksAndAliases(at("dirlink/")), at("real/sub"));
}

TEST_F(Links, ADanglingLinkInAnyComponentGivesNothing) {
    EXPECT_EQ(links::stringByIterativelyResolvingSymlinkOrAlias(at("dangling")), std::nullopt);
    EXPECT_EQ(links::stringByResolvingSymlinksAndAliases(at("dangling")), std::nullopt);
    EXPECT_EQ(links::stringByResolvingSymlinksAndAliases(at("dangling/x")), std::nullopt);
    // The link itself can still be read.
    EXPECT_EQ(links::stringByConditionallyResolvingSymlink(at("dangling")), at("missing"));
}

TEST_F(Links, AMissingComponentGivesNothing) {
    EXPECT_EQ(links::stringByResolvingSymlinksAndAliases(at("nothing/here")), std::nullopt);
    EXPECT_EQ(links::stringByIterativelyResolvingSymlinkOrAlias(at("nothing")), std::nullopt);
}

TEST_F(Links, AFileIsNoLink) {
    EXPECT_EQ(links::stringByConditionallyResolvingSymlink(at("real/file")), std::nullopt);
    EXPECT_EQ(links::stringByConditionallyResolvingSymlink(at("nothing")), std::nullopt);
    EXPECT_EQ(links::stringByResolvingSymlink(at("real/file")), at("real/file"));
    EXPECT_EQ(links::stringByResolvingSymlink(at("nothing")), at("nothing"));
}

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
