#include "ui/QtScreens.h"

#include <QGuiApplication>
#include <QScreen>

#include <cmath>

#include "ui/DevicePixels.h"

namespace jorvane::ui {

namespace {

QScreen* firstScreen() {
    const QList<QScreen*> screens = QGuiApplication::screens();
    for (QScreen* screen : screens) {
        if (screen->geometry().topLeft() == QPoint(0, 0)) return screen;
    }
    return QGuiApplication::primaryScreen();
}

int rounded(double value) { return static_cast<int>(std::lround(value)); }

QRect deviceGeometry(const QScreen& screen) {
    return ScreenScale{screen.geometry(), screen.devicePixelRatio()}.device();
}

}  // namespace

double firstScreenHeight() {
    const QScreen* screen = firstScreen();
    return screen ? deviceGeometry(*screen).height() : 0;
}

QRect toQtRect(const Rect& frame, double firstScreenHeight) {
    const QRect device(rounded(frame.origin.x), rounded(firstScreenHeight - frame.origin.y - frame.size.height),
                       rounded(frame.size.width), rounded(frame.size.height));
    return deviceToLogical(device, currentScreenScales());
}

Rect fromQtRect(const QRect& geometry, double firstScreenHeight) {
    const QRect device = logicalToDevice(geometry, currentScreenScales());
    return Rect{{static_cast<double>(device.x()), firstScreenHeight - device.y() - device.height()},
                {static_cast<double>(device.width()), static_cast<double>(device.height())}};
}

std::vector<Rect> QtScreens::screenFrames() const {
    std::vector<Rect> frames;
    QScreen* first = firstScreen();
    if (!first) return frames;
    const double height = deviceGeometry(*first).height();
    const auto flipped = [height](const QRect& device) {
        return Rect{{static_cast<double>(device.x()), height - device.y() - device.height()},
                    {static_cast<double>(device.width()), static_cast<double>(device.height())}};
    };
    frames.push_back(flipped(deviceGeometry(*first)));
    for (QScreen* screen : QGuiApplication::screens()) {
        if (screen != first) frames.push_back(flipped(deviceGeometry(*screen)));
    }
    return frames;
}

}  // namespace jorvane::ui
