#include "accessibility/WindowObserver.h"

namespace jorvane {

std::string_view nameOf(WindowNotification notification) {
    switch (notification) {
        case WindowNotification::ElementDestroyed: return "destroyed";
        case WindowNotification::Minimized: return "minimized";
        case WindowNotification::Restored: return "restored";
        case WindowNotification::Moved: return "moved";
        case WindowNotification::Resized: return "resized";
        case WindowNotification::Restacked: return "restacked";
        case WindowNotification::TitleChanged: return "title changed";
        case WindowNotification::FocusedWindowChanged: return "focused window changed";
        case WindowNotification::ApplicationActivated: return "application activated";
        case WindowNotification::ApplicationDeactivated: return "application deactivated";
    }
    return "unknown";
}

}  // namespace jorvane
