#pragma once

// What the Thunar handlers reach through AT-SPI (libatspi) inside one of
// Thunar's windows: the toolbar's location text, its hidden view and reload
// buttons, the status bar, and the Details view's table of files.
//
// libatspi and GLib objects are not thread-safe: everything here runs on the
// handler catalogue's worker thread, which owns the GLib main context that
// libatspi's bus connection is attached to. Element references are cached
// per X window and checked against the window's title before each use.

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/thunar/ThunarX.h"

typedef struct _AtspiAccessible AtspiAccessible;
typedef struct _GMainContext GMainContext;

namespace jorvane::thunar {

// An owned reference to an AT-SPI element.
struct AtspiUnref {
    void operator()(AtspiAccessible* element) const;
};
using AtspiRef = std::unique_ptr<AtspiAccessible, AtspiUnref>;

enum class ThunarView { Icon, Details, Compact, Unknown };
enum class ToolbarButton { IconView, ListView, CompactView, Reload };

// The Details view's table of the folder's files.
class DetailsTable {
public:
    explicit DetailsTable(AtspiRef table) : table_(std::move(table)) {}
    int rowCount();
    // The name shown in a row's name column, nothing when it cannot be read.
    std::optional<std::string> nameAt(int row);
    std::vector<int> selectedRows();
    bool clearSelection();
    bool selectRow(int row);
    // Opens the row's item the way a double click does. Thunar opens the
    // selected items, so the row must be selected (alone) first.
    bool activateRow(int row);
    // Scrolls so that the row is visible (through the vertical scroll bar).
    bool scrollToRow(int row);

private:
    std::optional<int> nameColumn();
    AtspiRef table_;
    std::optional<int> nameColumn_;
};

class ThunarAtspi {
public:
    ThunarAtspi() = default;
    ~ThunarAtspi();
    ThunarAtspi(const ThunarAtspi&) = delete;
    ThunarAtspi& operator=(const ThunarAtspi&) = delete;

    // Connects libatspi to the accessibility bus and attaches it to `context`
    // (the worker's), with `callTimeoutMs` as the bound of each D-Bus call.
    // Once per process; false when the bus cannot be reached.
    bool initialise(GMainContext* context, int callTimeoutMs);
    bool isInitialised() const { return initialised_; }

    // Selects the X window whose elements the calls below use. False when
    // Thunar's accessible frame for it cannot be found.
    bool selectWindow(std::uint32_t xid, int pid, const std::string& title, const std::optional<XRect>& frame);
    // Forgets cached elements of windows that are gone.
    void forgetWindow(std::uint32_t xid);
    // Drops the cached elements of every window whose process has ended.
    void forgetEndedProcesses();

    bool hasLocationEntry();
    std::optional<std::string> locationText();
    // Puts the text into the location entry and activates it, as Return does.
    bool enterLocation(const std::string& text);
    bool pressButton(ToolbarButton button);
    ThunarView currentView();
    std::optional<std::string> statusText();
    // The table of the current tab's Details view; nothing in other views.
    std::optional<DetailsTable> detailsTable();

    // A text of Thunar's in the user's language (the message catalogue Thunar
    // uses), and the part of a format before its first placeholder.
    static std::string translated(const char* msgid);
    static std::string formatPrefix(const char* msgid);

    // The accessible application of the process; nothing when it has none.
    static AtspiRef applicationFor(int pid);

private:
    struct WindowElements {
        AtspiRef frame;
        // The process the elements belong to: the X server hands a window id
        // out again once its client is gone, so a restarted Thunar's window
        // may have the id (and the title) of a window of the one that died.
        int pid = 0;
        std::string title;
        AtspiRef entry;
        std::map<ToolbarButton, AtspiRef> buttons;
        AtspiRef statusBar;
    };
    AtspiRef findFrame(int pid, const std::string& title, const std::optional<XRect>& frame);
    AtspiRef findFrameIn(AtspiAccessible* app, const std::string& title, const std::optional<XRect>& frame);
    AtspiRef currentPane();
    WindowElements* current();

    bool initialised_ = false;
    std::map<std::uint32_t, WindowElements> windows_;
    std::uint32_t currentXid_ = 0;
};

}  // namespace jorvane::thunar
