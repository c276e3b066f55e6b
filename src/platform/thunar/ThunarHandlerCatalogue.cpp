#include "platform/thunar/ThunarHandlerCatalogue.h"

#include <algorithm>

#include "filemanager/HandlerNames.h"
#include "platform/linux/ExternalPrograms.h"
#include "platform/linux/GioServerMount.h"
#include "platform/thunar/ThunarHandlerWorker.h"
#include "platform/thunar/ThunarProcess.h"

namespace jorvane {

using namespace thunar;

ThunarHandlerCatalogue::ThunarHandlerCatalogue() : ThunarHandlerCatalogue(Options{}) {}

ThunarHandlerCatalogue::ThunarHandlerCatalogue(Options options, std::shared_ptr<ServerLoginPrompt> loginPrompt)
    : options_(options),
      worker_(std::make_unique<Worker>(options_)),
      mounter_(
          std::make_unique<GioServerMount>(std::move(loginPrompt), GioServerMount::Options{options.mountTimeout})) {}

ThunarHandlerCatalogue::~ThunarHandlerCatalogue() {
    // Mounts in progress give up before the worker goes.
    mounter_->cancel();
}

std::optional<std::string> ThunarHandlerCatalogue::call(std::string_view name, const std::vector<std::string>& params) {
    return callWithFailure(name, params).answer;
}

HandlerReply ThunarHandlerCatalogue::callWithFailure(std::string_view name, const std::vector<std::string>& params) {
    const std::vector<std::string>& names = handlerNames();
    if (std::find(names.begin(), names.end(), name) == names.end()) {
        log::inDomain(log::Warn, kLogDomain, "%.*s: no such handler", static_cast<int>(name.size()), name.data());
        return {};
    }
    if (name == handlers::mount) return mountServer(params);
    return {worker_->call(name, params, timeoutFor(name)), {}};
}

void ThunarHandlerCatalogue::cancel(std::string_view name) {
    if (name == handlers::mount) mounter_->cancel();
}

HandlerReply ThunarHandlerCatalogue::mountServer(const std::vector<std::string>& params) {
    // Runs on the caller's thread: a mount may wait for the user's answer,
    // and the worker serves the other handlers meanwhile.
    if (params.empty() || params.front().empty() || !isValidUtf8(params.front())) {
        log::inDomain(log::Warn, kLogDomain, "mount: not a server address");
        return {std::nullopt, "Not a server address"};
    }
    // The trash, recent files and the network's servers are always there:
    // the window is asked to show the address itself.
    const std::string& address = params.front();
    if (isBuiltInLocation(address)) {
        if (worker_->call(kEnterLocationCall, {address}, options_.commandTimeout)) return {std::string(), {}};
        return {std::nullopt, "Thunar did not show " + address};
    }
    const GioServerMount::Outcome outcome = mounter_->mount(address);
    if (!outcome.mounted) return {std::nullopt, outcome.failure};
    // The same window shows the server's folder, through gvfs's local view
    // when there is one (completion then works in it like anywhere else).
    if (outcome.localPath) {
        const std::string& path = *outcome.localPath;
        if (worker_->call(isDirectory(path) ? handlers::showFolder : handlers::reveal, {path}, options_.commandTimeout))
            return {std::string(), {}};
    } else if (std::optional<std::string> shown = GioServerMount::withoutPassword(address)) {
        if (worker_->call(kEnterLocationCall, {*shown}, options_.commandTimeout)) return {std::string(), {}};
    }
    log::inDomain(log::Warn, kLogDomain, "mount: mounted, but the window did not show it");
    return {std::nullopt, "Connected, but Thunar did not show the folder"};
}

std::optional<std::vector<std::string>> ThunarHandlerCatalogue::selectedItems() {
    std::optional<std::string> answer = worker_->call(kSelectedItemsCall, {}, options_.queryTimeout);
    if (!answer) return std::nullopt;
    std::vector<std::string> paths;
    std::size_t start = 0;
    for (std::size_t end; (end = answer->find('\0', start)) != std::string::npos; start = end + 1)
        paths.push_back(answer->substr(start, end - start));
    return paths;
}

void ThunarHandlerCatalogue::setFrontWindow(std::uint32_t xid) { worker_->front.store(xid); }

std::uint32_t ThunarHandlerCatalogue::frontWindow() const { return worker_->front.load(); }

std::chrono::milliseconds ThunarHandlerCatalogue::timeoutFor(std::string_view name) const {
    if (name == handlers::folderPath || name == handlers::selectedItem || name == handlers::isFolderWindow)
        return options_.queryTimeout;
    // Connecting has its own bound (questions to the user not counted), then
    // the window is shown the folder.
    if (name == handlers::mount) return options_.mountTimeout + options_.commandTimeout;
    return options_.commandTimeout;
}

const std::vector<std::string>& ThunarHandlerCatalogue::handlerNames() {
    static const std::vector<std::string> names(handlers::all.begin(), handlers::all.end());
    return names;
}

bool ThunarHandlerCatalogue::enableFullPathInTitle(std::chrono::milliseconds timeout) {
    ProcessResult result = runProcess({std::string(external::kXfconfQuery), "-c", "thunar", "-p",
                                       "/misc-full-path-in-window-title", "-n", "-t", "bool", "-s", "true"},
                                      timeout);
    return result.started && !result.timedOut && result.exitCode == 0;
}

}  // namespace jorvane
