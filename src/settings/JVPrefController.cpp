#include "settings/JVPrefController.h"

#include "settings/LoginItems.h"
#include "settings/UserDefaults.h"
#include "util/Diagnostics.h"

namespace jorvane {

namespace {
constexpr const char* kLog = "Preferences";
}

JVPrefController::JVPrefController(Dependencies dependencies)
    : defaults_(dependencies.defaults),
      executablePath_(std::move(dependencies.executablePath)),
      about_(std::move(dependencies.about)),
      settingsDidChange_(std::move(dependencies.settingsDidChange)),
      forgetVisitedFolders_(std::move(dependencies.forgetVisitedFolders)) {}

JVPrefController::~JVPrefController() { setWindow(nullptr); }

void JVPrefController::setWindow(PrefPaneView* window) {
    if (window_ && window_->hotkeyRecorder().delegate() == this) window_->hotkeyRecorder().setDelegate(nullptr);
    window_ = window;
    if (window_) window_->hotkeyRecorder().setDelegate(this);
}

void JVPrefController::windowDidLoad() {
    if (!window_) return;
    HKRecorderControl& recorder = window_->hotkeyRecorder();
    recorder.setAllowsKeyOnly(true, false);
    recorder.setCanCaptureGlobalHotKeys(false);
    // The recorder reports the filtered combination straight back, which
    // stores it again (hotkeyRecorderKeyComboDidChange).
    const auto flags = static_cast<CGEventFlags>(defaults_.integerForKey(settings::keys::hotkeyFlags));
    const auto code = static_cast<HKKeyCode>(defaults_.integerForKey(settings::keys::hotkeyKeycode));
    recorder.setKeyCombo(HKKeyCombo{flags, code});
}

void JVPrefController::close() {
    if (!defaults_.synchronize()) KMLogInDomain(KMLogLevelWarn, kLog, "settings not saved on closing");
    PrefPaneView* window = window_;
    setWindow(nullptr);
    if (window) window->closeWindow();
}

void JVPrefController::hotkeyRecorderKeyComboDidChange(HKRecorderControl&, CGEventFlags flags, HKKeyCode keyCode) {
    defaults_.setInteger(static_cast<std::int64_t>(flags), settings::keys::hotkeyFlags);
    defaults_.setInteger(keyCode, settings::keys::hotkeyKeycode);
    KMLogInDomain(KMLogLevelInfo, kLog, "hot key: flags 0x%llx, key code %d", static_cast<unsigned long long>(flags),
                  keyCode);
    if (!defaults_.synchronize()) KMLogInDomain(KMLogLevelWarn, kLog, "the hot key could not be saved");
    changed();
}

bool JVPrefController::hotkeyRecorderIsKeyCodeAndFlagsTaken(HKRecorderControl&, HKKeyCode, CGEventFlags,
                                                             std::string&) {
    return false;
}

bool JVPrefController::autostarts() const { return LoginItem::HasLoginItemWithPath(executablePath_); }

void JVPrefController::setAutostarts(bool autostarts) {
    if (autostarts) {
        LoginItem::InstallLoginItemWithPath(executablePath_);
    } else {
        LoginItem::RemoveLoginItemWithPath(executablePath_);
    }
}

bool JVPrefController::boolValue(const settings::Key<bool>& key) const { return defaults_.boolForKey(key); }

void JVPrefController::setBoolValue(const settings::Key<bool>& key, bool value) {
    defaults_.setBool(value, key);
    changed();
}

bool JVPrefController::opensWithFolder() const {
    return defaults_.integerForKey(settings::keys::activationPathBehaviour) == kPathBehaviourFolder;
}

void JVPrefController::setOpensWithFolder(bool folder) {
    defaults_.setInteger(folder ? kPathBehaviourFolder : kPathBehaviourSelection,
                         settings::keys::activationPathBehaviour);
    changed();
}

void JVPrefController::about() {
    if (about_) {
        about_();
    } else {
        KMLogInDomain(KMLogLevelDebug, kLog, "no about window here");
    }
}

void JVPrefController::forgetVisitedFolders() {
    if (forgetVisitedFolders_) forgetVisitedFolders_();
}

void JVPrefController::changed() {
    if (settingsDidChange_) settingsDidChange_();
}

}  // namespace jorvane
