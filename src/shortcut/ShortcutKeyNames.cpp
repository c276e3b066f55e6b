#include "shortcut/ShortcutKeyNames.h"

#include <utf8proc.h>

#include <algorithm>
#include <array>
#include <iterator>
#include <map>

#include "shortcut/KeyboardLayout.h"
#include "shortcut/Localization.h"

namespace jorvane {
namespace {

std::string localized(std::string_view key) { return localizedString(key, kHotkeyRecorderTable); }

// Keys named without asking the layout. The symbols are the Mac keyboard's;
// the table turns them into PC key names.
const std::map<ShortcutKeyCode, std::string>& specialKeyNames() {
    static const std::map<ShortcutKeyCode, std::string> names = [] {
        std::map<ShortcutKeyCode, std::string> table;
        constexpr ShortcutKeyCode functionKeys[] = {122, 120, 99,  118, 96,  97,  98, 100, 101, 109,
                                                    103, 111, 105, 107, 113, 106, 64, 79,  80};
        for (std::size_t index = 0; index < std::size(functionKeys); ++index) {
            table[functionKeys[index]] = "F" + std::to_string(index + 1);
        }
        const std::pair<ShortcutKeyCode, std::string_view> symbols[] = {
            {49, "Space"},   {51, "\u232B"},  {117, "\u2326"}, {71, "\u2327"},  {123, "\u2190"}, {124, "\u2192"},
            {126, "\u2191"}, {125, "\u2193"}, {119, "\u2198"}, {115, "\u2196"}, {53, "\u238B"},  {121, "\u21DF"},
            {116, "\u21DE"}, {36, "\u21A9"},  {76, "\u2305"},  {48, "\u21E5"},  {114, "?"},
        };
        for (const auto& [code, symbol] : symbols) table[code] = localized(symbol);
        return table;
    }();
    return names;
}

constexpr std::array<ShortcutKeyCode, 16> kNumericPadKeys = {65, 67, 69, 75, 78, 81, 82, 83,
                                                             84, 85, 86, 87, 88, 89, 91, 92};

std::string encode(utf8proc_int32_t codePoint) {
    utf8proc_uint8_t bytes[4];
    const utf8proc_ssize_t length = utf8proc_encode_char(codePoint, bytes);
    return std::string(reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(length));
}

// The first character of `text` mapped by `map`; "" for an empty text, and
// the text as it is when it does not start with valid UTF-8.
std::string mapFirstCharacter(const std::string& text, utf8proc_int32_t (*map)(utf8proc_int32_t)) {
    if (text.empty()) return {};
    utf8proc_int32_t codePoint = 0;
    const utf8proc_ssize_t length = utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t*>(text.data()),
                                                     static_cast<utf8proc_ssize_t>(text.size()), &codePoint);
    if (length <= 0) return text.substr(0, 1);
    return encode(map(codePoint));
}

struct Glyphs {
    std::uint32_t recorderBits;
    std::string_view glyph;
    std::string_view readable;
};
// In glyph order: Control, Option, Shift, Command.
constexpr Glyphs kModifiers[] = {
    {kRecorderControl, "\u2303", "Control + "},
    {kRecorderOption, "\u2325", "Option + "},
    {kRecorderShift, "\u21E7", "Shift + "},
    {kRecorderCommand, "\u2318", "Command + "},
};
// Readable order: Command, Option, Control, Shift.
constexpr std::uint32_t kReadableOrder[] = {kRecorderCommand, kRecorderOption, kRecorderControl, kRecorderShift};

}  // namespace

std::optional<std::string> ShortcutKeyNames::transformedValue(std::int64_t value) const {
    const auto code = static_cast<ShortcutKeyCode>(static_cast<std::uint16_t>(value));
    if (code < 0) return std::nullopt;
    const auto& special = specialKeyNames();
    if (auto found = special.find(code); found != special.end()) return found->second;

    const bool numericPad = std::find(kNumericPadKeys.begin(), kNumericPadKeys.end(), code) != kNumericPadKeys.end();
    const std::shared_ptr<const KeyboardLayout> layout = currentKeyboardLayout();
    if (!layout || !layout->hasLayout()) return std::string("???");
    const std::optional<std::string> typed = layout->characterForKeyCode(static_cast<KeyCode>(code), 0);
    if (!typed) return std::nullopt;
    std::string name = mapFirstCharacter(*typed, utf8proc_toupper);
    if (numericPad) return stringWithFormat(localized("Pad %@"), {name});
    return name;
}

std::optional<ShortcutKeyCode> ShortcutKeyNames::reverseTransformedValue(std::string_view name) const {
    for (ShortcutKeyCode code = 0; code <= 127; ++code) {
        const std::optional<std::string> candidate = transformedValue(code);
        if (candidate && !candidate->empty() && *candidate == name) return code;
    }
    return std::nullopt;
}

std::optional<std::string> shortcutKeyName(ShortcutKeyCode keyCode) {
    return ShortcutKeyNames().transformedValue(keyCode);
}

std::string recorderModifierGlyphs(std::uint32_t recorderFlags) {
    std::string out;
    for (const Glyphs& modifier : kModifiers) {
        if (recorderFlags & modifier.recorderBits) out += localized(modifier.glyph);
    }
    return out;
}

std::string modifierGlyphs(Modifiers modifiers) {
    return recorderModifierGlyphs(recorderFlagsFromModifiers(modifiers));
}

std::string recorderComboGlyphs(std::uint32_t recorderFlags, ShortcutKeyCode keyCode) {
    return recorderModifierGlyphs(recorderFlags) + shortcutKeyName(keyCode).value_or("");
}

std::string comboGlyphs(Modifiers modifiers, ShortcutKeyCode keyCode) {
    return modifierGlyphs(modifiers) + shortcutKeyName(keyCode).value_or("");
}

std::string recorderComboText(std::uint32_t recorderFlags, ShortcutKeyCode keyCode) {
    std::string out;
    for (std::uint32_t bit : kReadableOrder) {
        if (!(recorderFlags & bit)) continue;
        const auto modifier = std::find_if(std::begin(kModifiers), std::end(kModifiers),
                                           [bit](const Glyphs& entry) { return entry.recorderBits == bit; });
        out += localized(modifier->readable);
    }
    return out + shortcutKeyName(keyCode).value_or("");
}

std::string comboText(Modifiers modifiers, ShortcutKeyCode keyCode) {
    return recorderComboText(recorderFlagsFromModifiers(modifiers), keyCode);
}

Modifiers modifiersFromRecorderFlags(std::uint32_t recorderFlags) {
    Modifiers modifiers = 0;
    if (recorderFlags & kRecorderCommand) modifiers |= kModifierCommand;
    if (recorderFlags & kRecorderOption) modifiers |= kModifierOption;
    if (recorderFlags & kRecorderControl) modifiers |= kModifierControl;
    if (recorderFlags & kRecorderShift) modifiers |= kModifierShift;
    if (recorderFlags & kShortcutFunctionKeyMask) modifiers |= kModifierFunction;
    return modifiers;
}

std::uint32_t recorderFlagsFromModifiers(Modifiers modifiers) {
    std::uint32_t recorderBits = 0;
    if (modifiers & kModifierCommand) recorderBits |= kRecorderCommand;
    if (modifiers & kModifierOption) recorderBits |= kRecorderOption;
    if (modifiers & kModifierControl) recorderBits |= kRecorderControl;
    if (modifiers & kModifierShift) recorderBits |= kRecorderShift;
    if (modifiers & kModifierFunction) recorderBits |= kShortcutFunctionKeyMask;
    return recorderBits;
}

std::optional<std::string> characterForCombo(ShortcutKeyCode keyCode, Modifiers modifiers) {
    const std::shared_ptr<const KeyboardLayout> layout = currentKeyboardLayout();
    if (!layout || !layout->hasLayout() || keyCode < 0) return shortcutKeyName(keyCode);
    const std::optional<std::string> typed =
        layout->characterForKeyCode(static_cast<KeyCode>(keyCode), modifiers & (kModifierShift | kModifierOption));
    if (!typed) return shortcutKeyName(keyCode);
    return mapFirstCharacter(*typed, utf8proc_totitle);
}

}  // namespace jorvane
