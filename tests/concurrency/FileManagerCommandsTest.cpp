#include "filemanager/FileManagerCommands.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <condition_variable>
#include <filesystem>
#include <functional>
#include <mutex>

#include "fakes/FakeHandlerCatalogue.h"
#include "fakes/TestSupport.h"
#include "util/Dispatch.h"

using namespace std::chrono_literals;
using namespace jorvane;
using jorvane::dispatch::isMainThread;
using jorvane::dispatch::mainQueue;
using jorvane::test::FakeHandlerCatalogue;
using ::testing::ElementsAre;

namespace {

using Call = FakeHandlerCatalogue::Call;

struct Bridge {
    Bridge() {
        // Navigations succeed unless a test says otherwise.
        catalogue->answer("finder_set_path", "");
        catalogue->answer("finder_reveal", "");
    }
    std::shared_ptr<FakeHandlerCatalogue> catalogue = std::make_shared<FakeHandlerCatalogue>();
    FileManagerCommands wrapper{catalogue};
    ~Bridge() {
        // Nothing of one test may run into the next.
        catalogue->releaseAll();
        wrapper.waitUntilIdle();
        mainQueue().drain();
    }
};

// What a completion block saw.
struct Completion {
    bool called = false;
    bool onMainThread = false;
    std::optional<std::string> path;
};

TEST(FileManagerCommands, PassesParametersInOrderLowerCasesTheNameAndAnswersTheHandlersResult) {
    Bridge b;
    b.catalogue->answer("finder_select2", "done");
    EXPECT_EQ(b.wrapper.call("Finder_Select2", {"/tmp", "a|!|b"}), "done");
    EXPECT_EQ(b.wrapper.call("reload"), std::nullopt);
    EXPECT_THAT(b.catalogue->calls(),
                ElementsAre(Call{"finder_select2", {"/tmp", "a|!|b"}, true}, Call{"reload", {}, true}));
}

TEST(FileManagerCommands, WithoutACatalogueEveryCallAnswersNothing) {
    FileManagerCommands wrapper;
    EXPECT_EQ(wrapper.call("finder_get_path"), std::nullopt);
    Completion got;
    got.path = "stale";
    wrapper.getPathAsync([&](std::optional<std::string> path) { got = {true, isMainThread(), std::move(path)}; });
    EXPECT_TRUE(mainQueue().runUntil([&] { return got.called; }, 10s));
    EXPECT_EQ(got.path, std::nullopt);
}

TEST(FileManagerCommands, SharedInstanceUsesTheInstalledCatalogue) {
    auto catalogue = std::make_shared<FakeHandlerCatalogue>();
    catalogue->answer("finder_get_path", "/srv");
    {
        test::ScopedSharedCatalogue installed(catalogue);
        EXPECT_EQ(FileManagerCommands::shared().call("finder_get_path"), "/srv");
    }
    EXPECT_EQ(FileManagerCommands::shared().call("finder_get_path"), std::nullopt);
}

struct SetPathRow {
    std::string name;
    std::function<std::string(const test::TempDir&)> make;
    std::string_view handler;
};

void PrintTo(const SetPathRow& row, std::ostream* os) { *os << row.name; }

class ShowFolder : public ::testing::TestWithParam<SetPathRow> {};

TEST_P(ShowFolder, ChoosesTheHandlerByWhatThePathIs) {
    test::TempDir tmp;
    const std::string path = GetParam().make(tmp);
    Bridge b;
    std::optional<bool> finishedOnMain;
    b.wrapper.showFolderAsync(path, [&](Navigated) { finishedOnMain = isMainThread(); });
    ASSERT_TRUE(mainQueue().runUntil([&] { return finishedOnMain.has_value(); }, 10s));
    EXPECT_TRUE(*finishedOnMain);
    ASSERT_EQ(b.catalogue->callCount(), 1u);
    EXPECT_EQ(b.catalogue->calls()[0].name, GetParam().handler);
    EXPECT_THAT(b.catalogue->calls()[0].params, ElementsAre(path));
    EXPECT_FALSE(b.catalogue->calls()[0].onMainThread);
}

using Tmp = const test::TempDir&;
// clang-format off
INSTANTIATE_TEST_SUITE_P(FileManagerCommands, ShowFolder, ::testing::Values(
    SetPathRow{"ADirectoryIsShown", [](Tmp tmp) { return tmp.dir("docs").string(); }, handlers::showFolder},
    SetPathRow{"ALinkToADirectoryIsShown", [](Tmp tmp) { return tmp.symlink("l", tmp.dir("docs").string()).string(); },
               handlers::showFolder},
    SetPathRow{"AFileIsRevealed", [](Tmp tmp) { return tmp.file("notes.txt").string(); }, handlers::reveal},
    SetPathRow{"AMissingPathIsRevealed", [](Tmp tmp) { return (tmp.path() / "gone").string(); }, handlers::reveal},
    SetPathRow{"ALinkToNothingIsRevealed", [](Tmp tmp) { return tmp.symlink("l", tmp.str() + "/gone").string(); },
               handlers::reveal},
    SetPathRow{"AnEmptyPathIsRevealed", [](Tmp) { return std::string(); }, handlers::reveal}),
    [](const auto& row) { return row.param.name; });
// clang-format on

TEST(FileManagerCommands, FinishedBlockRunsEvenWhenTheHandlerFails) {
    Bridge b;
    b.catalogue->answerWith("finder_reveal", [](const std::vector<std::string>&) -> std::optional<std::string> {
        throw std::runtime_error("file manager gone");
    });
    bool finished = false;
    Navigated outcome = Navigated::answered;
    b.wrapper.showFolderAsync("/no/such/place", [&](Navigated navigated) {
        outcome = navigated;
        finished = true;
    });
    EXPECT_TRUE(mainQueue().runUntil([&] { return finished; }, 10s));
    EXPECT_EQ(outcome, Navigated::fileManagerSilent);
    EXPECT_EQ(b.catalogue->callCount("finder_reveal"), 2u) << "tried once more";
    EXPECT_EQ(b.wrapper.call("finder_reveal", {"/x"}), std::nullopt);
}

TEST(FileManagerCommands, NavigationWhileOneRunsDropsTheWaitingRequest) {
    test::TempDir tmp;
    Bridge b;
    b.catalogue->hold("finder_set_path");
    std::vector<std::string> finished;
    b.wrapper.showFolderAsync(tmp.dir("one").string(), [&](Navigated) { finished.push_back("one"); });
    ASSERT_TRUE(b.catalogue->waitForHeld("finder_set_path", 1));
    b.wrapper.showFolderAsync(tmp.dir("two").string(), [&](Navigated) { finished.push_back("two"); });
    b.wrapper.showFolderAsync(tmp.dir("three").string(), [&](Navigated) { finished.push_back("three"); });
    b.catalogue->release("finder_set_path");
    ASSERT_TRUE(mainQueue().runUntil([&] { return finished.size() == 2; }, 10s));
    b.wrapper.waitUntilIdle();
    mainQueue().drain();
    EXPECT_THAT(finished, ElementsAre("one", "three"));
    std::vector<std::string> shown;
    for (const Call& c : b.catalogue->calls())
        shown.push_back(std::filesystem::path(c.params.at(0)).filename().string());
    EXPECT_THAT(shown, ElementsAre("one", "three"));
}

TEST(FileManagerCommands, TypingWhileARevealRunsKeepsOnlyTheNewestNameAndNeverHoldsUpNavigation) {
    test::TempDir tmp;
    Bridge b;
    b.catalogue->hold("finder_reveal_in_current");
    b.wrapper.revealInCurrentAsync("a");
    ASSERT_TRUE(b.catalogue->waitForHeld("finder_reveal_in_current", 1));
    for (const char* name : {"ab", "abc", "abcd"}) b.wrapper.revealInCurrentAsync(name);
    bool shown = false;
    b.wrapper.showFolderAsync(tmp.dir("there").string(), [&](Navigated) { shown = true; });
    ASSERT_TRUE(mainQueue().runUntil([&] { return shown; }, 10s));
    b.catalogue->release("finder_reveal_in_current");
    b.wrapper.waitUntilIdle();
    std::vector<std::string> revealed;
    for (const Call& c : b.catalogue->calls())
        if (c.name == "finder_reveal_in_current") revealed.push_back(c.params.at(0));
    EXPECT_THAT(revealed, ElementsAre("a", "abcd"));
}

// A file system whose paths under "/hung" do not answer until it opens.
class HungFileSystem {
public:
    bool isDirectory(const std::string& path) {
        if (!path.starts_with("/hung")) return true;
        std::unique_lock lock(mutex_);
        ++inside_;
        changed_.notify_all();
        changed_.wait(lock, [&] { return open_; });
        --inside_;
        changed_.notify_all();
        return true;
    }
    bool waitForInside(int count) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, 10s, [&] { return inside_ >= count; });
    }
    // Answers every question still waiting, and waits until they have left.
    void open() {
        std::unique_lock lock(mutex_);
        open_ = true;
        changed_.notify_all();
        changed_.wait(lock, [&] { return inside_ == 0; });
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    int inside_ = 0;
    bool open_ = false;
};

TEST(FileManagerCommands, APathTheFileSystemDoesNotAnswerForHoldsUpNoNavigationAndIsToldApart) {
    auto fileSystem = std::make_shared<HungFileSystem>();
    Bridge b;
    FileManagerCommands::Options options;
    options.folderAnswerLimit = 300ms;
    options.isDirectory = [fileSystem](const std::string& path) { return fileSystem->isDirectory(path); };
    FileManagerCommands wrapper(b.catalogue, options);
    std::vector<std::pair<std::string, Navigated>> finished;
    const auto note = [&](std::string name) {
        return [&, name](Navigated outcome) { finished.emplace_back(name, outcome); };
    };

    // A newer navigation takes over from one that waits for the file system.
    wrapper.showFolderAsync("/hung/a", note("hung"));
    ASSERT_TRUE(fileSystem->waitForInside(1));
    wrapper.showFolderAsync("/local", note("local"));
    ASSERT_TRUE(mainQueue().runUntil([&] { return !finished.empty(); }, 10s));
    EXPECT_THAT(finished, ElementsAre(std::pair{std::string("local"), Navigated::answered}));

    // Alone, it ends at the limit, without asking the file manager; a path
    // below one still stuck ends at once.
    for (const char* path : {"/hung/b", "/hung/b/c"}) {
        finished.clear();
        const auto start = std::chrono::steady_clock::now();
        wrapper.revealAsync(path, [&](Navigated outcome, const std::string&) { finished.emplace_back(path, outcome); });
        ASSERT_TRUE(mainQueue().runUntil([&] { return !finished.empty(); }, 10s));
        EXPECT_THAT(finished, ElementsAre(std::pair{std::string(path), Navigated::folderSilent}));
        const auto took = std::chrono::steady_clock::now() - start;
        if (std::string_view(path) == "/hung/b")
            EXPECT_GE(took, 300ms);
        else
            EXPECT_LT(took, 300ms);
    }
    EXPECT_THAT(b.catalogue->calls(), ElementsAre(Call{"finder_set_path", {"/local"}, false}));
    fileSystem->open();
    wrapper.waitUntilIdle();
}

TEST(FileManagerCommands, QuickGetPathRequestsWhileOneRunsKeepTheFirstAndTheLast) {
    Bridge b;
    b.catalogue->hold("finder_get_path");
    b.catalogue->answerOnce("finder_get_path", "/first");
    b.catalogue->answerOnce("finder_get_path", "/third");
    Completion first, second, third;
    auto into = [](Completion& c) {
        return [&c](std::optional<std::string> path) { c = {true, isMainThread(), std::move(path)}; };
    };
    b.wrapper.getPathAsync(into(first));
    ASSERT_TRUE(b.catalogue->waitForHeld("finder_get_path", 1));
    b.wrapper.getPathAsync(into(second));
    b.wrapper.getPathAsync(into(third));
    b.catalogue->release("finder_get_path");

    ASSERT_TRUE(mainQueue().runUntil([&] { return first.called && third.called; }, 10s));
    b.wrapper.waitUntilIdle();
    mainQueue().drain();
    EXPECT_EQ(b.catalogue->callCount("finder_get_path"), 2u);
    EXPECT_FALSE(second.called);
    EXPECT_EQ(first.path, "/first");
    EXPECT_EQ(third.path, "/third");
    EXPECT_TRUE(first.onMainThread);
    EXPECT_TRUE(third.onMainThread);
}

TEST(FileManagerCommands, OpenTerminalRunsOffTheMainThread) {
    Bridge b;
    b.wrapper.openTerminal("/home/me");
    ASSERT_TRUE(b.catalogue->waitForCalls("open_terminal", 1));
    EXPECT_THAT(b.catalogue->calls(), ElementsAre(Call{"open_terminal", {"/home/me"}, false}));
}

}  // namespace
