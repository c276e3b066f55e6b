#include "shortcut/ShortcutRecorder.h"

#include "settings/DefaultsCatalogue.h"
#include "settings/UserDefaults.h"
#include "shortcut/Localization.h"

namespace jorvane {
namespace {

std::string localized(std::string_view key) { return localizedString(key, kHotkeyRecorderTable); }

// Escape, Backspace (Delete) and Delete (Forward Delete).
bool isCancelKey(ShortcutKeyCode code) { return code == 53 || code == 51 || code == 117; }

constexpr Modifiers kFilteredBits[] = {kModifierCommand, kModifierOption, kModifierControl, kModifierShift,
                                       kModifierFunction};

}  // namespace

ShortcutRecorder::ShortcutRecorder(settings::UserDefaults* defaults, Alerts* alerts)
    : defaults_(defaults), alerts_(alerts), validator_(this) {
    loadKeyCombo();
}

ShortcutRecorder::~ShortcutRecorder() {
    if (capturing_ && view_) view_->setCapturesGlobalHotKeys(false);
}

settings::UserDefaults& ShortcutRecorder::defaults() const {
    return defaults_ ? *defaults_ : settings::standardUserDefaults();
}

void ShortcutRecorder::redisplay() {
    if (view_) view_->setNeedsDisplay();
}

// ---- Flags

Modifiers ShortcutRecorder::filteredModifiers(Modifiers flags) const {
    Modifiers filtered = 0;
    for (Modifiers bit : kFilteredBits) {
        if ((requiredFlags_ & bit) || ((flags & bit) && (allowedFlags_ & bit))) filtered |= bit;
    }
    return filtered;
}

bool ShortcutRecorder::validModifierFlags(Modifiers flags) const {
    return allowsKeyOnly_ || (flags & kShortcutModifierMask) || (flags & kModifierFunction);
}

bool ShortcutRecorder::isEmpty() const {
    if (!validModifierFlags(combo_.flags)) return true;
    const std::optional<std::string> name = shortcutKeyName(combo_.code);
    return !name || name->empty();
}

// ---- Configuration

void ShortcutRecorder::setKeyCombo(ShortcutCombo combo) {
    combo_ = ShortcutCombo{filteredModifiers(combo.flags), combo.code};
    hasKeyChars_ = false;
    keyChars_.clear();
    keyCharsIgnoringModifiers_.clear();
    tellDelegate();
    saveKeyCombo();
    redisplay();
}

void ShortcutRecorder::setAllowedFlags(Modifiers flags) {
    allowedFlags_ = flags;
    if (isRecording()) {
        recordingFlags_ = filteredModifiers(view_ ? view_->currentModifierFlags() : 0);
    } else {
        const Modifiers refiltered = filteredModifiers(combo_.flags);
        const bool changed = refiltered != combo_.flags;
        combo_.flags = refiltered;
        if (changed && combo_.code >= 0) {
            tellDelegate();
            saveKeyCombo();
        }
    }
    redisplay();
}

void ShortcutRecorder::setRequiredFlags(Modifiers flags) {
    requiredFlags_ = flags;
    // The same refiltering as for the allowed flags.
    setAllowedFlags(allowedFlags_);
}

void ShortcutRecorder::setAllowsKeyOnly(bool allowsKeyOnly, bool escapeKeysRecord) {
    allowsKeyOnly_ = allowsKeyOnly;
    escapeKeysRecord_ = escapeKeysRecord;
    redisplay();
}

void ShortcutRecorder::setAutosaveName(std::string name) {
    autosaveName_ = std::move(name);
    loadKeyCombo();
}

void ShortcutRecorder::setEnabled(bool enabled) {
    enabled_ = enabled;
    if (!enabled && isRecording()) {
        snapBack();
        return;
    }
    redisplay();
}

// ---- Recording

void ShortcutRecorder::startRecording() {
    if (state_ == ShortcutRecorderState::ending) finishEnding();
    state_ = ShortcutRecorderState::recording;
    recordingFlags_ = filteredModifiers(0);
    if (canCaptureGlobalHotKeys_ && !capturing_ && view_) {
        view_->setCapturesGlobalHotKeys(true);
        capturing_ = true;
    }
    redisplay();
}

void ShortcutRecorder::endRecording() {
    if (capturing_) {
        capturing_ = false;
        if (view_) view_->setCapturesGlobalHotKeys(false);
    }
    if (animates_) {
        state_ = ShortcutRecorderState::ending;
        redisplay();
    } else {
        finishEnding();
    }
}

void ShortcutRecorder::finishEnding() {
    state_ = ShortcutRecorderState::idle;
    justChanged_ = false;
    redisplay();
}

void ShortcutRecorder::transitionFinished() {
    if (state_ == ShortcutRecorderState::ending) finishEnding();
}

bool ShortcutRecorder::performKeyEquivalent(const ShortcutKeyEvent& event) {
    if (state_ == ShortcutRecorderState::ending) finishEnding();
    const Modifiers filtered = filteredModifiers(event.modifierFlags);
    const bool cancel = isCancelKey(event.keyCode);
    const bool valid = validModifierFlags(cancel ? event.modifierFlags : filtered);

    if (!isRecording()) {
        if (event.characters == " ") {
            startRecording();
            return true;
        }
    } else if (valid || cancel) {
        const bool bareCancel = cancel && allowsKeyOnly_ && (filtered & ~kModifierFunction) == 0 && !escapeKeysRecord_;
        if (cancel && !valid) {
            // Leaves recording without change.
        } else if (bareCancel) {
            // A bare Escape, Backspace or Delete cancels too.
        } else if (event.charactersIgnoringModifiers.empty()) {
            // A dead key, or one that types nothing.
            if (view_) view_->beep();
        } else {
            ShortcutConflict error;
            if (validator_.isKeyCodeAndFlagsTaken(event.keyCode, recorderFlagsFromModifiers(filtered), &error)) {
                if (alerts_) {
                    AlertSpec alert;
                    alert.messageText = error.localizedDescription.empty()
                                            ? stringWithFormat(localized("The key combination %@ can't be used!"),
                                                               {comboGlyphs(filtered, event.keyCode)})
                                            : error.localizedDescription;
                    alert.informativeText = error.localizedRecoverySuggestion;
                    alert.buttons = error.localizedRecoveryOptions;
                    alert.style = AlertSpec::Style::critical;
                    alerts_->runModal(alert);
                }
                recordingFlags_ = filteredModifiers(view_ ? view_->currentModifierFlags() : event.modifierFlags);
                redisplay();
                return true;
            }
            combo_ = ShortcutCombo{filtered, event.keyCode};
            hasKeyChars_ = true;
            keyChars_ = event.characters;
            keyCharsIgnoringModifiers_ = event.charactersIgnoringModifiers;
            tellDelegate();
            saveKeyCombo();
            justChanged_ = true;
        }
        recordingFlags_ = 0;
        endRecording();
        if (view_) view_->resetTrackingAreas();
        redisplay();
        return true;
    }

    if (view_ && view_->isFirstResponder() && !event.characters.empty() && event.characters.front() == ' ' &&
        enabled_) {
        startRecording();
    }
    return false;
}

void ShortcutRecorder::flagsChanged(Modifiers flags) {
    if (!isRecording()) return;
    recordingFlags_ = filteredModifiers(flags);
    redisplay();
}

void ShortcutRecorder::clickField() {
    if (state_ == ShortcutRecorderState::ending) finishEnding();
    if (!enabled_ || isRecording()) return;
    startRecording();
}

void ShortcutRecorder::snapBack() {
    if (!isRecording()) return;
    recordingFlags_ = 0;
    endRecording();
    if (view_) view_->resetTrackingAreas();
    redisplay();
}

void ShortcutRecorder::removeKeyCombo() { setKeyCombo(ShortcutCombo{0, kNoShortcutKey}); }

void ShortcutRecorder::setHoveredPart(ShortcutRecorderPart part) {
    if (hovered_ == part) return;
    hovered_ = part;
    redisplay();
}

void ShortcutRecorder::setPressedPart(ShortcutRecorderPart part) {
    if (pressed_ == part) return;
    pressed_ = part;
    redisplay();
}

// ---- Delegate and settings

bool ShortcutRecorder::hotkeyValidatorIsKeyCodeAndFlagsTaken(ShortcutValidator&, ShortcutKeyCode keyCode,
                                                             Modifiers flags, std::string& reason) {
    return delegate_ && delegate_->hotkeyRecorderCellIsKeyCodeAndFlagsTaken(*this, keyCode, flags, reason);
}

void ShortcutRecorder::tellDelegate() {
    if (delegate_) delegate_->recorderShortcutChanged(*this, combo_);
}

void ShortcutRecorder::loadKeyCombo() {
    if (autosaveName_.empty()) return;
    const settings::HotkeyRecorderEntry entry = settings::HotkeyRecorderEntry::fromDictionary(
        defaults().dictionaryForKey(settings::keys::hotkeyRecorder(autosaveName_)));
    // Nothing stored reads as key code 0 with no flags (the A key), and the
    // delegate hears of it like of any other combination.
    const Modifiers flags = entry.modifierFlags
                                ? *entry.modifierFlags
                                : modifiersFromRecorderFlags(static_cast<std::uint32_t>(entry.modifiers.value_or(0)));
    combo_ = ShortcutCombo{filteredModifiers(flags), entry.keyCode};
    hasKeyChars_ = entry.keyChars.has_value();
    keyChars_ = entry.keyChars.value_or("");
    keyCharsIgnoringModifiers_ = entry.keyChars ? entry.keyCharsIgnoringModifiers.value_or("") : "";
    tellDelegate();
    redisplay();
}

void ShortcutRecorder::saveKeyCombo() {
    if (autosaveName_.empty()) return;
    settings::HotkeyRecorderEntry entry;
    entry.keyCode = combo_.code;
    entry.modifierFlags = combo_.flags;
    entry.modifiers = recorderFlagsFromModifiers(combo_.flags);
    if (hasKeyChars_) {
        entry.keyChars = keyChars_;
        entry.keyCharsIgnoringModifiers = keyCharsIgnoringModifiers_;
    }
    defaults().setObject(entry.toDictionary(), settings::keys::hotkeyRecorder(autosaveName_));
}

// ---- What the view shows

std::string ShortcutRecorder::displayText() const {
    if (isRecording()) {
        if (recordingFlags_ & kShortcutModifierMask) return modifierGlyphs(recordingFlags_);
        return localized("Type shortcut");
    }
    if (isEmpty()) return localized("Click to record shortcut");
    return comboGlyphs(combo_.flags, combo_.code);
}

std::string ShortcutRecorder::snapBackText() const { return localized("Use old shortcut"); }

bool ShortcutRecorder::showsRemoveButton() const { return !isRecording() && enabled_ && !isEmpty(); }

}  // namespace jorvane
