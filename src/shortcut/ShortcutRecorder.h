#pragma once

// The logic of the hot-key field: it records the next key press with
// acceptable modifiers as the new key combination, after ShortcutValidator has
// approved it, tells its delegate, and can keep the combination in the
// settings under an autosave name. A view (ShortcutRecorderView) draws it and
// feeds it key, modifier and mouse input; everything here is testable
// without one.

#include <cstdint>
#include <string>

#include "app/Alerts.h"
#include "shortcut/ShortcutKeyNames.h"
#include "shortcut/ShortcutValidator.h"

namespace jorvane {

namespace settings {
class UserDefaults;
}

struct ShortcutCombo {
    Modifiers flags = 0;  // modifier layout
    ShortcutKeyCode code = kNoShortcutKey;

    bool operator==(const ShortcutCombo&) const = default;
};

// One key press as the view saw it.
struct ShortcutKeyEvent {
    ShortcutKeyCode keyCode = kNoShortcutKey;
    Modifiers modifierFlags = 0;              // modifier layout, as the event carries them
    std::string characters;                   // what the press types (UTF-8)
    std::string charactersIgnoringModifiers;  // what the key types without modifiers; empty for a dead key
};

// The recorder's state.
//
//   idle ──click, Space with focus (startRecording)──────────────▶ recording
//   recording ──key with valid flags, free (recorded)────────────▶ idle | ending
//   recording ──cancel key (Escape, Backspace, Delete) without
//               valid flags; or bare, when key-only combinations
//               are allowed and cancel keys do not record──────────▶ idle | ending
//   recording ──key whose characters are empty (beep)──────────────▶ idle | ending
//   recording ──snap-back button (snapBack)─────────────────────────▶ idle | ending
//   recording ──key taken (alert shown)──────────────────────────────▶ recording
//   recording ──key without valid flags, not a cancel key────────────▶ recording (not consumed)
//   ending ──transitionFinished(), or any new input─────────────────▶ idle
//
// "ending" exists only while the view animates transitions
// (setAnimatesTransitions): recording is over, and the view animates back
// from "Type shortcut" to the combination. The just-changed mark is set when
// a key press was recorded and cleared when the recording ends for good (at
// once without animation, at the end of the animation with it), so the view
// can tell a new combination from the old one while it animates.
enum class ShortcutRecorderState { idle, recording, ending };

// The parts of the field the pointer can be over or press.
enum class ShortcutRecorderPart { none, field, removeButton, snapBackButton };

class ShortcutRecorder;

// The control that holds the cell. Both answers are optional.
class ShortcutRecorderDelegate {
public:
    virtual ~ShortcutRecorderDelegate() = default;
    virtual bool hotkeyRecorderCellIsKeyCodeAndFlagsTaken(ShortcutRecorder& /*cell*/, ShortcutKeyCode /*keyCode*/,
                                                          Modifiers /*flags*/, std::string& /*reason*/) {
        return false;
    }
    virtual void recorderShortcutChanged(ShortcutRecorder& /*cell*/, ShortcutCombo /*combo*/) {}
};

// What the cell needs from the widget that shows it.
class ShortcutRecorderView {
public:
    virtual ~ShortcutRecorderView() = default;
    // Draw again: text, buttons, focus ring.
    virtual void setNeedsDisplay() = 0;
    virtual void beep() = 0;
    // Whether the field has the keyboard focus of its window.
    virtual bool isFirstResponder() const = 0;
    // The modifiers held right now (modifier layout).
    virtual Modifiers currentModifierFlags() const = 0;
    // The button layout changed (the remove and snap-back buttons).
    virtual void resetTrackingAreas() {}
    // While recording with canCaptureGlobalHotKeys: take every key press
    // before the desktop's shortcuts do (grab the keyboard), and give back.
    virtual void setCapturesGlobalHotKeys(bool /*capture*/) {}
};

class ShortcutRecorder : private ShortcutValidatorDelegate {
public:
    static constexpr Modifiers kDefaultAllowedFlags = 0x9E0000;  // Shift, Control, Option, Command, Function

    // `defaults` null: settings::standardUserDefaults(). `alerts` shows the
    // reason a combination is refused; without it the refusal is silent.
    explicit ShortcutRecorder(settings::UserDefaults* defaults = nullptr, Alerts* alerts = nullptr);
    ~ShortcutRecorder() override;
    ShortcutRecorder(const ShortcutRecorder&) = delete;
    ShortcutRecorder& operator=(const ShortcutRecorder&) = delete;

    // Not owned.
    void setDelegate(ShortcutRecorderDelegate* delegate) { delegate_ = delegate; }
    ShortcutRecorderDelegate* delegate() const { return delegate_; }
    void setView(ShortcutRecorderView* view) { view_ = view; }

    // ---- Configuration
    ShortcutCombo keyCombo() const { return combo_; }
    // Stores the combination (flags filtered), forgets the typed characters,
    // tells the delegate (even when nothing changed), saves.
    void setKeyCombo(ShortcutCombo combo);
    void setAllowedFlags(Modifiers flags);
    void setRequiredFlags(Modifiers flags);
    bool allowsKeyOnly() const { return allowsKeyOnly_; }
    bool escapeKeysRecord() const { return escapeKeysRecord_; }
    void setAllowsKeyOnly(bool allowsKeyOnly, bool escapeKeysRecord);
    bool canCaptureGlobalHotKeys() const { return canCaptureGlobalHotKeys_; }
    void setCanCaptureGlobalHotKeys(bool capture) { canCaptureGlobalHotKeys_ = capture; }
    const std::string& autosaveName() const { return autosaveName_; }
    // Loads the combination stored under the new name.
    void setAutosaveName(std::string name);
    bool isEnabled() const { return enabled_; }
    void setEnabled(bool enabled);
    void setAnimatesTransitions(bool animates) { animates_ = animates; }

    // The characters of the recorded key press, when the combination came
    // from one (not from setKeyCombo).
    bool hasKeyChars() const { return hasKeyChars_; }
    const std::string& keyChars() const { return keyChars_; }
    const std::string& keyCharsIgnoringModifiers() const { return keyCharsIgnoringModifiers_; }

    ShortcutValidator& validator() { return validator_; }

    // ---- Input
    // One key-down event; true when the cell consumed it.
    bool performKeyEquivalent(const ShortcutKeyEvent& event);
    // The modifiers changed (shown while recording).
    void flagsChanged(Modifiers flags);
    // A click on the field (outside its buttons) starts recording.
    void clickField();
    // The snap-back button: leave recording without change.
    void snapBack();
    // The remove button: no combination.
    void removeKeyCombo();
    void setHoveredPart(ShortcutRecorderPart part);
    void setPressedPart(ShortcutRecorderPart part);
    // The view's transition animation ended.
    void transitionFinished();

    // ---- What the view shows
    ShortcutRecorderState state() const { return state_; }
    bool isRecording() const { return state_ == ShortcutRecorderState::recording; }
    bool isJustChanged() const { return justChanged_; }
    // No usable combination: flags not valid, or a key without a name.
    bool isEmpty() const;
    // While recording: the modifiers held, or "Type shortcut" when none;
    // otherwise the combination in glyph form, or "Click to record shortcut".
    std::string displayText() const;
    // The snap-back button's text.
    std::string snapBackText() const;
    Modifiers recordingFlags() const { return recordingFlags_; }
    bool showsRemoveButton() const;
    bool showsSnapBackButton() const { return isRecording(); }
    ShortcutRecorderPart hoveredPart() const { return hovered_; }
    ShortcutRecorderPart pressedPart() const { return pressed_; }

private:
    bool hotkeyValidatorIsKeyCodeAndFlagsTaken(ShortcutValidator& validator, ShortcutKeyCode keyCode, Modifiers flags,
                                               std::string& reason) override;

    Modifiers filteredModifiers(Modifiers flags) const;
    bool validModifierFlags(Modifiers flags) const;
    void startRecording();
    void endRecording();
    void finishEnding();
    void tellDelegate();
    void loadKeyCombo();
    void saveKeyCombo();
    settings::UserDefaults& defaults() const;
    void redisplay();

    settings::UserDefaults* defaults_;
    Alerts* alerts_;
    ShortcutRecorderDelegate* delegate_ = nullptr;
    ShortcutRecorderView* view_ = nullptr;
    ShortcutValidator validator_;

    ShortcutCombo combo_;
    Modifiers allowedFlags_ = kDefaultAllowedFlags;
    Modifiers requiredFlags_ = 0;
    Modifiers recordingFlags_ = 0;
    bool allowsKeyOnly_ = false;
    bool escapeKeysRecord_ = false;
    bool canCaptureGlobalHotKeys_ = false;
    bool capturing_ = false;
    bool hasKeyChars_ = false;
    std::string keyChars_;
    std::string keyCharsIgnoringModifiers_;
    std::string autosaveName_;
    bool enabled_ = true;
    bool animates_ = false;
    ShortcutRecorderState state_ = ShortcutRecorderState::idle;
    bool justChanged_ = false;
    ShortcutRecorderPart hovered_ = ShortcutRecorderPart::none;
    ShortcutRecorderPart pressed_ = ShortcutRecorderPart::none;
};

}  // namespace jorvane
