#include "app/PlatformNames.h"

namespace jorvane {

std::string forPlatform(std::string_view text, const PlatformNames& names) {
    static constexpr std::string_view kFinder = "Finder";
    std::string out;
    out.reserve(text.size());
    for (std::size_t at = 0;;) {
        const std::size_t found = text.find(kFinder, at);
        if (found == std::string_view::npos) {
            out.append(text.substr(at));
            return out;
        }
        out.append(text.substr(at, found - at));
        out.append(names.fileManager);
        at = found + kFinder.size();
    }
}

}  // namespace jorvane
