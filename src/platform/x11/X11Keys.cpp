#include "platform/x11/X11Keys.h"

#include <algorithm>
#include <cstring>
#include <string_view>
#include <utility>

namespace jorvane::x11 {
namespace {

struct KeysymCode {
    xkb_keysym_t keysym;
    KeyCode code;
};

// Keys that type no character, by keysym. PC keys take the place of the Mac
// key in the same spot: Insert is Help, Num Lock is the keypad's Clear.
// clang-format off
constexpr KeysymCode kSpecialKeys[] = {
    {XKB_KEY_Return, kKeyReturn}, {XKB_KEY_Tab, kKeyTab}, {XKB_KEY_ISO_Left_Tab, kKeyTab},
    {XKB_KEY_space, kKeySpace}, {XKB_KEY_BackSpace, kKeyDelete}, {XKB_KEY_Escape, kKeyEscape},
    {XKB_KEY_Control_L, kKeyCommand}, {XKB_KEY_Control_R, kKeyRightCommand},
    {XKB_KEY_Shift_L, kKeyShift}, {XKB_KEY_Shift_R, kKeyRightShift}, {XKB_KEY_Caps_Lock, kKeyCapsLock},
    {XKB_KEY_Alt_L, kKeyOption}, {XKB_KEY_Meta_L, kKeyOption},
    {XKB_KEY_Alt_R, kKeyRightOption}, {XKB_KEY_Meta_R, kKeyRightOption},
    {XKB_KEY_Super_L, kKeyControl}, {XKB_KEY_Super_R, kKeyRightControl},
    {XKB_KEY_F1, kKeyF1}, {XKB_KEY_F2, kKeyF2}, {XKB_KEY_F3, kKeyF3}, {XKB_KEY_F4, kKeyF4},
    {XKB_KEY_F5, kKeyF5}, {XKB_KEY_F6, kKeyF6}, {XKB_KEY_F7, kKeyF7}, {XKB_KEY_F8, kKeyF8},
    {XKB_KEY_F9, kKeyF9}, {XKB_KEY_F10, kKeyF10}, {XKB_KEY_F11, kKeyF11}, {XKB_KEY_F12, kKeyF12},
    {XKB_KEY_F13, kKeyF13}, {XKB_KEY_F14, kKeyF14}, {XKB_KEY_F15, kKeyF15}, {XKB_KEY_F16, kKeyF16},
    {XKB_KEY_F17, kKeyF17}, {XKB_KEY_F18, kKeyF18}, {XKB_KEY_F19, kKeyF19}, {XKB_KEY_F20, kKeyF20},
    {XKB_KEY_Insert, kKeyHelp}, {XKB_KEY_Help, kKeyHelp}, {XKB_KEY_Delete, kKeyForwardDelete},
    {XKB_KEY_Home, kKeyHome}, {XKB_KEY_End, kKeyEnd}, {XKB_KEY_Prior, kKeyPageUp}, {XKB_KEY_Next, kKeyPageDown},
    {XKB_KEY_Left, kKeyLeftArrow}, {XKB_KEY_Right, kKeyRightArrow},
    {XKB_KEY_Down, kKeyDownArrow}, {XKB_KEY_Up, kKeyUpArrow},
    {XKB_KEY_Menu, kKeyContextualMenu},
    {XKB_KEY_XF86AudioRaiseVolume, kKeyVolumeUp}, {XKB_KEY_XF86AudioLowerVolume, kKeyVolumeDown},
    {XKB_KEY_XF86AudioMute, kKeyMute},
    // The keypad: its first level is the navigation keysym (Num Lock off).
    {XKB_KEY_Num_Lock, kKeypadClear}, {XKB_KEY_KP_Enter, kKeypadEnter},
    {XKB_KEY_KP_Equal, kKeypadEquals}, {XKB_KEY_KP_Divide, kKeypadDivide},
    {XKB_KEY_KP_Multiply, kKeypadMultiply}, {XKB_KEY_KP_Subtract, kKeypadMinus},
    {XKB_KEY_KP_Add, kKeypadPlus},
    {XKB_KEY_KP_Decimal, kKeypadDecimal}, {XKB_KEY_KP_Delete, kKeypadDecimal},
    {XKB_KEY_KP_Separator, kKeypadDecimal},
    {XKB_KEY_KP_0, kKeypad0}, {XKB_KEY_KP_Insert, kKeypad0},
    {XKB_KEY_KP_1, kKeypad1}, {XKB_KEY_KP_End, kKeypad1},
    {XKB_KEY_KP_2, kKeypad2}, {XKB_KEY_KP_Down, kKeypad2},
    {XKB_KEY_KP_3, kKeypad3}, {XKB_KEY_KP_Next, kKeypad3},
    {XKB_KEY_KP_4, kKeypad4}, {XKB_KEY_KP_Left, kKeypad4},
    {XKB_KEY_KP_5, kKeypad5}, {XKB_KEY_KP_Begin, kKeypad5},
    {XKB_KEY_KP_6, kKeypad6}, {XKB_KEY_KP_Right, kKeypad6},
    {XKB_KEY_KP_7, kKeypad7}, {XKB_KEY_KP_Home, kKeypad7},
    {XKB_KEY_KP_8, kKeypad8}, {XKB_KEY_KP_Up, kKeypad8},
    {XKB_KEY_KP_9, kKeypad9}, {XKB_KEY_KP_Prior, kKeypad9},
};

struct NameCode {
    std::string_view name;
    KeyCode code;
};

// Positions of the character keys by their XKB names (the evdev and base
// keycode sets agree on these).
constexpr NameCode kKeyPositions[] = {
    {"TLDE", kKeyGrave}, {"AE01", kKey1}, {"AE02", kKey2}, {"AE03", kKey3},
    {"AE04", kKey4}, {"AE05", kKey5}, {"AE06", kKey6}, {"AE07", kKey7},
    {"AE08", kKey8}, {"AE09", kKey9}, {"AE10", kKey0}, {"AE11", kKeyMinus},
    {"AE12", kKeyEqual}, {"AE13", kKeyJisYen},
    {"AD01", kKeyQ}, {"AD02", kKeyW}, {"AD03", kKeyE}, {"AD04", kKeyR},
    {"AD05", kKeyT}, {"AD06", kKeyY}, {"AD07", kKeyU}, {"AD08", kKeyI},
    {"AD09", kKeyO}, {"AD10", kKeyP}, {"AD11", kKeyLeftBracket}, {"AD12", kKeyRightBracket},
    {"AC01", kKeyA}, {"AC02", kKeyS}, {"AC03", kKeyD}, {"AC04", kKeyF},
    {"AC05", kKeyG}, {"AC06", kKeyH}, {"AC07", kKeyJ}, {"AC08", kKeyK},
    {"AC09", kKeyL}, {"AC10", kKeySemicolon}, {"AC11", kKeyQuote}, {"BKSL", kKeyBackslash},
    {"LSGT", kKeyIsoSection},
    {"AB01", kKeyZ}, {"AB02", kKeyX}, {"AB03", kKeyC}, {"AB04", kKeyV},
    {"AB05", kKeyB}, {"AB06", kKeyN}, {"AB07", kKeyM}, {"AB08", kKeyComma},
    {"AB09", kKeyPeriod}, {"AB10", kKeySlash}, {"AB11", kKeyJisUnderscore},
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

std::optional<KeyCode> virtualKeyCodeForKeysym(xkb_keysym_t keysym) {
    for (const KeysymCode& entry : kSpecialKeys) {
        if (entry.keysym == keysym) return entry.code;
    }
    // Keypad keysyms are also characters: they were matched above.
    const char32_t character = xkb_keysym_to_utf32(keysym);
    if (character == 0) return std::nullopt;
    if (std::optional<VirtualKey> key = virtualKeyForUSCharacter(character)) return key->code;
    return std::nullopt;
}

std::optional<KeyCode> virtualKeyCodeForKeyName(const char* name) {
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
        std::vector<std::pair<xkb_keycode_t, KeyCode>> byPosition;
        for (xkb_keycode_t key = minKey; key <= maxKey; ++key) {
            if (xkb_keymap_num_layouts_for_key(keymap_, key) == 0) continue;
            const xkb_keysym_t* syms = nullptr;
            const int count = xkb_keymap_key_get_syms_by_level(keymap_, key, group, 0, &syms);
            std::optional<KeyCode> code;
            if (count == 1) code = virtualKeyCodeForKeysym(syms[0]);
            if (code) {
                codes_[group][key] = *code;
                keycodes_[group][*code].push_back(key);
            } else if (std::optional<KeyCode> position =
                           virtualKeyCodeForKeyName(xkb_keymap_key_get_name(keymap_, key))) {
                codes_[group][key] = *position;
                byPosition.emplace_back(key, *position);
            }
        }
        // A key found by position answers for its code only when no key types
        // the code's character in this group: on a German layout <AE11> (ß)
        // is Minus for events, but a grab of Minus takes the key that types "-".
        std::array<bool, kCodeCount> typed{};
        for (KeyCode code = 0; code < kCodeCount; ++code) typed[code] = !keycodes_[group][code].empty();
        for (const auto& [key, code] : byPosition) {
            if (!typed[code]) keycodes_[group][code].push_back(key);
        }
    }
}

X11Keys::~X11Keys() { xkb_keymap_unref(keymap_); }

std::optional<KeyCode> X11Keys::virtualKeyCode(xkb_keycode_t key, std::uint32_t group) const {
    if (key >= kKeyCount) return std::nullopt;
    const KeyCode code = codes_[group % groups_][key];
    if (code == kNoCode) return std::nullopt;
    return code;
}

const std::vector<xkb_keycode_t>& X11Keys::keycodes(KeyCode code, std::uint32_t group) const {
    static const std::vector<xkb_keycode_t> none;
    if (code >= kCodeCount) return none;
    return keycodes_[group % groups_][code];
}

Modifiers X11Keys::flagsForState(std::uint16_t state) const {
    Modifiers flags = 0;
    if (state & kXShiftMask) flags |= kModifierShift;
    if (state & kXLockMask) flags |= kModifierCapsLock;
    if (state & kXControlMask) flags |= kModifierCommand;
    if (state & bits_.alt) flags |= kModifierOption;
    if (state & bits_.super) flags |= kModifierControl;
    return flags;
}

std::optional<std::uint16_t> X11Keys::stateForFlags(Modifiers flags) const {
    // The lowest bit stands for a modifier that several bits carry.
    auto lowest = [](std::uint16_t bits) { return static_cast<std::uint16_t>(bits & (~bits + 1)); };
    std::uint16_t state = 0;
    if (flags & kModifierShift) state |= kXShiftMask;
    if (flags & kModifierCommand) state |= kXControlMask;
    if (flags & kModifierOption) {
        if (!bits_.alt) return std::nullopt;
        state |= lowest(bits_.alt);
    }
    if (flags & kModifierControl) {
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
    const std::optional<KeyCode> code = virtualKeyCode(key, groupOfState(state));
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
        event.type = kEventFlagsChanged;
        event.flags = flagsForState(after);
        return event;
    }
    event.type = press ? kEventKeyDown : kEventKeyUp;
    event.autorepeat = press && autorepeat;
    event.flags = flagsForState(state) | (info ? info->impliedFlags : 0);
    return event;
}

}  // namespace jorvane::x11
