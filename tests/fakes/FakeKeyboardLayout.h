#pragma once

// A keyboard layout for tests: the US layout by default (every key types its
// US character; Shift gives the upper case and the US symbols of the digit
// row), with keys that can be changed, removed or made to type nothing, and
// a switch for "no layout at all". Install it with ScopedKeyboardLayout.

#include <map>
#include <memory>
#include <string>

#include "shortcut/KeyboardLayout.h"

namespace jorvane::test {

class FakeKeyboardLayout final : public KeyboardLayout {
public:
    struct Key {
        std::string plain;
        std::string shifted;
        std::string option;  // with Option (Alt), when it types something else
    };

    FakeKeyboardLayout();

    bool hasLayout() const override { return hasLayout_; }
    std::optional<std::string> characterForKeyCode(KeyCode code, Modifiers flags) const override;

    // ---- test side
    void setHasLayout(bool has) { hasLayout_ = has; }
    void setKey(KeyCode code, Key key) { keys_[code] = std::move(key); }

private:
    bool hasLayout_ = true;
    std::map<KeyCode, Key> keys_;
};

// Installs a fake layout as the current one for the object's lifetime.
class ScopedKeyboardLayout {
public:
    ScopedKeyboardLayout() : layout_(std::make_shared<FakeKeyboardLayout>()) { setCurrentKeyboardLayout(layout_); }
    ~ScopedKeyboardLayout() { setCurrentKeyboardLayout(nullptr); }
    ScopedKeyboardLayout(const ScopedKeyboardLayout&) = delete;
    ScopedKeyboardLayout& operator=(const ScopedKeyboardLayout&) = delete;

    FakeKeyboardLayout& layout() { return *layout_; }

private:
    std::shared_ptr<FakeKeyboardLayout> layout_;
};

}  // namespace jorvane::test
