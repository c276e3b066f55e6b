// Connecting to a server through the bridge: the mount queue, its report on
// the main queue, replacement and cancellation.

#include "filemanager/FileManagerCommands.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "fakes/FakeHandlerCatalogue.h"
#include "fakes/TestSupport.h"
#include "util/Dispatch.h"

using namespace std::chrono_literals;
using namespace jorvane;
using jorvane::dispatch::isMainThread;
using jorvane::dispatch::mainQueue;
using jorvane::test::FakeHandlerCatalogue;

namespace {

struct Bridge {
    std::shared_ptr<FakeHandlerCatalogue> catalogue = std::make_shared<FakeHandlerCatalogue>();
    FileManagerCommands wrapper{catalogue};
    ~Bridge() {
        catalogue->releaseAll();
        wrapper.waitUntilIdle();
        mainQueue().drain();
    }
};

struct Report {
    int count = 0;
    bool onMainThread = false;
    std::optional<std::string> failure;
};

FileManagerCommands::FailureBlock into(Report& report) {
    return [&report](std::optional<std::string> failure) {
        ++report.count;
        report.onMainThread = isMainThread();
        report.failure = std::move(failure);
    };
}

struct ReportRow {
    const char* name;
    std::optional<std::string> answer;
    std::string failure;
    std::optional<std::string> reported;
};

class MountReport : public testing::TestWithParam<ReportRow> {};

TEST_P(MountReport, Row) {
    Bridge b;
    b.catalogue->answer(handlers::mount, GetParam().answer);
    b.catalogue->failWith(handlers::mount, GetParam().failure);
    Report report;
    b.wrapper.mountAsync("ftp://127.0.0.1:2121/", into(report));
    ASSERT_TRUE(mainQueue().runUntil([&] { return report.count > 0; }, 10s));
    EXPECT_TRUE(report.onMainThread);
    EXPECT_EQ(report.failure, GetParam().reported);
    ASSERT_EQ(b.catalogue->calls().size(), 1u);
    EXPECT_FALSE(b.catalogue->calls().front().onMainThread);
    EXPECT_EQ(b.catalogue->calls().front().params, std::vector<std::string>{"ftp://127.0.0.1:2121/"});
}

const ReportRow kReportRows[] = {
    {"success", "", "", std::nullopt},
    {"failure_with_the_catalogue_s_reason", std::nullopt, "Could not connect to 127.0.0.1: Connection refused",
     "Could not connect to 127.0.0.1: Connection refused"},
    {"failure_without_a_reason", std::nullopt, "", "The server could not be connected"},
};
INSTANTIATE_TEST_SUITE_P(FileManagerCommands, MountReport, testing::ValuesIn(kReportRows),
                         [](const auto& row) { return std::string(row.param.name); });

TEST(FileManagerCommands, ANewMountReplacesTheWaitingOneAndCancelGivesUpTheRunningOne) {
    Bridge b;
    b.catalogue->hold(handlers::mount);
    Report first, second, third;
    b.wrapper.mountAsync("ftp://one/", into(first));
    ASSERT_TRUE(b.catalogue->waitForHeld(handlers::mount, 1));
    b.wrapper.mountAsync("ftp://two/", into(second));
    b.wrapper.mountAsync("ftp://three/", into(third));

    // Gives up the running one (the fake lets it go), and the waiting one.
    b.wrapper.cancelMount();
    EXPECT_EQ(b.catalogue->cancelCount(handlers::mount), 1u);
    b.wrapper.waitUntilIdle();
    mainQueue().drain();

    EXPECT_EQ(first.count, 1) << "the running one reports";
    EXPECT_EQ(second.count, 0);
    EXPECT_EQ(third.count, 0) << "a cancelled waiting mount never reports";
    EXPECT_EQ(b.catalogue->callCount(handlers::mount), 1u);
}

}  // namespace
