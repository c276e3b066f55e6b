#pragma once

// A small busy indicator: twelve spokes whose brightness turns. Its timer runs
// only while it is animating and on screen, so a hidden spinner (or one in a
// hidden bar) never wakes the program.

#include <QBasicTimer>
#include <QWidget>

namespace jorvane::ui {

class BusySpinner final : public QWidget {
    Q_OBJECT
public:
    static constexpr int kSide = 16;

    explicit BusySpinner(QWidget* parent = nullptr);

    void startAnimation();
    void stopAnimation();
    bool isAnimating() const { return animating_; }
    // Whether its timer runs (tests).
    bool isTicking() const { return timer_.isActive(); }

protected:
    void paintEvent(QPaintEvent* event) override;
    void timerEvent(QTimerEvent* event) override;
    void showEvent(QShowEvent* event) override;
    void hideEvent(QHideEvent* event) override;

private:
    void updateTimer();

    QBasicTimer timer_;
    bool animating_ = false;
    int step_ = 0;
};

}  // namespace jorvane::ui
