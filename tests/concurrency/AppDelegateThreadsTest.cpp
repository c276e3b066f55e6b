// The tap calls the delegate on its own thread while the main thread runs the bars: keys are decided there,
// and whatever touches the registry or the drag state must reach the main thread first (watched by TSan).
#include "unit/app/JorvaneAppFixture.h"

#include <gmock/gmock.h>

#include <atomic>
#include <thread>

namespace jorvane::test::appcore {
namespace {

TEST_F(AppDelegateTest, theTapThreadDecidesKeysAndLeavesTheBarsToTheMainThread) {
    launched();
    defaults_->setBool(true, settings::keys::inactiveShortcuts);
    ax_->setMouseLocation(kOnTitle);
    const TapEvent drag = TapEvent::mouseEvent(kEventLeftMouseDragged, kOnTitle);
    const TapEvent click = TapEvent::mouseEvent(kEventLeftMouseUp, kOnTitle);

    std::vector<EventTap::Decision> decisions;
    std::atomic<bool> done{false};
    std::thread tapThread([&] {
        for (int round = 0; round < 20; ++round) {
            decisions.push_back(tap_.push(TapEvent::keyboardEvent(kKeyG, true, kModifierCommand)));
            decisions.push_back(tap_.push(TapEvent::keyboardEvent(kKeyG, false, kModifierCommand)));
            decisions.push_back(tap_.push(TapEvent::keyboardEvent(kKeyR, true, kModifierCommand)));
            decisions.push_back(tap_.push(drag));
            decisions.push_back(tap_.push(click));
            decisions.push_back(tap_.push(click));
        }
        done = true;
    });
    // The main thread keeps running the bars while the tap thread pushes.
    dispatch::mainQueue().runUntil([&] { return done.load() && dispatch::mainQueue().pendingCount() == 0; },
                                   std::chrono::seconds(20));
    tapThread.join();
    settle();

    using D = EventTap::Decision;
    for (std::size_t i = 0; i < decisions.size(); i += 6)
        EXPECT_THAT(std::vector(decisions.begin() + i, decisions.begin() + i + 6),
                    testing::ElementsAre(D::Swallow, D::Swallow, D::Swallow, D::Pass, D::Pass, D::Pass));
    EXPECT_EQ(catalogue_->callCount(handlers::reload), 20u);
    ASSERT_EQ(delegate().pathControllers().size(), 1u);
    EXPECT_TRUE(barVisible()) << "the last click after a drag's end opened the bar";
    EXPECT_FALSE(delegate().dragInProgress());
}

}  // namespace
}  // namespace jorvane::test::appcore
