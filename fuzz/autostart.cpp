// Autostart entries: the Exec line's arguments and the desktop-file escapes,
// and whole entries as the login items read them from the autostart folder.
//
// The entry's text goes to its reader in memory. One input in 256 (chosen by
// its bytes) is also written to the autostart folder and looked up there, the
// way the program reads it; files cost a few system calls per run, so the
// rate stays low to keep the target fast.

#include "settings/LoginItems.h"

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <string_view>

#include <unistd.h>

namespace {

namespace item = jorvane::LoginItem;

// One folder for the whole run: XDG_CONFIG_HOME points at it.
const std::filesystem::path& autostartFolder() {
    static const std::filesystem::path folder = [] {
        const auto home =
            std::filesystem::temp_directory_path() / ("jorvane-fuzz-autostart-" + std::to_string(::getpid()));
        std::filesystem::create_directories(home / "autostart");
        ::setenv("XDG_CONFIG_HOME", home.c_str(), 1);
        return home / "autostart";
    }();
    return folder;
}

std::uint32_t hashOf(std::string_view text) {
    std::uint32_t hash = 2166136261u;
    for (const unsigned char c : text) hash = (hash ^ c) * 16777619u;
    return hash;
}

// An entry for the program as the login items write one reads back as it.
void checkWrittenEntryReadsBack(std::string_view program) {
    if (program.empty() || program.find('\0') != std::string_view::npos) return;
    const std::string entry =
        "[Desktop Entry]\nType=Application\nExec=" + item::escapeDesktopValue(item::quoteExecArgument(program)) + "\n";
    if (item::programOfEntryText(entry) != program) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view input(reinterpret_cast<const char*>(data), size);

    (void)item::splitExecArguments(input);
    (void)item::splitExecArguments(item::unescapeDesktopValue(input));
    // A value escaped for a desktop file reads back as itself.
    if (input.find('\0') == std::string_view::npos &&
        item::unescapeDesktopValue(item::escapeDesktopValue(input)) != input)
        std::abort();
    checkWrittenEntryReadsBack(input);

    const std::optional<std::string> program = item::programOfEntryText(input);
    if (program) {
        if (program->empty()) std::abort();
        checkWrittenEntryReadsBack(*program);
    }

    if (hashOf(input) % 256 == 0) {
        const auto entry = autostartFolder() / "entry.desktop";
        std::ofstream(entry, std::ios::binary | std::ios::trunc)
            .write(input.data(), static_cast<std::streamsize>(input.size()));
        // The folder's reader finds what the text's reader finds.
        const bool found = item::HasLoginItemWithPath(program ? *program : std::string("/usr/bin/jorvane"));
        if (found != program.has_value()) std::abort();
    }
    return 0;
}
