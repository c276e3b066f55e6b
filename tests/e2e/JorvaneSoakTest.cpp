// The soak: Thunar killed and started again many times while the program
// runs (JORVANE_SOAK_CYCLES, 100 by default), with a title click, a folder
// and Return after each restart. It reports the failures, the program's
// memory and open descriptors at the start and the end, and the time a cycle
// takes. Not part of the default test run: scripts/soak.sh runs it.

#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>

#include "JorvaneTest.h"

namespace jorvane::e2e {
namespace {

namespace fs = std::filesystem;

// VmRSS in kB of the process.
long residentKb(pid_t pid) {
    std::ifstream in("/proc/" + std::to_string(pid) + "/status");
    for (std::string line; std::getline(in, line);)
        if (line.starts_with("VmRSS:")) return std::strtol(line.c_str() + 6, nullptr, 10);
    return -1;
}

long openDescriptors(pid_t pid) {
    std::error_code error;
    long count = 0;
    for (auto it = fs::directory_iterator("/proc/" + std::to_string(pid) + "/fd", error);
         !error && it != fs::directory_iterator(); it.increment(error))
        ++count;
    return count;
}

class ThunarSoak : public JorvaneTest {
protected:
    static void SetUpTestSuite() {
        DesktopTest::SetUpTestSuite();
        if (!startError().empty()) return;
        folder_ = desktop().dataDir() / "soak";
        fs::create_directories(folder_ / "Inside");
        startProgram();
    }

    // One restart and the bar on the new window; false with a reason.
    bool cycle(bool crash, std::string* why) {
        desktop().stopThunar(crash);
        desktop().startThunar();
        const std::optional<std::uint32_t> window = desktop().openThunarWindow(folder_);
        if (!window) return *why = "no window", false;
        bringToFront(*window);
        const std::optional<std::pair<int, int>> title = driver().titlePoint(*window);
        if (!title) return *why = "no title", false;
        driver().clickAt(title->first, title->second);
        if (!driver().waitForFocusedBar(kWait)) return *why = "no bar", false;
        driver().type((folder_ / "Inside").string());
        driver().key("Return");
        if (!desktop().waitForTitle(*window, (folder_ / "Inside").string() + " - Thunar", kWait))
            return *why = "Return did not go to the folder", false;
        return true;
    }

    static inline fs::path folder_;
};

TEST_F(ThunarSoak, ThunarRestartedManyTimesKeepsEveryBarWorking) {
    const char* asked = std::getenv("JORVANE_SOAK_CYCLES");
    const int cycles = asked && std::atoi(asked) > 0 ? std::atoi(asked) : 100;
    const pid_t program = driver().pid();
    // One cycle first, so that the figures start with everything loaded once.
    std::string why;
    cycle(false, &why);
    const long rssBefore = residentKb(program);
    const long fdsBefore = openDescriptors(program);

    int failures = 0;
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < cycles; ++i) {
        if (!cycle(i % 2 == 0, &why)) {
            ++failures;
            ADD_FAILURE() << "cycle " << i << ": " << why;
        }
    }
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    const long rssAfter = residentKb(program);
    const long fdsAfter = openDescriptors(program);
    std::printf("soak: %d cycles, %d failures, %.2f s a cycle, RSS %ld kB -> %ld kB, open descriptors %ld -> %ld\n",
                cycles, failures, seconds / cycles, rssBefore, rssAfter, fdsBefore, fdsAfter);
    EXPECT_EQ(failures, 0);
    EXPECT_LE(rssAfter - rssBefore, 2048) << "memory grew";
    EXPECT_EQ(fdsAfter, fdsBefore) << "descriptors leaked";
    EXPECT_TRUE(driver().running());
}

}  // namespace
}  // namespace jorvane::e2e
