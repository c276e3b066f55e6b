// The bar over a folder whose file system stops answering (a network mount
// whose server went away, played by a FUSE file system that waits while a
// gate file exists): every key still takes effect at once, another window's
// bar opens and works, and the names appear when the file system answers.

#include "JorvaneTest.h"

#include <signal.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <iostream>

namespace jorvane::e2e {
namespace {

namespace fs = std::filesystem;

// A key's effect, read back over AT-SPI, within this time.
constexpr milliseconds kKeyEffect{100};

class JorvaneHungFolder : public JorvaneTest {
protected:
    static void SetUpTestSuite() {
        if (::geteuid() != 0 || ::access("/dev/fuse", R_OK | W_OK) != 0) {
            skipReason_ = "mounting a FUSE file system needs root and /dev/fuse";
            return;
        }
        if (!startDesktop()) return;
        Desktop& d = desktop();
        home_ = d.dataDir() / "hung";
        mount_ = home_ / "mnt";
        gate_ = home_ / "gate";
        fs::create_directories(mount_);
        fs::create_directories(home_ / "local" / "Projects");
        d.setXfconf("thunar", "/default-view", "string", "ThunarDetailsView");
        fsPid_ = ::fork();
        if (fsPid_ == 0) {
            ::execl(JORVANE_HANGING_FS, JORVANE_HANGING_FS, gate_.c_str(), mount_.c_str(), "-f",
                    static_cast<char*>(nullptr));
            ::_exit(127);
        }
        if (!waitUntil([] { return fs::exists(mount_ / "slow"); }, kWait)) {
            skipReason_ = "the FUSE file system did not mount";
            return;
        }
        d.openThunarWindow(home_ / "local");
        startProgram();
    }
    static void TearDownTestSuite() {
        std::error_code ignored;
        fs::remove(gate_, ignored);
        if (fsPid_ > 0) {
            ::kill(fsPid_, SIGTERM);
            ::waitpid(fsPid_, nullptr, 0);
            ::umount2(mount_.c_str(), MNT_DETACH);
        }
        JorvaneTest::TearDownTestSuite();
    }
    void SetUp() override {
        if (!skipReason_.empty()) GTEST_SKIP() << skipReason_;
        JorvaneTest::SetUp();
    }

    // The time from a key to the bar's text showing its effect.
    static std::optional<milliseconds> keyEffect(const std::string& keysym, const std::string& text) {
        const auto start = Clock::now();
        if (!driver().key(keysym)) return std::nullopt;
        if (!driver().waitForFieldText(text, kWait)) return std::nullopt;
        return std::chrono::duration_cast<milliseconds>(Clock::now() - start);
    }
    static std::uint32_t openBar(const fs::path& folder) {
        const std::optional<std::uint32_t> window = desktop().openThunarWindow(folder);
        if (!window) return 0;
        bringToFront(*window);
        return clickTitle(*window) ? *window : 0;
    }

    static inline fs::path home_, mount_, gate_;
    static inline pid_t fsPid_ = -1;
    static inline std::string skipReason_;
};

TEST_F(JorvaneHungFolder, KeysOtherBarsAndReturnWorkWhileTheFolderHangsAndTheNamesComeWhenItAnswers) {
    std::ofstream(gate_) << "closed\n";
    const std::uint32_t first = openBar(home_ / "local");
    ASSERT_NE(first, 0u);
    const std::string slow = (mount_ / "slow").string() + "/";
    ASSERT_TRUE(driver().key("a", {"Control_L"}));
    ASSERT_TRUE(driver().type(slow + "fi"));
    ASSERT_TRUE(driver().waitForFieldText(slow + "fi", kWait)) << "typing into the hung folder was held up";

    // Each key shows at once, though the folder gives nothing; Up too, though
    // the folder it goes to does not answer.
    milliseconds worst{0};
    for (const auto& [key, text] : std::vector<std::pair<std::string, std::string>>{{"l", slow + "fil"},
                                                                                    {"e", slow + "file"},
                                                                                    {"BackSpace", slow + "fil"},
                                                                                    {"BackSpace", slow + "fi"},
                                                                                    {"Up", slow}}) {
        const std::optional<milliseconds> took = keyEffect(key, text);
        ASSERT_TRUE(took) << key << " never showed";
        worst = std::max(worst, *took);
    }
    std::cout << "[ figures ] slowest key over the hung folder (key to text read back over AT-SPI): " << worst.count()
              << " ms\n";
    EXPECT_LT(worst, kKeyEffect);

    // Return on an absolute local folder goes there at once, though the
    // navigation Up started still waits for the hung folder.
    const std::string projects = (home_ / "local" / "Projects").string();
    ASSERT_TRUE(driver().key("a", {"Control_L"}));
    ASSERT_TRUE(driver().type(projects));
    // Typed to its end (completion may add the folder's "/").
    ASSERT_TRUE(driver().waitForField([&](const FieldText& field) { return field.text.starts_with(projects); }, kWait));
    auto start = Clock::now();
    ASSERT_TRUE(driver().key("Return"));
    EXPECT_TRUE(desktop().waitForTitle(first, titleOf(projects), kWait));
    std::cout << "[ figures ] Return on a local folder to its window's title: " << millisecondsSince(start) << " ms\n";

    // Return on a path in the hung folder says so, without asking Thunar.
    ASSERT_TRUE(driver().key("a", {"Control_L"}));
    ASSERT_TRUE(driver().type(slow + "file01"));
    ASSERT_TRUE(driver().key("Return"));
    EXPECT_TRUE(
        driver().waitForField([](const FieldText& f) { return f.problem == "The folder does not answer"; }, kWait));

    // Escape closes the bar at once.
    start = Clock::now();
    ASSERT_TRUE(driver().key("Escape"));
    EXPECT_TRUE(driver().waitForBarHidden(kWait));
    std::cout << "[ figures ] Escape to the bar gone: " << millisecondsSince(start) << " ms\n";
    EXPECT_LT(millisecondsSince(start), kKeyEffect.count());

    // Another window's bar opens and takes keys.
    const std::uint32_t second = openBar(home_ / "local");
    ASSERT_NE(second, 0u) << "no bar for another window while the folder hangs";
    ASSERT_TRUE(driver().key("a", {"Control_L"}));
    ASSERT_TRUE(driver().type(slow + "fil"));
    ASSERT_TRUE(driver().waitForFieldText(slow + "fil", kWait));

    // The file system answers: the names arrive and complete the text.
    std::error_code ignored;
    fs::remove(gate_, ignored);
    ASSERT_TRUE(driver().type("e"));
    EXPECT_TRUE(driver().waitForFieldText(slow + "file01", kWait)) << "no completion once the folder answered";
    ASSERT_TRUE(driver().key("Escape"));
}

}  // namespace
}  // namespace jorvane::e2e
