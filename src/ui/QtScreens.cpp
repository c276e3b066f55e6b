#include "ui/QtScreens.h"

#include <QGuiApplication>
#include <QScreen>

#include <cmath>

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

}  // namespace

double firstScreenHeight() {
    const QScreen* screen = firstScreen();
    return screen ? screen->geometry().height() : 0;
}

QRect toQtRect(const Rect& frame, double firstScreenHeight) {
    return QRect(rounded(frame.origin.x), rounded(firstScreenHeight - frame.origin.y - frame.size.height),
                 rounded(frame.size.width), rounded(frame.size.height));
}

Rect fromQtRect(const QRect& geometry, double firstScreenHeight) {
    return Rect{{static_cast<double>(geometry.x()), firstScreenHeight - geometry.y() - geometry.height()},
                {static_cast<double>(geometry.width()), static_cast<double>(geometry.height())}};
}

std::vector<Rect> QtScreens::screenFrames() const {
    std::vector<Rect> frames;
    QScreen* first = firstScreen();
    if (!first) return frames;
    const double height = first->geometry().height();
    frames.push_back(fromQtRect(first->geometry(), height));
    for (QScreen* screen : QGuiApplication::screens()) {
        if (screen != first) frames.push_back(fromQtRect(screen->geometry(), height));
    }
    return frames;
}

}  // namespace jorvane::ui
