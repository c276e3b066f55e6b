#include "ui/QtApplication.h"

#include <QCoreApplication>
#include <QGuiApplication>
#include <QMetaObject>
#include <QWindow>

#include <xcb/xcb.h>
#include <cstdlib>
#include <memory>

#include "util/Diagnostics.h"

namespace jorvane::ui {

namespace {

// The window that has the X server's input focus; 0 when unknown.
xcb_window_t keyboardWindow() {
    auto* x11 = qGuiApp->nativeInterface<QNativeInterface::QX11Application>();
    xcb_connection_t* connection = x11 ? x11->connection() : nullptr;
    if (!connection) return XCB_NONE;
    const std::unique_ptr<xcb_get_input_focus_reply_t, decltype(&std::free)> reply(
        xcb_get_input_focus_reply(connection, xcb_get_input_focus(connection), nullptr), &std::free);
    return reply ? reply->focus : XCB_NONE;
}

bool isOwnVisibleWindow(xcb_window_t id) {
    for (const QWindow* window : QGuiApplication::topLevelWindows())
        if (window->isVisible() && window->handle() && window->winId() == id) return true;
    return false;
}

}  // namespace

QtApplication::QtApplication(std::function<void()> resignedActive) : resignedActive_(std::move(resignedActive)) {
    connect(qGuiApp, &QGuiApplication::applicationStateChanged, this, [this](Qt::ApplicationState state) {
        if (state == Qt::ApplicationActive || !resignedActive_) return;
        // Qt's report can come late, after a bar has opened and taken the
        // keyboard (seen on a loaded desktop right after a click on a
        // title). That bar has the keyboard and stays; it hides by itself
        // once it loses the keyboard.
        const xcb_window_t keyboard = keyboardWindow();
        if (isOwnVisibleWindow(keyboard)) {
            log::inDomain(log::Debug, "App", "inactive by Qt, yet the keyboard is in a window of ours: bars stay");
            return;
        }
        log::inDomain(log::Debug, "App", "inactive by Qt; the keyboard is in window 0x%x", keyboard);
        resignedActive_();
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
