#include "ui/QtAlerts.h"

#include <QCheckBox>
#include <QLabel>
#include <QPushButton>

#include <memory>
#include <string>
#include <vector>

#include "ui/ByteText.h"

namespace jorvane::ui {

namespace {

constexpr const char* kAnswerProperty = "jorvaneAnswer";

QMessageBox::Icon iconFor(AlertSpec::Style style) {
    switch (style) {
        case AlertSpec::Style::informational: return QMessageBox::Information;
        case AlertSpec::Style::critical: return QMessageBox::Critical;
        case AlertSpec::Style::warning: break;
    }
    return QMessageBox::Warning;
}

}  // namespace

QMessageBox* QtAlerts::makeMessageBox(const AlertSpec& alert, QWidget* parent) {
    auto* box = new QMessageBox(parent);
    box->setWindowTitle(fromBytes(alert.windowTitle.empty() ? std::string("Jorvane") : alert.windowTitle));
    box->setIcon(iconFor(alert.style));
    // File names and paths go into these texts: never read them as markup.
    box->setTextFormat(Qt::PlainText);
    box->setText(fromBytes(alert.messageText));
    if (!alert.informativeText.empty()) {
        box->setInformativeText(fromBytes(alert.informativeText));
        if (auto* informative = box->findChild<QLabel*>(QStringLiteral("qt_msgbox_informativelabel")))
            informative->setTextFormat(Qt::PlainText);
    }

    std::vector<std::string> titles = alert.buttons;
    if (titles.empty()) titles.emplace_back("OK");
    // One role for every button, so that the button box keeps the order they
    // are added in; added last first, the first button ends up at the right.
    std::vector<QPushButton*> buttons(titles.size());
    for (std::size_t i = titles.size(); i-- > 0;) {
        buttons[i] = box->addButton(fromBytes(titles[i]), QMessageBox::ActionRole);
        buttons[i]->setProperty(kAnswerProperty, kAlertFirstButton + static_cast<int>(i));
    }
    box->setDefaultButton(buttons.front());
    for (std::size_t i = 0; i < titles.size(); ++i) {
        if (titles[i] == "Cancel") box->setEscapeButton(buttons[i]);
    }
    if (alert.checkBox) {
        auto* checkBox = new QCheckBox(fromBytes(*alert.checkBox), box);
        checkBox->setChecked(alert.checkBoxOn);
        box->setCheckBox(checkBox);
    }
    box->setWindowFlag(Qt::WindowStaysOnTopHint);
    return box;
}

int QtAlerts::answerOf(const QMessageBox& box) {
    // Escape and the window's close button click the escape button; an alert
    // that ends without any click (the session ends) was not answered.
    const QAbstractButton* clicked = box.clickedButton();
    return clicked ? clicked->property(kAnswerProperty).toInt() : kAlertNotAnswered;
}

AlertResult QtAlerts::resultOf(const QMessageBox& box) {
    const QCheckBox* checkBox = box.checkBox();
    return {answerOf(box), checkBox && checkBox->isChecked()};
}

int QtAlerts::runModal(const AlertSpec& alert) { return runModalWithResult(alert).button; }

AlertResult QtAlerts::runModalWithResult(const AlertSpec& alert) {
    const std::unique_ptr<QMessageBox> box(makeMessageBox(alert));
    box->show();
    box->raise();
    box->activateWindow();
    box->exec();
    return resultOf(*box);
}

}  // namespace jorvane::ui
