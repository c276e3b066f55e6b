#pragma once

// The preferences window's controller: the activation hot key (a recorder
// control), start at login, the activation check boxes and what the bar holds
// when it opens. The window is a passive view (PrefPaneView); every open
// makes a new window with its own controller, and all of them work on the
// one settings domain, which outlives them.
//
// The hot key is stored as two integers, "hotkey_flags" (modifier layout, the
// bits the event tap compares with) and "hotkey_keycode". Loading the window
// hands the stored pair to the recorder, which filters the flags and reports
// the combination straight back, so opening the window rewrites both keys
// with the filtered values. Every other control is written to the settings
// the moment it changes; the next event that consults a key sees the new
// value, and `settingsChanged` lets the event tap learn which keys it may
// now have to swallow.
//
// Start at login is never stored in the settings: the user's autostart
// entries are the only record (LoginItem::).

#include <cstdint>
#include <functional>
#include <string>

#include "settings/DefaultsCatalogue.h"
#include "shortcut/ShortcutControl.h"

namespace jorvane {

namespace settings {
class UserDefaults;
}

// The window as the controller sees it.
class PrefPaneView {
public:
    virtual ~PrefPaneView() = default;
    // The hot-key field; it lives as long as the window.
    virtual ShortcutControl& hotkeyRecorder() = 0;
    // Closes the window (it goes away with its controls).
    virtual void closeWindow() = 0;
};

class PreferencesController final : public ShortcutControlDelegate {
public:
    // What "activation_path_behaviour" holds for each choice: the folder the
    // window shows (1), anything else for the file manager's selection.
    static constexpr std::int64_t kPathBehaviourFolder = 1;
    static constexpr std::int64_t kPathBehaviourSelection = 0;

    struct Dependencies {
        settings::UserDefaults& defaults;
        // The program started at login: its own executable.
        std::string executablePath;
        // Opens a new about window.
        std::function<void()> about;
        // A setting changed (the event tap learns the keys it may swallow).
        std::function<void()> settingsChanged;
        // Forgets every visited folder.
        std::function<void()> forgetVisitedFolders = {};
    };

    explicit PreferencesController(Dependencies dependencies);
    ~PreferencesController() override;
    PreferencesController(const PreferencesController&) = delete;
    PreferencesController& operator=(const PreferencesController&) = delete;

    // The window this controller drives; null detaches it (the recorder no
    // longer reports to this controller).
    void setWindow(PrefPaneView* window);
    PrefPaneView* window() const { return window_; }

    // The window's controls exist: configures the recorder (key-only
    // combinations allowed, Escape cancels rather than records, the desktop's
    // shortcuts stay active while recording) and shows the stored hot key.
    void windowLoaded();

    // Saves the settings, detaches the window, then closes it: the settings
    // reach the disk before anything is taken down.
    void close();

    // ---- ShortcutControlDelegate
    // Stores the recorded combination as it is (modifier flags) and saves.
    void shortcutChanged(ShortcutControl& recorder, Modifiers flags, ShortcutKeyCode keyCode) override;
    // The preferences take no combination for themselves: the desktop's
    // shortcuts and the bar's menu are the validator's own checks.
    bool hotkeyRecorderIsKeyCodeAndFlagsTaken(ShortcutControl& recorder, ShortcutKeyCode keyCode, Modifiers flags,
                                              std::string& reason) override;

    // ---- Start at login
    bool autostarts() const;
    void setAutostarts(bool autostarts);

    // ---- The check boxes and the choice, written at once
    bool boolValue(const settings::Key<bool>& key) const;
    void setBoolValue(const settings::Key<bool>& key, bool value);
    // True when the bar opens with the window's folder, false with the
    // selection.
    bool opensWithFolder() const;
    void setOpensWithFolder(bool folder);

    // Opens a new about window.
    void about();
    // Forgets the visited folders (the button next to "Remember visited
    // folders").
    void forgetVisitedFolders();

private:
    void changed();

    settings::UserDefaults& defaults_;
    std::string executablePath_;
    std::function<void()> about_;
    std::function<void()> settingsDidChange_;
    std::function<void()> forgetVisitedFolders_;
    PrefPaneView* window_ = nullptr;
};

}  // namespace jorvane
