// The settings file as the program loads it at start: any bytes a person, a
// dotfiles manager or a damaged disk left there.

#include "settings/FileDefaultsStorage.h"

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>

#include <unistd.h>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const std::filesystem::path folder = [] {
        const auto dir = std::filesystem::temp_directory_path() / ("jorvane-fuzz-settings-" + std::to_string(::getpid()));
        std::filesystem::create_directories(dir);
        return dir;
    }();
    // A damaged file is renamed aside on load: start from a clean folder.
    std::filesystem::remove_all(folder);
    std::filesystem::create_directories(folder);
    const auto file = folder / "settings.json";
    std::ofstream(file, std::ios::binary).write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
    jorvane::settings::FileDefaultsStorage storage(file);
    (void)storage.load();
    return 0;
}
