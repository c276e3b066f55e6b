#pragma once

class QWidget;

namespace jorvane::ui {

// Sizes a top-level window to its contents, centres it on the primary
// screen's free area and brings it to the front with the keyboard: how the
// program's own windows (preferences, about) open.
void showCentred(QWidget& window);

}  // namespace jorvane::ui
