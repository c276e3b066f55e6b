// Alerts as Qt message boxes: the buttons keep their order and answers, the
// texts are plain, and runModal returns the chosen button's answer.
#include <gtest/gtest.h>

#include <QApplication>
#include <QCheckBox>
#include <QLabel>
#include <QPushButton>
#include <QTest>
#include <QTimer>

#include <algorithm>
#include <memory>

#include "ui/QtAlerts.h"

namespace jorvane::ui {
namespace {

std::unique_ptr<QMessageBox> boxFor(const AlertSpec& alert) {
    return std::unique_ptr<QMessageBox>(QtAlerts::makeMessageBox(alert));
}

QPushButton* buttonTitled(QMessageBox& box, const char* title) {
    for (QAbstractButton* button : box.buttons()) {
        if (button->text() == QString::fromUtf8(title)) return qobject_cast<QPushButton*>(button);
    }
    return nullptr;
}

TEST(QtAlerts, buttonsAnswerInTheirOrderAndTheFirstIsTheDefaultAtTheRight) {
    const AlertSpec alert{"Move to the applications folder?", "", {"Move", "Do Not Move", "Quit"}};
    auto box = boxFor(alert);
    EXPECT_EQ(QtAlerts::answerOf(*box), kAlertNotAnswered) << "closed without a click, it chose nothing";
    box->show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(box.get()));
    QPushButton* move = buttonTitled(*box, "Move");
    QPushButton* stay = buttonTitled(*box, "Do Not Move");
    QPushButton* quit = buttonTitled(*box, "Quit");
    ASSERT_TRUE(move && stay && quit);
    EXPECT_EQ(box->defaultButton(), move);
    EXPECT_GT(move->mapToGlobal(QPoint()).x(), stay->mapToGlobal(QPoint()).x());
    EXPECT_GT(stay->mapToGlobal(QPoint()).x(), quit->mapToGlobal(QPoint()).x());

    quit->click();
    EXPECT_EQ(QtAlerts::answerOf(*box), 1002);
    move->click();
    EXPECT_EQ(QtAlerts::answerOf(*box), kAlertFirstButton);
    stay->click();
    EXPECT_EQ(QtAlerts::answerOf(*box), kAlertSecondButton);
}

TEST(QtAlerts, textsArePlainAndTheTitleIsJorvanes) {
    AlertSpec alert{"<b>/tmp/a&b</b> is gone", "The folder <i>x</i> was moved.", {"OK"}, AlertSpec::Style::critical};
    auto box = boxFor(alert);
    EXPECT_EQ(box->windowTitle(), QStringLiteral("Jorvane"));
    EXPECT_EQ(box->icon(), QMessageBox::Critical);
    EXPECT_EQ(box->textFormat(), Qt::PlainText);
    EXPECT_EQ(box->text(), QStringLiteral("<b>/tmp/a&b</b> is gone"));
    auto* informative = box->findChild<QLabel*>(QStringLiteral("qt_msgbox_informativelabel"));
    ASSERT_NE(informative, nullptr);
    EXPECT_EQ(informative->textFormat(), Qt::PlainText);

    EXPECT_EQ(boxFor({"a", "", {}, AlertSpec::Style::informational})->icon(), QMessageBox::Information);
    EXPECT_EQ(boxFor({"a", "", {}})->icon(), QMessageBox::Warning) << "warning unless told otherwise";
}

TEST(QtAlerts, withoutButtonsThereIsOneOkThatEscapeAnswersToo) {
    auto box = boxFor({"Done.", "", {}});
    ASSERT_EQ(box->buttons().size(), 1);
    EXPECT_EQ(box->buttons().front()->text(), QStringLiteral("OK"));
    box->show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(box.get()));
    QTest::keyClick(box.get(), Qt::Key_Escape);
    EXPECT_EQ(QtAlerts::answerOf(*box), kAlertFirstButton);
}

TEST(QtAlerts, escapeAnswersTheCancelButtonOnly) {
    auto withCancel = boxFor({"Uninstall?", "", {"Uninstall", "Cancel"}});
    EXPECT_EQ(withCancel->escapeButton(), buttonTitled(*withCancel, "Cancel"));
    auto without = boxFor({"Welcome", "", {"Continue", "Quit"}});
    EXPECT_EQ(without->escapeButton(), nullptr) << "the user has to choose";
}

// A box offered ticked, and none where none is asked for, are the first-launch test's.
TEST(QtAlerts, aCheckBoxShowsItsStateAndTheAnswerReportsItAsLeft) {
    AlertSpec alert{"Welcome", "", {"Start", "Quit"}};
    EXPECT_FALSE(QtAlerts::resultOf(*boxFor(alert)).checkBoxOn) << "no box reads as off";
    alert.checkBox = "Move it";
    alert.checkBoxOn = false;
    EXPECT_FALSE(boxFor(alert)->checkBox()->isChecked());

    QtAlerts alerts;
    alert.checkBoxOn = true;
    QTimer::singleShot(0, [] {
        auto* shown = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
        ASSERT_NE(shown, nullptr);
        shown->checkBox()->click();
        buttonTitled(*shown, "Start")->click();
    });
    const AlertResult result = alerts.runModalWithResult(alert);
    EXPECT_EQ(result.button, kAlertFirstButton);
    EXPECT_FALSE(result.checkBoxOn) << "the user turned the box off";
}

}  // namespace
}  // namespace jorvane::ui
