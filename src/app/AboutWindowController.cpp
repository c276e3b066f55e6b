#include "app/AboutWindowController.h"

#include "app/Alerts.h"
#include "app/Application.h"
#include "firstlaunch/WelcomeAlerts.h"
#include "shortcut/Localization.h"
#include "util/Diagnostics.h"

namespace jorvane {

namespace {

namespace fs = std::filesystem;

constexpr const char* kLog = "About";
// A prefix's files are listed in the question up to this many.
constexpr std::size_t kFilesNamed = 12;

}  // namespace

AboutWindowController::AboutWindowController(Dependencies dependencies)
    : alerts_(dependencies.alerts),
      application_(dependencies.application),
      urls_(dependencies.urls),
      executable_(std::move(dependencies.executable)),
      installation_(std::move(dependencies.installation)),
      version_(std::move(dependencies.version)) {}

void AboutWindowController::visitHomepage() {
    if (!urls_.openURL(std::string(kHomepage)))
        log::inDomain(log::Warn, kLog, "cannot open %s", std::string(kHomepage).c_str());
}

void AboutWindowController::contact() {
    const std::string url = "mailto:" + std::string(WelcomeAlerts::kFeedbackAddress);
    if (!urls_.openURL(url)) log::inDomain(log::Warn, kLog, "cannot open %s", url.c_str());
}

void AboutWindowController::quit() { application_.terminate(); }

std::string AboutWindowController::versionString() const { return stringWithFormat("Version: %@", {version_}); }

std::optional<AlertSpec> AboutWindowController::uninstallQuestion() const {
    using installation::Kind;
    if (installation_.kind != Kind::release && installation_.kind != Kind::prefix) return std::nullopt;
    AlertSpec alert;
    alert.messageText = "Do you really want to uninstall Jorvane?";
    alert.buttons = {"Uninstall & send Feedback", "Uninstall", "Cancel"};
    alert.style = AlertSpec::Style::warning;
    if (installation_.kind == Kind::release) {
        alert.informativeText = stringWithFormat("Jorvane's files in %@ will be deleted. Files you added there stay.",
                                                 {installation_.root.string()});
    } else {
        std::string files;
        const std::vector<fs::path> listed = installation::installedFiles(installation_);
        for (std::size_t i = 0; i < listed.size() && i < kFilesNamed; ++i) files += "\n" + listed[i].string();
        if (listed.size() > kFilesNamed)
            files += stringWithFormat("\n… and %@ more", {std::to_string(listed.size() - kFilesNamed)});
        alert.informativeText = stringWithFormat("These %@ files Jorvane installed in %@ will be deleted:",
                                                 {std::to_string(listed.size()), installation_.root.string()}) +
                                files;
    }
    return alert;
}

void AboutWindowController::uninstall() {
    const std::optional<AlertSpec> question = uninstallQuestion();
    if (!question) {
        refuseUninstall();
        application_.terminate();
        return;
    }
    const int answer = alerts_.runModal(*question);
    if (answer != kAlertFirstButton && answer != kAlertSecondButton) return;
    if (answer == kAlertFirstButton) contact();
    const installation::Removal removal = installation::removeInstalledFiles(installation_);
    for (const fs::path& file : removal.failed) log::inDomain(log::Warn, kLog, "cannot delete %s", file.c_str());
    log::inDomain(log::Info, kLog, "uninstalled from %s: %zu files deleted, %zu left", installation_.root.c_str(),
                  removal.removed.size(), removal.failed.size());
    application_.terminate();
}

void AboutWindowController::refuseUninstall() {
    AlertSpec refusal;
    refusal.style = AlertSpec::Style::informational;
    refusal.buttons = {"Quit"};
    if (installation_.kind == installation::Kind::package) {
        refusal.messageText = "Jorvane was installed by the package manager and cannot remove itself.";
        refusal.informativeText = stringWithFormat(
            "Remove the package \"%@\" with the package manager (for example: sudo apt remove %@). "
            "Jorvane quits now.",
            {kPackageName, kPackageName});
    } else {
        const std::string folder = executable_.parent_path().string();
        log::inDomain(log::Warn, kLog, "%s is not an install of Jorvane's own: nothing removed", folder.c_str());
        refusal.messageText = stringWithFormat("Jorvane cannot uninstall itself from %@.", {folder});
        refusal.informativeText =
            "It was not installed there by its own packaging (a build folder or a copied program), so it cannot "
            "tell its files from others'. Remove it yourself. Jorvane quits now.";
    }
    alerts_.runModal(refusal);
}

}  // namespace jorvane
