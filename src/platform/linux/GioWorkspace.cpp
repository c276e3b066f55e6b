#include "platform/linux/GioWorkspace.h"
#include "platform/linux/ExternalPrograms.h"

#include <filesystem>

#include "platform/thunar/ThunarProcess.h"
#include "util/Diagnostics.h"
#include "util/Paths.h"

namespace jorvane {

bool GioWorkspace::openFile(const std::string& path) {
    const std::string expanded = paths::stringByExpandingTildeInPath(path);
    std::error_code error;
    if (expanded.empty() || !std::filesystem::exists(expanded, error)) {
        log::inDomain(log::Info, "Workspace", "nothing to open at \"%s\"", path.c_str());
        return false;
    }
    // "--" so that a name starting with "-" is not taken for an option.
    if (!thunar::spawnDetached({std::string(external::kGio), "open", "--", expanded})) {
        log::inDomain(log::Warn, "Workspace", "cannot start \"gio open\" for \"%s\"", expanded.c_str());
        return false;
    }
    return true;
}

}  // namespace jorvane
