// jorvane_e2e_reaper: the end-to-end desktop's safety net.
//
//   jorvane_e2e_reaper MARKER ROOT
//
// The test process starts it with a pipe on standard input and writes the pid
// of every process it starts, one per line. When the pipe closes (the test
// process ended, however it ended), the reaper stops those processes and
// every other process whose environment carries JORVANE_E2E_SESSION=MARKER
// (the services that D-Bus started for the desktop), by pid: SIGTERM, then
// SIGKILL after two seconds. Then it removes ROOT, the desktop's temporary
// folder, when it lies under the temporary directory.

#include <unistd.h>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <string>
#include <thread>

#include "ProcessSweep.h"

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: jorvane_e2e_reaper MARKER ROOT < pids\n");
        return 2;
    }
    // Interrupts of the terminal go to the tests; the reaper waits for its pipe.
    std::signal(SIGINT, SIG_IGN);
    std::signal(SIGHUP, SIG_IGN);
    const std::string marker = argv[1];
    const std::filesystem::path root = argv[2];

    // Ignored signals interrupt no read: the loop ends when the pipe closes.
    std::vector<pid_t> pids;
    for (std::string line; std::getline(std::cin, line);)
        if (const long pid = std::strtol(line.c_str(), nullptr, 10); pid > 1) pids.push_back(static_cast<pid_t>(pid));

    const int stopped = jorvane::e2e::stopSessionProcesses(pids, marker, {getpid()}, std::chrono::seconds(2));
    if (stopped > 0) std::fprintf(stderr, "jorvane_e2e_reaper: stopped %d leftover processes\n", stopped);
    jorvane::e2e::removeSessionRoot(root);
    return 0;
}
