// The about window's controller: the version text, the two addresses, and
// uninstall: the question, each answer, a folder that cannot be deleted, and
// folders that must never be deleted.
#include "settings/AboutWindowController.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "fakes/FakeAlerts.h"
#include "fakes/FakeApplication.h"
#include "fakes/FakeURLOpener.h"
#include "fakes/TestSupport.h"

namespace jorvane {
namespace {

namespace fs = std::filesystem;

struct RowName {
    template <typename Row>
    std::string operator()(const testing::TestParamInfo<Row>& row) const {
        return row.param.name;
    }
};

class AboutFixture {
protected:
    AboutFixture() {
        bundle_ = temp_.dir("Applications/Jorvane");
        executable_ = temp_.file("Applications/Jorvane/bin/jorvane", "program");
        temp_.file("Applications/Jorvane/share/jorvane/DefaultPreferences.json", "{}");
    }
    AboutWindowController make(const fs::path& bundle, const fs::path& executable) {
        return AboutWindowController(AboutWindowController::Dependencies{
            alerts_, application_, urls_, executable, bundle, "1.4.2",
            [this](const fs::path& path, std::error_code& error) {
                removed_.push_back(path);
                if (failRemoval_) {
                    error = std::make_error_code(std::errc::read_only_file_system);
                } else {
                    fs::remove_all(path, error);
                }
            }});
    }
    AboutWindowController make() { return make(bundle_, executable_); }

    test::TempDir temp_;
    fs::path bundle_;
    fs::path executable_;
    test::FakeAlerts alerts_;
    test::FakeApplication application_;
    FakeURLOpener urls_;
    std::vector<fs::path> removed_;
    bool failRemoval_ = false;
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
    alerts_.answerNext(NSAlertThirdButtonReturn);
    make().uninstall();
    ASSERT_EQ(alerts_.shown().size(), 1u);
    const AlertSpec& question = alerts_.shown()[0];
    EXPECT_EQ(question.messageText, "Do you really want to uninstall Jorvane?");
    EXPECT_EQ(question.informativeText, "");
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
    EXPECT_EQ(urls_.opened, row.mails ? std::vector<std::string>{"mailto:feedback@jorvane.org"}
                                      : std::vector<std::string>{});
    EXPECT_EQ(fs::exists(bundle_), !row.removes);
    EXPECT_EQ(application_.terminations(), row.removes ? 1 : 0);
    EXPECT_EQ(alerts_.shown().size(), 1u) << "no alert after the question";
}

INSTANTIATE_TEST_SUITE_P(Answers, UninstallAnswer,
                         testing::Values(AnswerRow{"UninstallAndSendFeedback", NSAlertFirstButtonReturn, true, true},
                                         AnswerRow{"UninstallAlone", NSAlertSecondButtonReturn, false, true},
                                         AnswerRow{"CancelLeavesEverything", NSAlertThirdButtonReturn, false, false},
                                         AnswerRow{"ClosingTheAlertCancels", 0, false, false}),
                         RowName());

TEST_F(About, ABundleThatCannotBeDeletedStillQuits) {
    failRemoval_ = true;
    alerts_.answerNext(NSAlertSecondButtonReturn);
    make().uninstall();
    EXPECT_EQ(removed_, std::vector<fs::path>{bundle_});
    EXPECT_TRUE(fs::exists(executable_));
    EXPECT_EQ(application_.terminations(), 1);
}

TEST_F(About, APackageManagerInstallIsNeverDeletedButExplainedAndStillQuits) {
    alerts_.answerNext(NSAlertFirstButtonReturn);
    make("/usr", "/usr/bin/jorvane").uninstall();
    EXPECT_TRUE(removed_.empty());
    ASSERT_EQ(alerts_.shown().size(), 2u);
    EXPECT_EQ(alerts_.shown()[1].messageText,
              "Jorvane was installed by the package manager and cannot remove itself.");
    EXPECT_EQ(alerts_.shown()[1].informativeText,
              "Remove the package \"jorvane\" with the package manager (for example: sudo apt remove jorvane). "
              "Jorvane quits now.");
    EXPECT_EQ(urls_.opened.size(), 1u) << "the feedback mail still opens";
    EXPECT_EQ(application_.terminations(), 1);
}

TEST_F(About, AFolderSharedWithOtherProgramsIsNeverDeleted) {
    temp_.file("Applications/Jorvane/bin/xterm", "another program");
    alerts_.answerNext(NSAlertSecondButtonReturn);
    make().uninstall();
    EXPECT_TRUE(removed_.empty());
    EXPECT_TRUE(fs::exists(executable_));
    ASSERT_EQ(alerts_.shown().size(), 2u);
    EXPECT_EQ(alerts_.shown()[1].messageText,
              "Jorvane cannot remove " + bundle_.string() + ", which holds other programs too.");
    EXPECT_EQ(application_.terminations(), 1);
}

// ---- Which folders uninstall may delete.

struct FolderRow {
    const char* name;
    const char* bundle;      // relative to the temporary folder, or absolute
    const char* executable;  // likewise
    bool removable;
};

class RemovableBundle : public AboutFixture, public testing::TestWithParam<FolderRow> {};

TEST_P(RemovableBundle, OnlyTheProgramsOwnFolder) {
    const FolderRow& row = GetParam();
    temp_.file("local/bin/jorvane");
    temp_.file("local/bin/python3");
    temp_.file("loose/jorvane");
    const auto at = [this](const char* path) {
        return *path == 0 || *path == '/' ? fs::path(path) : temp_.path() / path;
    };
    EXPECT_EQ(AboutWindowController::isRemovableBundle(at(row.bundle), at(row.executable)), row.removable);
}

INSTANTIATE_TEST_SUITE_P(
    Folders, RemovableBundle,
    testing::Values(FolderRow{"ItsOwnFolder", "Applications/Jorvane", "Applications/Jorvane/bin/jorvane", true},
                    FolderRow{"ItsOwnFolderSpelledWithDots", "Applications/./Jorvane/",
                              "Applications/Jorvane/bin/../bin/jorvane", true},
                    FolderRow{"APrefixWithOtherPrograms", "local", "local/bin/jorvane", false},
                    FolderRow{"AFolderThatDoesNotHoldTheProgram", "Applications/Jorvane", "loose/jorvane", false},
                    FolderRow{"TheProgramsFolderWithoutBin", "loose", "loose/jorvane", false},
                    FolderRow{"APackageManagerPrefix", "/usr", "/usr/bin/jorvane", false},
                    FolderRow{"NoFolder", "", "", false}),
    RowName());

}  // namespace
}  // namespace jorvane
