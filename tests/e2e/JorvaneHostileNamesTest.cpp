// Folder names that a shell would take apart or run, names that cannot be
// typed (a line break, bytes that are not UTF-8), and names that look like a
// program's options, through the bar and the real Thunar: typed in full with
// Return, completed from their first character with Tab, left with Up, and
// completed inside a relative path that reveals a file, each reaches exactly
// its folder in the same window, and nothing is ever run by a shell.

#include <gtest/gtest.h>
#include <sys/types.h>

#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

#include "JorvaneTest.h"
#include "platform/thunar/ThunarText.h"

namespace jorvane::e2e {
namespace {

namespace fs = std::filesystem;

// What a shell would create had it run one of the names.
constexpr const char* kMarker = "jorvane-ran-by-a-shell";

struct NameRow {
    const char* label;
    std::string name;
    // Whether the test can type the whole name: a line break would be Return,
    // keys make UTF-8 only, and xdotool types letters beyond ASCII by
    // remapping a key for a moment, faster than Qt follows. Other names are
    // reached by completing their first character.
    bool typable = true;
};

// Failures name the row, not its bytes.
void PrintTo(const NameRow& row, std::ostream* out) { *out << row.label; }

class HostileFolderNames : public JorvaneTest, public ::testing::WithParamInterface<NameRow> {
protected:
    static void SetUpTestSuite() {
        if (!startDesktop()) return;
        base_ = desktop().dataDir() / "hostile";
        fs::create_directories(base_);
        // Thunar's selection can be read in its Details view only.
        desktop().setXfconf("thunar", "/default-view", "string", "ThunarDetailsView");
        // One window for every row: each row goes on from where the last left it.
        window_ = desktop().openThunarWindow(base_).value_or(0);
        startProgram();
    }

    // Each name alone in a parent of its own, so that its first character
    // completes to it.
    fs::path parent() const { return base_ / GetParam().label; }
    fs::path target() const { return parent() / GetParam().name; }

    // The bar left open and focused by the last Return takes the next path
    // over its selected text; else a click on the title opens it. (Two title
    // clicks in a row would be a double click, which maximises the window.)
    void openBar() {
        if (driver().barHasFocus()) {
            ASSERT_TRUE(driver().key("a", {"Control_L"}));
            return;
        }
        bringToFront(window_);
        ASSERT_TRUE(clickTitle(window_)) << "no bar after a click on the title";
    }

    // Types the text into the bar and presses the key (once the inline
    // completion shows, when the key takes it).
    void goTo(const std::string& text, const std::string& key, const fs::path& folder, const char* how,
              bool completed = false) {
        ASSERT_NO_FATAL_FAILURE(openBar());
        ASSERT_TRUE(driver().type(text));
        if (completed) {
            ASSERT_TRUE(driver().waitForInlineCompletion(kWait)) << how << ": no inline completion";
        }
        ASSERT_TRUE(driver().key(key));
        expectWindowShows(folder, how);
    }

    void expectWindowShows(const fs::path& folder, const char* how) {
        std::optional<std::string> shown;
        const bool there = waitUntil(
            [&] {
                shown = thunar::folderFromTitle(desktop().title(window_));
                return shown == folder.string();
            },
            kWait);
        EXPECT_TRUE(there) << how << ": the window shows " << ::testing::PrintToString(shown.value_or("(no folder)"))
                           << "; the log:\n"
                           << driver().log();
        EXPECT_EQ(desktop().thunarWindows().size(), 1u) << how << ": no new window";
    }

    static inline fs::path base_;
    static inline std::uint32_t window_ = 0;
};

// Markers anywhere in the desktop's temporary root, and in the working folders
// of this process, the program and Thunar, where a shell would have started.
std::vector<fs::path> markersFound(pid_t program) {
    std::vector<fs::path> found;
    std::error_code error;
    for (auto it = fs::recursive_directory_iterator(Desktop::shared().root(),
                                                    fs::directory_options::skip_permission_denied, error);
         !error && it != fs::recursive_directory_iterator(); it.increment(error))
        if (it->path().filename() == kMarker) found.push_back(it->path());
    std::vector<fs::path> places{fs::current_path()};
    for (pid_t pid : {program, Desktop::shared().thunarPid()})
        if (pid > 0) places.push_back(fs::read_symlink("/proc/" + std::to_string(pid) + "/cwd", error));
    for (const fs::path& place : places)
        if (!place.empty() && fs::exists(place / kMarker, error)) found.push_back(place / kMarker);
    return found;
}

TEST_P(HostileFolderNames, ReachTheirFolderTypedAndCompletedAndRunNothing) {
    ASSERT_NE(window_, 0u) << "no Thunar window";
    fs::create_directories(target());
    std::ofstream(target() / "inside.txt") << "inside\n";

    // Each step starts where the last one left the window, never at its goal.
    const std::string first = GetParam().name.substr(0, 1);
    if (GetParam().typable) {
        ASSERT_NO_FATAL_FAILURE(goTo(target().string(), "Return", target(), "the path typed"));
        ASSERT_TRUE(driver().key("Up"));
        expectWindowShows(parent(), "Up");
    }
    // The first character, completed inline, and Tab.
    ASSERT_NO_FATAL_FAILURE(goTo(parent().string() + "/" + first, "Tab", target(), "the name completed", true));
    ASSERT_TRUE(driver().key("Up"));
    expectWindowShows(parent(), "Up");
    // A path relative to the window's folder, its name completed, reveals its item.
    ASSERT_NO_FATAL_FAILURE(openBar());
    ASSERT_TRUE(driver().type(first));
    ASSERT_TRUE(driver().waitForInlineCompletion(kWait)) << "a relative path: no inline completion";
    ASSERT_TRUE(driver().key("Right"));
    ASSERT_TRUE(driver().type("inside.txt"));
    ASSERT_TRUE(driver().key("Return"));
    expectWindowShows(target(), "a relative path");
    std::optional<std::vector<std::string>> selected;
    EXPECT_TRUE(waitUntil(
        [&] {
            selected = driver().thunarSelection(window_);
            return selected == std::vector<std::string>{"inside.txt"};
        },
        kWait, milliseconds(50)))
        << "Thunar's selection: " << ::testing::PrintToString(selected);

    EXPECT_EQ(markersFound(driver().pid()), std::vector<fs::path>{}) << "a shell ran a name";
}

INSTANTIATE_TEST_SUITE_P(
    Names, HostileFolderNames,
    ::testing::Values(
        NameRow{"Spaces", "  two  words and spaces around  "}, NameRow{"Quotes", "it's a \"quoted\" 'name'"},
        NameRow{"CommandSubstitution", std::string("$(touch ") + kMarker + ")"},
        NameRow{"Backticks", std::string("`touch ") + kMarker + "`"}, NameRow{"Backslashes", "back\\slash \\n \\\\ \\"},
        NameRow{"ShellOperators", std::string("a; touch ") + kMarker + " | b & c > " + kMarker},
        NameRow{"Variables", "$HOME ${PATH} ~ %s %n"}, NameRow{"ALeadingDashLikeAnOption", "-rf"},
        NameRow{"ALeadingDoubleDashLikeAnOption", "--help"}, NameRow{"ANameEndingLikeATitle", "docs - Thunar"},
        NameRow{"LettersBeyondAscii", "naïve Ünïcødé 日本語", false}, NameRow{"ALineBreak", "two\nlines", false},
        NameRow{"BytesThatAreNotUtf8", "caf\xe9", false},
        NameRow{"EverythingAtOnce",
                std::string("-x '$(touch ") + kMarker + ")' \"`touch " + kMarker + "`\" \\\n\t%41 caf\xe9", false}),
    [](const auto& row) { return std::string(row.param.label); });

}  // namespace
}  // namespace jorvane::e2e
