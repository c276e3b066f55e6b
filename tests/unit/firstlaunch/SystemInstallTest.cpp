// Moving a release into /opt over a real temporary tree: what is replaced and what is refused, the
// administrator's path, and the order of copy, Trash and restart.
#include <gtest/gtest.h>

#include "fakes/FakeAlerts.h"
#include "fakes/FakeApplication.h"
#include "fakes/FakeInstallServices.h"
#include "fakes/TestSupport.h"
#include "firstlaunch/SystemInstall.h"
#include "unit/TableSupport.h"
#include "util/Dispatch.h"

namespace jorvane::test {
namespace {

namespace fs = std::filesystem;
using Outcome = systemInstall::Outcome;

class MoveFixture {
public:
    MoveFixture() {
        opt_ = temp_.dir("opt");
        source_ = release("home/Downloads/jorvane-1.0", "new");
    }

    fs::path release(const std::string& folder, const std::string& marker) {
        temp_.file(folder + "/share/jorvane/installed-files",
                   "jorvane-installed-files 1 release\nbin/jorvane\nshare/jorvane/installed-files\n");
        const fs::path program = temp_.file(folder + "/bin/jorvane", "#!/bin/sh\n# " + marker + "\n");
        fs::permissions(program, fs::perms::owner_all);
        return temp_.path() / folder;
    }

    systemInstall::Context context(std::function<void(std::function<void()>)> background = {}) {
        return {system_,
                alerts_,
                application_,
                PlatformNames{},
                installation::installationOf(source_ / "bin/jorvane"),
                opt_.string(),
                "7",
                std::move(background)};
    }

    std::string destination() const { return (opt_ / "jorvane").string(); }

    TempDir temp_;
    fs::path opt_;
    fs::path source_;
    std::shared_ptr<EventLog> log_ = std::make_shared<EventLog>();
    FakeInstallServices system_{log_, temp_.path() / "Trash"};
    FakeAlerts alerts_{log_};
    FakeApplication application_{log_};
};

struct MoveRow {
    const char* name;
    std::function<void(MoveFixture&)> setUp;
    Outcome outcome;
    std::vector<std::string> steps;  // "<dest>" stands for the destination, "<src>" for the release
    const char* destinationHolds;    // the marker in <dest>/bin/jorvane afterwards; "" for nothing there
};

class Move : public MoveFixture, public testing::TestWithParam<MoveRow> {
protected:
    std::vector<std::string> expanded(const std::vector<std::string>& steps) {
        std::vector<std::string> out;
        for (const std::string& step : steps)
            out.push_back(replaceAll(replaceAll(step, "<dest>", destination()), "<src>", source_.string()));
        return out;
    }
};

constexpr const char* kActivate = "app.activateIgnoringOtherApps";
constexpr const char* kRun = "run /usr/bin/timeout";
constexpr const char* kAdmin = "admin /usr/bin/timeout";
constexpr const char* kFailure = "alert Could not move to /opt folder";
constexpr const char* kCheck = "run <dest>/bin/jorvane";

void oldRelease(MoveFixture& f);
void otherProduct(MoveFixture& f);

TEST_P(Move, Row) {
    const MoveRow& row = GetParam();
    if (row.setUp) row.setUp(*this);
    EXPECT_EQ(systemInstall::installAndRestart(context()), row.outcome);
    EXPECT_EQ(log_->entries(), expanded(row.steps));
    const fs::path program = fs::path(destination()) / "bin/jorvane";
    const std::string holds = fs::exists(program) ? readFile(program) : "";
    EXPECT_EQ(holds.empty() ? "" : holds.substr(holds.rfind(' ') + 1, holds.size() - holds.rfind(' ') - 2),
              row.destinationHolds);
    const bool trashed = row.outcome == Outcome::relaunched;
    EXPECT_EQ(fs::exists(source_), !trashed) << "the release goes to the Trash only after a good copy";
    EXPECT_FALSE(fs::exists(opt_ / ".jorvane-new-7") || fs::exists(opt_ / ".jorvane-old-7"));
    if (row.outcome == Outcome::refused) {
        EXPECT_EQ(alerts_.shown().at(0).informativeText,
                  destination() + " is not a copy of Jorvane, so it was left as it is.");
    }
}

// clang-format off
const MoveRow kMoveRows[] = {
    {"an older release there is replaced", oldRelease, Outcome::relaunched,
     {kActivate, kRun, kCheck, "trash <src>", "relaunch <dest>/bin/jorvane"}, "new"},
    {"another products folder there is refused and left alone", otherProduct, Outcome::refused,
     {kActivate, kFailure}, "theirs"},
    {"a copy running from there is started instead", [](MoveFixture& f) {
         oldRelease(f);
         f.system_.setRunning({(f.opt_ / "jorvane/bin/jorvane").string()});
     },
     Outcome::handedOver, {kActivate, "relaunch <dest>/bin/jorvane"}, "old"},
    {"an unwritable applications folder is replaced in one step as the administrator", [](MoveFixture& f) {
         oldRelease(f);
         f.system_.makeUnwritable(f.opt_.string());
     },
     Outcome::relaunched, {kActivate, kAdmin, kCheck, "trash <src>", "relaunch <dest>/bin/jorvane"}, "new"},
    {"a dismissed password dialog leaves both copies", [](MoveFixture& f) {
         oldRelease(f);
         f.system_.makeUnwritable(f.opt_.string());
         f.system_.answerAdmin({true, false, systemInstall::kAuthorisationDismissed});
     },
     Outcome::cancelled, {kActivate, kAdmin}, "old"},
    {"a refused authorisation shows the alert and leaves both copies", [](MoveFixture& f) {
         oldRelease(f);
         f.system_.makeUnwritable(f.opt_.string());
         f.system_.answerAdmin({true, false, systemInstall::kNotAuthorised});
     },
     Outcome::failed, {kActivate, kAdmin, kFailure}, "old"},
    {"a new copy that does not start shows the alert and the release stays", [](MoveFixture& f) {
         f.temp_.file("home/Downloads/jorvane-1.0/bin/jorvane", "#!/bin/sh\nexit 1\n# broken\n");
     },
     Outcome::failed, {kActivate, kRun, kCheck, kFailure}, "broken"},
    {"an unwritable release stays since it could not go to the trash",
     [](MoveFixture& f) { f.system_.makeUnwritable(f.source_.string()); }, Outcome::stays, {}, ""},
};
// clang-format on

void oldRelease(MoveFixture& f) { f.release("opt/jorvane", "old"); }
void otherProduct(MoveFixture& f) {
    f.temp_.file("opt/jorvane/bin/jorvane", "# theirs\n");
    f.temp_.file("opt/jorvane/README", "another product");
}

INSTANTIATE_TEST_SUITE_P(Rows, Move, testing::ValuesIn(kMoveRows), SentenceName{});

TEST_F(Move, theReplaceCommandNamesEveryToolByPathAndPassesPathsAsArguments) {
    const std::vector<std::string> argv = systemInstall::replaceCommand("-x", "/opt/jorvane", "/opt/.n", "/opt/.o");
    ASSERT_GE(argv.size(), 6u);
    EXPECT_EQ(argv[0], "/usr/bin/timeout");
    EXPECT_EQ(std::vector<std::string>(argv.end() - 4, argv.end()),
              (std::vector<std::string>{"-x", "/opt/jorvane", "/opt/.n", "/opt/.o"}));
    EXPECT_EQ(argv[argv.size() - 6].find("-x"), std::string::npos) << "no path is ever part of the shell text";
}

TEST_F(Move, inTheBackgroundTheMainThreadHearsTheOutcome) {
    std::vector<std::function<void()>> queued;
    std::optional<Outcome> heard;
    EXPECT_EQ(systemInstall::installAndRestart(
                  context([&](std::function<void()> work) { queued.push_back(std::move(work)); }),
                  [&](Outcome outcome) { heard = outcome; }),
              Outcome::inBackground);
    ASSERT_EQ(queued.size(), 1u);
    EXPECT_TRUE(fs::exists(source_)) << "nothing happens before the work runs";
    queued.front()();
    EXPECT_FALSE(heard) << "the outcome comes on the main queue";
    dispatch::mainQueue().runUntil([&] { return heard.has_value(); }, std::chrono::seconds(5));
    EXPECT_EQ(heard, Outcome::relaunched);
    EXPECT_EQ(log_->entriesStartingWith("relaunch"),
              std::vector<std::string>{"relaunch " + destination() + "/bin/jorvane"});
}

}  // namespace
}  // namespace jorvane::test
