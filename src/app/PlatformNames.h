#pragma once

// Names of the platform's own things in the texts the user reads. The texts
// are written with the Mac's names ("Finder"); the one place that knows the
// names of this platform fills them in.

#include <string>
#include <string_view>

namespace jorvane {

struct PlatformNames {
    // How the user knows the file manager.
    std::string fileManager = "Thunar";
    // The identifier that names the file manager to quitApplication.
    std::string fileManagerIdentifier = "org.xfce.Thunar";
};

// `text` with every "Finder" replaced by the file manager's name.
std::string forPlatform(std::string_view text, const PlatformNames& names);

}  // namespace jorvane
