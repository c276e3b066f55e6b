#pragma once

// The system services of a move into the applications folder on Linux:
// access(2) for the tests, the freedesktop Trash through "gio trash",
// /proc/<pid>/exe for the running executables, commands run directly or
// through polkit's pkexec as the administrator, and a relaunch
// that starts the new program only once this process has ended (so that it
// finds the session free, SingleInstance.h). Programs run without a shell,
// their arguments as an array.

#include "firstlaunch/SystemInstall.h"

namespace jorvane {

class LinuxInstallServices final : public InstallServices {
public:
    bool isWritable(const std::string& path) override;
    bool moveToTrash(const std::string& path) override;
    std::optional<std::string> resolveLinks(const std::string& path) override;
    std::vector<std::string> runningExecutables() override;
    CommandRun runCommand(const std::vector<std::string>& argv, bool asAdministrator) override;
    // Forks a child that waits for this process to end and then executes
    // the program; this process ends with status 0. Returns (logged) only
    // when the child cannot be made.
    void relaunch(const std::string& executable) override;
};

}  // namespace jorvane
