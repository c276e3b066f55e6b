#include "platform/x11/X11WindowWatcher.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <map>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

#include "platform/x11/X11Windows.h"
#include "util/Diagnostics.h"

namespace jorvane::x11 {

namespace {

constexpr std::uint32_t kRootEvents = XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY | XCB_EVENT_MASK_PROPERTY_CHANGE;
constexpr std::uint32_t kClientEvents = XCB_EVENT_MASK_STRUCTURE_NOTIFY | XCB_EVENT_MASK_PROPERTY_CHANGE;

}  // namespace

struct X11WindowWatcher::State {
    std::mutex mutex;
    std::unique_ptr<XcbDisplay> display;
    Handler handler;
    int wakeFd = -1;
    std::atomic<bool> stopping{false};
    std::atomic<bool> running{false};
    std::thread thread;

    struct Client {
        std::int32_t pid = 0;
        std::string wmClass;
    };
    std::map<xcb_window_t, Client> clients;  // the client list as last read

    struct Watched {
        bool explicitly = false;  // asked for by watchWindow
        bool byProcess = false;   // a window of a watched process
        xcb_window_t topLevel = 0;
        Rect frame;
        bool hidden = false;
        std::int32_t pid = 0;
        std::string wmClass;
    };
    std::map<xcb_window_t, Watched> watched;
    std::set<std::int32_t> watchedPids;
    // Each top-level's lower neighbour, as the last ConfigureNotify said.
    std::map<xcb_window_t, xcb_window_t> stackedAbove;

    // An event about `window` of the process `pid` whose windows are of class `wmClass`.
    static WindowEvent event(WindowEvent::Kind kind, xcb_window_t window, std::int32_t pid,
                             const std::string& wmClass) {
        WindowEvent e;
        e.kind = kind;
        e.window = window;
        e.pid = pid;
        e.wmClass = wmClass;
        return e;
    }

    xcb_window_t activeWindow = 0;
    std::int32_t activePid = 0;
    std::string activeClass;

    // ---- with the mutex held

    bool usable() const { return display && !display->hasError(); }

    bool select(xcb_window_t window, std::uint32_t mask) {
        xcb_generic_error_t* error = xcb_request_check(
            display->connection(),
            xcb_change_window_attributes_checked(display->connection(), window, XCB_CW_EVENT_MASK, &mask));
        if (!error) return true;
        logXError("ChangeWindowAttributes(event mask)", window, error);
        std::free(error);
        return false;
    }

    Rect frameOf(xcb_window_t topLevel) {
        const auto shape = readWindowShapes(*display, {topLevel}).front();
        return shape ? shape->rect : Rect{};
    }

    bool beginWatching(xcb_window_t client, bool explicitly, bool byProcess) {
        if (const auto it = watched.find(client); it != watched.end()) {
            it->second.explicitly = it->second.explicitly || explicitly;
            it->second.byProcess = it->second.byProcess || byProcess;
            return true;
        }
        // Selected before the state is read, so that no change falls between.
        if (!select(client, kClientEvents)) return false;
        const auto properties =
            readClientProperties(*display, {client}, kClientPid | kClientClass | kClientState).front();
        const xcb_window_t topLevel = topLevelOf(*display, client);
        if (!properties || topLevel == 0) return false;
        watched[client] = {explicitly,         byProcess,       topLevel,           frameOf(topLevel),
                           properties->hidden, properties->pid, properties->wmClass};
        return true;
    }

    void endWatching(std::map<xcb_window_t, Watched>::iterator it) {
        // The window may be gone already; then there is nothing to undo.
        if (usable()) {
            const std::uint32_t none = 0;
            xcb_change_window_attributes(display->connection(), it->first, XCB_CW_EVENT_MASK, &none);
        }
        watched.erase(it);
    }

    void restacked(std::vector<WindowEvent>& out) {
        for (const auto& [window, w] : watched) {
            out.push_back(event(WindowEvent::Kind::Restacked, window, w.pid, w.wmClass));
        }
    }

    void activeChanged(std::vector<WindowEvent>& out) {
        const auto active = readWindowsProperty(*display, display->root(), display->atoms().netActiveWindow);
        if (!active || active->empty() || active->front() == 0 || active->front() == activeWindow) return;
        const xcb_window_t window = active->front();
        Client client;
        if (const auto known = clients.find(window); known != clients.end()) {
            client = known->second;
        } else if (const auto p = readClientProperties(*display, {window}, kClientPid | kClientClass).front()) {
            client = {p->pid, p->wmClass};
        }
        WindowEvent e;
        e.kind = WindowEvent::Kind::ActiveChanged;
        e.window = window;
        e.pid = client.pid;
        e.wmClass = client.wmClass;
        e.previousWindow = activeWindow;
        e.previousPid = activePid;
        e.previousClass = activeClass;
        activeWindow = window;
        activePid = client.pid;
        activeClass = client.wmClass;
        out.push_back(std::move(e));
    }

    // Reads the client list; reports new clients when `report` is set (not
    // for the baseline).
    void clientListChanged(std::vector<WindowEvent>* out) {
        const auto list = readWindowsProperty(*display, display->root(), display->atoms().netClientList);
        if (!list) return;
        std::vector<xcb_window_t> added;
        for (const xcb_window_t w : *list)
            if (!clients.count(w)) added.push_back(w);
        std::vector<Client> removed;
        std::erase_if(clients, [&list, &removed](const auto& entry) {
            const bool gone = std::find(list->begin(), list->end(), entry.first) == list->end();
            if (gone) removed.push_back(entry.second);
            return gone;
        });
        const auto hasClientOf = [this](std::int32_t pid) {
            return std::any_of(clients.begin(), clients.end(),
                               [pid](const auto& entry) { return entry.second.pid == pid; });
        };
        if (out) {
            std::set<std::int32_t> reported;
            for (const Client& client : removed) {
                if (client.pid <= 0 || hasClientOf(client.pid) || !reported.insert(client.pid).second) continue;
                WindowEvent e;
                e.kind = WindowEvent::Kind::ProcessLeft;
                e.pid = client.pid;
                e.wmClass = client.wmClass;
                out->push_back(std::move(e));
            }
        }
        const auto properties = readClientProperties(*display, added, kClientPid | kClientClass);
        for (std::size_t i = 0; i < added.size(); ++i) {
            if (!properties[i]) continue;  // gone already
            const Client client{properties[i]->pid, properties[i]->wmClass};
            // Only the windows in the list now count: a process id may come
            // back with another process once all windows of the first are gone.
            const bool newProcess = client.pid > 0 && !hasClientOf(client.pid);
            clients[added[i]] = client;
            if (watchedPids.count(client.pid)) beginWatching(added[i], false, true);
            if (!out) continue;
            WindowEvent e = event(WindowEvent::Kind::ClientAdded, added[i], client.pid, client.wmClass);
            e.newProcess = newProcess;
            out->push_back(std::move(e));
        }
    }

    // One event of the root or a watched client; what it changed goes to `out`.
    void handle(const xcb_generic_event_t* event, std::vector<WindowEvent>& out) {
        const xcb_window_t root = display->root();
        switch (event->response_type & 0x7F) {
            case XCB_PROPERTY_NOTIFY:
                propertyChanged(reinterpret_cast<const xcb_property_notify_event_t*>(event), out);
                return;
            case XCB_DESTROY_NOTIFY: destroyed(reinterpret_cast<const xcb_destroy_notify_event_t*>(event), out); return;
            case XCB_CONFIGURE_NOTIFY:
                configured(reinterpret_cast<const xcb_configure_notify_event_t*>(event), out);
                return;
            case XCB_MAP_NOTIFY:
                if (reinterpret_cast<const xcb_map_notify_event_t*>(event)->event == root) restacked(out);
                return;
            case XCB_UNMAP_NOTIFY:
                if (reinterpret_cast<const xcb_unmap_notify_event_t*>(event)->event == root) restacked(out);
                return;
            case XCB_CIRCULATE_NOTIFY:
                if (reinterpret_cast<const xcb_circulate_notify_event_t*>(event)->event == root) restacked(out);
                return;
            case XCB_REPARENT_NOTIFY: reparented(reinterpret_cast<const xcb_reparent_notify_event_t*>(event)); return;
            case 0: {
                const auto* error = reinterpret_cast<const xcb_generic_error_t*>(event);
                logXError("a request without reply", error->resource_id, error);
                return;
            }
            default: return;
        }
    }

    void propertyChanged(const xcb_property_notify_event_t* p, std::vector<WindowEvent>& out) {
        const xcb_window_t root = display->root();
        const XcbAtoms& atoms = display->atoms();
        if (p->window == root) {
            if (p->atom == atoms.netActiveWindow)
                activeChanged(out);
            else if (p->atom == atoms.netClientList)
                clientListChanged(&out);
            return;
        }
        const auto it = watched.find(p->window);
        if (it == watched.end()) return;
        if (p->atom == atoms.netWmName || p->atom == XCB_ATOM_WM_NAME) {
            out.push_back(event(WindowEvent::Kind::TitleChanged, p->window, it->second.pid, it->second.wmClass));
            return;
        }
        if (p->atom != atoms.netWmState && p->atom != atoms.wmState) return;
        const auto properties = readClientProperties(*display, {p->window}, kClientState).front();
        if (!properties || properties->hidden == it->second.hidden) return;
        it->second.hidden = properties->hidden;
        out.push_back(event(properties->hidden ? WindowEvent::Kind::Minimized : WindowEvent::Kind::Deminimized,
                            p->window, it->second.pid, it->second.wmClass));
    }

    // The client's own notice (the root only hears of its frame).
    void destroyed(const xcb_destroy_notify_event_t* d, std::vector<WindowEvent>& out) {
        stackedAbove.erase(d->window);
        const auto it = watched.find(d->window);
        if (it == watched.end()) return;
        out.push_back(event(WindowEvent::Kind::Destroyed, d->window, it->second.pid, it->second.wmClass));
        watched.erase(it);
    }

    void configured(const xcb_configure_notify_event_t* c, std::vector<WindowEvent>& out) {
        const xcb_window_t root = display->root();
        if (c->event != root) return;  // the client inside its frame: the frame's notice says it all
        const double border = c->border_width;
        const Rect rect{{static_cast<double>(c->x), static_cast<double>(c->y)},
                        {c->width + 2 * border, c->height + 2 * border}};
        for (auto& [window, w] : watched) {
            if (w.topLevel != c->window) continue;
            const bool moved = rect.origin != w.frame.origin;
            const bool resized = rect.size != w.frame.size;
            w.frame = rect;
            for (const auto& [kind, happened] :
                 {std::pair{WindowEvent::Kind::Moved, moved}, std::pair{WindowEvent::Kind::Resized, resized}}) {
                if (!happened) continue;
                out.push_back(event(kind, window, w.pid, w.wmClass));
            }
        }
        const auto above = stackedAbove.find(c->window);
        if (above == stackedAbove.end() || above->second != c->above_sibling) {
            stackedAbove[c->window] = c->above_sibling;
            restacked(out);
        }
    }

    // A client taken into a frame (or out of one): its moves are now the new
    // top-level's.
    void reparented(const xcb_reparent_notify_event_t* r) {
        const auto it = watched.find(r->window);
        if (r->event != r->window || it == watched.end()) return;
        const xcb_window_t topLevel = topLevelOf(*display, r->window);
        if (topLevel == 0) return;
        it->second.topLevel = topLevel;
        it->second.frame = frameOf(topLevel);
    }

    void wake() const {
        const std::uint64_t one = 1;
        if (write(wakeFd, &one, sizeof one) < 0 && errno != EAGAIN)
            log::inDomain(log::Warn, kX11AccessibilityLogDomain, "cannot wake the window watcher: errno %d", errno);
    }

    void run() {
        const int xFd = xcb_get_file_descriptor(display->connection());
        while (!stopping) {
            std::vector<WindowEvent> out;
            {
                std::lock_guard lock(mutex);
                if (!usable()) {
                    log::inDomain(log::Error, kX11AccessibilityLogDomain,
                                  "the window watcher's X connection broke; window notifications stop");
                    break;
                }
                // Until the queue and the socket are empty: requests made
                // while handling read further events into the queue.
                while (xcb_generic_event_t* event = xcb_poll_for_event(display->connection())) {
                    handle(event, out);
                    std::free(event);
                }
                xcb_flush(display->connection());
            }
            for (const WindowEvent& e : out) handler(e);

            // Other threads that use the connection wake us afterwards, in
            // case they read events into the queue.
            pollfd fds[2] = {{xFd, POLLIN, 0}, {wakeFd, POLLIN, 0}};
            while (poll(fds, 2, -1) < 0 && errno == EINTR) {
            }
            if (fds[1].revents & POLLIN) {
                std::uint64_t count = 0;
                [[maybe_unused]] const auto n = read(wakeFd, &count, sizeof count);
            }
        }
        running = false;
    }
};

std::unique_ptr<X11WindowWatcher> X11WindowWatcher::start(const std::string& displayName, Handler handler) {
    auto state = std::make_unique<State>();
    state->display = XcbDisplay::connect(displayName);
    if (!state->display) return nullptr;
    state->handler = std::move(handler);
    {
        std::lock_guard lock(state->mutex);
        if (!state->select(state->display->root(), kRootEvents)) return nullptr;
        state->clientListChanged(nullptr);
        std::vector<WindowEvent> ignored;
        state->activeChanged(ignored);
        if (const auto tree = queryTrees(*state->display, {state->display->root()}).front())
            for (std::size_t i = 0; i < tree->children.size(); ++i)
                state->stackedAbove[tree->children[i]] = i == 0 ? xcb_window_t{XCB_WINDOW_NONE} : tree->children[i - 1];
    }
    state->wakeFd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (state->wakeFd < 0) {
        log::inDomain(log::Error, kX11AccessibilityLogDomain, "cannot make an eventfd: errno %d", errno);
        return nullptr;
    }
    std::unique_ptr<X11WindowWatcher> watcher(new X11WindowWatcher);
    State* s = state.get();
    watcher->state_ = std::move(state);
    s->running = true;
    s->thread = std::thread([s] { s->run(); });
    return watcher;
}

X11WindowWatcher::~X11WindowWatcher() {
    if (!state_) return;
    state_->stopping = true;
    state_->wake();
    if (state_->thread.joinable()) state_->thread.join();
    if (state_->wakeFd >= 0) close(state_->wakeFd);
}

bool X11WindowWatcher::watchWindow(std::uint32_t client) {
    std::lock_guard lock(state_->mutex);
    if (!state_->usable() || client == 0) return false;
    const bool ok = state_->beginWatching(client, true, false);
    state_->wake();
    return ok;
}

void X11WindowWatcher::unwatchWindow(std::uint32_t client) {
    std::lock_guard lock(state_->mutex);
    const auto it = state_->watched.find(client);
    if (it == state_->watched.end()) return;
    it->second.explicitly = false;
    if (!it->second.byProcess) state_->endWatching(it);
    state_->wake();
}

void X11WindowWatcher::watchProcess(std::int32_t pid) {
    std::lock_guard lock(state_->mutex);
    if (!state_->usable() || pid <= 0 || !state_->watchedPids.insert(pid).second) return;
    for (const auto& [window, client] : state_->clients)
        if (client.pid == pid) state_->beginWatching(window, false, true);
    state_->wake();
}

void X11WindowWatcher::unwatchProcess(std::int32_t pid) {
    std::lock_guard lock(state_->mutex);
    if (!state_->watchedPids.erase(pid)) return;
    for (auto it = state_->watched.begin(); it != state_->watched.end();) {
        const auto next = std::next(it);
        if (it->second.pid == pid) {
            it->second.byProcess = false;
            if (!it->second.explicitly) state_->endWatching(it);
        }
        it = next;
    }
    state_->wake();
}

bool X11WindowWatcher::isRunning() const { return state_->running; }

}  // namespace jorvane::x11
