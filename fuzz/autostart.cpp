// Autostart entries: the Exec line's arguments and the desktop-file escapes,
// and whole entries as the login items read them from the autostart folder.

#include "settings/LoginItems.h"

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

#include <unistd.h>

namespace {

// One folder for the whole run: XDG_CONFIG_HOME points at it.
const std::filesystem::path& autostartFolder() {
    static const std::filesystem::path folder = [] {
        const auto home = std::filesystem::temp_directory_path() / ("jorvane-fuzz-autostart-" + std::to_string(::getpid()));
        std::filesystem::create_directories(home / "autostart");
        ::setenv("XDG_CONFIG_HOME", home.c_str(), 1);
        return home / "autostart";
    }();
    return folder;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    namespace item = jorvane::LoginItem;
    const std::string_view input(reinterpret_cast<const char*>(data), size);

    (void)item::splitExecArguments(input);
    (void)item::splitExecArguments(item::unescapeDesktopValue(input));
    // A value escaped for a desktop file reads back as itself.
    if (input.find('\0') == std::string_view::npos && item::unescapeDesktopValue(item::escapeDesktopValue(input)) != input)
        std::abort();

    const auto entry = autostartFolder() / "entry.desktop";
    std::ofstream(entry, std::ios::binary | std::ios::trunc).write(input.data(), static_cast<std::streamsize>(input.size()));
    (void)item::HasLoginItemWithPath("/usr/bin/jorvane");
    return 0;
}
