#pragma once

// Modal alerts: the only way the program tells the user something or asks a
// question. Texts are UTF-8 and shown as plain text. The buttons keep their
// order: the first is the default (Return) and answers 1000, the next 1001,
// and so on. An alert without buttons gets one, "OK", answering 1000. The
// application titles every alert "Jorvane". An alert may carry a check box
// below its texts (its accessory); the answer then reports the box's state
// as the user left it.

#include <optional>
#include <string>
#include <vector>

namespace jorvane {

// The answer of the first button; the n-th button answers this + n - 1.
inline constexpr int kAlertFirstButton = 1000;
inline constexpr int kAlertSecondButton = 1001;
inline constexpr int kAlertThirdButton = 1002;
// The answer of an alert that closed without one (the session ended, the
// program was asked to quit): it chose nothing.
inline constexpr int kAlertNotAnswered = 0;

struct AlertSpec {
    enum class Style { warning = 0, informational = 1, critical = 2 };

    std::string messageText;
    std::string informativeText;
    std::vector<std::string> buttons;
    Style style = Style::warning;
    std::string windowTitle = "Jorvane";
    // The check box's title; no box when there is none.
    std::optional<std::string> checkBox = std::nullopt;
    bool checkBoxOn = true;  // its state when the alert opens
};

struct AlertResult {
    int button = kAlertFirstButton;
    // The box's state when the alert closed; false without a box.
    bool checkBoxOn = false;
};

class Alerts {
public:
    virtual ~Alerts() = default;
    // Shows the alert and waits until the user has chosen a button; returns
    // that button's answer. Main thread only.
    virtual int runModal(const AlertSpec& alert) = 0;
    // The same, answering the check box's state too. Alerts that cannot show
    // a box answer its initial state.
    virtual AlertResult runModalWithResult(const AlertSpec& alert) {
        return {runModal(alert), alert.checkBox && alert.checkBoxOn};
    }
};

}  // namespace jorvane
