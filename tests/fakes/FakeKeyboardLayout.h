#pragma once

// A keyboard layout for tests: the US layout by default (Shift gives the upper case and the digit row's
// symbols), with keys that can be changed or made to type nothing, and a switch for "no layout at all".
// Install it with ScopedKeyboardLayout.

#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "keys/VirtualKeyCodes.h"
#include "shortcut/KeyboardLayout.h"

namespace jorvane::test {

class FakeKeyboardLayout final : public KeyboardLayout {
public:
    struct Key {
        std::string plain, shifted;
        std::string option;  // with Option (Alt), when it types something else
    };

    FakeKeyboardLayout() {
        constexpr std::string_view digits = "1234567890", shiftedDigits = "!@#$%^&*()";
        for (const VirtualKey& key : virtualKeyTable()) {
            if (key.kind == VirtualKeyKind::Modifier) keys_[key.code] = Key{};
            if (key.kind == VirtualKeyKind::Modifier || !key.usCharacter) continue;
            Key entry{utf8(key.usCharacter), utf8(key.usCharacter), ""};
            const auto digit = digits.find(static_cast<char>(key.usCharacter));
            if (key.usCharacter >= U'a' && key.usCharacter <= U'z')
                entry.shifted = utf8(key.usCharacter - U'a' + U'A');
            else if (key.kind == VirtualKeyKind::Character && digit != std::string_view::npos)
                entry.shifted = std::string(1, shiftedDigits[digit]);
            keys_[key.code] = entry;
        }
    }

    bool hasLayout() const override { return hasLayout_; }
    std::optional<std::string> characterForKeyCode(KeyCode code, Modifiers flags) const override {
        const auto found = keys_.find(code);
        if (found == keys_.end()) return std::nullopt;
        if ((flags & kModifierOption) && !found->second.option.empty()) return found->second.option;
        return flags & kModifierShift ? found->second.shifted : found->second.plain;
    }

    // ---- test side
    void setHasLayout(bool has) { hasLayout_ = has; }
    void setKey(KeyCode code, Key key) { keys_[code] = std::move(key); }

private:
    static std::string utf8(char32_t c) {
        if (c < 0x80) return std::string(1, static_cast<char>(c));
        if (c < 0x800) return {static_cast<char>(0xC0 | (c >> 6)), static_cast<char>(0x80 | (c & 0x3F))};
        return {static_cast<char>(0xE0 | (c >> 12)), static_cast<char>(0x80 | ((c >> 6) & 0x3F)),
                static_cast<char>(0x80 | (c & 0x3F))};
    }

    bool hasLayout_ = true;
    std::map<KeyCode, Key> keys_;
};

// Installs a fake layout as the current one for the object's lifetime.
class ScopedKeyboardLayout {
public:
    ScopedKeyboardLayout() { setCurrentKeyboardLayout(layout_); }
    ~ScopedKeyboardLayout() { setCurrentKeyboardLayout(nullptr); }
    ScopedKeyboardLayout(const ScopedKeyboardLayout&) = delete;
    ScopedKeyboardLayout& operator=(const ScopedKeyboardLayout&) = delete;
    FakeKeyboardLayout& layout() { return *layout_; }

private:
    std::shared_ptr<FakeKeyboardLayout> layout_ = std::make_shared<FakeKeyboardLayout>();
};

}  // namespace jorvane::test
