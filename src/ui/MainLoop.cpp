#include "ui/MainLoop.h"

#include <QMetaObject>

#include "util/Dispatch.h"

namespace jorvane::ui {

MainLoop::MainLoop(QObject* parent) : QObject(parent) {
    dispatch::MainQueue& queue = dispatch::MainQueue::shared();
    queue.bindToCurrentThread();
    queue.setWakeUp([this] { QMetaObject::invokeMethod(this, "drain", Qt::QueuedConnection); });
    // Tasks queued before the loop existed.
    QMetaObject::invokeMethod(this, "drain", Qt::QueuedConnection);
}

void MainLoop::drain() { dispatch::MainQueue::shared().drain(); }

}  // namespace jorvane::ui
