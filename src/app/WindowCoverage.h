#pragma once

// Whether another window lies over a window's title band. An address bar
// floats above every window (X11 has no "above its own window only"), so a
// bar whose file-manager window gets covered must go away rather than float
// over whatever now lies in front.

#include <cstdint>
#include <vector>

#include "accessibility/Accessibility.h"
#include "util/Geometry.h"

namespace jorvane {

// `frontToBack` is the window list (AccessibilityAPI::windowList). The
// window is the first entry of process `pid` whose bounds are `windowFrame`
// (in whole points); the band is its top `bandHeight` points, from one point
// above its top edge, where the bar sits. Covered when an entry in front of
// it, other than a panel ("Dock") or a window of this program (its bars and
// their lists), overlaps the band. A window not found in
// the list is not taken as covered: without an answer the bar stays.
bool isTitleBandCovered(const std::vector<WindowInfo>& frontToBack, std::int32_t pid, const Rect& windowFrame,
                        double bandHeight);

}  // namespace jorvane
