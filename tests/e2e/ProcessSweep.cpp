#include "ProcessSweep.h"

#include <dirent.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <thread>

#include "platform/linux/Subprocess.h"

namespace jorvane::e2e {

namespace fs = std::filesystem;

std::vector<pid_t> processesWithMarker(const std::string& marker) {
    std::vector<pid_t> found;
    const std::string needle = std::string(kSessionMarkerVariable) + "=" + marker;
    DIR* proc = opendir("/proc");
    if (!proc) return found;
    while (dirent* entry = readdir(proc)) {
        char* end = nullptr;
        const long pid = std::strtol(entry->d_name, &end, 10);
        if (pid <= 1 || !end || *end != '\0') continue;
        std::ifstream environ(std::string("/proc/") + entry->d_name + "/environ", std::ios::binary);
        // Entries are NUL-terminated; match a whole entry.
        for (std::string variable; std::getline(environ, variable, '\0');) {
            if (variable != needle) continue;
            found.push_back(static_cast<pid_t>(pid));
            break;
        }
    }
    closedir(proc);
    return found;
}

bool processAlive(pid_t pid) {
    if (pid <= 1) return false;
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
    if (!stat) return false;
    std::string contents;
    std::getline(stat, contents);
    const std::size_t close = contents.rfind(')');
    if (close == std::string::npos || close + 2 >= contents.size()) return false;
    const char state = contents[close + 2];
    return state != 'Z' && state != 'X';
}

int stopSessionProcesses(const std::vector<pid_t>& pids, const std::string& marker, const std::vector<pid_t>& spare,
                         std::chrono::milliseconds grace) {
    auto targets = [&] {
        std::vector<pid_t> all = pids;
        if (!marker.empty()) {
            std::vector<pid_t> marked = processesWithMarker(marker);
            all.insert(all.end(), marked.begin(), marked.end());
        }
        std::sort(all.begin(), all.end());
        all.erase(std::unique(all.begin(), all.end()), all.end());
        all.erase(std::remove_if(all.begin(), all.end(),
                                 [&](pid_t pid) {
                                     return pid <= 1 || std::find(spare.begin(), spare.end(), pid) != spare.end() ||
                                            !processAlive(pid);
                                 }),
                  all.end());
        return all;
    };
    // Only the listed pids can be our children; other children of the
    // process belong to their own waiters.
    auto reap = [&pids] {
        for (pid_t pid : pids) waitpid(pid, nullptr, WNOHANG);
    };

    std::vector<pid_t> alive = targets();
    const int signalled = static_cast<int>(alive.size());
    for (pid_t pid : alive) {
        kill(pid, SIGCONT);  // a stopped process cannot act on SIGTERM
        kill(pid, SIGTERM);
    }
    const auto deadline = std::chrono::steady_clock::now() + grace;
    while (!alive.empty() && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        reap();
        alive.erase(std::remove_if(alive.begin(), alive.end(), [](pid_t pid) { return !processAlive(pid); }),
                    alive.end());
    }
    // Late arrivals (a service activated while the others stopped) and the
    // ones that ignored SIGTERM.
    for (int round = 0; round < 3; ++round) {
        std::vector<pid_t> rest = targets();
        if (rest.empty()) break;
        for (pid_t pid : rest) kill(pid, SIGKILL);
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        reap();
    }
    return signalled;
}

namespace {

// Mount points at or below `root` (from /proc/self/mountinfo), deepest first.
std::vector<fs::path> mountsBelow(const fs::path& root) {
    std::vector<fs::path> found;
    std::ifstream info("/proc/self/mountinfo");
    const std::string prefix = root.string();
    for (std::string line; std::getline(info, line);) {
        // id parent major:minor root mount-point ...; the kernel writes
        // spaces and backslashes in the mount point as octal escapes.
        std::istringstream fields(line);
        std::string escaped;
        for (int field = 0; field < 5; ++field) fields >> escaped;
        std::string point;
        for (std::size_t i = 0; i < escaped.size(); ++i) {
            if (escaped[i] == '\\' && i + 3 < escaped.size()) {
                point.push_back(static_cast<char>(std::stoi(escaped.substr(i + 1, 3), nullptr, 8)));
                i += 3;
            } else {
                point.push_back(escaped[i]);
            }
        }
        if (point == prefix || point.rfind(prefix + "/", 0) == 0) found.emplace_back(point);
    }
    std::sort(found.begin(), found.end(),
              [](const fs::path& a, const fs::path& b) { return a.string().size() > b.string().size(); });
    return found;
}

// Detaches a mount: directly when allowed (root), else through FUSE's own
// helper, which lets a user unmount what the user mounted.
void detach(const fs::path& point) {
    if (umount2(point.c_str(), MNT_DETACH) == 0) return;
    for (const char* helper : {"fusermount3", "fusermount"})
        if (subprocess::run({helper, "-u", "-z", point.string()}, std::chrono::seconds(10)).exitCode == 0) return;
}

// Removes `path` and what lies below it on the same file system; never
// follows links and never enters another mount.
void removeOnDevice(const fs::path& path, dev_t device) {
    struct stat info {};
    if (lstat(path.c_str(), &info) != 0 || info.st_dev != device) return;
    if (S_ISDIR(info.st_mode)) {
        std::error_code error;
        std::vector<fs::path> children;
        for (fs::directory_iterator it(path, error), end; !error && it != end; it.increment(error))
            children.push_back(it->path());
        for (const fs::path& child : children) removeOnDevice(child, device);
        rmdir(path.c_str());
    } else {
        unlink(path.c_str());
    }
}

}  // namespace

void removeSessionRoot(const fs::path& root) {
    std::error_code error;
    const fs::path temp = fs::temp_directory_path(error);
    if (error || root.empty()) return;
    const fs::path parent = root.parent_path();
    if (fs::weakly_canonical(parent, error) != fs::weakly_canonical(temp, error)) return;
    if (root.filename().string().rfind("jorvane-e2e-", 0) != 0) return;
    // gvfs's FUSE view of mounted servers lives in the session's runtime
    // folder: a removal that walked into it would delete the servers' files.
    for (const fs::path& point : mountsBelow(fs::weakly_canonical(root, error))) detach(point);
    struct stat info {};
    if (lstat(root.c_str(), &info) != 0) return;
    removeOnDevice(root, info.st_dev);
}

}  // namespace jorvane::e2e
