#pragma once

// The screens of the desktop, for placing panels.

#include <vector>

#include "util/Geometry.h"

namespace jorvane {

class Screens {
public:
    virtual ~Screens() = default;
    // Every screen's frame in the bottom-left system; the first is the one
    // whose top-left corner is the origin of accessibility and event
    // coordinates. Empty when no screen is known.
    virtual std::vector<Rect> screenFrames() const = 0;
};

}  // namespace jorvane
