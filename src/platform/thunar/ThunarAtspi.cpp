#include "platform/thunar/ThunarAtspi.h"

#include <libintl.h>
#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <mutex>

#include <atspi/atspi.h>

namespace jorvane::thunar {

void AtspiUnref::operator()(AtspiAccessible* element) const {
    if (element) g_object_unref(element);
}

namespace {

// A GError slot that frees what it holds.
class Error {
public:
    ~Error() { clear(); }
    GError** out() {
        clear();
        return &error_;
    }
    bool failed() const { return error_ != nullptr; }
    void clear() {
        if (error_) g_error_free(error_);
        error_ = nullptr;
    }

private:
    GError* error_ = nullptr;
};

// An interface view of an element (AtspiAction, AtspiText ...), released
// when it goes out of scope.
template <class T>
struct Iface {
    explicit Iface(T* iface) : p(iface) {}
    ~Iface() {
        if (p) g_object_unref(p);
    }
    Iface(const Iface&) = delete;
    Iface& operator=(const Iface&) = delete;
    explicit operator bool() const { return p != nullptr; }
    T* p;
};

std::string takeString(gchar* text) {
    if (!text) return {};
    std::string out(text);
    g_free(text);
    return out;
}

// libatspi caches names, roles and children and keeps them up to date from
// Thunar's events, which it reads only while it waits for a reply or while
// the worker's main loop runs. Titles and the status bar change under our
// hands: those reads drop the element's cache first. (Turning the cache off
// altogether makes libatspi call Thunar from inside its event dispatch, which
// deadlocks the D-Bus connection.)
std::optional<std::string> freshNameOf(AtspiAccessible* element) {
    atspi_accessible_clear_cache(element);
    Error error;
    gchar* name = atspi_accessible_get_name(element, error.out());
    if (error.failed() || !name) {
        g_free(name);
        return std::nullopt;
    }
    return takeString(name);
}

std::optional<std::string> nameOf(AtspiAccessible* element) {
    Error error;
    gchar* name = atspi_accessible_get_name(element, error.out());
    if (error.failed() || !name) {
        g_free(name);
        return std::nullopt;
    }
    return takeString(name);
}

AtspiRole roleOf(AtspiAccessible* element) {
    Error error;
    AtspiRole role = atspi_accessible_get_role(element, error.out());
    return error.failed() ? ATSPI_ROLE_INVALID : role;
}

int childCount(AtspiAccessible* element) {
    Error error;
    const int count = atspi_accessible_get_child_count(element, error.out());
    return error.failed() ? 0 : count;
}

AtspiRef childAt(AtspiAccessible* element, int index) {
    Error error;
    AtspiAccessible* child = atspi_accessible_get_child_at_index(element, index, error.out());
    if (error.failed()) {
        if (child) g_object_unref(child);
        return nullptr;
    }
    return AtspiRef(child);
}

AtspiRef addRef(AtspiAccessible* element) {
    if (element) g_object_ref(element);
    return AtspiRef(element);
}

// Descendants with one of the roles and all of the states, through the
// Collection interface, which answers in one call and skips the rows of
// tables. Thunar matches the states, so none is read (or cached) here.
std::vector<AtspiRef> descendantsWithRoles(AtspiAccessible* root, const std::vector<AtspiRole>& roles,
                                           const std::vector<AtspiStateType>& states = {}) {
    std::vector<AtspiRef> found;
    if (Iface<AtspiCollection> collection(atspi_accessible_get_collection_iface(root)); collection) {
        GArray* roleArray = g_array_new(FALSE, FALSE, sizeof(AtspiRole));
        for (AtspiRole role : roles) g_array_append_val(roleArray, role);
        GArray* stateArray = g_array_new(FALSE, FALSE, sizeof(AtspiStateType));
        for (AtspiStateType state : states) g_array_append_val(stateArray, state);
        AtspiStateSet* stateSet = atspi_state_set_new(stateArray);
        g_array_unref(stateArray);
        AtspiMatchRule* rule =
            atspi_match_rule_new(stateSet, ATSPI_Collection_MATCH_ALL, nullptr, ATSPI_Collection_MATCH_NONE, roleArray,
                                 ATSPI_Collection_MATCH_ANY, nullptr, ATSPI_Collection_MATCH_NONE, FALSE);
        g_object_unref(stateSet);
        g_array_unref(roleArray);
        Error error;
        GArray* matches = atspi_collection_get_matches(collection.p, rule, ATSPI_Collection_SORT_ORDER_CANONICAL, 0,
                                                       TRUE, error.out());
        g_object_unref(rule);
        if (matches) {
            for (guint i = 0; i < matches->len; ++i) found.emplace_back(g_array_index(matches, AtspiAccessible*, i));
            g_array_free(matches, TRUE);
        }
        if (!error.failed()) return found;
        found.clear();
    }
    // Without Collection: a walk that does not enter tables, and cannot
    // tell states apart.
    std::function<void(AtspiAccessible*, int)> walk = [&](AtspiAccessible* element, int depth) {
        const int count = childCount(element);
        for (int i = 0; i < count; ++i) {
            AtspiRef child = childAt(element, i);
            if (!child) continue;
            const AtspiRole role = roleOf(child.get());
            const bool wanted = std::find(roles.begin(), roles.end(), role) != roles.end();
            const bool enter = depth < 12 && role != ATSPI_ROLE_TABLE && role != ATSPI_ROLE_TREE_TABLE &&
                               role != ATSPI_ROLE_MENU_BAR && role != ATSPI_ROLE_TREE;
            AtspiAccessible* raw = child.get();
            if (wanted) found.push_back(std::move(child));
            if (enter) walk(raw, depth + 1);
        }
    };
    walk(root, 0);
    return found;
}

// A name that Thunar gives a widget, in English and in the user's language.
bool thunarNameIs(const std::string& name, const char* englishLabel) {
    static std::once_flag bound;
    std::call_once(bound, [] { bind_textdomain_codeset("thunar", "UTF-8"); });
    if (name == stripMnemonic(englishLabel)) return true;
    const char* translated = dgettext("thunar", englishLabel);
    return translated && translated != englishLabel && name == stripMnemonic(translated);
}

const char* buttonLabel(ToolbarButton button) {
    switch (button) {
        case ToolbarButton::IconView: return "_Icon View";
        case ToolbarButton::ListView: return "_List View";
        case ToolbarButton::CompactView: return "_Compact View";
        case ToolbarButton::Reload: return "_Reload";
    }
    return "";
}

bool doAction(AtspiAccessible* element, std::optional<std::string_view> actionName = std::nullopt) {
    Iface<AtspiAction> action(atspi_accessible_get_action_iface(element));
    if (!action) return false;
    Error error;
    int index = 0;
    if (actionName) {
        const int count = atspi_action_get_n_actions(action.p, error.out());
        if (error.failed()) return false;
        index = -1;
        for (int i = 0; i < count && index < 0; ++i) {
            if (takeString(atspi_action_get_action_name(action.p, i, error.out())) == *actionName) index = i;
        }
        if (index < 0) return false;
    }
    const bool done = atspi_action_do_action(action.p, index, error.out());
    return done && !error.failed();
}

}  // namespace

// ---- DetailsTable

int DetailsTable::rowCount() {
    Iface<AtspiTable> table(atspi_accessible_get_table_iface(table_.get()));
    if (!table) return 0;
    Error error;
    const int rows = atspi_table_get_n_rows(table.p, error.out());
    return error.failed() ? 0 : std::max(rows, 0);
}

std::optional<int> DetailsTable::nameColumn() {
    if (nameColumn_) return nameColumn_;
    Iface<AtspiTable> table(atspi_accessible_get_table_iface(table_.get()));
    if (!table) return std::nullopt;
    Error error;
    const int columns = atspi_table_get_n_columns(table.p, error.out());
    if (error.failed() || columns <= 0) return std::nullopt;
    // The name column is the one whose cells hold an icon beside the text;
    // the user can move it, so look instead of assuming column 0.
    for (int column = 0; column < columns; ++column) {
        AtspiRef cell(atspi_table_get_accessible_at(table.p, 0, column, error.out()));
        if (error.failed() || !cell) return std::nullopt;
        if (childCount(cell.get()) >= 2) {
            nameColumn_ = column;
            return nameColumn_;
        }
    }
    return std::nullopt;
}

std::optional<std::string> DetailsTable::nameAt(int row) {
    std::optional<int> column = nameColumn();
    if (!column) return std::nullopt;
    Iface<AtspiTable> table(atspi_accessible_get_table_iface(table_.get()));
    if (!table) return std::nullopt;
    Error error;
    AtspiRef cell(atspi_table_get_accessible_at(table.p, row, *column, error.out()));
    if (error.failed() || !cell) return std::nullopt;
    // The name cell holds an icon cell and a text cell.
    const int count = childCount(cell.get());
    for (int i = count - 1; i >= 0; --i) {
        AtspiRef part = childAt(cell.get(), i);
        if (!part) continue;
        std::optional<std::string> name = nameOf(part.get());
        if (name && !name->empty()) return name;
    }
    return std::nullopt;
}

std::vector<int> DetailsTable::selectedRows() {
    std::vector<int> rows;
    Iface<AtspiTable> table(atspi_accessible_get_table_iface(table_.get()));
    if (!table) return rows;
    Error error;
    GArray* selected = atspi_table_get_selected_rows(table.p, error.out());
    if (selected) {
        for (guint i = 0; i < selected->len; ++i) rows.push_back(g_array_index(selected, gint, i));
        g_array_free(selected, TRUE);
    }
    std::sort(rows.begin(), rows.end());
    return rows;
}

bool DetailsTable::clearSelection() {
    Iface<AtspiSelection> selection(atspi_accessible_get_selection_iface(table_.get()));
    if (!selection) return false;
    Error error;
    atspi_selection_clear_selection(selection.p, error.out());
    return !error.failed();
}

bool DetailsTable::selectRow(int row) {
    Iface<AtspiTable> table(atspi_accessible_get_table_iface(table_.get()));
    if (!table) return false;
    Error error;
    const bool done = atspi_table_add_row_selection(table.p, row, error.out());
    return done && !error.failed();
}

bool DetailsTable::activateRow(int row) {
    std::optional<int> column = nameColumn();
    if (!column) return false;
    Iface<AtspiTable> table(atspi_accessible_get_table_iface(table_.get()));
    if (!table) return false;
    Error error;
    AtspiRef cell(atspi_table_get_accessible_at(table.p, row, *column, error.out()));
    if (error.failed() || !cell) return false;
    return doAction(cell.get(), "activate");
}

bool DetailsTable::scrollToRow(int row) {
    const int rows = rowCount();
    if (row < 0 || row >= rows) return false;
    // The vertical scroll bar is the table's sibling that is taller than wide.
    Error error;
    AtspiRef parent(atspi_accessible_get_parent(table_.get(), error.out()));
    if (error.failed() || !parent) return false;
    AtspiRef scrollBar;
    const int count = childCount(parent.get());
    for (int i = 0; i < count && !scrollBar; ++i) {
        AtspiRef child = childAt(parent.get(), i);
        if (!child || roleOf(child.get()) != ATSPI_ROLE_SCROLL_BAR) continue;
        Iface<AtspiComponent> component(atspi_accessible_get_component_iface(child.get()));
        if (!component) continue;
        AtspiRect* rect = atspi_component_get_extents(component.p, ATSPI_COORD_TYPE_SCREEN, error.out());
        const bool vertical = rect && rect->height > rect->width;
        g_free(rect);
        if (vertical) scrollBar = std::move(child);
    }
    if (!scrollBar) return false;
    Iface<AtspiValue> value(atspi_accessible_get_value_iface(scrollBar.get()));
    Iface<AtspiComponent> barComponent(atspi_accessible_get_component_iface(scrollBar.get()));
    if (!value || !barComponent) return false;
    const double maximum = atspi_value_get_maximum_value(value.p, error.out());
    const double current = atspi_value_get_current_value(value.p, error.out());
    AtspiRect* barRect = atspi_component_get_extents(barComponent.p, ATSPI_COORD_TYPE_SCREEN, error.out());
    if (error.failed() || !barRect) {
        g_free(barRect);
        return false;
    }
    // GTK's range reports upper - page as the maximum; the page is about the
    // height of the scroll bar, and all rows are equally high.
    const double page = barRect->height;
    g_free(barRect);
    if (maximum <= 0) return true;  // everything fits
    const double rowHeight = (maximum + page) / rows;
    const double top = row * rowHeight;
    if (top >= current && top + rowHeight <= current + page) return true;  // already visible
    const double target = std::clamp(top - (page - rowHeight) / 2, 0.0, maximum);
    atspi_value_set_current_value(value.p, std::round(target), error.out());
    return !error.failed();
}

// ---- ThunarAtspi

ThunarAtspi::~ThunarAtspi() = default;

bool ThunarAtspi::initialise(GMainContext* context, int callTimeoutMs) {
    if (initialised_) return true;
    // atspi_init answers 0 when it connected, 1 when it was already done.
    const int status = atspi_init();
    if (status != 0 && status != 1) return false;
    atspi_set_main_context(context);
    atspi_set_timeout(callTimeoutMs, callTimeoutMs);
    initialised_ = true;
    return true;
}

AtspiRef ThunarAtspi::applicationFor(int pid) {
    AtspiRef desktop(atspi_get_desktop(0));
    if (!desktop) return nullptr;
    const int count = childCount(desktop.get());
    for (int i = 0; i < count; ++i) {
        AtspiRef app = childAt(desktop.get(), i);
        if (!app) continue;
        Error error;
        const guint appPid = atspi_accessible_get_process_id(app.get(), error.out());
        if (error.failed() || static_cast<int>(appPid) != pid) continue;
        return app;
    }
    return nullptr;
}

AtspiRef ThunarAtspi::findFrame(int pid, const std::string& title, const std::optional<XRect>& frame) {
    AtspiRef app = applicationFor(pid);
    if (!app) return nullptr;
    if (AtspiRef found = findFrameIn(app.get(), title, frame)) return found;
    // A window that has just opened may not be in the cached list yet.
    atspi_accessible_clear_cache(app.get());
    return findFrameIn(app.get(), title, frame);
}

AtspiRef ThunarAtspi::findFrameIn(AtspiAccessible* app, const std::string& title, const std::optional<XRect>& frame) {
    std::vector<AtspiRef> sameTitle;
    const int count = childCount(app);
    for (int i = 0; i < count; ++i) {
        AtspiRef child = childAt(app, i);
        if (!child || roleOf(child.get()) != ATSPI_ROLE_FRAME) continue;
        if (freshNameOf(child.get()) == title) sameTitle.push_back(std::move(child));
    }
    if (sameTitle.size() <= 1 || !frame) return sameTitle.empty() ? nullptr : std::move(sameTitle.front());
    // Several windows show the same folder: GTK reports each frame's outer
    // extents, which match the window manager's frame.
    AtspiRef best;
    long bestDistance = LONG_MAX;
    for (AtspiRef& candidate : sameTitle) {
        Iface<AtspiComponent> component(atspi_accessible_get_component_iface(candidate.get()));
        if (!component) continue;
        Error error;
        AtspiRect* rect = atspi_component_get_extents(component.p, ATSPI_COORD_TYPE_SCREEN, error.out());
        if (!rect) continue;
        const long distance = std::labs(rect->x - frame->x) + std::labs(rect->y - frame->y) +
                              std::labs(rect->width - frame->width) + std::labs(rect->height - frame->height);
        g_free(rect);
        if (distance < bestDistance) {
            bestDistance = distance;
            best = std::move(candidate);
        }
    }
    return best;
}

bool ThunarAtspi::selectWindow(std::uint32_t xid, int pid, const std::string& title,
                               const std::optional<XRect>& frame) {
    currentXid_ = 0;
    if (!initialised_) return false;
    forgetEndedProcesses();
    auto it = windows_.find(xid);
    if (it != windows_.end()) {
        // A cached frame is still the window's when it is of the same process
        // and carries its title.
        if (it->second.pid == pid && (it->second.title == title || freshNameOf(it->second.frame.get()) == title)) {
            if (it->second.title != title) {
                // Same frame, new folder: the toolbar stays, the views change.
                it->second.title = title;
            }
            currentXid_ = xid;
            return true;
        }
        windows_.erase(it);
    }
    AtspiRef found = findFrame(pid, title, frame);
    if (!found) return false;
    WindowElements elements;
    elements.frame = std::move(found);
    elements.pid = pid;
    elements.title = title;
    windows_[xid] = std::move(elements);
    currentXid_ = xid;
    return true;
}

void ThunarAtspi::forgetEndedProcesses() {
    // Windows closed by Thunar itself, or by its end, are never forgotten one
    // by one: their entries go once their process is gone, so a Thunar that
    // is restarted again and again leaves no elements of the dead ones behind.
    std::erase_if(windows_, [](const auto& entry) {
        const int pid = entry.second.pid;
        return pid > 0 && ::kill(pid, 0) != 0 && errno == ESRCH;
    });
}

void ThunarAtspi::forgetWindow(std::uint32_t xid) {
    windows_.erase(xid);
    if (currentXid_ == xid) currentXid_ = 0;
}

ThunarAtspi::WindowElements* ThunarAtspi::current() {
    auto it = windows_.find(currentXid_);
    return it == windows_.end() ? nullptr : &it->second;
}

bool ThunarAtspi::hasLocationEntry() {
    WindowElements* window = current();
    if (!window) return false;
    // The location entry: an editable text that is showing (the path-buttons
    // bar has none until Ctrl+L).
    std::vector<AtspiRef> texts =
        descendantsWithRoles(window->frame.get(), {ATSPI_ROLE_TEXT}, {ATSPI_STATE_EDITABLE, ATSPI_STATE_SHOWING});
    for (AtspiRef& text : texts) {
        Iface<AtspiEditableText> editable(atspi_accessible_get_editable_text_iface(text.get()));
        if (!editable) continue;
        window->entry = std::move(text);
        return true;
    }
    window->entry.reset();
    return false;
}

std::optional<std::string> ThunarAtspi::locationText() {
    if (!hasLocationEntry()) return std::nullopt;
    Iface<AtspiText> text(atspi_accessible_get_text_iface(current()->entry.get()));
    if (!text) return std::nullopt;
    Error error;
    gchar* contents = atspi_text_get_text(text.p, 0, -1, error.out());
    if (error.failed()) {
        g_free(contents);
        return std::nullopt;
    }
    return takeString(contents);
}

bool ThunarAtspi::enterLocation(const std::string& text) {
    // D-Bus strings must be UTF-8; a bus library that met anything else
    // would drop the connection.
    if (!isValidUtf8(text) || !hasLocationEntry()) return false;
    WindowElements* window = current();
    Iface<AtspiEditableText> editable(atspi_accessible_get_editable_text_iface(window->entry.get()));
    if (!editable) return false;
    Error error;
    if (!atspi_editable_text_set_text_contents(editable.p, text.c_str(), error.out()) || error.failed()) {
        window->entry.reset();
        return false;
    }
    return doAction(window->entry.get(), "activate") || doAction(window->entry.get());
}

bool ThunarAtspi::pressButton(ToolbarButton button) {
    WindowElements* window = current();
    if (!window) return false;
    auto cached = window->buttons.find(button);
    if (cached == window->buttons.end() || !cached->second) {
        window->buttons.clear();
        for (AtspiRef& candidate : descendantsWithRoles(window->frame.get(), {ATSPI_ROLE_PUSH_BUTTON})) {
            std::optional<std::string> name = nameOf(candidate.get());
            if (!name) continue;
            for (ToolbarButton which : {ToolbarButton::IconView, ToolbarButton::ListView, ToolbarButton::CompactView,
                                        ToolbarButton::Reload}) {
                if (!window->buttons.count(which) && thunarNameIs(*name, buttonLabel(which))) {
                    window->buttons[which] = addRef(candidate.get());
                }
            }
        }
        cached = window->buttons.find(button);
        if (cached == window->buttons.end()) return false;
    }
    if (doAction(cached->second.get())) return true;
    window->buttons.erase(cached);
    return false;
}

AtspiRef ThunarAtspi::currentPane() {
    WindowElements* window = current();
    if (!window) return nullptr;
    // Each tab has a directory pane; the current tab's is the one showing.
    std::vector<AtspiRef> panes =
        descendantsWithRoles(window->frame.get(), {ATSPI_ROLE_DIRECTORY_PANE}, {ATSPI_STATE_SHOWING});
    if (panes.empty()) return nullptr;
    return std::move(panes.front());
}

ThunarView ThunarAtspi::currentView() {
    AtspiRef pane = currentPane();
    if (!pane) return ThunarView::Unknown;
    std::optional<std::string> name = freshNameOf(pane.get());
    if (name) {
        if (thunarNameIs(*name, "Details view")) return ThunarView::Details;
        if (thunarNameIs(*name, "Icon view")) return ThunarView::Icon;
        if (thunarNameIs(*name, "Compact view")) return ThunarView::Compact;
    }
    const int count = childCount(pane.get());
    for (int i = 0; i < count; ++i) {
        AtspiRef child = childAt(pane.get(), i);
        if (child && roleOf(child.get()) == ATSPI_ROLE_TABLE) return ThunarView::Details;
    }
    return ThunarView::Unknown;
}

std::optional<DetailsTable> ThunarAtspi::detailsTable() {
    AtspiRef pane = currentPane();
    if (!pane) return std::nullopt;
    atspi_accessible_clear_cache(pane.get());
    const int count = childCount(pane.get());
    for (int i = 0; i < count; ++i) {
        AtspiRef child = childAt(pane.get(), i);
        if (child && roleOf(child.get()) == ATSPI_ROLE_TABLE) return DetailsTable(std::move(child));
    }
    return std::nullopt;
}

std::optional<std::string> ThunarAtspi::statusText() {
    WindowElements* window = current();
    if (!window) return std::nullopt;
    for (int attempt = 0; attempt < 2; ++attempt) {
        if (!window->statusBar) {
            // With split views there is one status bar per pane; the showing one is current.
            std::vector<AtspiRef> bars =
                descendantsWithRoles(window->frame.get(), {ATSPI_ROLE_STATUS_BAR}, {ATSPI_STATE_SHOWING});
            if (!bars.empty()) window->statusBar = std::move(bars.front());
            if (!window->statusBar) return std::nullopt;
        }
        if (std::optional<std::string> text = freshNameOf(window->statusBar.get())) return text;
        window->statusBar.reset();
    }
    return std::nullopt;
}

std::string ThunarAtspi::translated(const char* msgid) {
    static std::once_flag bound;
    std::call_once(bound, [] { bind_textdomain_codeset("thunar", "UTF-8"); });
    return dgettext("thunar", msgid);
}

std::string ThunarAtspi::formatPrefix(const char* msgid) {
    const std::string format = translated(msgid);
    const std::size_t placeholder = format.find('%');
    return placeholder == std::string::npos ? format : format.substr(0, placeholder);
}

}  // namespace jorvane::thunar
