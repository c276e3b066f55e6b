// Paths as Thunar shows them and as the file system has them: raw names
// behind displayed ones, gvfs's local view of server locations, the view
// buttons.

#include "platform/thunar/ThunarHandlerWorker.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>

#include <gio/gio.h>

#include "filemanager/HandlerNames.h"
#include "util/FileSystemProbe.h"

namespace jorvane::thunar {

bool isDirectory(const std::string& path) {
    return FileSystemProbe::isDirectory(path, kFileSystemLimit).value_or(false);
}

bool exists(const std::string& path) { return FileSystemProbe::exists(path, kFileSystemLimit).value_or(false); }

bool answers(const std::string& path) { return FileSystemProbe::isDirectory(path, kFileSystemLimit).has_value(); }

std::optional<std::string> canonicalPath(const std::string& path) {
    return FileSystemProbe::ask<std::optional<std::string>>(
               path,
               [path]() -> std::optional<std::string> {
                   std::error_code error;
                   std::string canonical = std::filesystem::weakly_canonical(path, error).string();
                   if (error) return std::nullopt;
                   return canonical;
               },
               kFileSystemLimit)
        .value_or(std::nullopt);
}

std::string joinPath(const std::string& folder, const std::string& name) {
    if (folder.empty() || folder.back() == '/') return folder + name;
    return folder + "/" + name;
}

std::vector<std::string> entriesOf(const std::string& folder) {
    return FileSystemProbe::entries(folder, kFileSystemLimit).value_or(std::vector<std::string>{});
}

// How many rows Thunar shows for a folder while hidden and backup files are
// hidden (its default).
std::size_t visibleEntryCount(const std::vector<std::string>& names) {
    std::size_t count = 0;
    for (const std::string& name : names)
        if (!name.empty() && name.front() != '.' && name.back() != '~') ++count;
    return count;
}

// The raw name of the entry Thunar displays as `displayed`.
std::optional<std::string> rawNameFor(const std::string& folder, const std::string& displayed) {
    if (isValidUtf8(displayed) && exists(joinPath(folder, displayed))) return displayed;
    for (const std::string& name : entriesOf(folder))
        if (displayedNameMatches(displayed, name)) return name;
    return std::nullopt;
}

// A path whose components Thunar displayed with U+FFFD in place of bytes
// that are not UTF-8, mapped back to the file system's bytes.
std::optional<std::string> resolveDisplayedPath(const std::string& displayed) {
    if (displayed.empty() || displayed.front() != '/') return std::nullopt;
    if (exists(displayed)) return displayed;
    std::string resolved;
    std::size_t start = 1;
    while (start <= displayed.size()) {
        std::size_t slash = displayed.find('/', start);
        if (slash == std::string::npos) slash = displayed.size();
        const std::string component = displayed.substr(start, slash - start);
        start = slash + 1;
        if (component.empty()) continue;
        const std::string parent = resolved.empty() ? "/" : resolved;
        std::optional<std::string> raw = rawNameFor(parent, component);
        if (!raw) return std::nullopt;
        resolved = joinPath(parent, *raw);
    }
    return resolved.empty() ? std::string("/") : resolved;
}

std::string expandHome(const std::string& text) {
    if (text == "~" || text.rfind("~/", 0) == 0) {
        const char* home = std::getenv("HOME");
        if (home && *home) return std::string(home) + text.substr(1);
    }
    return text;
}

// The folder of gvfs's local view ($XDG_RUNTIME_DIR/gvfs/...) that a server
// location stands for: Thunar names such a folder in its title by the
// server's address ("sftp://ann@host/srv") once its GIO knows the view.
// Nothing for other locations ("trash:///" is no folder of the view).
std::optional<std::string> serverLocationPath(std::string_view location) {
    static constexpr std::array<std::string_view, 12> kServerSchemes = {
        "sftp", "ssh", "ftp", "ftps", "smb", "dav", "davs", "afp", "nfs", "http", "https", "webdav"};
    const std::size_t end = location.find("://");
    if (end == std::string_view::npos) return std::nullopt;
    if (std::find(kServerSchemes.begin(), kServerSchemes.end(), location.substr(0, end)) == kServerSchemes.end())
        return std::nullopt;
    GFile* file = g_file_new_for_uri(std::string(location).c_str());
    char* path = g_file_get_path(file);
    std::optional<std::string> result;
    if (path && isDirectory(path)) result = path;
    g_free(path);
    g_object_unref(file);
    return result;
}

const std::map<std::string_view, ToolbarButton, std::less<>>& viewButtons() {
    // Thunar has no gallery view (the files listed under a strip of large
    // previews); its closest relative is the Details view.
    static const std::map<std::string_view, ToolbarButton, std::less<>> buttons = {
        {handlers::iconView, ToolbarButton::IconView},
        {handlers::listView, ToolbarButton::ListView},
        {handlers::columnView, ToolbarButton::CompactView},
        {handlers::galleryView, ToolbarButton::ListView},
    };
    return buttons;
}

ThunarView viewOfButton(ToolbarButton button) {
    switch (button) {
        case ToolbarButton::IconView: return ThunarView::Icon;
        case ToolbarButton::ListView: return ThunarView::Details;
        case ToolbarButton::CompactView: return ThunarView::Compact;
        case ToolbarButton::Reload: break;
    }
    return ThunarView::Unknown;
}

std::optional<ToolbarButton> buttonOfView(ThunarView view) {
    switch (view) {
        case ThunarView::Icon: return ToolbarButton::IconView;
        case ThunarView::Details: return ToolbarButton::ListView;
        case ThunarView::Compact: return ToolbarButton::CompactView;
        case ThunarView::Unknown: break;
    }
    return std::nullopt;
}

}  // namespace jorvane::thunar
