// The bar's keyboard: the panel's shortcuts, the field editor's filter, the editing commands, the context menu.
#include "PathWindowControllerFixture.h"
#include "unit/ScopedEnv.h"

#include <gmock/gmock.h>

#include <cstdint>

namespace jorvane::test {
namespace {

using test::PrintTo;
using testing::ElementsAre;
using Strings = std::vector<std::string>;
using HotKey = std::pair<std::int64_t, std::int64_t>;
constexpr Modifiers kCmd = kModifierCommand, kShift = kModifierShift, kOpt = kModifierOption, kCtl = kModifierControl;

struct ShortcutRow {
    const char* name;
    KeyCode key;
    Modifiers flags;
    bool handled;
    // What happened, as the log's actions ("{T}" the folder, "{H}" the home folder).
    std::vector<std::string> actions;
    std::optional<HotKey> hotkey = std::nullopt;  // other than the shipped Ctrl+G: {key code, flags}
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
    bar().setFileManagerLocation(t("{T}"));
    views_.field().type(t("{T}/notes.txt"));
    EXPECT_EQ(bar().handleKeyDown({row.key, row.flags, {}}), row.handled);
    if (row.backgroundCall) {
        EXPECT_TRUE(catalogue_->waitForCalls(row.backgroundCall, 1));
    }
    settle();
    Strings expected;
    for (const std::string& action : row.actions) expected.push_back(replaceAll(t(action), "{H}", t("{T}/docs")));
    expectActionsAndCalls(
        logged({"call ", "delegate.", "workspace.", "panel.hide", "list.hide", "field.setStringValue"}), expected,
        row.backgroundCall);
    if (row.backgroundCall) {
        ASSERT_EQ(catalogue_->callCount(row.backgroundCall), 1u);
        EXPECT_EQ(catalogue_->lastCall(row.backgroundCall)->params, Strings{t("{T}/notes.txt")});
    }
}

// clang-format off
const ShortcutRow kShortcutRows[] = {
    {"Ctrl Return opens the item in the field", kKeyReturn, kCmd, true, {"workspace.openFile {T}/notes.txt"}},
    {"Ctrl O opens the item in the field", kKeyO, kCmd, true, {"workspace.openFile {T}/notes.txt"}},
    {"the hot key again orders out the panel but not the list", kKeyG, kCmd, true, {"panel.hide"}},
    {"Ctrl H goes to the home folder with a trailing slash", kKeyH, kCmd, true,
     {"field.setStringValue {H}/", "list.hide", "field.setStringValue {H}/"}},
    {"Ctrl N hides, opens a window on the text and opens the new window's bar", kKeyN, kCmd, true,
     {"panel.hide", "list.hide", "call new_window [{T}/notes.txt]", "delegate.show"}},
    {"Ctrl W hides and then closes the window", kKeyW, kCmd, true,
     {"panel.hide", "list.hide", "call close_window"}},
    {"Ctrl T hides and opens a terminal at the text", kKeyT, kCmd, true, {"panel.hide", "list.hide"},
     std::nullopt, "open_terminal"},
    {"Ctrl R reloads and keeps the bar open", kKeyR, kCmd, true, {"call reload"}},
    {"Ctrl Shift F reopens the bar empty in search form", kKeyF, kCmd | kShift, true,
     {"field.setStringValue ", "call is_folder_window", "field.setStringValue "}},
    {"Ctrl Shift period hides and toggles hidden files", kKeyPeriod, kCmd | kShift, true,
     {"panel.hide", "list.hide", "delegate.toggleShowHidden"}},
    {"Ctrl 1 switches to the icon view", kKey1, kCmd, true, {"call icon_view"}},
    {"Ctrl 2 switches to the list view", kKey2, kCmd, true, {"call list_view"}},
    {"Ctrl 3 switches to the column view", kKey3, kCmd, true, {"call column_view"}},
    {"Ctrl 4 switches to the gallery view", kKey4, kCmd, true, {"call gallery_view"}},
    {"Caps Lock and the keypad bit do not defeat Ctrl 1", kKey1, kCmd | kModifierCapsLock | kModifierNumericPad, true,
     {"call icon_view"}},
    // Rows where nothing happens.
    {"Ctrl Alt W matches no row", kKeyW, kCmd | kOpt, false, {}},
    {"Ctrl Shift W matches no row", kKeyW, kCmd | kShift, false, {}},
    {"Super W matches no row", kKeyW, kCtl, false, {}},
    {"W alone is typing", kKeyW, 0, false, {}},
    {"Ctrl F without Shift matches no row", kKeyF, kCmd, false, {}},
    {"Ctrl Shift 1 matches no row", kKey1, kCmd | kShift, false, {}},
    {"Ctrl 5 matches no row", kKey5, kCmd, false, {}},
    {"Ctrl Alt G is not the hot key", kKeyG, kCmd | kOpt, false, {}},
    // The hot key is read at each press and tested third.
    {"a hot key recorded as Ctrl Return opens the item instead of closing", kKeyReturn, kCmd, true,
     {"workspace.openFile {T}/notes.txt"}, HotKey{kKeyReturn, kCmd}},
    {"a hot key recorded as Ctrl W closes the bar instead of the window", kKeyW, kCmd, true, {"panel.hide"},
     HotKey{kKeyW, kCmd}},
    {"a hot key recorded as Ctrl Shift K closes the bar", 0x28, kCmd | kShift, true, {"panel.hide"},
     HotKey{0x28, kCmd | kShift}},
    {"Ctrl G is free once the hot key moved away", kKeyG, kCmd, false, {}, HotKey{0x28, kCmd | kShift}},
    {"a hot key without modifiers is F5 alone", kKeyF5, 0, true, {"panel.hide"}, HotKey{kKeyF5, 0}},
};
// clang-format on
INSTANTIATE_TEST_SUITE_P(PathWindowController, HandleKeyDown, testing::ValuesIn(kShortcutRows), SentenceName{});

TEST(PathFieldEditor, SwallowsTheBarsShortcutsAndPassesTheRestToTheText) {
    const std::tuple<KeyCode, Modifiers, bool> rows[] = {
        {kKeyW, kCmd, true},         {kKeyN, kCmd, true},           {kKeyT, kCmd, true},
        {kKeyR, kCmd, true},         {kKey1, kCmd, true},           {kKey2, kCmd, true},
        {kKey3, kCmd, true},         {kKey4, kCmd, true},           {kKeyW, kCmd | kModifierCapsLock, true},
        {kKeyW, kCmd | kOpt, false}, {kKey1, kCmd | kShift, false}, {kKeyW, 0, false},
        {kKeyA, kCmd, false},        {kKeyO, kCmd, false},          {kKey5, kCmd, false}};
    for (const auto& [key, flags, consumed] : rows)
        EXPECT_EQ(PathFieldEditor::keyDown({key, flags, {}}), consumed) << key << " " << flags;
}

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

struct CommandRow {
    const char* name;
    TextCommand command;
    bool listVisible;
    int row;
    const char* candidatesOf;  // folder whose entries are the candidates ("" for none)
    TextRange selection;
    const char* text;
    std::optional<std::string> location;
    bool handled;
    std::vector<std::string> actions;
};

class EditCommands : public PathWindowControllerTable<CommandRow> {};

TEST_P(EditCommands, Row) {
    const CommandRow& row = GetParam();
    catalogue_->answer(handlers::folderPath, t("{T}"));
    if (row.location) bar().setFileManagerLocation(t(*row.location));
    if (*row.candidatesOf) bar().updateCompletions(t(row.candidatesOf));
    views_.completions().setContentSilently(bar().currentCompletions());
    views_.completions().setVisible(row.listVisible);
    views_.completions().setSelectedRowSilently(row.row);
    views_.field().type(t(row.text), row.selection);
    log_->clear();
    EXPECT_EQ(bar().handleEditCommand(row.command), row.handled);
    settle();
    Strings actions =
        logged({"list.selectRow", "list.scrollRowToVisible", "list.deselectAll", "list.hide", "list.raise",
                "panel.hide", "call ", "workspace.", "field.setSelectedRange", "field.setStringValue"});
    // Where the caret went is checked on its own below.
    for (std::string& action : actions)
        if (action.starts_with("field.setSelectedRange")) action = "field.setSelectedRange";
    expectActionsAndCalls(actions, t(row.actions));
}

constexpr TextRange kCaretInside{1, 0};
constexpr TextRange kCaretAtStart{0, 0};
constexpr TextRange kCompletionSelected{9, 4};

// The text replaced and entered: set, the list closed, the caret placed, shown.
Strings replacedBy(const std::string& to) {
    return {"field.setStringValue " + to, "list.hide", "field.setSelectedRange", "field.setStringValue " + to};
}
// Entering the text: the list closed, the caret after the text, the text shown.
Strings enters(const std::string& text) {
    return {"list.hide", "field.setSelectedRange", "field.setStringValue " + text};
}

// The candidates of "{T}/nine/" are {T}/nine/file1 ... file9; of "{T}/c" just {T}/c.txt.
// clang-format off
const CommandRow kCommandRows[] = {
    {"Down in the open list scrolls to and selects the next row", TextCommand::moveDown, true, 0, "{T}/nine/",
     kCaretInside, "x", "{T}", true, {"list.scrollRowToVisible 1", "list.selectRow 1"}},
    {"Down on the last row keeps it", TextCommand::moveDown, true, 8, "{T}/nine/", kCaretInside, "x", "{T}", true, {}},
    {"Down in the open list with no row selects the first without scrolling", TextCommand::moveDown, true, -1,
     "{T}/nine/", kCaretInside, "x", "{T}", true, {"list.selectRow 0"}},
    {"Down in an open list of one row with no row selects it", TextCommand::moveDown, true, -1, "{T}/c", kCaretInside,
     "x", "{T}", true, {"list.selectRow 0"}},
    {"Down in an open empty list does nothing", TextCommand::moveDown, true, -1, "", kCaretInside, "x", "{T}", true,
     {}},
    {"Down with the list hidden and the caret at the start moves it to the end and opens the list",
     TextCommand::moveDown, false, -1, "", kCaretAtStart, "{T}/c", "{T}", true,
     {"field.setSelectedRange", "list.selectRow 0", "list.raise"}},
    {"Down with the list hidden and the caret inside leaves it and opens the list", TextCommand::moveDown, false, -1,
     "", kCaretInside, "{T}/c", "{T}", true, {"list.selectRow 0", "list.raise"}},
    {"Up in the open list selects the row above", TextCommand::moveUp, true, 3, "{T}/nine/", kCaretInside, "x", "{T}",
     true, {"list.scrollRowToVisible 2", "list.selectRow 2"}},
    {"Up on the second row selects the first", TextCommand::moveUp, true, 1, "{T}/nine/", kCaretInside, "x", "{T}",
     true, {"list.scrollRowToVisible 0", "list.selectRow 0"}},
    {"Up on the first row closes the list", TextCommand::moveUp, true, 0, "{T}/nine/", kCaretInside, "x", "{T}", true,
     {"list.hide"}},
    {"Up in the open list with no row goes to the parent folder", TextCommand::moveUp, true, -1, "{T}/nine/",
     kCaretInside, "{T}/docs/sub", "{T}", true, replacedBy("{T}/docs/")},
    {"Up with the list hidden goes to the parent folder", TextCommand::moveUp, false, -1, "", kCaretInside,
     "{T}/docs/sub/", "{T}", true, replacedBy("{T}/docs/")},
    {"Return in the open list enters the selected candidate", TextCommand::insertNewline, true, 1, "{T}/three/",
     kCaretInside, "x", "{T}", true, replacedBy("{T}/three/bb")},
    {"Return in the open list with no row enters the text as typed", TextCommand::insertNewline, true, -1, "{T}/nine/",
     kCaretInside, "x", "{T}", true, enters("{T}/x")},
    {"Return in an open empty list enters the text as typed", TextCommand::insertNewline, true, -1, "", kCaretInside,
     "{T}/docs", "{T}", true, enters("{T}/docs")},
    {"Return over an inline completion enters it", TextCommand::insertNewline, false, -1, "", kCompletionSelected,
     "{T}/docs/", "{T}/docs/", true, enters("{T}/docs/")},
    {"Return on the folder already shown hides the bar and shows it again", TextCommand::insertNewline, false, -1, "",
     kCaretInside, "{T}/docs", "{T}/docs", true,
     {"panel.hide", "list.hide", "list.hide", "field.setSelectedRange", "field.setStringValue {T}/docs"}},
    {"Return on a new folder keeps the bar open", TextCommand::insertNewline, false, -1, "", kCaretInside, "{T}/docs",
     "{T}", true, enters("{T}/docs")},
    {"Return on a pattern selects its matches and keeps the bar open", TextCommand::insertNewline, false, -1, "",
     kCaretInside, "*.log", "{T}", true,
     {"list.hide", "field.setSelectedRange", "call select_names [{T}] [a.log|!|bb.log]", "field.setStringValue *.log"}},
    {"Return on a pattern equal to the stored folder still keeps the bar open", TextCommand::insertNewline, false, -1,
     "", kCaretInside, "*.log", "*.log", true,
     {"list.hide", "field.setSelectedRange", "call select_names [*.log] []", "field.setStringValue *.log"}},
    {"Tab over an inline completion enters it", TextCommand::insertTab, false, -1, "", kCompletionSelected, "{T}/docs/",
     "{T}", true, enters("{T}/docs/")},
    {"Tab with the list hidden opens it on its first row", TextCommand::insertTab, false, -1, "", kCaretInside, "{T}/c",
     "{T}", true, {"list.selectRow 0", "list.raise"}},
    {"Shift Tab on the first row closes the list", TextCommand::insertBacktab, true, 0, "{T}/nine/", kCaretInside, "x",
     "{T}", true, {"list.hide"}},
    {"Shift Tab with the list hidden goes to the parent folder", TextCommand::insertBacktab, false, -1, "",
     kCaretInside, "{T}/docs", "{T}", true, replacedBy("{T}/")},
    {"Ctrl Up goes to the parent folder even in the open list", TextCommand::moveToBeginningOfDocument, true, 2,
     "{T}/nine/", kCaretInside, "{T}/docs", "{T}", true, replacedBy("{T}/")},
    {"Ctrl Down opens the item in the field", TextCommand::moveToEndOfDocument, false, -1, "", kCaretInside,
     "{T}/notes.txt", "{T}", true, {"workspace.openFile {T}/notes.txt"}},
    {"Escape closes the open list and keeps the bar", TextCommand::cancelOperation, true, 0, "{T}/nine/", kCaretInside,
     "x", "{T}", true, {"list.hide"}},
    {"Escape with the list hidden hides the bar", TextCommand::cancelOperation, false, -1, "", kCaretInside, "x", "{T}",
     true, {"panel.hide", "list.hide"}},
    {"any other command is left to the field", TextCommand::other, true, 0, "{T}/nine/", kCaretInside, "x", "{T}",
     false, {}},
};
// clang-format on
INSTANTIATE_TEST_SUITE_P(PathWindowController, EditCommands, testing::ValuesIn(kCommandRows), SentenceName{});

TEST_F(PathWindowControllerTest, TextChangedToEmptyShowsTheSearchImage) {
    bar().setCurrentImage(BarImage::iconForFile("/x"));
    views_.field().type("/x");
    bar().textChanged();
    EXPECT_EQ(views_.field().image(), BarImage::iconForFile("/x"));
    views_.field().type("");
    bar().textChanged();
    EXPECT_EQ(views_.field().image(), BarImage::search());
    EXPECT_EQ(bar().currentImage(), BarImage::search());
}

}  // namespace
}  // namespace jorvane::test
