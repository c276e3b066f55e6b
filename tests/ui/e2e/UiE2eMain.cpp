// The Qt views' end-to-end tests: the shared desktop first, then a Qt
// application on its display, which leaves the display before the desktop
// stops (Qt ends the process when its X server goes away under it).
#include <gtest/gtest.h>

#include <QApplication>

#include <cstdio>
#include <exception>
#include <memory>

#include "DesktopTest.h"
#include "util/Dispatch.h"

int main(int argc, char** argv) {
    ::testing::InitGoogleTest(&argc, argv);
    if (::testing::GTEST_FLAG(list_tests)) return RUN_ALL_TESTS();
    ::testing::UnitTest::GetInstance()->listeners().Append(new jorvane::e2e::ScreenshotOnFailure);

    std::unique_ptr<QApplication> application;
    try {
        jorvane::e2e::Desktop::shared();
        qputenv("QT_QPA_PLATFORM", "xcb");
        application = std::make_unique<QApplication>(argc, argv);
        QApplication::setQuitOnLastWindowClosed(false);
        jorvane::dispatch::mainQueue().bindToCurrentThread();
    } catch (const std::exception& error) {
        // The tests fail with the reason in their set-up.
        std::fprintf(stderr, "desktop: %s\n", error.what());
    }
    const int status = RUN_ALL_TESTS();
    application.reset();
    jorvane::e2e::Desktop::stopShared();
    return status;
}
