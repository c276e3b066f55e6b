// What the bar does with the entered text: the decision table of Return,
// the search-pattern rule, the parent-folder command and the small
// file-manager actions.

#include "PathWindowControllerFixture.h"
#include "unit/ScopedEnv.h"

#include <gmock/gmock.h>

namespace jorvane::test {
namespace {

using test::PrintTo;

using testing::ElementsAre;

// ---- pathEditorEnter

struct EnterRow {
    const char* name;
    const char* text;
    // The stored folder before; when none, what "finder_get_path" answers.
    std::optional<std::string> location;
    std::optional<std::string> locationAnswer;
    // Every handler call, in order ("name [param] ...").
    std::vector<std::string> calls;
    std::optional<std::string> locationAfter;
    const char* fieldAfter;
};

class PathEditorEnter : public PathWindowControllerTable<EnterRow> {};

TEST_P(PathEditorEnter, Row) {
    const EnterRow& row = GetParam();
    const ScopedEnv home("HOME", t("{T}"));
    if (row.locationAnswer) catalogue_->answer(handlers::getPath, t(*row.locationAnswer));
    if (row.location) bar().setFileManagerLocation(t(*row.location));
    views_.completions().setVisible(true);
    views_.field().type(t(row.text), {0, 2});

    bar().pathEditorEnter();
    settle();

    EXPECT_EQ(handlerCalls(), t(row.calls));
    EXPECT_EQ(bar().storedFileManagerLocation(),
              row.locationAfter ? std::optional(t(*row.locationAfter)) : std::nullopt);
    EXPECT_EQ(views_.field().stringValue(), t(row.fieldAfter));
    // Every entry closes the list and accepts the inline completion first.
    EXPECT_FALSE(views_.completions().isVisible());
    EXPECT_EQ(log_->entriesStartingWith("field.setSelectedRange").front(),
              "field.setSelectedRange " + std::to_string(t(row.text).size()) + ",0");
}

const std::nullopt_t none = std::nullopt;

// clang-format off
const EnterRow kEnterRows[] = {
    {"an ftp address is mounted", "ftp://host/pub", "{T}", none, {"finder_mount [ftp://host/pub]"}, "{T}",
     "ftp://host/pub"},
    {"an afp address is mounted", "afp://host", "{T}", none, {"finder_mount [afp://host]"}, "{T}", "afp://host"},
    {"an http address is mounted", "http://host/dav", "{T}", none, {"finder_mount [http://host/dav]"}, "{T}",
     "http://host/dav"},
    {"an smb address is mounted", "smb://host/share", "{T}", none, {"finder_mount [smb://host/share]"}, "{T}",
     "smb://host/share"},
    {"an upper case FTP address is a name in the folder", "FTP://host", "{T}", none,
     {"finder_reveal [{T}/FTP:/host]"}, "{T}", "{T}/FTP:/host"},
    {"an sftp address is mounted", "sftp://user@host/home", "{T}", none, {"finder_mount [sftp://user@host/home]"},
     "{T}", "sftp://user@host/home"},
    {"an https address is mounted", "https://host", "{T}", none, {"finder_mount [https://host]"}, "{T}",
     "https://host"},
    {"a phone is mounted", "mtp://Phone/", "{T}", none, {"finder_mount [mtp://Phone/]"}, "{T}", "mtp://Phone/"},
    {"the trash is handed to the file manager", "trash:///", "{T}", none, {"finder_mount [trash:///]"}, "{T}",
     "trash:///"},
    {"empty text shows the folder again", "", "{T}", none, {"finder_set_path [{T}]"}, "{T}", "{T}"},
    {"empty text with the folder unknown asks for it and shows it", "", none, "{T}",
     {"finder_get_path", "finder_set_path [{T}]"}, "{T}", "{T}"},
    {"empty text with no folder at all goes nowhere", "", none, none, {"finder_get_path"}, none, ""},
    {"an absolute folder is shown", "{T}/docs", "{T}", none, {"finder_set_path [{T}/docs]"}, "{T}/docs",
     "{T}/docs"},
    {"an absolute file is revealed by the navigation", "{T}/notes.txt", "{T}", none,
     {"finder_reveal [{T}/notes.txt]"}, "{T}/notes.txt", "{T}/notes.txt"},
    {"a missing absolute path is revealed by the navigation", "{T}/gone", "{T}", none, {"finder_reveal [{T}/gone]"},
     "{T}/gone", "{T}/gone"},
    {"a relative folder is revealed with a trailing slash", "docs", "{T}", none, {"finder_reveal [{T}/docs/]"},
     "{T}", "{T}/docs/"},
    {"a relative file is revealed", "notes.txt", "{T}", none, {"finder_reveal [{T}/notes.txt]"}, "{T}",
     "{T}/notes.txt"},
    {"a relative path joins without a doubled slash", "docs/sub", "{T}/", none, {"finder_reveal [{T}/docs/sub/]"},
     "{T}/", "{T}/docs/sub/"},
    {"a home folder path is shown", "~/docs", "/elsewhere", none, {"finder_set_path [{T}/docs]"}, "{T}/docs",
     "{T}/docs"},
    {"a variable in a path is expanded", "$HOME/notes.txt", "/elsewhere", none, {"finder_reveal [{T}/notes.txt]"},
     "{T}/notes.txt", "{T}/notes.txt"},
    {"a file URI pasted from a browser is its path", "file://{T}/d%6Fcs", "/elsewhere", none,
     {"finder_set_path [{T}/docs]"}, "{T}/docs", "{T}/docs"},
    {"a path in quotes pasted from a terminal is the path", "'{T}/docs'", "/elsewhere", none,
     {"finder_set_path [{T}/docs]"}, "{T}/docs", "{T}/docs"},
    {"dot-dot components are followed", "{T}/docs/../notes.txt", "/elsewhere", none,
     {"finder_reveal [{T}/notes.txt]"}, "{T}/notes.txt", "{T}/notes.txt"},
    {"a quoted name is a name in the folder", "\"notes.txt\"", "{T}", none, {"finder_reveal [{T}/notes.txt]"},
     "{T}", "{T}/notes.txt"},
    {"a folder typed in another case is the folder on disk", "{T}/DOCS/SUB", "/elsewhere", none,
     {"finder_set_path [{T}/docs/sub]"}, "{T}/docs/sub", "{T}/docs/sub"},
    {"a home folder pattern selects in the home folder", "~/*.log", "/elsewhere", none,
     {"finder_select2 [{T}] [/a.log|!|/bb.log]"}, "{T}", "~/*.log"},
    {"a relative name with the folder unknown asks for it", "docs", none, "{T}",
     {"finder_get_path", "finder_reveal [{T}/docs/]"}, "{T}", "{T}/docs/"},
    {"a relative name with no folder at all does nothing", "docs", none, none, {"finder_get_path"}, none, "docs"},
    {"a star pattern selects its matches in the folder", "*.log", "{T}", none,
     {"finder_select2 [{T}] [a.log|!|bb.log]"}, "{T}", "*.log"},
    {"a question mark pattern selects its matches", "?.log", "{T}", none, {"finder_select2 [{T}] [a.log]"}, "{T}",
     "?.log"},
    {"a pattern without matches selects nothing in the folder", "*.zip", "{T}", none, {"finder_select2 [{T}] []"},
     "{T}", "*.zip"},
    {"an absolute pattern moves to its folder and selects there", "{T}/*.log", "/elsewhere", none,
     {"finder_select2 [{T}] [/a.log|!|/bb.log]"}, "{T}", "{T}/*.log"},
    {"a pattern with no folder at all selects with no parameters", "*.log", none, none,
     {"finder_get_path", "finder_get_path", "finder_select2"}, none, "*.log"},
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
        EXPECT_EQ(handlerCalls().back(), t("finder_set_path [{T}/$HOME ~]")) << text;
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

// ---- isSearchString

struct SearchStringRow {
    const char* name;
    const char* text;
    std::optional<std::string> lastRevealed;
    bool isSearch;
};

class IsSearchString : public PathWindowControllerTable<SearchStringRow> {};

TEST_P(IsSearchString, Row) {
    bar().setSearchModeLastRevealedText(GetParam().lastRevealed);
    EXPECT_EQ(bar().isSearchString(GetParam().text), GetParam().isSearch);
}

const SearchStringRow kSearchStringRows[] = {
    {"empty text is not a pattern", "", none, false},
    {"a star name is a pattern", "*.txt", none, true},
    {"a question mark name is a pattern", "a?c", none, true},
    {"a tilde pattern is a pattern", "~/*.txt", none, true},
    {"an absolute pattern is a path", "/tmp/*.txt", none, false},
    {"a plain name is not a pattern", "notes", none, false},
    {"the name search as you type revealed is not a pattern", "*.txt", "*.txt", false},
    {"another revealed name does not matter", "*.txt", "notes.txt", true},
};
INSTANTIATE_TEST_SUITE_P(PathWindowController, IsSearchString, testing::ValuesIn(kSearchStringRows), SentenceName{});

// ---- navigateToParentDirectory

struct ParentRow {
    const char* name;
    const char* text;
    const char* entered;  // the text handed to pathEditorEnter
    std::vector<std::string> calls;
    const char* fieldAfter;
};

class NavigateToParentDirectory : public PathWindowControllerTable<ParentRow> {};

TEST_P(NavigateToParentDirectory, Row) {
    const ParentRow& row = GetParam();
    bar().setFileManagerLocation(t("{T}"));
    views_.field().type(t(row.text));

    bar().navigateToParentDirectory();
    settle();

    const std::vector<std::string> texts = log_->entriesStartingWith("field.setStringValue ");
    ASSERT_GE(texts.size(), 2u);
    EXPECT_EQ(texts[texts.size() - 2], "field.setStringValue " + t(row.entered));
    EXPECT_EQ(handlerCalls(), t(row.calls));
    EXPECT_EQ(views_.field().stringValue(), t(row.fieldAfter));
}

// clang-format off
const ParentRow kParentRows[] = {
    {"a folder with a trailing slash goes to its parent with one", "{T}/docs/sub/", "{T}/docs/",
     {"finder_set_path [{T}/docs/]"}, "{T}/docs/"},
    {"a file goes to its folder", "{T}/notes.txt", "{T}/", {"finder_set_path [{T}/]"}, "{T}/"},
    {"a top folder goes to the root without a second slash", "/tmp", "/", {"finder_set_path [/]"}, "/"},
    {"the root re-enters the empty text and shows the folder again", "/", "", {"finder_set_path [{T}]"}, "{T}"},
    {"empty text re-enters the empty text and shows the folder again", "", "", {"finder_set_path [{T}]"}, "{T}"},
};
// clang-format on
INSTANTIATE_TEST_SUITE_P(PathWindowController, NavigateToParentDirectory, testing::ValuesIn(kParentRows), SentenceName{});

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
    const auto select = catalogue_->lastCall(handlers::selectNames);
    ASSERT_TRUE(select);
    ASSERT_EQ(select->params.size(), 2u);
    std::size_t names = 1;
    for (std::size_t at = select->params[1].find(handlers::itemSeparator); at != std::string::npos;
         at = select->params[1].find(handlers::itemSeparator, at + 1))
        ++names;
    EXPECT_EQ(names, PathWindowController::kMaxSelectedNames);
    EXPECT_EQ(views_.field().problem(),
              "Selected the first " + std::to_string(names) + " of " + std::to_string(count) + " matches");
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

TEST_F(PathWindowControllerTest, NavigationShowsTheSpinnerOnlyWhenItLastsAndHidesItWhenDone) {
    catalogue_->hold(handlers::showFolder);
    bar().showFolder(t("{T}/docs"));
    ASSERT_TRUE(catalogue_->waitForHeld(handlers::showFolder, 1));
    advance(0.29);
    EXPECT_TRUE(views_.spinner().isHidden());
    advance(0.01);
    EXPECT_FALSE(views_.spinner().isHidden());
    EXPECT_TRUE(views_.spinner().isAnimating());

    catalogue_->release(handlers::showFolder);
    settle();
    EXPECT_TRUE(views_.spinner().isHidden());
}

TEST_F(PathWindowControllerTest, ANavigationFinishingAfterTheBarIsGoneIsHarmless) {
    catalogue_->hold(handlers::showFolder);
    bar().showFolder(t("{T}/docs"));
    ASSERT_TRUE(catalogue_->waitForHeld(handlers::showFolder, 1));
    controller_.reset();
    catalogue_->release(handlers::showFolder);
    settle();
    advance(1);
}

TEST_F(PathWindowControllerTest, TheFolderIsAskedForOnlyWhileUnknown) {
    catalogue_->answerOnce(handlers::getPath, std::nullopt);
    catalogue_->answer(handlers::getPath, "/srv");
    EXPECT_EQ(bar().fileManagerLocation(), std::nullopt);
    EXPECT_EQ(bar().fileManagerLocation(), "/srv");
    EXPECT_EQ(bar().fileManagerLocation(), "/srv");
    EXPECT_EQ(catalogue_->callCount(handlers::getPath), 2u);
}

TEST_F(PathWindowControllerTest, TheFolderFetchedInTheBackgroundFillsTheField) {
    catalogue_->answer(handlers::getPath, "/srv");
    bar().startSpinnerTimer();
    bar().fetchFileManagerLocation();
    settle();
    EXPECT_EQ(bar().storedFileManagerLocation(), "/srv");
    EXPECT_EQ(views_.field().stringValue(), "/srv");
    EXPECT_EQ(views_.field().image(), BarImage::iconForFile("/srv"));
    advance(1);
    EXPECT_TRUE(views_.spinner().isHidden());
}

TEST_F(PathWindowControllerTest, SearchAsYouTypeRevealsEachFirstCandidateOnce) {
    bar().setFileManagerLocation(t("{T}"));
    // Each keystroke, with the file manager keeping up.
    using Typed = std::pair<std::string, std::optional<std::string>>;
    for (const auto& [typed, completed] : std::vector<Typed>{
             {"do", "docs/"}, {"doc", "docs/"}, {"no", "notes.txt"}, {"*.log", std::nullopt},
             {t("{T}/d"), t("{T}/docs/")}}) {
        EXPECT_EQ(bar().completedString(typed), completed) << typed;
        settle();
    }
    EXPECT_THAT(handlerCalls(),
                ElementsAre("finder_reveal_in_current [docs/]", "finder_reveal_in_current [notes.txt]"));
    EXPECT_EQ(views_.completions().content(), std::vector<std::string>{t("{T}/docs/")});
}

}  // namespace
}  // namespace jorvane::test
