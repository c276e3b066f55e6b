// The end-to-end desktop itself: it starts from nothing, drives windows, and
// leaves nothing behind, even when the test process dies.

#include <sys/wait.h>
#include <unistd.h>

#include "DesktopTest.h"
#include "ProcessSweep.h"

namespace jorvane::e2e {
namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;

std::string markerOf(const Desktop& desktop) { return desktop.root().filename().string(); }

TEST(DesktopHarness, StopLeavesNoProcessAndNoFolderBehind) {
    std::optional<Desktop> desktop(std::in_place);
    const std::string marker = markerOf(*desktop);
    const fs::path root = desktop->root();
    const std::string socket = "/tmp/.X11-unix/X" + desktop->display().substr(1);
    // Xvfb, the two buses, the accessibility registry, openbox, xfconfd, Thunar.
    EXPECT_GE(processesWithMarker(marker).size(), 6u);
    EXPECT_TRUE(desktop->nameHasOwner("org.xfce.FileManager"));
    EXPECT_TRUE(desktop->nameHasOwner("org.xfce.Xfconf"));
    EXPECT_TRUE(fs::exists(socket));

    desktop->stop();

    EXPECT_EQ(processesWithMarker(marker), std::vector<pid_t>{});
    EXPECT_FALSE(fs::exists(root));
    EXPECT_FALSE(fs::exists(socket));
    EXPECT_EQ(std::getenv(kSessionMarkerVariable), nullptr);
}

TEST(DesktopHarness, TheReaperCleansUpAfterATestProcessThatDied) {
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        close(fds[0]);
        try {
            DesktopOptions options;
            options.windowManager = "";
            options.startThunar = false;
            auto* desktop = new Desktop(options);
            const std::string root = desktop->root().string() + "\n";
            [[maybe_unused]] ssize_t written = write(fds[1], root.data(), root.size());
        } catch (...) {
        }
        _exit(3);  // no destructor runs: the desktop is abandoned
    }
    close(fds[1]);
    std::string root;
    char c = 0;
    while (read(fds[0], &c, 1) == 1 && c != '\n') root.push_back(c);
    close(fds[0]);
    int status = 0;
    waitpid(child, &status, 0);
    ASSERT_FALSE(root.empty()) << "the child's desktop did not start";
    const std::string marker = fs::path(root).filename().string();
    EXPECT_TRUE(waitUntil([&] { return processesWithMarker(marker).empty() && !fs::exists(root); },
                          milliseconds(15000), milliseconds(50)));
}

class DesktopHarnessWindows : public DesktopTest {
protected:
    void TearDown() override {
        if (startError().empty()) desktop().closeThunarWindows();
    }
};

TEST_F(DesktopHarnessWindows, AThunarWindowOpensOnItsFolderWithTheFullPathAsTitle) {
    const fs::path folder = desktop().dataDir() / "window";
    fs::create_directories(folder);
    const std::optional<std::uint32_t> window = desktop().openThunarWindow(folder);
    ASSERT_TRUE(window.has_value());
    EXPECT_EQ(desktop().title(*window), folder.string() + " - Thunar");
    EXPECT_EQ(desktop().wmClass(*window), "Thunar");
    EXPECT_EQ(desktop().windowPid(*window), desktop().thunarPid());
    const std::optional<WindowGeometry> geometry = desktop().geometry(*window);
    ASSERT_TRUE(geometry.has_value());
    EXPECT_GT(geometry->width, 100);
    EXPECT_GT(geometry->height, 100);
}

TEST_F(DesktopHarnessWindows, AnXtestClickActivatesTheWindowUnderThePointer) {
    const fs::path a = desktop().dataDir() / "a", b = desktop().dataDir() / "b";
    fs::create_directories(a);
    fs::create_directories(b);
    const std::uint32_t first = *desktop().openThunarWindow(a);
    const std::uint32_t second = *desktop().openThunarWindow(b);
    ASSERT_TRUE(desktop().activate(second));
    // Openbox cascades new windows: a corner of the first one stays uncovered
    // at its top left.
    const WindowGeometry frame = *desktop().geometry(first);
    desktop().click(frame.x + 10, frame.y + 60);
    EXPECT_TRUE(waitUntil([&] { return desktop().activeWindow() == first; }, milliseconds(3000)));
}

TEST_F(DesktopHarnessWindows, KeysReachTheActiveWindow) {
    const fs::path folder = desktop().dataDir() / "keys";
    fs::create_directories(folder / "inner");
    const std::uint32_t window = *desktop().openThunarWindow(folder / "inner");
    ASSERT_TRUE(desktop().activate(window));
    // Alt+Up: Thunar's "Open Parent".
    ASSERT_TRUE(desktop().key("alt+Up"));
    EXPECT_TRUE(desktop().waitForTitle(window, folder.string() + " - Thunar", milliseconds(5000)));
}

}  // namespace
}  // namespace jorvane::e2e
