// The move's Linux services over real files and processes: the tests of a
// path, the copy, our own executable among the running ones, and the
// relaunch, which starts the program only after this process has ended and
// without the session's lock.

#include <gtest/gtest.h>

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <thread>

#include "fakes/TestSupport.h"
#include "platform/LinuxBundleServices.h"
#include "platform/UnixInstanceChannel.h"

namespace jorvane {
namespace {

namespace fs = std::filesystem;

bool waitFor(const std::function<bool()>& condition) {
    const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > until) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return true;
}

TEST(LinuxBundleServices, copiesAFolderKeepingModesAndSeesItsOwnExecutableRunning) {
    test::TempDir dir;
    LinuxBundleServices services;
    const fs::path program = dir.file("Jorvane/bin/jorvane", "#!/bin/sh\n");
    fs::permissions(program, fs::perms::owner_all);
    const std::string destination = (dir.path() / "opt" / "Jorvane").string();
    dir.dir("opt");

    EXPECT_TRUE(services.isWritable(dir.str()));
    EXPECT_FALSE(services.exists(destination));
    ASSERT_TRUE(services.copy((dir.path() / "Jorvane").string(), destination));
    EXPECT_TRUE(services.exists(destination + "/bin/jorvane"));
    EXPECT_EQ(fs::status(destination + "/bin/jorvane").permissions(), fs::perms::owner_all);
    EXPECT_FALSE(services.copy((dir.path() / "missing").string(), destination + "2"));

    const std::vector<std::string> running = services.runningExecutables();
    EXPECT_NE(std::find(running.begin(), running.end(), fs::read_symlink("/proc/self/exe").string()), running.end());
}

// Makes close_range(2) fail as kernels before 5.9 and some container
// sandboxes do, for this process and the ones it starts.
bool denyCloseRange() {
    sock_filter filter[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, __NR_close_range, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | ENOSYS),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    sock_fprog program{static_cast<unsigned short>(std::size(filter)), filter};
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 && prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

void relaunchesFromAChildProcess(bool withoutCloseRange) {
    test::TempDir dir;
    const fs::path marker = dir.path() / "started";
    const fs::path release = dir.path() / "release";
    // The new program: says it started, then runs until the test lets it go.
    const fs::path program = dir.file("bin/jorvane", "#!/bin/sh\necho \"$$\" >'" + marker.string() +
                                                         "'\nwhile [ ! -e '" + release.string() +
                                                         "' ]; do sleep 0.05; done\n");
    fs::permissions(program, fs::perms::owner_all);
    // Lets the program end however the test ends.
    struct Release {
        fs::path file;
        ~Release() { std::ofstream(file) << "go"; }
    } releaseAtEnd{release};

    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        // A group of its own: whatever it leaves behind can be stopped.
        setpgid(0, 0);
        if (withoutCloseRange && !denyCloseRange()) _exit(5);
        UnixInstanceChannel session(dir.path(), ":9");
        if (session.claim() != InstanceChannel::Claim::claimed) _exit(3);
        LinuxBundleServices().relaunch(program.string());
        _exit(4);  // relaunch returned
    }
    // A relaunch still waiting when the test ends is stopped; once the
    // program has started, the group is empty and its number not ours.
    struct StopGroup {
        pid_t group;
        bool armed = true;
        ~StopGroup() {
            if (armed) kill(-group, SIGKILL);
        }
    } stopAtEnd{child};
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0) << "the process that relaunches ends with success";

    ASSERT_TRUE(waitFor([&] { return fs::exists(marker) && fs::file_size(marker) > 0; }))
        << "the program never started";
    stopAtEnd.armed = false;
    UnixInstanceChannel next(dir.path(), ":9");
    EXPECT_EQ(next.claim(), InstanceChannel::Claim::claimed) << "the started program holds the old lock";

    std::ofstream(release) << "go";
    pid_t started = 0;
    std::ifstream(marker) >> started;
    EXPECT_TRUE(waitFor([&] { return started > 0 && kill(started, 0) != 0; })) << "the program did not end";
}

TEST(LinuxBundleServices, relaunchEndsThisProcessAndStartsTheProgramWithoutTheSessionLock) {
    relaunchesFromAChildProcess(false);
}

TEST(LinuxBundleServices, relaunchStartsTheProgramWhereDescriptorsCannotBeClosedInBulk) {
    relaunchesFromAChildProcess(true);
}

}  // namespace
}  // namespace jorvane
