// The rule that finds a drawn title's text among the pixels of its box.

#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "platform/x11/X11Windows.h"

namespace jorvane::x11 {
namespace {

struct InkCase {
    std::string name;
    std::vector<std::string> rows;                // '.' background, '#' ink, '+' faint edge, 'g' a lighter background
    std::optional<std::pair<int, int>> expected;  // first column, width
};

std::ostream& operator<<(std::ostream& os, const InkCase& c) { return os << c.name; }

class InkSpanTest : public ::testing::TestWithParam<InkCase> {};

TEST_P(InkSpanTest, FindsTheColumnsThatCarryText) {
    const InkCase& c = GetParam();
    const int width = static_cast<int>(c.rows.front().size());
    std::vector<std::uint32_t> pixels;
    for (std::size_t y = 0; y < c.rows.size(); ++y)
        for (const char ch : c.rows[y]) {
            // A background that darkens a little from row to row, as a
            // vertical gradient does.
            const std::uint32_t shade = 0x90 - static_cast<std::uint32_t>(y) * 4;
            const std::uint32_t background = (shade << 16) | (shade << 8) | 0xE0;
            pixels.push_back(ch == '#'   ? 0xFFFFFF
                             : ch == '+' ? background + 0x101010
                             : ch == 'g' ? background + 0x080808
                                         : background);
        }
    const auto span = inkSpanOfPixels(pixels, width, static_cast<int>(c.rows.size()));
    if (!c.expected) {
        EXPECT_FALSE(span);
        return;
    }
    ASSERT_TRUE(span);
    EXPECT_EQ(span->left, c.expected->first);
    EXPECT_EQ(span->width, c.expected->second);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, InkSpanTest,
    ::testing::Values(InkCase{"AnEmptyTitleHasNoInk", {"..........", ".........."}, std::nullopt},
                      InkCase{"TextInTheMiddleSpansItsColumns", {"...#..#...", "....##...."}, std::pair{3, 4}},
                      InkCase{"FaintAntiAliasedEdgesDoNotCount", {"..+##+....", "..+#.#+..."}, std::pair{3, 3}},
                      InkCase{"APatchOfLighterPaintIsNoText", {"gg........", "gg........"}, std::nullopt},
                      InkCase{"TextFromEdgeToEdgeSpansAllOfIt", {"#..#..#..#", ".#..#..#.#"}, std::pair{0, 10}}),
    [](const auto& test) { return test.param.name; });

}  // namespace
}  // namespace jorvane::x11
