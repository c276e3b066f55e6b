#pragma once

// What an address bar asks of the application around it. The application
// delegate implements it; the bar never reaches the registry of bars or the
// preferences and about windows by any other way.

namespace jorvane {

class PathWindowDelegate {
public:
    virtual ~PathWindowDelegate() = default;
    // Opens the bar of the file manager's focused window with its default
    // content (the hot key's action), creating the bar if that window has none.
    virtual void show() = 0;
    // Flips whether the file manager shows hidden files.
    virtual void toggleShowHidden() = 0;
    // Shows the preferences window.
    virtual void openPreferences() = 0;
    // Shows the about window.
    virtual void about() = 0;
};

}  // namespace jorvane
