// The bar's panel: placement over the window, opening and hiding, the delayed spinner, the completion list.
#include "PathWindowControllerFixture.h"
#include "fakes/GatedFolderSource.h"

#include <gmock/gmock.h>

#include <stdexcept>

namespace jorvane::test {
namespace {

using test::PrintTo;
using testing::ElementsAre;
using Strings = std::vector<std::string>;

struct GeometryRow {
    const char* name;
    Rect window;
    std::optional<double> titleWidth;  // none: the window has no title element
    double textWidth;
    bool visible;
    double panelWidthBefore;
    std::vector<Rect> screens;
    std::optional<Rect> expected;  // none: the panel is neither moved nor resized
};

class UpdateSize : public PathWindowControllerTable<GeometryRow> {};

TEST_P(UpdateSize, Row) {
    const GeometryRow& row = GetParam();
    ax_->setFrame(window_, row.window);
    if (row.titleWidth)
        ax_->setFrame(title_, {{row.window.origin.x + 10, row.window.origin.y + 3}, {*row.titleWidth, 16}});
    else
        ax_->destroy(title_);
    screens_.setScreenFrames(row.screens);
    views_.panel().setFrameSilently({{500, 500}, {row.panelWidthBefore, kPanelHeight}});
    views_.panel().setVisible(row.visible);
    views_.field().setTextWidthMeasure([w = row.textWidth](const std::string&) { return w; });
    bar().updateSize();
    if (!row.expected) {
        EXPECT_TRUE(views_.panel().frameChanges().empty());
        EXPECT_EQ(views_.spinner().frameOrigin(), (Point{0, 3}));
        return;
    }
    ASSERT_EQ(views_.panel().frameChanges().size(), 1u);
    const FakePathPanel::FrameChange& change = views_.panel().frameChanges().front();
    EXPECT_EQ(describe(change.frame), describe(*row.expected));
    EXPECT_TRUE(change.display);
    EXPECT_EQ(change.animate, row.visible);
    EXPECT_EQ(views_.spinner().frameOrigin(), (Point{row.expected->size.width - 50, 3}));
}

constexpr Rect kWindow{{100, 50}, {600, 400}};
const std::vector<Rect> kOneScreen{{{0, 0}, {1440, 900}}};
const std::vector<Rect> kTwoScreens{{{0, 0}, {1440, 900}}, {{1440, -300}, {1920, 1200}}};
constexpr double kY = 829;  // a window at 50 on the 900-point screen: 900 - 50 - 22 + 1
constexpr double kH = PathWindowControllerFixture::kPanelHeight;

// clang-format off
const GeometryRow kGeometryRows[] = {
    {"an empty field over a 600 point window takes a third of the window", kWindow, 120, 0, false, 0, kOneScreen,
     Rect{{300, kY}, {200, kH}}},
    {"a long path is capped 160 points short of the window", kWindow, 120, 1000, false, 0, kOneScreen,
     Rect{{180, kY}, {440, kH}}},
    {"a text between the bounds gets its width plus 150 truncated", kWindow, 120, 123.7, false, 0, kOneScreen,
     Rect{{264, kY}, {273, kH}}},
    {"a wide title raises the lower bound to the title plus 50", kWindow, 300, 0, false, 0, kOneScreen,
     Rect{{225, kY}, {350, kH}}},
    {"a window narrower than 240 points takes the upper bound even when negative", {{100, 50}, {150, 300}}, 0, 0,
     false, 0, kOneScreen, Rect{{180, kY}, {-10, kH}}},
    {"a visible panel wider than its text keeps its width", kWindow, 120, 0, true, 400, kOneScreen,
     Rect{{200, kY}, {400, kH}}},
    {"a visible panel narrower than its text grows", kWindow, 120, 200, true, 210, kOneScreen,
     Rect{{225, kY}, {350, kH}}},
    {"a visible panel wider than the upper bound is cut to it", kWindow, 120, 0, true, 500, kOneScreen,
     Rect{{180, kY}, {440, kH}}},
    {"a hidden panel shrinks to its text", kWindow, 120, 0, false, 400, kOneScreen, Rect{{300, kY}, {200, kH}}},
    {"a window on the second screen is flipped with the first screen's height", {{1600, 100}, {600, 400}}, 120, 0,
     false, 0, kTwoScreens, Rect{{1800, 779}, {200, kH}}},
    {"with no screen known the flip uses a height of zero", kWindow, 120, 0, false, 0, {}, Rect{{300, -71}, {200, kH}}},
    {"a window without a title element is not placed", kWindow, std::nullopt, 0, true, 300, kOneScreen, std::nullopt},
};
// clang-format on
INSTANTIATE_TEST_SUITE_P(PathWindowController, UpdateSize, testing::ValuesIn(kGeometryRows), SentenceName{});

TEST_F(PathWindowControllerTest, ThePanelIsAsHighAsTheWindowManagersTitleBandWhenTheWindowHasOne) {
    // Band height -> panel height (one point above the window) and spinner y.
    const std::tuple<std::int64_t, double, double> rows[] = {{20, 21, 3}, {29, 30, 7}, {4, kPanelHeight, 3}};
    for (const auto& [band, height, spinnerY] : rows) {
        SCOPED_TRACE(band);
        ax_->setFrame(window_, kWindow);
        ax_->setAttribute(window_, Attribute::TitleBandHeight, band);
        screens_.setScreenFrames(kOneScreen);
        views_.panel().setFrameSilently({{500, 500}, {200, kPanelHeight}});
        views_.spinner().setFrameOrigin({0, 3});
        bar().updateSize();
        EXPECT_EQ(describe(views_.panel().frame()), describe(Rect{{300, 900 - 50 - height + 1}, {200, height}}));
        EXPECT_EQ(views_.spinner().frameOrigin().y, spinnerY);
    }
}

struct ShowRow {
    const char* name;
    bool fill;
    std::int64_t behaviour;
    std::optional<std::string> folder, selection;
    bool asksSelection;
    const char* field;
    BarImage image;
};

class Show : public PathWindowControllerTable<ShowRow> {};

TEST_P(Show, Row) {
    const ShowRow& row = GetParam();
    defaults_->setInteger(row.behaviour, settings::keys::activationPathBehaviour);
    catalogue_->answer(handlers::folderPath, row.folder);
    catalogue_->answer(handlers::selectedItem, row.selection);
    views_.field().type("left over");
    bar().show(row.fill);
    settle();
    Strings calls{"is_folder_window"};
    if (row.fill) calls.push_back("folder_path");
    if (row.asksSelection) calls.push_back("selected_item");
    EXPECT_EQ(handlerCalls(), calls);
    EXPECT_EQ(views_.field().stringValue(), row.field);
    EXPECT_EQ(views_.field().image(), row.image);
    EXPECT_EQ(bar().currentImage(), row.image);
    EXPECT_TRUE(views_.panel().isVisible() && views_.panel().isKey() && views_.spinner().isHidden());
    EXPECT_EQ(bar().storedFileManagerLocation(), row.fill ? row.folder : std::nullopt);
}

const BarImage kSrvIcon = BarImage::iconForFile("/srv/data");
// clang-format off
const ShowRow kShowRows[] = {
    {"behaviour 1 fills the field with the folder and its icon", true, 1, "/srv/data", "/srv/data/file", false,
     "/srv/data", kSrvIcon},
    {"behaviour 0 fills the field with the selection and the folder's icon", true, 0, "/srv/data", "/srv/data/file",
     true, "/srv/data/file", kSrvIcon},
    {"behaviour 2 also fills the field with the selection", true, 2, "/srv/data", "/srv/data/file", true,
     "/srv/data/file", kSrvIcon},
    {"no selection leaves the field empty", true, 0, "/srv/data", std::nullopt, true, "", kSrvIcon},
    {"no folder shows an empty field and the search image", true, 1, std::nullopt, "/x", false, "", BarImage::search()},
    {"no folder with behaviour 0 shows the selection and the search image", true, 0, std::nullopt, "/x", true, "/x",
     BarImage::search()},
    {"without filling the field is empty in search form", false, 1, "/srv/data", "/x", false, "", BarImage::search()},
};
// clang-format on
INSTANTIATE_TEST_SUITE_P(PathWindowController, Show, testing::ValuesIn(kShowRows), SentenceName{});

TEST_F(PathWindowControllerTest, ShowOpensTheBarBeforeAskingAndFillsItWhenTheAnswersCome) {
    catalogue_->answer(handlers::folderPath, "/srv");
    catalogue_->hold(handlers::isFolderWindow);
    bar().show(true, true);
    // Open and with the keyboard while the file manager has not answered yet.
    EXPECT_TRUE(views_.panel().isVisible() && views_.panel().isKey());
    catalogue_->releaseAll();
    settle();
    EXPECT_THAT(handlerCalls(), ElementsAre("is_folder_window", "folder_path"));
    EXPECT_THAT(logged({"panel.raise", "panel.focus", "panel.setFrame", "field.setStringValue", "field.selectAll",
                        "field.setImage", "spinner.hide"}),
                ElementsAre("field.setStringValue ", "panel.setFrame 300,829 200x22", "panel.raise", "panel.focus",
                            "spinner.hide", "field.setStringValue /srv", "field.selectAll", "field.setImage icon:/srv",
                            "panel.setFrame 300,829 200x22 animated", "panel.raise"));
}

TEST_F(PathWindowControllerTest, AnswersThatComeLateLeaveTextTypedMeanwhileAndAHiddenOrReopenedBarAlone) {
    catalogue_->answer(handlers::folderPath, "/srv");
    const auto openWhileHeld = [&] {
        catalogue_->hold(handlers::isFolderWindow);
        bar().show();
        ASSERT_TRUE(catalogue_->waitForHeld(handlers::isFolderWindow, 1));
    };
    // Typed before the answers came: the text stays, the folder is known.
    openWhileHeld();
    views_.field().type("proj");
    catalogue_->releaseAll();
    settle();
    EXPECT_EQ(views_.field().stringValue(), "proj");
    EXPECT_EQ(bar().storedFileManagerLocation(), "/srv");
    // Hidden before they came: they neither fill nor reopen it.
    openWhileHeld();
    bar().hide();
    catalogue_->releaseAll();
    settle();
    EXPECT_FALSE(views_.panel().isVisible());
    EXPECT_EQ(views_.field().stringValue(), "");
    // Opened again before they came: only the last opening's answers count.
    catalogue_->answer(handlers::isFolderWindow, "YES");
    catalogue_->answerOnce(handlers::isFolderWindow, "NO");
    openWhileHeld();
    bar().show();
    catalogue_->releaseAll();
    settle();
    EXPECT_TRUE(views_.panel().isVisible());
    EXPECT_EQ(views_.field().stringValue(), "/srv");
}

TEST(PathWindowControllerShow, OnlyAnAnswerOfNoHidesTheBarAndItsArmedSpinner) {
    for (const auto& [answer, hides] : std::vector<std::pair<std::optional<std::string>, bool>>{
             {"NO", true}, {"no", false}, {std::nullopt, false}, {"YES", false}}) {
        SCOPED_TRACE(answer.value_or("none"));
        PathWindowControllerFixture f;
        f.catalogue_->answer(handlers::isFolderWindow, answer);
        f.bar().show();
        f.settle();
        EXPECT_EQ(f.views_.panel().isVisible(), !hides);
        EXPECT_EQ(f.catalogue_->callCount(handlers::folderPath), hides ? 0u : 1u);
        // Only a bar that stays stops the spinner armed on opening; the next opening hides it.
        f.advance(0.3);
        EXPECT_EQ(f.views_.spinner().isHidden(), !hides);
        f.catalogue_->answer(handlers::isFolderWindow, "YES");
        f.bar().show();
        f.settle();
        EXPECT_TRUE(f.views_.spinner().isHidden());
    }
}

TEST_F(PathWindowControllerTest, TheSpinnerShowsAfterTheDelayReArmingPostponesItAndStoppingDropsIt) {
    bar().startSpinnerTimer();
    bar().stopSpinner();
    advance(1);
    EXPECT_TRUE(views_.spinner().isHidden());
    bar().startSpinnerTimer();
    advance(0.2);
    bar().startSpinnerTimer();
    advance(0.2);
    EXPECT_TRUE(views_.spinner().isHidden());
    advance(0.1);
    EXPECT_FALSE(views_.spinner().isHidden());
    EXPECT_TRUE(views_.spinner().isAnimating());
    bar().stopSpinner();
    EXPECT_TRUE(views_.spinner().isHidden());
    EXPECT_TRUE(views_.spinner().isAnimating());  // hidden, not stopped
}

TEST_F(PathWindowControllerTest, HidingAndLosingKeyStatusOrderOutThePanelAndTheList) {
    for (void (PathWindowController::*away)() : {&PathWindowController::hide, &PathWindowController::focusLost}) {
        bar().show();
        bar().popupButtonClicked();
        (bar().*away)();
        EXPECT_FALSE(views_.panel().isVisible());
        EXPECT_FALSE(views_.completions().isVisible());
    }
}

TEST_F(PathWindowControllerTest, ClosingDropsTheCompletionDataAndMissingViewsAreRefused) {
    bar().setFileManagerLocation(t("{T}"));
    views_.field().type(t("{T}/three/"));
    bar().showPopup();
    ASSERT_EQ(bar().currentCompletions().size(), 3u);
    ASSERT_FALSE(views_.completions().content().empty());
    bar().close();
    EXPECT_TRUE(views_.panel().isClosed());
    EXPECT_TRUE(bar().isClosed());
    EXPECT_TRUE(bar().currentCompletions().empty());
    EXPECT_EQ(bar().completionEngine().currentCompletionsDirectoryPath(), std::nullopt);
    EXPECT_TRUE(views_.completions().content().empty());

    PathWindowViews views = FakePathWindowViews().take();
    views.spinner.reset();
    const PathWindowController::Dependencies dependencies{bridge_, *defaults_, workspace_, screens_, delegate_};
    EXPECT_THROW(PathWindowController(ax_->element(window_), std::move(views), dependencies), std::invalid_argument);
}

TEST(PathWindowControllerPopup, SitsUnderTheFieldAsWideAsItWithAtMostSixWholeRows) {
    // The folder, the row height, the list's height.
    const std::tuple<const char*, double, double> rows[] = {
        {"{T}/empty/", 17, 20}, {"{T}/c", 17, 17}, {"{T}/nine/", 17, 102}, {"{T}/three/", 17.5, 52}};
    for (const auto& [text, rowHeight, height] : rows) {
        SCOPED_TRACE(text);
        PathWindowControllerFixture f;
        f.views_.panel().setFrameSilently({{300, 829}, {450, 22}});
        f.views_.field().setFrame({{18, 2}, {400, 18}});
        f.views_.completions().setRowHeight(rowHeight);
        f.views_.field().type(f.t(text));
        f.bar().showPopup();
        EXPECT_EQ(describe(f.views_.completions().frame()), describe({{318, 831 - height}, {400, height}}));
        EXPECT_TRUE(f.views_.completions().isVisible());
        EXPECT_EQ(f.views_.completions().content(), f.bar().currentCompletions());
        EXPECT_THAT(f.logged({"list.raise", "list.showActive", "panel.focus"}),
                    ElementsAre("list.raise", "list.showActive"));
    }
}

TEST_F(PathWindowControllerTest, TheArrowButtonAcceptsTheCompletionShowsAndThenHidesTheList) {
    views_.field().type(t("{T}/threeXYZ"), {t("{T}/three").size(), 3});
    bar().popupButtonClicked();
    EXPECT_TRUE(views_.completions().isVisible());
    EXPECT_EQ(views_.field().selectedRange(), (TextRange{t("{T}/threeXYZ").size(), 0}));
    // The whole text counts once the completion is accepted: nothing matches.
    EXPECT_TRUE(bar().currentCompletions().empty());
    bar().popupButtonClicked();
    EXPECT_FALSE(views_.completions().isVisible());
}

TEST_F(PathWindowControllerTest, ChoosingARowEntersItAndAClickWithNoRowOrNoCandidatesChangesNothing) {
    for (const char* folder : {"{T}/three/", "{T}/empty/"}) {
        views_.field().type(t(folder));
        bar().showPopup();
        views_.completions().setSelectedRowSilently(std::string(folder) == "{T}/empty/" ? 0 : -1);
        log_->clear();
        bar().completionChosen();
        settle();
        EXPECT_TRUE(log_->entries().empty());
    }
    EXPECT_TRUE(catalogue_->calls().empty());
    views_.field().type(t("{T}/three/"));
    bar().showPopup();
    views_.completions().selectRow(2);
    bar().completionChosen();
    settle();
    EXPECT_EQ(views_.field().stringValue(), t("{T}/three/ccc"));
    EXPECT_FALSE(views_.completions().isVisible());
    EXPECT_THAT(handlerCalls(), ElementsAre(t("reveal [{T}/three/ccc]")));
}

TEST_F(PathWindowControllerTest, TypingWithTheListOpenKeepsTheChosenRowOrChoosesTheFirst) {
    const auto typeAndComplete = [this](const std::string& text) {
        views_.field().type(t(text));
        bar().textChanged();
        bar().completedString(t(text));
    };
    views_.field().type(t("{T}/three/"));
    bar().showPopup();
    views_.completions().selectRow(2);
    typeAndComplete("{T}/three/c");
    EXPECT_EQ(views_.completions().content().at(views_.completions().selectedRow()), t("{T}/three/ccc"));
    typeAndComplete("{T}/three/b");
    EXPECT_EQ(views_.completions().selectedRow(), 0);
    bar().handleEditCommand(TextCommand::insertNewline);
    EXPECT_EQ(views_.field().stringValue(), t("{T}/three/bb"));
}

TEST_F(PathWindowControllerTest, TheListHoldsAFewHundredRowsAndSaysHowManyMoreMatch) {
    for (std::size_t i = 0; i < PathWindowController::kMaxListRows + 5; ++i) tmp_.file("many/f" + std::to_string(i));
    views_.field().type(t("{T}/many/"));
    bar().showPopup();
    EXPECT_EQ(views_.completions().content().size(), PathWindowController::kMaxListRows);
    EXPECT_EQ(views_.completions().note(), "5 more");
    EXPECT_EQ(bar().currentCompletions().size(), PathWindowController::kMaxListRows + 5);
}

// A folder that arrives after the keystroke: the bar goes on at once and catches up as the names come.
class SlowFolderFixture : public PathWindowControllerFixture {
public:
    SlowFolderFixture() {
        completion_.waitBudget = std::chrono::nanoseconds(0);
        completion_.source = source_;
    }
    ~SlowFolderFixture() override { source_->close(); }
    bool waitFor(const std::function<bool()>& done) {
        return dispatch::mainQueue().runUntil(done, std::chrono::seconds(10));
    }
    std::shared_ptr<GatedFolderSource> source_ =
        std::make_shared<GatedFolderSource>(std::vector<Strings>{{"notes.txt", "nothing"}, {"no"}});
};

class SlowFolderTest : public SlowFolderFixture, public testing::Test {};

// Return on a pattern while its folder is read: the matches are selected once all are known, unless the
// user or the folder ends the wait.
struct PendingPatternRow {
    const char* name;
    std::function<void(SlowFolderFixture&)> meanwhile;
    bool selected;
    const char* problem;
};

class PendingPattern : public SlowFolderFixture, public testing::TestWithParam<PendingPatternRow> {};

TEST_P(PendingPattern, Row) {
    const PendingPatternRow& row = GetParam();
    bar().setFileManagerLocation("/f");
    views_.field().type("*.txt");
    bar().handleEditCommand(TextCommand::insertNewline);
    advance(PathWindowController::kSpinnerDelay);
    ASSERT_FALSE(views_.spinner().isHidden());
    row.meanwhile(*this);
    if (!bar().isClosed()) {
        source_->release(2);
        ASSERT_TRUE(waitFor([&] {
            return bar().completionEngine().progress() == CompletionEngine::Progress::complete &&
                   bar().completionEngine().answeredText() == "*.txt";
        }));
    }
    settle();
    advance(1);
    EXPECT_EQ(catalogue_->callCount(handlers::selectNames), row.selected ? 1u : 0u);
    EXPECT_EQ(views_.field().problem(), row.problem);
    EXPECT_TRUE(views_.spinner().isHidden());
}

// clang-format off
const PendingPatternRow kPendingPatternRows[] = {
    {"the whole folder selects the matches", [](SlowFolderFixture&) {}, true, ""},
    {"Escape gives the pattern up",
     [](SlowFolderFixture& test) { test.bar().handleEditCommand(TextCommand::cancelOperation); }, false, ""},
    {"typing gives the pattern up",
     [](SlowFolderFixture& test) {
         test.views_.field().type("*.tx");
         test.bar().textChanged();
     }, false, ""},
    {"a folder that does not answer ends the wait with a message",
     [](SlowFolderFixture& test) {
         test.advance(2);
         ASSERT_TRUE(test.waitFor([&] { return !test.views_.field().problem().empty(); }));
     }, false, PathWindowController::kFolderNotAnsweringMessage},
    {"closing the bar gives the pattern up and nothing reaches its views",
     [](SlowFolderFixture& test) {
         test.bar().close();
         test.log_->clear();
         test.source_->release(2);
         ASSERT_TRUE(test.source_->waitUntilStopped());
         test.settle();
         test.advance(3);
         EXPECT_EQ(test.log_->entries(), Strings{});
     }, false, ""},
};
// clang-format on
INSTANTIATE_TEST_SUITE_P(PathWindowController, PendingPattern, testing::ValuesIn(kPendingPatternRows), SentenceName{});

TEST_F(SlowFolderTest, InlineCompletionArrivesLateAndFollowsAShorterCandidate) {
    views_.field().type("/f/no");
    EXPECT_EQ(bar().completedString("/f/no"), std::nullopt);
    source_->release(1);
    ASSERT_TRUE(waitFor([&] { return views_.field().stringValue() == "/f/nothing"; }));
    EXPECT_EQ(views_.field().selectedRange(), (TextRange{5, 5}));
    // The typed name itself turns up: nothing is left to add.
    source_->release(1);
    ASSERT_TRUE(waitFor([&] { return views_.field().stringValue() == "/f/no"; }));
    EXPECT_EQ(views_.field().selectedRange(), (TextRange{5, 0}));
}

TEST_F(SlowFolderTest, ALateAnswerLeavesWhatTheUserTypedSinceAlone) {
    views_.field().type("/f/no");
    bar().completedString("/f/no");
    views_.field().type("/f/nox");
    bar().textChanged();
    source_->release(2);
    ASSERT_TRUE(waitFor([&] { return bar().completionEngine().progress() == CompletionEngine::Progress::complete; }));
    EXPECT_EQ(views_.field().stringValue(), "/f/nox");
}

TEST_F(SlowFolderTest, TheListSaysWhileTheFolderIsReadAndKeepsItsChoiceAsItGrows) {
    views_.field().type("/f/no");
    bar().showPopup();
    EXPECT_EQ(views_.completions().note(), "Reading folder\u2026");
    source_->release(1);
    ASSERT_TRUE(waitFor([&] { return views_.completions().content().size() == 2; }));
    EXPECT_EQ(views_.completions().selectedRow(), 0);
    bar().handleEditCommand(TextCommand::moveDown);
    ASSERT_EQ(views_.completions().content()[1], "/f/notes.txt");
    source_->release(1);
    ASSERT_TRUE(waitFor([&] { return views_.completions().content().size() == 3; }));
    EXPECT_EQ(views_.completions().content()[views_.completions().selectedRow()], "/f/notes.txt");
    EXPECT_EQ(views_.completions().note(), "");
    EXPECT_EQ(views_.completions().frame().size.height, 3 * 17);
}

}  // namespace
}  // namespace jorvane::test
