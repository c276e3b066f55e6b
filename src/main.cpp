// The composition root: the only place that knows the core, the X11 and
// Thunar adapters and the Qt views, and wires them together.
#include <QApplication>
#include <cstdio>
#include <cstdlib>

#include "ui/MainLoop.h"

int main(int argc, char** argv) {
    if (!std::getenv("DISPLAY") || !*std::getenv("DISPLAY")) {
        std::fprintf(stderr, "jorvane: no X display (DISPLAY is not set). Jorvane needs an X11 session.\n");
        return 2;
    }
    QApplication app(argc, argv);
    QApplication::setApplicationName("Jorvane");
    QApplication::setQuitOnLastWindowClosed(false);
    jorvane::ui::MainLoop loop;
    return QApplication::exec();
}
