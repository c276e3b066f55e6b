#pragma once

// One address bar in Qt widgets: the views the core's PathWindowController
// drives (PathWindowViews), and the routing of what the user does back to it.
//
//     auto bar = ui::makePathWindowController(windowElement, dependencies);
//
// or, in two steps (e.g. to route the events elsewhere in tests):
//
//     ui::QtPathWindow qt = ui::makePathWindowViews();
//     auto controller = std::make_unique<PathWindowController>(windowElement, std::move(qt.views), dependencies);
//     ui::connectToController(*qt.events, *controller);
//
// The widgets live as long as the views: the controller owns them, and when
// it goes the windows close and no event reaches it any more.
//
// Keys. Every key press in the field goes, in this order, to:
//   1. handleKeyDown (the bar's Ctrl shortcuts), with the key in the core's
//      vocabulary (KeyTranslation.h); consumed when it answers true;
//   2. the field editor's filter (PathFieldEditor::keyDown), which drops
//      the Ctrl shortcuts that would also edit the text;
//   3. handleEditCommand for the editing commands (Down, Up, Return/Enter,
//      Tab, Shift+Tab, Ctrl+Up, Ctrl+Down, Escape); consumed when handled;
//   4. the line edit itself.
// After the user has typed (not deleted) with the caret at the end, the
// field asks completedString for the typed text and, when the answer extends
// it, appends the rest selected (inline completion). Every edit by the user
// is reported to textChanged; text set by the controller is not.
//
// Focus. The bar is a window the window manager does not manage; it takes the
// keyboard itself when shown and again on every click into it. When it loses
// the keyboard while on screen, focusLost follows.

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "addressbar/PathFieldEditor.h"
#include "addressbar/PathWindowController.h"
#include "addressbar/PathWindowViews.h"

namespace jorvane::ui {

class PathBar;

// What one bar's widgets report. Empty members ignore the event (and the
// key stations answer false).
struct PathWindowEvents {
    std::function<bool(const KeyEvent&)> handleKeyDown;
    std::function<bool(TextCommand)> handleEditCommand;
    std::function<void()> textChanged;
    std::function<std::optional<std::string>(std::string_view typed)> completedString;
    // The field's context menu: the inherited items in, the items to show out.
    std::function<std::vector<MenuItem>(std::vector<MenuItem>)> menuForEvent;
    // The field's arrow.
    std::function<void()> popupButtonClicked;
    // A row of the completion list was clicked (it is selected by then).
    std::function<void()> completionChosen;
    std::function<void()> focusLost;
    // After the bar went off screen while it had the keyboard (Escape, Return,
    // the hot key): the composition root hands the keyboard back to the file
    // manager's window here. Not after the user took the keyboard elsewhere.
    std::function<void()> didOrderOut;
};

struct QtPathWindow {
    PathWindowViews views;
    std::shared_ptr<PathWindowEvents> events;
    // The widgets, for tests and diagnostics; valid while the views live.
    std::weak_ptr<PathBar> bar;
};

// The widgets of one bar, hidden, and the views over them.
QtPathWindow makePathWindowViews();

// Routes the bar's events to the controller's methods of the same names. The
// controller must own the views the events came with.
void connectToController(PathWindowEvents& events, PathWindowController& controller);

// The bar of the file-manager window `windowElement`, its events routed to it.
// `didOrderOut` as in PathWindowEvents.
std::unique_ptr<PathWindowController> makePathWindowController(ElementRef windowElement,
                                                               PathWindowController::Dependencies dependencies,
                                                               std::function<void()> didOrderOut = {});

}  // namespace jorvane::ui
