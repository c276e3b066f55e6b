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
bool runUntil(const std::function<bool()>& done) { return mainQueue().runUntil(done, 10s); }

struct Bridge {
    Bridge() {
        catalogue->answer("show_folder", "");
        catalogue->answer("reveal", "");
    }
    ~Bridge() {
        catalogue->releaseAll();
        wrapper.waitUntilIdle();
        mainQueue().drain();
    }
    std::vector<std::string> paramsOf(std::string_view name) const {
        std::vector<std::string> out;
        for (const Call& c : catalogue->calls())
            if (c.name == name) out.push_back(std::filesystem::path(c.params.at(0)).filename().string());
        return out;
    }
    std::shared_ptr<FakeHandlerCatalogue> catalogue = std::make_shared<FakeHandlerCatalogue>();
    FileManagerCommands wrapper{catalogue};
};

// What a completion block saw.
struct Completion {
    bool called = false, onMainThread = false;
    std::optional<std::string> path;
};
FileManagerCommands::PathBlock into(Completion& c) {
    return [&c](std::optional<std::string> path) { c = {true, isMainThread(), std::move(path)}; };
}

TEST(FileManagerCommands, PassesParametersInOrderLowerCasesTheNameAndAnswersTheHandlersResult) {
    Bridge b;
    b.catalogue->answer("select_names", "done");
    EXPECT_EQ(b.wrapper.call("Select_Names", {"/tmp", "a|!|b"}), "done");
    EXPECT_EQ(b.wrapper.call("reload"), std::nullopt);
    b.wrapper.openTerminal("/home/me");
    ASSERT_TRUE(b.catalogue->waitForCalls("open_terminal", 1));
    EXPECT_THAT(b.catalogue->calls(),
                ElementsAre(Call{"select_names", {"/tmp", "a|!|b"}, true}, Call{"reload", {}, true},
                            Call{"open_terminal", {"/home/me"}, false}));
}

TEST(FileManagerCommands, WithoutACatalogueEveryCallAnswersNothingAndTheSharedOneUsesTheInstalledOne) {
    FileManagerCommands wrapper;
    EXPECT_EQ(wrapper.call("folder_path"), std::nullopt);
    Completion got{false, false, "stale"};
    wrapper.getPathAsync(into(got));
    EXPECT_TRUE(runUntil([&] { return got.called; }));
    EXPECT_EQ(got.path, std::nullopt);

    auto catalogue = std::make_shared<FakeHandlerCatalogue>();
    catalogue->answer("folder_path", "/srv");
    {
        test::ScopedSharedCatalogue installed(catalogue);
        EXPECT_EQ(FileManagerCommands::shared().call("folder_path"), "/srv");
    }
    EXPECT_EQ(FileManagerCommands::shared().call("folder_path"), std::nullopt);
}

TEST(FileManagerCommands, ShowFolderChoosesTheHandlerByWhatThePathIsAndFinishesOnTheMainThread) {
    using Make = std::function<std::string(const test::TempDir&)>;
    const std::pair<Make, std::string_view> rows[] = {
        {[](auto& tmp) { return tmp.dir("docs").string(); }, handlers::showFolder},
        {[](auto& tmp) { return tmp.symlink("l", tmp.dir("docs").string()).string(); }, handlers::showFolder},
        {[](auto& tmp) { return tmp.file("notes.txt").string(); }, handlers::reveal},
        {[](auto& tmp) { return (tmp.path() / "gone").string(); }, handlers::reveal},
        {[](auto& tmp) { return tmp.symlink("l", tmp.str() + "/gone").string(); }, handlers::reveal},
        {[](auto&) { return std::string(); }, handlers::reveal}};
    for (const auto& [make, handler] : rows) {
        test::TempDir tmp;
        const std::string path = make(tmp);
        SCOPED_TRACE(path);
        Bridge b;
        std::optional<bool> finishedOnMain;
        b.wrapper.showFolderAsync(path, [&](Navigated) { finishedOnMain = isMainThread(); });
        ASSERT_TRUE(runUntil([&] { return finishedOnMain.has_value(); }));
        EXPECT_TRUE(*finishedOnMain);
        EXPECT_THAT(b.catalogue->calls(), ElementsAre(Call{std::string(handler), {path}, false}));
    }
}

TEST(FileManagerCommands, FinishedBlockRunsEvenWhenTheHandlerFails) {
    Bridge b;
    b.catalogue->answerWith("reveal", [](auto&) -> std::optional<std::string> { throw std::runtime_error("gone"); });
    std::optional<Navigated> outcome;
    b.wrapper.showFolderAsync("/no/such/place", [&](Navigated navigated) { outcome = navigated; });
    EXPECT_TRUE(runUntil([&] { return outcome.has_value(); }));
    EXPECT_EQ(outcome, Navigated::fileManagerSilent);
    EXPECT_EQ(b.catalogue->callCount("reveal"), 2u) << "tried once more";
    EXPECT_EQ(b.wrapper.call("reveal", {"/x"}), std::nullopt);
}

TEST(FileManagerCommands, NavigationWhileOneRunsDropsTheWaitingRequest) {
    test::TempDir tmp;
    Bridge b;
    b.catalogue->hold("show_folder");
    std::vector<std::string> finished;
    const auto show = [&](const char* name) {
        b.wrapper.showFolderAsync(tmp.dir(name).string(), [&, name](Navigated) { finished.push_back(name); });
    };
    show("one");
    ASSERT_TRUE(b.catalogue->waitForHeld("show_folder", 1));
    show("two");
    show("three");
    b.catalogue->release("show_folder");
    ASSERT_TRUE(runUntil([&] { return finished.size() == 2; }));
    b.wrapper.waitUntilIdle();
    mainQueue().drain();
    EXPECT_THAT(finished, ElementsAre("one", "three"));
    EXPECT_THAT(b.paramsOf("show_folder"), ElementsAre("one", "three"));
}

TEST(FileManagerCommands, TypingWhileARevealRunsKeepsOnlyTheNewestNameAndNeverHoldsUpNavigation) {
    test::TempDir tmp;
    Bridge b;
    b.catalogue->hold("reveal_in_current_folder");
    b.wrapper.revealInCurrentAsync("a");
    ASSERT_TRUE(b.catalogue->waitForHeld("reveal_in_current_folder", 1));
    for (const char* name : {"ab", "abc", "abcd"}) b.wrapper.revealInCurrentAsync(name);
    bool shown = false;
    b.wrapper.showFolderAsync(tmp.dir("there").string(), [&](Navigated) { shown = true; });
    ASSERT_TRUE(runUntil([&] { return shown; }));
    b.catalogue->release("reveal_in_current_folder");
    b.wrapper.waitUntilIdle();
    EXPECT_THAT(b.paramsOf("reveal_in_current_folder"), ElementsAre("a", "abcd"));
}

// A file system whose paths under "/hung" do not answer until it opens.
struct HungFileSystem {
    bool isDirectory(const std::string& path) {
        if (!path.starts_with("/hung")) return true;
        std::unique_lock lock(mutex);
        ++inside;
        changed.notify_all();
        changed.wait(lock, [&] { return open; });
        --inside;
        changed.notify_all();
        return true;
    }
    bool waitForInside(int count) {
        std::unique_lock lock(mutex);
        return changed.wait_for(lock, 10s, [&] { return inside >= count; });
    }
    // Answers every question still waiting, and waits until they have left.
    void answer() {
        std::unique_lock lock(mutex);
        open = true;
        changed.notify_all();
        changed.wait(lock, [&] { return inside == 0; });
    }
    std::mutex mutex;
    std::condition_variable changed;
    int inside = 0;
    bool open = false;
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
    ASSERT_TRUE(runUntil([&] { return !finished.empty(); }));
    EXPECT_THAT(finished, ElementsAre(std::pair{std::string("local"), Navigated::answered}));
    // Alone, it ends at the limit without asking Thunar; a path below one still stuck ends at once.
    for (const char* path : {"/hung/b", "/hung/b/c"}) {
        finished.clear();
        const auto start = std::chrono::steady_clock::now();
        wrapper.revealAsync(path, [&](Navigated outcome, const std::string&) { finished.emplace_back(path, outcome); });
        ASSERT_TRUE(runUntil([&] { return !finished.empty(); }));
        EXPECT_THAT(finished, ElementsAre(std::pair{std::string(path), Navigated::folderSilent}));
        const auto took = std::chrono::steady_clock::now() - start;
        EXPECT_EQ(took >= 300ms, std::string_view(path) == "/hung/b") << path;
    }
    EXPECT_THAT(b.catalogue->calls(), ElementsAre(Call{"show_folder", {"/local"}, false}));
    fileSystem->answer();
    wrapper.waitUntilIdle();
}

TEST(FileManagerCommands, QuickGetPathRequestsWhileOneRunsKeepTheFirstAndTheLast) {
    Bridge b;
    b.catalogue->hold("folder_path");
    b.catalogue->answerOnce("folder_path", "/first");
    b.catalogue->answerOnce("folder_path", "/third");
    Completion first, second, third;
    b.wrapper.getPathAsync(into(first));
    ASSERT_TRUE(b.catalogue->waitForHeld("folder_path", 1));
    b.wrapper.getPathAsync(into(second));
    b.wrapper.getPathAsync(into(third));
    b.catalogue->release("folder_path");
    ASSERT_TRUE(runUntil([&] { return first.called && third.called; }));
    b.wrapper.waitUntilIdle();
    mainQueue().drain();
    EXPECT_EQ(b.catalogue->callCount("folder_path"), 2u);
    EXPECT_FALSE(second.called);
    EXPECT_EQ(first.path, "/first");
    EXPECT_EQ(third.path, "/third");
    EXPECT_TRUE(first.onMainThread && third.onMainThread);
}

TEST(FileManagerCommands, ANewMountReplacesTheWaitingOneAndCancelGivesUpTheRunningOne) {
    Bridge b;
    b.catalogue->hold(handlers::mount);
    int reports[3] = {0, 0, 0};
    const auto mount = [&](const char* url, int index) {
        b.wrapper.mountAsync(url, [&reports, index](std::optional<std::string>) { ++reports[index]; });
    };
    mount("ftp://one/", 0);
    ASSERT_TRUE(b.catalogue->waitForHeld(handlers::mount, 1));
    mount("ftp://two/", 1);
    mount("ftp://three/", 2);
    b.wrapper.cancelMount();
    EXPECT_EQ(b.catalogue->cancelCount(handlers::mount), 1u);
    b.wrapper.waitUntilIdle();
    mainQueue().drain();
    // The running one reports; a replaced or cancelled waiting mount never does.
    EXPECT_THAT(reports, ElementsAre(1, 0, 0));
    EXPECT_EQ(b.catalogue->callCount(handlers::mount), 1u);
}

}  // namespace
