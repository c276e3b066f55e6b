#pragma once

// The address bar's views as the controller sees them: passive objects that
// show what they are told and report nothing on their own. The Qt adapter
// implements them; tests record what the controller asked for.
//
// Text is UTF-8 bytes as the file system gives them (names need not be valid
// UTF-8: the adapter must hand back exactly the bytes it was given). Ranges
// are byte offsets into that text.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "keys/VirtualKeyCodes.h"
#include "util/Geometry.h"

namespace jorvane {

// A key press as the bar receives it: the key's virtual key code (US
// positions, VirtualKeyCodes.h), the device-independent modifier flags and
// the text the key types (empty for keys that type nothing).
struct KeyEvent {
    KeyCode keyCode = 0;
    Modifiers modifierFlags = 0;
    std::string characters;
    friend bool operator==(const KeyEvent&, const KeyEvent&) = default;
};

// The editing commands the text field hands to its controller before it
// performs them itself (Down, Up, Return, Tab, Shift-Tab, Ctrl-Up,
// Ctrl-Down, Escape). `other` stands for every command the bar leaves to
// the field.
enum class TextCommand {
    moveDown,
    moveUp,
    insertNewline,
    insertTab,
    insertBacktab,
    moveToBeginningOfDocument,
    moveToEndOfDocument,
    cancelOperation,
    other,
};

struct TextRange {
    std::size_t location = 0;
    std::size_t length = 0;
    friend bool operator==(const TextRange&, const TextRange&) = default;
};

// The icon at the left of the field.
struct BarImage {
    enum class Kind { none, search, fileIcon };
    Kind kind = Kind::none;
    std::string path;  // for fileIcon: the item whose icon is shown
    static BarImage search() { return {Kind::search, {}}; }
    static BarImage iconForFile(std::string p) { return {Kind::fileIcon, std::move(p)}; }
    friend bool operator==(const BarImage&, const BarImage&) = default;
};

// The floating panel over the file manager's title bar. Frames are in the
// bottom-left screen system (origin at the bottom left of the first screen).
// The adapter tells the controller when the panel loses key status
// (PathWindowController::focusLost).
class PathPanelView {
public:
    virtual ~PathPanelView() = default;
    virtual Rect frame() const = 0;
    // `animate`: move and resize smoothly rather than jump.
    virtual void setFrame(const Rect& frame, bool display, bool animate) = 0;
    virtual bool isVisible() const = 0;
    virtual void raise() = 0;
    virtual void focus() = 0;
    virtual void hide() = 0;
    virtual void close() = 0;
};

// The path text field together with its field editor. Setting the text puts
// the caret at its end.
class PathFieldView {
public:
    virtual ~PathFieldView() = default;
    virtual std::string stringValue() const = 0;
    virtual void setStringValue(const std::string& text) = 0;
    // The field editor's selection; inline completion leaves the added tail
    // selected.
    virtual TextRange selectedRange() const = 0;
    virtual void setSelectedRange(TextRange range) = 0;
    virtual void selectAll() = 0;
    // Width of the text in the default font, not the field's.
    virtual double textWidth(const std::string& text) const = 0;
    // In the panel's content coordinates (bottom-left origin).
    virtual Rect frame() const = 0;
    virtual void noteNumberOfItemsChanged() = 0;
    virtual void setImage(const BarImage& image) = 0;
    // Inline completion that arrived after the keystroke: when the field
    // still holds exactly `typed` with the caret at its end, or `typed`
    // followed by a selected tail that an earlier completion added, the
    // tail becomes the rest of `completion`, selected. Anything else the
    // user did since wins and nothing changes.
    virtual void completeInline(const std::string& typed, const std::string& completion) = 0;
    // A short message in the bar about something that failed ("Thunar did
    // not answer"); empty text takes it away. It goes by itself at the
    // user's next edit.
    virtual void showProblem(const std::string& text) = 0;
};

class SpinnerView {
public:
    virtual ~SpinnerView() = default;
    virtual void startAnimation() = 0;
    virtual void setHidden(bool hidden) = 0;
    virtual bool isHidden() const = 0;
    virtual Point frameOrigin() const = 0;
    virtual void setFrameOrigin(Point origin) = 0;
};

// The completion list's panel and its table, whose content is the list of
// candidates.
class CompletionsListView {
public:
    virtual ~CompletionsListView() = default;
    virtual bool isVisible() const = 0;
    virtual void setFrame(const Rect& frame, bool display) = 0;
    virtual void raise() = 0;
    // Makes the list look active while the bar keeps the keyboard.
    virtual void showActive() = 0;
    virtual void hide() = 0;
    virtual void close() = 0;
    // The rows from `firstRow` up to the next group form a group under
    // `title` (names that only resemble the text, the visited folders after
    // the folder's candidates).
    struct Group {
        std::size_t firstRow;
        std::string title;
        bool operator==(const Group&) const = default;
    };

    virtual void setContent(const std::vector<std::string>& candidates) = 0;
    // The groups, by first row; rows keep their numbers: a title is not a
    // row. Empty shows none.
    virtual void setGroups(const std::vector<Group>& groups) = 0;
    // A last row that is not a candidate and cannot be chosen ("Reading
    // folder…", how many more match); empty text shows no such row.
    virtual void setNote(const std::string& text) = 0;
    // Height of row 0, the height of every row.
    virtual double rowHeight() const = 0;
    // -1 when no row is selected.
    virtual int selectedRow() const = 0;
    // Rows outside the content are ignored.
    virtual void selectRow(int row) = 0;
    virtual void deselectAll() = 0;
    virtual void scrollRowToVisible(int row) = 0;
};

// Everything one address bar shows.
struct PathWindowViews {
    std::unique_ptr<PathPanelView> panel;
    std::unique_ptr<PathFieldView> field;
    std::unique_ptr<SpinnerView> spinner;
    std::unique_ptr<CompletionsListView> completions;
};

}  // namespace jorvane
