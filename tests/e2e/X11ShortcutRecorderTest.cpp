// The shortcut recorder's X11 adapters against a real X server: key names
// follow a layout switched while the program runs, and a combination that
// another client has grabbed counts as held while a free one is left free.
#include <gtest/gtest.h>
#include <xcb/xcb.h>

#include <chrono>
#include <cstdlib>
#include <memory>
#include <thread>

#include "DesktopTest.h"
#include "XTestClient.h"
#include "platform/x11/X11KeyboardLayout.h"
#include "platform/x11/X11SymbolicHotKeys.h"
#include "shortcut/ShortcutKeyNames.h"

namespace jorvane::e2e {
namespace {

using namespace std::chrono_literals;

class X11ShortcutRecorderTest : public DesktopTest {
protected:
    void SetUp() override {
        DesktopTest::SetUp();
        if (HasFatalFailure() || IsSkipped()) return;
        keyboard_ = x11::X11Keyboard::open(desktop().display());
        ASSERT_NE(keyboard_, nullptr);
    }
    void TearDown() override {
        setCurrentKeyboardLayout(nullptr);
        keyboard_.reset();
    }
    bool setLayout(const std::string& layout) {
        return desktop().run({"setxkbmap", "-display", desktop().display(), layout}).exitCode == 0;
    }
    // The name once it is `expected`, waiting (bounded) for the server's notice.
    std::optional<std::string> nameOnceItIs(ShortcutKeyCode code, const std::string& expected) {
        std::optional<std::string> name;
        for (auto until = std::chrono::steady_clock::now() + 3s; std::chrono::steady_clock::now() < until;
             std::this_thread::sleep_for(20ms)) {
            name = shortcutKeyName(code);
            if (name == expected) break;
        }
        return name;
    }

    std::shared_ptr<x11::X11Keyboard> keyboard_;
};

TEST_F(X11ShortcutRecorderTest, keyNamesFollowALayoutSwitchedWhileRunning) {
    setCurrentKeyboardLayout(std::make_shared<x11::X11KeyboardLayout>(keyboard_));
    ASSERT_TRUE(setLayout("us"));
    EXPECT_EQ(nameOnceItIs(kKeySemicolon, ";"), ";");
    EXPECT_EQ(shortcutKeyName(kKeyG), "G");
    ASSERT_TRUE(setLayout("de"));
    EXPECT_EQ(nameOnceItIs(kKeySemicolon, "\u00d6"), "\u00d6");
    EXPECT_EQ(shortcutKeyName(kKeyZ), "Z");
    ASSERT_TRUE(setLayout("us"));
    EXPECT_EQ(nameOnceItIs(kKeySemicolon, ";"), ";");
}

TEST_F(X11ShortcutRecorderTest, combinationGrabbedByAnotherClientIsHeldAndAFreeOneStaysFree) {
    // Another program grabs Ctrl+Alt+G on the root window.
    XTestClient program(desktop().display());
    ASSERT_TRUE(program.ok());
    xcb_connection_t* other = program.connection();
    const xcb_window_t root = program.root();
    std::vector<xkb_keycode_t> keys;
    std::uint16_t ctrlAlt = 0, ctrlShift = 0;
    keyboard_->withCurrent([&](const x11::X11Keyboard::Current& current) {
        ASSERT_TRUE(current.keys);
        keys = current.keys->keycodes(kKeyG, current.group);
        ctrlAlt = current.keys->stateForFlags(kModifierCommand | kModifierOption).value_or(0);
        ctrlShift = current.keys->stateForFlags(kModifierCommand | kModifierShift).value_or(0);
    });
    ASSERT_FALSE(keys.empty());
    const auto key = static_cast<xcb_keycode_t>(keys.front());
    xcb_generic_error_t* error = xcb_request_check(
        other, xcb_grab_key_checked(other, 1, root, ctrlAlt, key, XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC));
    ASSERT_EQ(error, nullptr);

    x11::X11SymbolicHotKeys hotKeys(keyboard_, x11::X11SymbolicHotKeys::Options{});
    EXPECT_TRUE(hotKeys.isHeldByAnotherProgram(kKeyG, kRecorderCommand | kRecorderOption));
    EXPECT_FALSE(hotKeys.isHeldByAnotherProgram(kKeyG, kRecorderCommand | kRecorderShift));
    // The probe let go of what it took: the other program can grab it now.
    error = xcb_request_check(
        other, xcb_grab_key_checked(other, 1, root, ctrlShift, key, XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC));
    EXPECT_EQ(error, nullptr);
    std::free(error);
}

}  // namespace
}  // namespace jorvane::e2e
