// Xfce's shortcut list: accelerators, the custom and default sets, and the
// query program's failures (with small stand-in programs).
#include <gtest/gtest.h>

#include <sys/stat.h>

#include "fakes/TestSupport.h"
#include "platform/x11/X11SymbolicHotKeys.h"

namespace jorvane::x11 {
namespace {

SymbolicHotKey hot(KeyCode code, std::uint32_t modifiers) {
    return SymbolicHotKey{true, static_cast<ShortcutKeyCode>(code), static_cast<std::int32_t>(modifiers)};
}

// Xfce's accelerators become a key code and recorder flags, or are left out.
TEST(Accelerator, becomesACodeAndRecorderFlags) {
    const std::pair<const char*, std::optional<SymbolicHotKey>> rows[] = {
        {"<Primary><Alt>Delete", hot(kKeyForwardDelete, kRecorderCommand | kRecorderOption)},
        {"<Super>e", hot(kKeyE, kRecorderControl)},
        {"<Control>L", hot(kKeyL, kRecorderCommand)},
        {"<Primary><Alt>KP_1", hot(kKeypad1, kRecorderCommand | kRecorderOption)},
        {"<Shift><Alt>Page_Down", hot(kKeyPageDown, kRecorderShift | kRecorderOption)},
        {"<Alt>space", hot(kKeySpace, kRecorderOption)},
        {"F12", hot(kKeyF12, 0)},
        {"Print", std::nullopt},  // a key without a code
        {"<Hyper>a", std::nullopt},
        {"<Primary>", std::nullopt},
        {"<Primary", std::nullopt},
        {"<Primary>NoSuchKey", std::nullopt},
    };
    for (const auto& [accelerator, expected] : rows)
        EXPECT_EQ(symbolicHotKeyForAccelerator(accelerator), expected) << accelerator;
}

constexpr const char* kListing =
    "/commands/custom/<Alt>F2                  xfce4-appfinder --collapsed\n"
    "/commands/custom/<Alt>F2/startup-notify   true\n"
    "/commands/custom/<Super>r                 xfce4-appfinder -c\n"
    "/commands/custom/override                 true\n"
    "/commands/default/<Primary><Alt>l         xflock4\n"
    "/providers                                <<UNSUPPORTED>>\n"
    "/xfwm4/default/<Alt>F4                    close_window_key\n"
    "/xfwm4/default/Escape                     cancel_key\n"
    "/xfwm4/default/Print                      screenshot\n";

TEST(XfceListing, TakesTheCustomSetWhenItOverridesElseTheDefaults) {
    EXPECT_EQ(parseXfceShortcuts(kListing),
              (std::vector<SymbolicHotKey>{hot(kKeyF2, kRecorderOption), hot(kKeyR, kRecorderControl),
                                           hot(kKeyF4, kRecorderOption), SymbolicHotKey{false, kKeyEscape, 0}}));
    EXPECT_TRUE(parseXfceShortcuts("").empty());
    EXPECT_TRUE(parseXfceShortcuts("Channel \"xfce4-keyboard-shortcuts\" contains no properties.\n").empty());
}

class XfconfQuery : public testing::Test {
protected:
    // A stand-in for xfconf-query made of a shell script.
    std::string program(const std::string& body) {
        const auto path = dir_.file("xfconf-query", "#!/bin/sh\n" + body + "\n");
        ::chmod(path.c_str(), 0755);
        return path.string();
    }
    std::optional<std::vector<SymbolicHotKey>> list(const std::string& query, bool xfce = true) {
        X11SymbolicHotKeys::Options options;
        options.readXfceList = xfce;
        options.xfconfQuery = query;
        options.timeout = std::chrono::milliseconds(300);
        return X11SymbolicHotKeys(nullptr, options).copySymbolicHotKeys();
    }
    test::TempDir dir_;
};

TEST_F(XfconfQuery, ListsTheShortcutsItPrints) {
    const std::string query = program(
        "[ \"$*\" = \"-c xfce4-keyboard-shortcuts -l -v\" ] || exit 3\n"
        "echo '/commands/default/<Super>e   thunar'");
    EXPECT_EQ(list(query), (std::vector<SymbolicHotKey>{hot(kKeyE, kRecorderControl)}));
}

TEST_F(XfconfQuery, FailureOrSilenceIsAnUnreadableList) {
    EXPECT_EQ(list(program("echo 'Failed to init libxfconf' >&2; exit 1")), std::nullopt);
    EXPECT_EQ(list(program("exec sleep 30")), std::nullopt);
}

TEST_F(XfconfQuery, WithoutTheProgramOrOutsideXfceTheListIsEmpty) {
    EXPECT_EQ(list((dir_.path() / "missing").string()), std::vector<SymbolicHotKey>{});
    EXPECT_EQ(list(program("exit 1"), false), std::vector<SymbolicHotKey>{});
}

TEST(XfceSettingsName, IsEmptyOutsideXfce) {
    X11SymbolicHotKeys::Options options;
    options.readXfceList = false;
    EXPECT_EQ(X11SymbolicHotKeys(nullptr, options).settingsName(), "");
}

}  // namespace
}  // namespace jorvane::x11
