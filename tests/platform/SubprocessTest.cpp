// Starting programs without a shell: the time-out that stops a whole process
// group, the output limit, stopping a child. (Output, exit codes, arguments
// passed as they are, the spawn options, environment, log file, stdin and
// descriptor 3 serve every end-to-end desktop and its command-line test; a
// program that cannot start, the Xfce shortcut query's test.)
#include "platform/linux/Subprocess.h"

#include <gtest/gtest.h>

#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <thread>

namespace jorvane {
namespace {

using namespace std::chrono_literals;

// Gone or a zombie waiting for init: no longer running.
bool stillRunning(int pid) {
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
    std::string pidField, name, state;
    return stat >> pidField >> name >> state && state != "Z";
}

TEST(Subprocess, TheTimeOutStopsTheProgramAndTheHelpersItStarted) {
    subprocess::RunOptions options;
    options.grace = 1000ms;
    const subprocess::RunResult result = subprocess::run({"sh", "-c", "sleep 30 & echo $!; wait"}, 300ms, options);
    EXPECT_TRUE(result.started);
    EXPECT_TRUE(result.timedOut);
    EXPECT_EQ(result.exitCode, -1);
    const int helper = std::stoi(result.output);
    const auto deadline = std::chrono::steady_clock::now() + 10s;
    while (stillRunning(helper) && std::chrono::steady_clock::now() < deadline) std::this_thread::sleep_for(5ms);
    EXPECT_FALSE(stillRunning(helper));
}

TEST(Subprocess, OutputIsKeptUpToTheLimit) {
    subprocess::RunOptions options;
    options.outputLimit = 10;
    const subprocess::RunResult result = subprocess::run({"head", "-c", "100000", "/dev/zero"}, 10s, options);
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.output.size(), 10u);
}

TEST(Subprocess, WaitingOnARunningChildGivesNothingAndStopEndsAndReapsIt) {
    const std::optional<int> pid = subprocess::spawn({"sleep", "30"});
    ASSERT_TRUE(pid);
    EXPECT_EQ(subprocess::waitFor(*pid, 0ms), std::nullopt);
    subprocess::stop(*pid, 2000ms);
    EXPECT_EQ(::kill(*pid, 0), -1) << "reaped, so no such process";
    EXPECT_EQ(errno, ESRCH);
    EXPECT_EQ(subprocess::waitFor(*pid, 0ms), std::nullopt);
}

}  // namespace
}  // namespace jorvane
