// The handler catalogue when Thunar hangs: every call answers within its
// bound. (Thunar gone is the whole-program lifecycle tests'.)

#include "ThunarTestSupport.h"

namespace jorvane::e2e {
namespace {

using std::chrono::milliseconds;

class ThunarHang : public ThunarTest {
protected:
    void TearDown() override {
        if (!startError().empty()) return;
        if (suspended_) desktop().resume(desktop().thunarPid());
        if (desktop().thunarPid() <= 0) desktop().restartThunar();
        ThunarTest::TearDown();
    }

    // The bound plus the time to wake the caller.
    static long long limitFor(const char* handler) { return catalogue().timeoutFor(handler).count() + 300; }

    bool suspended_ = false;
};

TEST_F(ThunarHang, AStoppedThunarGetsNothingWithinTheBoundAndRecovers) {
    const fs::path start = folder("start"), target = folder("target");
    const std::uint32_t window = openWindow(start);
    ASSERT_EQ(call("finder_get_path"), start.string());  // AT-SPI and X are warm

    ASSERT_TRUE(desktop().suspend(desktop().thunarPid()));
    suspended_ = true;
    for (const char* handler : {"finder_set_path", "finder_get_selection", "reload", "finder_listview"}) {
        const auto begin = Clock::now();
        const std::vector<std::string> params = std::string(handler) == "finder_set_path"
                                                    ? std::vector<std::string>{target.string()}
                                                    : std::vector<std::string>{};
        EXPECT_EQ(call(handler, params), std::nullopt) << handler;
        EXPECT_LT(millisecondsSince(begin), limitFor(handler)) << handler;
    }
    // The title lives in the X server, which still answers for the window.
    const auto begin = Clock::now();
    EXPECT_EQ(call("finder_get_path"), start.string());
    EXPECT_LT(millisecondsSince(begin), limitFor("finder_get_path"));

    ASSERT_TRUE(desktop().resume(desktop().thunarPid()));
    suspended_ = false;
    // Thunar works through what it missed; the catalogue serves it again.
    EXPECT_TRUE(waitUntil([&] { return call("finder_set_path", {target.string()}) == ""; }, milliseconds(15000),
                          milliseconds(200)));
    EXPECT_EQ(desktop().title(window), titleOf(target));
}

}  // namespace
}  // namespace jorvane::e2e
