// The about window's controller: the version text, the two addresses, and
// uninstall of a release folder: the question, each answer, files that
// cannot be deleted, and the refusals (which folders are never touched is
// the installation table's).
#include "app/AboutWindowController.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "fakes/FakeAlerts.h"
#include "fakes/FakeApplication.h"
#include "fakes/FakeURLOpener.h"
#include "fakes/TestSupport.h"
#include "unit/TableSupport.h"

namespace jorvane {
namespace {

namespace fs = std::filesystem;

using test::SentenceName;

class AboutFixture {
protected:
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
    EXPECT_EQ(urls_.opened, (std::vector<std::string>{"https://jorvane.org", "mailto:feedback@jorvane.org"}));
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
    EXPECT_EQ(question.buttons, (std::vector<std::string>{"Uninstall & send Feedback", "Uninstall", "Cancel"}));
    EXPECT_EQ(question.style, AlertSpec::Style::warning);
}

struct AnswerRow {
    const char* name;
    int answer;
    bool mails;
    bool removes;
};

class UninstallAnswer : public AboutFixture, public testing::TestWithParam<AnswerRow> {};

TEST_P(UninstallAnswer, DecidesMailRemovalAndQuit) {
    const AnswerRow& row = GetParam();
    alerts_.answerNext(row.answer);
    make().uninstall();
    EXPECT_EQ(urls_.opened,
              row.mails ? std::vector<std::string>{"mailto:feedback@jorvane.org"} : std::vector<std::string>{});
    EXPECT_EQ(fs::exists(bundle_), !row.removes);
    EXPECT_EQ(application_.terminations(), row.removes ? 1 : 0);
    EXPECT_EQ(alerts_.shown().size(), 1u) << "no alert after the question";
}

INSTANTIATE_TEST_SUITE_P(Answers, UninstallAnswer,
                         testing::Values(AnswerRow{"UninstallAndSendFeedback", kAlertFirstButton, true, true},
                                         AnswerRow{"UninstallAlone", kAlertSecondButton, false, true},
                                         AnswerRow{"CancelLeavesEverything", kAlertThirdButton, false, false},
                                         AnswerRow{"ClosingTheAlertCancels", 0, false, false}),
                         SentenceName{});

TEST_F(About, FilesThatCannotBeDeletedStillQuit) {
    AboutWindowController about = make();
    // The listed file became a folder with something in it: no one, root
    // included, deletes it as a file.
    fs::remove(bundle_ / "share/jorvane/installed-files");
    temp_.file("opt/jorvane/share/jorvane/installed-files/inside", "x");
    alerts_.answerNext(kAlertSecondButton);
    about.uninstall();
    EXPECT_FALSE(fs::exists(executable_));
    EXPECT_TRUE(fs::exists(bundle_ / "share/jorvane/installed-files/inside"));
    EXPECT_EQ(application_.terminations(), 1);
}

TEST_F(About, APackageInstallIsNeverDeletedButExplainedAndQuits) {
    temp_.file("usr/share/jorvane/installed-files",
               "jorvane-installed-files 1 package\nbin/jorvane\nshare/jorvane/installed-files\n");
    const fs::path program = temp_.file("usr/bin/jorvane", "program");
    make(program).uninstall();
    EXPECT_TRUE(fs::exists(program));
    ASSERT_EQ(alerts_.shown().size(), 1u) << "no question first";
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
