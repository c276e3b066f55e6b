// Steps on Thunar's windows that the handlers share: finding the front
// window and its folder, navigating, switching views and selecting rows
// through AT-SPI.

#include "platform/thunar/ThunarHandlerWorker.h"

#include <algorithm>

namespace jorvane {

using namespace thunar;

// ---- Front window

void ThunarHandlerCatalogue::Worker::noteActive(std::uint32_t xid) {
    // Openbox passes through 0 on every change, and our own panel takes the
    // focus while the bar is open: only Thunar's browser windows count.
    if (xid == 0 || !isThunarBrowserWindow(x_.traits(xid))) return;
    front.store(xid);
}

std::optional<ThunarHandlerCatalogue::Worker::Window> ThunarHandlerCatalogue::Worker::frontWindow(bool browserOnly) {
    if (!x_.isOpen()) return std::nullopt;
    x_.processEvents([this](std::uint32_t xid) { noteActive(xid); });
    auto describe = [this](std::uint32_t xid) {
        Window window;
        window.xid = xid;
        window.traits = x_.traits(xid);
        window.pid = x_.pid(xid).value_or(0);
        window.title = x_.title(xid).value_or("");
        return window;
    };
    const std::uint32_t remembered = front.load();
    if (remembered != 0 && x_.isManaged(remembered)) {
        Window window = describe(remembered);
        if (isThunarWindow(window.traits)) {
            if (browserOnly && !isThunarBrowserWindow(window.traits)) return std::nullopt;
            return window;
        }
    }
    std::vector<std::uint32_t> stacking = x_.clientListStacking();
    for (auto it = stacking.rbegin(); it != stacking.rend(); ++it) {
        Window window = describe(*it);
        if (isThunarBrowserWindow(window.traits)) return window;
    }
    return std::nullopt;
}

bool ThunarHandlerCatalogue::Worker::refreshTitle(Window& window) {
    std::optional<std::string> title = x_.title(window.xid);
    if (!title) return false;
    window.title = *title;
    return true;
}

bool ThunarHandlerCatalogue::Worker::useWindow(const Window& window) {
    if (!ensureAtspi() || window.pid == 0) return false;
    return atspi_.selectWindow(window.xid, window.pid, window.title, x_.frame(window.xid));
}

std::optional<std::string> ThunarHandlerCatalogue::Worker::folderOf(const Window& window) {
    if (std::optional<std::string> folder = folderFromTitle(window.title)) return folder;
    // A location that is not a local folder ("trash:///") has no path,
    // unless it is a server's folder in gvfs's local view.
    const std::string_view location = titleLocation(window.title);
    if (location.find("://") != std::string_view::npos) return serverLocationPath(location);
    // The title shows only the folder's name: read the location entry, unless
    // it holds something else (the user's typing, a failed location).
    if (!useWindow(window)) return std::nullopt;
    std::optional<std::string> text = atspi_.locationText();
    if (!text || text->empty() || text->front() != '/') return std::nullopt;
    std::optional<std::string> path = resolveDisplayedPath(withoutTrailingSlash(*text));
    if (!path || !isDirectory(*path)) return std::nullopt;
    std::optional<PathSplit> split = splitParent(*path);
    if (split && !displayedNameMatches(std::string(location), split->name)) return std::nullopt;
    return path;
}

// ---- Shared steps

bool ThunarHandlerCatalogue::Worker::waitForFolder(Window& window, const std::string& folder,
                                                   Clock::time_point deadline) {
    const std::string wanted = withoutTrailingSlash(folder);
    // Through links, the title may name the folder by another path. Both are
    // resolved once (the file system is slow, or may not answer at all).
    const std::optional<std::string> canonical = canonicalPath(wanted);
    std::string mappedTitle;
    std::optional<std::string> resolvedShown;
    std::optional<std::string> resolvedShownCanonical;
    while (!expired(deadline)) {
        if (refreshTitle(window)) {
            std::optional<std::string> shown = folderFromTitle(window.title);
            // A server's folder may be named by its address: asked once per title.
            if (!shown && window.title != mappedTitle) {
                mappedTitle = window.title;
                shown = serverLocationPath(titleLocation(window.title));
            }
            if (shown && *shown == wanted) return true;
            if (shown && canonical) {
                if (shown != resolvedShown) {
                    resolvedShown = shown;
                    resolvedShownCanonical = canonicalPath(*shown);
                }
                if (resolvedShownCanonical == canonical) return true;
            }
        }
        pause(milliseconds(2));
    }
    return false;
}

bool ThunarHandlerCatalogue::Worker::openLocationEntryWithKeys(Window& window, Clock::time_point deadline) {
    if (!options_.allowFocusFallback) return false;
    // The path-buttons location bar has no entry until Ctrl+L, which Thunar
    // takes only with the focus.
    if (x_.activeWindow() != window.xid) {
        x_.requestActivate(window.xid);
        while (x_.activeWindow() != window.xid) {
            if (expired(deadline)) return false;
            pause(milliseconds(5));
        }
    }
    // The user's own modifiers would change the key.
    while (x_.anyModifierDown()) {
        if (expired(deadline)) return false;
        pause(milliseconds(10));
    }
    if (!x_.sendKey(kKeysymL, {kKeysymControlL})) return false;
    while (!atspi_.hasLocationEntry()) {
        if (expired(deadline)) return false;
        pause(milliseconds(5));
    }
    return true;
}

bool ThunarHandlerCatalogue::Worker::navigateUtf8(Window& window, const std::string& folder,
                                                  Clock::time_point deadline) {
    if (!useWindow(window)) return false;
    if (!atspi_.hasLocationEntry() && !openLocationEntryWithKeys(window, deadline)) return false;
    if (!atspi_.enterLocation(folder)) return false;
    return waitForFolder(window, folder, deadline);
}

bool ThunarHandlerCatalogue::Worker::navigate(Window& window, const std::string& folder, Clock::time_point deadline) {
    const std::string wanted = withoutTrailingSlash(folder);
    if (folderFromTitle(window.title) == wanted) return true;
    if (isValidUtf8(wanted)) return navigateUtf8(window, wanted, deadline);
    // D-Bus carries only UTF-8, and Thunar's entry takes no %-escapes: go to
    // the deepest folder whose path is UTF-8, then open each remaining
    // folder's row as a double click would.
    std::vector<std::string> components;
    std::string prefix = wanted;
    while (!isValidUtf8(prefix)) {
        std::optional<PathSplit> split = splitParent(prefix);
        if (!split) return false;
        components.insert(components.begin(), split->name);
        prefix = split->parent;
    }
    if (!navigate(window, prefix, deadline)) return false;
    std::string current = prefix;
    for (const std::string& name : components) {
        if (!openChildFolder(window, current, name, deadline)) return false;
        current = joinPath(current, name);
    }
    return true;
}

bool ThunarHandlerCatalogue::Worker::openChildFolder(Window& window, const std::string& folder, const std::string& name,
                                                     Clock::time_point deadline) {
    if (!useWindow(window)) return false;
    const ThunarView original = atspi_.currentView();
    if (original != ThunarView::Details && !switchView(window, ThunarView::Details, deadline)) return false;
    bool opened = false;
    if (std::optional<DetailsTable> table = waitForTable(deadline)) {
        std::vector<int> rows = findRows(*table, folder, {name}, deadline);
        if (!rows.empty() && table->clearSelection() && table->selectRow(rows.front()) &&
            table->activateRow(rows.front()))
            opened = waitForFolder(window, joinPath(folder, name), deadline);
    }
    if (original != ThunarView::Details && original != ThunarView::Unknown) {
        // Give the window its own view back, whatever happened.
        if (useWindow(window)) restoreView(window, original, deadline);
    }
    return opened;
}

bool ThunarHandlerCatalogue::Worker::switchView(Window& window, ThunarView view, Clock::time_point deadline) {
    std::optional<ToolbarButton> button = buttonOfView(view);
    if (!button) return false;
    if (atspi_.currentView() == view) return true;
    if (!atspi_.pressButton(*button)) return false;
    // The button's action runs in Thunar's idle time: wait for the new view.
    while (!expired(deadline)) {
        if (atspi_.currentView() == view) return true;
        pause(milliseconds(3));
    }
    (void)window;
    return false;
}

void ThunarHandlerCatalogue::Worker::restoreView(Window& window, ThunarView view, Clock::time_point deadline) {
    restoring_ = true;
    switchView(window, view, std::max(deadline, Clock::now() + milliseconds(500)));
    restoring_ = false;
}

std::optional<DetailsTable> ThunarHandlerCatalogue::Worker::waitForTable(Clock::time_point deadline) {
    while (!expired(deadline)) {
        if (std::optional<DetailsTable> table = atspi_.detailsTable()) return table;
        pause(milliseconds(3));
    }
    return std::nullopt;
}

std::vector<int> ThunarHandlerCatalogue::Worker::findRows(DetailsTable& table, const std::string& folder,
                                                          const std::vector<std::string>& names,
                                                          Clock::time_point deadline) {
    const std::vector<std::string> entries = entriesOf(folder);
    const std::size_t expectedRows = visibleEntryCount(entries);
    std::vector<int> rows;
    int scannedCount = -1;
    // Thunar fills the view while it reads the folder: scan again while rows
    // keep coming and names are missing.
    while (!expired(deadline)) {
        const int count = table.rowCount();
        if (count != scannedCount) {
            scannedCount = count;
            rows.clear();
            std::vector<bool> found(names.size(), false);
            std::size_t foundCount = 0;
            for (int row = 0; row < count && foundCount < names.size() && !expired(deadline); ++row) {
                std::optional<std::string> shown = table.nameAt(row);
                if (!shown) continue;
                for (std::size_t i = 0; i < names.size(); ++i) {
                    if (!found[i] && displayedNameMatches(*shown, names[i])) {
                        found[i] = true;
                        ++foundCount;
                        rows.push_back(row);
                        break;
                    }
                }
            }
            if (foundCount == names.size()) return rows;
            // Everything Thunar shows is there; the rest is hidden.
            if (static_cast<std::size_t>(count) >= expectedRows) return rows;
        }
        pause(milliseconds(10));
    }
    return rows;
}

bool ThunarHandlerCatalogue::Worker::selectItems(Window& window, const std::string& folder,
                                                 const std::vector<std::string>& names, Clock::time_point deadline) {
    std::vector<std::string> present;
    for (const std::string& name : names)
        if (exists(joinPath(folder, name))) present.push_back(name);
    if (present.empty()) return false;
    if (!useWindow(window)) return false;
    const ThunarView original = atspi_.currentView();
    // AT-SPI sees the files only in the Details view. Switching back from it
    // makes Thunar scroll to the selection.
    if (original != ThunarView::Details && !switchView(window, ThunarView::Details, deadline)) return false;
    bool selected = false;
    if (std::optional<DetailsTable> table = waitForTable(deadline)) {
        std::vector<int> rows = findRows(*table, folder, present, deadline);
        if (!rows.empty() && table->clearSelection()) {
            selected = true;
            for (int row : rows) selected = table->selectRow(row) && selected;
            if (original == ThunarView::Details) table->scrollToRow(*std::min_element(rows.begin(), rows.end()));
        }
    }
    if (original != ThunarView::Details && original != ThunarView::Unknown) {
        restoreView(window, original, deadline);
    }
    return selected;
}

std::optional<std::vector<std::string>> ThunarHandlerCatalogue::Worker::selectedNames(Window& window,
                                                                                      const std::string& folder,
                                                                                      Clock::time_point deadline) {
    const ThunarView original = atspi_.currentView();
    if (original != ThunarView::Details) {
        // The status bar names a single selected item and shows the free
        // space when nothing is selected; for several items, or a text it
        // does not know, look at the Details view.
        auto startsWith = [](const std::string& text, const std::string& prefix) {
            return !prefix.empty() && text.rfind(prefix, 0) == 0;
        };
        auto contains = [](const std::string& text, const std::string& part) {
            return !part.empty() && text.find(part) != std::string::npos;
        };
        auto loading = [](const std::optional<std::string>& status) {
            return status && (*status == ThunarAtspi::translated("Loading folder contents...") ||
                              *status == "Loading folder contents...");
        };
        std::optional<std::string> status = atspi_.statusText();
        // A folder that does not answer stays loading, with nothing in it to
        // select: no use waiting for it.
        if (loading(status) && !answers(folder)) return std::vector<std::string>{};
        // Right after a change of folder or view Thunar says it is loading.
        while (loading(status) && !expired(deadline)) {
            pause(milliseconds(10));
            status = atspi_.statusText();
        }
        if (status && !startsWith(*status, ThunarAtspi::formatPrefix("Selection: %s")) &&
            !startsWith(*status, "Selection: ")) {
            if (std::optional<std::string> name = selectedNameFromStatus(*status, entriesOf(folder)))
                return std::vector<std::string>{*name};
            if (contains(*status, ThunarAtspi::formatPrefix("Free space: %s")) || contains(*status, "Free space: "))
                return std::vector<std::string>{};
        }
        if (!switchView(window, ThunarView::Details, deadline)) return std::nullopt;
    }
    std::optional<std::vector<std::string>> result;
    if (std::optional<DetailsTable> table = waitForTable(deadline)) {
        result.emplace();
        for (int row : table->selectedRows()) {
            std::optional<std::string> shown = table->nameAt(row);
            std::optional<std::string> raw = shown ? rawNameFor(folder, *shown) : std::nullopt;
            if (!raw) {
                result.reset();
                break;
            }
            result->push_back(*raw);
        }
    }
    if (original != ThunarView::Details && original != ThunarView::Unknown) restoreView(window, original, deadline);
    return result;
}

}  // namespace jorvane
