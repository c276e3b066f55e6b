#pragma once

#include <QObject>

namespace jorvane::ui {

// Drains the core's main queue from Qt's event loop: every task queued from
// any thread wakes the loop once, and the tasks then run on the GUI thread.
class MainLoop : public QObject {
    Q_OBJECT
public:
    explicit MainLoop(QObject* parent = nullptr);

private:
    Q_INVOKABLE void drain();
};

}  // namespace jorvane::ui
