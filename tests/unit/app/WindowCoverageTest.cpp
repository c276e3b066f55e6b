#include <gtest/gtest.h>

#include <unistd.h>
#include <string>
#include <vector>

#include "app/ActivationEvents.h"
#include "app/WindowCoverage.h"

namespace jorvane {
namespace {

constexpr std::int32_t kFileManager = 4242;
const Rect kWindow{{100, 100}, {600, 400}};

WindowInfo entry(std::string owner, std::int32_t pid, std::int32_t x, std::int32_t y, std::int32_t width,
                 std::int32_t height) {
    return WindowInfo{std::move(owner), pid, "", x, y, width, height};
}

const WindowInfo kFileManagerWindow = entry("Thunar", kFileManager, 100, 100, 600, 400);

struct CoverageRow {
    const char* name;
    std::vector<WindowInfo> inFront;
    bool covered;
};

class WindowCoverage : public ::testing::TestWithParam<CoverageRow> {};

TEST_P(WindowCoverage, DecidesWhetherTheTitleBandIsCovered) {
    std::vector<WindowInfo> list = GetParam().inFront;
    list.push_back(kFileManagerWindow);
    EXPECT_EQ(isTitleBandCovered(list, kFileManager, kWindow, 24), GetParam().covered);
}

const std::int32_t kSelf = static_cast<std::int32_t>(::getpid());

INSTANTIATE_TEST_SUITE_P(
    Rows, WindowCoverage,
    ::testing::Values(
        CoverageRow{"nothing_in_front_leaves_it_uncovered", {}, false},
        CoverageRow{"another_programs_window_over_the_title_covers_it", {entry("xterm", 77, 300, 90, 200, 50)}, true},
        CoverageRow{"a_window_below_the_band_does_not_cover_it", {entry("xterm", 77, 300, 200, 200, 50)}, false},
        CoverageRow{"a_panel_over_the_title_does_not_cover_it", {entry("Dock", 77, 0, 90, 1280, 30)}, false},
        CoverageRow{"the_programs_own_bar_over_the_title_does_not_cover_it",
                    {entry("Jorvane", kSelf, 200, 99, 400, 24)},
                    false}),
    [](const ::testing::TestParamInfo<CoverageRow>& row) { return std::string(row.param.name); });

// The click area over the title: the text's frame, 20 points more to the
// left (the folder icon) and 30 more in all, as high as the text.
TEST(TitleMargin, WidensTheTitleTextLeftAndRightOnly) {
    EXPECT_EQ(activation::widenedTitleFrame({{340, 53}, {120, 16}}), (Rect{{320, 53}, {150, 16}}));
}

}  // namespace
}  // namespace jorvane
