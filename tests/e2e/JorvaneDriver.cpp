#include "JorvaneDriver.h"

#include <atspi/atspi.h>
#include <glib.h>
#include <xcb/xcb.h>
#include <xcb/xinput.h>
#include <xkbcommon/xkbcommon.h>

#include <sys/wait.h>
#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <sstream>
#include <thread>

#include "ProcessSweep.h"
#include "XTestClient.h"
#include "platform/thunar/ThunarAtspi.h"
#include "settings/FileDefaultsStorage.h"
#include "settings/LoginItems.h"
#include "settings/UserDefaults.h"

namespace jorvane::e2e {

namespace fs = std::filesystem;

namespace {

template <class T>
using Reply = x11::XcbReply<T>;

using AccessibleRef = thunar::AtspiRef;

}  // namespace

// The accessibility side: one GLib context that libatspi is attached to and
// that the driver turns before each look, so that libatspi's cache follows
// the applications' changes.
struct JorvaneDriver::Atspi {
    GMainContext* context = g_main_context_new();
    thunar::ThunarAtspi thunar;
    bool ready = false;

    // libatspi keeps using the context for the process's life: it is never freed.
    Atspi() { ready = thunar.initialise(context, 1000); }
    Atspi(const Atspi&) = delete;
    Atspi& operator=(const Atspi&) = delete;

    void pump() {
        while (g_main_context_iteration(context, FALSE)) {
        }
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

    // The first element below the program's application that `matches`.
    template <typename Matches>
    AccessibleRef find(pid_t pid, const Matches& matches, int maxDepth) {
        pump();
        AccessibleRef app = thunar::ThunarAtspi::applicationFor(pid);
        if (!app) return nullptr;
        return findFirst(
            app.get(), [&](AtspiAccessible* e) { return e != app.get() && matches(e); }, 0, maxDepth);
    }

    // The element named exactly `name` (the application bears the program's name itself).
    AccessibleRef named(pid_t pid, const std::string& name) {
        return find(
            pid,
            [&name](AtspiAccessible* element) {
                GError* error = nullptr;
                gchar* own = atspi_accessible_get_name(element, &error);
                const bool match = own && name == own;
                g_free(own);
                g_clear_error(&error);
                return match;
            },
            12);
    }

    // The first text field, on a window that shows when there is one (the
    // program keeps one hidden bar per Thunar window it has seen).
    AccessibleRef textField(pid_t pid) {
        auto text = [](AtspiAccessible* element) {
            GError* error = nullptr;
            const bool match = atspi_accessible_get_role(element, &error) == ATSPI_ROLE_TEXT && !error;
            g_clear_error(&error);
            return match;
        };
        auto showingText = [&text](AtspiAccessible* element) {
            if (!text(element)) return false;
            AtspiStateSet* states = atspi_accessible_get_state_set(element);
            const bool showing = states && atspi_state_set_contains(states, ATSPI_STATE_SHOWING);
            if (states) g_object_unref(states);
            return showing;
        };
        if (AccessibleRef shown = find(pid, showingText, 10)) return shown;
        return find(pid, text, 10);
    }
};

std::vector<std::string> autostartPrograms(const fs::path& folder) {
    std::vector<std::string> programs;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(folder, error)) {
        std::ifstream in(entry.path());
        for (std::string line; std::getline(in, line);) {
            if (!line.starts_with("Exec=")) continue;
            const auto arguments = LoginItem::splitExecArguments(LoginItem::unescapeDesktopValue(line.substr(5)));
            if (arguments && !arguments->empty()) programs.push_back(arguments->front());
        }
    }
    return programs;
}

JorvaneDriver::JorvaneDriver(Desktop& desktop)
    : desktop_(desktop), x_(std::make_unique<XTestClient>(desktop.display())) {}

JorvaneDriver::~JorvaneDriver() {
    stop();
    atspi_.reset();
}

// ---- the program

namespace {
fs::path logFile(const Desktop& desktop) { return desktop.outputDir() / "jorvane.log"; }
}  // namespace

bool JorvaneDriver::start(const Options& options, milliseconds timeout) {
    stop();
    why_.clear();
    std::error_code error;
    fs::remove(logFile(desktop_), error);
    if (!options.home) {
        // The desktop's home has seen the welcome: the launch goes straight on.
        settings::UserDefaults defaults(std::make_unique<settings::FileDefaultsStorage>());
        if (!defaults.boolForKey(settings::keys::notFirstLaunch))
            defaults.setBool(true, settings::keys::notFirstLaunch);
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

pid_t JorvaneDriver::spawnProgram(const Options& options, const std::string& logName) {
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
        variables.push_back("XDG_DATA_HOME=" + (*options.home / ".local" / "share").string());
    }
    variables.insert(variables.end(), options.environment.begin(), options.environment.end());
    return desktop_.spawn({options.program ? options.program->string() : std::string(kJorvaneBinary)}, logName,
                          std::nullopt, variables);
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
    std::ifstream in(logFile(desktop_));
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

bool JorvaneDriver::waitForLog(const std::string& text, milliseconds timeout) {
    return waitUntil([&] { return log().find(text) != std::string::npos; }, timeout, milliseconds(10));
}

// ---- X

// The program's viewable windows on the root, topmost first: its list (of
// type TOOLTIP) or the others (`overrideRedirect`: those alone).
std::vector<std::uint32_t> JorvaneDriver::shownWindows(bool lists, bool overrideRedirect) {
    std::vector<std::uint32_t> shown;
    if (pid_ <= 0) return shown;
    const xcb_atom_t tooltip = x_->atom("_NET_WM_WINDOW_TYPE_TOOLTIP");
    const std::vector<xcb_window_t> stack = x_->children(x_->root());
    const auto shapes = x11::readWindowShapes(x_->display(), stack);
    for (std::size_t i = stack.size(); i-- > 0;) {
        const xcb_window_t w = stack[i];
        if (!shapes[i] || !shapes[i]->viewable || (overrideRedirect && !shapes[i]->overrideRedirect)) continue;
        if (x_->pid(w) != pid_) continue;
        const std::vector<std::uint32_t> types = x_->values(w, "_NET_WM_WINDOW_TYPE");
        if ((std::find(types.begin(), types.end(), tooltip) != types.end()) == lists) shown.push_back(w);
    }
    return shown;
}

// The bar is one line high; a menu is taller.
std::optional<BarWindow> JorvaneDriver::bar(bool menu) {
    for (std::uint32_t window : shownWindows(false, true)) {
        const std::optional<WindowGeometry> geometry = x_->geometry(window);
        if (geometry && (geometry->height > 60) == menu) return BarWindow{window, *geometry};
    }
    return std::nullopt;
}

std::optional<WindowGeometry> JorvaneDriver::completionList() {
    const std::vector<std::uint32_t> lists = shownWindows(true);
    return lists.empty() ? std::nullopt : x_->geometry(lists.front());
}

bool JorvaneDriver::keyboardGrabbed() {
    xcb_connection_t* c = x_->connection();
    Reply<xcb_grab_keyboard_reply_t> reply(xcb_grab_keyboard_reply(
        c, xcb_grab_keyboard(c, 0, x_->root(), XCB_CURRENT_TIME, XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC), nullptr));
    if (reply && reply->status == XCB_GRAB_STATUS_SUCCESS) xcb_ungrab_keyboard(c, XCB_CURRENT_TIME);
    x_->sync();
    return reply && reply->status == XCB_GRAB_STATUS_ALREADY_GRABBED;
}

std::uint32_t JorvaneDriver::inputFocus() { return x_->inputFocus(); }

bool JorvaneDriver::focusIsIn(std::uint32_t window) { return x_->focusIsIn(window); }

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

std::optional<x11::ClientFrame> JorvaneDriver::frame(std::uint32_t client) {
    return x11::readClientFrames(x_->display(), {client}).front();
}

std::optional<std::pair<int, int>> JorvaneDriver::titlePoint(std::uint32_t client) {
    const std::optional<x11::ClientFrame> f = frame(client);
    if (!f || f->extents.top == 0) return std::nullopt;
    // The title text is centred in the title bar; its middle row is safe
    // from the resize grip at the top.
    return std::pair{static_cast<int>(f->client.origin.x + f->client.size.width / 2),
                     static_cast<int>(f->client.origin.y - f->extents.top / 2)};
}

std::optional<std::uint8_t> JorvaneDriver::keycodeOf(const std::string& keysym) {
    const xkb_keysym_t wanted = xkb_keysym_from_name(keysym.c_str(), XKB_KEYSYM_NO_FLAGS);
    if (wanted == XKB_KEY_NoSymbol) return std::nullopt;
    return x_->keycode(wanted);
}

bool JorvaneDriver::keyGrabbedByOthers(std::uint32_t window, const std::string& keysym, bool withShift) {
    const std::optional<std::uint8_t> code = keycodeOf(keysym);
    if (!code) return false;
    xcb_connection_t* c = x_->connection();
    const auto modifiers = static_cast<std::uint16_t>(XCB_MOD_MASK_CONTROL | (withShift ? XCB_MOD_MASK_SHIFT : 0));
    // The probe grabs the key itself for a moment: with the server held, no
    // grab of the program's can come in between and fail on the probe's.
    xcb_grab_server(c);
    const xcb_void_cookie_t cookie =
        xcb_grab_key_checked(c, 1, window, modifiers, *code, XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC);
    Reply<xcb_generic_error_t> error(xcb_request_check(c, cookie));
    if (!error) xcb_ungrab_key(c, *code, window, modifiers);
    xcb_ungrab_server(c);
    x_->sync();
    return error && error->error_code == XCB_ACCESS;
}

bool JorvaneDriver::waitForGrab(std::uint32_t window, const std::string& keysym, milliseconds timeout, bool withShift) {
    return waitUntil([&] { return keyGrabbedByOthers(window, keysym, withShift); }, timeout, milliseconds(10));
}

void JorvaneDriver::minimise(std::uint32_t client) { x_->iconify(client); }

// ---- input

void JorvaneDriver::moveTo(int x, int y) { x_->moveTo(x, y); }

void JorvaneDriver::clickAt(int x, int y, int button) { x_->click(x, y, static_cast<std::uint8_t>(button)); }

bool JorvaneDriver::key(const std::string& keysym, const std::vector<std::string>& modifiers) {
    const auto sym = [](const std::string& name) { return xkb_keysym_from_name(name.c_str(), XKB_KEYSYM_NO_FLAGS); };
    std::vector<xcb_keysym_t> held;
    for (const std::string& modifier : modifiers) held.push_back(sym(modifier));
    return x_->chord(held, sym(keysym));
}

bool JorvaneDriver::keySteps(const std::vector<KeyStep>& steps, milliseconds pace) {
    for (const KeyStep& step : steps) {
        if (!x_->key(xkb_keysym_from_name(step.keysym.c_str(), XKB_KEYSYM_NO_FLAGS), step.press)) return false;
        std::this_thread::sleep_for(pace);
    }
    return true;
}

// xdotool types through XTEST, mapping a spare key for a letter that has none.
bool JorvaneDriver::type(const std::string& text) {
    return desktop_.run({"xdotool", "type", "--", text}, milliseconds(10000)).exitCode == 0;
}

void JorvaneDriver::watchKeys(std::uint32_t window) {
    xcb_connection_t* c = x_->connection();
    // GTK takes its keys through XInput 2, and the server hands an event to
    // core listeners only when no XInput 2 client wants it: listen the same way.
    Reply<xcb_input_xi_query_version_reply_t> version(
        xcb_input_xi_query_version_reply(c, xcb_input_xi_query_version(c, 2, 2), nullptr));
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
        xcb_input_xi_select_events(c, next, 1, &selection.head);
        const std::vector<xcb_window_t> children = x_->children(next);
        pending.insert(pending.end(), children.begin(), children.end());
    }
    x_->sync();
    seenKeys();  // drop what came before
}

std::vector<JorvaneDriver::SeenKey> JorvaneDriver::seenKeys() {
    std::vector<SeenKey> seen;
    xcb_connection_t* c = x_->connection();
    x_->sync();
    const xcb_query_extension_reply_t* xinput = xcb_get_extension_data(c, &xcb_input_id);
    while (xcb_generic_event_t* event = xcb_poll_for_event(c)) {
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

JorvaneDriver::Atspi* JorvaneDriver::accessibility(bool ofProgram) {
    if (!atspi_) atspi_ = std::make_unique<Atspi>();
    return atspi_->ready && (!ofProgram || pid_ > 0) ? atspi_.get() : nullptr;
}

bool JorvaneDriver::waitForElement(const std::string& name, milliseconds timeout) {
    Atspi* atspi = accessibility();
    return atspi && waitUntil([&] { return atspi->named(pid_, name) != nullptr; }, timeout, milliseconds(100));
}

bool JorvaneDriver::pressElement(const std::string& name) {
    Atspi* atspi = accessibility();
    AccessibleRef element = atspi ? atspi->named(pid_, name) : nullptr;
    AtspiAction* action = element ? atspi_accessible_get_action_iface(element.get()) : nullptr;
    if (!action) return false;
    GError* error = nullptr;
    const gboolean done = atspi_action_do_action(action, 0, &error);
    g_clear_error(&error);
    g_object_unref(action);
    return done;
}

std::optional<bool> JorvaneDriver::elementChecked(const std::string& name) {
    Atspi* atspi = accessibility();
    AccessibleRef element = atspi ? atspi->named(pid_, name) : nullptr;
    AtspiStateSet* states = element ? atspi_accessible_get_state_set(element.get()) : nullptr;
    if (!states) return std::nullopt;
    const bool checked = atspi_state_set_contains(states, ATSPI_STATE_CHECKED);
    g_object_unref(states);
    return checked;
}

std::optional<FieldText> JorvaneDriver::fieldText() {
    Atspi* atspi = accessibility();
    if (!atspi) return std::nullopt;
    AccessibleRef field = atspi->textField(pid_);
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
    if (gchar* description = atspi_accessible_get_description(field.get(), nullptr)) {
        result.problem = description;
        g_free(description);
    }
    return result;
}

bool JorvaneDriver::waitForField(const std::function<bool(const FieldText&)>& condition, milliseconds timeout,
                                 FieldText* last) {
    return waitUntil(
        [&] {
            const std::optional<FieldText> field = fieldText();
            if (field && last) *last = *field;
            return field && condition(*field);
        },
        timeout, milliseconds(20));
}

bool JorvaneDriver::waitForFieldText(const std::string& text, milliseconds timeout) {
    return waitForField([&](const FieldText& field) { return field.text == text; }, timeout);
}

bool JorvaneDriver::waitForInlineCompletion(milliseconds timeout) {
    return waitForField([](const FieldText& f) { return f.selectionStart > 0 && f.selectionEnd > f.selectionStart; },
                        timeout);
}

std::optional<std::vector<std::string>> JorvaneDriver::thunarSelection(std::uint32_t client) {
    Atspi* atspi = accessibility(false);
    if (!atspi) return std::nullopt;
    atspi->pump();
    const std::optional<pid_t> pid = desktop_.windowPid(client);
    if (!pid) return std::nullopt;
    if (!atspi->thunar.selectWindow(client, *pid, desktop_.title(client), std::nullopt)) return std::nullopt;
    std::optional<thunar::DetailsTable> table = atspi->thunar.detailsTable();
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
