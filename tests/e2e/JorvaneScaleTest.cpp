// The program on a scaled desktop: with Xft.dpi 144 (1.5x) and 192 (2x), or
// QT_SCALE_FACTOR 1.25, Qt scales its windows, while X11 and Thunar's frames stay in device pixels.
// A click on the title opens the bar on the title band (its top within 2
// device pixels of the frame's), over the title's text, and typing a folder
// with Return works as at 1x.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <optional>
#include <string>

#include "JorvaneTest.h"

namespace jorvane::e2e {
namespace {

namespace fs = std::filesystem;

struct Scale {
    const char* name;
    int dpi;
    const char* qtScaleFactor;  // QT_SCALE_FACTOR, or nothing
};

class JorvaneScale : public JorvaneTest, public testing::WithParamInterface<Scale> {
protected:
    static void SetUpTestSuite() {
        if (!startDesktop()) return;
        folder_ = desktop().dataDir() / "scale";
        fs::create_directories(folder_ / "Inside");
        startProgram();
    }

    static void TearDownTestSuite() {
        setDpi(96);
        JorvaneTest::TearDownTestSuite();
    }

    // Sets Xft.dpi in the X server's resources, as the desktop's settings do.
    static void setDpi(int dpi) {
        if (!Desktop::sharedIfRunning()) return;
        const fs::path file = desktop().dataDir() / "dpi.Xresources";
        std::ofstream(file) << "Xft.dpi: " << dpi << "\n";
        desktop().run({"xrdb", "-merge", file.string()});
    }

    static inline fs::path folder_;
};

TEST_P(JorvaneScale, theBarLandsOnTheTitleAndWorks) {
    setDpi(GetParam().dpi);
    JorvaneDriver::Options options;
    if (*GetParam().qtScaleFactor) options.environment = {std::string("QT_SCALE_FACTOR=") + GetParam().qtScaleFactor};
    ASSERT_TRUE(driver().start(options)) << driver().why();
    const std::uint32_t window = openWindow(folder_);
    ASSERT_NE(window, 0u);
    const std::optional<std::pair<int, int>> title = driver().titlePoint(window);
    ASSERT_TRUE(title);
    ASSERT_TRUE(clickTitle(window)) << driver().log();
    const std::optional<BarWindow> bar = driver().bar();
    ASSERT_TRUE(bar);
    const std::optional<x11::ClientFrame> frame = driver().frame(window);
    ASSERT_TRUE(frame);
    const int frameTop = static_cast<int>(frame->outer().minY());
    const WindowGeometry& shown = bar->geometry;
    EXPECT_LE(std::abs(shown.y - frameTop), 2) << "bar at y " << shown.y << ", frame at " << frameTop;
    EXPECT_TRUE(shown.x <= title->first && title->first < shown.x + static_cast<int>(shown.width) &&
                shown.y <= title->second && title->second < shown.y + static_cast<int>(shown.height))
        << "the bar " << shown.x << "," << shown.y << " " << shown.width << "x" << shown.height
        << " does not cover the title at " << title->first << "," << title->second;

    desktop().screenshot(desktop().outputDir() / (std::string("bar-") + GetParam().name + ".png"));

    EXPECT_TRUE(enter(window, (folder_ / "Inside").string(), folder_ / "Inside"));
    desktop().closeThunarWindows();
}

INSTANTIATE_TEST_SUITE_P(Dpi, JorvaneScale,
                         testing::Values(Scale{"Xft_dpi_144", 144, ""}, Scale{"Xft_dpi_192", 192, ""},
                                         Scale{"QT_SCALE_FACTOR_1_25", 96, "1.25"}),
                         [](const testing::TestParamInfo<Scale>& row) { return std::string(row.param.name); });

}  // namespace
}  // namespace jorvane::e2e
