#pragma once

// How the background update check tells the user about a newer version: an
// alert naming both versions, whose "Download" button opens the release's
// address with the desktop's handler. Nothing is installed by the program
// itself.

#include <functional>
#include <string>
#include <string_view>

#include "app/Alerts.h"
#include "updater/AppcastUpdater.h"

namespace jorvane::UpdateAlert {

AlertSpec alertFor(const UpdateOffer& offer, std::string_view currentVersion);

// Shows the alert; "Download" hands the offer's address to `open`. True when
// the user chose to download.
bool offer(Alerts& alerts, const UpdateOffer& update, std::string_view currentVersion,
           const std::function<void(const std::string& url)>& open);

}  // namespace jorvane::UpdateAlert
