// Visited folders in the bar: the folders the bar learns of are counted, the
// list offers the ones whose path holds the typed words, and Return on such
// words, or on the folder inline completion offered for them, goes to the best
// one when the window's folder has no such name. Names
// of the folder that only resemble the text come first, marked as such.

#include "PathWindowControllerFixture.h"
#include "places/BookmarkList.h"

#include <gmock/gmock.h>

#include <chrono>
#include <thread>

namespace jorvane::test {
namespace {

using testing::Contains;
using testing::ElementsAre;

class VisitedFoldersInTheBar : public PathWindowControllerTest {
protected:
    VisitedFoldersInTheBar() {
        history_.dir("Projects/2026/Reports");
        history_.dir("Projects/docs-archive");
        history_.dir("Music");
        visited_ = &folders_;
        bookmarks_ = &bookmarkList_;
        folders_.load();
        visit(place("Projects/2026/Reports"));
        visit(place("Projects/docs-archive"));
        bar().setFileManagerLocation(tmp_.str());
    }

    std::string place(const std::string& relative) const { return (history_.path() / relative).string(); }
    void visit(const std::string& folder) {
        folders_.visit(folder);
        settleVisits();
    }
    void settleVisits() {
        do folders_.flush();
        while (dispatch::mainQueue().drain() > 0);
    }
    double scoreOf(const std::string& folder) const {
        const places::VisitedFolder* found = folders_.history().find(folder);
        return found ? found->score : 0;
    }

    TempDir history_;
    places::BookmarkList bookmarkList_{history_.path() / "bookmarks"};
    places::VisitedFolders folders_{
        {.file = history_.path() / "data" / "history", .now = [] { return places::UnixSeconds{1'700'000'000}; }}};
};

TEST_F(VisitedFoldersInTheBar, TheListOffersMatchingVisitedFoldersAfterTheFoldersOwnCandidates) {
    views_.field().type("proj rep");
    bar().showPopup();
    EXPECT_THAT(bar().listRows(), ElementsAre(place("Projects/2026/Reports") + "/"));
    using Group = CompletionsListView::Group;
    EXPECT_THAT(views_.completions().groups(), ElementsAre(Group{0, "Visited folders"}));
    EXPECT_EQ(views_.completions().selectedRow(), 0);

    views_.field().type("doc");
    bar().showPopup();
    EXPECT_THAT(bar().listRows(), ElementsAre("docs/", place("Projects/docs-archive") + "/"));
    EXPECT_THAT(views_.completions().groups(), ElementsAre(Group{1, "Visited folders"}));

    // Paths, server addresses and patterns are what they say.
    for (const char* text : {"/usr", "~/Pro", "sftp://host/Projects", "*rep*"}) {
        views_.field().type(text);
        bar().showPopup();
        EXPECT_THAT(views_.completions().groups(), testing::IsEmpty()) << text;
    }
}

TEST_F(VisitedFoldersInTheBar, InlineCompletionOffersTheBestVisitedFolderAfterWordsThatNameNothingHere) {
    const std::string reports = place("Projects/2026/Reports") + "/";
    const std::string offered = "proj rep \u2014 " + reports;
    views_.field().type("proj rep");
    EXPECT_EQ(bar().completedString("proj rep"), offered);
    // A name of the folder wins; a path is completed as a path.
    EXPECT_EQ(bar().completedString("doc"), "docs/");
    EXPECT_EQ(bar().completedString("/nowhere-at-all"), std::nullopt);

    // Return on the offered text goes there.
    EXPECT_EQ(bar().completedString("proj rep"), offered);
    views_.field().type(offered);
    bar().pathEditorEnter();
    settle();
    EXPECT_THAT(handlerCalls(), Contains("show_folder [" + reports + "]"));
    EXPECT_EQ(views_.field().stringValue(), reports);

    // Up from the offer goes to the offered folder's parent.
    EXPECT_EQ(bar().completedString("proj rep"), offered);
    views_.field().type(offered);
    bar().navigateToParentDirectory();
    settle();
    EXPECT_THAT(handlerCalls(), Contains("show_folder [" + place("Projects/2026") + "/]"));
}

TEST_F(VisitedFoldersInTheBar, NamesThatOnlyResembleTheTextAreMarkedAndNeverChangeWhatReturnDoes) {
    tmp_.file("project-report.txt");
    views_.field().type("proj rep");
    bar().showPopup();
    // The similar names follow the folder's empty answer.
    for (int i = 0; i < 1000 && !bar().completionEngine().candidatesAreSimilarNames(); ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
        dispatch::mainQueue().drain();
    }
    using Group = CompletionsListView::Group;
    EXPECT_THAT(bar().listRows(), ElementsAre("project-report.txt", place("Projects/2026/Reports") + "/"));
    EXPECT_THAT(views_.completions().groups(), ElementsAre(Group{0, "Similar names"}, Group{1, "Visited folders"}));
    bar().pathEditorEnter();
    settle();
    EXPECT_THAT(handlerCalls(), Contains("show_folder [" + place("Projects/2026/Reports") + "]"));
    catalogue_->clearCalls();
    bar().setFileManagerLocation(tmp_.str());
    views_.field().type("dcs");
    bar().pathEditorEnter();
    settle();
    EXPECT_THAT(handlerCalls(), ElementsAre("reveal [" + tmp_.str() + "/dcs]"));
}

TEST_F(VisitedFoldersInTheBar, TheListOffersLocalBookmarksByNameAfterTheVisitedFoldersWithoutRepeatingOne) {
    const std::string music = place("Music") + "/";
    history_.file("bookmarks", "file://" + place("Music") + " Tunes\nfile://" + place("Projects/2026/Reports") +
                                   " Reports\nsftp://host/srv Tunes server\n");
    bar().show();
    bookmarkList_.flush();
    dispatch::mainQueue().drain();

    views_.field().type("tun");
    bar().showPopup();
    // Only local folders; a folder the list offers already is not repeated.
    EXPECT_THAT(bar().listRows(), ElementsAre("Tunes \u2014 " + music));
    using Group = CompletionsListView::Group;
    EXPECT_THAT(views_.completions().groups(), ElementsAre(Group{0, "Bookmarks"}));
    views_.field().type("rep");
    bar().showPopup();
    EXPECT_THAT(bar().listRows(), ElementsAre(place("Projects/2026/Reports") + "/"));
}

TEST_F(VisitedFoldersInTheBar, TheWindowsFolderAndEveryFolderTheBarGoesToAreCounted) {
    catalogue_->answer(handlers::folderPath, tmp_.str());
    bar().fetchFileManagerLocation();
    settle();
    settleVisits();
    EXPECT_EQ(scoreOf(tmp_.str()), 1);

    views_.field().type(place("Music"));
    bar().pathEditorEnter();
    settle();
    settleVisits();
    EXPECT_EQ(scoreOf(place("Music")), 1);

    // A relative name that turns out to be a folder: words that name something in the folder stay there.
    bar().setFileManagerLocation(tmp_.str());
    views_.field().type("docs");
    bar().pathEditorEnter();
    settle();
    settleVisits();
    EXPECT_THAT(handlerCalls(), Contains("reveal [" + tmp_.str() + "/docs/]"));
    EXPECT_EQ(scoreOf(tmp_.str() + "/docs"), 1);
}

}  // namespace
}  // namespace jorvane::test
