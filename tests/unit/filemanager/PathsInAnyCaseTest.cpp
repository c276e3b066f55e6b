// A path typed in the wrong case, found on a real temporary tree.

#include "filemanager/PathsInAnyCase.h"

#include "fakes/TestSupport.h"

#include <gmock/gmock.h>

namespace jorvane {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

TEST(PathsInAnyCase, FindsThePathsOnDiskThatATextNamesInAnotherCase) {
    test::TempDir tmp;
    tmp.dir("Music/Jazz");
    tmp.file("Music/notes.txt");
    tmp.dir("Docs");
    tmp.dir("DOCS");
    const std::string t = tmp.str();

    EXPECT_THAT(pathsInAnyCase(t + "/MUSIC/jazz", 5), ElementsAre(t + "/Music/Jazz"));
    EXPECT_THAT(pathsInAnyCase(t + "/music/JAZZ/", 5), ElementsAre(t + "/Music/Jazz/"));
    EXPECT_THAT(pathsInAnyCase(t + "/music/Notes.TXT", 5), ElementsAre(t + "/Music/notes.txt"));
    EXPECT_THAT(pathsInAnyCase(t + "/docs", 5), UnorderedElementsAre(t + "/Docs", t + "/DOCS"));
    EXPECT_EQ(pathsInAnyCase(t + "/docs", 1).size(), 1u);
    // A file is no folder on the way; what exists as typed needs no finding.
    EXPECT_THAT(pathsInAnyCase(t + "/music/notes.txt/x", 5), IsEmpty());
    EXPECT_THAT(pathsInAnyCase(t + "/Music/Jazz", 5), IsEmpty());
    EXPECT_THAT(pathsInAnyCase(t + "/Musik", 5), IsEmpty());
    EXPECT_THAT(pathsInAnyCase("music/jazz", 5), IsEmpty());
}

}  // namespace
}  // namespace jorvane
