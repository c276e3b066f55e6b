// The shortcut recorder's check against a real X server: a combination that
// another client has grabbed counts as held while a free one is left free.
// (The keyboard following a layout switched while the program runs is the
// whole-program Dvorak test's; the key names of each layout, the platform tests'.)
#include <gtest/gtest.h>
#include <xcb/xcb.h>

#include <cstdlib>
#include <memory>

#include "DesktopTest.h"
#include "XTestClient.h"
#include "platform/x11/X11SymbolicHotKeys.h"

namespace jorvane::e2e {
namespace {

class X11ShortcutRecorderTest : public DesktopTest {
protected:
    void SetUp() override {
        DesktopTest::SetUp();
        if (HasFatalFailure() || IsSkipped()) return;
        keyboard_ = x11::X11Keyboard::open(desktop().display());
        ASSERT_NE(keyboard_, nullptr);
    }
    std::shared_ptr<x11::X11Keyboard> keyboard_;
};

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
