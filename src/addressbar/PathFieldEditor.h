#pragma once

// The address bar's field editor: the part of the text field that edits.
// It keeps no state. It swallows the Ctrl shortcuts whose keys would
// otherwise also edit the text (the panel has already acted on them), and
// adds the program's own entry to the field's context menu.

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "addressbar/PathWindowViews.h"
#include "util/Geometry.h"

namespace jorvane {

class PathWindowDelegate;

// One entry of a context menu, as the adapter must build it.
struct MenuItem {
    enum class Kind { action, separator };
    enum class Image { none, applicationIcon };

    Kind kind = Kind::action;
    std::string title;
    std::string keyEquivalent;
    Image image = Image::none;
    Size imageSize;
    std::function<void()> action;

    static MenuItem separatorItem() { return MenuItem{Kind::separator, {}, {}, Image::none, {}, {}}; }
};

class PathFieldEditor {
public:
    // "Jorvane Preferences" and the ellipsis character U+2026.
    static constexpr std::string_view kPreferencesItemTitle = "Jorvane Preferences\xE2\x80\xA6";
    static constexpr double kMenuImageSide = 14.0;

    explicit PathFieldEditor(PathWindowDelegate& delegate) : delegate_(delegate) {}

    // True when the key press is consumed here, without any action: Ctrl
    // (alone among the modifiers) with W, N, T, R, 1, 2, 3 or 4. Everything
    // else goes on to the text system.
    static bool keyDown(const KeyEvent& event);
    // The panel's shortcuts do not concern the field editor: it consumes them.
    static bool handleKeyDown(const KeyEvent&) { return true; }

    // The field's own context menu items followed by a separator and
    // "Jorvane Preferences…", which opens the preferences window.
    std::vector<MenuItem> menuForEvent(std::vector<MenuItem> inherited) const;

private:
    PathWindowDelegate& delegate_;
};

}  // namespace jorvane
