#pragma once

// Names of the platform's own things in the texts the user reads. The texts
// are written with the Mac's names ("Finder", "command + G", "Applications
// folder"); the one place that knows the names of this platform fills them
// in.

#include <string>
#include <string_view>

namespace jorvane {

namespace settings {
class UserDefaults;
}

struct PlatformNames {
    // How the user knows the file manager.
    std::string fileManager = "Thunar";
    // The identifier that names the file manager to quitApplication.
    std::string fileManagerIdentifier = "org.xfce.Thunar";
    // The activation hot key as the texts name it ("command + G", "⌘ + G").
    std::string hotKey = "Ctrl + G";
    // The folder a move into the applications folder goes to.
    std::string applicationsFolder = "/opt";
};

// `text` with the Mac's names replaced: every "Finder" by the file manager's
// name, "command + G" and "⌘ + G" by the hot key, "Applications folder" by
// "<applications folder> folder".
std::string forPlatform(std::string_view text, const PlatformNames& names);

// The names with the hot key the user has recorded (the "hotkey_keycode" and
// "hotkey_flags" settings, named as Linux writes them: "Ctrl + G"). The
// names' own hot key stays when the key has no name in the current keyboard
// layout.
PlatformNames withRecordedHotKey(PlatformNames names, const settings::UserDefaults& defaults);

}  // namespace jorvane
