#include "shortcut/Localization.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace jorvane {
namespace {

using Entry = std::pair<std::string_view, std::string_view>;

// clang-format off
constexpr Entry kHotkeyRecorder[] = {
    // Modifiers, readable form.
    {"Command + ", "Ctrl + "},
    {"Option + ", "Alt + "},
    {"Control + ", "Super + "},
    {"Shift + ", "Shift + "},
    // Modifiers, glyph form.
    {"\u2303", "Super+"},  // ⌃ Control
    {"\u2325", "Alt+"},    // ⌥ Option
    {"\u21E7", "Shift+"},  // ⇧ Shift
    {"\u2318", "Ctrl+"},   // ⌘ Command
    // Keys that a Mac keyboard marks with a symbol.
    {"\u232B", "Backspace"},  // ⌫
    {"\u2326", "Delete"},     // ⌦
    {"\u2327", "Num Lock"},   // ⌧ keypad Clear
    {"\u2190", "Left"},
    {"\u2192", "Right"},
    {"\u2191", "Up"},
    {"\u2193", "Down"},
    {"\u2198", "End"},        // ↘
    {"\u2196", "Home"},       // ↖
    {"\u238B", "Esc"},        // ⎋
    {"\u21DF", "Page Down"},  // ⇟
    {"\u21DE", "Page Up"},    // ⇞
    {"\u21A9", "Enter"},      // ↩ Return
    {"\u2305", "Pad Enter"},  // ⌅ keypad Enter
    {"\u21E5", "Tab"},        // ⇥
    {"?", "Insert"},          // the Help key
    {"Space", "Space"},
    {"Pad %@", "Pad %@"},
    // The recorder.
    {"Click to record shortcut", "Click to record shortcut"},
    {"Type shortcut", "Type shortcut"},
    {"Use old shortcut", "Use old shortcut"},
    // The validator.
    {"The key combination %@ can't be used!", "The key combination %@ can't be used!"},
    {"The key combination \"%@\" can't be used because %@.", "The key combination \"%@\" can't be used because %@."},
    {"The key combination \"%@\" can't be used because it's already used by a system-wide keyboard shortcut. "
     "(If you really want to use this key combination, most shortcuts can be changed in the Keyboard & Mouse "
     "panel in System Preferences.)",
     "The key combination \"%@\" can't be used because it's already used by a system-wide keyboard shortcut. "
     "(If you really want to use this key combination, most shortcuts can be changed in %@.)"},
    {"The key combination \"%@\" can't be used because it's already used by the menu item \"%@\".",
     "The key combination \"%@\" can't be used because it's already used by the menu item \"%@\"."},
};
// clang-format on

}  // namespace

std::string localizedString(std::string_view key, std::string_view table) {
    if (table == kHotkeyRecorderTable) {
        const auto found = std::find_if(std::begin(kHotkeyRecorder), std::end(kHotkeyRecorder),
                                        [&](const Entry& entry) { return entry.first == key; });
        if (found != std::end(kHotkeyRecorder)) return std::string(found->second);
    }
    return std::string(key);
}

std::string stringWithFormat(std::string_view format, std::initializer_list<std::string_view> arguments) {
    std::string out;
    out.reserve(format.size() + 32);
    auto next = arguments.begin();
    for (std::size_t at = 0; at < format.size(); ++at) {
        if (format[at] == '%' && at + 1 < format.size()) {
            if (format[at + 1] == '@') {
                if (next != arguments.end()) out.append(*next++);
                ++at;
                continue;
            }
            if (format[at + 1] == '%') {
                out.push_back('%');
                ++at;
                continue;
            }
        }
        out.push_back(format[at]);
    }
    return out;
}

}  // namespace jorvane
