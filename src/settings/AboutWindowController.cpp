#include "settings/AboutWindowController.h"

#include <system_error>

#include "app/Alerts.h"
#include "app/Application.h"
#include "app/Bundle.h"
#include "app/WelcomeAlerts.h"
#include "shortcutrecorder/Localization.h"
#include "util/Diagnostics.h"

namespace jorvane {

namespace {

namespace fs = std::filesystem;

constexpr const char* kLog = "About";

// Every program in the bundle's bin/ is one of ours (jorvane, and helpers
// named after it).
bool binHoldsOnlyOurs(const fs::path& bin) {
    std::error_code error;
    fs::directory_iterator entries(bin, error);
    if (error) return false;
    for (const fs::directory_entry& entry : entries) {
        if (!entry.path().filename().string().starts_with("jorvane")) return false;
    }
    return true;
}

}  // namespace

AboutWindowController::AboutWindowController(Dependencies dependencies)
    : alerts_(dependencies.alerts),
      application_(dependencies.application),
      urls_(dependencies.urls),
      executable_(std::move(dependencies.executable)),
      bundle_(std::move(dependencies.bundle)),
      version_(std::move(dependencies.version)),
      removeAll_(std::move(dependencies.removeAll)) {
    if (!removeAll_) removeAll_ = [](const fs::path& path, std::error_code& error) { fs::remove_all(path, error); };
}

void AboutWindowController::visitHomepage() {
    if (!urls_.openURL(std::string(kHomepage)))
        KMLogInDomain(KMLogLevelWarn, kLog, "cannot open %s", std::string(kHomepage).c_str());
}

void AboutWindowController::contact() {
    const std::string url = "mailto:" + std::string(WelcomeAlerts::kFeedbackAddress);
    if (!urls_.openURL(url)) KMLogInDomain(KMLogLevelWarn, kLog, "cannot open %s", url.c_str());
}

void AboutWindowController::quit() { application_.terminate(); }

std::string AboutWindowController::versionString() const { return stringWithFormat("Version: %@", {version_}); }

bool AboutWindowController::isRemovableBundle(const fs::path& bundle, const fs::path& executable) {
    if (bundle.empty() || executable.empty() || bundle::isSharedPrefix(bundle)) return false;
    if (bundle::normalPath(bundle::executableIn(bundle)) != bundle::normalPath(executable)) return false;
    return binHoldsOnlyOurs(bundle / "bin");
}

void AboutWindowController::uninstall() {
    AlertSpec alert;
    alert.messageText = "Do you really want to uninstall Jorvane?";
    alert.buttons = {"Uninstall & send Feedback", "Uninstall", "Cancel"};
    alert.style = AlertSpec::Style::warning;
    const int answer = alerts_.runModal(alert);
    if (answer != NSAlertFirstButtonReturn && answer != NSAlertSecondButtonReturn) return;
    if (answer == NSAlertFirstButtonReturn) contact();
    removeBundle();
    application_.terminate();
}

void AboutWindowController::removeBundle() {
    if (!isRemovableBundle(bundle_, executable_)) {
        KMLogInDomain(KMLogLevelWarn, kLog, "%s is not Jorvane's own folder: nothing removed", bundle_.c_str());
        AlertSpec refusal;
        refusal.style = AlertSpec::Style::informational;
        refusal.buttons = {"Quit"};
        if (bundle::isSharedPrefix(bundle_)) {
            refusal.messageText = "Jorvane was installed by the package manager and cannot remove itself.";
            refusal.informativeText = stringWithFormat(
                "Remove the package \"%@\" with the package manager (for example: sudo apt remove %@). "
                "Jorvane quits now.",
                {kPackageName, kPackageName});
        } else {
            refusal.messageText =
                stringWithFormat("Jorvane cannot remove %@, which holds other programs too.", {bundle_.string()});
            refusal.informativeText = "Remove Jorvane's files from it yourself. Jorvane quits now.";
        }
        alerts_.runModal(refusal);
        return;
    }
    std::error_code error;
    removeAll_(bundle_, error);
    if (error) {
        KMLogInDomain(KMLogLevelWarn, kLog, "cannot remove %s: %s", bundle_.c_str(), error.message().c_str());
    } else {
        KMLogInDomain(KMLogLevelInfo, kLog, "removed %s", bundle_.c_str());
    }
}

}  // namespace jorvane
