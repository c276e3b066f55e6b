// The Qt views' unit tests run on Qt's offscreen platform: no display, no
// window manager, the same on every machine.
#include <gtest/gtest.h>

#include <QApplication>

#include "util/Dispatch.h"

namespace {

// The offscreen platform says, for every window, what it cannot do (shapes,
// stacking); the tests do not depend on either.
QtMessageHandler defaultHandler = nullptr;

void quietOffscreen(QtMsgType type, const QMessageLogContext& context, const QString& message) {
    if (message.startsWith(QLatin1String("This plugin does not support"))) return;
    if (message.startsWith(QLatin1String("QStandardPaths: XDG_RUNTIME_DIR not set"))) return;
    if (defaultHandler) defaultHandler(type, context, message);
}

}  // namespace

int main(int argc, char** argv) {
    qputenv("QT_QPA_PLATFORM", "offscreen");
    defaultHandler = qInstallMessageHandler(quietOffscreen);
    ::testing::InitGoogleTest(&argc, argv);
    QApplication application(argc, argv);
    jorvane::dispatch::mainQueue().bindToCurrentThread();
    return RUN_ALL_TESTS();
}
