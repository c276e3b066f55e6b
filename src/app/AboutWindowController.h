#pragma once

// The about window's controller: the version, the homepage, the feedback
// address, quit, and uninstall in place.
//
// Uninstall removes exactly the files the program's own install put there,
// as its manifest lists them (Installation.h), and nothing else:
//   - an unpacked release: the question names the folder; its listed files
//     go, then the folders left empty; a file the user added stays;
//   - a prefix install (`cmake --install`): the question names the prefix
//     and the files; exactly those go;
//   - a package install: an alert says to use the package manager;
//   - anything else (a build tree, a copied program): an alert says that
//     Jorvane cannot tell its files there from others', and nothing goes.
// The question is a warning alert ("Uninstall & send Feedback", "Uninstall",
// "Cancel"); files are deleted for good, not into the Trash, and the program
// quits afterwards, also when some could not be deleted (a read-only
// medium) and after a refusal. The login item and the settings stay.

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "app/Alerts.h"
#include "firstlaunch/Installation.h"

namespace jorvane {

class Application;

// Opens a web address or a mailto: address with the desktop's handler.
class URLOpener {
public:
    virtual ~URLOpener() = default;
    // False when nothing could open it.
    virtual bool openURL(const std::string& url) = 0;
};

class AboutWindowController {
public:
    static constexpr std::string_view kHomepage = "https://jorvane.org";
    // The name of the package a package-manager install comes from.
    static constexpr std::string_view kPackageName = "jorvane";

    struct Dependencies {
        Alerts& alerts;
        Application& application;
        URLOpener& urls;
        // The running program, and the install it belongs to.
        std::filesystem::path executable;
        installation::Installation installation;
        std::string version;
    };

    explicit AboutWindowController(Dependencies dependencies);

    void visitHomepage();
    // Starts a message to the feedback address in the user's mail program.
    void contact();
    void uninstall();
    void quit();
    // "Version: <version>".
    std::string versionString() const;

    // The question asked before uninstalling, naming what goes; nothing when
    // this install cannot be removed by the program.
    std::optional<AlertSpec> uninstallQuestion() const;

private:
    void refuseUninstall();

    Alerts& alerts_;
    Application& application_;
    URLOpener& urls_;
    std::filesystem::path executable_;
    installation::Installation installation_;
    std::string version_;
};

}  // namespace jorvane
