// The event tap's callback, row by row in the order it tests an event: the
// tap's notices, the extra shortcuts, the hot key, drags, title-bar clicks,
// middle clicks, and the events it leaves alone. Each row pushes events
// through the fake tap, checks each decision, lets the queued work run and
// compares what reached the file manager, the bars and the tap.

#include "AppDelegateFixture.h"

#include <gmock/gmock.h>

namespace jorvane::test::appcore {
namespace {

using appcore::PrintTo;

using Decision = EventTap::Decision;
constexpr Decision P = Decision::Pass;
constexpr Decision S = Decision::Swallow;
constexpr CGEventFlags kCmd = kCGEventFlagMaskCommand;
constexpr CGEventFlags kShift = kCGEventFlagMaskShift;
constexpr CGEventFlags kCaps = kCGEventFlagMaskAlphaShift;
constexpr CGEventFlags kOpt = kCGEventFlagMaskAlternate;

TapEvent key(CGKeyCode code, bool down, CGEventFlags flags, bool repeat = false) {
    TapEvent event = TapEvent::keyboardEvent(code, down, flags);
    event.autorepeat = repeat;
    return event;
}
TapEvent mouse(CGEventType type, Point at, CGEventFlags flags = 0, std::int64_t button = kCGMouseButtonLeft) {
    return TapEvent::mouseEvent(type, at, button, 1, flags);
}
TapEvent notice(CGEventType type) {
    TapEvent event;
    event.type = type;
    return event;
}
TapEvent flagsChanged(CGEventFlags flags) {
    TapEvent event = notice(kCGEventFlagsChanged);
    event.flags = flags;
    return event;
}
TapEvent upAt(double x, double y = 60, CGEventFlags flags = 0) { return mouse(kCGEventLeftMouseUp, {x, y}, flags); }
constexpr Point kOnTitle = AppDelegateFixture::kOnTitle;
const TapEvent kDrag = mouse(kCGEventLeftMouseDragged, {400, 60});

// A new bar is ordered out at once; a bar that opens asks whether the window
// is a browser window, then (filled) for its folder; a click selects the text.
const std::vector<std::string> kCreated = {"panel.orderOut"};
const std::vector<std::string> kShown = {"vj is_finder_win", "vj finder_get_path", "field.setStringValue /home/me"};
const std::vector<std::string> kShownEmpty = {"vj is_finder_win", "field.setStringValue "};
const std::vector<std::string> kClicked = kCreated + kShown + std::vector<std::string>{"field.selectAll"};
const std::vector<std::string> kHotKeyOpened = kCreated + kShown;

using Setup = void (*)(AppDelegateFixture&);
void shortcutsOn(AppDelegateFixture& f) { f.defaults_->setBool(true, settings::keys::inactiveShortcuts); }
void hotKeyOff(AppDelegateFixture& f) { f.defaults_->setBool(false, settings::keys::activateByHotkey); }
void titleOff(AppDelegateFixture& f) { f.defaults_->setBool(false, settings::keys::activateByTitlebar); }
void barOpen(AppDelegateFixture& f) { f.openBar(); }

struct TapRow {
    const char* name;
    Setup setup;
    std::vector<TapEvent> events;
    std::vector<Decision> decisions;
    std::vector<std::string> effects;
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
    EXPECT_EQ(logged({"vj ", "fm.", "tap.post", "tap.setEnabled", "panel.orderOut", "field.setStringValue",
                      "field.selectAll"}),
              row.effects);
    if (row.dragInProgress) {
        EXPECT_EQ(delegate().dragInProgress(), *row.dragInProgress);
    }
}

const TapRow kRows[] = {
    // The tap's notices.
    {"a time out notice turns the tap back on and passes", [](AppDelegateFixture& f) { f.tap_.setEnabledSilently(false); },
     {notice(kCGEventTapDisabledByTimeout)}, {P}, {"tap.setEnabled 1"}},
    {"a notice of disabling by user input changes nothing", nullptr, {notice(kCGEventTapDisabledByUserInput)}, {P}, {}},
    // Extra shortcuts.
    {"Command R with the extra shortcuts on is swallowed and reloads", shortcutsOn, {key(kVK_ANSI_R, true, kCmd)}, {S},
     {"vj reload"}},
    {"Command R with the extra shortcuts off passes and does nothing", nullptr, {key(kVK_ANSI_R, true, kCmd)}, {P}, {}},
    {"the key up of Command R passes", shortcutsOn, {key(kVK_ANSI_R, false, kCmd)}, {P}, {}},
    {"an autorepeated Command R passes", shortcutsOn, {key(kVK_ANSI_R, true, kCmd, true)}, {P}, {}},
    {"Command R with caps lock still reloads", shortcutsOn, {key(kVK_ANSI_R, true, kCmd | kCaps)}, {S}, {"vj reload"}},
    {"Command Option R passes", shortcutsOn, {key(kVK_ANSI_R, true, kCmd | kOpt)}, {P}, {}},
    {"Command Shift F opens an empty bar over the focused window", shortcutsOn, {key(kVK_ANSI_F, true, kCmd | kShift)},
     {S}, kCreated + kShownEmpty},
    {"Command T opens a terminal at the window's folder", shortcutsOn, {key(kVK_ANSI_T, true, kCmd)}, {S},
     {"vj finder_get_path", "vj open_terminal [/home/me]"}},
    {"Command T without a folder opens no terminal",
     [](AppDelegateFixture& f) {
         shortcutsOn(f);
         f.finder_->answer(handlers::finderGetPath, std::nullopt);
     },
     {key(kVK_ANSI_T, true, kCmd)}, {S}, {"vj finder_get_path"}},
    {"Command Shift period flips hidden files and quits the file manager", shortcutsOn,
     {key(kVK_ANSI_Period, true, kCmd | kShift)}, {S},
     {"fm.showsAllFiles", "fm.setShowsAllFiles 1", "fm.quit org.xfce.Thunar"}},
    // The hot key, Command G by default: the press arms it, the release of
    // the same key acts, in whichever order the keys come up.
    {"the hot key press is swallowed and does nothing yet", nullptr, {key(kVK_ANSI_G, true, kCmd)}, {S}, {}},
    {"the hot key released after its modifier opens the focused window's bar", nullptr,
     {key(kVK_ANSI_G, true, kCmd), key(kVK_ANSI_G, false, kCmd)}, {S, S}, kHotKeyOpened},
    {"the hot key released after letting go of its modifier still opens the bar", nullptr,
     {key(kVK_ANSI_G, true, kCmd), flagsChanged(0), key(kVK_ANSI_G, false, 0)}, {S, P, S}, kHotKeyOpened},
    {"the hot key released with another modifier added since still opens the bar", nullptr,
     {key(kVK_ANSI_G, true, kCmd), flagsChanged(kCmd | kShift), key(kVK_ANSI_G, false, kCmd | kShift)}, {S, P, S},
     kHotKeyOpened},
    {"a release without the press passes and opens nothing", nullptr, {key(kVK_ANSI_G, false, kCmd)}, {P}, {}},
    {"the modifier pressed long before the key counts", nullptr,
     {flagsChanged(kCmd), key(kVK_ANSI_H, true, kCmd), key(kVK_ANSI_H, false, kCmd), key(kVK_ANSI_G, true, kCmd),
      key(kVK_ANSI_G, false, 0)},
     {P, P, P, S, S}, kHotKeyOpened},
    {"holding the hot key lets the repeats through and acts once on the release", nullptr,
     {key(kVK_ANSI_G, true, kCmd), key(kVK_ANSI_G, true, kCmd, true), key(kVK_ANSI_G, true, kCmd, true),
      key(kVK_ANSI_G, false, kCmd)},
     {S, P, P, S}, kHotKeyOpened},
    {"pressed twice the hot key opens the bar twice", nullptr,
     {key(kVK_ANSI_G, true, kCmd), key(kVK_ANSI_G, false, kCmd), key(kVK_ANSI_G, true, kCmd),
      key(kVK_ANSI_G, false, 0)},
     {S, S, S, S}, kHotKeyOpened + kShown},
    {"another key pressed while the hot key is held passes and its release is swallowed without acting", nullptr,
     {key(kVK_ANSI_G, true, kCmd), key(kVK_ANSI_H, true, kCmd), key(kVK_ANSI_H, false, kCmd),
      key(kVK_ANSI_G, false, kCmd)},
     {S, P, P, S}, {}},
    {"a release of another key while the hot key is held passes and keeps the hot key", nullptr,
     {key(kVK_ANSI_G, true, kCmd), key(kVK_ANSI_H, false, kCmd), key(kVK_ANSI_G, false, kCmd)}, {S, P, S},
     kHotKeyOpened},
    {"the hot key with caps lock still matches", nullptr,
     {key(kVK_ANSI_G, true, kCmd | kCaps), key(kVK_ANSI_G, false, kCaps)}, {S, S}, kHotKeyOpened},
    {"the hot key with option held passes in either release order", nullptr,
     {key(kVK_ANSI_G, true, kCmd | kOpt), key(kVK_ANSI_G, false, kCmd | kOpt), key(kVK_ANSI_G, true, kCmd | kOpt),
      key(kVK_ANSI_G, false, kOpt)},
     {P, P, P, P}, {}},
    {"the hot key's key without its modifier passes", nullptr, {key(kVK_ANSI_G, true, 0), key(kVK_ANSI_G, false, 0)},
     {P, P}, {}},
    {"the hot key's key with the modifier added after the press passes", nullptr,
     {key(kVK_ANSI_G, true, 0), flagsChanged(kCmd), key(kVK_ANSI_G, false, kCmd)}, {P, P, P}, {}},
    {"another key with the hot key's modifier passes", nullptr, {key(kVK_ANSI_H, true, kCmd)}, {P}, {}},
    {"the hot key passes when hot key activation is off", hotKeyOff,
     {key(kVK_ANSI_G, true, kCmd), key(kVK_ANSI_G, false, kCmd)}, {P, P}, {}},
    {"a stored hot key mask with caps lock in it never matches",
     [](AppDelegateFixture& f) { f.defaults_->setInteger(kCmd | kCaps, settings::keys::hotkeyFlags); },
     {key(kVK_ANSI_G, true, kCmd | kCaps)}, {P}, {}},
    {"a stored hot key code beyond 16 bits never matches",
     [](AppDelegateFixture& f) { f.defaults_->setInteger(0x10000 + kVK_ANSI_G, settings::keys::hotkeyKeycode); },
     {key(kVK_ANSI_G, true, kCmd)}, {P}, {}},
    {"a hot key equal to Command R reloads on the press and opens the bar on the release",
     [](AppDelegateFixture& f) {
         shortcutsOn(f);
         f.defaults_->setInteger(kVK_ANSI_R, settings::keys::hotkeyKeycode);
     },
     {key(kVK_ANSI_R, true, kCmd), key(kVK_ANSI_R, false, kCmd)}, {S, S},
     std::vector<std::string>{"vj reload"} + kHotKeyOpened},
    {"a change of modifiers passes", nullptr, {flagsChanged(kCmd)}, {P}, {}},
    // Drags.
    {"a drag hides an open bar once", barOpen, {kDrag, kDrag, kDrag}, {P, P, P}, {"panel.orderOut"}, true},
    {"the mouse up that ends a drag does not reopen the bar", barOpen, {kDrag, upAt(400)}, {P, P}, {"panel.orderOut"},
     false},
    {"a drag over a window without a bar hides nothing", nullptr, {kDrag}, {P}, {}, true},
    {"a drag with the bar hidden hides nothing",
     [](AppDelegateFixture& f) { f.openBar()->hide(); }, {kDrag}, {P}, {}, true},
    {"with title activation off the mouse up leaves the drag in progress", titleOff, {kDrag, upAt(400)}, {P, P}, {},
     true},
    {"a drag ended with command held is ended by the next plain click which opens nothing", nullptr,
     {kDrag, upAt(400, 60, kCmd), upAt(400)}, {P, P, P}, {}, false},
    // Title-bar clicks; the title text runs from 340 to 460.
    {"a click on the title opens the bar and selects its text", nullptr, {upAt(400)}, {P}, kClicked},
    {"a click 20 points left of the title text opens the bar", nullptr, {upAt(320)}, {P}, kClicked},
    {"a click 21 points left of the title text does nothing", nullptr, {upAt(319)}, {P}, {}},
    {"a click 9 points right of the title text opens the bar", nullptr, {upAt(469)}, {P}, kClicked},
    {"a click 10 points right of the title text does nothing", nullptr, {upAt(470)}, {P}, {}},
    {"a click below the title does nothing", nullptr, {upAt(400, 200)}, {P}, {}},
    {"a click outside every window does nothing", nullptr, {upAt(900, 700)}, {P}, {}},
    {"a command click on the title does nothing", nullptr, {upAt(400, 60, kCmd)}, {P}, {}},
    {"a click on the title with title activation off does nothing", titleOff, {upAt(400)}, {P}, {}},
    {"a click on a window without a title text does nothing", [](AppDelegateFixture& f) { f.ax_->destroy(f.title_); },
     {upAt(400)}, {P}, {}},
    {"a click on the title of a window with a bar reopens that bar", barOpen, {upAt(400)}, {P},
     kShown + std::vector<std::string>{"field.selectAll"}},
    // Middle clicks.
    {"a middle click posts a click and then a command double click at the mouse", nullptr,
     {mouse(kCGEventOtherMouseUp, {300, 200}, 0, kCGMouseButtonCenter)}, {P},
     {"tap.post leftDown 300,200 click 1 flags 0x0", "tap.post leftUp 300,200 click 1 flags 0x0",
      "tap.post leftDown 300,200 click 2 flags 0x100000", "tap.post leftUp 300,200 click 2 flags 0x100000"}},
    {"a middle click posts nothing when the file manager opens the folder in a new window itself",
     [](AppDelegateFixture& f) { f.fileManager_.setOpensMiddleClickedFolderInNewWindow(true); },
     {mouse(kCGEventOtherMouseUp, {300, 200}, 0, kCGMouseButtonCenter)}, {P}, {}},
    {"a middle click with shift held posts nothing", nullptr,
     {mouse(kCGEventOtherMouseUp, {300, 200}, kShift, kCGMouseButtonCenter)}, {P}, {}},
    {"a click of the fourth button posts nothing", nullptr, {mouse(kCGEventOtherMouseUp, {300, 200}, 0, 3)}, {P}, {}},
    {"a middle button press posts nothing", nullptr,
     {mouse(kCGEventOtherMouseDown, {300, 200}, 0, kCGMouseButtonCenter)}, {P}, {}},
    // Everything else.
    {"presses right clicks moves and scrolling on the title pass untouched", nullptr,
     {mouse(kCGEventLeftMouseDown, kOnTitle), mouse(kCGEventRightMouseUp, kOnTitle), mouse(kCGEventMouseMoved, kOnTitle),
      mouse(kCGEventScrollWheel, kOnTitle)},
     {P, P, P, P}, {}},
};

INSTANTIATE_TEST_SUITE_P(Rows, TapCallback, testing::ValuesIn(kRows), SentenceName{});

// ---- the keys the tap is told it may have to swallow

struct KeysRow {
    const char* name;
    Setup setup;
    std::string keys;
};

class SwallowableKeys : public AppDelegateTable<KeysRow> {};

TEST_P(SwallowableKeys, AtInstall) {
    if (GetParam().setup) GetParam().setup(*this);
    launched();
    EXPECT_EQ(FakeEventTap::describe(tap_.swallowableKeys()), GetParam().keys);
}

const KeysRow kKeysRows[] = {
    {"the hot key alone by default", nullptr, "5/0x100000"},
    {"the hot key and the four extra shortcuts", shortcutsOn, "5/0x100000 15/0x100000 3/0x120000 17/0x100000 47/0x120000"},
    {"only the extra shortcuts when hot key activation is off",
     [](AppDelegateFixture& f) {
         hotKeyOff(f);
         shortcutsOn(f);
     },
     "15/0x100000 3/0x120000 17/0x100000 47/0x120000"},
    {"no hot key that no event can match",
     [](AppDelegateFixture& f) { f.defaults_->setInteger(kCmd | kCaps, settings::keys::hotkeyFlags); }, ""},
};

INSTANTIATE_TEST_SUITE_P(Rows, SwallowableKeys, testing::ValuesIn(kKeysRows), SentenceName{});

TEST_F(AppDelegateTest, theTapLearnsChangedKeysFromTheSettingsOrWhenABarOpens) {
    launched();
    ASSERT_EQ(tap_.swallowableKeysCalls(), 1u);
    delegate().settingsDidChange();
    EXPECT_EQ(tap_.swallowableKeysCalls(), 1u) << "nothing changed, nothing to tell";

    defaults_->setInteger(kVK_ANSI_J, settings::keys::hotkeyKeycode);
    delegate().settingsDidChange();
    EXPECT_EQ(FakeEventTap::describe(tap_.swallowableKeys()), "38/0x100000");

    // Changed behind the preferences' back: the next bar that opens notices.
    defaults_->setBool(false, settings::keys::activateByHotkey);
    push(TapEvent::mouseEvent(kCGEventLeftMouseUp, kOnTitle));
    settle();
    EXPECT_EQ(tap_.swallowableKeysCalls(), 3u);
    EXPECT_TRUE(tap_.swallowableKeys().empty());
}

}  // namespace
}  // namespace jorvane::test::appcore
