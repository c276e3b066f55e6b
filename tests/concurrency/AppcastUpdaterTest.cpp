#include "updater/AppcastUpdater.h"

#include <gtest/gtest.h>

#include "fakes/VirtualTime.h"

#include <atomic>
#include <mutex>
#include <thread>

using namespace std::chrono_literals;
using namespace jorvane;
using namespace jorvane::dispatch;

namespace {

// The network in memory: every GET answers the same body (nullopt: the transfer failed), or, when silent,
// waits out the updater's time-out and fails. Counts the requests.
struct ScriptedFeed final : HttpClient {
    explicit ScriptedFeed(std::optional<std::string> body, bool silent = false)
        : body(std::move(body)), silent(silent) {}
    std::optional<std::string> get(const std::string&, double timeoutSeconds) override {
        ++requests;
        if (silent) std::this_thread::sleep_for(std::chrono::duration<double>(timeoutSeconds));
        std::lock_guard lock(mutex);
        return silent ? std::nullopt : body;
    }
    void setResponse(std::optional<std::string> next) {
        std::lock_guard lock(mutex);
        body = std::move(next);
    }
    std::mutex mutex;
    std::optional<std::string> body;
    const bool silent;
    std::atomic<int> requests{0};
};

std::string feedWith(const std::string& version, const std::string& shortVersion) {
    return R"(<?xml version="1.0"?><rss xmlns:sparkle="http://www.andymatuschak.org/xml-namespaces/sparkle"><channel>)"
           "<item><title>Jorvane " +
           shortVersion + "</title><enclosure url=\"http://example.test/j-" + shortVersion +
           ".tar.gz\" sparkle:version=\"" + version + "\" sparkle:shortVersionString=\"" + shortVersion +
           "\"/></item></channel></rss>";
}

// A queue that only counts what it is given: nothing reaches the network side.
struct CountingQueue final : Queue {
    int tasks = 0;
    void async(Task) override { ++tasks; }
};

class UpdaterFixture {
public:
    UpdaterFixture() { mainQueue().bindToCurrentThread(); }
    virtual ~UpdaterFixture() {
        updater_.reset();
        mainQueue().drain();
    }

    // An updater checking every three hours.
    AppcastUpdater& make(const std::shared_ptr<ScriptedFeed>& server, const std::string& current, double timeout = 5.0,
                         Queue& background = globalQueue(), std::optional<std::string> url = {}) {
        auto offer = [this](const UpdateOffer& o) {
            EXPECT_TRUE(mainQueue().isMainThread());
            offers_.push_back(o);
        };
        updater_ = std::make_unique<AppcastUpdater>(
            server, AppcastUpdater::Options{url.value_or("https://127.0.0.1/appcast.xml"), current, timeout}, offer,
            background);
        updater_->setUpdateCheckInterval(10800.0);
        return *updater_;
    }
    // Waits (real time, bounded) for the given number of ended checks.
    bool waitForChecks(std::size_t n) {
        return mainQueue().runUntil([&] { return updater_->completedCheckCount() >= n; }, 10s);
    }
    void pass(Duration by) { time_.pass(by); }

    test::VirtualTime time_;
    ManualTimeSource& clock_ = time_.clock;
    std::unique_ptr<AppcastUpdater> updater_;
    std::vector<UpdateOffer> offers_;
};

class AppcastUpdaterTest : public UpdaterFixture, public testing::Test {};

TEST_F(AppcastUpdaterTest, ANewerVersionIsOfferedOnceAndTheCheckRearmsOnVirtualTime) {
    auto server = std::make_shared<ScriptedFeed>(feedWith("120", "1.2"));
    auto& updater = make(server, "110");
    updater.checkForUpdatesInBackground();
    ASSERT_TRUE(waitForChecks(1));
    ASSERT_EQ(offers_.size(), 1u);
    EXPECT_EQ(offers_[0], (UpdateOffer{"120", "1.2", "http://example.test/j-1.2.tar.gz", "Jorvane 1.2"}));
    EXPECT_TRUE(updater.isCheckScheduled());
    pass(10799s);
    EXPECT_EQ(updater.completedCheckCount(), 1u) << "nothing before the interval is over";
    pass(1s);  // read again; the same version is not offered twice
    ASSERT_TRUE(waitForChecks(2));
    EXPECT_EQ(server->requests, 2);
    EXPECT_EQ(offers_.size(), 1u);
    EXPECT_TRUE(updater.isCheckScheduled());
    // A later release is offered in its turn.
    server->setResponse(feedWith("130", "1.3"));
    pass(10800s);
    ASSERT_TRUE(waitForChecks(3));
    ASSERT_EQ(offers_.size(), 2u);
    EXPECT_EQ(offers_[1].shortVersion, "1.3");
}

TEST(AppcastUpdater, NothingIsOfferedForTheRunningVersionAMalformedFeedAFailedTransferOrASilentServer) {
    const std::pair<std::optional<std::string>, bool> rows[] = {{feedWith("120", "1.2"), false},
                                                                {"<html><body>down</body></html>", false},
                                                                {std::nullopt, false},
                                                                {feedWith("999", "9.9.9"), true}};
    for (const auto& [response, silent] : rows) {
        UpdaterFixture f;
        auto server = std::make_shared<ScriptedFeed>(response, silent);
        auto& updater = f.make(server, "120", 0.3);
        updater.checkForUpdatesInBackground();
        ASSERT_TRUE(f.waitForChecks(1));
        EXPECT_TRUE(f.offers_.empty());
        EXPECT_EQ(server->requests, 1);
        EXPECT_TRUE(updater.isCheckScheduled()) << "the next check is still scheduled";
    }
}

TEST_F(AppcastUpdaterTest, ANewCheckIsNotStartedWhileOneIsRunning) {
    CountingQueue background;
    make(std::make_shared<ScriptedFeed>(std::nullopt), "1", 1.0, background);
    updater_->checkForUpdatesInBackground();
    updater_->checkForUpdatesInBackground();
    EXPECT_EQ(background.tasks, 1);
    // The running check is not doubled by the timer either: it is disarmed until the check ends.
    EXPECT_FALSE(updater_->isCheckScheduled());
}

TEST_F(AppcastUpdaterTest, AnEmptyFeedUrlOrNoHttpClientMeansNoCheckAndNoNetwork) {
    auto http = std::make_shared<ScriptedFeed>(std::nullopt);
    for (const bool withClient : {true, false}) {
        SCOPED_TRACE(withClient ? "no feed" : "a feed but no HTTP client");
        CountingQueue background;
        if (withClient)
            make(http, "1", 1.0, background, "");
        else
            make(nullptr, "1", 1.0, background);
        updater_->checkForUpdatesInBackground();
        pass(100000s);
        EXPECT_EQ(background.tasks, 0);
        EXPECT_FALSE(updater_->isCheckScheduled());
        EXPECT_EQ(clock_.scheduledCount(), 0u);
        updater_.reset();
    }
    EXPECT_EQ(http->requests, 0);
}

TEST_F(AppcastUpdaterTest, WithoutAnIntervalOnlyTheAskedCheckRuns) {
    auto server = std::make_shared<ScriptedFeed>(feedWith("120", "1.2"));
    auto& updater = make(server, "110");
    updater.setUpdateCheckInterval(0);
    updater.checkForUpdatesInBackground();
    ASSERT_TRUE(waitForChecks(1));
    EXPECT_FALSE(updater.isCheckScheduled());
    pass(100000s);
    EXPECT_EQ(server->requests, 1);
}

TEST_F(AppcastUpdaterTest, DestroyingTheUpdaterDuringAFetchDropsItsResult) {
    auto server = std::make_shared<ScriptedFeed>(feedWith("999", "9.9.9"), true);
    {
        GlobalQueue background(1);
        make(server, "1", 0.3, background).checkForUpdatesInBackground();
        updater_.reset();
        EXPECT_EQ(clock_.scheduledCount(), 0u);
    }  // waits for the fetch to time out
    mainQueue().drain();
    EXPECT_TRUE(offers_.empty());
    EXPECT_EQ(clock_.scheduledCount(), 0u);
}

}  // namespace
