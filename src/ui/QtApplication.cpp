#include "ui/QtApplication.h"

#include <QCoreApplication>
#include <QGuiApplication>
#include <QMetaObject>

namespace jorvane::ui {

QtApplication::QtApplication(std::function<void()> resignedActive) : resignedActive_(std::move(resignedActive)) {
    connect(qGuiApp, &QGuiApplication::applicationStateChanged, this, [this](Qt::ApplicationState state) {
        if (state != Qt::ApplicationActive && resignedActive_) resignedActive_();
    });
}

// Nothing to raise: the bars make themselves the key window when they show.
void QtApplication::activateIgnoringOtherApps() {}

// Nothing holds the front: the file manager's window keeps it.
void QtApplication::deactivate() {}

void QtApplication::terminate() {
    terminateRequested_ = true;
    // Queued: quit() before exec() would be lost, and a caller on the stack
    // finishes its turn first.
    QMetaObject::invokeMethod(QCoreApplication::instance(), &QCoreApplication::quit, Qt::QueuedConnection);
}

}  // namespace jorvane::ui
