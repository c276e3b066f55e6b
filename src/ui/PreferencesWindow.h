#pragma once

// The preferences window, "Jorvane Preferences": the hot key, start at
// login, the ways the address bar opens, what it holds when it opens, and a
// button to the about window. It drives a PreferencesController; every change is
// written to the settings at once. Each open makes a new window, which
// deletes itself when closed.

#include <QWidget>

#include <functional>
#include <memory>
#include <string>

#include "settings/PreferencesController.h"
#include "ui/KeyTranslation.h"

class QCheckBox;
class QPushButton;
class QRadioButton;

namespace jorvane {
class Alerts;
}

namespace jorvane::ui {

class ShortcutRecorderWidget;

class PreferencesWindow final : public QWidget, private PrefPaneView {
    Q_OBJECT
public:
    struct Dependencies {
        settings::UserDefaults& defaults;
        // Tells why a recorded combination is refused.
        Alerts& alerts;
        // The program the login item starts.
        std::string executablePath;
        std::function<void()> about;
        std::function<void()> settingsChanged;
        // Names X keys; empty off X11.
        NativeKeyCodes native;
        // The file manager's name, in the texts.
        std::string fileManager = "Thunar";
        // Forgets every visited folder.
        std::function<void()> forgetVisitedFolders = {};
    };

    static constexpr const char* kTitle = "Jorvane Preferences";

    explicit PreferencesWindow(Dependencies dependencies, QWidget* parent = nullptr);
    ~PreferencesWindow() override;

    // A new window, centred on the screen, shown and activated.
    static PreferencesWindow* open(Dependencies dependencies);

    PreferencesController& controller() { return *controller_; }
    ShortcutRecorderWidget* recorder() const { return recorder_; }
    QCheckBox* autostartBox() const { return autostart_; }
    QCheckBox* hotkeyBox() const { return byHotkey_; }
    QCheckBox* titlebarBox() const { return byTitlebar_; }
    QCheckBox* shortcutsBox() const { return shortcuts_; }
    QRadioButton* folderChoice() const { return folder_; }
    QRadioButton* selectionChoice() const { return selection_; }
    QPushButton* aboutButton() const { return about_; }

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    // PrefPaneView
    ShortcutControl& hotkeyRecorder() override;
    void closeWindow() override;

    QCheckBox* boundBox(const QString& text, const settings::Key<bool>& key);

    std::unique_ptr<PreferencesController> controller_;
    ShortcutRecorderWidget* recorder_ = nullptr;
    QCheckBox* remember_ = nullptr;
    QPushButton* forget_ = nullptr;
    QCheckBox* autostart_ = nullptr;
    QCheckBox* byHotkey_ = nullptr;
    QCheckBox* byTitlebar_ = nullptr;
    QCheckBox* shortcuts_ = nullptr;
    QRadioButton* folder_ = nullptr;
    QRadioButton* selection_ = nullptr;
    QPushButton* about_ = nullptr;
    bool closing_ = false;
};

}  // namespace jorvane::ui
