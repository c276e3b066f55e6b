// Thunar comes and goes while the program runs, as in a real session: the
// program started before Thunar (as at login), Thunar crashing, killed and
// started again, quit entirely and started later. After each, a click on a
// new window's title opens the bar, a folder typed there with Return shows in
// that window, and Ctrl+G opens the bar.

#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

#include <xcb/xcb.h>
#include <nlohmann/json.hpp>

#include "JorvaneTest.h"
#include "XTestClient.h"

namespace jorvane::e2e {
namespace {

namespace fs = std::filesystem;

class ThunarLifecycle : public JorvaneTest {
protected:
    static void SetUpTestSuite() {
        if (!startDesktop()) return;
        folder_ = desktop().dataDir() / "lifecycle";
        fs::create_directories(folder_ / "Inside");
        startProgram();
    }

    static void TearDownTestSuite() {
        JorvaneTest::TearDownTestSuite();
        // The next suite finds Thunar as the desktop started it.
        if (Desktop* running = Desktop::sharedIfRunning(); running && running->thunarPid() <= 0) running->startThunar();
    }

    // The program on the window of a Thunar that has just come: the title
    // click, a folder and Return, and the hot key. Empty, or what failed.
    static std::string worksOn(const std::optional<std::uint32_t>& window) {
        if (!window) return "no Thunar window";
        bringToFront(*window);
        std::string failed;
        if (!clickTitle(*window))
            failed = "no bar after a click on the title";
        else if (!enter(*window, (folder_ / "Inside").string(), folder_ / "Inside"))
            failed = "the window did not go to the folder";
        else {
            bringToFront(*window);
            if (!openBarByHotKey()) failed = "no bar after Ctrl+G";
        }
        closeBar();
        desktop().closeThunarWindows();
        return failed.empty() ? failed : failed + "; the log:\n" + driver().log();
    }

    // Restarts the program while no Thunar runs, as at login.
    static void startProgramWithoutThunar() {
        desktop().closeThunarWindows();
        desktop().stopThunar();
        EXPECT_TRUE(driver().start({})) << driver().why();
        EXPECT_TRUE(driver().waitForLog("waiting for Thunar", kWait)) << driver().log();
    }
    static std::optional<std::uint32_t> windowOnTheFolder() {
        return desktop().waitForWindow([](std::uint32_t w) { return desktop().title(w) == titleOf(folder_); }, kWait);
    }

    static inline fs::path folder_;
};

// Each way Thunar comes while the program runs, and the window it then shows the folder in.
TEST_F(ThunarLifecycle, TheProgramWorksOnTheWindowOfEveryThunarThatComes) {
    const auto daemon = [] {
        desktop().startThunar();
        return desktop().openThunarWindow(folder_);
    };
    const std::pair<const char*, std::function<std::optional<std::uint32_t>()>> arrivals[] = {
        {"started before Thunar, then `thunar DIR` as a user opens it",
         [] {
             startProgramWithoutThunar();
             desktop().startThunar(folder_);
             return windowOnTheFolder();
         }},
        {"started before a Thunar daemon", [&] { return startProgramWithoutThunar(), daemon(); }},
        {"started before Thunar, then D-Bus activates it as exo-open does",
         [] {
             startProgramWithoutThunar();
             const RunResult call =
                 desktop().run({"gdbus", "call", "--session", "--dest", "org.xfce.FileManager", "--object-path",
                                "/org/xfce/FileManager", "--method", "org.xfce.FileManager.DisplayFolder",
                                "file://" + folder_.string(), "", ""},
                               milliseconds(20000));
             EXPECT_EQ(call.exitCode, 0) << call.output;
             return windowOnTheFolder();
         }},
        {"Thunar crashed and started again", [&] { return desktop().stopThunar(true), daemon(); }},
        {"Thunar killed and started again right after", [&] { return desktop().stopThunar(), daemon(); }},
        {"Thunar quit entirely and started later",
         [&] {
             const RunResult quit = desktop().run({"thunar", "-q"});
             EXPECT_EQ(quit.exitCode, 0) << quit.output;
             desktop().stopThunar();  // reaps it, or stops it if it did not go
             EXPECT_TRUE(driver().waitForLog("waiting for Thunar", kWait)) << driver().log();
             return daemon();
         }},
    };
    for (const auto& [name, arrive] : arrivals) {
        SCOPED_TRACE(name);
        const std::optional<std::uint32_t> window = arrive();
        const pid_t owner = window ? desktop().windowPid(*window).value_or(-1) : -1;
        EXPECT_EQ(worksOn(window), "");
        // A Thunar the bus started ends here; one that ended with its last window is reaped.
        if (owner > 0 && owner != desktop().thunarPid()) desktop().stopProcess(owner);
        if (!desktop().nameHasOwner("org.xfce.FileManager")) desktop().stopThunar();
        if (desktop().thunarPid() <= 0) desktop().startThunar();
    }
}

// Another program holding Ctrl+G on the window at the moment the program
// grabs it does not leave the hot key dead: the grab is tried again.
TEST_F(ThunarLifecycle, aHotKeyGrabRefusedForAMomentIsTriedAgain) {
    if (desktop().thunarPid() <= 0) desktop().startThunar();
    const std::optional<std::uint32_t> window = desktop().openThunarWindow(folder_);
    ASSERT_TRUE(window);
    bringToFront(*window);
    const fs::path file = desktop().home() / ".config" / "jorvane" / "settings.json";
    const auto setHotKeyOn = [&](bool on) {
        std::ifstream in(file);
        nlohmann::json settings = nlohmann::json::parse(in, nullptr, false);
        if (!settings.is_object()) settings = nlohmann::json::object();
        settings["activate_by_hotkey"] = on;
        // Written beside and renamed into place, as editors do: the program
        // watches the folder.
        std::ofstream(file.string() + ".new") << settings.dump(2) << "\n";
        fs::rename(file.string() + ".new", file);
    };
    setHotKeyOn(false);
    ASSERT_TRUE(waitUntil([&] { return !driver().keyGrabbedByOthers(*window, "g"); }, kWait)) << "the grab stays";

    // This test's connection holds Ctrl+G while the program takes it again.
    XTestClient& x = desktop().x();
    const std::optional<std::uint8_t> g = driver().keycodeOf("g");
    ASSERT_TRUE(g);
    xcb_generic_error_t* error =
        xcb_request_check(x.connection(), xcb_grab_key_checked(x.connection(), 1, *window, XCB_MOD_MASK_CONTROL, *g,
                                                               XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC));
    ASSERT_EQ(error, nullptr);
    setHotKeyOn(true);
    EXPECT_TRUE(driver().waitForLog("another program holds it", kWait)) << driver().log();
    xcb_ungrab_key(x.connection(), *g, *window, XCB_MOD_MASK_CONTROL);
    x.sync();

    EXPECT_TRUE(driver().waitForGrab(*window, "g", kWait)) << "the refused grab was not tried again";
    desktop().closeThunarWindows();
}

// The soak: Thunar killed and started again many times while the program
// runs (JORVANE_SOAK_CYCLES, 100 by default), the checks above after each
// restart, and the program's memory and open descriptors at the start and
// the end. Not part of the default test run: scripts/soak.sh runs it.
using ThunarSoak = ThunarLifecycle;

long residentKb(pid_t pid) {
    std::ifstream in("/proc/" + std::to_string(pid) + "/status");
    for (std::string line; std::getline(in, line);)
        if (line.starts_with("VmRSS:")) return std::strtol(line.c_str() + 6, nullptr, 10);
    return -1;
}

long openDescriptors(pid_t pid) {
    std::error_code error;
    const fs::directory_iterator fds("/proc/" + std::to_string(pid) + "/fd", error);
    return error ? -1 : std::distance(fds, fs::directory_iterator());
}

TEST_F(ThunarSoak, ThunarRestartedManyTimesKeepsEveryBarWorking) {
    const char* asked = std::getenv("JORVANE_SOAK_CYCLES");
    const int cycles = asked && std::atoi(asked) > 0 ? std::atoi(asked) : 100;
    const pid_t program = driver().pid();
    const auto cycle = [](bool crash) {
        desktop().stopThunar(crash);
        desktop().startThunar();
        return worksOn(desktop().openThunarWindow(folder_));
    };
    cycle(false);  // the figures start with everything loaded once
    const long rssBefore = residentKb(program), fdsBefore = openDescriptors(program);
    int failures = 0;
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < cycles; ++i) {
        const std::string why = cycle(i % 2 == 0);
        if (!why.empty()) {
            ++failures;
            ADD_FAILURE() << "cycle " << i << ": " << why;
        }
    }
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    const long rssAfter = residentKb(program), fdsAfter = openDescriptors(program);
    std::printf("soak: %d cycles, %d failures, %.2f s a cycle, RSS %ld kB -> %ld kB, open descriptors %ld -> %ld\n",
                cycles, failures, seconds / cycles, rssBefore, rssAfter, fdsBefore, fdsAfter);
    EXPECT_LE(rssAfter - rssBefore, 2048) << "memory grew";
    EXPECT_EQ(fdsAfter, fdsBefore) << "descriptors leaked";
    EXPECT_TRUE(driver().running());
}

}  // namespace
}  // namespace jorvane::e2e
