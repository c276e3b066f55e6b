// The rule that finds a drawn title's text among the pixels of its box.

#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/x11/X11Windows.h"

namespace jorvane::x11 {
namespace {

TEST(InkSpan, FindsTheColumnsThatCarryText) {
    struct Row {
        const char* name;
        std::vector<std::string> rows;  // '.' background, '#' ink, '+' faint edge, 'g' a lighter background
        std::optional<std::pair<double, double>> expected;  // first column, width
    };
    const Row cases[] = {
        {"an empty title", {"..........", ".........."}, std::nullopt},
        {"text in the middle", {"...#..#...", "....##...."}, std::pair{3, 4}},
        {"faint anti-aliased edges do not count", {"..+##+....", "..+#.#+..."}, std::pair{3, 3}},
        {"a patch of lighter paint is no text", {"gg........", "gg........"}, std::nullopt},
        {"text from edge to edge", {"#..#..#..#", ".#..#..#.#"}, std::pair{0, 10}},
    };
    for (const Row& c : cases) {
        SCOPED_TRACE(c.name);
        const int width = static_cast<int>(c.rows.front().size());
        std::vector<std::uint32_t> pixels;
        for (std::size_t y = 0; y < c.rows.size(); ++y)
            for (const char ch : c.rows[y]) {
                // A background that darkens a little from row to row, as a vertical gradient does.
                const std::uint32_t shade = 0x90 - static_cast<std::uint32_t>(y) * 4;
                const std::uint32_t background = (shade << 16) | (shade << 8) | 0xE0;
                pixels.push_back(ch == '#'   ? 0xFFFFFF
                                 : ch == '+' ? background + 0x101010
                                 : ch == 'g' ? background + 0x080808
                                             : background);
            }
        const auto span = inkSpanOfPixels(pixels, width, static_cast<int>(c.rows.size()));
        EXPECT_EQ(span ? std::optional(std::pair{span->left, span->width}) : std::nullopt, c.expected);
    }
}

}  // namespace
}  // namespace jorvane::x11
