#include "ui/BusySpinner.h"

#include <QPainter>
#include <QTimerEvent>

namespace jorvane::ui {

namespace {
constexpr int kSpokes = 12;
constexpr int kStepMilliseconds = 80;
}  // namespace

BusySpinner::BusySpinner(QWidget* parent) : QWidget(parent) {
    setFixedSize(kSide, kSide);
    setAttribute(Qt::WA_TransparentForMouseEvents);
}

void BusySpinner::startAnimation() {
    animating_ = true;
    updateTimer();
}

void BusySpinner::stopAnimation() {
    animating_ = false;
    updateTimer();
}

void BusySpinner::updateTimer() {
    if (animating_ && isVisible()) {
        if (!timer_.isActive()) timer_.start(kStepMilliseconds, Qt::CoarseTimer, this);
    } else {
        timer_.stop();
    }
}

void BusySpinner::showEvent(QShowEvent*) { updateTimer(); }

void BusySpinner::hideEvent(QHideEvent*) { timer_.stop(); }

void BusySpinner::timerEvent(QTimerEvent* event) {
    if (event->timerId() != timer_.timerId()) return;
    step_ = (step_ + 1) % kSpokes;
    update();
}

void BusySpinner::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.translate(width() / 2.0, height() / 2.0);
    const double outer = kSide / 2.0 - 1;
    QPen pen;
    pen.setWidthF(1.6);
    pen.setCapStyle(Qt::RoundCap);
    for (int spoke = 0; spoke < kSpokes; ++spoke) {
        // The spoke at the current step is brightest; the others fade behind it.
        const int age = (step_ - spoke + kSpokes) % kSpokes;
        pen.setColor(QColor(235, 235, 235, 255 - age * 190 / kSpokes));
        painter.setPen(pen);
        painter.drawLine(QPointF(0, -outer * 0.45), QPointF(0, -outer));
        painter.rotate(360.0 / kSpokes);
    }
}

}  // namespace jorvane::ui
