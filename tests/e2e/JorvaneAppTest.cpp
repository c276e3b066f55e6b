// The whole program on the end-to-end desktop: the built jorvane binary beside
// Thunar under openbox, driven with XTEST as a user's devices would drive it,
// and judged by what Thunar shows (its title names the full path, its
// selection through AT-SPI), by the X server (the bar's window, its place,
// the focus) and by the bar's text through Qt's accessibility bridge.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "JorvaneTest.h"
#include "ProcessSweep.h"

namespace jorvane::e2e {
namespace {

namespace fs = std::filesystem;

class JorvaneApp : public JorvaneTest {
protected:
    static void SetUpTestSuite() {
        if (!startDesktop()) return;
        Desktop& d = desktop();
        demo_ = d.dataDir() / "demo";
        for (const char* folder : {"Music", "Rows/One", "Rows/Two"}) fs::create_directories(demo_ / folder);
        for (const char* file : {"alpha.txt", "beta.txt", "gamma.txt", "delta.log"})
            std::ofstream(demo_ / file) << file << "\n";
        // Selections can be read in the Details view only.
        d.setXfconf("thunar", "/default-view", "string", "ThunarDetailsView");
        // One window before the program starts: it must find Thunar running.
        d.openThunarWindow(demo_);
        startProgram();
    }

    void SetUp() override {
        JorvaneTest::SetUp();
        if (HasFatalFailure()) return;
        // A fresh window on the demo folder for every test.
        closeBar();
        desktop().closeThunarWindows();
        window_ = openWindow(demo_);
        ASSERT_NE(window_, 0u);
    }

    void TearDown() override {
        JorvaneTest::TearDown();
        // The hidden-files toggle leaves a Thunar that the program started: the desktop's comes back.
        Desktop* d = Desktop::sharedIfRunning();
        if (!d || processAlive(d->thunarPid())) return;
        for (std::uint32_t window : d->thunarWindows())
            if (const std::optional<pid_t> pid = d->windowPid(window)) d->stopProcess(*pid);
        d->restartThunar();
    }

    static inline fs::path demo_;
    std::uint32_t window_ = 0;
};

TEST_F(JorvaneApp, AClickOnTheTitleOpensTheBarOverItFilledWithTheFolder) {
    ASSERT_TRUE(clickTitle(window_)) << "no focused bar after a click on the title";

    const std::optional<BarWindow> bar = driver().bar();
    ASSERT_TRUE(bar);
    const std::optional<x11::ClientFrame> frame = driver().frame(window_);
    ASSERT_TRUE(frame);
    // Over the whole title band, not the content, within the window's width.
    EXPECT_GE(bar->geometry.y, frame->outer().minY() - 2);
    EXPECT_NEAR(bar->geometry.y + bar->geometry.height, frame->client.minY(), 1);
    EXPECT_GE(bar->geometry.x, frame->outer().minX());
    EXPECT_LE(bar->geometry.x + bar->geometry.width, frame->outer().maxX());

    ASSERT_TRUE(driver().waitForFieldText(demo_.string(), kWait));
    const std::optional<FieldText> field = driver().fieldText();
    ASSERT_TRUE(field);
    EXPECT_EQ(field->selectionStart, 0) << "the whole path is selected, ready to be typed over";
    EXPECT_EQ(field->selectionEnd, static_cast<int>(demo_.string().size()));
}

// Whether Thunar's window saw a press or release of the key since watchKeys.
bool sawKey(const std::vector<JorvaneDriver::SeenKey>& seen, std::uint8_t keycode, bool press) {
    return std::any_of(seen.begin(), seen.end(),
                       [&](const auto& key) { return key.keycode == keycode && key.press == press; });
}

std::string describe(const std::vector<JorvaneDriver::SeenKey>& seen) {
    std::string keys;
    for (const auto& key : seen) keys += (key.press ? " press " : " release ") + std::to_string(key.keycode);
    return keys;
}

using Step = JorvaneDriver::KeyStep;

// However a hand (or a key remapper) rolls Ctrl+G, the bar opens and Thunar
// never sees half of the chord.
TEST_F(JorvaneApp, CtrlGInThunarOpensTheBarInEveryReleaseOrderAndThunarNeverSeesTheG) {
    // With the pointer outside Thunar's window, keys are reported on the
    // focus window itself, where this test listens beside Thunar.
    driver().moveTo(2, 2);
    const std::optional<std::uint8_t> g = driver().keycodeOf("g");
    const std::optional<std::uint8_t> control = driver().keycodeOf("Control_L");
    ASSERT_TRUE(g && control);

    struct Hand {
        const char* name;
        std::vector<Step> steps;
        milliseconds pace;
    };
    const Hand hands[] = {
        {"G up before Ctrl up", {{"Control_L"}, {"g"}, {"g", false}, {"Control_L", false}}, milliseconds(80)},
        {"Ctrl up before G up", {{"Control_L"}, {"g"}, {"Control_L", false}, {"g", false}}, milliseconds(80)},
        {"the right Ctrl, let go first", {{"Control_R"}, {"g"}, {"Control_R", false}, {"g", false}}, milliseconds(80)},
        // Ctrl held a second before G, and G held a second: the server repeats it.
        {"held for a second each", {{"Control_L"}, {"g"}, {"g", false}, {"Control_L", false}}, milliseconds(1000)},
        {"with Caps Lock on",
         {{"Caps_Lock"}, {"Caps_Lock", false}, {"Control_L"}, {"g"}, {"Control_L", false}, {"g", false}},
         milliseconds(80)},
    };
    for (const Hand& hand : hands) {
        SCOPED_TRACE(hand.name);
        driver().watchKeys(window_);
        ASSERT_TRUE(driver().keySteps(hand.steps, hand.pace));
        EXPECT_TRUE(driver().waitForFocusedBar(kWait)) << "no bar";
        EXPECT_TRUE(driver().waitForFieldText(demo_.string(), kWait));
        const std::vector<JorvaneDriver::SeenKey> seen = driver().seenKeys();
        EXPECT_TRUE(sawKey(seen, *control, true) || hand.steps[0].keysym != "Control_L")
            << "Thunar's window gets the keys the program does not take; seen:" << describe(seen);
        EXPECT_FALSE(sawKey(seen, *g, true) || sawKey(seen, *g, false)) << "Thunar saw the G; seen:" << describe(seen);

        if (hand.steps[0].keysym == "Caps_Lock") {
            ASSERT_TRUE(driver().key("Caps_Lock"));  // off again
        }
        ASSERT_TRUE(driver().key("Escape"));
        ASSERT_TRUE(driver().waitForBarHidden(kWait));
        bringToFront(window_);
    }
}

// Chords that are not the hot key are Thunar's, in every release order: a
// plain letter starts Thunar's type-ahead, and the G of other Ctrl and Alt
// chords reaches its window.
// On Dvorak the G is another key: the tap follows the new keyboard mapping,
// and the key that was G is Thunar's again.
TEST_F(JorvaneApp, CtrlGOpensTheBarAfterTheKeyboardLayoutChanges) {
    driver().moveTo(2, 2);
    const std::optional<std::uint8_t> usG = driver().keycodeOf("g");
    ASSERT_TRUE(usG);
    ASSERT_TRUE(setLayout({"us", "dvorak"}));
    const std::optional<std::uint8_t> dvorakG = driver().keycodeOf("g");
    EXPECT_TRUE(dvorakG && dvorakG != usG);
    const bool grabbed = driver().waitForGrab(window_, "g", kWait);
    driver().watchKeys(window_);
    const bool opened = openBarByHotKey();
    const std::vector<JorvaneDriver::SeenKey> seenWithG = driver().seenKeys();
    closeBar();
    bringToFront(window_, false);
    driver().watchKeys(window_);
    const std::vector<JorvaneDriver::KeyStep> oldG = {{"Control_L"}, {"i"}, {"i", false}, {"Control_L", false}};
    const bool pressed = driver().keySteps(oldG, milliseconds(80));  // "i" is on the US G key
    const std::vector<JorvaneDriver::SeenKey> seenWithOldG = driver().seenKeys();
    ASSERT_TRUE(setLayout({"us"}));
    EXPECT_TRUE(grabbed) << "the tap did not grab Ctrl+G on its new key";
    EXPECT_TRUE(opened) << "Ctrl+G opened no bar on Dvorak";
    EXPECT_FALSE(dvorakG && sawKey(seenWithG, *dvorakG, true)) << "Thunar saw the G";
    EXPECT_TRUE(pressed && usG && sawKey(seenWithOldG, *usG, true)) << "the old G key is still taken";
}

TEST_F(JorvaneApp, ChordsThatAreNotTheHotKeyReachThunarInEveryReleaseOrder) {
    driver().moveTo(2, 2);
    const std::optional<std::uint8_t> g = driver().keycodeOf("g");
    ASSERT_TRUE(g);

    ASSERT_TRUE(driver().keySteps({{"b"}, {"b", false}}, milliseconds(80)));
    expectSelection(window_, {"beta.txt"});
    ASSERT_TRUE(driver().key("Escape"));

    struct Chord {
        std::vector<Step> steps;
        // Alt+G opens Thunar's Go menu, which takes the keyboard before the release.
        bool releaseReachesWindow = true;
    };
    const Chord chords[] = {
        {{{"Control_L"}, {"Shift_L"}, {"g"}, {"Shift_L", false}, {"Control_L", false}, {"g", false}}},
        {{{"Control_L"}, {"Shift_L"}, {"g"}, {"g", false}, {"Shift_L", false}, {"Control_L", false}}},
        {{{"g"}, {"g", false}}},
        {{{"Alt_L"}, {"g"}, {"Alt_L", false}, {"g", false}}, false},
    };
    for (const Chord& chord : chords) {
        SCOPED_TRACE(testing::PrintToString(chord.steps.size()) + " steps starting with " + chord.steps[0].keysym);
        driver().watchKeys(window_);
        ASSERT_TRUE(driver().keySteps(chord.steps, milliseconds(80)));
        const std::vector<JorvaneDriver::SeenKey> seen = driver().seenKeys();
        EXPECT_TRUE(sawKey(seen, *g, true)) << "seen:" << describe(seen);
        if (chord.releaseReachesWindow) {
            EXPECT_TRUE(sawKey(seen, *g, false)) << "seen:" << describe(seen);
        }
        ASSERT_TRUE(driver().key("Escape"));
    }
    EXPECT_FALSE(driver().bar()) << "no chord but the hot key opens the bar";
}

TEST_F(JorvaneApp, TypingANameCompletesInlineAndSelectsTheItemInThunar) {
    ASSERT_TRUE(clickTitle(window_)) << "no focused bar after a click on the title";
    ASSERT_TRUE(driver().waitForFieldText(demo_.string(), kWait));
    ASSERT_TRUE(driver().type("alp"));

    ASSERT_TRUE(driver().waitForFieldText("alpha.txt", kWait));
    const std::optional<FieldText> field = driver().fieldText();
    ASSERT_TRUE(field);
    EXPECT_EQ(field->selectionStart, 3) << "the completed tail is selected, so typing goes on over it";
    EXPECT_EQ(field->selectionEnd, 9);
    expectSelection(window_, {"alpha.txt"});
    EXPECT_TRUE(driver().barHasFocus());
}

TEST_F(JorvaneApp, ReturnOnAPatternSelectsEveryMatch) {
    ASSERT_TRUE(clickTitle(window_)) << "no focused bar after a click on the title";
    ASSERT_TRUE(driver().type("*.txt"));
    ASSERT_TRUE(driver().waitForFieldText("*.txt", kWait));
    ASSERT_TRUE(driver().key("Return"));

    expectSelection(window_, {"alpha.txt", "beta.txt", "gamma.txt"});
    EXPECT_EQ(desktop().title(window_), titleOf(demo_)) << "the window stays where it is";
}

TEST_F(JorvaneApp, EscapeClosesTheListThenTheBarAndThunarGetsTheKeyboardBack) {
    ASSERT_TRUE(openBarByHotKey()) << "no focused bar after Ctrl+G";
    ASSERT_TRUE(driver().waitForFieldText(demo_.string(), kWait));
    ASSERT_TRUE(driver().key("Tab"));
    ASSERT_TRUE(waitUntil([&] { return driver().completionList().has_value(); }, kWait)) << "Tab shows the list";

    ASSERT_TRUE(driver().key("Escape"));
    EXPECT_TRUE(waitUntil([&] { return !driver().completionList(); }, kWait)) << "the first Escape closes the list";
    EXPECT_TRUE(driver().bar()) << "... and leaves the bar";

    ASSERT_TRUE(driver().key("Escape"));
    EXPECT_TRUE(driver().waitForBarHidden(kWait)) << "the second Escape closes the bar";
    EXPECT_TRUE(waitUntil([&] { return desktop().activeWindow() == window_; }, kWait))
        << "the keyboard goes back to the Thunar window";
}

TEST_F(JorvaneApp, AClickOnARowOfTheListChoosesItAndTheBarKeepsTheKeyboard) {
    ASSERT_TRUE(clickTitle(window_)) << "no focused bar after a click on the title";
    // The completed "One/" deleted, Tab shows the list rather than taking it.
    ASSERT_TRUE(driver().type((demo_ / "Rows").string() + "/"));
    ASSERT_TRUE(driver().waitForInlineCompletion(kWait));
    ASSERT_TRUE(driver().key("BackSpace"));
    ASSERT_TRUE(driver().waitForFieldText((demo_ / "Rows").string() + "/", kWait));
    ASSERT_TRUE(driver().key("Tab"));
    std::optional<WindowGeometry> list;
    ASSERT_TRUE(waitUntil([&] { return (list = driver().completionList()).has_value(); }, kWait)) << "no list";

    driver().clickAt(list->x + 30, list->y + list->height / 4);  // the first of its two rows
    EXPECT_TRUE(waitUntil(
        [&] {
            const std::string title = desktop().title(window_);
            return title == titleOf(demo_ / "Rows/One") || title == titleOf(demo_ / "Rows/Two");
        },
        kWait))
        << desktop().title(window_);
    EXPECT_TRUE(driver().barHasFocus()) << "the list took the keyboard from the bar";
}

TEST_F(JorvaneApp, TheContextMenuLeavesTheKeyboardWithTheBarAndAClickIntoThunarClosesIt) {
    ASSERT_TRUE(clickTitle(window_)) << "no focused bar after a click on the title";
    const std::optional<BarWindow> bar = driver().bar();
    ASSERT_TRUE(bar);
    driver().clickAt(bar->geometry.x + 60, bar->geometry.y + bar->geometry.height / 2, 3);
    ASSERT_TRUE(waitUntil([&] { return driver().bar(true) && driver().keyboardGrabbed(); }, kWait)) << "no menu";
    ASSERT_TRUE(driver().key("Escape"));
    EXPECT_TRUE(waitUntil([&] { return !driver().bar(true); }, kWait)) << "the menu stayed";
    EXPECT_TRUE(driver().waitForFocusedBar(kWait)) << "the bar lost the keyboard to its menu";
    EXPECT_TRUE(driver().waitForFieldText(demo_.string(), kWait)) << "the menu's Escape is the menu's";

    const std::optional<WindowGeometry> client = desktop().geometry(window_);
    ASSERT_TRUE(client);
    driver().clickAt(client->x + client->width / 2, client->y + client->height / 2);
    EXPECT_TRUE(driver().waitForBarHidden(kWait)) << "a bar that lost the keyboard stays";
    EXPECT_TRUE(waitUntil([&] { return driver().focusIsIn(window_); }, kWait));
}

TEST_F(JorvaneApp, CtrlWInTheBarClosesItsThunarWindowOnly) {
    const std::uint32_t second = openWindow(demo_ / "Music");
    ASSERT_NE(second, 0u);
    ASSERT_TRUE(openBarByHotKey()) << "no focused bar after Ctrl+G";
    ASSERT_TRUE(driver().waitForFieldText((demo_ / "Music").string(), kWait));
    ASSERT_TRUE(driver().key("w", {"Control_L"}));
    EXPECT_TRUE(desktop().waitForWindowGone(second, kWait)) << "its window stays";
    EXPECT_TRUE(driver().waitForBarHidden(kWait));
    EXPECT_EQ(desktop().thunarWindows(), std::vector<std::uint32_t>{window_}) << "only its window closes";
}

TEST_F(JorvaneApp, ClosingTheThunarWindowRemovesItsBar) {
    ASSERT_TRUE(openBarByHotKey()) << "no focused bar after Ctrl+G";
    ASSERT_TRUE(driver().waitForLog("bar made for window " + hex(window_), kWait));

    ASSERT_TRUE(desktop().closeWindow(window_));
    EXPECT_TRUE(driver().waitForLog("bar of window " + hex(window_) + " removed", kWait)) << driver().log();
    EXPECT_TRUE(driver().waitForBarHidden(kWait));
    EXPECT_TRUE(driver().running());
}

TEST_F(JorvaneApp, MinimisingTheWindowHidesTheBarAndRestoringDoesNotBringItBack) {
    ASSERT_TRUE(clickTitle(window_)) << "no focused bar after a click on the title";
    driver().minimise(window_);
    EXPECT_TRUE(driver().waitForBarHidden(kWait)) << "the bar of a minimised window goes";

    ASSERT_TRUE(desktop().activate(window_));
    // The restored window is drawn again; the bar was not asked for.
    ASSERT_TRUE(waitUntil([&] { return driver().titlePoint(window_).has_value(); }, kWait));
    EXPECT_FALSE(driver().bar());
    ASSERT_TRUE(waitUntil([&] { return driver().focusIsIn(window_); }, kWait));
    ASSERT_TRUE(openBarByHotKey()) << "no focused bar after Ctrl+G";
}

TEST_F(JorvaneApp, HiddenFilesToggleRestartsThunarOnItsFoldersInFront) {
    const std::optional<pid_t> before = desktop().windowPid(window_);
    ASSERT_TRUE(before);
    const std::string shown = desktop().xfconf("thunar", "/last-show-hidden").value_or("false");
    ASSERT_TRUE(openBarByHotKey()) << "no focused bar after Ctrl+G";

    // On a German keyboard Shift+. types ":"; the shortcut is still Ctrl+Shift+. (the X key names it).
    ASSERT_TRUE(setLayout({"de"}));
    const bool pressed = driver().key("period", {"Control_L", "Shift_L"});
    ASSERT_TRUE(setLayout({"us"}));
    ASSERT_TRUE(pressed);
    // Thunar quits, and a new one opens the same folder and comes to the front.
    const std::optional<std::uint32_t> reopened = desktop().waitForWindow(
        [&](std::uint32_t window) {
            const std::optional<pid_t> pid = desktop().windowPid(window);
            return pid && pid != before && desktop().title(window) == titleOf(demo_);
        },
        milliseconds(15000));
    ASSERT_TRUE(reopened) << "no new Thunar window on the folder";
    EXPECT_TRUE(waitUntil([&] { return desktop().activeWindow() == *reopened; }, kWait)) << "it is not in front";
    EXPECT_EQ(desktop().xfconf("thunar", "/last-show-hidden"), shown == "true" ? "false" : "true");
    EXPECT_TRUE(driver().running());
}

}  // namespace
}  // namespace jorvane::e2e
