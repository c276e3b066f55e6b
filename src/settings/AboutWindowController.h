#pragma once

// The about window's controller: the version, the homepage, the feedback
// address, quit, and uninstall in place.
//
// Uninstall asks first (a warning alert: "Uninstall & send Feedback",
// "Uninstall", "Cancel"), then deletes the program's own folder (its bundle:
// the folder above bin/) for good, not into the Trash, and quits, even when
// the folder could not be deleted (a read-only medium). The login item and
// the settings stay: uninstalling removes the program and nothing else.
//
// A folder is deleted only when it is the program's alone. One that other
// programs share (a package-manager install under /usr, a prefix such as
// ~/.local whose bin/ holds other programs, the home folder) is left
// untouched: an alert tells the user how to remove Jorvane instead, and the
// program still quits.

#include <filesystem>
#include <functional>
#include <string>
#include <system_error>
#include <string_view>

namespace jorvane {

class Alerts;
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
        // The running program, and its bundle (bundle::bundlePathFor).
        std::filesystem::path executable;
        std::filesystem::path bundle;
        std::string version;
        // Deletes a folder with everything in it; empty: std::filesystem's
        // remove_all. Tests make it fail as a read-only medium would.
        std::function<void(const std::filesystem::path&, std::error_code&)> removeAll;
    };

    explicit AboutWindowController(Dependencies dependencies);

    void visitHomepage();
    // Starts a message to the feedback address in the user's mail program.
    void contact();
    void uninstall();
    void quit();
    // "Version: <version>".
    std::string versionString() const;

    // Whether uninstall may delete this folder, the bundle of `executable`:
    // not a shared prefix, holding the program at bin/jorvane, and no
    // program but Jorvane's own in that bin/.
    static bool isRemovableBundle(const std::filesystem::path& bundle, const std::filesystem::path& executable);

private:
    void removeBundle();

    Alerts& alerts_;
    Application& application_;
    URLOpener& urls_;
    std::filesystem::path executable_;
    std::filesystem::path bundle_;
    std::string version_;
    std::function<void(const std::filesystem::path&, std::error_code&)> removeAll_;
};

}  // namespace jorvane
