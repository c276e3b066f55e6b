#include "fakes/FakeKeyboardLayout.h"

#include <string_view>

#include "keys/VirtualKeyCodes.h"

namespace jorvane::test {

namespace {

std::string utf8(char32_t c) {
    std::string out;
    if (c < 0x80) {
        out.push_back(static_cast<char>(c));
    } else if (c < 0x800) {
        out.push_back(static_cast<char>(0xC0 | (c >> 6)));
        out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
    } else {
        out.push_back(static_cast<char>(0xE0 | (c >> 12)));
        out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
    }
    return out;
}

}  // namespace

FakeKeyboardLayout::FakeKeyboardLayout() {
    constexpr std::string_view digits = "1234567890", shiftedDigits = "!@#$%^&*()";
    for (const VirtualKey& key : virtualKeyTable()) {
        if (key.kind == VirtualKeyKind::Modifier) {
            keys_[key.code] = Key{"", "", ""};
            continue;
        }
        if (!key.usCharacter) continue;
        Key entry{utf8(key.usCharacter), utf8(key.usCharacter), ""};
        if (key.usCharacter >= U'a' && key.usCharacter <= U'z') {
            entry.shifted = utf8(key.usCharacter - U'a' + U'A');
        } else if (key.kind == VirtualKeyKind::Character) {
            if (const auto at = digits.find(static_cast<char>(key.usCharacter)); at != std::string_view::npos) {
                entry.shifted = std::string(1, shiftedDigits[at]);
            }
        }
        keys_[key.code] = entry;
    }
}

std::optional<std::string> FakeKeyboardLayout::characterForKeyCode(KeyCode code, Modifiers flags) const {
    const auto found = keys_.find(code);
    if (found == keys_.end()) return std::nullopt;
    if ((flags & kModifierOption) && !found->second.option.empty()) return found->second.option;
    if (flags & kModifierShift) return found->second.shifted;
    return found->second.plain;
}

}  // namespace jorvane::test
