// The address bar's Qt views on the offscreen platform, with the controller
// replaced by a recorder of the events the widgets report: inline completion's
// edge cases, the animated frame, the spinner's timer, the list's arrow and
// the views' end. (Keys, typed completion, names that are not UTF-8, the list,
// focus and the context menu are the whole-program tests', on X.)
#include <gtest/gtest.h>

#include <QApplication>
#include <QTest>

#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "ui/BusySpinner.h"
#include "ui/CompletionsPopup.h"
#include "ui/PathBar.h"
#include "ui/PathBarWindow.h"
#include "ui/QtPathWindowViews.h"
#include "ui/QtScreens.h"

namespace jorvane::ui {
namespace {

// A stand-in for the controller: logs what the widgets report and answers
// what the test set.
class PathBarTest : public ::testing::Test {
protected:
    void SetUp() override {
        qt_ = makePathWindowViews();
        PathWindowEvents& events = *qt_.events;
        events.handleKeyDown = [this](const KeyEvent& event) {
            char entry[64];
            std::snprintf(entry, sizeof entry, "key %u 0x%llx", event.keyCode,
                          static_cast<unsigned long long>(event.modifierFlags & kShortcutModifierMask));
            log_.emplace_back(entry);
            return false;
        };
        events.handleEditCommand = [](TextCommand) { return false; };
        events.textChanged = [this] { log_.emplace_back("changed"); };
        events.completedString = [this](std::string_view typed) {
            log_.push_back("complete " + std::string(typed));
            return completion_;
        };
        events.popupButtonClicked = [this] { log_.emplace_back("arrow"); };
    }

    PathWindowViews& views() { return qt_.views; }
    PathBar& bar() { return *qt_.bar.lock(); }
    PathLineEdit& field() { return *bar().field(); }

    // Puts the bar on screen with the keyboard, as the controller's show does.
    void showBar() {
        views().panel->setFrame({{50, 300}, {400, 24}}, true, false);
        views().panel->raise();
        views().panel->focus();
        ASSERT_TRUE(QTest::qWaitForWindowActive(bar().window()));
    }

    void type(const QString& text) { QTest::keyClicks(&field(), text); }

    QtPathWindow qt_;
    std::vector<std::string> log_;
    std::optional<std::string> completion_;
};

// ---- inline completion

struct CompletionCase {
    const char* name;
    const char* before;
    int cursor;  // -1: at the end
    const char* completion;
    const char* typed;
    const char* text;
    const char* selected;
    std::vector<std::string> log;  // empty: not looked at
};

std::ostream& operator<<(std::ostream& out, const CompletionCase& c) { return out << c.name; }

class InlineCompletion : public PathBarTest, public ::testing::WithParamInterface<CompletionCase> {};

TEST_P(InlineCompletion, leavesThisTextAndSelection) {
    const CompletionCase& c = GetParam();
    showBar();
    views().field->setStringValue(c.before);
    if (c.cursor >= 0) field().setCursorPosition(c.cursor);
    completion_ = c.completion;
    type(QString::fromUtf8(c.typed));
    EXPECT_EQ(field().text().toStdString(), c.text);
    EXPECT_EQ(field().selectedText().toStdString(), c.selected);
    if (!c.log.empty()) {
        EXPECT_EQ(log_, c.log);
    }
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(PathBar, InlineCompletion, ::testing::Values(
    CompletionCase{"A_completion_in_another_case_replaces_the_typed_text", "/U", -1, "/usr/", "S", "/usr/", "r/", {}},
    CompletionCase{"A_completion_that_does_not_extend_the_text_changes_nothing", "/u", -1, "/var/", "s", "/us", "",
                   {"key 1 0x0", "changed", "complete /us"}},
    CompletionCase{"A_completion_equal_to_the_text_selects_nothing", "/us", -1, "/us", "r", "/usr", "",
                   {"key 15 0x0", "changed", "complete /usr"}},
    CompletionCase{"Typing_inside_the_text_asks_for_no_completion", "/usr", 1, "/usr/share/", "x", "/xusr", "",
                   {"key 7 0x0", "changed"}}),
    [](const auto& row) { return std::string(row.param.name); });
// clang-format on

TEST_F(PathBarTest, textSetByTheControllerIsNotAnEdit) {
    views().field->setStringValue("/tmp/");
    EXPECT_TRUE(log_.empty());
    EXPECT_EQ(views().field->selectedRange(), (TextRange{5, 0})) << "the caret at the end";
}

// ---- frames

TEST_F(PathBarTest, anAnimatedResizeEndsExactlyOnTheFrame) {
    showBar();
    const double height = firstScreenHeight();
    views().panel->setFrame({{60, height - 100}, {500, 24}}, true, true);
    EXPECT_TRUE(bar().isAnimating());
    EXPECT_EQ(views().panel->frame().size.width, 500) << "the frame is the target at once";
    const QRect target(60, 76, 500, 24);
    EXPECT_TRUE(QTest::qWaitFor([&] { return bar().window()->geometry() == target; }, 2000));
    EXPECT_FALSE(bar().isAnimating());
}

TEST_F(PathBarTest, aHiddenBarJumpsInsteadOfAnimating) {
    views().panel->setFrame({{60, 100}, {500, 24}}, true, true);
    EXPECT_FALSE(bar().isAnimating());
    EXPECT_EQ(bar().window()->width(), 500);
}

// ---- spinner

TEST_F(PathBarTest, theSpinnersTimerRunsOnlyWhileItAnimatesOnScreen) {
    BusySpinner& spinner = *bar().spinner();
    EXPECT_TRUE(views().spinner->isHidden()) << "hidden as the bar comes";
    views().spinner->startAnimation();
    views().spinner->setHidden(false);
    EXPECT_FALSE(views().spinner->isHidden());
    EXPECT_FALSE(spinner.isTicking()) << "the bar is not on screen";

    showBar();
    EXPECT_TRUE(spinner.isTicking());
    views().spinner->setHidden(true);
    EXPECT_FALSE(spinner.isTicking()) << "hidden, not stopped";
    EXPECT_TRUE(spinner.isAnimating());
    views().spinner->setHidden(false);
    EXPECT_TRUE(spinner.isTicking());

    views().panel->hide();
    EXPECT_FALSE(spinner.isTicking()) << "in a hidden bar";
    EXPECT_FALSE(views().spinner->isHidden()) << "its own state is kept";
}

TEST_F(PathBarTest, theArrowAtTheFieldsRightEndReportsAClick) {
    showBar();
    QTest::mouseClick(&field(), Qt::LeftButton, {}, field().arrowRect().center());
    EXPECT_EQ(log_, (std::vector<std::string>{"arrow"}));
    QTest::mouseClick(&field(), Qt::LeftButton, {}, QPoint(40, 10));
    EXPECT_EQ(log_.size(), 1u) << "a click in the text is the field's";
}

TEST_F(PathBarTest, theViewsGoingAwayCloseTheWindowsAndSilenceTheEvents) {
    showBar();
    QPointer<PathBarWindow> window = bar().window();
    qt_.views = {};
    EXPECT_TRUE(qt_.bar.expired());
    QApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    EXPECT_TRUE(window.isNull());
}

}  // namespace
}  // namespace jorvane::ui
