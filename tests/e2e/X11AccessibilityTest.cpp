// The X11 accessibility adapter's frames and elements under both window
// managers a Thunar user meets, openbox and xfwm4, each on a private desktop
// with a plain X client of ours. (Everything else it answers, on Thunar under
// openbox, is the whole-program tests': title clicks, the bar over the title,
// closed and minimised windows, Thunar's launch.)

#include <gtest/gtest.h>

#include <unistd.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "XTestClient.h"
#include "accessibility/WindowLookup.h"
#include "platform/x11/X11Accessibility.h"
#include "platform/x11/X11Windows.h"
#include "util/Dispatch.h"

namespace jorvane::x11 {
namespace {

using e2e::Desktop;
using e2e::WindowGeometry;

Rect rectOf(const std::optional<WindowGeometry>& g) {
    return g ? Rect{{double(g->x), double(g->y)}, {double(g->width), double(g->height)}} : Rect{};
}

struct WindowManagerCase {
    std::string name;
    FrameExtents extents;  // what it puts around a normal window
};

std::ostream& operator<<(std::ostream& os, const WindowManagerCase& c) { return os << c.name; }

bool installed(const std::string& program) {
    for (const char* dir : {"/usr/bin/", "/usr/local/bin/", "/bin/"})
        if (access((std::string(dir) + program).c_str(), X_OK) == 0) return true;
    return false;
}

Rect frameOf(const ElementRef& e) {
    Rect r;
    WindowLookup::getWindowFrame(e, r);
    return r;
}

using X11AccessibilityTest = ::testing::TestWithParam<WindowManagerCase>;

struct PositionCase {
    std::string name;
    // Where, relative to the window's outer frame: dy from its top (a
    // negative one is above the frame).
    double dx, dy;
    std::optional<Role> expectedRole;  // nothing: nothing there
};

TEST_P(X11AccessibilityTest, TheFrameIsTheClientGrownByTheExtentsAndHoldsTheTitleAtItsTop) {
    const std::string& wm = GetParam().name;
    if (!installed(wm)) GTEST_SKIP() << wm << " is not installed (scripts/deps.sh test installs it)";
    Desktop desktop({.windowManager = wm, .startThunar = false});  // stopped at the test's end
    std::optional<e2e::XTestClient> clients(std::in_place, desktop.display());
    const auto ax = std::make_shared<X11Accessibility>(desktop.display());
    ASSERT_TRUE(ax->isConnected());
    const xcb_window_t w = clients->create({.title = "positions", .x = 300, .y = 200});
    const FrameExtents expected = GetParam().extents;
    EXPECT_EQ(clients->frameExtents(w),
              (std::vector<std::uint32_t>{expected.left, expected.right, expected.top, expected.bottom}));
    const Rect client = rectOf(clients->geometry(w));
    const Rect window = frameOf(ax->windowElement(w));
    EXPECT_EQ(window.origin, (Point{client.origin.x - expected.left, client.origin.y - expected.top}));
    EXPECT_EQ(window.size, (Size{client.size.width + expected.left + expected.right,
                                 client.size.height + expected.top + expected.bottom}));
    const std::optional<WindowShape> frame =
        readWindowShapes(clients->display(), {topLevelOf(clients->display(), w)}).front();
    EXPECT_EQ(window, frame ? frame->rect : Rect{}) << "the window manager's frame window";
    EXPECT_EQ(copyAttribute<std::string>(ax->windowElement(w), Attribute::Title), "positions");
    // The bar is as high as this band: 20 under openbox, 29 under xfwm4.
    EXPECT_EQ(WindowLookup::titleBandHeight(ax->windowElement(w)), static_cast<double>(expected.top));
    const double band = expected.top;
    const PositionCase cases[] = {
        {"over the title band", window.size.width / 2, band / 2, Role::Text},
        {"over the title band's left end", 3, band / 2, Role::Text},
        {"just below the title band", window.size.width / 2, band + 1, Role::Window},
        {"over the body", window.size.width / 2, window.size.height / 2, Role::Window},
        {"above the frame, on the desktop", window.size.width / 2, -20, std::nullopt},
        {"right of the frame, on the desktop", window.size.width + 20, band / 2, std::nullopt},
    };
    for (const PositionCase& c : cases) {
        SCOPED_TRACE(c.name);
        const ElementRef e = ax->elementAtPosition(static_cast<float>(window.origin.x + c.dx),
                                                   static_cast<float>(window.origin.y + c.dy));
        if (!c.expectedRole) {
            EXPECT_EQ(e, nullptr);
            continue;
        }
        ASSERT_NE(e, nullptr);
        EXPECT_EQ(copyAttribute<Role>(e, Attribute::Role), c.expectedRole);
        EXPECT_TRUE(
            sameElement(copyAttribute<ElementRef>(e, Attribute::Window).value_or(nullptr), ax->windowElement(w)));
    }
    clients.reset();
    dispatch::MainQueue::shared().drain();
}

INSTANTIATE_TEST_SUITE_P(WindowManagers, X11AccessibilityTest,
                         ::testing::Values(WindowManagerCase{"openbox", {1, 1, 20, 5}},
                                           WindowManagerCase{"xfwm4", {5, 5, 29, 5}}),
                         [](const auto& test) { return "Under" + test.param.name; });

}  // namespace
}  // namespace jorvane::x11
