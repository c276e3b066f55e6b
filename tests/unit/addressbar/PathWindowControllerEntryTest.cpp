// What the bar does with the entered text: Return's decision table, patterns, the parent folder, navigations.
#include "PathWindowControllerFixture.h"
#include "unit/ScopedEnv.h"

#include <gmock/gmock.h>

namespace jorvane::test {
namespace {

using test::PrintTo;
using testing::ElementsAre;
using Strings = std::vector<std::string>;
const std::nullopt_t none = std::nullopt;

struct EnterRow {
    const char* name;
    const char* text;
    // The stored folder before; when none, what "folder_path" answers.
    std::optional<std::string> location, locationAnswer;
    Strings calls;  // every handler call, in order
    std::optional<std::string> locationAfter;
    const char* fieldAfter;
    // The folder unknown to the end, a question for it in the background
    // meets the others in any order.
    bool anyOrder = false;
};

class PathEditorEnter : public PathWindowControllerTable<EnterRow> {};

TEST_P(PathEditorEnter, Row) {
    const EnterRow& row = GetParam();
    const ScopedEnv home("HOME", t("{T}"));
    if (row.locationAnswer) catalogue_->answer(handlers::folderPath, t(*row.locationAnswer));
    if (row.location) bar().setFileManagerLocation(t(*row.location));
    views_.completions().setVisible(true);
    views_.field().type(t(row.text), {0, 2});
    bar().pathEditorEnter();
    settle();
    if (row.anyOrder)
        EXPECT_THAT(handlerCalls(), testing::UnorderedElementsAreArray(t(row.calls)));
    else
        EXPECT_EQ(handlerCalls(), t(row.calls));
    EXPECT_EQ(bar().storedFileManagerLocation(), row.locationAfter ? std::optional(t(*row.locationAfter)) : none);
    EXPECT_EQ(views_.field().stringValue(), t(row.fieldAfter));
    // Every entry closes the list and accepts the inline completion first.
    EXPECT_FALSE(views_.completions().isVisible());
    EXPECT_EQ(log_->entriesStartingWith("field.setSelectedRange").front(),
              "field.setSelectedRange " + std::to_string(t(row.text).size()) + ",0");
}

// clang-format off
const EnterRow kEnterRows[] = {
    {"an ftp address is mounted", "ftp://host/pub", "{T}", none, {"mount [ftp://host/pub]"}, "{T}",
     "ftp://host/pub"},
    {"an smb address is mounted", "smb://host/share", "{T}", none, {"mount [smb://host/share]"}, "{T}",
     "smb://host/share"},
    {"an upper case FTP address is a name in the folder", "FTP://host", "{T}", none,
     {"reveal [{T}/FTP:/host]"}, "{T}", "{T}/FTP:/host"},
    {"the trash is handed to the file manager", "trash:///", "{T}", none, {"mount [trash:///]"}, "{T}",
     "trash:///"},
    {"empty text shows the folder again", "", "{T}", none, {"show_folder [{T}]"}, "{T}", "{T}"},
    {"empty text with the folder unknown asks for it and shows it", "", none, "{T}",
     {"folder_path", "show_folder [{T}]"}, "{T}", "{T}"},
    {"empty text with no folder at all goes nowhere", "", none, none, {"folder_path"}, none, ""},
    {"an absolute folder is shown", "{T}/docs", "{T}", none, {"show_folder [{T}/docs]"}, "{T}/docs", "{T}/docs"},
    {"an absolute file is revealed by the navigation", "{T}/notes.txt", "{T}", none,
     {"reveal [{T}/notes.txt]"}, "{T}/notes.txt", "{T}/notes.txt"},
    {"a missing absolute path is revealed by the navigation", "{T}/gone", "{T}", none, {"reveal [{T}/gone]"},
     "{T}/gone", "{T}/gone"},
    {"a relative folder is revealed with a trailing slash", "docs", "{T}", none, {"reveal [{T}/docs/]"},
     "{T}", "{T}/docs/"},
    {"a relative path joins without a doubled slash", "docs/sub", "{T}/", none, {"reveal [{T}/docs/sub/]"},
     "{T}/", "{T}/docs/sub/"},
    {"a home folder path is shown", "~/docs", "/elsewhere", none, {"show_folder [{T}/docs]"}, "{T}/docs",
     "{T}/docs"},
    {"a variable in a path is expanded", "$HOME/notes.txt", "/elsewhere", none, {"reveal [{T}/notes.txt]"},
     "{T}/notes.txt", "{T}/notes.txt"},
    {"a file URI pasted from a browser is its path", "file://{T}/d%6Fcs", "/elsewhere", none,
     {"show_folder [{T}/docs]"}, "{T}/docs", "{T}/docs"},
    {"a path in quotes pasted from a terminal is the path", "'{T}/docs'", "/elsewhere", none,
     {"show_folder [{T}/docs]"}, "{T}/docs", "{T}/docs"},
    {"dot-dot components are followed", "{T}/docs/../notes.txt", "/elsewhere", none,
     {"reveal [{T}/notes.txt]"}, "{T}/notes.txt", "{T}/notes.txt"},
    {"a quoted name is a name in the folder", "\"notes.txt\"", "{T}", none, {"reveal [{T}/notes.txt]"},
     "{T}", "{T}/notes.txt"},
    {"a folder typed in another case is the folder on disk", "{T}/DOCS/SUB", "/elsewhere", none,
     {"show_folder [{T}/docs/sub]"}, "{T}/docs/sub", "{T}/docs/sub"},
    {"a home folder pattern selects in the home folder", "~/*.log", "/elsewhere", none,
     {"select_names [{T}] [/a.log|!|/bb.log]"}, "{T}", "~/*.log"},
    {"a relative name with the folder unknown asks for it", "docs", none, "{T}",
     {"folder_path", "reveal [{T}/docs/]"}, "{T}", "{T}/docs/"},
    {"a relative name with no folder at all does nothing", "docs", none, none, {"folder_path"}, none, "docs"},
    {"a star pattern selects its matches in the folder", "*.log", "{T}", none,
     {"select_names [{T}] [a.log|!|bb.log]"}, "{T}", "*.log"},
    {"a pattern without matches selects nothing in the folder", "*.zip", "{T}", none, {"select_names [{T}] []"},
     "{T}", "*.zip"},
    {"an absolute pattern moves to its folder and selects there", "{T}/*.log", "/elsewhere", none,
     {"select_names [{T}] [/a.log|!|/bb.log]"}, "{T}", "{T}/*.log"},
    {"a pattern with no folder at all selects with no parameters", "*.log", none, none,
     {"folder_path", "folder_path", "select_names"}, none, "*.log", true},
};
// clang-format on
INSTANTIATE_TEST_SUITE_P(PathWindowController, PathEditorEnter, testing::ValuesIn(kEnterRows), SentenceName{});

TEST_F(PathWindowControllerTest, AFolderNamedLikeAVariableOrHomeIsTakenAsItStands) {
    const ScopedEnv home("HOME", t("{T}/docs"));
    tmp_.dir("$HOME ~");
    for (const std::string& text : {t("{T}/$HOME ~"), std::string("$HOME ~")}) {
        bar().setFileManagerLocation(tmp_.str());
        views_.field().type(text);
        bar().pathEditorEnter();
        settle();
        EXPECT_EQ(handlerCalls().back(), t("show_folder [{T}/$HOME ~]")) << text;
        EXPECT_EQ(views_.field().stringValue(), t("{T}/$HOME ~")) << text;
    }
}

TEST_F(PathWindowControllerTest, APathThatSeveralFoldersNameInAnotherCaseOpensTheListWithThem) {
    tmp_.dir("DOCS");
    views_.panel().setVisible(true);
    views_.field().type(tmp_.str() + "/Docs");
    bar().pathEditorEnter();
    settle();
    EXPECT_THAT(handlerCalls(), testing::IsEmpty());
    EXPECT_TRUE(views_.completions().isVisible());
    EXPECT_THAT(bar().listRows(), testing::UnorderedElementsAre(tmp_.str() + "/docs", tmp_.str() + "/DOCS"));
    EXPECT_EQ(views_.completions().selectedRow(), 0);
}

// The folder's "/" arrives after Return; a user who selected the text to type
// over it meanwhile keeps it selected, and one who typed keeps the typing.
TEST_F(PathWindowControllerTest, TheFolderArrivedAtKeepsTheUsersSelectionAndNeverReplacesNewText) {
    bar().setFileManagerLocation(tmp_.str());
    views_.field().type("docs");
    bar().pathEditorEnter();
    views_.field().selectAll();
    settle();
    const std::string arrived = tmp_.str() + "/docs/";
    EXPECT_EQ(views_.field().stringValue(), arrived);
    EXPECT_EQ(views_.field().selectedRange(), (TextRange{0, arrived.size()}));

    views_.field().type("docs");
    bar().pathEditorEnter();
    views_.field().type("other");
    settle();
    EXPECT_EQ(views_.field().stringValue(), "other");
}

TEST_F(PathWindowControllerTest, EnteringEndsByPlacingThePanelForTheNewText) {
    bar().setFileManagerLocation("/");
    views_.panel().setVisible(true);
    views_.field().type(std::string(60, 'x'));
    bar().pathEditorEnter();
    settle();
    // 60 characters of 7 points and the margin: 570, capped at 440.
    ASSERT_FALSE(views_.panel().frameChanges().empty());
    EXPECT_EQ(views_.panel().frameChanges().back().frame.size.width, 440);
}

TEST_F(PathWindowControllerTest, IsSearchString) {
    // The text, the name search as you type revealed last, whether the text is a pattern.
    const std::tuple<const char*, std::optional<std::string>, bool> rows[] = {
        {"", none, false},           {"*.txt", none, true},  {"a?c", none, true},       {"~/*.txt", none, true},
        {"/tmp/*.txt", none, false}, {"notes", none, false}, {"*.txt", "*.txt", false}, {"*.txt", "notes.txt", true}};
    for (const auto& [text, revealed, isSearch] : rows) {
        bar().setSearchModeLastRevealedText(revealed);
        EXPECT_EQ(bar().isSearchString(text), isSearch) << text << " " << revealed.value_or("");
    }
}

TEST(PathWindowControllerParent, NavigateToParentDirectoryEntersTheParentOfTheText) {
    // The text, what is handed to Return, what is shown, the field after.
    const std::tuple<const char*, const char*, const char*, const char*> rows[] = {
        {"{T}/docs/sub/", "{T}/docs/", "{T}/docs/", "{T}/docs/"},
        {"{T}/notes.txt", "{T}/", "{T}/", "{T}/"},
        {"/tmp", "/", "/", "/"},
        {"/", "", "{T}", "{T}"},
        {"", "", "{T}", "{T}"}};
    for (const auto& [text, entered, shown, fieldAfter] : rows) {
        SCOPED_TRACE(text);
        PathWindowControllerFixture f;
        f.bar().setFileManagerLocation(f.t("{T}"));
        f.views_.field().type(f.t(text));
        f.bar().navigateToParentDirectory();
        f.settle();
        const Strings texts = f.log_->entriesStartingWith("field.setStringValue ");
        ASSERT_GE(texts.size(), 2u);
        EXPECT_EQ(texts[texts.size() - 2], "field.setStringValue " + f.t(entered));
        EXPECT_EQ(f.handlerCalls(), Strings{f.t("show_folder [" + std::string(shown) + "]")});
        EXPECT_EQ(f.views_.field().stringValue(), f.t(fieldAfter));
    }
}

TEST_F(PathWindowControllerTest, APatternWithMoreMatchesThanThunarCanSelectSelectsTheFirstAndSaysSoOnceSelected) {
    const std::size_t count = PathWindowController::kMaxSelectedNames + 3;
    for (std::size_t i = 0; i < count; ++i) tmp_.file("many/f" + std::to_string(i) + ".log");
    catalogue_->hold(handlers::selectNames);
    views_.field().type(t("{T}/many/*.log"));
    bar().pathEditorEnter();
    ASSERT_TRUE(catalogue_->waitForHeld(handlers::selectNames, 1));
    dispatch::mainQueue().drain();
    EXPECT_EQ(views_.field().problem(), "");
    catalogue_->release(handlers::selectNames);
    settle();
    const std::string names = catalogue_->lastCall(handlers::selectNames).value().params.at(1);
    EXPECT_EQ(static_cast<std::size_t>(std::count(names.begin(), names.end(), '!')),
              PathWindowController::kMaxSelectedNames - 1);
    EXPECT_EQ(views_.field().problem(), "Selected the first 200 of 203 matches");
}

TEST_F(PathWindowControllerTest, ASelectionWithoutAnAnswerIsShownLikeANavigation) {
    catalogue_->answer(handlers::selectNames, std::nullopt);
    bar().setFileManagerLocation(t("{T}"));
    views_.field().type("*.log");
    bar().pathEditorEnter();
    settle();
    EXPECT_EQ(catalogue_->callCount(handlers::selectNames), 1u);
    EXPECT_EQ(views_.field().problem(), PathWindowController::kNoAnswerMessage);
    advance(1);
    EXPECT_TRUE(views_.spinner().isHidden());
}

TEST_F(PathWindowControllerTest, ANavigationWithoutAnAnswerIsTriedOnceMoreThenShownAndTheTextStays) {
    catalogue_->answer(handlers::showFolder, std::nullopt);
    catalogue_->answerOnce(handlers::showFolder, std::nullopt);
    catalogue_->answerOnce(handlers::showFolder, "");
    views_.field().type(t("{T}/docs"));
    bar().pathEditorEnter();
    settle();
    EXPECT_EQ(catalogue_->callCount(handlers::showFolder), 2u);
    EXPECT_EQ(views_.field().problem(), "");
    bar().pathEditorEnter();
    settle();
    EXPECT_EQ(catalogue_->callCount(handlers::showFolder), 4u);
    EXPECT_EQ(views_.field().problem(), PathWindowController::kNoAnswerMessage);
    EXPECT_EQ(views_.field().stringValue(), t("{T}/docs"));
    EXPECT_TRUE(views_.spinner().isHidden());
}

TEST_F(PathWindowControllerTest, ALastingNavigationShowsTheSpinnerAndFinishingAfterTheBarIsGoneIsHarmless) {
    catalogue_->hold(handlers::showFolder);
    bar().showFolder(t("{T}/docs"));
    ASSERT_TRUE(catalogue_->waitForHeld(handlers::showFolder, 1));
    advance(PathWindowController::kSpinnerDelay);
    EXPECT_FALSE(views_.spinner().isHidden());
    controller_.reset();
    catalogue_->release(handlers::showFolder);
    settle();
    advance(1);
}

TEST_F(PathWindowControllerTest, TheFolderIsAskedForOnlyWhileUnknownAndFetchedInTheBackgroundFillsTheField) {
    catalogue_->answerOnce(handlers::folderPath, std::nullopt);
    catalogue_->answer(handlers::folderPath, "/srv");
    EXPECT_EQ(bar().fileManagerLocation(), std::nullopt);
    EXPECT_EQ(bar().fileManagerLocation(), "/srv");
    EXPECT_EQ(bar().fileManagerLocation(), "/srv");
    EXPECT_EQ(catalogue_->callCount(handlers::folderPath), 2u);

    catalogue_->answer(handlers::folderPath, "/data");
    bar().startSpinnerTimer();
    bar().fetchFileManagerLocation();
    settle();
    EXPECT_EQ(bar().storedFileManagerLocation(), "/data");
    EXPECT_EQ(views_.field().stringValue(), "/data");
    EXPECT_EQ(views_.field().image(), BarImage::iconForFile("/data"));
    advance(1);
    EXPECT_TRUE(views_.spinner().isHidden());
}

// Completion never waits for the file manager: an unknown folder is asked
// for in the background, once at a time, and the list follows the answer.
TEST_F(PathWindowControllerTest, CompletionAsksForAnUnknownFolderInTheBackgroundAndTheListFollowsTheAnswer) {
    tmp_.dir("docs");
    catalogue_->answer(handlers::folderPath, tmp_.str());
    catalogue_->hold(handlers::folderPath);
    views_.panel().setVisible(true);
    views_.field().type("do");
    bar().showPopup();
    bar().showPopup();
    ASSERT_TRUE(catalogue_->waitForHeld(handlers::folderPath, 1));
    EXPECT_THAT(bar().listRows(), testing::IsEmpty());
    catalogue_->release(handlers::folderPath);
    settle();
    EXPECT_EQ(catalogue_->callCount(handlers::folderPath), 1u);
    EXPECT_THAT(bar().listRows(), ElementsAre("docs/"));
}

}  // namespace
}  // namespace jorvane::test
