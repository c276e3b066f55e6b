// The end-to-end tests' main: GoogleTest plus a screenshot of the desktop for
// every failed test and the desktop's teardown at the end.

#include <gtest/gtest.h>

#include "DesktopTest.h"

int main(int argc, char** argv) {
    ::testing::InitGoogleTest(&argc, argv);
    ::testing::UnitTest::GetInstance()->listeners().Append(new jorvane::e2e::ScreenshotOnFailure);
    ::testing::AddGlobalTestEnvironment(new jorvane::e2e::DesktopEnvironment);
    const int status = RUN_ALL_TESTS();
    jorvane::e2e::Desktop::stopShared();
    return status;
}
