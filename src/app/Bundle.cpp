#include "app/Bundle.h"

#include "app/MoveToApplications.h"

#include <array>
#include <cstdlib>
#include <string_view>
#include <system_error>

namespace jorvane::bundle {

namespace {

constexpr std::string_view kProgramName = "jorvane";

// `ancestor` is `path` or a folder above it.
bool isSameOrAbove(const std::filesystem::path& ancestor, const std::filesystem::path& path) {
    auto a = ancestor.begin();
    auto p = path.begin();
    for (; a != ancestor.end(); ++a, ++p)
        if (p == path.end() || *a != *p) return false;
    return true;
}

}  // namespace

std::filesystem::path normalPath(const std::filesystem::path& path) {
    std::error_code error;
    std::filesystem::path absolute = std::filesystem::absolute(path, error);
    if (error) absolute = path;
    std::filesystem::path result = absolute.lexically_normal();
    // "/usr/" normalises to "/usr/": drop the empty last component.
    if (result.has_relative_path() && !result.has_filename()) result = result.parent_path();
    return result;
}

std::filesystem::path bundlePathFor(const std::filesystem::path& executable) {
    if (executable.empty()) return {};
    const std::filesystem::path folder = normalPath(executable).parent_path();
    if (folder.filename() == "bin") return folder.parent_path();
    return folder;
}

std::filesystem::path executableIn(const std::filesystem::path& bundle) {
    return bundle / "bin" / std::string(kProgramName);
}

bool isSharedPrefix(const std::filesystem::path& folder) {
    if (folder.empty()) return true;
    const std::filesystem::path path = normalPath(folder);
    static constexpr std::array<std::string_view, 16> kShared = {
        "/",        "/usr",      "/usr/local", "/opt",  "/bin",  "/sbin", "/lib",  "/lib64",
        "/usr/lib", "/usr/bin",  "/etc",       "/var",  "/home", "/tmp",  "/root", "/srv",
    };
    for (std::string_view shared : kShared)
        if (path == std::filesystem::path(shared)) return true;
    // The home folder and everything above it hold the user's own files.
    if (const char* home = std::getenv("HOME"); home && *home && isSameOrAbove(path, normalPath(home))) return true;
    return false;
}

std::vector<std::string> applicationsDirectoryStrings() {
    std::vector<std::string> folders;
    if (const char* home = std::getenv("HOME"); home && *home == '/')
        folders.push_back((std::filesystem::path(home) / "Applications").string());
    folders.push_back(localApplicationsDirectory().string());
    return folders;
}

std::filesystem::path localApplicationsDirectory() { return "/opt"; }

bool isInApplicationsFolder(const std::filesystem::path& bundle) {
    return MoveToApplications::isInApplicationsFolder(bundle.string(), applicationsDirectoryStrings());
}

}  // namespace jorvane::bundle
