#include "firstlaunch/WelcomeAlerts.h"

#include <filesystem>

#include "firstlaunch/Installation.h"
#include "firstlaunch/SystemInstall.h"
#include "settings/UserDefaults.h"
#include "util/Diagnostics.h"

namespace jorvane::WelcomeAlerts {

namespace {

constexpr const char* kLog = "Welcome";

constexpr std::string_view kWelcomeMessage = "Welcome to Jorvane!";
// "'Start'" names the first button, although its title is longer.
constexpr std::string_view kWelcomeInformative =
    "Press 'Start' to start Jorvane. The Address bar is activated by clicking the path icon on top of Finder "
    "windows (or by pressing 'command + G' on your keyboard). \n\nNote that Jorvane is in an early beta stage. For "
    "feedback, bugs or suggestions contact me at \n";
constexpr std::string_view kStart = "Start using Jorvane";
constexpr std::string_view kQuit = "Quit";

constexpr std::string_view kReopenMessage = "Jorvane is already running!";
constexpr std::string_view kReopenInformative =
    "Jorvane runs in the background till you activate it by clicking the path icon on top of Finder windows (or by "
    "pressing '\u2318 + G' on your keyboard). \n\nNote that Jorvane is in beta stage. For feedback, bugs or "
    "suggestions contact me at \n\n";
constexpr std::string_view kOK = "OK";
constexpr std::string_view kOpenPreferences = "Open Preferences ...";

}  // namespace

AlertSpec welcomeAlert(const PlatformNames& names, bool offerMove) {
    AlertSpec alert;
    alert.messageText = std::string(kWelcomeMessage);
    alert.informativeText = forPlatform(kWelcomeInformative, names) + std::string(kFeedbackAddress);
    alert.buttons = {std::string(kStart), std::string(kQuit)};
    alert.style = AlertSpec::Style::informational;
    if (offerMove) {
        alert.checkBox = forPlatform(kMoveCheckBox, names);
        alert.checkBoxOn = true;
    }
    return alert;
}

AlertSpec reopenAlert(const PlatformNames& names) {
    AlertSpec alert;
    alert.messageText = std::string(kReopenMessage);
    alert.informativeText = forPlatform(kReopenInformative, names) + std::string(kFeedbackAddress) + "\n\n";
    alert.buttons = {std::string(kOK), std::string(kOpenPreferences)};
    alert.style = AlertSpec::Style::informational;
    return alert;
}

bool runWelcome(const Welcome& welcome) {
    const AlertResult answer = welcome.alerts.runModalWithResult(welcomeAlert(welcome.names, welcome.offerMove));
    if (answer.button != kAlertFirstButton) return false;

    welcome.defaults.setBool(true, settings::keys::notFirstLaunch);
    if (!welcome.defaults.synchronize()) log::inDomain(log::Warn, kLog, "cannot save that the welcome was seen");

    if (welcome.offerMove && answer.checkBoxOn) {
        if (welcome.localApplicationsDirectory.empty()) {
            log::inDomain(log::Warn, kLog, "no applications folder: no login item for the moved copy");
        } else {
            const std::string future = (std::filesystem::path(welcome.localApplicationsDirectory) /
                                        std::string(systemInstall::kDestinationName) / installation::kProgramPath)
                                           .string();
            if (welcome.hasLoginItemWithPath && !welcome.hasLoginItemWithPath(future) &&
                welcome.installLoginItemWithPath)
                welcome.installLoginItemWithPath(future);
        }
        if (welcome.installSystemWide && welcome.installSystemWide()) return true;
    }

    if (welcome.installLoginItemWithPath && !welcome.executable.empty())
        welcome.installLoginItemWithPath(welcome.executable);
    return true;
}

bool applicationShouldHandleReopen(Alerts& alerts, const PlatformNames& names,
                                   const std::function<void()>& openPreferences) {
    if (alerts.runModal(reopenAlert(names)) == kAlertSecondButton && openPreferences) openPreferences();
    return true;
}

}  // namespace jorvane::WelcomeAlerts
