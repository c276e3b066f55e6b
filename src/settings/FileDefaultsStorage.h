#pragma once

// The defaults domain's home on disk: one pretty-printed JSON object in
// $XDG_CONFIG_HOME/jorvane/settings.json (~/.config/jorvane/settings.json when
// the variable is unset), which a person can read and edit.
//
// Saving writes a temporary file in the same folder, flushes it to disk and
// renames it over the old one, so a reader sees the old file or the new one,
// never half of one. A file that cannot be read or parsed as a JSON object is
// never written over: it is renamed to settings.json.corrupt-<time> (with a
// number added when that name is taken) and the domain starts empty. If even
// that rename fails, saving is refused until the file is repaired.
//
// A path that is not a regular file (a FIFO, a device) or a file larger than
// any settings file is refused without blocking and without being touched:
// the defaults are used and nothing is saved there. Programs that save at
// the same time take turns through a lock on the folder, so each keeps the
// keys it changed.

#include "settings/DefaultsStorage.h"

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

struct stat;

namespace jorvane::settings {

// $XDG_CONFIG_HOME/jorvane when the variable holds an absolute path (the XDG
// rule: a relative one is ignored), else $HOME/.config/jorvane, else the
// password entry's home.
std::filesystem::path settingsDirectory();
// settingsDirectory() / "settings.json".
std::filesystem::path defaultSettingsFile();

// What the text of a settings file holds: its values, or why it is no
// settings file ("is not valid JSON (...)", "does not hold a JSON object").
struct SettingsText {
    Dictionary values;
    std::string damage;  // empty when the text is a settings file
};
SettingsText parseSettingsText(std::string_view text);
// The text a settings file is saved with: the values pretty-printed, strings
// that are not valid UTF-8 (an odd key's characters) with replacement
// characters rather than failing the whole save.
std::string settingsText(const Dictionary& values);

class FileDefaultsStorage final : public DefaultsStorage {
public:
    explicit FileDefaultsStorage(std::filesystem::path file = defaultSettingsFile());

    const std::filesystem::path& file() const { return file_; }

    Loaded load() override;
    Saved save(const Dictionary& values) override;
    bool changedSinceLastSync() override;
    std::string description() const override { return file_.string(); }
    std::unique_ptr<UpdateLock> lockForUpdate() override;

    // Larger files are not settings.
    static constexpr std::uint64_t kSizeLimit = 16 * 1024 * 1024;

private:
    // What identifies one version of the file cheaply.
    struct Stamp {
        bool exists = false;
        std::uint64_t device = 0, inode = 0, size = 0;
        std::int64_t mtimeNs = 0, ctimeNs = 0;
        bool operator==(const Stamp&) const = default;
    };
    // Through a symbolic link (a dotfiles manager's) to the file it names, so
    // saving replaces that file and not the link.
    std::filesystem::path target() const;
    Stamp stamp() const;
    static Stamp stampOf(const struct stat& st);
    // Renames a damaged file out of the way; the warning to show, either way.
    std::string setAside(const std::filesystem::path& damaged, const std::string& why);

    std::filesystem::path file_;
    Stamp lastSync_;
    bool synced_ = false;
    // Set while a damaged file could not be set aside: saving would destroy it.
    std::string refuseSaves_;
};

}  // namespace jorvane::settings
