#include "settings/PreferencesController.h"

#include "settings/LoginItems.h"
#include "settings/UserDefaults.h"
#include "util/Diagnostics.h"

namespace jorvane {

namespace {
constexpr const char* kLog = "Preferences";
}

PreferencesController::PreferencesController(Dependencies dependencies)
    : defaults_(dependencies.defaults),
      executablePath_(std::move(dependencies.executablePath)),
      about_(std::move(dependencies.about)),
      settingsDidChange_(std::move(dependencies.settingsChanged)),
      forgetVisitedFolders_(std::move(dependencies.forgetVisitedFolders)) {}

PreferencesController::~PreferencesController() { setWindow(nullptr); }

void PreferencesController::setWindow(PrefPaneView* window) {
    if (window_ && window_->hotkeyRecorder().delegate() == this) window_->hotkeyRecorder().setDelegate(nullptr);
    window_ = window;
    if (window_) window_->hotkeyRecorder().setDelegate(this);
}

void PreferencesController::windowLoaded() {
    if (!window_) return;
    ShortcutControl& recorder = window_->hotkeyRecorder();
    recorder.setAllowsKeyOnly(true, false);
    recorder.setCanCaptureGlobalHotKeys(false);
    // The recorder reports the filtered combination straight back, which
    // stores it again (shortcutChanged).
    const auto flags = static_cast<Modifiers>(defaults_.integerForKey(settings::keys::hotkeyFlags));
    const auto code = static_cast<ShortcutKeyCode>(defaults_.integerForKey(settings::keys::hotkeyKeycode));
    recorder.setKeyCombo(ShortcutCombo{flags, code});
}

void PreferencesController::close() {
    if (!defaults_.synchronize()) log::inDomain(log::Warn, kLog, "settings not saved on closing");
    PrefPaneView* window = window_;
    setWindow(nullptr);
    if (window) window->closeWindow();
}

void PreferencesController::shortcutChanged(ShortcutControl&, Modifiers flags, ShortcutKeyCode keyCode) {
    defaults_.setInteger(static_cast<std::int64_t>(flags), settings::keys::hotkeyFlags);
    defaults_.setInteger(keyCode, settings::keys::hotkeyKeycode);
    log::inDomain(log::Info, kLog, "hot key: flags 0x%llx, key code %d", static_cast<unsigned long long>(flags),
                  keyCode);
    if (!defaults_.synchronize()) log::inDomain(log::Warn, kLog, "the hot key could not be saved");
    changed();
}

bool PreferencesController::hotkeyRecorderIsKeyCodeAndFlagsTaken(ShortcutControl&, ShortcutKeyCode, Modifiers,
                                                                 std::string&) {
    return false;
}

bool PreferencesController::autostarts() const { return LoginItem::HasLoginItemWithPath(executablePath_); }

void PreferencesController::setAutostarts(bool autostarts) {
    if (autostarts) {
        LoginItem::InstallLoginItemWithPath(executablePath_);
    } else {
        LoginItem::RemoveLoginItemWithPath(executablePath_);
    }
}

bool PreferencesController::boolValue(const settings::Key<bool>& key) const { return defaults_.boolForKey(key); }

void PreferencesController::setBoolValue(const settings::Key<bool>& key, bool value) {
    defaults_.setBool(value, key);
    changed();
}

bool PreferencesController::opensWithFolder() const {
    return defaults_.integerForKey(settings::keys::activationPathBehaviour) == kPathBehaviourFolder;
}

void PreferencesController::setOpensWithFolder(bool folder) {
    defaults_.setInteger(folder ? kPathBehaviourFolder : kPathBehaviourSelection,
                         settings::keys::activationPathBehaviour);
    changed();
}

void PreferencesController::about() {
    if (about_) {
        about_();
    } else {
        log::inDomain(log::Debug, kLog, "no about window here");
    }
}

void PreferencesController::forgetVisitedFolders() {
    if (forgetVisitedFolders_) forgetVisitedFolders_();
}

void PreferencesController::changed() {
    if (settingsDidChange_) settingsDidChange_();
}

}  // namespace jorvane
