// The event tap's callback, row by row: each row's events, their decisions and what reached Thunar, bars and tap.
#include "JorvaneAppFixture.h"

namespace jorvane::test::appcore {
namespace {

using appcore::PrintTo;
using Decision = EventTap::Decision;
using Strings = std::vector<std::string>;
constexpr Decision P = Decision::Pass;
constexpr Decision S = Decision::Swallow;
constexpr Modifiers kCmd = kModifierCommand, kShift = kModifierShift, kCaps = kModifierCapsLock, kOpt = kModifierOption;

TapEvent key(KeyCode code, bool down, Modifiers flags, bool repeat = false) {
    TapEvent event = TapEvent::keyboardEvent(code, down, flags);
    event.autorepeat = repeat;
    return event;
}
TapEvent mouse(EventType type, Point at, Modifiers flags = 0, std::int64_t button = kMouseButtonLeft) {
    return TapEvent::mouseEvent(type, at, button, 1, flags);
}
TapEvent notice(EventType type, Modifiers flags = 0) {
    TapEvent event;
    event.type = type;
    event.flags = flags;
    return event;
}
TapEvent flagsChanged(Modifiers flags) { return notice(kEventFlagsChanged, flags); }
TapEvent upAt(double x, double y = 60, Modifiers flags = 0) { return mouse(kEventLeftMouseUp, {x, y}, flags); }
TapEvent middle(Modifiers flags = 0, std::int64_t button = kMouseButtonCenter, EventType type = kEventOtherMouseUp) {
    return mouse(type, {300, 200}, flags, button);
}
const TapEvent kGDown = key(kKeyG, true, kCmd), kGUp = key(kKeyG, false, kCmd);
constexpr Point kOnTitle = JorvaneAppFixture::kOnTitle;
const TapEvent kDrag = mouse(kEventLeftMouseDragged, kOnTitle);

// A new bar is ordered out at once; an opening bar shows an empty field, asks whether the window browses,
// then for its folder, and shows that.
const Strings kCreated = {"panel.hide"};
const Strings kShown = {"field.setStringValue ", "call is_folder_window", "call folder_path",
                        "field.setStringValue /home/me"};
const Strings kClicked = kCreated + kShown + Strings{"field.selectAll"};
const Strings kOpened = kCreated + kShown;

using Arrange = void (*)(JorvaneAppFixture&);
void shortcutsOn(JorvaneAppFixture& f) { f.defaults_->setBool(true, settings::keys::inactiveShortcuts); }
void hotKeyOff(JorvaneAppFixture& f) { f.defaults_->setBool(false, settings::keys::activateByHotkey); }
void titleOff(JorvaneAppFixture& f) { f.defaults_->setBool(false, settings::keys::activateByTitlebar); }
void barOpen(JorvaneAppFixture& f) { f.openBar(); }

struct TapRow {
    const char* name;
    Arrange setup;
    std::vector<TapEvent> events;
    std::vector<Decision> decisions;
    Strings effects;
    std::optional<bool> dragInProgress = std::nullopt;
};

class TapCallback : public AppDelegateTable<TapRow> {};

TEST_P(TapCallback, Row) {
    const TapRow& row = GetParam();
    launched();
    if (row.setup) row.setup(*this);
    settle();
    log_->clear();
    std::vector<Decision> decisions;
    for (const TapEvent& event : row.events) decisions.push_back(push(event));
    settle();
    EXPECT_EQ(decisions, row.decisions);
    EXPECT_EQ(
        logged({"call ", "fm.", "tap.post", "tap.setEnabled", "panel.hide", "field.setStringValue", "field.selectAll"}),
        row.effects);
    if (row.dragInProgress) {
        EXPECT_EQ(delegate().dragInProgress(), *row.dragInProgress);
    }
}

// clang-format off
const TapRow kRows[] = {
    {"a time out notice turns the tap back on and passes",
     [](JorvaneAppFixture& f) { f.tap_.setEnabledSilently(false); }, {notice(kEventTapDisabledByTimeout)}, {P},
     {"tap.setEnabled 1"}},
    {"a notice of disabling by user input changes nothing", nullptr, {notice(kEventTapDisabledByUserInput)}, {P}, {}},
    // Extra shortcuts.
    {"Command R with the extra shortcuts on is swallowed and reloads", shortcutsOn, {key(kKeyR, true, kCmd)}, {S},
     {"call reload"}},
    {"Command R with the extra shortcuts off passes and does nothing", nullptr, {key(kKeyR, true, kCmd)}, {P}, {}},
    {"the key up of Command R passes", shortcutsOn, {key(kKeyR, false, kCmd)}, {P}, {}},
    {"an autorepeated Command R passes", shortcutsOn, {key(kKeyR, true, kCmd, true)}, {P}, {}},
    {"Command R with caps lock still reloads", shortcutsOn, {key(kKeyR, true, kCmd | kCaps)}, {S}, {"call reload"}},
    {"Command Option R passes", shortcutsOn, {key(kKeyR, true, kCmd | kOpt)}, {P}, {}},
    {"Command Shift F opens an empty bar over the focused window", shortcutsOn, {key(kKeyF, true, kCmd | kShift)},
     {S}, kCreated + Strings{"field.setStringValue ", "call is_folder_window"}},
    {"Command T opens a terminal at the window's folder", shortcutsOn, {key(kKeyT, true, kCmd)}, {S},
     {"call folder_path", "call open_terminal [/home/me]"}},
    {"Command T without a folder opens no terminal",
     [](JorvaneAppFixture& f) { shortcutsOn(f); f.catalogue_->answer(handlers::folderPath, std::nullopt); },
     {key(kKeyT, true, kCmd)}, {S}, {"call folder_path"}},
    {"Command Shift period flips hidden files and quits the file manager", shortcutsOn,
     {key(kKeyPeriod, true, kCmd | kShift)}, {S},
     {"fm.showsAllFiles", "fm.setShowsAllFiles 1", "fm.quit org.xfce.Thunar"}},
    // The hot key (Command G): the press arms it, the release of the same key acts, whatever the modifiers' order.
    {"the hot key press is swallowed and does nothing yet", nullptr, {kGDown}, {S}, {}},
    {"the hot key released after its modifier opens the focused window's bar", nullptr, {kGDown, kGUp}, {S, S},
     kOpened},
    {"the hot key released after letting go of its modifier still opens the bar", nullptr,
     {kGDown, flagsChanged(0), key(kKeyG, false, 0)}, {S, P, S}, kOpened},
    {"the hot key released with another modifier added since still opens the bar", nullptr,
     {kGDown, flagsChanged(kCmd | kShift), key(kKeyG, false, kCmd | kShift)}, {S, P, S}, kOpened},
    {"a release without the press passes and opens nothing", nullptr, {kGUp}, {P}, {}},
    {"the modifier pressed long before the key counts", nullptr,
     {flagsChanged(kCmd), key(kKeyH, true, kCmd), key(kKeyH, false, kCmd), kGDown, key(kKeyG, false, 0)},
     {P, P, P, S, S}, kOpened},
    {"holding the hot key lets the repeats through and acts once on the release", nullptr,
     {kGDown, key(kKeyG, true, kCmd, true), key(kKeyG, true, kCmd, true), kGUp}, {S, P, P, S}, kOpened},
    {"pressed again the hot key opens the bar again", barOpen, {kGDown, key(kKeyG, false, 0)}, {S, S}, kShown},
    {"another key pressed while the hot key is held passes and its release is swallowed without acting", nullptr,
     {kGDown, key(kKeyH, true, kCmd), key(kKeyH, false, kCmd), kGUp}, {S, P, P, S}, {}},
    {"a release of another key while the hot key is held passes and keeps the hot key", nullptr,
     {kGDown, key(kKeyH, false, kCmd), kGUp}, {S, P, S}, kOpened},
    {"the hot key with caps lock still matches", nullptr, {key(kKeyG, true, kCmd | kCaps), key(kKeyG, false, kCaps)},
     {S, S}, kOpened},
    {"the hot key with option held passes in either release order", nullptr,
     {key(kKeyG, true, kCmd | kOpt), key(kKeyG, false, kCmd | kOpt), key(kKeyG, true, kCmd | kOpt),
      key(kKeyG, false, kOpt)}, {P, P, P, P}, {}},
    {"the hot key's key without its modifier passes", nullptr, {key(kKeyG, true, 0), key(kKeyG, false, 0)}, {P, P}, {}},
    {"the hot key's key with the modifier added after the press passes", nullptr,
     {key(kKeyG, true, 0), flagsChanged(kCmd), kGUp}, {P, P, P}, {}},
    {"another key with the hot key's modifier passes", nullptr, {key(kKeyH, true, kCmd)}, {P}, {}},
    {"the hot key passes when hot key activation is off", hotKeyOff, {kGDown, kGUp}, {P, P}, {}},
    {"a stored hot key mask with caps lock in it never matches",
     [](JorvaneAppFixture& f) { f.defaults_->setInteger(kCmd | kCaps, settings::keys::hotkeyFlags); },
     {key(kKeyG, true, kCmd | kCaps)}, {P}, {}},
    {"a stored hot key code beyond 16 bits never matches",
     [](JorvaneAppFixture& f) { f.defaults_->setInteger(0x10000 + kKeyG, settings::keys::hotkeyKeycode); },
     {kGDown}, {P}, {}},
    {"a hot key equal to Command R reloads on the press and opens the bar on the release",
     [](JorvaneAppFixture& f) { shortcutsOn(f); f.defaults_->setInteger(kKeyR, settings::keys::hotkeyKeycode); },
     {key(kKeyR, true, kCmd), key(kKeyR, false, kCmd)}, {S, S}, Strings{"call reload"} + kOpened},
    {"a change of modifiers passes", nullptr, {flagsChanged(kCmd)}, {P}, {}},
    // Drags.
    {"a drag hides an open bar once", barOpen, {kDrag, kDrag, kDrag}, {P, P, P}, {"panel.hide"}, true},
    {"the mouse up that ends a drag does not reopen the bar", barOpen, {kDrag, upAt(400)}, {P, P}, {"panel.hide"},
     false},
    {"a drag over a window without a bar hides nothing", nullptr, {kDrag}, {P}, {}, true},
    {"a drag with the bar hidden hides nothing", [](JorvaneAppFixture& f) { f.openBar()->hide(); }, {kDrag}, {P}, {},
     true},
    {"with title activation off the mouse up leaves the drag in progress", titleOff, {kDrag, upAt(400)}, {P, P}, {},
     true},
    {"a drag ended with command held is ended by the next plain click which opens nothing", nullptr,
     {kDrag, upAt(400, 60, kCmd), upAt(400)}, {P, P, P}, {}, false},
    // Title-bar clicks; the title text runs from 340 to 460, 53 to 69.
    {"a click on the title opens the bar and selects its text", nullptr, {upAt(400)}, {P}, kClicked},
    {"a click 20 points left of the title text opens the bar", nullptr, {upAt(320)}, {P}, kClicked},
    {"a click 21 points left of the title text does nothing", nullptr, {upAt(319)}, {P}, {}},
    {"a click 9 points right of the title text opens the bar", nullptr, {upAt(469)}, {P}, kClicked},
    {"a click 10 points right of the title text does nothing", nullptr, {upAt(470)}, {P}, {}},
    {"a click on the title text's top edge opens the bar", nullptr, {upAt(400, 53)}, {P}, kClicked},
    {"a click just under the title text does nothing", nullptr, {upAt(400, 69)}, {P}, {}},
    {"a click outside every window does nothing", nullptr, {upAt(900, 700)}, {P}, {}},
    {"a command click on the title does nothing", nullptr, {upAt(400, 60, kCmd)}, {P}, {}},
    {"a click on the title with title activation off does nothing", titleOff, {upAt(400)}, {P}, {}},
    {"a click on a window without a title text does nothing", [](JorvaneAppFixture& f) { f.ax_->destroy(f.title_); },
     {upAt(400)}, {P}, {}},
    {"a click on the title of a window with a bar reopens that bar", barOpen, {upAt(400)}, {P},
     kShown + Strings{"field.selectAll"}},
    // Middle clicks.
    {"a middle click posts a click and then a command double click at the mouse", nullptr, {middle()}, {P},
     {"tap.post leftDown 300,200 click 1 flags 0x0", "tap.post leftUp 300,200 click 1 flags 0x0",
      "tap.post leftDown 300,200 click 2 flags 0x100000", "tap.post leftUp 300,200 click 2 flags 0x100000"}},
    {"a middle click posts nothing when the file manager opens the folder in a new window itself",
     [](JorvaneAppFixture& f) { f.fileManager_.setOpensMiddleClickedFolderInNewWindow(true); }, {middle()}, {P}, {}},
    {"a middle click with shift held posts nothing", nullptr, {middle(kShift)}, {P}, {}},
    {"a click of the fourth button posts nothing", nullptr, {middle(0, 3)}, {P}, {}},
    {"a middle button press posts nothing", nullptr, {middle(0, kMouseButtonCenter, kEventOtherMouseDown)}, {P}, {}},
    {"presses right clicks moves and scrolling on the title pass untouched", nullptr,
     {mouse(kEventLeftMouseDown, kOnTitle), mouse(kEventRightMouseUp, kOnTitle), mouse(kEventMouseMoved, kOnTitle),
      mouse(kEventScrollWheel, kOnTitle)}, {P, P, P, P}, {}},
};
// clang-format on
INSTANTIATE_TEST_SUITE_P(Rows, TapCallback, testing::ValuesIn(kRows), SentenceName{});

TEST(SwallowableKeys, AtInstall) {
    const std::pair<Arrange, std::string> rows[] = {
        {nullptr, "5/0x100000"},
        {shortcutsOn, "5/0x100000 15/0x100000 3/0x120000 17/0x100000 47/0x120000"},
        {[](JorvaneAppFixture& f) { hotKeyOff(f), shortcutsOn(f); }, "15/0x100000 3/0x120000 17/0x100000 47/0x120000"},
        {[](JorvaneAppFixture& f) { f.defaults_->setInteger(kCmd | kCaps, settings::keys::hotkeyFlags); }, ""}};
    for (const auto& [setup, keys] : rows) {
        JorvaneAppFixture f;
        if (setup) setup(f);
        f.launched();
        EXPECT_EQ(FakeEventTap::describe(f.tap_.swallowableKeys()), keys);
    }
}

TEST_F(AppDelegateTest, theTapLearnsChangedKeysFromTheSettingsOrWhenABarOpens) {
    launched();
    ASSERT_EQ(tap_.swallowableKeysCalls(), 1u);
    delegate().settingsChanged();
    EXPECT_EQ(tap_.swallowableKeysCalls(), 1u) << "nothing changed, nothing to tell";
    defaults_->setInteger(kKeyJ, settings::keys::hotkeyKeycode);
    delegate().settingsChanged();
    EXPECT_EQ(FakeEventTap::describe(tap_.swallowableKeys()), "38/0x100000");
    // Changed behind the preferences' back: the next bar that opens notices.
    defaults_->setBool(false, settings::keys::activateByHotkey);
    push(TapEvent::mouseEvent(kEventLeftMouseUp, kOnTitle));
    settle();
    EXPECT_EQ(tap_.swallowableKeysCalls(), 3u);
    EXPECT_TRUE(tap_.swallowableKeys().empty());
    // And a bar the hot key opens.
    defaults_->setBool(true, settings::keys::activateByHotkey);
    push(key(kKeyJ, true, kCmd));
    push(key(kKeyJ, false, kCmd));
    settle();
    EXPECT_EQ(tap_.swallowableKeysCalls(), 4u);
    EXPECT_EQ(FakeEventTap::describe(tap_.swallowableKeys()), "38/0x100000");
}

}  // namespace
}  // namespace jorvane::test::appcore
