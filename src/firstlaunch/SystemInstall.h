#pragma once

// Moving an unpacked release of the program into the local applications
// folder and starting it again from there, as offered by the welcome of a
// first launch.
//
// The steps, in this order:
//   1. Only a release folder (Installation.h) that does not lie in the
//      applications folder moves; every other install stays where it is.
//   2. The destination is always <applications folder, links resolved>/jorvane.
//      What lies there is replaced only when it is itself a release folder of
//      Jorvane (and is started instead when a copy runs from it); anything
//      else there is left alone and the move is refused with an alert that
//      names it.
//   3. One step, run as the administrator (through polkit) when the
//      applications folder is not writable: copy the release to a hidden
//      temporary folder beside the destination, move the old copy aside,
//      rename the new one into place, delete the old one. A failed step puts
//      back what was there, so a dismissed password dialog or a failure
//      leaves both copies as they were. Every tool is named by its absolute
//      path, paths are passed as arguments, never as shell text, and the step
//      is bounded in time by a tool that runs with it.
//   4. The new copy must be a complete release folder whose program starts
//      (it answers --version); only then does the original go to the Trash (unless it lies on removable media), and the
//      new copy starts once this process has ended.
// Steps 3 and 4 run in the background when a way to do so is given; alerts
// are shown on the main queue.

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "app/PlatformNames.h"
#include "firstlaunch/Installation.h"

namespace jorvane {

class Alerts;
class Application;

// How a command ended.
struct CommandRun {
    bool started = false;    // it could be started at all
    bool signalled = false;  // a signal ended it, or it was stopped at its time-out
    int exitCode = -1;       // its exit code when it exited
};

// The system services a move needs. Paths are plain strings, compared and
// passed on exactly as given.
class InstallServices {
public:
    virtual ~InstallServices() = default;
    virtual bool isWritable(const std::string& path) = 0;
    // Moves the file or folder to the desktop's Trash.
    virtual bool moveToTrash(const std::string& path) = 0;
    // The path with every symbolic link resolved; nothing when it cannot be.
    virtual std::optional<std::string> resolveLinks(const std::string& path) = 0;
    // The executable files of the running processes (those readable).
    virtual std::vector<std::string> runningExecutables() = 0;
    // Runs the command (argv[0] an absolute path) and waits for it; with
    // `asAdministrator`, after the desktop's password dialog.
    virtual CommandRun runCommand(const std::vector<std::string>& argv, bool asAdministrator) = 0;
    // Starts the program once this process has ended, and ends this process
    // (status 0). Returns only where the process cannot be ended (tests).
    virtual void relaunch(const std::string& executable) = 0;
};

namespace systemInstall {

inline constexpr std::string_view kFailureMessage = "Could not move to Applications folder";
inline constexpr std::string_view kDestinationName = "jorvane";
// The exit codes polkit's pkexec gives when the user dismissed the password
// dialog, and when the user may not act as the administrator.
inline constexpr int kAuthorisationDismissed = 126;
inline constexpr int kNotAuthorised = 127;
// The replace step is stopped after this many seconds of running.
inline constexpr int kReplaceTimeLimitSeconds = 600;

struct Context {
    InstallServices& system;
    Alerts& alerts;
    Application& application;
    PlatformNames names;
    // The running program's install.
    installation::Installation installation;
    // Where a move goes (/opt).
    std::string localApplicationsDirectory;
    // Makes the temporary folders' names unique (the process id).
    std::string uniqueSuffix;
    // Runs work off the main thread; empty: everything runs at once, here.
    std::function<void(std::function<void()>)> runInBackground;
};

enum class Outcome {
    stays,         // nothing to do: the program stays where it is
    refused,       // the destination holds something else: the refusal alert was shown
    cancelled,     // the user dismissed the password dialog
    failed,        // the failure alert was shown
    handedOver,    // a copy runs from the destination: it was started instead
    relaunched,    // moved; the new copy starts once this process has ended
    inBackground,  // the copy goes on in the background
};

// Whether the welcome offers the move for this install.
bool isOffered(const installation::Installation& installation, std::string_view localApplicationsDirectory);

// The replace step's command: the release folder `source` becomes
// `destination`, through the temporary folders `fresh` and `old` beside it.
std::vector<std::string> replaceCommand(const std::string& source, const std::string& destination,
                                        const std::string& fresh, const std::string& old);

// Moves the release into the applications folder and restarts from there
// (see above). In the program a move that succeeds does not return.
// `finished`, when given, hears the final outcome on the main thread.
Outcome installAndRestart(const Context& context, std::function<void(Outcome)> finished = {});

}  // namespace systemInstall

}  // namespace jorvane
