// Connecting to a server through the bridge: replacement and cancellation
// (what a mount reports is the bar's table).

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
};

FileManagerCommands::FailureBlock into(Report& report) {
    return [&report](std::optional<std::string>) { ++report.count; };
}

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
