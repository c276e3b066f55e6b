#include "shortcutrecorder/HKKeyCodeTransformer.h"

#include <utf8proc.h>

#include <algorithm>
#include <array>
#include <iterator>
#include <map>

#include "shortcutrecorder/KeyboardLayout.h"
#include "shortcutrecorder/Localization.h"

namespace jorvane {
namespace {

std::string localized(std::string_view key) { return localizedString(key, kHotkeyRecorderTable); }

// Keys named without asking the layout. The symbols are the Mac keyboard's;
// the table turns them into PC key names.
const std::map<HKKeyCode, std::string>& specialKeyNames() {
    static const std::map<HKKeyCode, std::string> names = [] {
        std::map<HKKeyCode, std::string> table;
        constexpr HKKeyCode functionKeys[] = {122, 120, 99, 118, 96, 97, 98, 100, 101, 109,
                                              103, 111, 105, 107, 113, 106, 64, 79, 80};
        for (std::size_t index = 0; index < std::size(functionKeys); ++index) {
            table[functionKeys[index]] = "F" + std::to_string(index + 1);
        }
        const std::pair<HKKeyCode, std::string_view> symbols[] = {
            {49, "Space"},        {51, "\u232B"},  {117, "\u2326"}, {71, "\u2327"}, {123, "\u2190"},
            {124, "\u2192"},      {126, "\u2191"}, {125, "\u2193"}, {119, "\u2198"}, {115, "\u2196"},
            {53, "\u238B"},       {121, "\u21DF"}, {116, "\u21DE"}, {36, "\u21A9"}, {76, "\u2305"},
            {48, "\u21E5"},       {114, "?"},
        };
        for (const auto& [code, symbol] : symbols) table[code] = localized(symbol);
        return table;
    }();
    return names;
}

constexpr std::array<HKKeyCode, 16> kNumericPadKeys = {65, 67, 69, 75, 78, 81, 82, 83,
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
    const utf8proc_ssize_t length =
        utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t*>(text.data()),
                         static_cast<utf8proc_ssize_t>(text.size()), &codePoint);
    if (length <= 0) return text.substr(0, 1);
    return encode(map(codePoint));
}

struct Glyphs {
    std::uint32_t carbon;
    std::string_view glyph;
    std::string_view readable;
};
// In glyph order: Control, Option, Shift, Command.
constexpr Glyphs kModifiers[] = {
    {controlKey, "\u2303", "Control + "},
    {optionKey, "\u2325", "Option + "},
    {shiftKey, "\u21E7", "Shift + "},
    {cmdKey, "\u2318", "Command + "},
};
// Readable order: Command, Option, Control, Shift.
constexpr std::uint32_t kReadableOrder[] = {cmdKey, optionKey, controlKey, shiftKey};

}  // namespace

std::optional<std::string> HKKeyCodeTransformer::transformedValue(std::int64_t value) const {
    const auto code = static_cast<HKKeyCode>(static_cast<std::uint16_t>(value));
    if (code < 0) return std::nullopt;
    const auto& special = specialKeyNames();
    if (auto found = special.find(code); found != special.end()) return found->second;

    const bool numericPad = std::find(kNumericPadKeys.begin(), kNumericPadKeys.end(), code) != kNumericPadKeys.end();
    const std::shared_ptr<const KeyboardLayout> layout = currentKeyboardLayout();
    if (!layout || !layout->hasLayout()) return std::string("???");
    const std::optional<std::string> typed = layout->characterForKeyCode(static_cast<CGKeyCode>(code), 0);
    if (!typed) return std::nullopt;
    std::string name = mapFirstCharacter(*typed, utf8proc_toupper);
    if (numericPad) return stringWithFormat(localized("Pad %@"), {name});
    return name;
}

std::optional<HKKeyCode> HKKeyCodeTransformer::reverseTransformedValue(std::string_view name) const {
    for (HKKeyCode code = 0; code <= 127; ++code) {
        const std::optional<std::string> candidate = transformedValue(code);
        if (candidate && !candidate->empty() && *candidate == name) return code;
    }
    return std::nullopt;
}

std::optional<std::string> HKKeyCodeName(HKKeyCode keyCode) { return HKKeyCodeTransformer().transformedValue(keyCode); }

std::string HKCarbonModifierGlyphs(std::uint32_t carbonFlags) {
    std::string out;
    for (const Glyphs& modifier : kModifiers) {
        if (carbonFlags & modifier.carbon) out += localized(modifier.glyph);
    }
    return out;
}

std::string HKCocoaModifierGlyphs(CGEventFlags cocoaFlags) {
    return HKCarbonModifierGlyphs(HKCocoaToCarbonModifiers(cocoaFlags));
}

std::string HKCarbonComboGlyphs(std::uint32_t carbonFlags, HKKeyCode keyCode) {
    return HKCarbonModifierGlyphs(carbonFlags) + HKKeyCodeName(keyCode).value_or("");
}

std::string HKCocoaComboGlyphs(CGEventFlags cocoaFlags, HKKeyCode keyCode) {
    return HKCocoaModifierGlyphs(cocoaFlags) + HKKeyCodeName(keyCode).value_or("");
}

std::string HKCarbonComboReadable(std::uint32_t carbonFlags, HKKeyCode keyCode) {
    std::string out;
    for (std::uint32_t bit : kReadableOrder) {
        if (!(carbonFlags & bit)) continue;
        const auto modifier = std::find_if(std::begin(kModifiers), std::end(kModifiers),
                                           [bit](const Glyphs& entry) { return entry.carbon == bit; });
        out += localized(modifier->readable);
    }
    return out + HKKeyCodeName(keyCode).value_or("");
}

std::string HKCocoaComboReadable(CGEventFlags cocoaFlags, HKKeyCode keyCode) {
    return HKCarbonComboReadable(HKCocoaToCarbonModifiers(cocoaFlags), keyCode);
}

CGEventFlags HKCarbonToCocoaModifiers(std::uint32_t carbonFlags) {
    CGEventFlags cocoa = 0;
    if (carbonFlags & cmdKey) cocoa |= kCGEventFlagMaskCommand;
    if (carbonFlags & optionKey) cocoa |= kCGEventFlagMaskAlternate;
    if (carbonFlags & controlKey) cocoa |= kCGEventFlagMaskControl;
    if (carbonFlags & shiftKey) cocoa |= kCGEventFlagMaskShift;
    if (carbonFlags & kHKFunctionKeyMask) cocoa |= kCGEventFlagMaskSecondaryFn;
    return cocoa;
}

std::uint32_t HKCocoaToCarbonModifiers(CGEventFlags cocoaFlags) {
    std::uint32_t carbon = 0;
    if (cocoaFlags & kCGEventFlagMaskCommand) carbon |= cmdKey;
    if (cocoaFlags & kCGEventFlagMaskAlternate) carbon |= optionKey;
    if (cocoaFlags & kCGEventFlagMaskControl) carbon |= controlKey;
    if (cocoaFlags & kCGEventFlagMaskShift) carbon |= shiftKey;
    if (cocoaFlags & kCGEventFlagMaskSecondaryFn) carbon |= kHKFunctionKeyMask;
    return carbon;
}

std::optional<std::string> HKCharacterForCocoaCombo(HKKeyCode keyCode, CGEventFlags cocoaFlags) {
    const std::shared_ptr<const KeyboardLayout> layout = currentKeyboardLayout();
    if (!layout || !layout->hasLayout() || keyCode < 0) return HKKeyCodeName(keyCode);
    const std::optional<std::string> typed = layout->characterForKeyCode(
        static_cast<CGKeyCode>(keyCode), cocoaFlags & (kCGEventFlagMaskShift | kCGEventFlagMaskAlternate));
    if (!typed) return HKKeyCodeName(keyCode);
    return mapFirstCharacter(*typed, utf8proc_totitle);
}

std::optional<std::string> HKCharacterForCarbonCombo(HKKeyCode keyCode, std::uint32_t carbonFlags) {
    return HKCharacterForCocoaCombo(keyCode, HKCarbonToCocoaModifiers(carbonFlags));
}

}  // namespace jorvane
