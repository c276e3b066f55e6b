// Moving the program's folder into the applications folder: when it stays,
// the order of trash, copy and restart, the administrator's path through
// polkit, and the single failure alert.

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "AppDelegateFixture.h"
#include "app/MoveToApplications.h"
#include "fakes/FakeAlerts.h"
#include "fakes/FakeApplication.h"
#include "fakes/FakeBundleServices.h"

namespace jorvane::test {
namespace {

using appcore::SentenceName;
using Outcome = MoveToApplications::Outcome;

constexpr const char* kSource = "/home/me/Downloads/Jorvane";
constexpr const char* kDestination = "/opt/Jorvane";
constexpr const char* kActivate = "app.activateIgnoringOtherApps";
constexpr const char* kFailure = "alert Could not move to /opt folder";

struct MoveRow {
    const char* name;
    std::function<void(FakeBundleServices&)> setUp;
    Outcome outcome;
    std::vector<std::string> steps;
    const char* source = kSource;
    const char* moveName = "Jorvane";
};

void PrintTo(const MoveRow& row, std::ostream* out) { *out << row.name; }

// The usual machine: the bundle in the user's downloads, /opt writable.
void usual(FakeBundleServices& system) {
    system.addFolder(kSource, true);
    system.addFolder("/opt", true);
}

std::function<void(FakeBundleServices&)> with(std::function<void(FakeBundleServices&)> more) {
    return [more = std::move(more)](FakeBundleServices& system) {
        usual(system);
        more(system);
    };
}

void unwritableOpt(FakeBundleServices& system) {
    system.addFolder(kSource, true);
    system.addFolder("/opt", false);
}

std::function<void(FakeBundleServices&)> administratorRuns(std::vector<PrivilegedRun> runs) {
    return [runs = std::move(runs)](FakeBundleServices& system) {
        unwritableOpt(system);
        for (const PrivilegedRun& run : runs) system.scriptAdmin(run);
    };
}

constexpr PrivilegedRun kExit0{true, false, 0};
constexpr PrivilegedRun kDismissed{true, false, MoveToApplications::kAuthorisationDismissed};
constexpr PrivilegedRun kRefused{true, false, MoveToApplications::kNotAuthorised};

const std::string kCopy = std::string("copy ") + kSource + " -> " + kDestination;
const std::string kTrashSource = std::string("trash ") + kSource;
const std::string kTrashDestination = std::string("trash ") + kDestination;
const std::string kRelaunch = "relaunch /opt/Jorvane/bin/jorvane";
const std::string kRemoveAsAdmin = "admin /bin/rm -rf /opt/Jorvane";
const std::string kCopyAsAdmin = std::string("admin /bin/cp -pR ") + kSource + " /opt/Jorvane";

class Move : public testing::TestWithParam<MoveRow> {
protected:
    std::shared_ptr<EventLog> log_ = std::make_shared<EventLog>();
    FakeBundleServices system_{log_};
    FakeAlerts alerts_{log_};
    FakeApplication application_{log_};
};

TEST_P(Move, Row) {
    const MoveRow& row = GetParam();
    row.setUp(system_);
    const MoveToApplications::Context context{
        system_, alerts_, application_, PlatformNames{}, row.source, {"/home/me/Applications", "/opt"}, "/opt"};

    EXPECT_EQ(MoveToApplications::moveMainBundleToApplicationsWithNameAndRestart(row.moveName, context), row.outcome);
    EXPECT_EQ(log_->entries(), row.steps);
}

const MoveRow kMoveRows[] = {
    // Where the bundle stays.
    {"a bundle in the users applications folder stays", usual, Outcome::stays, {}, "/home/me/Applications/Jorvane"},
    {"a bundle below any folder named Applications stays", usual, Outcome::stays, {}, "/home/me/x/Applications/J"},
    {"a bundle whose path only begins with the letters of opt stays too", usual, Outcome::stays, {}, "/optical/J"},
    {"a package install under usr stays even when writable", [](FakeBundleServices& s) {
         s.addFolder("/usr", true);
         s.addFolder("/opt", true);
     }, Outcome::stays, {}, "/usr"},
    {"an unwritable bundle stays since it could not be removed afterwards", [](FakeBundleServices& s) {
         s.addFolder("/srv/tools/Jorvane", false);
         s.addFolder("/opt", true);
     }, Outcome::stays, {}, "/srv/tools/Jorvane"},

    // Writable applications folder.
    {"a writable bundle is copied then trashed and the copy started", usual, Outcome::relaunched,
     {kActivate, kCopy, kTrashSource, kRelaunch}},
    {"an unwritable bundle on removable media is copied and left where it is", [](FakeBundleServices& s) {
         s.addFolder("/media/me/stick/Jorvane", false);
         s.addFolder("/opt", true);
     }, Outcome::relaunched, {kActivate, "copy /media/me/stick/Jorvane -> /opt/Jorvane", kRelaunch},
     "/media/me/stick/Jorvane"},
    {"a linked applications folder is resolved first", with([](FakeBundleServices& s) {
         s.setLink("/opt", "/data/opt");
         s.addFolder("/data/opt", true);
     }), Outcome::relaunched,
     {kActivate, std::string("copy ") + kSource + " -> /data/opt/Jorvane", kTrashSource,
      "relaunch /data/opt/Jorvane/bin/jorvane"}},
    {"an old copy goes to the trash before the copy", with([](FakeBundleServices& s) {
         s.addFolder(kDestination, true);
         s.setRunning({"/usr/bin/thunar", "/opt/Other/bin/other"});
     }), Outcome::relaunched, {kActivate, kTrashDestination, kCopy, kTrashSource, kRelaunch}},
    {"a copy running from the destination is started instead", with([](FakeBundleServices& s) {
         s.addFolder(kDestination, true);
         s.setRunning({"/opt/Jorvane/bin/jorvane"});
     }), Outcome::handedOver, {kActivate, kRelaunch}},
    {"a copy running from a longer name counts as running from the destination", with([](FakeBundleServices& s) {
         s.addFolder(kDestination, true);
         s.setRunning({"/opt/Jorvane2/bin/jorvane"});
     }), Outcome::handedOver, {kActivate, kRelaunch}},
    {"an old copy that cannot go to the trash ends with the alert", with([](FakeBundleServices& s) {
         s.addFolder(kDestination, true);
         s.failTrash();
     }), Outcome::failed, {kActivate, kTrashDestination, kFailure}},
    {"a failed copy ends with the alert", with([](FakeBundleServices& s) { s.failCopies(); }), Outcome::failed,
     {kActivate, kCopy, kFailure}},
    {"an applications folder that cannot be resolved ends with the alert",
     with([](FakeBundleServices& s) { s.setUnresolvable("/opt"); }), Outcome::failed, {kFailure}},

    // Unwritable applications folder: as the administrator.
    {"an unwritable applications folder is replaced as the administrator", unwritableOpt, Outcome::relaunched,
     {kActivate, kRemoveAsAdmin, kCopyAsAdmin, kTrashSource, kRelaunch}},
    {"a dismissed password dialog ends silently", administratorRuns({kDismissed}), Outcome::cancelled,
     {kActivate, kRemoveAsAdmin}},
    {"a dismissal at the copy ends silently too", administratorRuns({kExit0, kDismissed}), Outcome::cancelled,
     {kActivate, kRemoveAsAdmin, kCopyAsAdmin}},
    {"a refused authorisation ends with the alert", administratorRuns({kRefused}), Outcome::failed,
     {kActivate, kRemoveAsAdmin, kFailure}},
    {"a remove ended by a signal ends with the alert", administratorRuns({{true, true, -1}}), Outcome::failed,
     {kActivate, kRemoveAsAdmin, kFailure}},
    {"a remove that fails otherwise goes on to the copy", administratorRuns({{true, false, 1}}),
     Outcome::relaunched, {kActivate, kRemoveAsAdmin, kCopyAsAdmin, kTrashSource, kRelaunch}},
    {"a privileged copy that does not exit with 0 ends with the alert", administratorRuns({kExit0, {true, false, 1}}),
     Outcome::failed, {kActivate, kRemoveAsAdmin, kCopyAsAdmin, kFailure}},
    {"a name that is no folder name ends with the alert before any privilege", unwritableOpt, Outcome::failed,
     {kActivate, kFailure}, kSource, ".."},
};

INSTANTIATE_TEST_SUITE_P(Rows, Move, testing::ValuesIn(kMoveRows), SentenceName{});

TEST(MoveToApplications, theFailureAlertNamesTheFolderAndHasOnlyOK) {
    auto log = std::make_shared<EventLog>();
    FakeBundleServices system(log);
    FakeAlerts alerts(log);
    FakeApplication application(log);
    usual(system);
    system.failCopies();
    PlatformNames names;
    names.applicationsFolder = "/srv/apps";
    system.addFolder("/srv/apps", true);
    MoveToApplications::moveMainBundleToApplicationsAndRestart(
        {system, alerts, application, names, kSource, {"/srv/apps"}, "/srv/apps"});

    ASSERT_EQ(alerts.shown().size(), 1u);
    EXPECT_EQ(alerts.shown()[0].messageText, "Could not move to /srv/apps folder");
    EXPECT_EQ(alerts.shown()[0].informativeText, "");
    EXPECT_TRUE(alerts.shown()[0].buttons.empty()) << "the alert's one button is OK";
    EXPECT_EQ(log->entriesStartingWith("copy"), std::vector<std::string>{std::string("copy ") + kSource +
                                                                         " -> /srv/apps/Jorvane"})
        << "without a name the bundle keeps its own";
}

}  // namespace
}  // namespace jorvane::test
