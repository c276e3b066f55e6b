// The program's first launch from a home folder it has never seen: the
// welcome alert, its answer, what it leaves in the settings and the
// session's autostart entries, a second start while it runs, and what
// "Start using Jorvane" may move: nothing of a build tree or a prefix
// install, and an unpacked release into the applications folder (a
// temporary folder standing for /opt).

#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

#include "DesktopTest.h"
#include "JorvaneDriver.h"
#include "settings/FileDefaultsStorage.h"
#include "settings/UserDefaults.h"

namespace jorvane::e2e {
namespace {

namespace fs = std::filesystem;

constexpr milliseconds kWait{15000};

constexpr const char* kMoveBox = "Move Jorvane to my /opt folder";

// Every file below the folder, relative to it, with its size: what a test
// compares before and after.
std::vector<std::string> listing(const fs::path& folder) {
    std::vector<std::string> files;
    std::error_code error;
    for (auto it = fs::recursive_directory_iterator(folder, error); !error && it != fs::recursive_directory_iterator();
         it.increment(error)) {
        std::error_code sizeError;
        const auto size = it->is_regular_file() ? it->file_size(sizeError) : 0;
        files.push_back(fs::relative(it->path(), folder).string() + " " + std::to_string(size));
    }
    std::sort(files.begin(), files.end());
    return files;
}

std::vector<std::string> trashOf(const fs::path& home) { return listing(home / ".local/share/Trash"); }

class JorvaneFirstLaunch : public DesktopTest {
protected:
    static void SetUpTestSuite() {
        if (!startDesktop()) return;
        // The program needs Thunar running once it is past the welcome.
        desktop().openThunarWindow(desktop().home());
    }

    static void TearDownTestSuite() {
        if (Desktop* running = Desktop::sharedIfRunning()) running->closeThunarWindows();
    }

    void SetUp() override {
        DesktopTest::SetUp();
        if (HasFatalFailure()) return;
        home_ = desktop().dataDir() / "fresh-home";
        opt_ = desktop().dataDir() / "opt";
        fs::remove_all(home_);
        fs::remove_all(opt_);
        fs::create_directories(home_);
        fs::create_directories(opt_);
        options_.home = home_;
        options_.waitUntilRunning = false;
        options_.environment = {"JORVANE_APPLICATIONS_FOLDER=" + opt_.string()};
    }

    // `cmake --install` of the build into the folder, as a prefix or a release.
    void install(const fs::path& prefix, const std::string& kind) {
        const fs::path build = fs::path(kJorvaneBinary).parent_path().parent_path();
        const RunResult result = desktop().run({"/usr/bin/env", "JORVANE_INSTALL_KIND=" + kind, "cmake", "--install",
                                                build.string(), "--prefix", prefix.string()},
                                               milliseconds(60000));
        ASSERT_EQ(result.exitCode, 0) << result.output;
    }

    // Starts the program, answers the welcome with Return on "Start using
    // Jorvane" (the move box as offered), and checks whether a box was offered.
    void startAndAccept(JorvaneDriver& driver, bool boxOffered) {
        ASSERT_TRUE(driver.start(options_)) << driver.why();
        ASSERT_TRUE(driver.waitForElement("Welcome to Jorvane!", kWait)) << "no welcome; the log:\n" << driver.log();
        EXPECT_TRUE(waitUntil(
            [&] {
                const std::uint32_t front = desktop().activeWindow();
                return front && desktop().windowPid(front) == driver.pid() && driver.focusIsIn(front);
            },
            kWait))
            << "the welcome is not in front with the keyboard";
        EXPECT_EQ(driver.elementChecked(kMoveBox).has_value(), boxOffered);
        if (boxOffered) {
            EXPECT_EQ(driver.elementChecked(kMoveBox), true) << "offered, ticked";
        }
        ASSERT_TRUE(driver.pressElement("Start using Jorvane"));
    }

    fs::path home_;
    fs::path opt_;
    JorvaneDriver::Options options_;
};

TEST_F(JorvaneFirstLaunch, fromTheBuildTreeWelcomesOnceMovesNothingAndAnswersASecondStart) {
    const fs::path build = fs::path(kJorvaneBinary).parent_path().parent_path();
    const std::vector<std::string> buildBefore = listing(build / "bin");
    JorvaneDriver driver(desktop());
    startAndAccept(driver, false);
    ASSERT_TRUE(driver.waitForLog("running beside Thunar", kWait)) << driver.log();

    settings::UserDefaults saved(
        std::make_unique<settings::FileDefaultsStorage>(home_ / ".config" / "jorvane" / "settings.json"));
    EXPECT_TRUE(saved.boolForKey(settings::keys::notFirstLaunch));
    EXPECT_EQ(autostartPrograms(home_ / ".config" / "autostart"),
              std::vector<std::string>{fs::canonical(kJorvaneBinary).string()})
        << "one entry, for the program where it is";
    EXPECT_EQ(listing(build / "bin"), buildBefore) << "the build tree is as it was";
    EXPECT_TRUE(trashOf(home_).empty());
    EXPECT_TRUE(listing(opt_).empty());

    const std::optional<int> second = driver.startAgain(options_);
    EXPECT_EQ(second, 0) << "a second start ends at once with success";
    EXPECT_TRUE(driver.waitForElement("Jorvane is already running!", kWait)) << driver.log();
    EXPECT_TRUE(driver.pressElement("OK"));
    EXPECT_TRUE(driver.running());

    // Started again it does not greet: a welcome would hold the launch up.
    driver.stop();
    options_.waitUntilRunning = true;
    EXPECT_TRUE(driver.start(options_)) << driver.why();
}

TEST_F(JorvaneFirstLaunch, fromAPrefixInstallInDotLocalMovesNothing) {
    const fs::path local = home_ / ".local";
    install(local, "prefix");
    fs::create_directories(local / "share/keyrings");
    std::ofstream(local / "share/keyrings/login.keyring") << "secret";
    const std::vector<std::string> before = listing(local);
    options_.program = local / "bin/jorvane";

    JorvaneDriver driver(desktop());
    startAndAccept(driver, false);
    ASSERT_TRUE(driver.waitForLog("running beside Thunar", kWait)) << driver.log();
    EXPECT_EQ(listing(local), before);
    EXPECT_TRUE(listing(opt_).empty());
}

TEST_F(JorvaneFirstLaunch, fromAnUnpackedReleaseItMovesIntoTheApplicationsFolderAndStartsFromThere) {
    const fs::path release = home_ / "Downloads" / "jorvane-0.1.0";
    install(release, "release");
    options_.program = release / "bin/jorvane";

    JorvaneDriver driver(desktop());
    startAndAccept(driver, true);
    const fs::path moved = opt_ / "jorvane" / "bin" / "jorvane";
    ASSERT_TRUE(driver.waitForLog("moved to " + (opt_ / "jorvane").string(), kWait)) << driver.log();
    EXPECT_TRUE(fs::exists(moved));
    EXPECT_FALSE(fs::exists(release)) << "the release went to the Trash";
    EXPECT_TRUE(fs::exists(home_ / ".local/share/Trash/files/jorvane-0.1.0/bin/jorvane"));

    // The copy in the applications folder starts once the first has ended.
    pid_t relaunched = 0;
    EXPECT_TRUE(waitUntil(
        [&] {
            std::error_code error;
            for (const auto& entry : fs::directory_iterator("/proc", error)) {
                std::error_code unreadable;
                if (fs::read_symlink(entry.path() / "exe", unreadable) == moved)
                    relaunched = std::stoi(entry.path().filename().string());
            }
            return relaunched != 0;
        },
        kWait))
        << driver.log();
    if (relaunched != 0) {
        EXPECT_TRUE(waitUntil(
            [&] {
                const std::string log = driver.log();
                return log.find("running beside Thunar") != log.rfind("running beside Thunar");
            },
            kWait))
            << "the moved copy does not greet again; the log:\n"
            << driver.log();
        kill(relaunched, SIGTERM);
        EXPECT_TRUE(waitUntil([&] { return kill(relaunched, 0) != 0; }, kWait));
    }
    EXPECT_EQ(autostartPrograms(home_ / ".config" / "autostart"), std::vector<std::string>{moved.string()});
}

TEST_F(JorvaneFirstLaunch, uninstallOfTheCopyInTheApplicationsFolderKeepsWhatTheUserAddedThere) {
    const fs::path release = opt_ / "jorvane";
    install(release, "release");
    std::ofstream(release / "share" / "notes.txt") << "mine";
    settings::UserDefaults seen(
        std::make_unique<settings::FileDefaultsStorage>(home_ / ".config" / "jorvane" / "settings.json"));
    seen.setBool(true, settings::keys::notFirstLaunch);
    ASSERT_TRUE(seen.synchronize());
    options_.program = release / "bin/jorvane";
    options_.waitUntilRunning = true;

    JorvaneDriver driver(desktop());
    ASSERT_TRUE(driver.start(options_)) << driver.why();
    // A second start offers the preferences, and they the about window.
    EXPECT_EQ(driver.startAgain(options_), 0);
    ASSERT_TRUE(driver.waitForElement("Open Preferences ...", kWait)) << driver.log();
    ASSERT_TRUE(driver.pressElement("Open Preferences ..."));
    ASSERT_TRUE(driver.waitForElement("About Jorvane", kWait)) << driver.log();
    ASSERT_TRUE(driver.pressElement("About Jorvane"));
    ASSERT_TRUE(driver.waitForElement("Uninstall\u2026", kWait)) << driver.log();
    ASSERT_TRUE(driver.pressElement("Uninstall\u2026"));
    ASSERT_TRUE(driver.waitForElement("Do you really want to uninstall Jorvane?", kWait)) << driver.log();
    ASSERT_TRUE(driver.pressElement("Uninstall"));
    EXPECT_TRUE(waitUntil([&] { return !driver.running(); }, kWait)) << "it quits; the log:\n" << driver.log();

    EXPECT_FALSE(fs::exists(release / "bin"));
    EXPECT_FALSE(fs::exists(release / "share" / "jorvane"));
    EXPECT_EQ(listing(release), std::vector<std::string>({"share 0", "share/notes.txt 4"}));
}

}  // namespace
}  // namespace jorvane::e2e
