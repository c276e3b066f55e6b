#pragma once

// The base of end-to-end test fixtures: the suite shares this process's
// desktop (started by the first suite that needs it), and a failed test
// leaves a screenshot of the screen in the output folder.

#include <gtest/gtest.h>

#include "Desktop.h"

namespace jorvane::e2e {

class DesktopTest : public ::testing::Test {
protected:
    static void SetUpTestSuite();
    void SetUp() override;
    static Desktop& desktop() { return Desktop::shared(); }
    // Why the desktop did not start; empty when it runs.
    static const std::string& startError();
};

// Saves <output>/<suite>.<test>.png at a test's first failure while a
// desktop runs, before the test's clean-up closes its windows.
class ScreenshotOnFailure : public ::testing::EmptyTestEventListener {
public:
    void OnTestStart(const ::testing::TestInfo& info) override;
    void OnTestPartResult(const ::testing::TestPartResult& result) override;

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
