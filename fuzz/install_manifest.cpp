// The install manifest's parser on any bytes: it never crashes, and what it
// accepts keeps its promises (paths relative, inside the folder, each once).
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <set>
#include <string>
#include <string_view>

#include "firstlaunch/Installation.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const auto manifest = jorvane::installation::parseManifest(text);
    if (!manifest) return 0;
    if (manifest->files.empty()) std::abort();
    std::set<std::string> seen;
    for (const std::string& file : manifest->files) {
        if (file.empty() || file.front() == '/' || file.back() == '/') std::abort();
        if (file == ".." || file.starts_with("../") || file.find("/../") != std::string::npos ||
            file.ends_with("/..") || file.find("//") != std::string::npos || file.find('\0') != std::string::npos)
            std::abort();
        if (!seen.insert(file).second) std::abort();
    }
    return 0;
}
