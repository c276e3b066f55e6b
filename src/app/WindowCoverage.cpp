#include "app/WindowCoverage.h"

#include <cmath>

#include <unistd.h>

namespace jorvane {

namespace {

bool sameBounds(const WindowInfo& info, const Rect& frame) {
    return info.x == std::lround(frame.origin.x) && info.y == std::lround(frame.origin.y) &&
           info.width == std::lround(frame.size.width) && info.height == std::lround(frame.size.height);
}

bool overlaps(const WindowInfo& info, const Rect& band) {
    const double left = info.x, top = info.y, right = left + info.width, bottom = top + info.height;
    return info.width > 0 && info.height > 0 && left < band.maxX() && band.minX() < right && top < band.maxY() &&
           band.minY() < bottom;
}

}  // namespace

bool isTitleBandCovered(const std::vector<WindowInfo>& frontToBack, std::int32_t pid, const Rect& windowFrame,
                        double bandHeight) {
    const Rect band{{windowFrame.origin.x, windowFrame.origin.y - 1}, {windowFrame.size.width, bandHeight}};
    // The list holds this program's own windows too: the bar lies over the
    // very band it belongs to.
    const std::int32_t self = static_cast<std::int32_t>(::getpid());
    for (std::size_t i = 0; i < frontToBack.size(); ++i) {
        const WindowInfo& info = frontToBack[i];
        if (info.ownerPid != pid || !sameBounds(info, windowFrame)) continue;
        for (std::size_t j = 0; j < i; ++j)
            if (frontToBack[j].ownerName != "Dock" && frontToBack[j].ownerPid != self && overlaps(frontToBack[j], band))
                return true;
        return false;
    }
    return false;
}

}  // namespace jorvane
