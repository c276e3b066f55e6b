// The built program's first launch from a home folder it has never seen:
// the welcome alert, its answer, what it leaves in the settings and the
// session's autostart entries, and a second start while it runs.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

#include "DesktopTest.h"
#include "JorvaneDriver.h"
#include "settings/FileDefaultsStorage.h"
#include "settings/LoginItems.h"
#include "settings/UserDefaults.h"

namespace jorvane::e2e {
namespace {

namespace fs = std::filesystem;

constexpr milliseconds kWait{15000};

constexpr const char* kMoveBox = "Move Jorvane to my /opt folder";

// The first argument of each autostart entry's Exec line in the folder.
std::vector<std::string> autostartPrograms(const fs::path& folder) {
    std::vector<std::string> programs;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(folder, error)) {
        std::ifstream in(entry.path());
        for (std::string line; std::getline(in, line);) {
            if (!line.starts_with("Exec=")) continue;
            const auto arguments = LoginItem::splitExecArguments(LoginItem::unescapeDesktopValue(line.substr(5)));
            if (arguments && !arguments->empty()) programs.push_back(arguments->front());
        }
    }
    return programs;
}

class JorvaneFirstLaunch : public DesktopTest {
protected:
    static void SetUpTestSuite() {
        DesktopTest::SetUpTestSuite();
        if (!startError().empty()) return;
        // The program needs Thunar running once it is past the welcome.
        desktop().openThunarWindow(desktop().home());
    }

    static void TearDownTestSuite() {
        if (Desktop* running = Desktop::sharedIfRunning()) running->closeThunarWindows();
    }
};

TEST_F(JorvaneFirstLaunch, welcomesOnceAddsTheLoginItemAndAnswersASecondStart) {
    const fs::path home = desktop().dataDir() / "fresh-home";
    fs::remove_all(home);
    fs::create_directories(home);
    JorvaneDriver driver(desktop());
    JorvaneDriver::Options options;
    options.home = home;
    options.waitUntilRunning = false;
    ASSERT_TRUE(driver.start(options)) << driver.why();

    ASSERT_TRUE(driver.waitForElement("Welcome to Jorvane!", kWait)) << "no welcome; the log:\n" << driver.log();
    EXPECT_TRUE(driver.waitForElement("Jorvane", kWait)) << "the alert's window is not titled Jorvane";
    EXPECT_EQ(driver.elementChecked(kMoveBox), true) << "the move is offered, ticked";
    ASSERT_TRUE(driver.pressElement(kMoveBox));
    EXPECT_TRUE(waitUntil([&] { return driver.elementChecked(kMoveBox) == false; }, kWait));
    ASSERT_TRUE(driver.pressElement("Start using Jorvane"));
    ASSERT_TRUE(driver.waitForLog("running beside Thunar", kWait)) << driver.log();

    settings::UserDefaults saved(std::make_unique<settings::FileDefaultsStorage>(
        home / ".config" / "jorvane" / "settings.json"));
    EXPECT_TRUE(saved.boolForKey(settings::keys::notFirstLaunch));
    EXPECT_EQ(autostartPrograms(home / ".config" / "autostart"),
              std::vector<std::string>{fs::canonical(kJorvaneBinary).string()})
        << "one entry, for the program where it is (the box was off)";

    const std::optional<int> second = driver.startAgain(options);
    EXPECT_EQ(second, 0) << "a second start ends at once with success";
    EXPECT_TRUE(driver.waitForElement("Jorvane is already running!", kWait)) << driver.log();
    EXPECT_TRUE(driver.pressElement("OK"));
    EXPECT_TRUE(driver.running());

    // Started again it does not greet: a welcome would hold the launch up.
    driver.stop();
    options.waitUntilRunning = true;
    EXPECT_TRUE(driver.start(options)) << driver.why();
}

}  // namespace
}  // namespace jorvane::e2e
