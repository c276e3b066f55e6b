// The preferences window of the running program on the end-to-end desktop:
// opened from the bar's context menu, a new hot key recorded with a click and
// XTEST keys, kept in settings.json when the window closes, and acting in
// Thunar at once.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <xcb/xcb.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <string>

#include "DesktopTest.h"
#include "JorvaneDriver.h"

namespace jorvane::e2e {
namespace {

namespace fs = std::filesystem;

constexpr milliseconds kWait{5000};

class JorvanePreferences : public DesktopTest {
protected:
    static void SetUpTestSuite() {
        DesktopTest::SetUpTestSuite();
        if (!startError().empty()) return;
        Desktop& d = desktop();
        folder_ = d.dataDir() / "preferences";
        fs::create_directories(folder_ / "Inside");
        d.openThunarWindow(folder_);
        driver_ = std::make_unique<JorvaneDriver>(d);
        JorvaneDriver::Options options;
        options.logLevel = "info,Preferences=debug";
        if (!driver_->start(options)) startFailure_ = driver_->why();
    }

    static void TearDownTestSuite() {
        driver_.reset();
        if (Desktop* running = Desktop::sharedIfRunning()) {
            running->closeThunarWindows();
            // The next program on this desktop starts with the shipped hot key.
            if (std::optional<nlohmann::json> settings = readSettings()) {
                settings->erase("hotkey_flags");
                settings->erase("hotkey_keycode");
                std::ofstream(settingsFile()) << settings->dump(2) << "\n";
            }
        }
    }

    void SetUp() override {
        DesktopTest::SetUp();
        ASSERT_TRUE(startFailure_.empty()) << startFailure_;
        ASSERT_TRUE(driver().running()) << "jorvane is gone; its log:\n" << driver().log();
    }

    static JorvaneDriver& driver() { return *driver_; }

    static fs::path settingsFile() { return desktop().home() / ".config" / "jorvane" / "settings.json"; }

    static std::optional<nlohmann::json> readSettings() {
        std::ifstream in(settingsFile());
        if (!in) return std::nullopt;
        nlohmann::json settings = nlohmann::json::parse(in, nullptr, false);
        if (settings.is_discarded() || !settings.is_object()) return std::nullopt;
        return settings;
    }

    // `grabbed`: the tap holds Ctrl+G there (the shipped hot key).
    std::uint32_t frontThunarWindow(bool grabbed) {
        const std::vector<std::uint32_t> windows = desktop().thunarWindows();
        std::uint32_t window = windows.empty() ? 0 : windows.front();
        if (window == 0) {
            const std::optional<std::uint32_t> opened = desktop().openThunarWindow(folder_);
            window = opened.value_or(0);
        }
        if (window == 0) return 0;
        if (grabbed) {
            EXPECT_TRUE(driver().waitForGrab(window, "g", kWait)) << "the tap never grabbed the window's keys";
        }
        EXPECT_TRUE(desktop().activate(window));
        EXPECT_TRUE(waitUntil([&] { return driver().focusIsIn(window); }, kWait)) << "the focus never came";
        return window;
    }

    // The program's managed window with this title.
    std::optional<std::uint32_t> windowTitled(const std::string& title) {
        std::optional<std::uint32_t> found;
        waitUntil(
            [&] {
                for (std::uint32_t window : desktop().clientWindows()) {
                    if (desktop().title(window) == title && desktop().windowPid(window) == driver().pid()) {
                        found = window;
                        return true;
                    }
                }
                return false;
            },
            kWait, milliseconds(50));
        return found;
    }

    // Whether a menu is open: a mapped override-redirect window other than
    // the bar, taller than a line.
    static bool menuShownBeside(std::uint32_t bar) {
        xcb_connection_t* connection = xcb_connect(desktop().display().c_str(), nullptr);
        if (xcb_connection_has_error(connection)) {
            xcb_disconnect(connection);
            return false;
        }
        const xcb_window_t root = xcb_setup_roots_iterator(xcb_get_setup(connection)).data->root;
        bool shown = false;
        if (xcb_query_tree_reply_t* tree = xcb_query_tree_reply(connection, xcb_query_tree(connection, root), nullptr)) {
            const xcb_window_t* children = xcb_query_tree_children(tree);
            for (int i = 0; i < xcb_query_tree_children_length(tree) && !shown; ++i) {
                if (children[i] == bar) continue;
                xcb_get_window_attributes_reply_t* attributes = xcb_get_window_attributes_reply(
                    connection, xcb_get_window_attributes(connection, children[i]), nullptr);
                const bool candidate =
                    attributes && attributes->map_state == XCB_MAP_STATE_VIEWABLE && attributes->override_redirect;
                free(attributes);
                if (!candidate) continue;
                xcb_get_geometry_reply_t* geometry =
                    xcb_get_geometry_reply(connection, xcb_get_geometry(connection, children[i]), nullptr);
                shown = geometry && geometry->height > 60;
                free(geometry);
            }
            free(tree);
        }
        xcb_disconnect(connection);
        return shown;
    }

    static inline fs::path folder_;
    static inline std::unique_ptr<JorvaneDriver> driver_;
    static inline std::string startFailure_;
};

TEST_F(JorvanePreferences, ANewHotKeyRecordedInThePreferencesIsKeptAndOpensTheBar) {
    const std::uint32_t thunar = frontThunarWindow(true);
    ASSERT_NE(thunar, 0u);

    // The bar's context menu ends with "Jorvane Preferences…": Up from no
    // entry chooses the last one.
    ASSERT_TRUE(driver().hotKey());
    ASSERT_TRUE(driver().waitForFocusedBar(kWait)) << "no bar after Ctrl+G";
    const std::optional<BarWindow> bar = driver().bar();
    ASSERT_TRUE(bar);
    desktop().click(bar->geometry.x + bar->geometry.width / 2, bar->geometry.y + bar->geometry.height / 2, 3);
    ASSERT_TRUE(waitUntil([&] { return menuShownBeside(bar->window); }, kWait)) << "no context menu";
    ASSERT_TRUE(driver().key("Up"));
    ASSERT_TRUE(driver().key("Return"));

    const std::optional<std::uint32_t> preferences = windowTitled("Jorvane Preferences");
    ASSERT_TRUE(preferences) << "no preferences window; the log:\n" << driver().log();
    ASSERT_TRUE(desktop().activate(*preferences));
    // Placed (centred) and holding the keyboard before it is clicked.
    ASSERT_TRUE(waitUntil([&] { return driver().focusIsIn(*preferences); }, kWait))
        << "the preferences window never got the focus";
    const std::optional<WindowGeometry> frame = desktop().geometry(*preferences);
    ASSERT_TRUE(frame);

    // The hot-key field is the window's first row, right of its label.
    // The window manager may hold the click a moment (its click-to-focus
    // grab) while keys go straight through: type once recording has begun.
    desktop().click(frame->x + frame->width * 2 / 3, frame->y + 24);
    ASSERT_TRUE(driver().waitForLog("recording a hot key", kWait)) << "the click did not start recording";
    ASSERT_TRUE(driver().key("j", {"Control_L", "Shift_L"}));
    ASSERT_TRUE(desktop().closeWindow(*preferences)) << "the preferences window did not close";

    std::optional<nlohmann::json> settings;
    const bool stored = waitUntil(
        [&] {
            settings = readSettings();
            return settings && settings->value("hotkey_keycode", -2) == 38;
        },
        kWait, milliseconds(50));
    ASSERT_TRUE(stored) << "settings.json: " << (settings ? settings->dump() : std::string("(unreadable)"));
    EXPECT_EQ(settings->value("hotkey_flags", -1), 0x120000) << "Ctrl (Command) and Shift";

    // The new combination opens the bar over Thunar at once.
    if (driver().bar()) {
        driver().key("Escape");
        driver().key("Escape");
    }
    ASSERT_TRUE(driver().waitForBarHidden(kWait));
    ASSERT_EQ(frontThunarWindow(false), thunar);
    ASSERT_TRUE(driver().key("j", {"Control_L", "Shift_L"}));
    EXPECT_TRUE(driver().waitForFocusedBar(kWait)) << "Ctrl+Shift+J opened no bar; the log:\n" << driver().log();
}

}  // namespace
}  // namespace jorvane::e2e
