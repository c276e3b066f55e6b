#pragma once

// Stopping the processes of one end-to-end desktop by pid: those the harness
// started, and those started on its behalf (D-Bus activation) that carry the
// session's marker in their environment.

#include <sys/types.h>
#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

namespace jorvane::e2e {

// The environment variable that marks every process of a desktop session.
inline constexpr const char* kSessionMarkerVariable = "JORVANE_E2E_SESSION";

// Pids of running processes whose environment holds kSessionMarkerVariable=marker.
std::vector<pid_t> processesWithMarker(const std::string& marker);

// SIGTERM to the given pids and to the marked processes (never to `spare`),
// then SIGKILL to those still alive after `grace`. Reaps the ones that are our
// children. Returns how many processes were signalled.
int stopSessionProcesses(const std::vector<pid_t>& pids, const std::string& marker, const std::vector<pid_t>& spare,
                         std::chrono::milliseconds grace);

// Whether the process exists and is no zombie.
bool processAlive(pid_t pid);

// Removes the session's temporary folder, only when it lies in the temporary
// directory and carries the session prefix. File systems mounted below it
// (gvfs's FUSE view of servers) are detached first and never entered.
void removeSessionRoot(const std::filesystem::path& root);

}  // namespace jorvane::e2e
