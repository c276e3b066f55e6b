#pragma once

// Alerts as Qt message boxes. The first button sits at the right and is the
// default, the others follow to its left in order, as the desktop's dialogs
// place their affirmative button last. Escape answers a button titled
// "Cancel" when there is one (and only then can the box be closed without
// choosing); the box stays above other windows and takes the focus, since
// the program has no window of its own to come from.

#include <QMessageBox>

#include <functional>

#include "app/Alerts.h"

namespace jorvane::ui {

class QtAlerts final : public Alerts {
public:
    int runModal(const AlertSpec& alert) override;
    AlertResult runModalWithResult(const AlertSpec& alert) override;

    // The message box for an alert, with each button's answer in its
    // "jorvaneAnswer" property (for runModal and tests).
    static QMessageBox* makeMessageBox(const AlertSpec& alert, QWidget* parent = nullptr);
    // The answer of the button the user chose in such a box.
    static int answerOf(const QMessageBox& box);
    // The answer with the state of the box's check box (false without one).
    static AlertResult resultOf(const QMessageBox& box);
};

}  // namespace jorvane::ui
