#include "app/AppcastUpdater.h"
#include "app/SocketHttpClient.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

using namespace std::chrono_literals;
using namespace jorvane;
using namespace jorvane::dispatch;

namespace {

// A one-thread HTTP server on 127.0.0.1 (port chosen by the system) that
// answers every request with the same bytes, or holds the connection open
// without a word. It stops when destroyed, and on its own after 30 s.
class FeedServer {
public:
    explicit FeedServer(std::string response) : response_(std::move(response)) {
        fd_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in addr{};
        addr.sin_family = AF_INET;
        addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        addr.sin_port = 0;
        if (fd_ < 0 || ::bind(fd_, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0 || ::listen(fd_, 8) != 0)
            throw std::runtime_error("cannot listen on 127.0.0.1");
        socklen_t len = sizeof addr;
        ::getsockname(fd_, reinterpret_cast<sockaddr*>(&addr), &len);
        port_ = ntohs(addr.sin_port);
        thread_ = std::thread([this] { run(); });
    }
    ~FeedServer() {
        stop_ = true;
        thread_.join();
        ::close(fd_);
    }

    std::string url(const std::string& path = "/appcast.xml") const {
        return "http://127.0.0.1:" + std::to_string(port_) + path;
    }
    void setResponse(std::string response) {
        std::lock_guard lock(mutex_);
        response_ = std::move(response);
    }
    void setSilent(bool silent) { silent_ = silent; }
    int requests() const { return requests_; }

private:
    void run() {
        const auto giveUp = std::chrono::steady_clock::now() + 30s;
        std::vector<int> held;
        while (!stop_ && std::chrono::steady_clock::now() < giveUp) {
            pollfd p{fd_, POLLIN, 0};
            if (::poll(&p, 1, 20) <= 0) continue;
            const int client = ::accept4(fd_, nullptr, nullptr, SOCK_CLOEXEC);
            if (client < 0) continue;
            std::string request;
            char buffer[1024];
            while (!stop_ && request.find("\r\n\r\n") == std::string::npos) {
                pollfd c{client, POLLIN, 0};
                if (::poll(&c, 1, 20) <= 0) continue;
                const ssize_t n = ::recv(client, buffer, sizeof buffer, 0);
                if (n <= 0) break;
                request.append(buffer, static_cast<std::size_t>(n));
            }
            ++requests_;
            if (silent_) {
                held.push_back(client);
                continue;
            }
            std::string response;
            {
                std::lock_guard lock(mutex_);
                response = response_;
            }
            for (std::size_t sent = 0; sent < response.size();) {
                const ssize_t n = ::send(client, response.data() + sent, response.size() - sent, MSG_NOSIGNAL);
                if (n <= 0) break;
                sent += static_cast<std::size_t>(n);
            }
            ::close(client);
        }
        for (int fd : held) ::close(fd);
    }

    int fd_ = -1;
    int port_ = 0;
    std::mutex mutex_;
    std::string response_;
    std::atomic<bool> silent_{false};
    std::atomic<bool> stop_{false};
    std::atomic<int> requests_{0};
    std::thread thread_;
};

std::string feedWith(const std::string& version, const std::string& shortVersion) {
    return R"(<?xml version="1.0"?><rss xmlns:sparkle="http://www.andymatuschak.org/xml-namespaces/sparkle"><channel>)"
           "<item><title>Jorvane " + shortVersion + "</title><enclosure url=\"http://example.test/j-" + shortVersion +
           ".tar.gz\" sparkle:version=\"" + version + "\" sparkle:shortVersionString=\"" + shortVersion +
           "\"/></item></channel></rss>";
}

std::string ok(const std::string& body) {
    return "HTTP/1.1 200 OK\r\nContent-Type: application/rss+xml\r\nContent-Length: " + std::to_string(body.size()) +
           "\r\n\r\n" + body;
}

std::string chunked(const std::string& body) {
    std::string out = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n";
    for (std::size_t i = 0; i < body.size(); i += 50) {
        const std::string part = body.substr(i, 50);
        char size[16];
        std::snprintf(size, sizeof size, "%zx\r\n", part.size());
        out += size + part + "\r\n";
    }
    return out + "0\r\n\r\n";
}

// A queue that only counts what it is given: proves that nothing went to the
// network side.
struct CountingQueue final : Queue {
    int tasks = 0;
    void async(Task) override { ++tasks; }
};

struct CountingClient final : HttpClient {
    std::atomic<int> calls{0};
    std::optional<std::string> get(const std::string&, double) override {
        ++calls;
        return std::nullopt;
    }
};

class AppcastUpdaterTest : public testing::Test {
protected:
    AppcastUpdaterTest() {
        mainQueue().bindToCurrentThread();
        setTimeSource(&clock_);
    }
    ~AppcastUpdaterTest() override {
        updater_.reset();
        mainQueue().drain();
        setTimeSource(nullptr);
    }

    AppcastUpdater& make(const std::string& url, const std::string& current, double timeout = 5.0,
                         std::shared_ptr<HttpClient> http = std::make_shared<SocketHttpClient>()) {
        updater_ = std::make_unique<AppcastUpdater>(
            std::move(http), AppcastUpdater::Options{url, current, timeout},
            [this](const UpdateOffer& offer) {
                EXPECT_TRUE(mainQueue().isMainThread());
                offers_.push_back(offer);
            });
        updater_->setUpdateCheckInterval(10800.0);
        return *updater_;
    }
    // Waits (real time, bounded) for the given number of ended checks.
    bool waitForChecks(std::size_t n) {
        return mainQueue().runUntil([&] { return updater_->completedCheckCount() >= n; }, 10s);
    }
    void pass(Duration by) {
        clock_.advance(by);
        mainQueue().drain();
    }

    ManualTimeSource clock_;
    std::unique_ptr<AppcastUpdater> updater_;
    std::vector<UpdateOffer> offers_;
};

TEST_F(AppcastUpdaterTest, ANewerVersionIsOfferedOnceAndTheCheckRearmsOnVirtualTime) {
    FeedServer server(ok(feedWith("120", "1.2")));
    auto& updater = make(server.url(), "110");
    updater.checkForUpdatesInBackground();
    ASSERT_TRUE(waitForChecks(1));
    ASSERT_EQ(offers_.size(), 1u);
    EXPECT_EQ(offers_[0], (UpdateOffer{"120", "1.2", "http://example.test/j-1.2.tar.gz", "Jorvane 1.2"}));
    EXPECT_TRUE(updater.isCheckScheduled());

    // Nothing happens before the interval is over.
    pass(10799s);
    EXPECT_TRUE(updater.isCheckScheduled());
    EXPECT_EQ(updater.completedCheckCount(), 1u);

    // At the interval the feed is read again; the same version is not offered twice.
    pass(1s);
    ASSERT_TRUE(waitForChecks(2));
    EXPECT_EQ(server.requests(), 2);
    EXPECT_EQ(offers_.size(), 1u);
    EXPECT_TRUE(updater.isCheckScheduled());

    // A later release is offered in its turn.
    server.setResponse(chunked(feedWith("130", "1.3")));
    pass(10800s);
    ASSERT_TRUE(waitForChecks(3));
    ASSERT_EQ(offers_.size(), 2u);
    EXPECT_EQ(offers_[1].shortVersion, "1.3");
}

struct NoOfferCase {
    const char* name;
    std::string response;
};

class NothingOffered : public AppcastUpdaterTest, public testing::WithParamInterface<NoOfferCase> {};

TEST_P(NothingOffered, AndTheNextCheckIsStillScheduled) {
    FeedServer server(GetParam().response);
    auto& updater = make(server.url(), "120");
    updater.checkForUpdatesInBackground();
    ASSERT_TRUE(waitForChecks(1));
    EXPECT_TRUE(offers_.empty());
    EXPECT_EQ(server.requests(), 1);
    EXPECT_TRUE(updater.isCheckScheduled());
}

INSTANTIATE_TEST_SUITE_P(
    Feeds, NothingOffered,
    testing::Values(NoOfferCase{"WhenTheFeedHasTheRunningVersion", ok(feedWith("120", "1.2"))},
                    NoOfferCase{"WhenTheFeedIsMalformed", ok("<html><body>maintenance</body></html>")},
                    NoOfferCase{"WhenTheServerAnswersWithAnError",
                                "HTTP/1.1 500 Internal Server Error\r\nContent-Length: 0\r\n\r\n"},
                    NoOfferCase{"WhenTheFeedIsAboveTheSizeCap",
                                "HTTP/1.1 200 OK\r\nContent-Length: 2000000\r\n\r\n" + std::string(2'000'000, 'x')}),
    [](const auto& param) { return std::string(param.param.name); });

TEST_F(AppcastUpdaterTest, AServerThatNeverAnswersTimesOutWithoutAnOffer) {
    FeedServer server(ok(feedWith("999", "9.9.9")));
    server.setSilent(true);
    auto& updater = make(server.url(), "1", 0.3);
    updater.checkForUpdatesInBackground();
    ASSERT_TRUE(waitForChecks(1));
    EXPECT_TRUE(offers_.empty());
    EXPECT_TRUE(updater.isCheckScheduled());
}

TEST_F(AppcastUpdaterTest, ANewCheckIsNotStartedWhileOneIsRunning) {
    CountingQueue background;
    updater_ = std::make_unique<AppcastUpdater>(std::make_shared<CountingClient>(),
                                                AppcastUpdater::Options{"http://127.0.0.1:1/f", "1", 1.0},
                                                [this](const UpdateOffer& o) { offers_.push_back(o); }, background);
    updater_->setUpdateCheckInterval(10800.0);
    updater_->checkForUpdatesInBackground();
    updater_->checkForUpdatesInBackground();
    EXPECT_EQ(background.tasks, 1);
    // The running check is not doubled by the timer either: it is disarmed until the check ends.
    EXPECT_FALSE(updater_->isCheckScheduled());
}

TEST_F(AppcastUpdaterTest, AnEmptyFeedUrlMeansNoCheckAndNoNetwork) {
    auto http = std::make_shared<CountingClient>();
    CountingQueue background;
    updater_ = std::make_unique<AppcastUpdater>(http, AppcastUpdater::Options{"", "1", 1.0},
                                                [this](const UpdateOffer& o) { offers_.push_back(o); }, background);
    updater_->setUpdateCheckInterval(10800.0);
    updater_->checkForUpdatesInBackground();
    pass(100000s);
    EXPECT_EQ(background.tasks, 0);
    EXPECT_EQ(http->calls, 0);
    EXPECT_FALSE(updater_->isCheckScheduled());
    EXPECT_EQ(clock_.scheduledCount(), 0u);
}

TEST_F(AppcastUpdaterTest, WithoutAnIntervalOnlyTheAskedCheckRuns) {
    FeedServer server(ok(feedWith("120", "1.2")));
    auto& updater = make(server.url(), "110");
    updater.setUpdateCheckInterval(0);
    updater.checkForUpdatesInBackground();
    ASSERT_TRUE(waitForChecks(1));
    EXPECT_FALSE(updater.isCheckScheduled());
    pass(100000s);
    EXPECT_EQ(server.requests(), 1);
}

TEST_F(AppcastUpdaterTest, DestroyingTheUpdaterDuringAFetchDropsItsResult) {
    FeedServer server(ok(feedWith("999", "9.9.9")));
    server.setSilent(true);
    {
        GlobalQueue background(1);
        updater_ = std::make_unique<AppcastUpdater>(std::make_shared<SocketHttpClient>(),
                                                    AppcastUpdater::Options{server.url(), "1", 0.3},
                                                    [this](const UpdateOffer& o) { offers_.push_back(o); }, background);
        updater_->setUpdateCheckInterval(10800.0);
        updater_->checkForUpdatesInBackground();
        updater_.reset();
        EXPECT_EQ(clock_.scheduledCount(), 0u);
    }  // waits for the fetch to time out
    mainQueue().drain();
    EXPECT_TRUE(offers_.empty());
    EXPECT_EQ(clock_.scheduledCount(), 0u);
}

}  // namespace
