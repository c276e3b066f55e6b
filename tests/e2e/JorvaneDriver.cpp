#include "JorvaneDriver.h"

#include <atspi/atspi.h>
#include <glib.h>
#include <xcb/xcb.h>
#include <xcb/xinput.h>
#include <xcb/xtest.h>
#include <xkbcommon/xkbcommon.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <sstream>
#include <sys/wait.h>

#include "ProcessSweep.h"
#include "platform/thunar/ThunarAtspi.h"
#include "settings/FileDefaultsStorage.h"
#include "settings/UserDefaults.h"

namespace jorvane::e2e {

namespace fs = std::filesystem;

namespace {

struct FreeDeleter {
    void operator()(void* p) const { std::free(p); }
};
template <class T>
using Reply = std::unique_ptr<T, FreeDeleter>;

template <class T>
struct GUnref {
    void operator()(T* p) const {
        if (p) g_object_unref(p);
    }
};
using AccessibleRef = std::unique_ptr<AtspiAccessible, GUnref<AtspiAccessible>>;

}  // namespace

// The accessibility side: one GLib context that libatspi is attached to and
// that the driver turns before each look, so that libatspi's cache follows
// the applications' changes.
struct JorvaneDriver::Atspi {
    GMainContext* context = g_main_context_new();
    thunar::ThunarAtspi thunar;
    bool ready = false;

    Atspi() { ready = thunar.initialise(context, 1000); }
    ~Atspi() {
        // libatspi keeps using the context it was given for the process's life.
    }
    Atspi(const Atspi&) = delete;
    Atspi& operator=(const Atspi&) = delete;

    void pump() {
        while (g_main_context_iteration(context, FALSE)) {
        }
    }

    AccessibleRef application(pid_t pid) {
        AccessibleRef desktop(atspi_get_desktop(0));
        if (!desktop) return nullptr;
        GError* error = nullptr;
        const int count = atspi_accessible_get_child_count(desktop.get(), &error);
        g_clear_error(&error);
        for (int i = 0; i < count; ++i) {
            AccessibleRef app(atspi_accessible_get_child_at_index(desktop.get(), i, &error));
            g_clear_error(&error);
            if (!app) continue;
            const guint appPid = atspi_accessible_get_process_id(app.get(), &error);
            if (error) {
                g_clear_error(&error);
                continue;
            }
            if (static_cast<pid_t>(appPid) == pid) return app;
        }
        return nullptr;
    }

    // The first element at or below `root` (down to `maxDepth`) that
    // `matches`. Qt builds its tree as windows show: each level is read
    // afresh.
    template <typename Matches>
    AccessibleRef findFirst(AtspiAccessible* root, const Matches& matches, int depth, int maxDepth) {
        if (matches(root)) {
            g_object_ref(root);
            return AccessibleRef(root);
        }
        if (depth > maxDepth) return nullptr;
        GError* error = nullptr;
        atspi_accessible_clear_cache(root);
        const int count = atspi_accessible_get_child_count(root, &error);
        g_clear_error(&error);
        for (int i = 0; i < count; ++i) {
            AccessibleRef child(atspi_accessible_get_child_at_index(root, i, &error));
            g_clear_error(&error);
            if (!child) continue;
            if (AccessibleRef found = findFirst(child.get(), matches, depth + 1, maxDepth)) return found;
        }
        return nullptr;
    }

    // The first element at or below `root` whose name is exactly `name`.
    AccessibleRef findNamed(AtspiAccessible* root, const std::string& name, int depth) {
        auto named = [&name](AtspiAccessible* element) {
            GError* error = nullptr;
            gchar* own = atspi_accessible_get_name(element, &error);
            const bool match = own && name == own;
            g_free(own);
            g_clear_error(&error);
            return match;
        };
        return findFirst(root, named, depth, 12);
    }

    // The first element below `root` with a Text interface and role "text".
    AccessibleRef findText(AtspiAccessible* root, int depth) {
        auto text = [](AtspiAccessible* element) {
            GError* error = nullptr;
            const bool match = atspi_accessible_get_role(element, &error) == ATSPI_ROLE_TEXT && !error;
            g_clear_error(&error);
            return match;
        };
        return findFirst(root, text, depth, 10);
    }
};

JorvaneDriver::JorvaneDriver(Desktop& desktop) : desktop_(desktop) {
    int screen = 0;
    connection_ = xcb_connect(desktop_.display().c_str(), &screen);
    if (xcb_connection_has_error(connection_)) {
        xcb_disconnect(connection_);
        connection_ = nullptr;
        return;
    }
    root_ = xcb_setup_roots_iterator(xcb_get_setup(connection_)).data->root;
}

JorvaneDriver::~JorvaneDriver() {
    stop();
    atspi_.reset();
    if (connection_) xcb_disconnect(connection_);
}

// ---- the program

fs::path JorvaneDriver::logFile() const { return desktop_.outputDir() / "jorvane.log"; }

bool JorvaneDriver::start(const Options& options, milliseconds timeout) {
    stop();
    why_.clear();
    std::error_code error;
    fs::remove(logFile(), error);
    if (!options.home) {
        // The desktop's home has seen the welcome: the launch goes straight on.
        settings::UserDefaults defaults(std::make_unique<settings::FileDefaultsStorage>());
        if (!defaults.boolForKey(settings::keys::notFirstLaunch)) defaults.setBool(true, settings::keys::notFirstLaunch);
    }
    try {
        pid_ = spawnProgram(options, "jorvane");
    } catch (const std::exception& failure) {
        why_ = failure.what();
        return false;
    }
    if (!options.waitUntilRunning) return true;
    if (!waitForLog("running beside Thunar", timeout)) {
        why_ = "jorvane did not finish its launch; its log:\n" + log();
        return false;
    }
    return true;
}

std::vector<std::string> JorvaneDriver::overrides(const Options& options) const {
    // JORVANE_E2E_LOG raises the program's log for a diagnosis.
    const char* asked = std::getenv("JORVANE_E2E_LOG");
    std::string level = asked && *asked ? asked : options.logLevel;
    // The launch and the bars' life are the program's own info lines.
    if (level.find("debug") == std::string::npos) level += ",Jorvane=info";
    std::vector<std::string> variables{"JORVANE_LOG=" + level};
    if (options.accessible) variables.emplace_back("QT_LINUX_ACCESSIBILITY_ALWAYS_ON=1");
    if (options.home) {
        variables.push_back("HOME=" + options.home->string());
        variables.push_back("XDG_CONFIG_HOME=" + (*options.home / ".config").string());
    }
    return variables;
}

pid_t JorvaneDriver::spawnProgram(const Options& options, const std::string& logName) {
    // The child takes this process's environment, with these for its start.
    std::vector<std::pair<std::string, std::optional<std::string>>> saved;
    auto restore = [&saved] {
        for (const auto& [name, value] : saved) {
            if (value)
                setenv(name.c_str(), value->c_str(), 1);
            else
                unsetenv(name.c_str());
        }
    };
    std::vector<std::string> variables = overrides(options);
    if (!options.accessible) variables.emplace_back("QT_LINUX_ACCESSIBILITY_ALWAYS_ON");
    for (const std::string& variable : variables) {
        const std::size_t equals = variable.find('=');
        const std::string name = variable.substr(0, equals);
        const char* old = std::getenv(name.c_str());
        saved.emplace_back(name, old ? std::optional<std::string>(old) : std::nullopt);
        if (equals == std::string::npos)
            unsetenv(name.c_str());
        else
            setenv(name.c_str(), variable.substr(equals + 1).c_str(), 1);
    }
    try {
        const pid_t pid = desktop_.spawn({kJorvaneBinary}, logName);
        restore();
        return pid;
    } catch (...) {
        restore();
        throw;
    }
}

std::optional<int> JorvaneDriver::startAgain(const Options& options, milliseconds timeout) {
    const pid_t pid = spawnProgram(options, "jorvane-again");
    int status = 0;
    const bool ended = waitUntil([&] { return waitpid(pid, &status, WNOHANG) == pid; }, timeout);
    if (!ended) {
        desktop_.stopProcess(pid);
        return std::nullopt;
    }
    return WIFEXITED(status) ? std::optional<int>(WEXITSTATUS(status)) : std::nullopt;
}

bool JorvaneDriver::running() const { return pid_ > 0 && processAlive(pid_); }

void JorvaneDriver::stop() {
    if (pid_ <= 0) return;
    desktop_.stopProcess(pid_, milliseconds(3000));
    pid_ = -1;
}

std::string JorvaneDriver::log() const {
    std::ifstream in(logFile());
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

bool JorvaneDriver::waitForLog(const std::string& text, milliseconds timeout) {
    return waitUntil([&] { return log().find(text) != std::string::npos; }, timeout, milliseconds(10));
}

// ---- X

std::uint32_t JorvaneDriver::atom(const char* name) {
    if (!connection_) return XCB_ATOM_NONE;
    Reply<xcb_intern_atom_reply_t> reply(xcb_intern_atom_reply(
        connection_, xcb_intern_atom(connection_, 0, static_cast<std::uint16_t>(std::strlen(name)), name), nullptr));
    return reply ? reply->atom : static_cast<std::uint32_t>(XCB_ATOM_NONE);
}

void JorvaneDriver::sync() {
    Reply<xcb_get_input_focus_reply_t> reply(
        xcb_get_input_focus_reply(connection_, xcb_get_input_focus(connection_), nullptr));
}

std::optional<BarWindow> JorvaneDriver::bar() {
    if (!connection_ || pid_ <= 0) return std::nullopt;
    Reply<xcb_query_tree_reply_t> tree(xcb_query_tree_reply(connection_, xcb_query_tree(connection_, root_), nullptr));
    if (!tree) return std::nullopt;
    const xcb_window_t* children = xcb_query_tree_children(tree.get());
    const int count = xcb_query_tree_children_length(tree.get());
    const std::uint32_t pidAtom = atom("_NET_WM_PID");
    const std::uint32_t typeAtom = atom("_NET_WM_WINDOW_TYPE");
    const std::uint32_t tooltip = atom("_NET_WM_WINDOW_TYPE_TOOLTIP");
    for (int i = count - 1; i >= 0; --i) {
        const xcb_window_t window = children[i];
        Reply<xcb_get_window_attributes_reply_t> attributes(
            xcb_get_window_attributes_reply(connection_, xcb_get_window_attributes(connection_, window), nullptr));
        if (!attributes || !attributes->override_redirect || attributes->map_state != XCB_MAP_STATE_VIEWABLE) continue;
        Reply<xcb_get_property_reply_t> pid(xcb_get_property_reply(
            connection_, xcb_get_property(connection_, 0, window, pidAtom, XCB_ATOM_CARDINAL, 0, 1), nullptr));
        if (!pid || xcb_get_property_value_length(pid.get()) < 4 ||
            *static_cast<const std::uint32_t*>(xcb_get_property_value(pid.get())) != static_cast<std::uint32_t>(pid_))
            continue;
        Reply<xcb_get_property_reply_t> type(xcb_get_property_reply(
            connection_, xcb_get_property(connection_, 0, window, typeAtom, XCB_ATOM_ATOM, 0, 16), nullptr));
        bool isTooltip = false;
        if (type && type->format == 32) {
            const auto* atoms = static_cast<const std::uint32_t*>(xcb_get_property_value(type.get()));
            const int n = xcb_get_property_value_length(type.get()) / 4;
            isTooltip = std::find(atoms, atoms + n, tooltip) != atoms + n;
        }
        if (isTooltip) continue;
        if (std::optional<WindowGeometry> geometry = desktop_.geometry(window)) return BarWindow{window, *geometry};
    }
    return std::nullopt;
}

bool JorvaneDriver::completionListShown() {
    if (!connection_ || pid_ <= 0) return false;
    Reply<xcb_query_tree_reply_t> tree(xcb_query_tree_reply(connection_, xcb_query_tree(connection_, root_), nullptr));
    if (!tree) return false;
    const xcb_window_t* children = xcb_query_tree_children(tree.get());
    const int count = xcb_query_tree_children_length(tree.get());
    const std::uint32_t typeAtom = atom("_NET_WM_WINDOW_TYPE");
    const std::uint32_t tooltip = atom("_NET_WM_WINDOW_TYPE_TOOLTIP");
    for (int i = 0; i < count; ++i) {
        Reply<xcb_get_window_attributes_reply_t> attributes(
            xcb_get_window_attributes_reply(connection_, xcb_get_window_attributes(connection_, children[i]), nullptr));
        if (!attributes || attributes->map_state != XCB_MAP_STATE_VIEWABLE) continue;
        if (desktop_.windowPid(children[i]) != pid_) continue;
        Reply<xcb_get_property_reply_t> type(xcb_get_property_reply(
            connection_, xcb_get_property(connection_, 0, children[i], typeAtom, XCB_ATOM_ATOM, 0, 16), nullptr));
        if (!type || type->format != 32) continue;
        const auto* atoms = static_cast<const std::uint32_t*>(xcb_get_property_value(type.get()));
        const int n = xcb_get_property_value_length(type.get()) / 4;
        if (std::find(atoms, atoms + n, tooltip) != atoms + n) return true;
    }
    return false;
}

std::uint32_t JorvaneDriver::inputFocus() {
    if (!connection_) return 0;
    Reply<xcb_get_input_focus_reply_t> reply(
        xcb_get_input_focus_reply(connection_, xcb_get_input_focus(connection_), nullptr));
    return reply ? reply->focus : 0;
}

bool JorvaneDriver::focusIsIn(std::uint32_t window) {
    std::uint32_t focus = inputFocus();
    while (focus != 0 && focus != root_ && connection_) {
        if (focus == window) return true;
        Reply<xcb_query_tree_reply_t> tree(xcb_query_tree_reply(connection_, xcb_query_tree(connection_, focus), nullptr));
        if (!tree) return false;
        focus = tree->parent;
    }
    return false;
}

bool JorvaneDriver::barHasFocus() {
    const std::optional<BarWindow> shown = bar();
    return shown && inputFocus() == shown->window;
}

bool JorvaneDriver::waitForFocusedBar(milliseconds timeout) {
    return waitUntil([&] { return barHasFocus(); }, timeout, milliseconds(1));
}

bool JorvaneDriver::waitForBarHidden(milliseconds timeout) {
    return waitUntil([&] { return !bar(); }, timeout, milliseconds(5));
}

JorvaneDriver::Extents JorvaneDriver::frameExtents(std::uint32_t client) {
    Extents extents;
    if (!connection_) return extents;
    Reply<xcb_get_property_reply_t> reply(xcb_get_property_reply(
        connection_, xcb_get_property(connection_, 0, client, atom("_NET_FRAME_EXTENTS"), XCB_ATOM_CARDINAL, 0, 4),
        nullptr));
    if (!reply || reply->format != 32 || xcb_get_property_value_length(reply.get()) < 16) return extents;
    const auto* values = static_cast<const std::uint32_t*>(xcb_get_property_value(reply.get()));
    return {static_cast<int>(values[0]), static_cast<int>(values[1]), static_cast<int>(values[2]),
            static_cast<int>(values[3])};
}

std::optional<std::pair<int, int>> JorvaneDriver::titlePoint(std::uint32_t client) {
    const std::optional<WindowGeometry> geometry = desktop_.geometry(client);
    if (!geometry) return std::nullopt;
    const Extents extents = frameExtents(client);
    if (extents.top <= 0) return std::nullopt;
    // The title text is centred in the title bar; its middle row is safe
    // from the resize grip at the top.
    return std::pair{geometry->x + geometry->width / 2, geometry->y - extents.top / 2};
}

std::optional<std::uint8_t> JorvaneDriver::keycodeOf(const std::string& keysym) {
    if (!connection_) return std::nullopt;
    const xkb_keysym_t wanted = xkb_keysym_from_name(keysym.c_str(), XKB_KEYSYM_NO_FLAGS);
    if (wanted == XKB_KEY_NoSymbol) return std::nullopt;
    const xcb_setup_t* setup = xcb_get_setup(connection_);
    const std::uint8_t first = setup->min_keycode;
    const int count = setup->max_keycode - setup->min_keycode + 1;
    Reply<xcb_get_keyboard_mapping_reply_t> mapping(xcb_get_keyboard_mapping_reply(
        connection_, xcb_get_keyboard_mapping(connection_, first, static_cast<std::uint8_t>(count)), nullptr));
    if (!mapping) return std::nullopt;
    const xcb_keysym_t* syms = xcb_get_keyboard_mapping_keysyms(mapping.get());
    const int perCode = mapping->keysyms_per_keycode;
    // The key's first level first, so that "g" is not found as Shift+something.
    for (int level = 0; level < perCode; ++level)
        for (int code = 0; code < count; ++code)
            if (syms[code * perCode + level] == wanted) return static_cast<std::uint8_t>(first + code);
    return std::nullopt;
}

bool JorvaneDriver::keyGrabbedByOthers(std::uint32_t window, const std::string& keysym) {
    const std::optional<std::uint8_t> code = keycodeOf(keysym);
    if (!connection_ || !code) return false;
    const xcb_void_cookie_t cookie = xcb_grab_key_checked(connection_, 1, window, XCB_MOD_MASK_CONTROL, *code,
                                                          XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC);
    Reply<xcb_generic_error_t> error(xcb_request_check(connection_, cookie));
    if (error) return error->error_code == XCB_ACCESS;
    xcb_ungrab_key(connection_, *code, window, XCB_MOD_MASK_CONTROL);
    sync();
    return false;
}

bool JorvaneDriver::waitForGrab(std::uint32_t window, const std::string& keysym, milliseconds timeout) {
    return waitUntil([&] { return keyGrabbedByOthers(window, keysym); }, timeout, milliseconds(10));
}

void JorvaneDriver::minimise(std::uint32_t client) {
    if (!connection_) return;
    xcb_client_message_event_t event{};
    event.response_type = XCB_CLIENT_MESSAGE;
    event.format = 32;
    event.window = client;
    event.type = atom("WM_CHANGE_STATE");
    event.data.data32[0] = 3;  // IconicState
    xcb_send_event(connection_, 0, root_, XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY,
                   reinterpret_cast<const char*>(&event));
    sync();
}

// ---- input

void JorvaneDriver::moveTo(int x, int y) {
    if (!connection_) return;
    xcb_test_fake_input(connection_, XCB_MOTION_NOTIFY, 0, XCB_CURRENT_TIME, root_, static_cast<std::int16_t>(x),
                        static_cast<std::int16_t>(y), 0);
    sync();
}

void JorvaneDriver::clickAt(int x, int y) {
    if (!connection_) return;
    moveTo(x, y);
    xcb_test_fake_input(connection_, XCB_BUTTON_PRESS, 1, XCB_CURRENT_TIME, XCB_NONE, 0, 0, 0);
    xcb_test_fake_input(connection_, XCB_BUTTON_RELEASE, 1, XCB_CURRENT_TIME, XCB_NONE, 0, 0, 0);
    sync();
}

bool JorvaneDriver::key(const std::string& keysym, const std::vector<std::string>& modifiers) {
    if (!connection_) return false;
    std::vector<std::uint8_t> held;
    for (const std::string& modifier : modifiers) {
        const std::optional<std::uint8_t> code = keycodeOf(modifier);
        if (!code) return false;
        held.push_back(*code);
    }
    const std::optional<std::uint8_t> code = keycodeOf(keysym);
    if (!code) return false;
    for (std::uint8_t modifier : held)
        xcb_test_fake_input(connection_, XCB_KEY_PRESS, modifier, XCB_CURRENT_TIME, XCB_NONE, 0, 0, 0);
    xcb_test_fake_input(connection_, XCB_KEY_PRESS, *code, XCB_CURRENT_TIME, XCB_NONE, 0, 0, 0);
    xcb_test_fake_input(connection_, XCB_KEY_RELEASE, *code, XCB_CURRENT_TIME, XCB_NONE, 0, 0, 0);
    for (auto it = held.rbegin(); it != held.rend(); ++it)
        xcb_test_fake_input(connection_, XCB_KEY_RELEASE, *it, XCB_CURRENT_TIME, XCB_NONE, 0, 0, 0);
    sync();
    return true;
}

bool JorvaneDriver::type(const std::string& text) { return desktop_.type(text); }

void JorvaneDriver::watchKeys(std::uint32_t window) {
    if (!connection_) return;
    // GTK takes its keys through XInput 2, and the server hands an event to
    // core listeners only when no XInput 2 client wants it: listen the same way.
    Reply<xcb_input_xi_query_version_reply_t> version(
        xcb_input_xi_query_version_reply(connection_, xcb_input_xi_query_version(connection_, 2, 2), nullptr));
    struct {
        xcb_input_event_mask_t head;
        std::uint32_t mask;
    } selection{};
    selection.head.deviceid = XCB_INPUT_DEVICE_ALL_MASTER;
    selection.head.mask_len = 1;
    selection.mask = XCB_INPUT_XI_EVENT_MASK_KEY_PRESS | XCB_INPUT_XI_EVENT_MASK_KEY_RELEASE;
    // On the window and all its children: GTK moves the focus between the
    // window and a small child of its own.
    std::vector<xcb_window_t> pending = {window};
    while (!pending.empty()) {
        const xcb_window_t next = pending.back();
        pending.pop_back();
        xcb_input_xi_select_events(connection_, next, 1, &selection.head);
        Reply<xcb_query_tree_reply_t> tree(xcb_query_tree_reply(connection_, xcb_query_tree(connection_, next), nullptr));
        if (!tree) continue;
        const xcb_window_t* children = xcb_query_tree_children(tree.get());
        pending.insert(pending.end(), children, children + xcb_query_tree_children_length(tree.get()));
    }
    watched_ = window;
    sync();
    seenKeys();  // drop what came before
}

std::vector<JorvaneDriver::SeenKey> JorvaneDriver::seenKeys() {
    std::vector<SeenKey> seen;
    if (!connection_) return seen;
    sync();
    const xcb_query_extension_reply_t* xinput = xcb_get_extension_data(connection_, &xcb_input_id);
    while (xcb_generic_event_t* event = xcb_poll_for_event(connection_)) {
        if ((event->response_type & 0x7f) == XCB_GE_GENERIC && xinput &&
            reinterpret_cast<xcb_ge_generic_event_t*>(event)->extension == xinput->major_opcode) {
            const auto* device = reinterpret_cast<const xcb_input_key_press_event_t*>(event);
            if (device->event_type == XCB_INPUT_KEY_PRESS || device->event_type == XCB_INPUT_KEY_RELEASE)
                seen.push_back({device->event_type == XCB_INPUT_KEY_PRESS, static_cast<std::uint8_t>(device->detail)});
        }
        std::free(event);
    }
    return seen;
}

// ---- accessibility

namespace {

AccessibleRef namedElement(JorvaneDriver::Atspi& atspi, pid_t pid, const std::string& name);

}  // namespace

bool JorvaneDriver::waitForElement(const std::string& name, milliseconds timeout) {
    if (!atspi_) atspi_ = std::make_unique<Atspi>();
    if (!atspi_->ready || pid_ <= 0) return false;
    return waitUntil([&] { return namedElement(*atspi_, pid_, name) != nullptr; }, timeout, milliseconds(100));
}

bool JorvaneDriver::pressElement(const std::string& name) {
    if (!atspi_) atspi_ = std::make_unique<Atspi>();
    if (!atspi_->ready || pid_ <= 0) return false;
    AccessibleRef element = namedElement(*atspi_, pid_, name);
    if (!element) return false;
    AtspiAction* action = atspi_accessible_get_action_iface(element.get());
    if (!action) return false;
    GError* error = nullptr;
    const gboolean done = atspi_action_do_action(action, 0, &error);
    g_clear_error(&error);
    g_object_unref(action);
    return done;
}

std::optional<bool> JorvaneDriver::elementChecked(const std::string& name) {
    if (!atspi_) atspi_ = std::make_unique<Atspi>();
    if (!atspi_->ready || pid_ <= 0) return std::nullopt;
    AccessibleRef element = namedElement(*atspi_, pid_, name);
    if (!element) return std::nullopt;
    AtspiStateSet* states = atspi_accessible_get_state_set(element.get());
    if (!states) return std::nullopt;
    const bool checked = atspi_state_set_contains(states, ATSPI_STATE_CHECKED);
    g_object_unref(states);
    return checked;
}

namespace {

AccessibleRef namedElement(JorvaneDriver::Atspi& atspi, pid_t pid, const std::string& name) {
    atspi.pump();
    AccessibleRef app = atspi.application(pid);
    if (!app) return nullptr;
    // Below the application, which bears the program's name itself.
    atspi_accessible_clear_cache(app.get());
    GError* error = nullptr;
    const int count = atspi_accessible_get_child_count(app.get(), &error);
    g_clear_error(&error);
    for (int i = 0; i < count; ++i) {
        AccessibleRef window(atspi_accessible_get_child_at_index(app.get(), i, &error));
        g_clear_error(&error);
        if (!window) continue;
        if (AccessibleRef found = atspi.findNamed(window.get(), name, 1)) return found;
    }
    return nullptr;
}

}  // namespace

std::optional<FieldText> JorvaneDriver::fieldText() {
    if (!atspi_) atspi_ = std::make_unique<Atspi>();
    if (!atspi_->ready || pid_ <= 0) return std::nullopt;
    atspi_->pump();
    AccessibleRef app = atspi_->application(pid_);
    if (!app) return std::nullopt;
    AccessibleRef field = atspi_->findText(app.get(), 0);
    if (!field) return std::nullopt;
    AtspiText* text = atspi_accessible_get_text_iface(field.get());
    if (!text) return std::nullopt;
    GError* error = nullptr;
    FieldText result;
    const gint count = atspi_text_get_character_count(text, &error);
    gchar* content = error ? nullptr : atspi_text_get_text(text, 0, count, &error);
    if (content) result.text = content;
    g_free(content);
    g_clear_error(&error);
    if (atspi_text_get_n_selections(text, &error) > 0 && !error) {
        if (AtspiRange* range = atspi_text_get_selection(text, 0, &error)) {
            result.selectionStart = range->start_offset;
            result.selectionEnd = range->end_offset;
            g_free(range);
        }
    } else {
        const gint caret = atspi_text_get_caret_offset(text, nullptr);
        result.selectionStart = result.selectionEnd = caret;
    }
    g_clear_error(&error);
    g_object_unref(text);
    return result;
}

bool JorvaneDriver::waitForFieldText(const std::string& text, milliseconds timeout) {
    return waitUntil(
        [&] {
            const std::optional<FieldText> field = fieldText();
            return field && field->text == text;
        },
        timeout, milliseconds(20));
}

std::optional<std::vector<std::string>> JorvaneDriver::thunarSelection(std::uint32_t client) {
    if (!atspi_) atspi_ = std::make_unique<Atspi>();
    if (!atspi_->ready) return std::nullopt;
    atspi_->pump();
    const std::optional<pid_t> pid = desktop_.windowPid(client);
    if (!pid) return std::nullopt;
    if (!atspi_->thunar.selectWindow(client, *pid, desktop_.title(client), std::nullopt)) return std::nullopt;
    std::optional<thunar::DetailsTable> table = atspi_->thunar.detailsTable();
    if (!table) return std::nullopt;
    std::vector<std::string> names;
    for (int row : table->selectedRows()) {
        std::optional<std::string> name = table->nameAt(row);
        if (!name) return std::nullopt;
        names.push_back(*name);
    }
    std::sort(names.begin(), names.end());
    return names;
}

}  // namespace jorvane::e2e
