// The about window: version, addresses, and uninstall of a release folder (its answers and refusals).
#include "app/AboutWindowController.h"

#include <gtest/gtest.h>

#include "fakes/FakeAlerts.h"
#include "fakes/FakeApplication.h"
#include "fakes/FakeURLOpener.h"
#include "fakes/TestSupport.h"

namespace jorvane {
namespace {

namespace fs = std::filesystem;
using Strings = std::vector<std::string>;

class AboutFixture {
public:
    AboutFixture() {
        bundle_ = temp_.dir("opt/jorvane");
        executable_ = temp_.file("opt/jorvane/bin/jorvane", "program");
        temp_.file("opt/jorvane/share/jorvane/installed-files",
                   "jorvane-installed-files 1 release\nbin/jorvane\nshare/jorvane/installed-files\n");
    }
    AboutWindowController make(const fs::path& executable) {
        return AboutWindowController(AboutWindowController::Dependencies{
            alerts_, application_, urls_, executable, installation::installationOf(executable), "1.4.2"});
    }
    AboutWindowController make() { return make(executable_); }

    test::TempDir temp_;
    fs::path bundle_;
    fs::path executable_;
    test::FakeAlerts alerts_;
    test::FakeApplication application_;
    FakeURLOpener urls_;
};

class About : public AboutFixture, public testing::Test {};

TEST_F(About, ShowsTheVersionAndOpensTheHomepageAndAMailToTheFeedbackAddress) {
    AboutWindowController about = make();
    EXPECT_EQ(about.versionString(), "Version: 1.4.2");
    about.visitHomepage();
    about.contact();
    EXPECT_EQ(urls_.opened, (Strings{"https://jorvane.org", "mailto:feedback@jorvane.org"}));
    about.quit();
    EXPECT_EQ(application_.terminations(), 1);
}

TEST_F(About, UninstallAsksTheQuestionWithItsThreeButtons) {
    alerts_.answerNext(kAlertThirdButton);
    make().uninstall();
    ASSERT_EQ(alerts_.shown().size(), 1u);
    const AlertSpec& question = alerts_.shown()[0];
    EXPECT_EQ(question.messageText, "Do you really want to uninstall Jorvane?");
    EXPECT_EQ(question.informativeText,
              "Jorvane's files in " + bundle_.string() + " will be deleted. Files you added there stay.");
    EXPECT_EQ(question.buttons, (Strings{"Uninstall & send Feedback", "Uninstall", "Cancel"}));
    EXPECT_EQ(question.style, AlertSpec::Style::warning);
}

TEST(UninstallAnswer, DecidesMailRemovalAndQuit) {
    // The answer, whether a mail opens, whether the folder goes (and the program quits).
    const std::tuple<int, bool, bool> rows[] = {{kAlertFirstButton, true, true},
                                                {kAlertSecondButton, false, true},
                                                {kAlertThirdButton, false, false},
                                                {0, false, false}};
    for (const auto& [answer, mails, removes] : rows) {
        SCOPED_TRACE(answer);
        AboutFixture f;
        f.alerts_.answerNext(answer);
        f.make().uninstall();
        EXPECT_EQ(f.urls_.opened, mails ? Strings{"mailto:feedback@jorvane.org"} : Strings{});
        EXPECT_EQ(fs::exists(f.bundle_), !removes);
        EXPECT_EQ(f.application_.terminations(), removes ? 1 : 0);
        EXPECT_EQ(f.alerts_.shown().size(), 1u);
    }
}

TEST_F(About, APackageInstallIsNeverDeletedButExplainedAndQuits) {
    temp_.file("usr/share/jorvane/installed-files",
               "jorvane-installed-files 1 package\nbin/jorvane\nshare/jorvane/installed-files\n");
    const fs::path program = temp_.file("usr/bin/jorvane", "program");
    make(program).uninstall();
    EXPECT_TRUE(fs::exists(program));
    ASSERT_EQ(alerts_.shown().size(), 1u);
    EXPECT_EQ(alerts_.shown()[0].messageText, "Jorvane was installed by the package manager and cannot remove itself.");
    EXPECT_EQ(alerts_.shown()[0].informativeText,
              "Remove the package \"jorvane\" with the package manager (for example: sudo apt remove jorvane). "
              "Jorvane quits now.");
    EXPECT_EQ(application_.terminations(), 1);
}

TEST_F(About, AFolderWithoutAManifestIsNeverDeletedAndTheRefusalNamesIt) {
    const fs::path program = temp_.file("build/bin/jorvane", "program");
    make(program).uninstall();
    EXPECT_TRUE(fs::exists(program));
    ASSERT_EQ(alerts_.shown().size(), 1u);
    EXPECT_EQ(alerts_.shown()[0].messageText,
              "Jorvane cannot uninstall itself from " + (temp_.path() / "build/bin").string() + ".");
    EXPECT_EQ(application_.terminations(), 1);
}

}  // namespace
}  // namespace jorvane
