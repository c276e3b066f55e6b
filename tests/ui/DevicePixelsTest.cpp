// Device pixels and Qt's logical pixels: a second screen scales about its own
// corner. (One screen at 1.25, 1.5 and 2 is the whole-program scale suite's:
// the bar lands on the title band there.)

#include "ui/DevicePixels.h"

#include <gtest/gtest.h>

#include <vector>

namespace jorvane::ui {
namespace {

TEST(DevicePixels, aSecondScreenOfAnotherScaleScalesAboutItsOwnCorner) {
    // 1920x1080 at 1x, then a 3840x2160 screen at 2x to its right.
    const std::vector<ScreenScale> screens = {{QRect(0, 0, 1920, 1080), 1.0}, {QRect(1920, 0, 1920, 1080), 2.0}};
    EXPECT_EQ(screens[1].device(), QRect(1920, 0, 3840, 2160));
    EXPECT_EQ(deviceToLogical(QRect(2020, 200, 800, 48), screens), QRect(1970, 100, 400, 24));
    EXPECT_EQ(logicalToDevice(QRect(1970, 100, 400, 24), screens), QRect(2020, 200, 800, 48));
    EXPECT_EQ(deviceToLogical(QRect(100, 200, 800, 48), screens), QRect(100, 200, 800, 48)) << "the first screen";
    EXPECT_EQ(ratioAt(QRect(2020, 200, 800, 48), screens), 2.0);
    // Straddling both, a window counts for the screen that holds its centre.
    EXPECT_EQ(ratioAt(QRect(1800, 200, 400, 48), screens), 2.0);
    EXPECT_EQ(ratioAt(QRect(1700, 200, 400, 48), screens), 1.0);
}

TEST(DevicePixels, withoutScreensNothingChanges) {
    EXPECT_EQ(deviceToLogical(QRect(1, 2, 3, 4), {}), QRect(1, 2, 3, 4));
    EXPECT_EQ(logicalToDevice(QRect(1, 2, 3, 4), {}), QRect(1, 2, 3, 4));
    EXPECT_EQ(ratioAt(QRect(1, 2, 3, 4), {}), 1.0);
}

}  // namespace
}  // namespace jorvane::ui
