#include "ProcessSweep.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <dirent.h>
#include <fstream>
#include <iterator>
#include <sys/wait.h>
#include <thread>

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
        if (!environ) continue;
        const std::string contents((std::istreambuf_iterator<char>(environ)), std::istreambuf_iterator<char>());
        // Entries are NUL-terminated; match a whole entry.
        std::size_t at = 0;
        while ((at = contents.find(needle, at)) != std::string::npos) {
            const bool starts = at == 0 || contents[at - 1] == '\0';
            const std::size_t after = at + needle.size();
            const bool ends = after == contents.size() || contents[after] == '\0';
            if (starts && ends) {
                found.push_back(static_cast<pid_t>(pid));
                break;
            }
            at = after;
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

void removeSessionRoot(const fs::path& root) {
    std::error_code error;
    const fs::path temp = fs::temp_directory_path(error);
    if (error || root.empty()) return;
    const fs::path parent = root.parent_path();
    if (fs::weakly_canonical(parent, error) != fs::weakly_canonical(temp, error)) return;
    if (root.filename().string().rfind("jorvane-e2e-", 0) != 0) return;
    fs::remove_all(root, error);
}

}  // namespace jorvane::e2e
