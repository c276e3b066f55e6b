#include "shortcutrecorder/HKRecorderCell.h"

#include "settings/DefaultsCatalogue.h"
#include "settings/UserDefaults.h"
#include "shortcutrecorder/Localization.h"

namespace jorvane {
namespace {

std::string localized(std::string_view key) { return localizedString(key, kHotkeyRecorderTable); }

// Escape, Backspace (Delete) and Delete (Forward Delete).
bool isCancelKey(HKKeyCode code) { return code == 53 || code == 51 || code == 117; }

constexpr CGEventFlags kFilteredBits[] = {kCGEventFlagMaskCommand, kCGEventFlagMaskAlternate, kCGEventFlagMaskControl,
                                          kCGEventFlagMaskShift, kCGEventFlagMaskSecondaryFn};

}  // namespace

HKRecorderCell::HKRecorderCell(settings::UserDefaults* defaults, Alerts* alerts)
    : defaults_(defaults), alerts_(alerts), validator_(this) {
    loadKeyCombo();
}

HKRecorderCell::~HKRecorderCell() {
    if (capturing_ && view_) view_->setCapturesGlobalHotKeys(false);
}

settings::UserDefaults& HKRecorderCell::defaults() const {
    return defaults_ ? *defaults_ : settings::standardUserDefaults();
}

void HKRecorderCell::redisplay() {
    if (view_) view_->setNeedsDisplay();
}

// ---- Flags

CGEventFlags HKRecorderCell::filteredCocoaFlags(CGEventFlags flags) const {
    CGEventFlags filtered = 0;
    for (CGEventFlags bit : kFilteredBits) {
        if ((requiredFlags_ & bit) || ((flags & bit) && (allowedFlags_ & bit))) filtered |= bit;
    }
    return filtered;
}

std::uint32_t HKRecorderCell::filteredCocoaToCarbonFlags(CGEventFlags flags) const {
    return HKCocoaToCarbonModifiers(filteredCocoaFlags(flags));
}

bool HKRecorderCell::validModifierFlags(CGEventFlags flags) const {
    return allowsKeyOnly_ || (flags & kShortcutModifierMask) || (flags & kCGEventFlagMaskSecondaryFn);
}

bool HKRecorderCell::isEmpty() const {
    if (!validModifierFlags(combo_.flags)) return true;
    const std::optional<std::string> name = HKKeyCodeName(combo_.code);
    return !name || name->empty();
}

// ---- Configuration

void HKRecorderCell::setKeyCombo(HKKeyCombo combo) {
    combo_ = HKKeyCombo{filteredCocoaFlags(combo.flags), combo.code};
    hasKeyChars_ = false;
    keyChars_.clear();
    keyCharsIgnoringModifiers_.clear();
    tellDelegate();
    saveKeyCombo();
    redisplay();
}

void HKRecorderCell::setAllowedFlags(CGEventFlags flags) {
    allowedFlags_ = flags;
    if (isRecording()) {
        recordingFlags_ = filteredCocoaFlags(view_ ? view_->currentModifierFlags() : 0);
    } else {
        const CGEventFlags refiltered = filteredCocoaFlags(combo_.flags);
        const bool changed = refiltered != combo_.flags;
        combo_.flags = refiltered;
        if (changed && combo_.code >= 0) {
            tellDelegate();
            saveKeyCombo();
        }
    }
    redisplay();
}

void HKRecorderCell::setRequiredFlags(CGEventFlags flags) {
    requiredFlags_ = flags;
    // The same refiltering as for the allowed flags.
    setAllowedFlags(allowedFlags_);
}

void HKRecorderCell::setAllowsKeyOnly(bool allowsKeyOnly, bool escapeKeysRecord) {
    allowsKeyOnly_ = allowsKeyOnly;
    escapeKeysRecord_ = escapeKeysRecord;
    redisplay();
}

void HKRecorderCell::setAutosaveName(std::string name) {
    autosaveName_ = std::move(name);
    loadKeyCombo();
}

void HKRecorderCell::setEnabled(bool enabled) {
    enabled_ = enabled;
    if (!enabled && isRecording()) {
        snapBack();
        return;
    }
    redisplay();
}

// ---- Recording

void HKRecorderCell::startRecording() {
    if (state_ == HKRecorderState::ending) finishEnding();
    state_ = HKRecorderState::recording;
    recordingFlags_ = filteredCocoaFlags(0);
    if (canCaptureGlobalHotKeys_ && !capturing_ && view_) {
        view_->setCapturesGlobalHotKeys(true);
        capturing_ = true;
    }
    redisplay();
}

void HKRecorderCell::endRecording() {
    if (capturing_) {
        capturing_ = false;
        if (view_) view_->setCapturesGlobalHotKeys(false);
    }
    if (animates_) {
        state_ = HKRecorderState::ending;
        redisplay();
    } else {
        finishEnding();
    }
}

void HKRecorderCell::finishEnding() {
    state_ = HKRecorderState::idle;
    justChanged_ = false;
    redisplay();
}

void HKRecorderCell::transitionDidFinish() {
    if (state_ == HKRecorderState::ending) finishEnding();
}

bool HKRecorderCell::performKeyEquivalent(const HKKeyEvent& event) {
    if (state_ == HKRecorderState::ending) finishEnding();
    const CGEventFlags filtered = filteredCocoaFlags(event.modifierFlags);
    const bool cancel = isCancelKey(event.keyCode);
    const bool valid = validModifierFlags(cancel ? event.modifierFlags : filtered);

    if (!isRecording()) {
        if (event.characters == " ") {
            startRecording();
            return true;
        }
    } else if (valid || cancel) {
        const bool bareCancel =
            cancel && allowsKeyOnly_ && (filtered & ~kCGEventFlagMaskSecondaryFn) == 0 && !escapeKeysRecord_;
        if (cancel && !valid) {
            // Leaves recording without change.
        } else if (bareCancel) {
            // A bare Escape, Backspace or Delete cancels too.
        } else if (event.charactersIgnoringModifiers.empty()) {
            // A dead key, or one that types nothing.
            if (view_) view_->beep();
        } else {
            HKError error;
            if (validator_.isKeyCodeAndFlagsTaken(event.keyCode, HKCocoaToCarbonModifiers(filtered), &error)) {
                if (alerts_) {
                    AlertSpec alert;
                    alert.messageText = error.localizedDescription.empty()
                                            ? stringWithFormat(localized("The key combination %@ can't be used!"),
                                                               {HKCocoaComboGlyphs(filtered, event.keyCode)})
                                            : error.localizedDescription;
                    alert.informativeText = error.localizedRecoverySuggestion;
                    alert.buttons = error.localizedRecoveryOptions;
                    alert.style = AlertSpec::Style::critical;
                    alerts_->runModal(alert);
                }
                recordingFlags_ = filteredCocoaFlags(view_ ? view_->currentModifierFlags() : event.modifierFlags);
                redisplay();
                return true;
            }
            combo_ = HKKeyCombo{filtered, event.keyCode};
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

void HKRecorderCell::flagsChanged(CGEventFlags flags) {
    if (!isRecording()) return;
    recordingFlags_ = filteredCocoaFlags(flags);
    redisplay();
}

void HKRecorderCell::clickField() {
    if (state_ == HKRecorderState::ending) finishEnding();
    if (!enabled_ || isRecording()) return;
    startRecording();
}

void HKRecorderCell::snapBack() {
    if (!isRecording()) return;
    recordingFlags_ = 0;
    endRecording();
    if (view_) view_->resetTrackingAreas();
    redisplay();
}

void HKRecorderCell::removeKeyCombo() { setKeyCombo(HKKeyCombo{0, kHKNoKeyCode}); }

void HKRecorderCell::setHoveredPart(HKRecorderPart part) {
    if (hovered_ == part) return;
    hovered_ = part;
    redisplay();
}

void HKRecorderCell::setPressedPart(HKRecorderPart part) {
    if (pressed_ == part) return;
    pressed_ = part;
    redisplay();
}

// ---- Delegate and settings

bool HKRecorderCell::hotkeyValidatorIsKeyCodeAndFlagsTaken(HKValidator&, HKKeyCode keyCode, CGEventFlags flags,
                                                           std::string& reason) {
    return delegate_ && delegate_->hotkeyRecorderCellIsKeyCodeAndFlagsTaken(*this, keyCode, flags, reason);
}

void HKRecorderCell::tellDelegate() {
    if (delegate_) delegate_->hotkeyRecorderCellKeyComboDidChange(*this, combo_);
}

void HKRecorderCell::loadKeyCombo() {
    if (autosaveName_.empty()) return;
    const settings::HotkeyRecorderEntry entry = settings::HotkeyRecorderEntry::fromDictionary(
        defaults().dictionaryForKey(settings::keys::hotkeyRecorder(autosaveName_)));
    // Nothing stored reads as key code 0 with no flags (the A key), and the
    // delegate hears of it like of any other combination.
    const CGEventFlags flags = entry.modifierFlags
                                   ? *entry.modifierFlags
                                   : HKCarbonToCocoaModifiers(static_cast<std::uint32_t>(entry.modifiers.value_or(0)));
    combo_ = HKKeyCombo{filteredCocoaFlags(flags), entry.keyCode};
    hasKeyChars_ = entry.keyChars.has_value();
    keyChars_ = entry.keyChars.value_or("");
    keyCharsIgnoringModifiers_ = entry.keyChars ? entry.keyCharsIgnoringModifiers.value_or("") : "";
    tellDelegate();
    redisplay();
}

void HKRecorderCell::saveKeyCombo() {
    if (autosaveName_.empty()) return;
    settings::HotkeyRecorderEntry entry;
    entry.keyCode = combo_.code;
    entry.modifierFlags = combo_.flags;
    entry.modifiers = HKCocoaToCarbonModifiers(combo_.flags);
    if (hasKeyChars_) {
        entry.keyChars = keyChars_;
        entry.keyCharsIgnoringModifiers = keyCharsIgnoringModifiers_;
    }
    defaults().setObject(entry.toDictionary(), settings::keys::hotkeyRecorder(autosaveName_));
}

// ---- What the view shows

std::string HKRecorderCell::displayText() const {
    if (isRecording()) {
        if (recordingFlags_ & kShortcutModifierMask) return HKCocoaModifierGlyphs(recordingFlags_);
        return localized("Type shortcut");
    }
    if (isEmpty()) return localized("Click to record shortcut");
    return HKCocoaComboGlyphs(combo_.flags, combo_.code);
}

std::string HKRecorderCell::snapBackText() const { return localized("Use old shortcut"); }

bool HKRecorderCell::showsRemoveButton() const { return !isRecording() && enabled_ && !isEmpty(); }

std::string HKRecorderCell::removeButtonImageName() const {
    if (pressed_ == HKRecorderPart::removeButton) return "HKRemoveShortcutPressed";
    if (hovered_ == HKRecorderPart::removeButton) return "HKRemoveShortcutRollover";
    return "HKRemoveShortcut";
}

std::string HKRecorderCell::snapBackButtonImageName() const { return "HKSnapback"; }

}  // namespace jorvane
