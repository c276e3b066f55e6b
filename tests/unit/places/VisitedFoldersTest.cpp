#include "places/VisitedFolders.h"

#include <gmock/gmock.h>

#include "fakes/TestSupport.h"
#include "fakes/VirtualTime.h"
#include "util/Dispatch.h"

using namespace jorvane;
using namespace jorvane::places;
using jorvane::test::TempDir;
using testing::ElementsAre;
namespace fs = std::filesystem;

namespace {

class VisitedFoldersTest : public testing::Test {
protected:
    VisitedFoldersTest() {
        dispatch::mainQueue().bindToCurrentThread();
        dispatch::mainQueue().drain();
        tmp_.dir("Projects/2026/Reports");
        tmp_.dir("Music");
        tmp_.file("notes.txt");
    }
    ~VisitedFoldersTest() override {
        folders_.reset();
        dispatch::mainQueue().drain();
    }

    VisitedFolders& folders() {
        if (!folders_) {
            folders_ = std::make_unique<VisitedFolders>(
                VisitedFolders::Options{file(), [this] { return now_; }, [this] { return remembering_; },
                                        [this](const std::string& warning) { warnings_.push_back(warning); }});
        }
        return *folders_;
    }
    // Lets the worker finish and runs what it handed back, until both rest.
    void settle() {
        do folders().flush();
        while (dispatch::mainQueue().drain() > 0);
    }
    std::string path(const std::string& relative) const { return (tmp_.path() / relative).string(); }
    fs::path file() const { return tmp_.path() / "data" / "history"; }
    std::string saved() const { return test::readFile(file()); }
    void writeHistory(const std::string& text) const { tmp_.file("data/history", text); }
    double scoreOf(const std::string& folder) const {
        const VisitedFolder* found = folders_->history().find(folder);
        return found ? found->score : 0;
    }

    TempDir tmp_;
    test::VirtualTime time_;
    UnixSeconds now_ = 1'700'000'000;
    bool remembering_ = true;
    std::vector<std::string> warnings_;
    std::unique_ptr<VisitedFolders> folders_;
};

TEST_F(VisitedFoldersTest, CountsFoldersThatExistAndSavesThem) {
    folders().load();
    settle();
    const std::string reports = path("Projects/2026/Reports");
    folders().visit(reports);
    folders().visit(reports);
    folders().visit(path("notes.txt"));  // a file
    folders().visit(path("gone"));       // nothing there
    settle();
    EXPECT_EQ(scoreOf(reports), 2);
    EXPECT_EQ(folders().history().size(), 1u);
    EXPECT_THAT(folders().matching("proj rep", 5), ElementsAre(reports));
    EXPECT_NE(saved().find("2\t1700000000\t" + reports), std::string::npos) << saved();
}

TEST_F(VisitedFoldersTest, VisitsBeforeTheFileIsReadComeOnTopOfItsGoodLinesAndADamagedFileIsWarnedOf) {
    const std::string music = path("Music");
    writeHistory("3\t1600000000\t" + music + "\nnot a line of the history\n");
    folders().visit(music);
    folders().load();
    settle();
    EXPECT_EQ(scoreOf(music), 4);
    EXPECT_NE(saved().find("4\t1700000000\t" + music), std::string::npos) << saved();
    ASSERT_EQ(warnings_.size(), 1u);
    EXPECT_NE(warnings_[0].find("set aside"), std::string::npos) << warnings_[0];
}

TEST_F(VisitedFoldersTest, NothingIsRecordedWhileRememberingIsOff) {
    folders().load();
    settle();
    remembering_ = false;
    folders().visit(path("Music"));
    settle();
    EXPECT_TRUE(folders().history().empty());
    EXPECT_FALSE(fs::exists(file()));
}

TEST_F(VisitedFoldersTest, FoldersThatAreGoneAreDroppedWhenAQueryMeetsThem) {
    const std::string music = path("Music");
    const std::string old = path("Old");
    writeHistory("1\t1700000000\t" + music + "\n5\t1700000000\t" + old + "\n");
    folders().load();
    settle();
    EXPECT_THAT(folders().matching("", 5), ElementsAre(old, music));
    settle();
    EXPECT_THAT(folders().matching("", 5), ElementsAre(music));
    EXPECT_EQ(saved().find(old), std::string::npos) << saved();

    // A folder looked at a moment ago is looked at again only after a
    // minute, but always after the history was forgotten.
    folders().forget();
    folders().visit(music);
    settle();
    fs::remove_all(path("Music"));
    EXPECT_THAT(folders().matching("", 5), ElementsAre(music));
    settle();
    EXPECT_THAT(folders().matching("", 5), testing::IsEmpty());

    tmp_.dir("Music");
    folders().visit(music);
    settle();
    EXPECT_THAT(folders().matching("", 5), ElementsAre(music));
    settle();
    fs::remove_all(path("Music"));
    now_ += 59;
    EXPECT_THAT(folders().matching("", 5), ElementsAre(music));
    settle();
    EXPECT_THAT(folders().matching("", 5), ElementsAre(music));
    now_ += 1;
    folders().matching("", 5);
    settle();
    EXPECT_THAT(folders().matching("", 5), testing::IsEmpty());
}

TEST_F(VisitedFoldersTest, ForgetEmptiesTheHistoryAndItsFile) {
    writeHistory("1\t1700000000\t" + path("Music") + "\n");
    folders().load();
    settle();
    folders().forget();
    settle();
    EXPECT_TRUE(folders().history().empty());
    EXPECT_EQ(saved().find(path("Music")), std::string::npos) << saved();
}

TEST_F(VisitedFoldersTest, SavesAtMostOnceASecondWhileVisiting) {
    const std::string music = path("Music");
    const std::string reports = path("Projects/2026/Reports");
    folders().load();
    settle();
    folders().visit(music);
    settle();  // the first change is saved at once
    ASSERT_NE(saved().find(music), std::string::npos);
    folders().visit(reports);
    ASSERT_TRUE(dispatch::mainQueue().runUntil([&] { return scoreOf(reports) > 0; }, std::chrono::seconds(10)));
    EXPECT_EQ(saved().find(reports), std::string::npos) << "not yet on disk within the second";
    time_.clock.advance(std::chrono::seconds(1));
    settle();
    EXPECT_NE(saved().find(reports), std::string::npos) << saved();
}

}  // namespace
