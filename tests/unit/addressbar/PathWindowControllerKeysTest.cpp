// The bar's keyboard: the panel's shortcuts, the field editor's filter, the
// text field's editing commands and the context menu.

#include "PathWindowControllerFixture.h"
#include "unit/ScopedEnv.h"

#include <gmock/gmock.h>

#include <cstdint>

namespace jorvane::test {
namespace {

using test::PrintTo;

using testing::ElementsAre;
using testing::IsEmpty;

constexpr CGEventFlags kCmd = kCGEventFlagMaskCommand;
constexpr CGEventFlags kShift = kCGEventFlagMaskShift;
constexpr CGEventFlags kOpt = kCGEventFlagMaskAlternate;
constexpr CGEventFlags kCtl = kCGEventFlagMaskControl;

// ---- the panel's shortcuts

// Compares what the bar did on the main thread, in order, and the handler
// calls ("vj ..." in `expected`), in order too; commands run on the bridge's
// queues, so their moment among the bar's own actions is not fixed.
// `background` is a further call made from a queue of its own.

struct ShortcutRow {
    const char* name;
    CGKeyCode key;
    CGEventFlags flags;
    bool handled;
    // What happened, as the log's actions ("{T}" the folder, "{H}" the home folder).
    std::vector<std::string> actions;
    // A hot key other than the shipped Ctrl+G: {key code, flags}.
    std::optional<std::pair<std::int64_t, std::int64_t>> hotkey = std::nullopt;
    // A handler the bridge calls in the background.
    const char* backgroundCall = nullptr;
};

class HandleKeyDown : public PathWindowControllerTable<ShortcutRow> {};

TEST_P(HandleKeyDown, Row) {
    const ShortcutRow& row = GetParam();
    const ScopedEnv home("HOME", t("{T}/docs"));
    if (row.hotkey) {
        defaults_->setInteger(row.hotkey->first, settings::keys::hotkeyKeycode);
        defaults_->setInteger(row.hotkey->second, settings::keys::hotkeyFlags);
    }
    bar().setFinderLocation(t("{T}"));
    views_.field().type(t("{T}/notes.txt"));

    EXPECT_EQ(bar().handleKeyDown({row.key, row.flags, {}}), row.handled);
    if (row.backgroundCall) {
        EXPECT_TRUE(finder_->waitForCalls(row.backgroundCall, 1));
    }
    settle();

    std::vector<std::string> expected;
    for (const std::string& action : row.actions) expected.push_back(replaceAll(t(action), "{H}", t("{T}/docs")));
    expectActionsAndCalls(logged({"vj ", "delegate.", "workspace.", "panel.orderOut", "list.orderOut",
                                  "field.setStringValue"}),
                          expected, row.backgroundCall);
    if (row.backgroundCall) {
        ASSERT_EQ(finder_->callCount(row.backgroundCall), 1u);
        EXPECT_EQ(finder_->lastCall(row.backgroundCall)->params, std::vector<std::string>{t("{T}/notes.txt")});
    }
}

const ShortcutRow kShortcutRows[] = {
    {"Ctrl Return opens the item in the field", kVK_Return, kCmd, true, {"workspace.openFile {T}/notes.txt"}},
    {"Ctrl O opens the item in the field", kVK_ANSI_O, kCmd, true, {"workspace.openFile {T}/notes.txt"}},
    {"the hot key again orders out the panel but not the list", kVK_ANSI_G, kCmd, true, {"panel.orderOut"}},
    {"Ctrl H goes to the home folder with a trailing slash", kVK_ANSI_H, kCmd, true,
     {"field.setStringValue {H}/", "list.orderOut", "field.setStringValue {H}/"}},
    {"Ctrl N hides, opens a window on the text and opens the new window's bar", kVK_ANSI_N, kCmd, true,
     {"panel.orderOut", "list.orderOut", "vj finder_new_win [{T}/notes.txt]", "delegate.show"}},
    {"Ctrl W hides and then closes the window", kVK_ANSI_W, kCmd, true,
     {"panel.orderOut", "list.orderOut", "vj close_finder_win"}},
    {"Ctrl T hides and opens a terminal at the text", kVK_ANSI_T, kCmd, true, {"panel.orderOut", "list.orderOut"},
     std::nullopt, "open_terminal"},
    {"Ctrl R reloads and keeps the bar open", kVK_ANSI_R, kCmd, true, {"vj reload"}},
    {"Ctrl Shift F reopens the bar empty in search form", kVK_ANSI_F, kCmd | kShift, true,
     {"field.setStringValue ", "vj is_finder_win", "field.setStringValue "}},
    {"Ctrl Shift period hides and toggles hidden files", kVK_ANSI_Period, kCmd | kShift, true,
     {"panel.orderOut", "list.orderOut", "delegate.finderToggleShowHidden"}},
    {"Ctrl 1 switches to the icon view", kVK_ANSI_1, kCmd, true, {"vj finder_iconview"}},
    {"Ctrl 2 switches to the list view", kVK_ANSI_2, kCmd, true, {"vj finder_listview"}},
    {"Ctrl 3 switches to the column view", kVK_ANSI_3, kCmd, true, {"vj finder_columnview"}},
    {"Ctrl 4 switches to the flow view", kVK_ANSI_4, kCmd, true, {"vj finder_flowview"}},
    {"Caps Lock and the keypad bit do not defeat Ctrl 1", kVK_ANSI_1,
     kCmd | kCGEventFlagMaskAlphaShift | kCGEventFlagMaskNumericPad, true, {"vj finder_iconview"}},
    // Rows where nothing happens.
    {"Ctrl Alt W matches no row", kVK_ANSI_W, kCmd | kOpt, false, {}},
    {"Ctrl Shift W matches no row", kVK_ANSI_W, kCmd | kShift, false, {}},
    {"Super W matches no row", kVK_ANSI_W, kCtl, false, {}},
    {"W alone is typing", kVK_ANSI_W, 0, false, {}},
    {"Ctrl F without Shift matches no row", kVK_ANSI_F, kCmd, false, {}},
    {"Ctrl Shift 1 matches no row", kVK_ANSI_1, kCmd | kShift, false, {}},
    {"Ctrl 5 matches no row", kVK_ANSI_5, kCmd, false, {}},
    {"Ctrl Alt G is not the hot key", kVK_ANSI_G, kCmd | kOpt, false, {}},
    // The hot key is read at each press and tested third.
    {"a hot key recorded as Ctrl Return opens the item instead of closing", kVK_Return, kCmd, true,
     {"workspace.openFile {T}/notes.txt"}, std::pair<std::int64_t, std::int64_t>{kVK_Return, kCmd}},
    {"a hot key recorded as Ctrl W closes the bar instead of the window", kVK_ANSI_W, kCmd, true,
     {"panel.orderOut"}, std::pair<std::int64_t, std::int64_t>{kVK_ANSI_W, kCmd}},
    {"a hot key recorded as Ctrl Shift K closes the bar", 0x28, kCmd | kShift, true, {"panel.orderOut"},
     std::pair<std::int64_t, std::int64_t>{0x28, kCmd | kShift}},
    {"Ctrl G is free once the hot key moved away", kVK_ANSI_G, kCmd, false, {},
     std::pair<std::int64_t, std::int64_t>{0x28, kCmd | kShift}},
    {"a hot key without modifiers is F5 alone", kVK_F5, 0, true, {"panel.orderOut"},
     std::pair<std::int64_t, std::int64_t>{kVK_F5, 0}},
};
INSTANTIATE_TEST_SUITE_P(PathWindowController, HandleKeyDown, testing::ValuesIn(kShortcutRows), SentenceName{});

TEST_F(PathWindowControllerTest, ShiftFReopensTheBarEmptyWithTheSearchImage) {
    finder_->answer(handlers::finderGetPath, "/x");
    bar().show();
    bar().handleKeyDown({kVK_ANSI_F, kCmd | kShift, "f"});
    EXPECT_EQ(views_.field().stringValue(), "");
    EXPECT_EQ(views_.field().image(), BarImage::search());
    EXPECT_TRUE(views_.panel().isVisible());
}

TEST_F(PathWindowControllerTest, TheHotKeyIsReadAtEveryPress) {
    EXPECT_TRUE(bar().handleKeyDown({kVK_ANSI_G, kCmd, "g"}));
    defaults_->setInteger(kVK_ANSI_J, settings::keys::hotkeyKeycode);
    EXPECT_FALSE(bar().handleKeyDown({kVK_ANSI_G, kCmd, "g"}));
    EXPECT_TRUE(bar().handleKeyDown({kVK_ANSI_J, kCmd, "j"}));
}

// ---- the field editor's filter

struct FilterRow {
    const char* name;
    CGKeyCode key;
    CGEventFlags flags;
    bool consumed;
};

class FieldEditorKeyDown : public testing::TestWithParam<FilterRow> {};

TEST_P(FieldEditorKeyDown, Row) {
    EXPECT_EQ(JVPathFieldEditor::keyDown({GetParam().key, GetParam().flags, {}}), GetParam().consumed);
}

const FilterRow kFilterRows[] = {
    {"Ctrl W is swallowed", kVK_ANSI_W, kCmd, true},
    {"Ctrl N is swallowed", kVK_ANSI_N, kCmd, true},
    {"Ctrl T is swallowed", kVK_ANSI_T, kCmd, true},
    {"Ctrl R is swallowed", kVK_ANSI_R, kCmd, true},
    {"Ctrl 1 is swallowed", kVK_ANSI_1, kCmd, true},
    {"Ctrl 2 is swallowed", kVK_ANSI_2, kCmd, true},
    {"Ctrl 3 is swallowed", kVK_ANSI_3, kCmd, true},
    {"Ctrl 4 is swallowed", kVK_ANSI_4, kCmd, true},
    {"Ctrl W with Caps Lock is swallowed", kVK_ANSI_W, kCmd | kCGEventFlagMaskAlphaShift, true},
    {"Ctrl Alt W goes on to the text", kVK_ANSI_W, kCmd | kOpt, false},
    {"Ctrl Shift 1 goes on to the text", kVK_ANSI_1, kCmd | kShift, false},
    {"W alone goes on to the text", kVK_ANSI_W, 0, false},
    {"Ctrl A goes on to the text", kVK_ANSI_A, kCmd, false},
    {"Ctrl O goes on to the text", kVK_ANSI_O, kCmd, false},
    {"Ctrl 5 goes on to the text", kVK_ANSI_5, kCmd, false},
};
INSTANTIATE_TEST_SUITE_P(JVPathFieldEditor, FieldEditorKeyDown, testing::ValuesIn(kFilterRows), SentenceName{});

TEST_F(PathWindowControllerTest, TheContextMenuEndsWithThePreferences) {
    MenuItem cut;
    cut.title = "Cut";
    const std::vector<MenuItem> menu = bar().pathFieldEditor().menuForEvent({cut});
    ASSERT_EQ(menu.size(), 3u);
    EXPECT_EQ(menu[0].title, "Cut");
    EXPECT_EQ(menu[1].kind, MenuItem::Kind::separator);
    EXPECT_EQ(menu[2].title, "Jorvane Preferences\xE2\x80\xA6");
    EXPECT_EQ(menu[2].keyEquivalent, "");
    EXPECT_EQ(menu[2].image, MenuItem::Image::applicationIcon);
    EXPECT_EQ(menu[2].imageSize, (Size{14, 14}));
    ASSERT_TRUE(menu[2].action);
    menu[2].action();
    EXPECT_EQ(delegate_.openPreferencesCount(), 1);
}

// ---- the editing commands

struct CommandRow {
    const char* name;
    TextCommand command;
    bool listVisible;
    int row;
    // Folder whose entries are the candidates ("" for none).
    const char* candidatesOf;
    TextRange selection;
    const char* text;
    std::optional<std::string> location;
    bool handled;
    std::vector<std::string> actions;
};

class DoCommandBySelector : public PathWindowControllerTable<CommandRow> {};

TEST_P(DoCommandBySelector, Row) {
    const CommandRow& row = GetParam();
    finder_->answer(handlers::finderGetPath, t("{T}"));
    if (row.location) bar().setFinderLocation(t(*row.location));
    if (*row.candidatesOf) bar().updateCompletions(t(row.candidatesOf));
    views_.completions().setContentSilently(bar().currentCompletions());
    views_.completions().setVisible(row.listVisible);
    views_.completions().setSelectedRowSilently(row.row);
    views_.field().type(t(row.text), row.selection);
    log_->clear();

    EXPECT_EQ(bar().doCommandBySelector(row.command), row.handled);
    settle();
    std::vector<std::string> actions =
        logged({"list.selectRow", "list.scrollRowToVisible", "list.deselectAll", "list.orderOut",
                "list.orderFrontRegardless", "panel.orderOut", "vj ", "workspace.", "field.setSelectedRange",
                "field.setStringValue"});
    // Where the caret went is checked on its own below.
    for (std::string& action : actions)
        if (action.starts_with("field.setSelectedRange")) action = "field.setSelectedRange";
    expectActionsAndCalls(actions, t(row.actions));
}

constexpr TextRange kCaretInside{1, 0};
constexpr TextRange kCaretAtStart{0, 0};
constexpr TextRange kCompletionSelected{9, 4};

// The candidates of "{T}/nine/" are {T}/nine/file1 ... file9; of "{T}/c" just {T}/c.txt.
const CommandRow kCommandRows[] = {
    {"Down in the open list scrolls to and selects the next row", TextCommand::moveDown, true, 0, "{T}/nine/",
     kCaretInside, "x", "{T}", true, {"list.scrollRowToVisible 1", "list.selectRow 1"}},
    {"Down on the last row keeps it", TextCommand::moveDown, true, 8, "{T}/nine/", kCaretInside, "x", "{T}", true,
     {}},
    {"Down in the open list with no row selects the first without scrolling", TextCommand::moveDown, true, -1,
     "{T}/nine/", kCaretInside, "x", "{T}", true, {"list.selectRow 0"}},
    {"Down in an open empty list does nothing", TextCommand::moveDown, true, -1, "", kCaretInside, "x", "{T}", true,
     {}},
    {"Down with the list hidden and the caret at the start moves it to the end and opens the list",
     TextCommand::moveDown, false, -1, "", kCaretAtStart, "{T}/c", "{T}", true,
     {"field.setSelectedRange", "list.selectRow 0", "list.orderFrontRegardless"}},
    {"Down with the list hidden and the caret inside leaves it and opens the list", TextCommand::moveDown, false, -1,
     "", kCaretInside, "{T}/c", "{T}", true, {"list.selectRow 0", "list.orderFrontRegardless"}},
    {"Up in the open list selects the row above", TextCommand::moveUp, true, 3, "{T}/nine/", kCaretInside, "x", "{T}",
     true, {"list.scrollRowToVisible 2", "list.selectRow 2"}},
    {"Up on the first row closes the list", TextCommand::moveUp, true, 0, "{T}/nine/", kCaretInside, "x", "{T}", true,
     {"list.orderOut"}},
    {"Up in the open list with no row goes to the parent folder", TextCommand::moveUp, true, -1, "{T}/nine/",
     kCaretInside, "{T}/docs/sub", "{T}", true,
     {"field.setStringValue {T}/docs/", "list.orderOut", "field.setSelectedRange", "field.setStringValue {T}/docs/"}},
    {"Up with the list hidden goes to the parent folder", TextCommand::moveUp, false, -1, "", kCaretInside,
     "{T}/docs/sub/", "{T}", true,
     {"field.setStringValue {T}/docs/", "list.orderOut", "field.setSelectedRange", "field.setStringValue {T}/docs/"}},
    {"Return in the open list enters the selected candidate", TextCommand::insertNewline, true, 1, "{T}/three/",
     kCaretInside, "x", "{T}", true,
     {"field.setStringValue {T}/three/bb", "list.orderOut", "field.setSelectedRange",
      "field.setStringValue {T}/three/bb"}},
    {"Return in the open list with no row enters the empty text and shows the folder again",
     TextCommand::insertNewline, true, -1, "{T}/nine/", kCaretInside, "x", "{T}", true,
     {"field.setStringValue ", "list.orderOut", "field.setSelectedRange", "field.setStringValue {T}"}},
    {"Return over an inline completion enters it", TextCommand::insertNewline, false, -1, "", kCompletionSelected,
     "{T}/docs/", "{T}/docs/", true, {"list.orderOut", "field.setSelectedRange", "field.setStringValue {T}/docs/"}},
    {"Return on the folder already shown hides the bar and shows it again", TextCommand::insertNewline, false, -1, "",
     kCaretInside, "{T}/docs", "{T}/docs", true,
     {"panel.orderOut", "list.orderOut", "list.orderOut", "field.setSelectedRange", "field.setStringValue {T}/docs"}},
    {"Return on a new folder keeps the bar open", TextCommand::insertNewline, false, -1, "", kCaretInside, "{T}/docs",
     "{T}", true, {"list.orderOut", "field.setSelectedRange", "field.setStringValue {T}/docs"}},
    {"Return on a pattern selects its matches and keeps the bar open", TextCommand::insertNewline, false, -1, "",
     kCaretInside, "*.log", "{T}", true,
     {"list.orderOut", "field.setSelectedRange", "vj finder_select2 [{T}] [a.log|!|bb.log]",
      "field.setStringValue *.log"}},
    {"Return on a pattern equal to the stored folder still keeps the bar open", TextCommand::insertNewline, false, -1,
     "", kCaretInside, "*.log", "*.log", true,
     {"list.orderOut", "field.setSelectedRange", "vj finder_select2 [*.log] []", "field.setStringValue *.log"}},
    {"Tab over an inline completion enters it", TextCommand::insertTab, false, -1, "", kCompletionSelected,
     "{T}/docs/", "{T}", true, {"list.orderOut", "field.setSelectedRange", "field.setStringValue {T}/docs/"}},
    {"Tab with the list hidden opens it on its first row", TextCommand::insertTab, false, -1, "", kCaretInside, "{T}/c",
     "{T}", true, {"list.selectRow 0", "list.orderFrontRegardless"}},
    {"Tab in the open list moves down", TextCommand::insertTab, true, 0, "{T}/nine/", kCaretInside, "x", "{T}", true,
     {"list.scrollRowToVisible 1", "list.selectRow 1"}},
    {"Shift Tab on the first row closes the list", TextCommand::insertBacktab, true, 0, "{T}/nine/", kCaretInside, "x",
     "{T}", true, {"list.orderOut"}},
    {"Shift Tab with the list hidden goes to the parent folder", TextCommand::insertBacktab, false, -1, "",
     kCaretInside, "{T}/docs", "{T}", true,
     {"field.setStringValue {T}/", "list.orderOut", "field.setSelectedRange", "field.setStringValue {T}/"}},
    {"Ctrl Up goes to the parent folder even in the open list", TextCommand::moveToBeginningOfDocument, true, 2,
     "{T}/nine/", kCaretInside, "{T}/docs", "{T}", true,
     {"field.setStringValue {T}/", "list.orderOut", "field.setSelectedRange", "field.setStringValue {T}/"}},
    {"Ctrl Down opens the item in the field", TextCommand::moveToEndOfDocument, false, -1, "", kCaretInside,
     "{T}/notes.txt", "{T}", true, {"workspace.openFile {T}/notes.txt"}},
    {"Escape closes the open list and keeps the bar", TextCommand::cancelOperation, true, 0, "{T}/nine/",
     kCaretInside, "x", "{T}", true, {"list.orderOut"}},
    {"Escape with the list hidden hides the bar", TextCommand::cancelOperation, false, -1, "", kCaretInside, "x",
     "{T}", true, {"panel.orderOut", "list.orderOut"}},
    {"any other command is left to the field", TextCommand::other, true, 0, "{T}/nine/", kCaretInside, "x", "{T}",
     false, {}},
};
INSTANTIATE_TEST_SUITE_P(PathWindowController, DoCommandBySelector, testing::ValuesIn(kCommandRows),
                         SentenceName{});

TEST_F(PathWindowControllerTest, DownWithTheListHiddenMovesACaretAtTheStartToTheEndOnly) {
    bar().setFinderLocation(t("{T}"));
    views_.field().type(t("{T}/c"), {0, 0});
    bar().doCommandBySelector(TextCommand::moveDown);
    EXPECT_EQ(views_.field().selectedRange(), (TextRange{t("{T}/c").size(), 0}));
    EXPECT_EQ(views_.completions().content(), std::vector<std::string>{t("{T}/c.txt")});

    views_.completions().setVisible(false);
    views_.field().type(t("{T}/c"), {2, 0});
    bar().doCommandBySelector(TextCommand::moveDown);
    EXPECT_EQ(views_.field().selectedRange(), (TextRange{2, 0}));
}

TEST_F(PathWindowControllerTest, TextChangedToEmptyShowsTheSearchImage) {
    bar().setCurrentImage(BarImage::iconForFile("/x"));
    views_.field().type("/x");
    bar().controlTextDidChange();
    EXPECT_EQ(views_.field().image(), BarImage::iconForFile("/x"));
    views_.field().type("");
    bar().controlTextDidChange();
    EXPECT_EQ(views_.field().image(), BarImage::search());
    EXPECT_EQ(bar().currentImage(), BarImage::search());
}

}  // namespace
}  // namespace jorvane::test
