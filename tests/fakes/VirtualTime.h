#pragma once

// Virtual time for one scope: timers follow a clock that the test moves.

#include "util/Dispatch.h"

namespace jorvane::test {

struct VirtualTime {
    VirtualTime() { dispatch::setTimeSource(&clock); }
    ~VirtualTime() { dispatch::setTimeSource(nullptr); }
    VirtualTime(const VirtualTime&) = delete;
    VirtualTime& operator=(const VirtualTime&) = delete;
    // Moves time forward and runs what the timers handed to the main queue.
    void pass(dispatch::Duration by) {
        clock.advance(by);
        dispatch::mainQueue().drain();
    }

    dispatch::ManualTimeSource clock;
};

}  // namespace jorvane::test
