// Starting programs without a shell: output capture, exit codes, the time-out
// that stops a whole process group. (The spawn options, environment, log
// file, stdin and descriptor 3, start every end-to-end desktop.)
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

TEST(Subprocess, RunCapturesBothStreamsAndTheExitCodeAndPassesArgumentsAsTheyAre) {
    const subprocess::RunResult result =
        subprocess::run({"sh", "-c", "printf '%s|' \"$0\" \"$1\"; echo err >&2; exit 3", "a b", "$HOME"}, 10s);
    EXPECT_TRUE(result.started);
    EXPECT_FALSE(result.timedOut);
    EXPECT_EQ(result.exitCode, 3);
    EXPECT_EQ(result.output, "a b|$HOME|err\n");
}

TEST(Subprocess, AProgramThatCannotStartIsReportedWithAReason) {
    const subprocess::RunResult missing = subprocess::run({"/nonexistent/jorvane-program"}, 10s);
    EXPECT_FALSE(missing.started);
    EXPECT_FALSE(missing.output.empty());
    std::string error;
    EXPECT_EQ(subprocess::spawn({}, {}, &error), std::nullopt);
    EXPECT_FALSE(error.empty());
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
