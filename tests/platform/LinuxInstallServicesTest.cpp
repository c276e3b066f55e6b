// The move's Linux services over real files and processes: the replace
// step, our own executable among the running ones, and the
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
#include "platform/linux/LinuxInstallServices.h"
#include "platform/linux/UnixInstanceChannel.h"

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

// A release folder as the packaging makes it: the program and its manifest.
fs::path makeRelease(const test::TempDir& dir, const std::string& name, const std::string& marker) {
    const fs::path program = dir.file(name + "/bin/jorvane", "#!/bin/sh\n# " + marker + "\n");
    fs::permissions(program, fs::perms::owner_all);
    dir.file(name + "/share/jorvane/installed-files",
             "jorvane-installed-files 1 release\nbin/jorvane\nshare/jorvane/installed-files\n");
    return dir.path() / name;
}

using jorvane::test::readFile;

// The replace step as it runs for real (unprivileged here; pkexec runs the
// same command): paths that look like options or shell text are only ever
// paths, an old copy is replaced in one rename, and a failure leaves what
// was there.
TEST(LinuxInstallServices, theReplaceStepPutsTheReleaseInPlaceWhateverItsPathSays) {
    test::TempDir dir;
    LinuxInstallServices services;
    const fs::path opt = dir.dir("opt");
    const std::string destination = (opt / "jorvane").string();
    const auto replace = [&](const fs::path& source) {
        return services.runCommand(
            systemInstall::replaceCommand(source.string(), destination, (opt / ".jorvane-new-1").string(),
                                               (opt / ".jorvane-old-1").string()),
            false);
    };

    const fs::path hostile = makeRelease(dir, "-rf $(touch pwned) `id` 'q\"\nx", "first");
    CommandRun run = replace(hostile);
    EXPECT_TRUE(run.started && !run.signalled && run.exitCode == 0) << run.exitCode;
    EXPECT_NE(readFile(destination + "/bin/jorvane").find("first"), std::string::npos);
    EXPECT_EQ(fs::status(destination + "/bin/jorvane").permissions(), fs::perms::owner_all);
    EXPECT_FALSE(fs::exists(dir.path() / "pwned")) << "nothing was read as shell text";
    EXPECT_TRUE(fs::exists(hostile / "bin/jorvane")) << "the source stays until it goes to the Trash";

    const fs::path second = makeRelease(dir, "second", "second");
    dir.file("opt/jorvane/share/old-only", "x");
    run = replace(second);
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_NE(readFile(destination + "/bin/jorvane").find("second"), std::string::npos);
    EXPECT_FALSE(fs::exists(destination + "/share/old-only")) << "the old copy went as a whole";
    EXPECT_EQ(std::distance(fs::directory_iterator(opt), fs::directory_iterator()), 1) << "no temporary folder stays";

    run = replace(dir.path() / "missing");
    EXPECT_EQ(run.exitCode, 3);
    EXPECT_NE(readFile(destination + "/bin/jorvane").find("second"), std::string::npos)
        << "a failed copy changes nothing";
    EXPECT_EQ(std::distance(fs::directory_iterator(opt), fs::directory_iterator()), 1);

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

// The relaunch where descriptors cannot be closed in bulk (the ordinary
// relaunch is the first-launch test's move, whose copy claims the session).
TEST(LinuxInstallServices, relaunchStartsTheProgramWithoutTheSessionLockWhereDescriptorsCannotBeClosedInBulk) {
    test::TempDir dir;
    const fs::path marker = dir.path() / "started";
    const fs::path release = dir.path() / "release";
    // The new program: says it started, then runs until the test lets it go.
    const fs::path program =
        dir.file("bin/jorvane", "#!/bin/sh\necho \"$$\" >'" + marker.string() + "'\nwhile [ ! -e '" + release.string() +
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
        if (!denyCloseRange()) _exit(5);
        UnixInstanceChannel session(dir.path(), ":9");
        if (session.claim() != InstanceChannel::Claim::claimed) _exit(3);
        LinuxInstallServices().relaunch(program.string());
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

}  // namespace
}  // namespace jorvane
