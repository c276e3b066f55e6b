#pragma once

// The base of the whole-program suites: one jorvane per suite on the shared
// desktop, started by the suite once it has its folders and a Thunar window,
// stopped with the suite's Thunar windows at its end; and the steps every
// suite takes as a user would (a window in front, its bar opened, a path entered).

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "DesktopTest.h"
#include "JorvaneDriver.h"

namespace jorvane::e2e {

inline constexpr milliseconds kWait{5000};  // the bound of every wait for something that must happen
inline constexpr int kLogLinesOnFailure = 40;

inline std::string hex(std::uint32_t window) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%x", window);
    return text;
}

class JorvaneTest : public DesktopTest {
protected:
    // From the suite's SetUpTestSuite.
    static void startProgram(const JorvaneDriver::Options& options = {}) {
        driver_ = std::make_unique<JorvaneDriver>(desktop());
        startFailure_ = driver_->start(options) ? "" : driver_->why();
    }

    static void TearDownTestSuite() {
        driver_.reset();
        if (Desktop* running = Desktop::sharedIfRunning()) running->closeThunarWindows();
    }

    void SetUp() override {
        DesktopTest::SetUp();
        if (HasFatalFailure()) return;
        ASSERT_TRUE(driver_) << "the suite did not start jorvane";
        ASSERT_TRUE(startFailure_.empty()) << startFailure_;
        ASSERT_TRUE(driver().running()) << "jorvane is gone; its log:\n" << driver().log();
    }

    // A failed test shows the program's last log lines beside its own output.
    void TearDown() override {
        if (!HasFailure() || !driver_) return;
        const std::string log = driver_->log();
        std::size_t start = log.size();
        int lines = 0;
        while (start > 0 && !(log[start - 1] == '\n' && ++lines > kLogLinesOnFailure)) --start;
        std::fprintf(stderr, "the program's last log lines:\n%s", log.c_str() + start);
    }

    static JorvaneDriver& driver() { return *driver_; }

    // Brings a Thunar window to the front with the keyboard in it; `grabbed`:
    // first waits until the program's tap holds Ctrl+G (the shipped hot key) there.
    static void bringToFront(std::uint32_t window, bool grabbed = true) {
        if (grabbed) {
            EXPECT_TRUE(driver().waitForGrab(window, "g", kWait)) << "the tap never grabbed Ctrl+G on it";
        }
        EXPECT_TRUE(desktop().activate(window));
        // The window manager names the active window before the X focus
        // follows, and the tap's key grab fires only with the focus inside.
        EXPECT_TRUE(waitUntil([&] { return driver().focusIsIn(window); }, kWait))
            << "the focus is on " << hex(driver().inputFocus()) << ", not in " << hex(window);
    }

    // A new Thunar window on the folder, in front with its keys held by the tap; 0 when none came.
    static std::uint32_t openWindow(const std::filesystem::path& folder) {
        const std::optional<std::uint32_t> window = desktop().openThunarWindow(folder);
        if (!window) {
            ADD_FAILURE() << "no Thunar window on " << folder;
            return 0;
        }
        bringToFront(*window);
        return *window;
    }

    // A click on the middle of the window's title; true once it opened a focused bar.
    static bool clickTitle(std::uint32_t window) {
        const std::optional<std::pair<int, int>> point = driver().titlePoint(window);
        if (!point) return false;
        driver().clickAt(point->first, point->second);
        return driver().waitForFocusedBar(kWait);
    }

    static bool openBarByHotKey() { return driver().hotKey() && driver().waitForFocusedBar(kWait); }

    // Replaces the open bar's text and presses Return; true once the window's title names `shown`.
    static bool enter(std::uint32_t window, const std::string& text, const std::filesystem::path& shown) {
        return driver().key("a", {"Control_L"}) && driver().type(text) && driver().key("Return") &&
               desktop().waitForTitle(window, titleOf(shown), kWait);
    }

    // The keyboard layout, as setxkbmap sets it ("us", or "us" "dvorak").
    static bool setLayout(const std::vector<std::string>& names) {
        std::vector<std::string> argv = {"setxkbmap", "-display", desktop().display()};
        argv.insert(argv.end(), names.begin(), names.end());
        return desktop().run(argv).exitCode == 0;
    }

    static void closeBar() {
        if (!driver().bar()) return;
        driver().key("Escape");
        driver().key("Escape");
    }

    // Thunar's selection in the window (read in its Details view) becomes `names`.
    static void expectSelection(std::uint32_t window, const std::vector<std::string>& names) {
        std::optional<std::vector<std::string>> selected;
        const bool seen = waitUntil(
            [&] {
                selected = driver().thunarSelection(window);
                return selected && *selected == names;
            },
            kWait, milliseconds(50));
        EXPECT_TRUE(seen) << "Thunar's selection: "
                          << (selected ? ::testing::PrintToString(*selected) : std::string("(unreadable)"));
    }

    static inline std::unique_ptr<JorvaneDriver> driver_;
    static inline std::string startFailure_;
};

}  // namespace jorvane::e2e
