#pragma once

// The about window: the program's icon, name and version, and buttons for
// the homepage, a feedback mail, uninstall and quit. It drives an
// AboutWindowController; each open makes a new window, which deletes itself
// when closed.

#include <QWidget>

#include <filesystem>
#include <memory>
#include <string>

#include "app/AboutWindowController.h"

class QLabel;
class QPushButton;

namespace jorvane::ui {

// Web and mail addresses through the desktop (QDesktopServices).
class DesktopURLOpener final : public URLOpener {
public:
    bool openURL(const std::string& url) override;
};

class AboutWindow final : public QWidget {
    Q_OBJECT
public:
    struct Dependencies {
        Alerts& alerts;
        Application& application;
        std::filesystem::path executable;
        installation::Installation installation;
        std::string version;
        // Null: the desktop's handlers.
        std::shared_ptr<URLOpener> urls;
    };

    static constexpr const char* kTitle = "About Jorvane";

    explicit AboutWindow(Dependencies dependencies, QWidget* parent = nullptr);

    // A new window, centred on the screen, shown and activated.
    static AboutWindow* open(Dependencies dependencies);

    AboutWindowController& controller() { return *controller_; }
    QLabel* versionLabel() const { return version_; }
    QPushButton* homepageButton() const { return homepage_; }
    QPushButton* contactButton() const { return contact_; }
    QPushButton* uninstallButton() const { return uninstall_; }
    QPushButton* quitButton() const { return quit_; }

private:
    std::shared_ptr<URLOpener> urls_;
    std::unique_ptr<AboutWindowController> controller_;
    QLabel* version_ = nullptr;
    QPushButton* homepage_ = nullptr;
    QPushButton* contact_ = nullptr;
    QPushButton* uninstall_ = nullptr;
    QPushButton* quit_ = nullptr;
};

}  // namespace jorvane::ui
