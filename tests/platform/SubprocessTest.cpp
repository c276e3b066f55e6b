// Starting programs without a shell: output capture, exit codes, the time-out
// that stops a whole process group, and the spawn options (environment,
// working directory, log file, stdin and descriptor 3).
#include "platform/linux/Subprocess.h"

#include <gtest/gtest.h>

#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <sstream>
#include <thread>

#include "fakes/TestSupport.h"

namespace jorvane {
namespace {

using namespace std::chrono_literals;

using jorvane::test::readFile;

std::string readAll(int fd) {
    std::string out;
    char buffer[256];
    for (ssize_t n; (n = ::read(fd, buffer, sizeof buffer)) > 0;) out.append(buffer, static_cast<std::size_t>(n));
    ::close(fd);
    return out;
}

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

TEST(Subprocess, SpawnGivesTheEnvironmentFolderLogAndDescriptorThree) {
    test::TempDir dir;
    const std::optional<subprocess::Pipe> pipe = subprocess::openPipe();
    ASSERT_TRUE(pipe);
    subprocess::SpawnOptions options;
    options.environment = std::vector<std::string>{"ONLY=yes", "PATH=/usr/bin:/bin"};
    options.workingDirectory = dir.path();
    options.outputFile = dir.path() / "log";
    options.descriptor3 = pipe->writeEnd;
    const std::optional<int> pid =
        subprocess::spawn({"sh", "-c", "pwd; echo \"$ONLY $HOME\"; echo three >&3"}, options);
    ::close(pipe->writeEnd);
    ASSERT_TRUE(pid);
    EXPECT_EQ(subprocess::waitFor(*pid, 10s), 0);
    EXPECT_EQ(readFile(dir.path() / "log"), dir.str() + "\nyes \n");
    EXPECT_EQ(readAll(pipe->readEnd), "three\n");
}

TEST(Subprocess, SpawnReadsStdinFromTheGivenDescriptor) {
    test::TempDir dir;
    const std::optional<subprocess::Pipe> pipe = subprocess::openPipe();
    ASSERT_TRUE(pipe);
    subprocess::SpawnOptions options;
    options.input = pipe->readEnd;
    options.outputFile = dir.path() / "log";
    const std::optional<int> pid = subprocess::spawn({"cat"}, options);
    ::close(pipe->readEnd);
    ASSERT_TRUE(pid);
    ASSERT_EQ(::write(pipe->writeEnd, "hello", 5), 5);
    ::close(pipe->writeEnd);
    EXPECT_EQ(subprocess::waitFor(*pid, 10s), 0);
    EXPECT_EQ(readFile(dir.path() / "log"), "hello");
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
