#include "ui/CentredWindow.h"

#include <QGuiApplication>
#include <QRect>
#include <QScreen>
#include <QWidget>

namespace jorvane::ui {

void showCentred(QWidget& window) {
    window.adjustSize();
    if (const QScreen* screen = QGuiApplication::primaryScreen()) {
        QRect frame = window.frameGeometry();
        frame.moveCenter(screen->availableGeometry().center());
        window.move(frame.topLeft());
    }
    window.show();
    window.raise();
    window.activateWindow();
}

}  // namespace jorvane::ui
