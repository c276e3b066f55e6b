// Device pixels and Qt's logical pixels at the scales users set, both ways:
// rounding at odd sizes leaves no gap between rectangles that touch, a round
// trip stays within a pixel, and a second screen scales about its own corner.

#include "ui/DevicePixels.h"

#include <gtest/gtest.h>

#include <cctype>
#include <cmath>
#include <string>
#include <vector>

namespace jorvane::ui {
namespace {

struct ScaleRow {
    const char* name;
    double ratio;
    QRect device;
    QRect logical;
};

class AtOneScale : public testing::TestWithParam<ScaleRow> {
protected:
    std::vector<ScreenScale> screens() const {
        const double r = GetParam().ratio;
        // A 2560x1600 device screen at this ratio.
        return {{QRect(0, 0, static_cast<int>(std::lround(2560 / r)), static_cast<int>(std::lround(1600 / r))), r}};
    }
};

TEST_P(AtOneScale, convertsBothWaysWithoutGaps) {
    const ScaleRow& row = GetParam();
    EXPECT_EQ(deviceToLogical(row.device, screens()), row.logical);
    const QRect back = logicalToDevice(row.logical, screens());
    EXPECT_LE(std::abs(back.left() - row.device.left()), 1);
    EXPECT_LE(std::abs(back.right() - row.device.right()), 1);
    EXPECT_EQ(ratioAt(row.device, screens()), row.ratio);

    // A bar laid on a title band that starts where the device rectangle ends
    // meets it: no one-pixel gap at any ratio.
    const QRect below(row.device.x(), row.device.y() + row.device.height(), row.device.width(), 20);
    EXPECT_EQ(deviceToLogical(below, screens()).top(), deviceToLogical(row.device, screens()).bottom() + 1);
}

const ScaleRow kScaleRows[] = {
    {"one to one", 1.0, QRect(247, 113, 641, 21), QRect(247, 113, 641, 21)},
    {"fractional 1.25", 1.25, QRect(247, 113, 641, 21), QRect(198, 90, 512, 17)},
    {"fractional 1.5", 1.5, QRect(247, 113, 641, 21), QRect(165, 75, 427, 14)},
    {"double", 2.0, QRect(246, 492, 640, 48), QRect(123, 246, 320, 24)},
};

struct RowName {
    std::string operator()(const testing::TestParamInfo<ScaleRow>& row) const {
        std::string name;
        for (const char c : std::string(row.param.name))
            name.push_back(std::isalnum(static_cast<unsigned char>(c)) ? c : '_');
        return name;
    }
};

INSTANTIATE_TEST_SUITE_P(Rows, AtOneScale, testing::ValuesIn(kScaleRows), RowName{});

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
