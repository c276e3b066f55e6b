// The preferences window of the running program on the end-to-end desktop:
// opened from the bar's context menu, a new hot key recorded with a click and
// XTEST keys, kept in settings.json when the window closes, and acting in
// Thunar at once.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <string>

#include "JorvaneTest.h"

namespace jorvane::e2e {
namespace {

namespace fs = std::filesystem;

class JorvanePreferences : public JorvaneTest {
protected:
    static void SetUpTestSuite() {
        if (!startDesktop()) return;
        folder_ = desktop().dataDir() / "preferences";
        fs::create_directories(folder_ / "Inside");
        desktop().openThunarWindow(folder_);
        JorvaneDriver::Options options;
        options.logLevel = "info,Preferences=debug";
        startProgram(options);
    }

    static void TearDownTestSuite() {
        JorvaneTest::TearDownTestSuite();
        // The next program on this desktop starts with the shipped hot key.
        if (!Desktop::sharedIfRunning()) return;
        if (std::optional<nlohmann::json> settings = readSettings()) {
            settings->erase("hotkey_flags");
            settings->erase("hotkey_keycode");
            std::ofstream(settingsFile()) << settings->dump(2) << "\n";
        }
    }

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
        const std::uint32_t window =
            windows.empty() ? desktop().openThunarWindow(folder_).value_or(0) : windows.front();
        if (window != 0) bringToFront(window, grabbed);
        return window;
    }

    static inline fs::path folder_;
};

TEST_F(JorvanePreferences, ANewHotKeyRecordedInThePreferencesIsKeptAndOpensTheBar) {
    const std::uint32_t thunar = frontThunarWindow(true);
    ASSERT_NE(thunar, 0u);

    // The bar's context menu ends with "Jorvane Preferences…": Up from no
    // entry chooses the last one.
    ASSERT_TRUE(openBarByHotKey()) << "no bar after Ctrl+G";
    const std::optional<BarWindow> bar = driver().bar();
    ASSERT_TRUE(bar);
    driver().clickAt(bar->geometry.x + bar->geometry.width / 2, bar->geometry.y + bar->geometry.height / 2, 3);
    ASSERT_TRUE(waitUntil([&] { return driver().bar(true).has_value(); }, kWait)) << "no context menu";
    ASSERT_TRUE(driver().key("Up"));
    ASSERT_TRUE(driver().key("Return"));

    const std::optional<std::uint32_t> preferences = desktop().waitForWindow(
        [&](std::uint32_t w) {
            return desktop().title(w) == "Jorvane Preferences" && desktop().windowPid(w) == driver().pid();
        },
        kWait);
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
    driver().clickAt(frame->x + frame->width * 2 / 3, frame->y + 24);
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
    closeBar();
    ASSERT_TRUE(driver().waitForBarHidden(kWait));
    // The tap takes the new combination a moment after the settings change.
    ASSERT_TRUE(driver().waitForGrab(thunar, "j", kWait, true)) << "the tap never grabbed Ctrl+Shift+J";
    ASSERT_EQ(frontThunarWindow(false), thunar);
    ASSERT_TRUE(driver().key("j", {"Control_L", "Shift_L"}));
    EXPECT_TRUE(driver().waitForFocusedBar(kWait)) << "Ctrl+Shift+J opened no bar; the log:\n" << driver().log();
}

}  // namespace
}  // namespace jorvane::e2e
