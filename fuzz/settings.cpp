// The settings file as the program loads it at start: any bytes a person, a
// dotfiles manager or a damaged disk left there.
//
// The text goes to the parser in memory, and what it accepts is read through
// the defaults domain as the program reads it (every key of the catalogue,
// every recorder's combination). What is saved reads back as the same values.
// One input in 256 (chosen by its bytes) also takes the way through a file,
// which sets a damaged file aside: that costs a few files per run, so the
// rate stays low to keep the target fast.

#include "settings/FileDefaultsStorage.h"
#include "settings/UserDefaults.h"

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <string_view>

#include <unistd.h>

namespace {

using namespace jorvane::settings;

// Gives the domain the parsed values; saves go nowhere.
class TextStorage final : public DefaultsStorage {
public:
    explicit TextStorage(Dictionary values) : values_(std::move(values)) {}
    Loaded load() override { return {values_, {}}; }
    Saved save(const Dictionary&) override { return {}; }
    bool changedSinceLastSync() override { return false; }

private:
    Dictionary values_;
};

std::uint32_t hashOf(std::string_view text) {
    std::uint32_t hash = 2166136261u;
    for (const unsigned char c : text) hash = (hash ^ c) * 16777619u;
    return hash;
}

// What the domain gives for a key; `usable`: a value of its type is stored.
template <typename T>
T read(const UserDefaults& defaults, std::string_view name, bool usable) {
    const Key<T> key(std::string(name), std::nullopt, {});
    if (defaults.hasStoredValue(key) != usable) std::abort();
    return defaults.get(key);
}

// Every value the program could read from these stored values.
void readEverything(const Dictionary& values) {
    UserDefaults defaults(std::make_unique<TextStorage>(values), [](const std::string&) {});
    for (const KeyInfo& info : catalogue()) {
        const auto stored = values.find(std::string(info.name));
        const bool usable = stored != values.end() && conformsTo(stored->second, info.type);
        switch (info.type) {
            case ValueType::Boolean: (void)read<bool>(defaults, info.name, usable); break;
            case ValueType::Integer: {
                const std::int64_t value = read<std::int64_t>(defaults, info.name, usable);
                if (usable && stored->second.is_number_integer() && value != stored->second.get<std::int64_t>())
                    std::abort();
                break;
            }
            case ValueType::String: {
                const std::string value = read<std::string>(defaults, info.name, usable);
                if (usable && value != stored->second.get_ref<const std::string&>()) std::abort();
                break;
            }
            case ValueType::Dictionary: (void)read<Dictionary>(defaults, info.name, usable); break;
        }
    }
    for (const auto& [name, value] : values) {
        if (!name.starts_with(keys::hotkeyRecorderPrefix)) continue;
        const Dictionary stored = read<Dictionary>(defaults, name, value.is_object());
        // A recorder's combination survives being stored again.
        const HotkeyRecorderEntry entry = HotkeyRecorderEntry::fromDictionary(stored);
        std::vector<std::string> problems;
        if (HotkeyRecorderEntry::fromDictionary(entry.toDictionary(), &problems) != entry || !problems.empty())
            std::abort();
    }
}

// The same text through a file: the same values, and a damaged file set aside.
void loadFromFile(std::string_view input, const SettingsText& parsed) {
    static const std::filesystem::path folder = [] {
        const auto dir =
            std::filesystem::temp_directory_path() / ("jorvane-fuzz-settings-" + std::to_string(::getpid()));
        std::filesystem::create_directories(dir);
        return dir;
    }();
    std::filesystem::remove_all(folder);
    std::filesystem::create_directories(folder);
    const auto file = folder / "settings.json";
    std::ofstream(file, std::ios::binary).write(input.data(), static_cast<std::streamsize>(input.size()));
    FileDefaultsStorage storage(file);
    const DefaultsStorage::Loaded loaded = storage.load();
    if (loaded.values != parsed.values || loaded.warnings.empty() != parsed.damage.empty()) std::abort();
    if (!parsed.damage.empty() && std::filesystem::exists(file)) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    const SettingsText parsed = parseSettingsText(input);
    if (hashOf(input) % 256 == 0) loadFromFile(input, parsed);
    if (!parsed.damage.empty()) {
        if (!parsed.values.empty()) std::abort();
        return 0;
    }
    readEverything(parsed.values);
    // What is saved reads back as the same values.
    const SettingsText again = parseSettingsText(settingsText(parsed.values));
    if (!again.damage.empty() || again.values != parsed.values) std::abort();
    return 0;
}
