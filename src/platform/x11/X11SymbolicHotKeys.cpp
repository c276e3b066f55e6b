#include "platform/x11/X11SymbolicHotKeys.h"

#include <xcb/xcb.h>
#include <xkbcommon/xkbcommon.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <memory>

#include "platform/thunar/ThunarProcess.h"
#include "util/Diagnostics.h"

namespace jorvane::x11 {
namespace {

constexpr const char* kLog = "desktop-shortcuts";

std::string lower(std::string_view text) {
    std::string out(text);
    std::transform(out.begin(), out.end(), out.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return out;
}

std::string_view trim(std::string_view text) {
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t' || text.back() == '\r')) text.remove_suffix(1);
    return text;
}

// xfwm4's keys that act only while a window is being moved or resized.
bool isMoveResizeAction(std::string_view action) {
    return action == "cancel_key" || action == "left_key" || action == "right_key" || action == "up_key" ||
           action == "down_key";
}

}  // namespace

std::optional<SymbolicHotKey> symbolicHotKeyForAccelerator(std::string_view accelerator) {
    std::int32_t modifiers = 0;
    while (!accelerator.empty() && accelerator.front() == '<') {
        const std::size_t close = accelerator.find('>');
        if (close == std::string_view::npos) return std::nullopt;
        const std::string name = lower(accelerator.substr(1, close - 1));
        if (name == "primary" || name == "control" || name == "ctrl" || name == "ctl") {
            modifiers |= kRecorderCommand;
        } else if (name == "shift" || name == "shft") {
            modifiers |= kRecorderShift;
        } else if (name == "alt" || name == "mod1" || name == "meta") {
            modifiers |= kRecorderOption;
        } else if (name == "super" || name == "mod4") {
            modifiers |= kRecorderControl;
        } else {
            return std::nullopt;
        }
        accelerator.remove_prefix(close + 1);
    }
    if (accelerator.empty()) return std::nullopt;
    const std::string keyName(accelerator);
    xkb_keysym_t keysym = xkb_keysym_from_name(keyName.c_str(), XKB_KEYSYM_NO_FLAGS);
    if (keysym == XKB_KEY_NoSymbol) keysym = xkb_keysym_from_name(keyName.c_str(), XKB_KEYSYM_CASE_INSENSITIVE);
    if (keysym == XKB_KEY_NoSymbol) return std::nullopt;
    const std::optional<KeyCode> code = virtualKeyCodeForKeysym(keysym);
    if (!code) return std::nullopt;
    return SymbolicHotKey{true, static_cast<ShortcutKeyCode>(*code), modifiers};
}

std::vector<SymbolicHotKey> parseXfceShortcuts(std::string_view listing) {
    std::map<std::string, std::string, std::less<>> properties;
    while (!listing.empty()) {
        const std::size_t end = listing.find('\n');
        const std::string_view line = listing.substr(0, end);
        listing.remove_prefix(end == std::string_view::npos ? listing.size() : end + 1);
        if (line.empty() || line.front() != '/') continue;
        const std::size_t gap = line.find_first_of(" \t");
        properties.emplace(std::string(line.substr(0, gap)),
                           gap == std::string_view::npos ? std::string() : std::string(trim(line.substr(gap))));
    }
    std::vector<SymbolicHotKey> hotKeys;
    for (std::string_view provider : {"/commands/", "/xfwm4/"}) {
        const std::string prefix(provider);
        const auto override = properties.find(prefix + "custom/override");
        const bool custom = override != properties.end() && override->second == "true";
        const std::string base = prefix + (custom ? "custom/" : "default/");
        for (auto it = properties.lower_bound(base); it != properties.end() && it->first.starts_with(base); ++it) {
            const std::string_view accelerator = std::string_view(it->first).substr(base.size());
            // "override" and the entries' own settings ("<Alt>F2/startup-notify").
            if (accelerator == "override" || accelerator.find('/') != std::string_view::npos) continue;
            std::optional<SymbolicHotKey> hotKey = symbolicHotKeyForAccelerator(accelerator);
            if (!hotKey) continue;
            if (provider == "/xfwm4/" && isMoveResizeAction(it->second)) hotKey->enabled = false;
            hotKeys.push_back(*hotKey);
        }
    }
    return hotKeys;
}

X11SymbolicHotKeys::Options X11SymbolicHotKeys::defaultOptions() {
    Options options;
    const char* desktop = std::getenv("XDG_CURRENT_DESKTOP");
    options.readXfceList = desktop && lower(desktop).find("xfce") != std::string::npos;
    return options;
}

X11SymbolicHotKeys::X11SymbolicHotKeys(std::shared_ptr<X11Keyboard> keyboard, Options options)
    : keyboard_(std::move(keyboard)), options_(std::move(options)) {}

std::optional<std::vector<SymbolicHotKey>> X11SymbolicHotKeys::copySymbolicHotKeys() {
    if (!options_.readXfceList) return std::vector<SymbolicHotKey>{};
    const thunar::ProcessResult result =
        thunar::runProcess({options_.xfconfQuery, "-c", "xfce4-keyboard-shortcuts", "-l", "-v"}, options_.timeout);
    if (!result.started) return std::vector<SymbolicHotKey>{};  // no xfconf: no list to read
    if (result.timedOut || result.exitCode != 0) {
        log::inDomain(log::Warn, kLog,
                      "cannot read Xfce's keyboard shortcuts (%s): every combination counts "
                      "as taken",
                      result.timedOut ? "no answer" : result.output.c_str());
        return std::nullopt;
    }
    return parseXfceShortcuts(result.output);
}

bool X11SymbolicHotKeys::isHeldByAnotherProgram(ShortcutKeyCode keyCode, std::uint32_t recorderFlags) {
    if (!keyboard_ || keyCode < 0) return false;
    bool held = false;
    keyboard_->withCurrent([&](const X11Keyboard::Current& current) {
        if (!current.keys || xcb_connection_has_error(current.connection)) return;
        const std::optional<std::uint16_t> state =
            current.keys->stateForFlags(modifiersFromRecorderFlags(recorderFlags));
        if (!state) return;
        for (xkb_keycode_t key : current.keys->keycodes(static_cast<KeyCode>(keyCode), current.group)) {
            for (std::uint16_t lock : current.keys->lockVariants()) {
                const auto modifiers = static_cast<std::uint16_t>(*state | lock);
                xcb_generic_error_t* error = xcb_request_check(
                    current.connection,
                    xcb_grab_key_checked(current.connection, 1, current.root, modifiers,
                                         static_cast<xcb_keycode_t>(key), XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC));
                if (error) {
                    held = held || error->error_code == XCB_ACCESS;
                    std::free(error);
                } else {
                    xcb_ungrab_key(current.connection, static_cast<xcb_keycode_t>(key), current.root, modifiers);
                }
            }
        }
        xcb_flush(current.connection);
    });
    return held;
}

std::string X11SymbolicHotKeys::settingsName() const {
    return options_.readXfceList ? "the Keyboard and Window Manager panels of the Xfce Settings Manager" : "";
}

}  // namespace jorvane::x11
