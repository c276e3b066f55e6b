#include "shortcut/ShortcutValidator.h"

#include <utf8proc.h>

#include "shortcut/Localization.h"
#include "shortcut/SymbolicHotKeys.h"

namespace jorvane {
namespace {

constexpr std::string_view kCantBeUsed = "The key combination %@ can't be used!";
constexpr std::string_view kBecause = "The key combination \"%@\" can't be used because %@.";
constexpr std::string_view kUsedBySystem =
    "The key combination \"%@\" can't be used because it's already used by a system-wide keyboard shortcut. "
    "(If you really want to use this key combination, most shortcuts can be changed in the Keyboard & Mouse "
    "panel in System Preferences.)";
constexpr std::string_view kUsedByMenuItem =
    "The key combination \"%@\" can't be used because it's already used by the menu item \"%@\".";
// Used as written, like "OK".
constexpr std::string_view kAlreadyUsed = "it's already used";
// Where the shortcuts are changed when the desktop does not say.
constexpr std::string_view kDesktopSettings = "your desktop's keyboard settings";

std::string localized(std::string_view key) { return localizedString(key, kHotkeyRecorderTable); }

void fill(ShortcutConflict* error, std::uint32_t recorderFlags, ShortcutKeyCode keyCode, std::string suggestion) {
    if (!error) return;
    *error = ShortcutConflict{};
    error->localizedDescription =
        stringWithFormat(localized(kCantBeUsed), {recorderComboGlyphs(recorderFlags, keyCode)});
    error->localizedRecoverySuggestion = std::move(suggestion);
    error->localizedRecoveryOptions = {"OK"};
}

constexpr std::uint32_t kComparedRecorderBits = kRecorderCommand | kRecorderOption | kRecorderShift | kRecorderControl;

bool sameModifiers(Modifiers modifiers, std::uint32_t recorderBits) {
    return ((modifiers & kModifierCommand) != 0) == ((recorderBits & kRecorderCommand) != 0) &&
           ((modifiers & kModifierOption) != 0) == ((recorderBits & kRecorderOption) != 0) &&
           ((modifiers & kModifierShift) != 0) == ((recorderBits & kRecorderShift) != 0) &&
           ((modifiers & kModifierControl) != 0) == ((recorderBits & kRecorderControl) != 0);
}

std::string upperCase(const std::string& text) {
    std::string out;
    const auto* bytes = reinterpret_cast<const utf8proc_uint8_t*>(text.data());
    for (std::size_t at = 0; at < text.size();) {
        utf8proc_int32_t codePoint = 0;
        const utf8proc_ssize_t length =
            utf8proc_iterate(bytes + at, static_cast<utf8proc_ssize_t>(text.size() - at), &codePoint);
        if (length <= 0) {
            out.push_back(text[at++]);
            continue;
        }
        utf8proc_uint8_t encoded[4];
        const utf8proc_ssize_t written = utf8proc_encode_char(utf8proc_toupper(codePoint), encoded);
        out.append(reinterpret_cast<const char*>(encoded), static_cast<std::size_t>(written));
        at += static_cast<std::size_t>(length);
    }
    return out;
}

ShortcutMenuItem item(std::string title, std::string key, Modifiers mask = kModifierCommand) {
    return ShortcutMenuItem{std::move(title), std::move(key), mask, {}};
}

}  // namespace

const ShortcutMenu& standardShortcuts() {
    // The text-editing entries of the bar's context menu with their standard
    // keys on Linux desktops (Ctrl is the Command bit).
    static const ShortcutMenu menu = {
        item("Undo", "z"),  item("Redo", "z", kModifierCommand | kModifierShift),
        item("Cut", "x"),   item("Copy", "c"),
        item("Paste", "v"), item("Select All", "a"),
    };
    return menu;
}

bool ShortcutValidator::isKeyCodeAndFlagsTaken(ShortcutKeyCode keyCode, std::uint32_t recorderFlags,
                                               ShortcutConflict* error) {
    if (delegate_) {
        std::string reason;
        if (delegate_->hotkeyValidatorIsKeyCodeAndFlagsTaken(*this, keyCode, modifiersFromRecorderFlags(recorderFlags),
                                                             reason)) {
            if (error) {
                fill(error, recorderFlags, keyCode,
                     stringWithFormat(localized(kBecause), {recorderComboText(recorderFlags, keyCode),
                                                            reason.empty() ? kAlreadyUsed : reason}));
            }
            return true;
        }
    }

    const std::shared_ptr<SymbolicHotKeys> system = systemSymbolicHotKeys();
    if (system) {
        const std::optional<std::vector<SymbolicHotKey>> hotKeys = system->copySymbolicHotKeys();
        if (!hotKeys) return true;  // an unreadable list: everything counts as taken
        auto refuse = [&] {
            if (error) {
                std::string place = system->settingsName();
                if (place.empty()) place = kDesktopSettings;
                fill(error, recorderFlags, keyCode,
                     stringWithFormat(localized(kUsedBySystem), {recorderComboText(recorderFlags, keyCode), place}));
            }
            return true;
        };
        for (const SymbolicHotKey& hotKey : *hotKeys) {
            if (!hotKey.enabled) continue;
            // A key without a name is refused as soon as the desktop has any
            // shortcut at all.
            const std::optional<std::string> name = shortcutKeyName(keyCode);
            if (!name || name->empty()) return true;
            const auto theirs = static_cast<std::uint32_t>(hotKey.modifiers);
            if (hotKey.keyCode == keyCode &&
                (theirs & kComparedRecorderBits) == (recorderFlags & kComparedRecorderBits)) {
                return refuse();
            }
        }
        if (system->isHeldByAnotherProgram(keyCode, recorderFlags)) return refuse();
    }

    return isKeyCodeAndFlagsTakenInMenu(keyCode, recorderFlags, standardShortcuts(), error);
}

bool ShortcutValidator::isKeyCodeAndFlagsTakenInMenu(ShortcutKeyCode keyCode, std::uint32_t recorderFlags,
                                                     const ShortcutMenu& menu, ShortcutConflict* error) {
    for (const ShortcutMenuItem& entry : menu) {
        if (!entry.submenu.empty() && isKeyCodeAndFlagsTakenInMenu(keyCode, recorderFlags, entry.submenu, error)) {
            return true;
        }
        if (entry.keyEquivalent.empty()) continue;
        const std::optional<std::string> name = shortcutKeyName(keyCode);
        if (!name || upperCase(entry.keyEquivalent) != *name) continue;
        if (!sameModifiers(entry.keyEquivalentModifierMask, recorderFlags)) continue;
        if (error) {
            fill(error, recorderFlags, keyCode,
                 stringWithFormat(localized(kUsedByMenuItem),
                                  {comboText(entry.keyEquivalentModifierMask, keyCode), entry.title}));
        }
        return true;
    }
    return false;
}

}  // namespace jorvane
