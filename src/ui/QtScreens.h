#pragma once

// The screens as Qt knows them, and the one conversion between the core's
// frames (device pixels, origin at the bottom left of the first screen, y
// upwards) and Qt's geometry (logical pixels, origin at the top left of the X
// root, y downwards). The controller flips accessibility frames with the
// first screen's height from screenFrames(), and the views flip back with the
// same height, so the two always agree; DevicePixels.h does the scaling.

#include <QRect>

#include <vector>

#include "addressbar/Screens.h"
#include "util/Geometry.h"

namespace jorvane::ui {

// The first screen: the one whose top-left corner is the X root's origin (the
// origin of accessibility coordinates), else Qt's primary screen. Its height
// in device pixels.
double firstScreenHeight();

// Core frame -> Qt geometry, and back (rounded to whole pixels).
QRect toQtRect(const Rect& frame, double firstScreenHeight);
Rect fromQtRect(const QRect& geometry, double firstScreenHeight);

class QtScreens final : public Screens {
public:
    // In device pixels: the first screen first, then the others in Qt's order.
    std::vector<Rect> screenFrames() const override;
};

}  // namespace jorvane::ui
