// The first launch's welcome (texts, check box, the order of quit, saving, login items and the move), the
// "already running" alert through the delegate too, and the platform's names in the texts.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "app/PlatformNames.h"
#include "fakes/FakeAlerts.h"
#include "fakes/FakeKeyboardLayout.h"
#include "fakes/MemoryDefaults.h"
#include "firstlaunch/WelcomeAlerts.h"
#include "unit/app/JorvaneAppFixture.h"

namespace jorvane::test {
namespace {

using appcore::SentenceName;
using testing::ElementsAre;

constexpr const char* kHere = "/home/me/Downloads/jorvane-1.0/bin/jorvane";
constexpr const char* kThere = "/opt/jorvane/bin/jorvane";

const std::string kWelcomeText =
    "Press 'Start' to start Jorvane. The Address bar is activated by clicking the path icon on top of Thunar windows "
    "(or by pressing 'Ctrl + G' on your keyboard). \n\nNote that Jorvane is in an early beta stage. For feedback, "
    "bugs or suggestions contact me at \nfeedback@jorvane.org";
const std::string kReopenText =
    "Jorvane runs in the background till you activate it by clicking the path icon on top of Thunar windows (or by "
    "pressing 'Ctrl + G' on your keyboard). \n\nNote that Jorvane is in beta stage. For feedback, bugs or "
    "suggestions contact me at \n\nfeedback@jorvane.org\n\n";

TEST(WelcomeAlerts, theWelcomeOffersTheMoveInABoxThatIsOnAndTheReopenAlertThePreferences) {
    const AlertSpec welcome = WelcomeAlerts::welcomeAlert(PlatformNames{}, true);
    const AlertSpec reopen = WelcomeAlerts::reopenAlert(PlatformNames{});
    EXPECT_EQ(welcome.messageText, "Welcome to Jorvane!");
    EXPECT_EQ(welcome.informativeText, kWelcomeText);
    EXPECT_THAT(welcome.buttons, ElementsAre("Start using Jorvane", "Quit"));
    EXPECT_EQ(welcome.checkBox, "Move Jorvane to my /opt folder");
    EXPECT_TRUE(welcome.checkBoxOn);
    EXPECT_EQ(WelcomeAlerts::welcomeAlert(PlatformNames{}, false).checkBox, std::nullopt);
    EXPECT_EQ(reopen.messageText, "Jorvane is already running!");
    EXPECT_EQ(reopen.informativeText, kReopenText);
    EXPECT_THAT(reopen.buttons, ElementsAre("OK", "Open Preferences ..."));
    for (const AlertSpec& alert : {welcome, reopen}) {
        EXPECT_EQ(alert.style, AlertSpec::Style::informational);
        EXPECT_EQ(alert.windowTitle, "Jorvane");
    }
}

struct WelcomeRow {
    const char* name;
    bool offerMove;
    int button;
    bool boxOn;
    bool futureItemExists;
    bool goesOn;
    bool moveUnderWay = true;
    std::vector<std::string> steps;  // login-item calls and the move, with whether "notfirstlaunch" was saved
    const char* executable = kHere;
};

void PrintTo(const WelcomeRow& row, std::ostream* out) { *out << row.name; }

class Welcome : public testing::TestWithParam<WelcomeRow> {
protected:
    std::shared_ptr<MemoryStore> store_ = std::make_shared<MemoryStore>();
    std::unique_ptr<settings::UserDefaults> defaults_ = makeMemoryDefaults(store_);
    std::shared_ptr<EventLog> log_ = std::make_shared<EventLog>();
    FakeAlerts alerts_{log_};

    std::string saved() const {
        const settings::Dictionary values = store_->values();
        const auto found = values.find("notfirstlaunch");
        return found != values.end() && found->second == true ? " (saved)" : " (not saved)";
    }
};

TEST_P(Welcome, Row) {
    const WelcomeRow& row = GetParam();
    alerts_.answerNext(row.button, row.boxOn);
    const bool goesOn = WelcomeAlerts::runWelcome({
        .alerts = alerts_,
        .defaults = *defaults_,
        .names = PlatformNames{},
        .executable = row.executable,
        .offerMove = row.offerMove,
        .localApplicationsDirectory = "/opt",
        .hasLoginItemWithPath =
            [&](std::string_view path) {
                log_->add("has " + std::string(path) + saved());
                return row.futureItemExists;
            },
        .installLoginItemWithPath = [&](std::string_view path) { log_->add("install " + std::string(path) + saved()); },
        .installSystemWide =
            [&] {
                log_->add("move" + saved());
                return row.moveUnderWay;
            },
    });
    EXPECT_EQ(goesOn, row.goesOn);
    EXPECT_EQ(log_->entries(), row.steps);
    EXPECT_EQ(defaults_->boolForKey(settings::keys::notFirstLaunch), row.goesOn);
    ASSERT_EQ(alerts_.shown().size(), 1u);
    EXPECT_EQ(alerts_.shown()[0].checkBox.has_value(), row.offerMove);
}

const std::string kAlert = "alert Welcome to Jorvane!";

// clang-format off
const WelcomeRow kWelcomeRows[] = {
    {"quit ends before anything is saved so the welcome comes again", true, kAlertSecondButton, true, false,
     false, true, {kAlert}},
    {"start with the box on adds the future login item and moves after saving", true, kAlertFirstButton, true,
     false, true, true,
     {kAlert, "has " + std::string(kThere) + " (saved)", "install " + std::string(kThere) + " (saved)",
      "move (saved)"}},
    {"a future login item that exists is not added again", true, kAlertFirstButton, true, true, true, true,
     {kAlert, "has " + std::string(kThere) + " (saved)", "move (saved)"}},
    {"a move that does not happen adds the login item for where it is", true, kAlertFirstButton, true, true,
     true, false,
     {kAlert, "has " + std::string(kThere) + " (saved)", "move (saved)", "install " + std::string(kHere) + " (saved)"}},
    {"start with the box off only adds the login item for where it is", true, kAlertFirstButton, false, false,
     true, true, {kAlert, "install " + std::string(kHere) + " (saved)"}},
    {"start without the offer shows no box and only adds the login item", false, kAlertFirstButton, true,
     false, true, true, {kAlert, "install " + std::string(kHere) + " (saved)"}},
    {"start without a path of its own adds no login item", false, kAlertFirstButton, true, false, true, false,
     {kAlert}, ""},
};
// clang-format on

INSTANTIATE_TEST_SUITE_P(Rows, Welcome, testing::ValuesIn(kWelcomeRows), SentenceName{});

class Reopen : public appcore::AppDelegateTest {
protected:
    ScopedKeyboardLayout layout_;
};

TEST_F(Reopen, eachSecondStartShowsTheAlertWithTheRecordedHotKeyAndOnlyItsSecondButtonOpensThePreferences) {
    int preferences = 0;
    auto ports = this->ports();
    ports.openPreferences = [&] { ++preferences; };
    delegate_ = std::make_unique<JorvaneApp>(ports);
    launched();
    EXPECT_TRUE(delegate_->applicationShouldHandleReopen());
    for (int i = 0; i < 2; ++i) {
        alerts_.answerNext(kAlertSecondButton);
        EXPECT_TRUE(delegate_->applicationShouldHandleReopen());
    }
    EXPECT_EQ(preferences, 2) << "a further window each time";
    ASSERT_EQ(alerts_.shown().size(), 3u);
    EXPECT_EQ(alerts_.shown()[0].informativeText, kReopenText);
    defaults_->setInteger(0x100000 | 0x20000, settings::keys::hotkeyFlags);
    defaults_->setInteger(kKeyL, settings::keys::hotkeyKeycode);
    delegate_->applicationShouldHandleReopen();
    EXPECT_THAT(alerts_.shown()[3].informativeText, testing::HasSubstr("(or by pressing 'Ctrl + Shift + L' on"));
}

TEST(PlatformNames, FinderBecomesThunarTheHotKeyIsNamedAndTheApplicationsFolderIsAPath) {
    PlatformNames names;
    names.hotKey = "Super + J";
    const std::pair<const char*, const char*> rows[] = {
        {"Finder, Finder windows", "Thunar, Thunar windows"},
        {"'command + G' on", "'Super + J' on"},
        {"'\u2318 + G' on", "'Super + J' on"},
        {"to my Applications folder", "to my /opt folder"},
        {"command + H, \u2318", "command + H, \u2318"}};  // other commands and the symbol alone stay
    for (const auto& [mac, shown] : rows) EXPECT_EQ(forPlatform(mac, names), shown);
}

TEST(PlatformNames, aHotKeyWithoutANameInTheLayoutKeepsTheDefaultText) {
    auto defaults = makeMemoryDefaults();
    ScopedKeyboardLayout layout;
    EXPECT_EQ(withRecordedHotKey(PlatformNames{}, *defaults).hotKey, "Ctrl + G");
    layout.layout().setHasLayout(false);
    defaults->setInteger(kKeyJ, settings::keys::hotkeyKeycode);
    EXPECT_EQ(withRecordedHotKey(PlatformNames{}, *defaults).hotKey, "Ctrl + G") << "not 'Ctrl + ?\?\?'";
    layout.layout().setHasLayout(true);
    layout.layout().setKey(kKeyJ, {});
    EXPECT_EQ(withRecordedHotKey(PlatformNames{}, *defaults).hotKey, "Ctrl + G") << "not 'Ctrl + '";
}

}  // namespace
}  // namespace jorvane::test
