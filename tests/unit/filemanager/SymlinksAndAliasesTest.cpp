// Links resolved on a real temporary tree, and paths typed in the wrong case found on one.
#include "filemanager/PathsInAnyCase.h"
#include "filemanager/SymlinksAndAliases.h"

#include "fakes/TestSupport.h"
#include "unit/ScopedEnv.h"

#include <gmock/gmock.h>

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

TEST_F(Links, EachWayGivesThePathMeant) {
    const auto inTree = [this](const std::string& text) { return test::replaceAll(text, "{T}", root()); };
    const std::nullopt_t none = std::nullopt;
    // clang-format off
    const std::tuple<Resolve, const char*, std::optional<std::string>> rows[] = {
        {R, "{T}/real/file", "{T}/real/file"}, {R, "{T}/real/sub/", "{T}/real/sub"}, {R, "Applications", none},
        {R, "", none}, {R, "{T}/a/link/b", "{T}/c/b"}, {C, "{T}/a/link", "{T}/c"},
        // An absolute target is returned as written, ends the iteration, and is still followed.
        {C, "{T}/abs", "{T}/a/../real"}, {I, "{T}/abs", "{T}/a/../real"}, {R, "{T}/abs/file", "{T}/a/../real/file"},
        {I, "{T}/chain1", "{T}/real/file"}, {S, "{T}/chain1", "{T}/chain2"}, {I, "{T}/dirlink", "{T}/real/sub"},
        {R, "{T}/dirlink/", "{T}/real/sub"},
        {I, "{T}/dangling", none}, {R, "{T}/dangling", none}, {R, "{T}/dangling/x", none},
        {C, "{T}/dangling", "{T}/missing"},  // a dangling link can still be read
        {R, "{T}/nothing/here", none}, {I, "{T}/nothing", none}, {C, "{T}/real/file", none}, {C, "{T}/nothing", none},
        {S, "{T}/real/file", "{T}/real/file"}, {S, "{T}/nothing", "{T}/nothing"}};
    // clang-format on
    for (const auto& [resolve, path, expected] : rows)
        EXPECT_EQ(resolve(inTree(path)), expected ? std::optional(inTree(*expected)) : none) << path;
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

TEST(PathsInAnyCase, FindsThePathsOnDiskThatATextNamesInAnotherCase) {
    using testing::ElementsAre;
    using testing::IsEmpty;
    test::TempDir tmp;
    tmp.dir("Music/Jazz");
    tmp.file("Music/notes.txt");
    tmp.dir("Docs");
    tmp.dir("DOCS");
    const std::string t = tmp.str();
    EXPECT_THAT(pathsInAnyCase(t + "/MUSIC/jazz", 5), ElementsAre(t + "/Music/Jazz"));
    EXPECT_THAT(pathsInAnyCase(t + "/music/JAZZ/", 5), ElementsAre(t + "/Music/Jazz/"));
    EXPECT_THAT(pathsInAnyCase(t + "/music/Notes.TXT", 5), ElementsAre(t + "/Music/notes.txt"));
    EXPECT_THAT(pathsInAnyCase(t + "/docs", 5), testing::UnorderedElementsAre(t + "/Docs", t + "/DOCS"));
    EXPECT_EQ(pathsInAnyCase(t + "/docs", 1).size(), 1u);
    // A file is no folder on the way; what exists as typed needs no finding.
    for (const std::string& text :
         {t + "/music/notes.txt/x", t + "/Music/Jazz", t + "/Musik", std::string("music/jazz")})
        EXPECT_THAT(pathsInAnyCase(text, 5), IsEmpty()) << text;
}

}  // namespace
