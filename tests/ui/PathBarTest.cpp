// The address bar's Qt views on the offscreen platform, with the controller
// replaced by a recorder of the events the widgets report: the order of the
// key stations, inline completion, the animated frame, the spinner's timer,
// the completion list and focus. (The bar's place, typed inline completion,
// the list under the field, a click on a list row and the context menu are
// the whole-program tests', on X.)
#include <gtest/gtest.h>

#include <QApplication>
#include <QTest>

#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "ui/BusySpinner.h"
#include "ui/ByteText.h"
#include "ui/CompletionsPopup.h"
#include "ui/PathBar.h"
#include "ui/PathBarWindow.h"
#include "ui/QtPathWindowViews.h"
#include "ui/QtScreens.h"

namespace jorvane::ui {
namespace {

// TextCommand's values in their order.
// clang-format off
constexpr const char* kCommandNames[] = {"moveDown", "moveUp", "insertNewline", "insertTab", "insertBacktab",
    "moveToBeginningOfDocument", "moveToEndOfDocument", "cancelOperation", "other"};
// clang-format on

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
            return handleKeyDownAnswer_;
        };
        events.handleEditCommand = [this](TextCommand command) {
            log_.push_back(std::string("command ") + kCommandNames[static_cast<int>(command)]);
            return commandAnswer_;
        };
        events.textChanged = [this] { log_.emplace_back("changed"); };
        events.completedString = [this](std::string_view typed) {
            log_.push_back("complete " + std::string(typed));
            return completion_;
        };
        events.popupButtonClicked = [this] { log_.emplace_back("arrow"); };
        events.completionChosen = [this] {
            log_.push_back("chosen " + std::to_string(views().completions->selectedRow()));
        };
        events.focusLost = [this] { log_.emplace_back("resignKey"); };
        events.didOrderOut = [this] { log_.emplace_back("didOrderOut"); };
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
    bool handleKeyDownAnswer_ = false;
    bool commandAnswer_ = false;
    std::optional<std::string> completion_;
};

// ---- the key stations

struct RouteCase {
    const char* name;
    Qt::Key key;
    Qt::KeyboardModifiers modifiers;
    bool handleKeyDownAnswer;
    bool commandAnswer;
    std::vector<std::string> log;
    const char* textAfter;
};

std::ostream& operator<<(std::ostream& out, const RouteCase& c) { return out << c.name; }

class KeyStations : public PathBarTest, public ::testing::WithParamInterface<RouteCase> {};

TEST_P(KeyStations, reportInThisOrderAndLeaveThisText) {
    const RouteCase& c = GetParam();
    showBar();
    views().field->setStringValue("abc");
    handleKeyDownAnswer_ = c.handleKeyDownAnswer;
    commandAnswer_ = c.commandAnswer;
    QTest::keyClick(&field(), c.key, c.modifiers);
    EXPECT_EQ(log_, c.log);
    EXPECT_EQ(field().text().toStdString(), c.textAfter);
}

constexpr Qt::KeyboardModifiers kNone = Qt::NoModifier;
constexpr Qt::KeyboardModifiers kCtrl = Qt::ControlModifier;

// clang-format off
INSTANTIATE_TEST_SUITE_P(PathBar, KeyStations, ::testing::Values(
    RouteCase{"Ctrl_W_taken_by_the_controller_goes_no_further", Qt::Key_W, kCtrl, true, false,
              {"key 13 0x100000"}, "abc"},
    RouteCase{"Ctrl_W_declined_by_the_controller_is_dropped_by_the_field_editor", Qt::Key_W, kCtrl, false, true,
              {"key 13 0x100000"}, "abc"},
    RouteCase{"Ctrl_A_declined_is_not_a_command_and_the_field_selects_all", Qt::Key_A, kCtrl, false, true,
              {"key 0 0x100000"}, "abc"},
    RouteCase{"A_typed_letter_is_offered_first_then_edits_and_asks_for_a_completion", Qt::Key_X, kNone, false, false,
              {"key 7 0x0", "changed", "complete abcx"}, "abcx"},
    RouteCase{"Backspace_edits_without_asking_for_a_completion", Qt::Key_Backspace, kNone, false, false,
              {"key 51 0x0", "changed"}, "ab"},
    RouteCase{"Return_taken_by_handleKeyDown_never_becomes_a_command", Qt::Key_Return, kNone, true, true,
              {"key 36 0x0"}, "abc"},
    RouteCase{"Return_declined_by_handleKeyDown_becomes_insertNewline", Qt::Key_Return, kNone, false, true,
              {"key 36 0x0", "command insertNewline"}, "abc"},
    RouteCase{"Down_becomes_moveDown", Qt::Key_Down, kNone, false, true,
              {"key 125 0x0", "command moveDown"}, "abc"},
    RouteCase{"Tab_becomes_insertTab", Qt::Key_Tab, kNone, false, true, {"key 48 0x0", "command insertTab"}, "abc"},
    RouteCase{"Shift_Tab_becomes_insertBacktab", Qt::Key_Backtab, Qt::ShiftModifier, false, true,
              {"key 48 0x20000", "command insertBacktab"}, "abc"},
    RouteCase{"A_command_the_controller_declines_is_left_to_the_field", Qt::Key_Left, kNone, false, false,
              {"key 123 0x0"}, "abc"}),
    [](const auto& row) { return std::string(row.param.name); });
// clang-format on

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

TEST_F(PathBarTest, namesThatAreNotUtf8ReachTheCoreAsTheSameBytes) {
    showBar();
    const std::string latin1 = "/tmp/caf\xE9/\xC3\xA9t\xC3\xA9";
    views().field->setStringValue(latin1);
    EXPECT_EQ(views().field->stringValue(), latin1);
    views().field->setSelectedRange({8, 2});
    EXPECT_EQ(field().selectedText().size(), 2) << "the escaped byte and the slash";
    EXPECT_EQ(views().field->selectedRange(), (TextRange{8, 2}));

    // A completion of such a name keeps its bytes too.
    completion_ = "/tmp/caf\xE9/";
    views().field->setStringValue("/tmp/ca");
    type(QStringLiteral("f"));
    EXPECT_EQ(views().field->stringValue(), "/tmp/caf\xE9/");
    EXPECT_EQ(views().field->selectedRange(), (TextRange{8, 2}));
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

// ---- the completion list

TEST_F(PathBarTest, theListShowsTheCandidatesAndTheControllerDrivesItsSelection) {
    CompletionsListView& list = *views().completions;
    EXPECT_EQ(list.rowHeight(), 17);
    list.setContent({"/tmp/a/", "/tmp/caf\xE9", "/tmp/ccc"});
    EXPECT_EQ(list.selectedRow(), -1);
    list.selectRow(1);
    EXPECT_EQ(list.selectedRow(), 1);
    list.selectRow(3);
    EXPECT_EQ(list.selectedRow(), 1) << "rows outside the content are ignored";
    list.deselectAll();
    EXPECT_EQ(list.selectedRow(), -1);
    list.selectRow(2);
    list.setContent({"/tmp/x"});
    EXPECT_EQ(list.selectedRow(), -1) << "new content drops the selection";

    list.setContent({"/tmp/a/", "/tmp/caf\xE9", "/tmp/ccc"});
    EXPECT_EQ(bar().popup()->rowText(1), QString::fromUtf8("/tmp/caf\xEF\xBF\xBD"))
        << "an escaped byte shows as U+FFFD";
}

TEST_F(PathBarTest, theArrowAtTheFieldsRightEndReportsAClick) {
    showBar();
    QTest::mouseClick(&field(), Qt::LeftButton, {}, field().arrowRect().center());
    EXPECT_EQ(log_, (std::vector<std::string>{"arrow"}));
    QTest::mouseClick(&field(), Qt::LeftButton, {}, QPoint(40, 10));
    EXPECT_EQ(log_.size(), 1u) << "a click in the text is the field's";
}

// ---- focus

TEST_F(PathBarTest, losingTheKeyboardOnScreenResignsButHidingDoesNot) {
    showBar();
    QWidget other;
    other.setGeometry(0, 0, 100, 100);
    other.show();
    other.activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(&other));
    EXPECT_EQ(log_, (std::vector<std::string>{"resignKey"}));

    log_.clear();
    views().panel->hide();
    EXPECT_TRUE(log_.empty()) << "not key any more: the keyboard is elsewhere already";

    showBar();
    log_.clear();
    views().panel->hide();
    EXPECT_EQ(log_, (std::vector<std::string>{"didOrderOut"})) << "the keyboard goes back to the file manager";
    QApplication::processEvents();
    EXPECT_EQ(log_.size(), 1u) << "no resignation for a bar that is gone";
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
