#pragma once

// The base of end-to-end test fixtures: the suite shares this process's
// desktop (started by the first suite that needs it), and a failed test
// leaves a screenshot of the screen in the output folder.

#include <gtest/gtest.h>

#include <cstdio>
#include <exception>
#include <string>

#include "Desktop.h"

namespace jorvane::e2e {

class DesktopTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        try {
            Desktop::shared();
        } catch (const std::exception& error) {
            startError_ = error.what();
        }
    }
    void SetUp() override {
        if (!startError_.empty()) GTEST_FAIL() << "the desktop did not start: " << startError_;
    }
    // From a suite's SetUpTestSuite; false (and its tests fail) when the desktop did not start.
    static bool startDesktop() {
        DesktopTest::SetUpTestSuite();
        return startError_.empty();
    }
    static Desktop& desktop() { return Desktop::shared(); }
    // Why the desktop did not start; empty when it runs.
    static const std::string& startError() { return startError_; }

private:
    static inline std::string startError_;
};

// Saves <output>/<suite>.<test>.png at a test's first failure while a
// desktop runs, before the test's clean-up closes its windows.
class ScreenshotOnFailure : public ::testing::EmptyTestEventListener {
public:
    void OnTestStart(const ::testing::TestInfo& info) override {
        taken_ = false;
        name_ = std::string(info.test_suite_name()) + "." + info.name();
        for (char& c : name_)
            if (c == '/') c = '_';
    }
    void OnTestPartResult(const ::testing::TestPartResult& result) override {
        // GoogleTest holds its lock here: nothing may ask it for the current test.
        Desktop* desktop = Desktop::sharedIfRunning();
        if (taken_ || !result.failed() || name_.empty() || !desktop) return;
        taken_ = true;
        const std::filesystem::path file = desktop->outputDir() / (name_ + ".png");
        if (desktop->screenshot(file)) std::fprintf(stderr, "screenshot: %s\n", file.c_str());
    }

private:
    bool taken_ = false;
    std::string name_;  // of the running test, taken at its start
};

// Stops the shared desktop when all tests are over.
class DesktopEnvironment : public ::testing::Environment {
public:
    void TearDown() override { Desktop::stopShared(); }
};

}  // namespace jorvane::e2e
