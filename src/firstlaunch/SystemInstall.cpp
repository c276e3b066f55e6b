#include "firstlaunch/SystemInstall.h"

#include <algorithm>
#include <filesystem>
#include <memory>

#include "app/Alerts.h"
#include "app/Application.h"
#include "util/Diagnostics.h"
#include "util/Dispatch.h"

namespace jorvane::systemInstall {

namespace {

namespace fs = std::filesystem;

constexpr const char* kLog = "Install";

// Removable media the desktop mounts: an unwritable release there is a copy
// on a read-only image or stick, which is left alone after the copy.
constexpr std::string_view kRemovableMediaFolders[] = {"/media/", "/run/media/"};

// The replace step. Its arguments: the release, the destination, the new
// copy's temporary folder and the old copy's. Exit codes 3–5 say which step
// failed; each failure puts back what it changed. 126 and 127 stay pkexec's.
constexpr std::string_view kReplaceScript = R"(src=$1 dest=$2 fresh=$3 old=$4
/bin/rm -rf -- "$fresh" "$old" || exit 3
/bin/cp -pR -- "$src" "$fresh" || { /bin/rm -rf -- "$fresh"; exit 3; }
if [ -e "$dest" ] || [ -L "$dest" ]; then
  /bin/mv -T -- "$dest" "$old" || { /bin/rm -rf -- "$fresh"; exit 4; }
fi
if ! /bin/mv -T -- "$fresh" "$dest"; then
  if [ -e "$old" ]; then /bin/mv -T -- "$old" "$dest"; fi
  /bin/rm -rf -- "$fresh"
  exit 5
fi
/bin/rm -rf -- "$old"
exit 0
)";

bool isFromRemovableMedia(std::string_view path) {
    return std::any_of(std::begin(kRemovableMediaFolders), std::end(kRemovableMediaFolders),
                       [&](std::string_view folder) { return path.starts_with(folder); });
}

// `folder` is `path` or lies above it, component by component.
bool isSameOrBelow(const fs::path& path, const fs::path& folder) {
    auto p = path.begin();
    for (const auto& part : folder) {
        if (part.empty()) continue;  // a trailing slash
        if (p == path.end() || *p != part) return false;
        ++p;
    }
    return true;
}

void showFailure(const Context& context, std::string_view why, std::string informative = {}) {
    log::inDomain(log::Warn, kLog, "move failed: %.*s", static_cast<int>(why.size()), why.data());
    AlertSpec alert;
    alert.messageText = forPlatform(kFailureMessage, context.names);
    alert.informativeText = std::move(informative);
    context.alerts.runModal(alert);
}

struct Plan {
    std::string source;
    std::string destination;
    bool asAdministrator = false;
    bool fromRemovableMedia = false;
};

// The replace step and the check of its result; the outcome, or nothing
// when the new copy may start.
std::optional<Outcome> replace(const Context& context, const Plan& plan, std::string* failure) {
    const fs::path parent = fs::path(plan.destination).parent_path();
    const std::string fresh = (parent / (".jorvane-new-" + context.uniqueSuffix)).string();
    const std::string old = (parent / (".jorvane-old-" + context.uniqueSuffix)).string();
    const CommandRun run =
        context.system.runCommand(replaceCommand(plan.source, plan.destination, fresh, old), plan.asAdministrator);
    if (plan.asAdministrator && run.started && !run.signalled && run.exitCode == kAuthorisationDismissed)
        return Outcome::cancelled;
    if (!run.started || run.signalled || run.exitCode != 0) {
        *failure = !run.started                                             ? "cannot start the copy"
                   : run.signalled                                          ? "the copy was stopped"
                   : run.exitCode == kNotAuthorised && plan.asAdministrator ? "not authorised"
                                                                            : "the copy failed";
        return Outcome::failed;
    }
    if (!installation::isReleaseFolder(plan.destination)) {
        *failure = "the new copy is not complete";
        return Outcome::failed;
    }
    const std::string program = (fs::path(plan.destination) / installation::kProgramPath).string();
    const CommandRun check = context.system.runCommand({program, "--version"}, false);
    if (!check.started || check.signalled || check.exitCode != 0) {
        *failure = "the new copy does not start";
        return Outcome::failed;
    }
    return std::nullopt;
}

Outcome finish(const Context& context, const Plan& plan, std::optional<Outcome> ended, const std::string& failure) {
    if (ended == Outcome::failed) showFailure(context, failure);
    if (ended) return *ended;
    if (!plan.fromRemovableMedia && !context.system.moveToTrash(plan.source))
        log::inDomain(log::Warn, kLog, "the old copy %s stays: it cannot go to the Trash", plan.source.c_str());
    log::inDomain(log::Info, kLog, "moved to %s: starting again from there", plan.destination.c_str());
    context.system.relaunch((fs::path(plan.destination) / installation::kProgramPath).string());
    return Outcome::relaunched;
}

}  // namespace

bool isOffered(const installation::Installation& installation, std::string_view localApplicationsDirectory) {
    if (installation.kind != installation::Kind::release || installation.root.empty()) return false;
    return localApplicationsDirectory.empty() || !isSameOrBelow(installation.root, localApplicationsDirectory);
}

std::vector<std::string> replaceCommand(const std::string& source, const std::string& destination,
                                        const std::string& fresh, const std::string& old) {
    return {"/usr/bin/timeout",
            "--kill-after=10",
            std::to_string(kReplaceTimeLimitSeconds),
            "/bin/sh",
            "-c",
            std::string(kReplaceScript),
            "jorvane-move",
            source,
            destination,
            fresh,
            old};
}

Outcome installAndRestart(const Context& context, std::function<void(Outcome)> finished) {
    const auto done = [&finished](Outcome outcome) {
        if (finished) finished(outcome);
        return outcome;
    };
    const installation::Installation& release = context.installation;
    if (!isOffered(release, context.localApplicationsDirectory)) return done(Outcome::stays);

    Plan plan;
    plan.source = release.root.string();
    const bool writable = context.system.isWritable(plan.source);
    plan.fromRemovableMedia = !writable && isFromRemovableMedia(plan.source);
    // The old copy could not go to the Trash afterwards.
    if (!writable && !plan.fromRemovableMedia) return done(Outcome::stays);

    const std::optional<std::string> applications = context.system.resolveLinks(context.localApplicationsDirectory);
    if (!applications) {
        showFailure(context, "the applications folder cannot be resolved");
        return done(Outcome::failed);
    }
    plan.destination = (fs::path(*applications) / std::string(kDestinationName)).string();
    plan.asAdministrator = !context.system.isWritable(*applications);
    context.application.activateIgnoringOtherApps();

    std::error_code error;
    if (fs::exists(fs::symlink_status(plan.destination, error))) {
        if (!installation::isReleaseFolder(plan.destination)) {
            showFailure(context, "the destination holds something else",
                        plan.destination + " is not a copy of Jorvane, so it was left as it is.");
            return done(Outcome::refused);
        }
        const std::vector<std::string> running = context.system.runningExecutables();
        const std::string program = (fs::path(plan.destination) / installation::kProgramPath).string();
        if (std::find(running.begin(), running.end(), program) != running.end()) {
            log::inDomain(log::Info, kLog, "a copy runs from %s: starting it instead", plan.destination.c_str());
            context.system.relaunch(program);
            return done(Outcome::handedOver);
        }
    }

    if (!context.runInBackground) {
        std::string failure;
        const std::optional<Outcome> ended = replace(context, plan, &failure);
        return done(finish(context, plan, ended, failure));
    }
    // The context's references outlive the move: they belong to the program's run.
    context.runInBackground([context, plan, finished = std::move(finished)] {
        auto failure = std::make_shared<std::string>();
        const std::optional<Outcome> ended = replace(context, plan, failure.get());
        dispatch::mainQueue().async([context, plan, finished, ended, failure] {
            const Outcome outcome = finish(context, plan, ended, *failure);
            if (finished) finished(outcome);
        });
    });
    return Outcome::inBackground;
}

}  // namespace jorvane::systemInstall
