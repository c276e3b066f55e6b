#pragma once

// Moving the program's own folder (its bundle, Bundle.h) into the local
// applications folder and starting it again from there, as offered by the
// welcome of a first launch.
//
// The steps, in this order:
//   1. A bundle whose path begins with an applications folder (a plain string
//      prefix: "/optical" begins with "/opt"), has a component named
//      "Applications", or is a prefix shared with other programs (a package
//      install under /usr) stays where it is.
//   2. The bundle must be writable (it is moved to the Trash afterwards), or
//      lie unwritable on removable media (/media, /run/media: a read-only
//      image or stick, which is left as it is). Otherwise it stays.
//   3. The destination is <local applications folder, links resolved>/<name>.
//      The program comes to the front, for the password dialog and alerts.
//   4. Applications folder writable:
//        - a destination that exists and from which a copy runs (some running
//          executable's path begins with the destination's, character by
//          character: /opt/Jorvane2/bin/jorvane counts for /opt/Jorvane) is
//          started instead, and this process ends;
//        - an existing destination goes to the Trash (failure: the alert);
//        - the bundle is copied (failure: the alert).
//      Not writable, through polkit: "rm -rf <destination>", then
//      "cp -pR <bundle> <destination>", each as the administrator. A
//      dismissed password dialog (pkexec's 126) ends the move silently; a
//      refusal (127), a program that cannot start or is killed, or a copy
//      that does not exit with 0 shows the alert.
//   5. The old bundle goes to the Trash (unless it was on removable media;
//      the result does not matter) and the program in the destination is
//      started once this process has ended.
// The only alert is "Could not move to Applications folder", the folder
// named as on this system; nothing already done is undone.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "app/PlatformNames.h"

namespace jorvane {

class Alerts;
class Application;

// How a program run as the administrator ended.
struct PrivilegedRun {
    bool started = false;    // it could be started at all
    bool signalled = false;  // a signal ended it
    int exitCode = -1;       // its exit code when it exited
};

// The system services a move needs. Paths are plain strings, compared and
// passed on exactly as given.
class BundleServices {
public:
    virtual ~BundleServices() = default;
    virtual bool isWritable(const std::string& path) = 0;
    virtual bool exists(const std::string& path) = 0;
    // Copies a folder with everything in it, keeping modes and times; false
    // on any failure.
    virtual bool copy(const std::string& from, const std::string& to) = 0;
    // Moves the file or folder to the desktop's Trash.
    virtual bool moveToTrash(const std::string& path) = 0;
    // The path with every symbolic link resolved; nothing when it cannot be.
    virtual std::optional<std::string> resolveLinks(const std::string& path) = 0;
    // The executable files of the running processes (those readable).
    virtual std::vector<std::string> runningExecutables() = 0;
    // Runs the program (argv[0] an absolute path) as the administrator, after
    // the desktop's password dialog, and waits for it.
    virtual PrivilegedRun runAsAdministrator(const std::vector<std::string>& argv) = 0;
    // Starts the program once this process has ended, and ends this process
    // (status 0). Returns only where the process cannot be ended (tests).
    virtual void relaunch(const std::string& executable) = 0;
};

namespace MoveToApplications {

inline constexpr std::string_view kFailureMessage = "Could not move to Applications folder";
// The exit code pkexec gives when the user dismissed the password dialog,
// and when the user may not act as the administrator.
inline constexpr int kAuthorisationDismissed = 126;
inline constexpr int kNotAuthorised = 127;

struct Context {
    BundleServices& system;
    Alerts& alerts;
    Application& application;
    PlatformNames names;
    // The running program's bundle.
    std::string mainBundle;
    // Every applications folder, and the one a move goes to.
    std::vector<std::string> applicationsDirectories;
    std::string localApplicationsDirectory;
};

enum class Outcome {
    stays,         // nothing to do: the program stays where it is
    cancelled,     // the user dismissed the password dialog
    failed,        // the failure alert was shown
    handedOver,    // a copy runs from the destination: it was started instead
    relaunched,    // moved; the new copy starts once this process has ended
};

// Moves the bundle into the local applications folder under `name` and
// restarts from there (see above). In the program a move that succeeds
// does not return.
Outcome moveMainBundleToApplicationsWithNameAndRestart(std::string_view name, const Context& context);
// The same with the bundle's own folder name.
Outcome moveMainBundleToApplicationsAndRestart(const Context& context);

// Whether the path begins with one of the folders (string prefix) or has a
// component named exactly "Applications".
bool isInApplicationsFolder(std::string_view path, const std::vector<std::string>& applicationsDirectories);

}  // namespace MoveToApplications

}  // namespace jorvane
