#include "updater/UpdateAlert.h"

namespace jorvane::UpdateAlert {

AlertSpec alertFor(const UpdateOffer& offer, std::string_view currentVersion) {
    // The version users know is the short one; a feed may give only the other.
    const std::string& shown = offer.shortVersion.empty() ? offer.version : offer.shortVersion;
    AlertSpec alert;
    alert.messageText = "A new version of Jorvane is available!";
    alert.informativeText = "Jorvane " + shown + " is now available\u2014you have " + std::string(currentVersion) +
                            ". Would you like to download it now?";
    alert.buttons = {"Download", "Remind Me Later"};
    alert.style = AlertSpec::Style::informational;
    return alert;
}

bool offer(Alerts& alerts, const UpdateOffer& update, std::string_view currentVersion,
           const std::function<void(const std::string& url)>& open) {
    if (alerts.runModal(alertFor(update, currentVersion)) != kAlertFirstButton) return false;
    // Only a web address is opened: a feed read over plain HTTP could be
    // altered on the way to name a local file or another program's scheme.
    const bool web = update.url.starts_with("https://") || update.url.starts_with("http://");
    if (open && web) open(update.url);
    return true;
}

}  // namespace jorvane::UpdateAlert
