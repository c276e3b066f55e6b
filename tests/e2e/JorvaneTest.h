#pragma once

// The base of the whole-program suites: one jorvane per suite on the shared
// desktop, started by the suite once it has its folders and a Thunar window,
// stopped with the suite's Thunar windows at its end.

#include <cstdio>
#include <memory>
#include <string>

#include "DesktopTest.h"
#include "JorvaneDriver.h"

namespace jorvane::e2e {

inline constexpr milliseconds kWait{5000};  // the bound of every wait for something that must happen

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

    static inline std::unique_ptr<JorvaneDriver> driver_;
    static inline std::string startFailure_;
};

}  // namespace jorvane::e2e
