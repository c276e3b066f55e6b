#include "app/PlatformNames.h"

#include <array>
#include <optional>
#include <utility>

#include "settings/UserDefaults.h"
#include "shortcut/ShortcutKeyNames.h"

namespace jorvane {

std::string forPlatform(std::string_view text, const PlatformNames& names) {
    const std::string folder = names.applicationsFolder + " folder";
    const std::array<std::pair<std::string_view, std::string_view>, 4> replacements = {{
        {"Finder", names.fileManager},
        {"command + G", names.hotKey},
        {"\u2318 + G", names.hotKey},
        {"Applications folder", folder},
    }};
    std::string out;
    out.reserve(text.size());
    std::size_t at = 0;
    while (at < text.size()) {
        bool replaced = false;
        for (const auto& [mac, here] : replacements) {
            if (text.substr(at).starts_with(mac)) {
                out.append(here);
                at += mac.size();
                replaced = true;
                break;
            }
        }
        if (!replaced) out.push_back(text[at++]);
    }
    return out;
}

PlatformNames withRecordedHotKey(PlatformNames names, const settings::UserDefaults& defaults) {
    const auto keyCode = static_cast<ShortcutKeyCode>(defaults.integerForKey(settings::keys::hotkeyKeycode));
    const auto flags = static_cast<Modifiers>(defaults.integerForKey(settings::keys::hotkeyFlags));
    // Without a keyboard layout a letter reads "???": the default text is
    // more use then.
    const std::optional<std::string> key = shortcutKeyName(keyCode);
    if (!key || key->empty() || *key == "???") return names;
    names.hotKey = comboText(flags, keyCode);
    return names;
}

}  // namespace jorvane
