#include "platform/x11/X11Keys.h"

#include <algorithm>
#include <cstring>
#include <string_view>
#include <utility>

namespace jorvane::x11 {
namespace {

struct KeysymCode {
    xkb_keysym_t keysym;
    CGKeyCode code;
};

// Keys that type no character, by keysym. PC keys take the place of the Mac
// key in the same spot: Insert is Help, Num Lock is the keypad's Clear.
// clang-format off
constexpr KeysymCode kSpecialKeys[] = {
    {XKB_KEY_Return, kVK_Return}, {XKB_KEY_Tab, kVK_Tab}, {XKB_KEY_ISO_Left_Tab, kVK_Tab},
    {XKB_KEY_space, kVK_Space}, {XKB_KEY_BackSpace, kVK_Delete}, {XKB_KEY_Escape, kVK_Escape},
    {XKB_KEY_Control_L, kVK_Command}, {XKB_KEY_Control_R, kVK_RightCommand},
    {XKB_KEY_Shift_L, kVK_Shift}, {XKB_KEY_Shift_R, kVK_RightShift}, {XKB_KEY_Caps_Lock, kVK_CapsLock},
    {XKB_KEY_Alt_L, kVK_Option}, {XKB_KEY_Meta_L, kVK_Option},
    {XKB_KEY_Alt_R, kVK_RightOption}, {XKB_KEY_Meta_R, kVK_RightOption},
    {XKB_KEY_Super_L, kVK_Control}, {XKB_KEY_Super_R, kVK_RightControl},
    {XKB_KEY_F1, kVK_F1}, {XKB_KEY_F2, kVK_F2}, {XKB_KEY_F3, kVK_F3}, {XKB_KEY_F4, kVK_F4},
    {XKB_KEY_F5, kVK_F5}, {XKB_KEY_F6, kVK_F6}, {XKB_KEY_F7, kVK_F7}, {XKB_KEY_F8, kVK_F8},
    {XKB_KEY_F9, kVK_F9}, {XKB_KEY_F10, kVK_F10}, {XKB_KEY_F11, kVK_F11}, {XKB_KEY_F12, kVK_F12},
    {XKB_KEY_F13, kVK_F13}, {XKB_KEY_F14, kVK_F14}, {XKB_KEY_F15, kVK_F15}, {XKB_KEY_F16, kVK_F16},
    {XKB_KEY_F17, kVK_F17}, {XKB_KEY_F18, kVK_F18}, {XKB_KEY_F19, kVK_F19}, {XKB_KEY_F20, kVK_F20},
    {XKB_KEY_Insert, kVK_Help}, {XKB_KEY_Help, kVK_Help}, {XKB_KEY_Delete, kVK_ForwardDelete},
    {XKB_KEY_Home, kVK_Home}, {XKB_KEY_End, kVK_End}, {XKB_KEY_Prior, kVK_PageUp}, {XKB_KEY_Next, kVK_PageDown},
    {XKB_KEY_Left, kVK_LeftArrow}, {XKB_KEY_Right, kVK_RightArrow},
    {XKB_KEY_Down, kVK_DownArrow}, {XKB_KEY_Up, kVK_UpArrow},
    {XKB_KEY_Menu, kVK_ContextualMenu},
    {XKB_KEY_XF86AudioRaiseVolume, kVK_VolumeUp}, {XKB_KEY_XF86AudioLowerVolume, kVK_VolumeDown},
    {XKB_KEY_XF86AudioMute, kVK_Mute},
    // The keypad: its first level is the navigation keysym (Num Lock off).
    {XKB_KEY_Num_Lock, kVK_ANSI_KeypadClear}, {XKB_KEY_KP_Enter, kVK_ANSI_KeypadEnter},
    {XKB_KEY_KP_Equal, kVK_ANSI_KeypadEquals}, {XKB_KEY_KP_Divide, kVK_ANSI_KeypadDivide},
    {XKB_KEY_KP_Multiply, kVK_ANSI_KeypadMultiply}, {XKB_KEY_KP_Subtract, kVK_ANSI_KeypadMinus},
    {XKB_KEY_KP_Add, kVK_ANSI_KeypadPlus},
    {XKB_KEY_KP_Decimal, kVK_ANSI_KeypadDecimal}, {XKB_KEY_KP_Delete, kVK_ANSI_KeypadDecimal},
    {XKB_KEY_KP_Separator, kVK_ANSI_KeypadDecimal},
    {XKB_KEY_KP_0, kVK_ANSI_Keypad0}, {XKB_KEY_KP_Insert, kVK_ANSI_Keypad0},
    {XKB_KEY_KP_1, kVK_ANSI_Keypad1}, {XKB_KEY_KP_End, kVK_ANSI_Keypad1},
    {XKB_KEY_KP_2, kVK_ANSI_Keypad2}, {XKB_KEY_KP_Down, kVK_ANSI_Keypad2},
    {XKB_KEY_KP_3, kVK_ANSI_Keypad3}, {XKB_KEY_KP_Next, kVK_ANSI_Keypad3},
    {XKB_KEY_KP_4, kVK_ANSI_Keypad4}, {XKB_KEY_KP_Left, kVK_ANSI_Keypad4},
    {XKB_KEY_KP_5, kVK_ANSI_Keypad5}, {XKB_KEY_KP_Begin, kVK_ANSI_Keypad5},
    {XKB_KEY_KP_6, kVK_ANSI_Keypad6}, {XKB_KEY_KP_Right, kVK_ANSI_Keypad6},
    {XKB_KEY_KP_7, kVK_ANSI_Keypad7}, {XKB_KEY_KP_Home, kVK_ANSI_Keypad7},
    {XKB_KEY_KP_8, kVK_ANSI_Keypad8}, {XKB_KEY_KP_Up, kVK_ANSI_Keypad8},
    {XKB_KEY_KP_9, kVK_ANSI_Keypad9}, {XKB_KEY_KP_Prior, kVK_ANSI_Keypad9},
};

struct NameCode {
    std::string_view name;
    CGKeyCode code;
};

// Positions of the character keys by their XKB names (the evdev and base
// keycode sets agree on these).
constexpr NameCode kKeyPositions[] = {
    {"TLDE", kVK_ANSI_Grave}, {"AE01", kVK_ANSI_1}, {"AE02", kVK_ANSI_2}, {"AE03", kVK_ANSI_3},
    {"AE04", kVK_ANSI_4}, {"AE05", kVK_ANSI_5}, {"AE06", kVK_ANSI_6}, {"AE07", kVK_ANSI_7},
    {"AE08", kVK_ANSI_8}, {"AE09", kVK_ANSI_9}, {"AE10", kVK_ANSI_0}, {"AE11", kVK_ANSI_Minus},
    {"AE12", kVK_ANSI_Equal}, {"AE13", kVK_JIS_Yen},
    {"AD01", kVK_ANSI_Q}, {"AD02", kVK_ANSI_W}, {"AD03", kVK_ANSI_E}, {"AD04", kVK_ANSI_R},
    {"AD05", kVK_ANSI_T}, {"AD06", kVK_ANSI_Y}, {"AD07", kVK_ANSI_U}, {"AD08", kVK_ANSI_I},
    {"AD09", kVK_ANSI_O}, {"AD10", kVK_ANSI_P}, {"AD11", kVK_ANSI_LeftBracket}, {"AD12", kVK_ANSI_RightBracket},
    {"AC01", kVK_ANSI_A}, {"AC02", kVK_ANSI_S}, {"AC03", kVK_ANSI_D}, {"AC04", kVK_ANSI_F},
    {"AC05", kVK_ANSI_G}, {"AC06", kVK_ANSI_H}, {"AC07", kVK_ANSI_J}, {"AC08", kVK_ANSI_K},
    {"AC09", kVK_ANSI_L}, {"AC10", kVK_ANSI_Semicolon}, {"AC11", kVK_ANSI_Quote}, {"BKSL", kVK_ANSI_Backslash},
    {"LSGT", kVK_ISO_Section},
    {"AB01", kVK_ANSI_Z}, {"AB02", kVK_ANSI_X}, {"AB03", kVK_ANSI_C}, {"AB04", kVK_ANSI_V},
    {"AB05", kVK_ANSI_B}, {"AB06", kVK_ANSI_N}, {"AB07", kVK_ANSI_M}, {"AB08", kVK_ANSI_Comma},
    {"AB09", kVK_ANSI_Period}, {"AB10", kVK_ANSI_Slash}, {"AB11", kVK_JIS_Underscore},
};
// clang-format on

bool isAltKeysym(xkb_keysym_t s) {
    return s == XKB_KEY_Alt_L || s == XKB_KEY_Alt_R || s == XKB_KEY_Meta_L || s == XKB_KEY_Meta_R;
}
bool isSuperKeysym(xkb_keysym_t s) { return s == XKB_KEY_Super_L || s == XKB_KEY_Super_R; }

// Every keysym a key has on any level of its first group.
std::vector<xkb_keysym_t> keysymsOfKey(xkb_keymap* keymap, xkb_keycode_t key) {
    std::vector<xkb_keysym_t> result;
    if (xkb_keymap_num_layouts_for_key(keymap, key) == 0) return result;
    const xkb_level_index_t levels = xkb_keymap_num_levels_for_key(keymap, key, 0);
    for (xkb_level_index_t level = 0; level < levels; ++level) {
        const xkb_keysym_t* syms = nullptr;
        const int count = xkb_keymap_key_get_syms_by_level(keymap, key, 0, level, &syms);
        result.insert(result.end(), syms, syms + std::max(count, 0));
    }
    return result;
}

}  // namespace

std::optional<CGKeyCode> virtualKeyCodeForKeysym(xkb_keysym_t keysym) {
    for (const KeysymCode& entry : kSpecialKeys) {
        if (entry.keysym == keysym) return entry.code;
    }
    // Keypad keysyms are also characters: they were matched above.
    const char32_t character = xkb_keysym_to_utf32(keysym);
    if (character == 0) return std::nullopt;
    if (std::optional<VirtualKey> key = virtualKeyForUSCharacter(character)) return key->code;
    return std::nullopt;
}

std::optional<CGKeyCode> virtualKeyCodeForKeyName(const char* name) {
    if (!name) return std::nullopt;
    const std::string_view wanted(name);
    for (const NameCode& entry : kKeyPositions) {
        if (entry.name == wanted) return entry.code;
    }
    return std::nullopt;
}

X11Keys::X11Keys(xkb_keymap* keymap, const ModifierMap& modifierMap)
    : keymap_(xkb_keymap_ref(keymap)), modifierMap_(modifierMap) {
    // Modifier bits: which keys set which bit, and which bits mean Alt,
    // Super and Num Lock.
    for (std::size_t index = 0; index < modifierMap_.size(); ++index) {
        const auto bit = static_cast<std::uint16_t>(1u << index);
        for (xkb_keycode_t key : modifierMap_[index]) {
            if (key < kKeyCount) modifierBitsOfKey_[key] |= bit;
            if (index < 3) continue;  // Shift, Lock and Control have fixed meanings
            for (xkb_keysym_t sym : keysymsOfKey(keymap_, key)) {
                if (isAltKeysym(sym)) bits_.alt |= bit;
                if (isSuperKeysym(sym)) bits_.super |= bit;
                if (sym == XKB_KEY_Num_Lock) bits_.numLock |= bit;
            }
        }
    }

    groups_ = std::clamp<std::uint32_t>(xkb_keymap_num_layouts(keymap_), 1, kMaxGroups);
    for (auto& group : codes_) group.fill(kNoCode);
    const xkb_keycode_t minKey = std::max<xkb_keycode_t>(xkb_keymap_min_keycode(keymap_), 8);
    const xkb_keycode_t maxKey = std::min<xkb_keycode_t>(xkb_keymap_max_keycode(keymap_), kKeyCount - 1);
    for (std::uint32_t group = 0; group < groups_; ++group) {
        std::vector<std::pair<xkb_keycode_t, CGKeyCode>> byPosition;
        for (xkb_keycode_t key = minKey; key <= maxKey; ++key) {
            if (xkb_keymap_num_layouts_for_key(keymap_, key) == 0) continue;
            const xkb_keysym_t* syms = nullptr;
            const int count = xkb_keymap_key_get_syms_by_level(keymap_, key, group, 0, &syms);
            std::optional<CGKeyCode> code;
            if (count == 1) code = virtualKeyCodeForKeysym(syms[0]);
            if (code) {
                codes_[group][key] = *code;
                keycodes_[group][*code].push_back(key);
            } else if (std::optional<CGKeyCode> position = virtualKeyCodeForKeyName(xkb_keymap_key_get_name(keymap_, key))) {
                codes_[group][key] = *position;
                byPosition.emplace_back(key, *position);
            }
        }
        // A key found by position answers for its code only when no key types
        // the code's character in this group: on a German layout <AE11> (ß)
        // is Minus for events, but a grab of Minus takes the key that types "-".
        std::array<bool, kCodeCount> typed{};
        for (CGKeyCode code = 0; code < kCodeCount; ++code) typed[code] = !keycodes_[group][code].empty();
        for (const auto& [key, code] : byPosition) {
            if (!typed[code]) keycodes_[group][code].push_back(key);
        }
    }
}

X11Keys::~X11Keys() { xkb_keymap_unref(keymap_); }

std::optional<CGKeyCode> X11Keys::virtualKeyCode(xkb_keycode_t key, std::uint32_t group) const {
    if (key >= kKeyCount) return std::nullopt;
    const CGKeyCode code = codes_[group % groups_][key];
    if (code == kNoCode) return std::nullopt;
    return code;
}

const std::vector<xkb_keycode_t>& X11Keys::keycodes(CGKeyCode code, std::uint32_t group) const {
    static const std::vector<xkb_keycode_t> none;
    if (code >= kCodeCount) return none;
    return keycodes_[group % groups_][code];
}

CGEventFlags X11Keys::flagsForState(std::uint16_t state) const {
    CGEventFlags flags = 0;
    if (state & kXShiftMask) flags |= kCGEventFlagMaskShift;
    if (state & kXLockMask) flags |= kCGEventFlagMaskAlphaShift;
    if (state & kXControlMask) flags |= kCGEventFlagMaskCommand;
    if (state & bits_.alt) flags |= kCGEventFlagMaskAlternate;
    if (state & bits_.super) flags |= kCGEventFlagMaskControl;
    return flags;
}

std::optional<std::uint16_t> X11Keys::stateForFlags(CGEventFlags flags) const {
    // The lowest bit stands for a modifier that several bits carry.
    auto lowest = [](std::uint16_t bits) { return static_cast<std::uint16_t>(bits & (~bits + 1)); };
    std::uint16_t state = 0;
    if (flags & kCGEventFlagMaskShift) state |= kXShiftMask;
    if (flags & kCGEventFlagMaskCommand) state |= kXControlMask;
    if (flags & kCGEventFlagMaskAlternate) {
        if (!bits_.alt) return std::nullopt;
        state |= lowest(bits_.alt);
    }
    if (flags & kCGEventFlagMaskControl) {
        if (!bits_.super) return std::nullopt;
        state |= lowest(bits_.super);
    }
    return state;
}

std::vector<std::uint16_t> X11Keys::lockVariants() const {
    std::vector<std::uint16_t> variants{0, kXLockMask};
    if (bits_.numLock) {
        variants.push_back(bits_.numLock);
        variants.push_back(static_cast<std::uint16_t>(bits_.numLock | kXLockMask));
    }
    return variants;
}

std::uint16_t X11Keys::modifierBitsOfKey(xkb_keycode_t key) const {
    return key < kKeyCount ? modifierBitsOfKey_[key] : 0;
}

std::optional<xkb_keycode_t> X11Keys::keyForModifier(std::uint16_t bit) const {
    for (std::size_t index = 0; index < modifierMap_.size(); ++index) {
        if ((bit & (1u << index)) && !modifierMap_[index].empty()) return modifierMap_[index].front();
    }
    return std::nullopt;
}

std::optional<TapEvent> X11Keys::keyEvent(xkb_keycode_t key, std::uint16_t state, bool press, bool autorepeat,
                                          Point location) const {
    const std::optional<CGKeyCode> code = virtualKeyCode(key, groupOfState(state));
    if (!code) return std::nullopt;
    TapEvent event;
    event.keyCode = *code;
    event.location = location;
    const std::optional<VirtualKey> info = virtualKey(*code);
    const std::uint16_t own = modifierBitsOfKey(key);
    if (own || (info && info->kind == VirtualKeyKind::Modifier)) {
        // A modifier key changes the flags: report the state after it. Lock
        // toggles on the press; a release leaves it as it is.
        std::uint16_t after = state;
        if (press) {
            after = static_cast<std::uint16_t>(after | (own & ~kXLockMask));
            after = static_cast<std::uint16_t>(after ^ (own & kXLockMask));
        } else {
            after = static_cast<std::uint16_t>(after & ~(own & ~kXLockMask));
        }
        event.type = kCGEventFlagsChanged;
        event.flags = flagsForState(after);
        return event;
    }
    event.type = press ? kCGEventKeyDown : kCGEventKeyUp;
    event.autorepeat = press && autorepeat;
    event.flags = flagsForState(state) | (info ? info->impliedFlags : 0);
    return event;
}

}  // namespace jorvane::x11
