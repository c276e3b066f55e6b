#include "app/MoveToApplications.h"

#include <algorithm>
#include <filesystem>

#include "app/Alerts.h"
#include "app/Application.h"
#include "app/Bundle.h"
#include "util/Diagnostics.h"

namespace jorvane::MoveToApplications {

namespace {

constexpr const char* kLog = "MoveToApplications";

// Removable media the desktop mounts: an unwritable bundle there is a copy on
// a read-only image or stick, which is left alone after the copy.
constexpr std::string_view kRemovableMediaFolders[] = {"/media/", "/run/media/"};

bool isFromRemovableMedia(std::string_view path) {
    return std::any_of(std::begin(kRemovableMediaFolders), std::end(kRemovableMediaFolders),
                       [&](std::string_view folder) { return path.starts_with(folder); });
}

std::string_view trimmed(std::string_view text) {
    constexpr std::string_view kSpace = " \t\n\r\f\v";
    const std::size_t first = text.find_first_not_of(kSpace);
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(kSpace) - first + 1);
}

// A name that makes one new entry in the applications folder.
bool isFolderName(std::string_view name) {
    return !trimmed(name).empty() && name != "." && name != ".." && name.find('/') == std::string_view::npos &&
           name.find('\0') == std::string_view::npos;
}

std::string parentOf(const std::string& path) { return std::filesystem::path(path).parent_path().string(); }

Outcome fail(const Context& context, std::string_view why) {
    KMLogInDomain(KMLogLevelWarn, kLog, "move failed: %.*s", static_cast<int>(why.size()), why.data());
    AlertSpec alert;
    alert.messageText = forPlatform(kFailureMessage, context.names);
    context.alerts.runModal(alert);
    return Outcome::failed;
}

// Replaces the destination as the administrator: nothing when that went
// well, otherwise how the move ends.
std::optional<Outcome> replaceAsAdministrator(const Context& context, const std::string& source,
                                              const std::string& destination) {
    const PrivilegedRun removed = context.system.runAsAdministrator({"/bin/rm", "-rf", destination});
    if (removed.started && !removed.signalled && removed.exitCode == kAuthorisationDismissed) return Outcome::cancelled;
    if (!removed.started || removed.signalled || removed.exitCode == kNotAuthorised)
        return fail(context, "cannot remove the old copy as the administrator");

    const PrivilegedRun copied = context.system.runAsAdministrator({"/bin/cp", "-pR", source, destination});
    if (copied.started && !copied.signalled && copied.exitCode == kAuthorisationDismissed) return Outcome::cancelled;
    if (!copied.started || copied.signalled || copied.exitCode != 0)
        return fail(context, "cannot copy as the administrator");
    return std::nullopt;
}

}  // namespace

bool isInApplicationsFolder(std::string_view path, const std::vector<std::string>& applicationsDirectories) {
    for (const std::string& folder : applicationsDirectories)
        if (!folder.empty() && path.starts_with(folder)) return true;
    for (const auto& component : std::filesystem::path(path))
        if (component == "Applications") return true;
    return false;
}

Outcome moveMainBundleToApplicationsWithNameAndRestart(std::string_view name, const Context& context) {
    const std::string& source = context.mainBundle;
    if (isInApplicationsFolder(source, context.applicationsDirectories)) return Outcome::stays;
    // A package install shares its prefix with every other program.
    if (bundle::isSharedPrefix(source)) return Outcome::stays;

    const bool writable = context.system.isWritable(source);
    const bool fromRemovableMedia = !writable && isFromRemovableMedia(source);
    // The old copy could not be removed afterwards.
    if (!writable && !fromRemovableMedia) return Outcome::stays;

    const std::optional<std::string> applications =
        context.system.resolveLinks(context.localApplicationsDirectory);
    if (!applications) return fail(context, "the applications folder cannot be resolved");
    const std::string destination = (std::filesystem::path(*applications) / std::string(name)).string();
    const bool needsAuthorisation = !context.system.isWritable(*applications);

    context.application.activateIgnoringOtherApps();

    if (needsAuthorisation) {
        if (!isFolderName(name) || trimmed(source).empty()) return fail(context, "no destination name");
        if (const std::optional<Outcome> ended = replaceAsAdministrator(context, source, destination)) return *ended;
    } else {
        if (context.system.exists(destination)) {
            // Characters, not path components: a copy running from
            // "<destination>2" counts too.
            const std::vector<std::string> running = context.system.runningExecutables();
            const bool copyRuns = std::any_of(running.begin(), running.end(), [&](const std::string& executable) {
                return executable.starts_with(destination);
            });
            if (copyRuns) {
                KMLogInDomain(KMLogLevelInfo, kLog, "a copy runs from %s: starting it instead", destination.c_str());
                context.system.relaunch(bundle::executableIn(destination).string());
                return Outcome::handedOver;
            }
            if (!context.system.moveToTrash(destination)) return fail(context, "cannot move the old copy to the Trash");
        }
        if (!context.system.copy(source, destination)) return fail(context, "cannot copy the program");
    }

    if (!fromRemovableMedia && !context.system.moveToTrash(source))
        KMLogInDomain(KMLogLevelWarn, kLog, "the old copy in %s stays: it cannot go to the Trash", parentOf(source).c_str());
    KMLogInDomain(KMLogLevelInfo, kLog, "moved to %s: starting again from there", destination.c_str());
    context.system.relaunch(bundle::executableIn(destination).string());
    return Outcome::relaunched;
}

Outcome moveMainBundleToApplicationsAndRestart(const Context& context) {
    return moveMainBundleToApplicationsWithNameAndRestart(
        std::filesystem::path(context.mainBundle).filename().string(), context);
}

}  // namespace jorvane::MoveToApplications
