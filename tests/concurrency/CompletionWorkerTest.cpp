// Completion off the main thread: a folder that arrives slowly, or never, never holds up the typing, and
// the answer grows as it arrives.
#include "addressbar/CompletionEngine.h"
#include "fakes/GatedFolderSource.h"
#include "fakes/VirtualTime.h"
#include "util/Dispatch.h"

#include <gtest/gtest.h>

using jorvane::CompletionEngine;
using jorvane::test::GatedFolderSource;
using Strings = std::vector<std::string>;
using namespace std::chrono_literals;

namespace {

class CompletionWorkerTest : public testing::Test {
protected:
    void SetUp() override {
        jorvane::dispatch::mainQueue().bindToCurrentThread();
        jorvane::dispatch::mainQueue().drain();
    }
    void TearDown() override {
        source_->close();
        engine_.reset();
        jorvane::dispatch::mainQueue().drain();
    }

    void makeEngine(std::vector<Strings> batches, std::chrono::nanoseconds stallAfter = 10s) {
        source_ = std::make_shared<GatedFolderSource>(std::move(batches));
        CompletionEngine::Options options;
        options.waitBudget = 0ms;  // nothing is waited for: every answer comes late
        options.publishInterval = 0ms;
        options.stallAfter = stallAfter;
        options.source = source_;
        engine_ = std::make_unique<CompletionEngine>(CompletionEngine::Hooks{{}, {}, [this] { ++changes_; }}, options);
    }
    bool waitFor(const std::function<bool()>& done) { return jorvane::dispatch::mainQueue().runUntil(done, 10s); }
    void type(const std::string& text) { engine_->updateCompletions(text, std::string("/f"), {}); }

    std::shared_ptr<GatedFolderSource> source_;
    std::unique_ptr<CompletionEngine> engine_;
    int changes_ = 0;
};

TEST_F(CompletionWorkerTest, TheAnswerGrowsAsTheFolderArrivesAndEndsSortedAndComplete) {
    makeEngine({{"apple", "berry"}, {"ab", "avocado"}});
    type("a");
    EXPECT_EQ(engine_->currentCompletions(), Strings{});
    EXPECT_EQ(engine_->progress(), CompletionEngine::Progress::reading);
    source_->release(1);
    ASSERT_TRUE(waitFor([&] { return engine_->currentCompletions() == Strings{"apple"}; }));
    EXPECT_EQ(engine_->progress(), CompletionEngine::Progress::reading);
    source_->release(1);
    ASSERT_TRUE(waitFor([&] { return engine_->progress() == CompletionEngine::Progress::complete; }));
    EXPECT_EQ(engine_->currentCompletions(), (Strings{"ab", "apple", "avocado"}));
    EXPECT_EQ(engine_->answeredText(), "a");
}

TEST_F(CompletionWorkerTest, ANewerTextReplacesTheOlderAndTheFolderIsReadOnce) {
    makeEngine({{"apple", "avocado", "ab"}});
    type("a");
    type("av");
    source_->release(1);
    ASSERT_TRUE(waitFor([&] { return engine_->progress() == CompletionEngine::Progress::complete; }));
    EXPECT_EQ(engine_->answeredText(), "av");
    EXPECT_EQ(engine_->currentCompletions(), Strings{"avocado"});
    // Nothing about "a" reached the main thread after "av" was typed.
    jorvane::dispatch::mainQueue().drain();
    EXPECT_EQ(engine_->answeredText(), "av");
}

TEST_F(CompletionWorkerTest, AFolderThatGivesNothingIsShownAsNotAnswering) {
    jorvane::test::VirtualTime time;
    // Longer than the test waits for the main queue: only virtual time gets there.
    makeEngine({{"apple"}}, 30s);
    type("a");
    time.pass(25s);
    EXPECT_EQ(engine_->progress(), CompletionEngine::Progress::reading);
    time.pass(5s);
    ASSERT_TRUE(waitFor([&] { return engine_->progress() == CompletionEngine::Progress::notAnswering; }));
    // It answers at last.
    source_->release(1);
    ASSERT_TRUE(waitFor([&] { return engine_->progress() == CompletionEngine::Progress::complete; }));
    EXPECT_EQ(engine_->currentCompletions(), Strings{"apple"});
}

TEST_F(CompletionWorkerTest, AFolderThatFailsPartWayEndsTheReadingWithNoneOfItsNames) {
    makeEngine({{"apple"}, {"avocado"}});
    type("a");
    source_->release(1);
    ASSERT_TRUE(waitFor([&] { return engine_->currentCompletions() == Strings{"apple"}; }));
    source_->close();
    ASSERT_TRUE(waitFor([&] { return engine_->progress() == CompletionEngine::Progress::complete; }));
    EXPECT_TRUE(engine_->folderUnreadable());
    EXPECT_EQ(engine_->currentCompletions(), Strings{});
    // A later text in the same folder gets the same answer.
    type("ap");
    ASSERT_TRUE(waitFor([&] {
        return engine_->answeredText() == "ap" && engine_->progress() == CompletionEngine::Progress::complete;
    }));
    EXPECT_TRUE(engine_->folderUnreadable());
}

TEST_F(CompletionWorkerTest, AnotherFolderStopsTheReadingOfTheFirst) {
    makeEngine({{"a1"}, {"a2"}, {"a3"}});
    type("a");
    source_->release(1);
    ASSERT_TRUE(waitFor([&] { return !engine_->currentCompletions().empty(); }));
    type("/elsewhere/x");
    // Enough for both reads, whichever takes them.
    source_->release(5);
    EXPECT_TRUE(source_->waitUntilStopped());
}

TEST_F(CompletionWorkerTest, APatternIsOfferedAtOnceAndItsMatchesFollow) {
    makeEngine({{"x.txt", "y.log"}});
    type("*.txt");
    EXPECT_EQ(engine_->currentCompletions(), Strings{"*.txt"});
    source_->release(1);
    ASSERT_TRUE(waitFor([&] { return engine_->progress() == CompletionEngine::Progress::complete; }));
    EXPECT_EQ(engine_->currentCompletions(), (Strings{"*.txt", "x.txt"}));
}

}  // namespace
