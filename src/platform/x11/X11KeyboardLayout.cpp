#include "platform/x11/X11KeyboardLayout.h"

#include <xkbcommon/xkbcommon-keysyms.h>

#include <vector>

namespace jorvane::x11 {
namespace {

struct DeadKey {
    xkb_keysym_t keysym;
    const char* spacing;
};
// clang-format off
constexpr DeadKey kDeadKeys[] = {
    {XKB_KEY_dead_grave, "`"}, {XKB_KEY_dead_acute, "\u00b4"}, {XKB_KEY_dead_circumflex, "^"},
    {XKB_KEY_dead_tilde, "~"}, {XKB_KEY_dead_diaeresis, "\u00a8"}, {XKB_KEY_dead_cedilla, "\u00b8"},
    {XKB_KEY_dead_abovering, "\u02da"}, {XKB_KEY_dead_macron, "\u00af"}, {XKB_KEY_dead_breve, "\u02d8"},
    {XKB_KEY_dead_abovedot, "\u02d9"}, {XKB_KEY_dead_doubleacute, "\u02dd"}, {XKB_KEY_dead_caron, "\u02c7"},
    {XKB_KEY_dead_ogonek, "\u02db"},
};
// clang-format on

xkb_mod_mask_t modMask(xkb_keymap* keymap, const char* name) {
    const xkb_mod_index_t index = xkb_keymap_mod_get_index(keymap, name);
    return index == XKB_MOD_INVALID ? 0 : xkb_mod_mask_t{1} << index;
}

}  // namespace

std::optional<std::string> typedText(const X11Keys& keys, KeyCode code, Modifiers flags, std::uint32_t group) {
    const std::vector<xkb_keycode_t>& candidates = keys.keycodes(code, group);
    if (candidates.empty()) return std::nullopt;
    xkb_keymap* keymap = keys.keymap();
    xkb_state* state = xkb_state_new(keymap);
    if (!state) return std::nullopt;
    xkb_mod_mask_t depressed = 0;
    if (flags & kModifierShift) depressed |= modMask(keymap, XKB_MOD_NAME_SHIFT);
    if (flags & kModifierOption) depressed |= modMask(keymap, XKB_MOD_NAME_ALT);
    const xkb_mod_mask_t locked = modMask(keymap, XKB_MOD_NAME_NUM);
    const xkb_layout_index_t layouts = xkb_keymap_num_layouts(keymap);
    xkb_state_update_mask(state, depressed, 0, locked, 0, 0, layouts ? group % layouts : 0);

    const xkb_keycode_t key = candidates.front();
    std::string text;
    const int length = xkb_state_key_get_utf8(state, key, nullptr, 0);
    if (length > 0) {
        text.resize(static_cast<std::size_t>(length) + 1);
        xkb_state_key_get_utf8(state, key, text.data(), text.size());
        text.resize(static_cast<std::size_t>(length));
    } else {
        const xkb_keysym_t keysym = xkb_state_key_get_one_sym(state, key);
        for (const DeadKey& dead : kDeadKeys) {
            if (dead.keysym == keysym) text = dead.spacing;
        }
    }
    xkb_state_unref(state);
    return text;
}

XkbKeyboardLayout::XkbKeyboardLayout(xkb_keymap* keymap, std::uint32_t group) : group_(group) {
    if (keymap) keys_ = std::make_unique<X11Keys>(keymap, ModifierMap{});
}

std::optional<std::string> XkbKeyboardLayout::characterForKeyCode(KeyCode code, Modifiers flags) const {
    if (!keys_) return std::nullopt;
    return typedText(*keys_, code, flags, group_);
}

bool X11KeyboardLayout::hasLayout() const {
    if (!keyboard_) return false;
    bool has = false;
    keyboard_->withCurrent([&](const X11Keyboard::Current& current) { has = current.keys != nullptr; });
    return has;
}

std::optional<std::string> X11KeyboardLayout::characterForKeyCode(KeyCode code, Modifiers flags) const {
    if (!keyboard_) return std::nullopt;
    std::optional<std::string> text;
    keyboard_->withCurrent([&](const X11Keyboard::Current& current) {
        if (current.keys) text = typedText(*current.keys, code, flags, current.group);
    });
    return text;
}

}  // namespace jorvane::x11
