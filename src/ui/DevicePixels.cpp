#include "ui/DevicePixels.h"

#include <QGuiApplication>
#include <QScreen>

#include <cmath>

namespace jorvane::ui {

namespace {

int rounded(double value) { return static_cast<int>(std::lround(value)); }

// The screen that holds the rectangle's centre, else the one it overlaps most.
const ScreenScale* screenHolding(const QRect& rect, const std::vector<ScreenScale>& screens, bool device) {
    if (screens.empty()) return nullptr;
    const QPoint centre = rect.center();
    const ScreenScale* most = &screens.front();
    long long mostArea = -1;
    for (const ScreenScale& screen : screens) {
        const QRect area = device ? screen.device() : screen.logical;
        if (area.contains(centre)) return &screen;
        const QRect overlap = area.intersected(rect);
        const long long size = overlap.isEmpty() ? 0 : static_cast<long long>(overlap.width()) * overlap.height();
        if (size > mostArea) {
            mostArea = size;
            most = &screen;
        }
    }
    return most;
}

// One coordinate from one unit to the other about the screen's corner.
int scaled(int value, int corner, double factor) { return rounded(corner + (value - corner) * factor); }

}  // namespace

QRect ScreenScale::device() const {
    return QRect(logical.x(), logical.y(), rounded(logical.width() * ratio), rounded(logical.height() * ratio));
}

std::vector<ScreenScale> currentScreenScales() {
    std::vector<ScreenScale> screens;
    for (const QScreen* screen : QGuiApplication::screens())
        screens.push_back({screen->geometry(), screen->devicePixelRatio()});
    return screens;
}

QRect deviceToLogical(const QRect& device, const std::vector<ScreenScale>& screens) {
    const ScreenScale* screen = screenHolding(device, screens, true);
    if (!screen || screen->ratio <= 0) return device;
    const QPoint corner = screen->logical.topLeft();
    const double factor = 1.0 / screen->ratio;
    const int left = scaled(device.x(), corner.x(), factor);
    const int top = scaled(device.y(), corner.y(), factor);
    const int right = scaled(device.x() + device.width(), corner.x(), factor);
    const int bottom = scaled(device.y() + device.height(), corner.y(), factor);
    return QRect(left, top, right - left, bottom - top);
}

QRect logicalToDevice(const QRect& logical, const std::vector<ScreenScale>& screens) {
    const ScreenScale* screen = screenHolding(logical, screens, false);
    if (!screen) return logical;
    const QPoint corner = screen->logical.topLeft();
    const int left = scaled(logical.x(), corner.x(), screen->ratio);
    const int top = scaled(logical.y(), corner.y(), screen->ratio);
    const int right = scaled(logical.x() + logical.width(), corner.x(), screen->ratio);
    const int bottom = scaled(logical.y() + logical.height(), corner.y(), screen->ratio);
    return QRect(left, top, right - left, bottom - top);
}

double ratioAt(const QRect& device, const std::vector<ScreenScale>& screens) {
    const ScreenScale* screen = screenHolding(device, screens, true);
    return screen && screen->ratio > 0 ? screen->ratio : 1.0;
}

}  // namespace jorvane::ui
