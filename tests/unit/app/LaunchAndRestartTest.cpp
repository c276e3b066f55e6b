// The launch sequence and its exits, and the Thunar restart that toggling hidden files needs.
#include "JorvaneAppFixture.h"

#include <gmock/gmock.h>

namespace jorvane::test::appcore {
namespace {

using appcore::PrintTo;
using testing::ElementsAre;

// clang-format off
const std::vector<std::string> kUntilSessionCheck = {"updater.setUpdateCheckInterval 10800",
    "updater.checkForUpdatesInBackground", "workspace.setCallback", "environment.missingRequirements"};
const std::vector<std::string> kStepBack = {"app.activateIgnoringOtherApps", "app.deactivate"};
const std::vector<std::string> kWatchAndStepBack = std::vector<std::string>{"tap.setEnabled 0", "tap.uninstall",
    "tap.install 4242", "tap.setSwallowableKeys 5/0x100000", "observer.create 4242",
    "observer.add focused window changed", "observer.add application deactivated", "observer.add minimized",
    "observer.add title changed"} + kStepBack;
// clang-format on
const std::vector<std::string> kFind = {"fm.runningApplicationPid"};

struct LaunchRow {
    const char* name;
    std::vector<std::string> missing;
    bool firstLaunch;
    bool welcomeGoesOn;
    std::int32_t fileManagerPid;
    std::vector<std::string> steps;
};

class Launch : public AppDelegateTable<LaunchRow> {};

TEST_P(Launch, Row) {
    const LaunchRow& row = GetParam();
    environment_.setMissing(row.missing);
    if (row.firstLaunch) defaults_->removeObjectForKey(settings::keys::notFirstLaunch);
    welcomeGoesOn_ = row.welcomeGoesOn;
    fileManager_.setPid(row.fileManagerPid);

    delegate().finishLaunching();
    EXPECT_EQ(log_->entries(), row.steps);
    const bool ends = row.steps.back() == "app.terminate";
    EXPECT_EQ(delegate().isTerminating(), ends);
    EXPECT_EQ(delegate().userDeclinedLaunch(), row.firstLaunch && !row.welcomeGoesOn);
    const bool watches = !ends && row.fileManagerPid > 0;
    EXPECT_EQ(tap_.isInstalled(), watches);
    EXPECT_EQ(accessibility_.observer() != nullptr, watches);
}

// clang-format off
const LaunchRow kLaunchRows[] = {
    {"a usual launch watches the file manager and steps back", {}, false, true, 4242,
     kUntilSessionCheck + kFind + kWatchAndStepBack},
    {"a first launch greets before it looks for the file manager", {}, true, true, 4242,
     kUntilSessionCheck + std::vector<std::string>{"welcome"} + kFind + kWatchAndStepBack},
    {"a session without XTEST says so and ends before anything else", {"the XTEST extension"}, true, true, 4242,
     kUntilSessionCheck + std::vector<std::string>{"alert Jorvane cannot work in this session.", "app.terminate"}},
    {"no file manager running waits for one without an alert", {}, false, true, 0,
     kUntilSessionCheck + kFind + kStepBack},
    {"no file manager on a first launch greets first then waits", {}, true, true, 0,
     kUntilSessionCheck + std::vector<std::string>{"welcome"} + kFind + kStepBack},
    {"a welcome answered with quit ends without looking further", {}, true, false, 4242,
     kUntilSessionCheck + std::vector<std::string>{"welcome", "app.terminate"}},
};
// clang-format on

INSTANTIATE_TEST_SUITE_P(Rows, Launch, testing::ValuesIn(kLaunchRows), SentenceName{});

TEST_F(AppDelegateTest, theSessionAlertListsWhatIsMissing) {
    environment_.setMissing({"an X display", "the XInput 2.2 extension"});
    launched();
    ASSERT_EQ(alerts_.shown().size(), 1u);
    EXPECT_EQ(alerts_.shown()[0].informativeText,
              "To see clicks and keys in Thunar windows, Jorvane needs what this session lacks: an X display, the "
              "XInput 2.2 extension. Start Jorvane again in a session that offers it.");
    EXPECT_THAT(alerts_.shown()[0].buttons, ElementsAre("Quit"));
    EXPECT_EQ(alerts_.shown()[0].style, AlertSpec::Style::critical);
}

TEST_F(AppDelegateTest, launchRegistersTheShippedDefaultsStoresTheVersionAndChecksAtTheSetInterval) {
    defaults_->setInteger(3600, settings::keys::updateCheckInterval);
    delegate().finishLaunching();
    EXPECT_EQ(log_->entries().at(0), "updater.setUpdateCheckInterval 3600");
    EXPECT_TRUE(defaults_->boolForKey(settings::keys::activateByHotkey));
    EXPECT_EQ(defaults_->stringForKey(settings::keys::version), "1.2.3");
}

TEST_F(AppDelegateTest, aMissingDefaultsResourceRegistersNothingAndLaunchGoesOn) {
    auto ports = this->ports();
    ports.defaultPreferences = "/nonexistent/DefaultPreferences.json";
    delegate_ = std::make_unique<JorvaneApp>(ports);
    launched();
    EXPECT_TRUE(tap_.isInstalled());
    EXPECT_FALSE(defaults_->boolForKey(settings::keys::activateByHotkey));
}

TEST_F(AppDelegateTest, aTapThatCannotBeMadeLeavesTheRestOfTheLaunch) {
    tap_.failInstalls(true);
    delegate().finishLaunching();
    EXPECT_FALSE(tap_.isInstalled());
    EXPECT_NE(accessibility_.observer(), nullptr);
    EXPECT_EQ(log_->entries().back(), "app.deactivate");
}

TEST_F(AppDelegateTest, togglingHiddenFilesRestartsTheFileManagerAfterASecondAndBringsItToTheFrontEachTime) {
    launched();
    delegate().toggleShowHidden();
    settle();
    EXPECT_THAT(logged({"fm."}), ElementsAre("fm.showsAllFiles", "fm.setShowsAllFiles 1", "fm.quit org.xfce.Thunar"));
    EXPECT_EQ(fileManager_.processExistsCount(), 1);
    advance(0.999);
    EXPECT_EQ(fileManager_.launchCount(), 0);
    advance(0.001);
    EXPECT_EQ(fileManager_.launchCount(), 1);
    EXPECT_TRUE(delegate().launchAfterToggleHidden());
    log_->clear();
    workspace_.launched(fileManager_.pid());
    EXPECT_THAT(logged({"fm.", "tap.install"}), ElementsAre("tap.install 5000", "fm.bringToFront 5000"));
    EXPECT_FALSE(delegate().launchAfterToggleHidden());
    // The user's own restart later is not brought to the front.
    log_->clear();
    workspace_.launched(6000);
    EXPECT_TRUE(logged({"fm."}).empty());
    // Toggling again restores the setting and brings the next process to the front too.
    delegate().toggleShowHidden();
    settle();
    advance(1.0);
    workspace_.launched(fileManager_.pid());
    EXPECT_FALSE(fileManager_.showsAllFilesValue());
    EXPECT_THAT(logged({"fm.bringToFront"}), ElementsAre("fm.bringToFront 5001"));
}

TEST_F(AppDelegateTest, aFileManagerThatDoesNotQuitIsAskedFiftyTimesAndStartedAnyway) {
    launched();
    fileManager_.lingerAfterQuit(true);
    fileManager_.setQuitResult(errAETimeout);
    delegate().toggleShowHidden();
    settle();
    EXPECT_EQ(fileManager_.processExistsCount(), JorvaneApp::kQuitPolls);
    advance(1.0);
    EXPECT_EQ(fileManager_.launchCount(), 1);
}

TEST_F(AppDelegateTest, aRestartStillWaitingWhenTheDelegateGoesNeverHappens) {
    launched();
    delegate().toggleShowHidden();
    settle();
    delegate_.reset();
    EXPECT_EQ(time_.clock.scheduledCount(), 0u);
    advance(2.0);
    EXPECT_EQ(fileManager_.launchCount(), 0);
}

}  // namespace
}  // namespace jorvane::test::appcore
