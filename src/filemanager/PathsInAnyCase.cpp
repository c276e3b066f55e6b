#include "filemanager/PathsInAnyCase.h"

#include "util/Paths.h"

#include <dirent.h>
#include <sys/stat.h>

#include <memory>
#include <string_view>

namespace jorvane {

namespace {

bool exists(const std::string& path) {
    struct stat info {};
    return ::lstat(path.c_str(), &info) == 0;
}

bool equalIgnoringCase(std::string_view a, std::string_view b) {
    return paths::hasCaseInsensitivePrefix(a, b) && paths::hasCaseInsensitivePrefix(b, a);
}

// The folder's entries named `name` in another case, appended to `found`
// as paths, while it holds fewer than `limit`.
void addEntriesNamed(const std::string& folder, std::string_view name, std::size_t limit,
                     std::vector<std::string>& found) {
    const std::unique_ptr<DIR, int (*)(DIR*)> dir(::opendir(folder.c_str()), ::closedir);
    if (!dir) return;
    while (const dirent* entry = ::readdir(dir.get())) {
        const std::string_view entryName = entry->d_name;
        if (entryName == "." || entryName == ".." || !equalIgnoringCase(entryName, name)) continue;
        found.push_back(folder == "/" ? "/" + std::string(entryName) : folder + "/" + std::string(entryName));
        if (found.size() >= limit) return;
    }
}

}  // namespace

std::vector<std::string> pathsInAnyCase(const std::string& path, std::size_t limit) {
    if (path.empty() || path.front() != '/' || limit == 0 || exists(path)) return {};
    std::vector<std::string> reached{"/"};
    for (const std::string& component : paths::pathComponents(path)) {
        if (component == "/") continue;
        std::vector<std::string> next;
        for (const std::string& folder : reached) {
            const std::string asTyped = folder == "/" ? "/" + component : folder + "/" + component;
            if (exists(asTyped)) {
                next.push_back(asTyped);
            } else {
                addEntriesNamed(folder, component, limit - next.size(), next);
            }
            if (next.size() >= limit) break;
        }
        reached = std::move(next);
        if (reached.empty()) return {};
    }
    if (path.size() > 1 && path.back() == '/')
        for (std::string& found : reached) found.push_back('/');
    return reached;
}

}  // namespace jorvane
