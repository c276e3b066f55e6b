// The handlers, one function each, run on the worker thread.

#include "platform/thunar/ThunarHandlerWorker.h"

#include <algorithm>
#include <filesystem>

#include "platform/linux/ExternalPrograms.h"
#include "platform/thunar/ThunarProcess.h"

namespace jorvane {

using namespace thunar;
namespace fs = std::filesystem;

std::optional<std::string> ThunarHandlerCatalogue::Worker::folderPath(Call& call) {
    std::optional<Window> window = frontWindow(true);
    if (!window) return fail(call, "no Thunar browser window");
    std::optional<std::string> folder = folderOf(*window);
    // The trash or recent files: an answer like any other, asked often while typing there.
    if (!folder) return fail(call, "the window shows no local folder", log::Debug);
    return folder;
}

std::optional<std::string> ThunarHandlerCatalogue::Worker::selection(Call& call) {
    std::optional<Window> window = frontWindow(true);
    if (!window) return fail(call, "no Thunar browser window");
    std::optional<std::string> folder = folderOf(*window);
    if (!folder) return fail(call, "the window shows no local folder");
    if (!useWindow(*window)) return fail(call, "the window cannot be reached through AT-SPI");
    std::optional<std::vector<std::string>> names = selectedNames(*window, *folder, call.deadline);
    if (!names) return fail(call, "the selection cannot be read");
    // The first selected item (Thunar lists them in the view's order), or
    // every one, separated by NUL, for selectedItems().
    const bool all = call.name == kSelectedItemsCall;
    std::string answer;
    for (const std::string& name : *names) {
        std::string path = joinPath(*folder, name);
        if (isDirectory(path)) path += '/';
        if (!all) return path;
        answer += path;
        answer.push_back('\0');
    }
    return answer;
}

std::optional<std::string> ThunarHandlerCatalogue::Worker::isFolderWindow(Call&) {
    std::optional<Window> window = frontWindow(false);
    if (!window) return std::string("NO");
    return std::string(isThunarBrowserWindow(window->traits) ? "YES" : "NO");
}

std::optional<std::string> ThunarHandlerCatalogue::Worker::showFolder(Call& call) {
    if (call.params.empty() || call.params.front().empty()) return fail(call, "no folder given");
    const std::string folder = withoutTrailingSlash(expandHome(call.params.front()));
    // A file in Thunar's location entry opens the file (and an error dialog
    // when nothing opens it), so only folders go there.
    if (folder.front() != '/' || !isDirectory(folder)) return fail(call, "not a folder");
    std::optional<Window> window = frontWindow(true);
    if (!window) return fail(call, "no Thunar browser window");
    if (!navigate(*window, folder, call.deadline)) return fail(call, "the window did not go to the folder");
    return std::string();
}

std::optional<std::string> ThunarHandlerCatalogue::Worker::reveal(Call& call) {
    if (call.params.empty()) return fail(call, "no path given");
    std::optional<PathSplit> split = splitParent(expandHome(call.params.front()));
    if (!split) return fail(call, "not an absolute path of an item");
    if (!exists(joinPath(split->parent, split->name))) return fail(call, "no such item");
    std::optional<Window> window = frontWindow(true);
    if (!window) return fail(call, "no Thunar browser window");
    if (!navigate(*window, split->parent, call.deadline)) return fail(call, "the window did not go to the folder");
    if (!selectItems(*window, split->parent, {split->name}, call.deadline))
        return fail(call, "the item was not selected");
    return std::string();
}

std::optional<std::string> ThunarHandlerCatalogue::Worker::revealInCurrentFolder(Call& call) {
    if (call.params.empty()) return fail(call, "no name given");
    const std::string name = withoutTrailingSlash(call.params.front());
    if (name.empty() || name.find('/') != std::string::npos || name == "." || name == "..")
        return fail(call, "not a plain name");
    std::optional<Window> window = frontWindow(true);
    if (!window) return fail(call, "no Thunar browser window");
    std::optional<std::string> folder = folderOf(*window);
    if (!folder) return fail(call, "the window shows no local folder");
    if (!selectItems(*window, *folder, {name}, call.deadline)) return fail(call, "the item was not selected");
    return std::string();
}

std::optional<std::string> ThunarHandlerCatalogue::Worker::selectNames(Call& call) {
    if (call.params.size() < 2) return fail(call, "needs a folder and a list of names");
    const std::string folder = withoutTrailingSlash(expandHome(call.params[0]));
    if (folder.empty() || folder.front() != '/' || !isDirectory(folder)) return fail(call, "not a folder");
    std::vector<std::string> names = splitItemList(call.params[1]);
    if (names.empty()) return fail(call, "no names given");
    std::optional<Window> window = frontWindow(true);
    if (!window) return fail(call, "no Thunar browser window");
    if (!navigate(*window, folder, call.deadline)) return fail(call, "the window did not go to the folder");
    if (!selectItems(*window, folder, names, call.deadline)) return fail(call, "the items were not selected");
    return std::string();
}

std::optional<std::string> ThunarHandlerCatalogue::Worker::enterLocation(Call& call) {
    if (call.params.empty() || !isValidUtf8(call.params.front())) return fail(call, "no address given");
    // Thunar opens a location that is mounted already without asking.
    std::optional<Window> window = frontWindow(true);
    if (!window) return fail(call, "no Thunar browser window");
    if (!useWindow(*window)) return fail(call, "the window cannot be reached through AT-SPI");
    if (!atspi_.hasLocationEntry() && !openLocationEntryWithKeys(*window, call.deadline))
        return fail(call, "the window has no location entry");
    const std::string& address = call.params.front();
    const std::string shownBefore(titleLocation(window->title));
    if (!atspi_.enterLocation(address)) return fail(call, "the location was not entered");
    // Done once the title names a built-in place, or has left the place the
    // window showed for a server's, so that the window's location read
    // right after is the new one.
    const auto arrived = [&] {
        if (!refreshTitle(*window)) return false;
        const std::string_view shown = titleLocation(window->title);
        return isBuiltInLocation(address) ? shown == address : shown != shownBefore;
    };
    if (isBuiltInLocation(address) || withoutTrailingSlash(shownBefore) != withoutTrailingSlash(address)) {
        while (!arrived()) {
            if (expired(call.deadline)) return fail(call, "the window did not show the place");
            pause(milliseconds(2));
        }
    }
    return std::string();
}

std::optional<std::string> ThunarHandlerCatalogue::Worker::newWindow(Call& call) {
    std::string text = call.params.empty() ? std::string() : expandHome(call.params.front());
    std::optional<Window> window = frontWindow(true);
    std::optional<std::string> current = window ? folderOf(*window) : std::nullopt;
    if (!text.empty() && text.front() != '/' && current) text = joinPath(*current, text);
    std::string folder;
    if (!text.empty() && text.front() == '/' && isDirectory(text)) {
        folder = withoutTrailingSlash(text);
    } else if (std::optional<PathSplit> split = splitParent(text); split && isDirectory(split->parent)) {
        folder = split->parent;
    } else if (current) {
        folder = *current;
    } else if (const char* home = std::getenv("HOME"); home && *home) {
        folder = home;
    } else {
        folder = "/";
    }
    // `thunar FOLDER` hands the folder to the running Thunar, which opens a
    // window and the client ends; with no Thunar running it becomes Thunar.
    std::optional<int> pid = spawnDetached({"thunar", folder});
    if (!pid) return fail(call, "thunar cannot be started");
    const auto left = std::chrono::duration_cast<milliseconds>(call.deadline - Clock::now());
    std::optional<int> code = waitForDetached(*pid, std::max(left - milliseconds(100), milliseconds(0)));
    if (code && *code != 0) return fail(call, "thunar refused the folder");
    return std::string();
}

std::optional<std::string> ThunarHandlerCatalogue::Worker::closeWindow(Call& call) {
    std::optional<Window> window = frontWindow(true);
    if (!window) return fail(call, "no Thunar browser window");
    // Never the process: one Thunar serves every window. A window with
    // several tabs asks first.
    if (!x_.requestClose(window->xid)) return fail(call, "the window manager refused");
    atspi_.forgetWindow(window->xid);
    front.compare_exchange_strong(window->xid, 0);
    return std::string();
}

std::optional<std::string> ThunarHandlerCatalogue::Worker::reload(Call& call) {
    std::optional<Window> window = frontWindow(true);
    if (!window) return fail(call, "no Thunar browser window");
    if (!useWindow(*window)) return fail(call, "the window cannot be reached through AT-SPI");
    if (!atspi_.pressButton(ToolbarButton::Reload)) return fail(call, "the reload button cannot be pressed");
    return std::string();
}

std::optional<std::string> ThunarHandlerCatalogue::Worker::setView(Call& call, ToolbarButton button) {
    std::optional<Window> window = frontWindow(true);
    if (!window) return fail(call, "no Thunar browser window");
    if (!useWindow(*window)) return fail(call, "the window cannot be reached through AT-SPI");
    if (!switchView(*window, viewOfButton(button), call.deadline)) return fail(call, "the view did not change");
    return std::string();
}

std::optional<std::string> ThunarHandlerCatalogue::Worker::openTerminal(Call& call) {
    if (call.params.empty() || call.params.front().empty()) return fail(call, "no folder given");
    std::string folder = withoutTrailingSlash(expandHome(call.params.front()));
    if (!isDirectory(folder)) {
        std::optional<PathSplit> split = splitParent(folder);
        if (!split || !isDirectory(split->parent)) return fail(call, "no such folder");
        folder = split->parent;
    }
    // The Debian alternative first, then the desktop's preferred terminal
    // (exo-open needs xfce4-mime-helper to find it), then common terminals.
    std::vector<std::vector<std::string>> candidates;
    if (findExecutable("x-terminal-emulator")) candidates.push_back({"x-terminal-emulator"});
    if (findExecutable("exo-open") && findExecutable("xfce4-mime-helper"))
        candidates.push_back({"exo-open", "--launch", "TerminalEmulator", "--working-directory", folder});
    for (const char* terminal : {"xfce4-terminal", "gnome-terminal", "konsole", "xterm"})
        if (findExecutable(terminal)) candidates.push_back({terminal});
    if (candidates.empty()) return fail(call, "no terminal emulator is installed");
    for (const std::vector<std::string>& argv : candidates) {
        std::optional<int> pid = spawnDetached(argv, fs::path(folder));
        if (!pid) continue;
        // A launcher that fails says so at once; a terminal keeps running.
        std::optional<int> code = waitForDetached(*pid, milliseconds(150));
        if (!code || *code == 0) return std::string();
        log::inDomain(log::Warn, kLogDomain, "%s: %s failed with %d", call.name.c_str(), argv.front().c_str(), *code);
    }
    return fail(call, "no terminal could be started");
}

}  // namespace jorvane
