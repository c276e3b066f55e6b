#pragma once

// The welcome of a first launch and the alert that answers a second start
// while the program runs.
//
// Welcome, in this order:
//   1. The alert "Welcome to Jorvane!" with "Start using Jorvane" and "Quit",
//      and the check box "Move Jorvane to my Applications folder" (on) when
//      the program is an unpacked release outside the applications folder
//      (systemInstall::isOffered); never for a build tree, a loose
//      program, a prefix or a package install.
//   2. "Quit", or an alert closed without an answer (the session ending),
//      ends here, before anything is written: the welcome comes again at the
//      next launch.
//   3. "notfirstlaunch" becomes true and is saved at once, so that a copy
//      started again after a move does not greet again.
//   4. Box on: a login item for the program as it will lie in the local
//      applications folder (unless one exists), then the move, which starts
//      the moved copy and ends this process when it succeeds (it may go on
//      in the background).
//   5. Unless a move is under way, a login item for the program where it is now.
// The texts name the platform's things (PlatformNames) and the hot key the
// user has recorded.

#include <functional>
#include <string>
#include <string_view>

#include "app/Alerts.h"
#include "app/PlatformNames.h"

namespace jorvane {

namespace settings {
class UserDefaults;
}

namespace WelcomeAlerts {

inline constexpr std::string_view kFeedbackAddress = "feedback@jorvane.org";
inline constexpr std::string_view kMoveCheckBox = "Move Jorvane to my Applications folder";

// The alerts as shown, the names filled in.
AlertSpec welcomeAlert(const PlatformNames& names, bool offerMove);
AlertSpec reopenAlert(const PlatformNames& names);

struct Welcome {
    Alerts& alerts;
    settings::UserDefaults& defaults;
    PlatformNames names;
    // The running program, and whether a move is offered for it.
    std::string executable;
    bool offerMove = false;
    // The local applications folder with its links resolved; empty when it
    // cannot be resolved.
    std::string localApplicationsDirectory;
    // The session's login items (LoginItems.h).
    std::function<bool(std::string_view path)> hasLoginItemWithPath;
    std::function<void(std::string_view path)> installLoginItemWithPath;
    // Moves the release into the applications folder and restarts from
    // there; true while the move is under way (it ends this process when it
    // succeeds), false when the program stays where it is.
    std::function<bool()> installSystemWide;
};

// The welcome sequence; false when the user chose "Quit" or gave no answer.
bool runWelcome(const Welcome& welcome);

// The "already running" alert; "Open Preferences ..." calls
// `openPreferences`. Always true (the reopen is handled).
bool applicationShouldHandleReopen(Alerts& alerts, const PlatformNames& names,
                                   const std::function<void()>& openPreferences);

}  // namespace WelcomeAlerts

}  // namespace jorvane
