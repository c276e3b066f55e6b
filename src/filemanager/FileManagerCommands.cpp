#include "filemanager/FileManagerCommands.h"

#include <atomic>
#include <cstdint>
#include <mutex>

#include "filemanager/PathsInAnyCase.h"
#include "util/FileSystemProbe.h"

namespace jorvane {

namespace {
// A mount that failed without a reason of its own.
constexpr const char* kMountFailedText = "The server could not be connected";
}  // namespace

struct FileManagerCommands::Core {
    mutable std::mutex mutex;
    std::shared_ptr<HandlerCatalogue> catalogue;
    Options options;  // set before any operation runs, then only read
    // Counts navigations asked for: one whose number is no longer the last
    // has been replaced.
    std::atomic<std::uint64_t> navigations{0};

    std::shared_ptr<HandlerCatalogue> current() const {
        std::lock_guard lock(mutex);
        return catalogue;
    }

    std::optional<std::string> call(std::string_view name, const std::vector<std::string>& params) const {
        return callWithFailure(name, params).answer;
    }

    HandlerReply callWithFailure(std::string_view name, const std::vector<std::string>& params) const {
        // A copy, so that a catalogue replaced meanwhile stays alive until
        // this call is over. The call itself runs unlocked: calls from
        // several threads proceed side by side, as the catalogue allows.
        const std::shared_ptr<HandlerCatalogue> handlers = current();
        if (!handlers) return {};
        // Handler names are ASCII.
        std::string lowered(name);
        for (char& c : lowered)
            if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
        try {
            return handlers->callWithFailure(lowered, params);
        } catch (...) {
            // A catalogue must not throw; if one does, the call failed like
            // any other and its caller goes on without an answer.
            return {};
        }
    }
};

FileManagerCommands::FileManagerCommands(std::shared_ptr<HandlerCatalogue> catalogue)
    : FileManagerCommands(std::move(catalogue), Options{}) {}

FileManagerCommands::FileManagerCommands(std::shared_ptr<HandlerCatalogue> catalogue, Options options)
    : core_(std::make_shared<Core>()) {
    core_->catalogue = std::move(catalogue);
    core_->options = std::move(options);
}

FileManagerCommands::~FileManagerCommands() = default;

FileManagerCommands& FileManagerCommands::shared() {
    // Never destroyed: its queues may still be working while the process exits.
    static FileManagerCommands* shared = new FileManagerCommands();
    return *shared;
}

void FileManagerCommands::setSharedCatalogue(std::shared_ptr<HandlerCatalogue> catalogue) {
    shared().setCatalogue(std::move(catalogue));
}

void FileManagerCommands::setCatalogue(std::shared_ptr<HandlerCatalogue> catalogue) {
    std::lock_guard lock(core_->mutex);
    core_->catalogue = std::move(catalogue);
}

std::shared_ptr<HandlerCatalogue> FileManagerCommands::catalogue() const { return core_->current(); }

std::optional<std::string> FileManagerCommands::call(std::string_view name) const { return core_->call(name, {}); }

std::optional<std::string> FileManagerCommands::call(std::string_view name,
                                                     const std::vector<std::string>& params) const {
    return core_->call(name, params);
}

namespace {

// A navigation that got no answer is tried once more: the file manager may
// have been busy with something it has now given up.
Navigated navigate(const std::shared_ptr<FileManagerCommands::Core>& core, std::string_view handler,
                   const std::string& path) {
    if (core->call(handler, {path}) || core->call(handler, {path})) return Navigated::answered;
    return Navigated::fileManagerSilent;
}

void report(const FileManagerCommands::FinishedBlock& finished, bool answered) {
    if (finished) dispatch::performOnMainThread([finished, answered] { finished(answered); });
}

// What the file system says the path is, asked off the navigation queue: a
// folder that does not answer keeps only its own question waiting. Nothing
// when it has not answered within the limit, or when navigation `number` has
// been replaced by a newer one meanwhile.
std::optional<bool> isDirectory(const FileManagerCommands::Core& core, const std::string& path, std::uint64_t number) {
    const FileManagerCommands::Options& options = core.options;
    const auto replaced = [&core, number] { return core.navigations.load() != number; };
    if (!options.isDirectory) return FileSystemProbe::isDirectory(path, options.folderAnswerLimit, replaced);
    return FileSystemProbe::ask<bool>(
        path, [check = options.isDirectory, path] { return check(path); }, options.folderAnswerLimit, replaced);
}

// The text as typed, when it differs from the path read from it and names
// something on disk (asked within the same limit as the folder question).
std::optional<std::string> existingAsTyped(const FileManagerCommands::Core& core, const std::string& asTyped,
                                           const std::string& asked) {
    if (asTyped.empty() || asTyped == asked) return std::nullopt;
    if (!FileSystemProbe::exists(asTyped, core.options.folderAnswerLimit).value_or(false)) return std::nullopt;
    return asTyped;
}

}  // namespace

void FileManagerCommands::showFolderAsync(std::string path, NavigatedBlock finishedBlock) {
    goToAsync(std::move(path), [finished = std::move(finishedBlock)](const Arrival& arrival) {
        if (finished) finished(arrival.outcome);
    });
}

void FileManagerCommands::goToAsync(std::string asked, ArrivedBlock finishedBlock, std::string asTyped) {
    const std::uint64_t number = ++core_->navigations;
    showFolderQueue_.cancelAllOperations();
    showFolderQueue_.addOperation([core = core_, number, asked = std::move(asked), asTyped = std::move(asTyped),
                                   finished = std::move(finishedBlock)] {
        const std::string path = existingAsTyped(*core, asTyped, asked).value_or(asked);
        Arrival arrival{Navigated::answered, path, {}};
        // A file opens rather than shows in the file manager's location,
        // so only a directory is navigated to; everything else, missing
        // paths included, is revealed in its folder.
        std::optional<bool> directory = isDirectory(*core, path, number);
        if (directory == false && !core->options.isDirectory) {
            // Not there as typed: perhaps in another case.
            const auto replaced = [&core, number] { return core->navigations.load() != number; };
            const std::optional<std::vector<std::string>> found = FileSystemProbe::ask<std::vector<std::string>>(
                path, [path] { return pathsInAnyCase(path, kMaxCaseChoices); }, core->options.folderAnswerLimit,
                replaced);
            if (found && found->size() == 1) {
                arrival.path = found->front();
                directory = isDirectory(*core, arrival.path, number);
            } else if (found && found->size() > 1) {
                arrival.choices = *found;
            }
        }
        // A newer navigation replaced this one before the file manager heard of it.
        if (core->navigations.load() != number) return;
        // The caller's spinner waits for this, so it comes in every other case.
        if (!directory) {
            arrival.outcome = Navigated::folderSilent;
        } else if (arrival.choices.empty()) {
            arrival.outcome = navigate(core, *directory ? handlers::showFolder : handlers::reveal, arrival.path);
        }
        if (finished) dispatch::performOnMainThread([finished, arrival = std::move(arrival)] { finished(arrival); });
    });
}

void FileManagerCommands::revealAsync(std::string asked, RevealedBlock finishedBlock, std::string asTyped) {
    const std::uint64_t number = ++core_->navigations;
    showFolderQueue_.cancelAllOperations();
    showFolderQueue_.addOperation([core = core_, number, asked = std::move(asked), asTyped = std::move(asTyped),
                                   finished = std::move(finishedBlock)] {
        const std::string path = existingAsTyped(*core, asTyped, asked).value_or(asked);
        std::string revealed = path;
        const std::optional<bool> directory = isDirectory(*core, path, number);
        if (core->navigations.load() != number) return;
        if (directory.value_or(false) && !revealed.ends_with('/')) revealed.push_back('/');
        const Navigated outcome = !directory ? Navigated::folderSilent : navigate(core, handlers::reveal, revealed);
        if (finished) dispatch::performOnMainThread([finished, outcome, revealed] { finished(outcome, revealed); });
    });
}

void FileManagerCommands::commandAsync(std::string name, std::vector<std::string> params, FinishedBlock finishedBlock) {
    commandQueue_.addOperation(
        [core = core_, name = std::move(name), params = std::move(params), finished = std::move(finishedBlock)] {
            report(finished, core->call(name, params).has_value());
        });
}

void FileManagerCommands::getPathAsync(PathBlock completion) {
    getPathQueue_.cancelAllOperations();
    getPathQueue_.addOperation([core = core_, completion = std::move(completion)] {
        std::optional<std::string> path = core->call(handlers::folderPath, {});
        if (completion) dispatch::performOnMainThread([completion, path = std::move(path)] { completion(path); });
    });
}

void FileManagerCommands::describeFrontWindowAsync(bool withFolder, bool withSelection, FrontWindowBlock completion) {
    frontWindowQueue_.cancelAllOperations();
    frontWindowQueue_.addOperation([core = core_, withFolder, withSelection, completion = std::move(completion)] {
        FrontWindow window;
        window.isFolderWindow = core->call(handlers::isFolderWindow, {}) != handlers::notFolderWindow;
        if (window.isFolderWindow) {
            if (withFolder) window.folder = core->call(handlers::folderPath, {});
            if (withSelection) window.selection = core->call(handlers::selectedItem, {});
        }
        if (completion) dispatch::performOnMainThread([completion, window = std::move(window)] { completion(window); });
    });
}

void FileManagerCommands::revealInCurrentAsync(std::string name) {
    revealQueue_.cancelAllOperations();
    revealQueue_.addOperation(
        [core = core_, name = std::move(name)] { core->call(handlers::revealInCurrentFolder, {name}); });
}

void FileManagerCommands::mountAsync(std::string url, FailureBlock done) {
    mountQueue_.cancelAllOperations();
    mountQueue_.addOperation([core = core_, url = std::move(url), done = std::move(done)] {
        HandlerReply reply = core->callWithFailure(handlers::mount, {url});
        std::optional<std::string> failure;
        if (!reply.answer) failure = reply.failure.empty() ? std::string(kMountFailedText) : std::move(reply.failure);
        if (done) dispatch::performOnMainThread([done, failure = std::move(failure)] { done(failure); });
    });
}

void FileManagerCommands::cancelMount() {
    mountQueue_.cancelAllOperations();
    if (const std::shared_ptr<HandlerCatalogue> handlers = core_->current()) {
        try {
            handlers->cancel(handlers::mount);
        } catch (...) {
            // Nothing to give up then.
        }
    }
}

void FileManagerCommands::openTerminal(std::string path) {
    dispatch::globalQueue().async(
        [core = core_, path = std::move(path)] { core->call(handlers::openTerminal, {path}); });
}

void FileManagerCommands::waitUntilIdle() {
    showFolderQueue_.waitUntilAllOperationsAreFinished();
    getPathQueue_.waitUntilAllOperationsAreFinished();
    frontWindowQueue_.waitUntilAllOperationsAreFinished();
    revealQueue_.waitUntilAllOperationsAreFinished();
    commandQueue_.waitUntilAllOperationsAreFinished();
    mountQueue_.waitUntilAllOperationsAreFinished();
}

}  // namespace jorvane
