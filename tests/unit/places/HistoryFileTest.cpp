#include "places/HistoryFile.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

#include "fakes/TestSupport.h"
#include "unit/ScopedEnv.h"

using namespace jorvane::places;
using jorvane::test::ScopedEnv;
using jorvane::test::TempDir;
namespace fs = std::filesystem;

namespace {

using jorvane::test::filesIn;
using jorvane::test::readFile;

TEST(HistoryFileLocation, FollowsAnAbsoluteXdgDataHomeThenHome) {
    ScopedEnv home("HOME", "/home/ann");
    const std::pair<std::optional<std::string>, const char*> rows[] = {
        {"/srv/data", "/srv/data/jorvane/history"},
        {"relative", "/home/ann/.local/share/jorvane/history"},
        {std::nullopt, "/home/ann/.local/share/jorvane/history"}};
    for (const auto& [xdg, file] : rows) {
        ScopedEnv data("XDG_DATA_HOME", xdg);
        EXPECT_EQ(historyFile(), fs::path(file));
    }
}

TEST(HistoryFile, SavesIntoANewFolderAndLoadsBack) {
    TempDir dir;
    HistoryFile file(dir.path() / "data" / "jorvane" / "history");
    EXPECT_TRUE(file.load().history.empty());
    EXPECT_FALSE(fs::exists(dir.path() / "data"));  // loading creates nothing
    VisitHistory history;
    history.visit("/home/u/Projects", 1000);
    history.visit("/home/u/Projects", 1001);
    ASSERT_EQ(file.save(history), "");
    EXPECT_EQ(filesIn(file.file().parent_path()), std::vector<std::string>{"history"});  // no temporary left

    const HistoryFile::Loaded loaded = HistoryFile(file.file()).load();
    EXPECT_TRUE(loaded.warnings.empty());
    ASSERT_NE(loaded.history.find("/home/u/Projects"), nullptr);
    EXPECT_EQ(*loaded.history.find("/home/u/Projects"), (VisitedFolder{"/home/u/Projects", 2, 1001}));
}

TEST(HistoryFile, AFileWithBadLinesIsSetAsideIntactAndItsGoodLinesKept) {
    TempDir dir;
    const std::string damaged = "2\t5\t/kept\ngarbage\n";
    const fs::path path = dir.file("history", damaged);
    HistoryFile file(path);
    const HistoryFile::Loaded loaded = file.load();
    ASSERT_EQ(loaded.warnings.size(), 1u);
    EXPECT_NE(loaded.warnings[0].find("line 2"), std::string::npos) << loaded.warnings[0];
    EXPECT_NE(loaded.warnings[0].find("set aside as history.corrupt-"), std::string::npos) << loaded.warnings[0];
    EXPECT_NE(loaded.history.find("/kept"), nullptr);
    const std::vector<std::string> names = filesIn(dir.path());
    ASSERT_EQ(names.size(), 1u);
    EXPECT_EQ(readFile(dir.path() / names[0]), damaged);
    ASSERT_EQ(file.save(loaded.history), "");  // a fresh file beside the one set aside
    EXPECT_EQ(filesIn(dir.path()).size(), 2u);
    EXPECT_EQ(readFile(dir.path() / names[0]), damaged);
}

TEST(HistoryFile, AFifoInItsPlaceIsLeftAloneWithoutBlockingAndNotWrittenOverUntilAFileReplacesIt) {
    TempDir dir;
    const fs::path path = dir.path() / "history";
    ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
    HistoryFile file(path);
    const HistoryFile::Loaded loaded = file.load();
    ASSERT_EQ(loaded.warnings.size(), 1u);
    EXPECT_NE(file.save(VisitHistory{}), "");
    EXPECT_TRUE(fs::is_fifo(path));
    // Replaced by a damaged file, which is set aside at the next load: saves go on.
    fs::remove(path);
    dir.file("history", "garbage\n");
    EXPECT_EQ(file.load().warnings.size(), 1u);
    EXPECT_EQ(file.save(VisitHistory{}), "");
}

using jorvane::dispatch::TimePoint;
using std::chrono::milliseconds;

TEST(SaveLimiter, SavesAtOnceThenAtMostOncePerSecond) {
    SaveLimiter limiter;
    const TimePoint t0 = TimePoint{} + std::chrono::hours(1);
    EXPECT_EQ(limiter.saveDueAt(), std::nullopt);
    limiter.changed(t0);
    EXPECT_TRUE(limiter.saveDue(t0));  // the first change is saved at once
    limiter.saving(t0);
    EXPECT_EQ(limiter.saveDueAt(), std::nullopt);
    limiter.changed(t0 + milliseconds(200));
    limiter.changed(t0 + milliseconds(400));
    EXPECT_EQ(limiter.saveDueAt(), t0 + milliseconds(1000));
    EXPECT_FALSE(limiter.saveDue(t0 + milliseconds(999)));
    EXPECT_TRUE(limiter.saveDue(t0 + milliseconds(1000)));
    limiter.saving(t0 + milliseconds(1000));
    limiter.changed(t0 + milliseconds(5000));  // long after: at once again
    EXPECT_EQ(limiter.saveDueAt(), t0 + milliseconds(5000));
}

}  // namespace
