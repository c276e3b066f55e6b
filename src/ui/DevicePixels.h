#pragma once

// The one boundary between the two units of screen lengths. X11 and the core
// measure in device pixels (as X11 reports windows). Qt places and sizes its
// windows in logical pixels when it scales them (Xft.dpi 144 or 192,
// QT_SCALE_FACTOR, QT_SCREEN_SCALE_FACTORS): it keeps each screen's top-left
// corner where the device has it and divides the distances from that corner
// by the screen's ratio. Every place that positions a Qt window from X11
// geometry, or reads a Qt geometry for X11, goes through here.

#include <QRect>

#include <vector>

namespace jorvane::ui {

struct ScreenScale {
    QRect logical;       // QScreen::geometry()
    double ratio = 1.0;  // QScreen::devicePixelRatio()
    // The screen in device pixels.
    QRect device() const;
};

// The screens Qt has now, in Qt's order.
std::vector<ScreenScale> currentScreenScales();

// The rectangle in the other unit, on the screen that holds its centre (else
// the one it overlaps most, else the first). Edges are rounded one by one,
// so two rectangles that touch in one unit touch in the other, at any ratio.
QRect deviceToLogical(const QRect& device, const std::vector<ScreenScale>& screens);
QRect logicalToDevice(const QRect& logical, const std::vector<ScreenScale>& screens);

// The ratio of the screen that holds the device rectangle.
double ratioAt(const QRect& device, const std::vector<ScreenScale>& screens);

}  // namespace jorvane::ui
