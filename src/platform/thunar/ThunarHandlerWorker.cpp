// The worker's queue: every call becomes a job on the worker's GLib context,
// bounded by its deadline; search-as-you-type reveals give way to every
// other call.

#include "platform/thunar/ThunarHandlerWorker.h"

#include <memory>
#include <utility>

#include <glib-unix.h>

#include "filemanager/HandlerNames.h"

namespace jorvane {

using namespace thunar;

void ThunarHandlerCatalogue::Worker::run() {
    g_main_context_push_thread_default(context_);
    GSource* xSource = nullptr;
    if (x_.open()) {
        // The window that is active now, unless the owner named one already.
        if (std::optional<std::uint32_t> active = x_.activeWindow()) {
            if (*active != 0 && isThunarBrowserWindow(x_.traits(*active))) {
                std::uint32_t none = 0;
                front.compare_exchange_strong(none, *active);
            }
        }
        xSource = g_unix_fd_source_new(x_.fileDescriptor(), G_IO_IN);
        GUnixFDSourceFunc onEvents = [](gint, GIOCondition, gpointer self) -> gboolean {
            auto* worker = static_cast<Worker*>(self);
            worker->x_.processEvents([worker](std::uint32_t xid) { worker->noteActive(xid); });
            // A broken connection stays readable: stop watching it.
            if (worker->x_.hasError()) {
                log::inDomain(log::Warn, kLogDomain, "the X connection broke");
                return G_SOURCE_REMOVE;
            }
            return G_SOURCE_CONTINUE;
        };
        g_source_set_callback(xSource, G_SOURCE_FUNC(onEvents), this, nullptr);
        g_source_attach(xSource, context_);
        // Events read while asking for the active window wait in xcb's queue.
        x_.processEvents([this](std::uint32_t xid) { noteActive(xid); });
    } else {
        log::inDomain(log::Warn, kLogDomain, "cannot connect to the X display");
    }
    g_main_loop_run(loop_);
    if (xSource) {
        g_source_destroy(xSource);
        g_source_unref(xSource);
    }
    // Jobs still queued answer nothing at once and wake their callers (a
    // bounded number of rounds: Thunar's events may keep arriving).
    for (int round = 0; round < 1000 && pending_.load() > 0; ++round) g_main_context_iteration(context_, FALSE);
    g_main_context_pop_thread_default(context_);
}

std::optional<std::string> ThunarHandlerCatalogue::Worker::call(std::string_view name,
                                                                const std::vector<std::string>& params,
                                                                milliseconds timeout) {
    auto job = std::make_shared<Call>();
    job->name = std::string(name);
    job->params = params;
    job->deadline = Clock::now() + timeout;
    job->serial = nextSerial_.fetch_add(1) + 1;
    const bool reveal = job->name == handlers::revealInCurrentFolder;
    if (reveal) {
        job->othersBefore = otherCalls_.load();
    } else {
        otherCalls_.fetch_add(1);
        if (runningReveal_.load()) abandonedSerial_.store(runningSerial_.load());
    }
    pending_.fetch_add(1);
    g_main_context_invoke_full(
        // Ahead of the reveals that wait.
        context_, reveal ? G_PRIORITY_DEFAULT : G_PRIORITY_HIGH,
        [](gpointer data) -> gboolean {
            auto& self = *static_cast<std::pair<Worker*, std::shared_ptr<Call>>*>(data);
            self.first->execute(*self.second);
            return G_SOURCE_REMOVE;
        },
        new std::pair<Worker*, std::shared_ptr<Call>>(this, job),
        [](gpointer data) {
            auto* self = static_cast<std::pair<Worker*, std::shared_ptr<Call>>*>(data);
            self->first->pending_.fetch_sub(1);
            // A job dropped without running still wakes its caller.
            {
                std::lock_guard lock(self->second->mutex);
                self->second->finished = true;
            }
            self->second->done.notify_all();
            delete self;
        });

    std::unique_lock lock(job->mutex);
    if (!job->done.wait_until(lock, job->deadline, [&] { return job->finished; })) {
        log::inDomain(log::Warn, kLogDomain, "%s: no answer within %lld ms", job->name.c_str(),
                      static_cast<long long>(timeout.count()));
        return std::nullopt;
    }
    return job->result;
}

void ThunarHandlerCatalogue::Worker::execute(Call& call) {
    std::optional<std::string> result;
    const bool reveal = call.name == handlers::revealInCurrentFolder;
    const Clock::time_point started = Clock::now();
    runningSerial_.store(call.serial);
    runningReveal_.store(reveal);
    // A call that came after this reveal was asked for has changed what
    // the user looks at: the reveal is stale.
    const bool stale = reveal && otherCalls_.load() != call.othersBefore;
    // A job whose caller gave up before it started is not run at all.
    if (!stale && !expired(call.deadline) && !stopping_.load()) result = dispatch(call);
    // The job's requests read events off the socket into xcb's queue, where
    // the socket's readiness no longer announces them.
    x_.processEvents([this](std::uint32_t xid) { noteActive(xid); });
    runningReveal_.store(false);
    runningSerial_.store(0);
    const Clock::time_point ended = Clock::now();
    const auto ms = [](Clock::duration d) {
        return static_cast<long long>(std::chrono::duration_cast<milliseconds>(d).count());
    };
    log::inDomain(log::Debug, kLogDomain, "%s: ran %lld ms, %lld ms past its deadline", call.name.c_str(),
                  ms(ended - started), ms(ended - call.deadline));
    std::lock_guard lock(call.mutex);
    call.result = std::move(result);
    call.finished = true;
    call.done.notify_all();
}

std::optional<std::string> ThunarHandlerCatalogue::Worker::dispatch(Call& call) {
    const std::string& name = call.name;
    if (name == handlers::folderPath) return folderPath(call);
    if (name == handlers::selectedItem || name == kSelectedItemsCall) return selection(call);
    if (name == handlers::isFolderWindow) return isFolderWindow(call);
    if (name == handlers::showFolder) return showFolder(call);
    if (name == handlers::reveal) return reveal(call);
    if (name == handlers::revealInCurrentFolder) return revealInCurrentFolder(call);
    if (name == handlers::selectNames) return selectNames(call);
    if (name == kEnterLocationCall) return enterLocation(call);
    if (name == handlers::newWindow) return newWindow(call);
    if (name == handlers::closeWindow) return closeWindow(call);
    if (name == handlers::reload) return reload(call);
    if (name == handlers::openTerminal) return openTerminal(call);
    if (auto view = viewButtons().find(name); view != viewButtons().end()) return setView(call, view->second);
    return fail(call, "no such handler");
}

bool ThunarHandlerCatalogue::Worker::ensureAtspi() {
    if (atspi_.isInitialised()) return true;
    if (atspiFailed_) return false;
    if (!atspi_.initialise(context_, options_.atspiCallTimeoutMs)) {
        atspiFailed_ = true;
        log::inDomain(log::Warn, kLogDomain, "the accessibility bus cannot be reached");
        return false;
    }
    return true;
}

}  // namespace jorvane
