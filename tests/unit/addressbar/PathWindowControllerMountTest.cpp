// Return on a server address: the connection runs in the background with the spinner, and its end shows in
// the bar (the folder the window went to, or why not). Escape and a closed window give it up.
#include "PathWindowControllerFixture.h"

#include <gmock/gmock.h>

namespace jorvane::test {
namespace {

constexpr const char* kAddress = "ftp://user@127.0.0.1:2121/";
constexpr const char* kMountedFolder = "/run/user/1000/gvfs/ftp:host=127.0.0.1,port=2121,user=user";

struct MountRow {
    const char* name;
    // What "mount" answers, and the reason it gives when it answers nothing.
    std::optional<std::string> answer;
    std::string failure;
    // The bar went away while connecting (a login dialog took the keyboard).
    bool barHiddenMeanwhile;
    const char* fieldAfter;
    const char* problemAfter;
    bool barVisibleAfter;
};

class ServerMountResult : public PathWindowControllerTable<MountRow> {};

TEST_P(ServerMountResult, Row) {
    const MountRow& row = GetParam();
    catalogue_->answer(handlers::mount, row.answer);
    catalogue_->failWith(handlers::mount, row.failure);
    catalogue_->answer(handlers::folderPath, std::string(kMountedFolder));
    catalogue_->hold(handlers::mount);
    views_.panel().setVisible(true);
    views_.field().type(kAddress);
    bar().pathEditorEnter();
    ASSERT_TRUE(catalogue_->waitForHeld(handlers::mount, 1));
    // The bar is free meanwhile, and says that it works.
    advance(PathWindowController::kSpinnerDelay + 0.1);
    EXPECT_FALSE(views_.spinner().isHidden());
    EXPECT_EQ(views_.field().stringValue(), kAddress);
    if (row.barHiddenMeanwhile) views_.panel().setVisible(false);
    catalogue_->release(handlers::mount);
    settle();
    settle();  // a success asks the window for its folder, in the background too
    EXPECT_FALSE(catalogue_->lastCall(handlers::mount)->onMainThread);
    EXPECT_TRUE(views_.spinner().isHidden());
    EXPECT_EQ(views_.field().stringValue(), row.fieldAfter);
    EXPECT_EQ(views_.field().problem(), row.problemAfter);
    EXPECT_EQ(views_.panel().isVisible(), row.barVisibleAfter);
    bar().close();
    EXPECT_EQ(catalogue_->cancelCount(handlers::mount), 0u) << "a finished connection is given up";
}

const MountRow kMountRows[] = {
    {"a failure without a reason of its own gets the general one", std::nullopt, "", false, kAddress,
     "The server could not be connected", true},
    {"a failure brings back the bar that a login dialog took away", std::nullopt,
     "Could not connect to 127.0.0.1: Connection refused", true, kAddress,
     "Could not connect to 127.0.0.1: Connection refused", true},
    {"a success does not bring back a bar that went away", "", "", true, kMountedFolder, "", false},
};
INSTANTIATE_TEST_SUITE_P(PathWindowController, ServerMountResult, testing::ValuesIn(kMountRows), SentenceName{});

TEST_F(PathWindowControllerTest, APlaceWithoutAPathKeepsItsAddressInTheField) {
    catalogue_->answer(handlers::mount, std::string());
    catalogue_->answer(handlers::folderPath, std::nullopt);
    views_.field().type("trash:///");
    bar().pathEditorEnter();
    settle();
    settle();
    EXPECT_EQ(views_.field().stringValue(), "trash:///");

    // Text typed while the window's folder is asked for stays.
    catalogue_->hold(handlers::folderPath);
    bar().pathEditorEnter();
    bridge_.waitUntilIdle();
    dispatch::mainQueue().drain();
    ASSERT_TRUE(catalogue_->waitForHeld(handlers::folderPath, 1)) << testing::PrintToString(handlerCalls());
    views_.field().type("concerts");
    catalogue_->release(handlers::folderPath);
    settle();
    EXPECT_EQ(views_.field().stringValue(), "concerts");
}

TEST(ServerMountGivenUp, ByEscapeOrAClosedWindowHidesTheBarWithoutNews) {
    for (const bool escape : {true, false}) {
        PathWindowControllerFixture f;
        f.catalogue_->failWith(handlers::mount, "Connection cancelled");
        f.catalogue_->hold(handlers::mount);
        f.views_.panel().setVisible(true);
        f.views_.field().type(kAddress);
        f.bar().pathEditorEnter();
        ASSERT_TRUE(f.catalogue_->waitForHeld(handlers::mount, 1));
        f.advance(PathWindowController::kSpinnerDelay + 0.1);
        escape ? void(f.bar().handleEditCommand(TextCommand::cancelOperation)) : f.bar().close();
        f.settle();
        EXPECT_EQ(f.catalogue_->cancelCount(handlers::mount), 1u);
        EXPECT_TRUE(f.views_.spinner().isHidden());
        EXPECT_EQ(f.views_.field().problem(), "") << "the cancelled attempt's failure is no news";
        EXPECT_FALSE(f.views_.panel().isVisible());
        EXPECT_EQ(f.catalogue_->callCount(handlers::folderPath), 0u);
    }
}

TEST_F(PathWindowControllerTest, ANewAddressReplacesTheOneStillConnectingAndOnlyItsResultShows) {
    // Each address fails in its own words; calls run one after another, so a call's reason is its reply's.
    catalogue_->answerWith(handlers::mount, [this](const std::vector<std::string>& params) {
        catalogue_->failWith(handlers::mount, params.at(0) == kAddress
                                                  ? "Connection cancelled"
                                                  : "Could not connect to 127.0.0.1: Connection refused");
        return std::optional<std::string>();
    });
    catalogue_->hold(handlers::mount);
    views_.panel().setVisible(true);
    views_.field().type(kAddress);
    bar().pathEditorEnter();
    ASSERT_TRUE(catalogue_->waitForHeld(handlers::mount, 1));
    views_.field().type("ftp://127.0.0.1:9/");
    bar().pathEditorEnter();
    EXPECT_EQ(catalogue_->cancelCount(handlers::mount), 1u);
    settle();
    EXPECT_EQ(catalogue_->callCount(handlers::mount), 2u);
    EXPECT_EQ(views_.field().problem(), "Could not connect to 127.0.0.1: Connection refused");
}

}  // namespace
}  // namespace jorvane::test
