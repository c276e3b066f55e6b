#pragma once

// The program as a Qt application (the Application port). Jorvane lives in
// the background: it has no window of its own to bring forward, and its bars
// take the keyboard themselves when they open, so coming to the front and
// stepping back ask nothing of the desktop. Ending leaves the event loop at
// its next turn; a request made before the loop runs is remembered, so the
// composition root can end without entering it.

#include <QObject>

#include <functional>

#include "app/Application.h"

namespace jorvane::ui {

class QtApplication final : public QObject, public Application {
    Q_OBJECT
public:
    // `resignedActive` runs each time the program stops being the active
    // application (its last focused window lost the keyboard to another
    // program's). QApplication must exist.
    explicit QtApplication(std::function<void()> resignedActive = {});

    void activateIgnoringOtherApps() override;
    void deactivate() override;
    void terminate() override;

    bool terminateRequested() const { return terminateRequested_; }

private:
    std::function<void()> resignedActive_;
    bool terminateRequested_ = false;
};

}  // namespace jorvane::ui
