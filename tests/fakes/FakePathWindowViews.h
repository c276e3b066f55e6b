#pragma once

// Recording fakes of the address bar's views, for tests of the bar and of
// whatever drives bars (the registry, the event tap).
// Every call the controller makes is appended to a shared EventLog as
// "<view>.<method>[ <argument>]", so tests can check the order of what
// happened across views (and, by adding their own entries, across ports).
// The views behave like simple real ones: ordering a panel out hides it,
// setting the text puts the caret at its end, and so on.

#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "addressbar/PathWindowViews.h"

namespace jorvane::test {

// An ordered record of events, shared by fakes. Thread-safe.
class EventLog {
public:
    void add(std::string entry);
    std::vector<std::string> entries() const;
    // The entries that begin with `prefix`, in order.
    std::vector<std::string> entriesStartingWith(std::string_view prefix) const;
    void clear();

private:
    mutable std::mutex mutex_;
    std::vector<std::string> entries_;
};

std::string describe(const Rect& rect);       // "x,y wxh"
std::string describe(const BarImage& image);  // "none", "search", "icon:<path>"

class FakePathPanel final : public PathPanelView {
public:
    struct FrameChange {
        Rect frame;
        bool display = false;
        bool animate = false;
    };

    explicit FakePathPanel(std::shared_ptr<EventLog> log) : log_(std::move(log)) {}

    Rect frame() const override { return frame_; }
    void setFrame(const Rect& frame, bool display, bool animate) override;
    bool isVisible() const override { return visible_; }
    void raise() override;
    void focus() override;
    void hide() override;
    void close() override;

    // ---- test side
    // Changes the state without recording anything.
    void setVisible(bool visible) { visible_ = visible; }
    void setFrameSilently(const Rect& frame) { frame_ = frame; }
    bool isKey() const { return key_; }
    bool isClosed() const { return closed_; }
    const std::vector<FrameChange>& frameChanges() const { return frameChanges_; }

private:
    std::shared_ptr<EventLog> log_;
    Rect frame_;
    bool visible_ = false;
    bool key_ = false;
    bool closed_ = false;
    std::vector<FrameChange> frameChanges_;
};

class FakePathField final : public PathFieldView {
public:
    explicit FakePathField(std::shared_ptr<EventLog> log) : log_(std::move(log)) {}

    std::string stringValue() const override { return text_; }
    void setStringValue(const std::string& text) override;
    TextRange selectedRange() const override { return selection_; }
    void setSelectedRange(TextRange range) override;
    void selectAll() override;
    // Bytes times the character width, unless a measure was given.
    double textWidth(const std::string& text) const override;
    Rect frame() const override { return frame_; }
    void noteNumberOfItemsChanged() override;
    void setImage(const BarImage& image) override;
    // Applies as the Qt field does; records "field.completeInline <completion>".
    void completeInline(const std::string& typed, const std::string& completion) override;
    void showProblem(const std::string& text) override;

    // ---- test side: what the user did, without recording anything
    void type(std::string text, TextRange selection);
    void type(std::string text) { type(text, {text.size(), 0}); }
    void setFrame(const Rect& frame) { frame_ = frame; }
    void setTextWidthMeasure(std::function<double(const std::string&)> measure) { measure_ = std::move(measure); }
    const BarImage& image() const { return image_; }
    const std::string& problem() const { return problem_; }

private:
    std::shared_ptr<EventLog> log_;
    std::string problem_;
    std::string text_;
    TextRange selection_;
    Rect frame_;
    double characterWidth_ = 7;
    std::function<double(const std::string&)> measure_;
    BarImage image_;
};

class FakeSpinner final : public SpinnerView {
public:
    explicit FakeSpinner(std::shared_ptr<EventLog> log) : log_(std::move(log)) {}

    void startAnimation() override;
    void setHidden(bool hidden) override;
    bool isHidden() const override { return hidden_; }
    Point frameOrigin() const override { return origin_; }
    void setFrameOrigin(Point origin) override;

    bool isAnimating() const { return animating_; }
    void setOriginSilently(Point origin) { origin_ = origin; }

private:
    std::shared_ptr<EventLog> log_;
    bool hidden_ = true;  // as the panel comes
    bool animating_ = false;
    Point origin_;
};

class FakeCompletionsList final : public CompletionsListView {
public:
    explicit FakeCompletionsList(std::shared_ptr<EventLog> log) : log_(std::move(log)) {}

    bool isVisible() const override { return visible_; }
    void setFrame(const Rect& frame, bool display) override;
    void raise() override;
    void showActive() override;
    void hide() override;
    void close() override;
    // New content drops the selection, as a table reloading does.
    void setContent(const std::vector<std::string>& candidates) override;
    void setNote(const std::string& text) override { note_ = text; }
    void setGroups(const std::vector<Group>& groups) override { groups_ = groups; }
    double rowHeight() const override { return rowHeight_; }
    int selectedRow() const override { return selectedRow_; }
    // Rows outside the content are ignored (but recorded).
    void selectRow(int row) override;
    void deselectAll() override;
    void scrollRowToVisible(int row) override;

    // ---- test side, without recording anything
    void setVisible(bool visible) { visible_ = visible; }
    void setRowHeight(double height) { rowHeight_ = height; }
    // Any row, in the content or not: plays a table out of step.
    void setSelectedRowSilently(int row) { selectedRow_ = row; }
    void setContentSilently(std::vector<std::string> content) { content_ = std::move(content); }
    const std::vector<std::string>& content() const { return content_; }
    const std::string& note() const { return note_; }
    const std::vector<Group>& groups() const { return groups_; }
    Rect frame() const { return frame_; }
    bool isClosed() const { return closed_; }

private:
    std::shared_ptr<EventLog> log_;
    bool visible_ = false;
    bool closed_ = false;
    Rect frame_;
    std::vector<std::string> content_;
    std::string note_;
    std::vector<Group> groups_;
    double rowHeight_ = 17;
    int selectedRow_ = -1;
};

// One bar's fake views around one log. take() hands the views to the
// controller; the accessors keep working as long as the controller (or
// whoever took them) keeps them alive.
class FakePathWindowViews {
public:
    explicit FakePathWindowViews(std::shared_ptr<EventLog> log = std::make_shared<EventLog>());

    // Once only: a second call gets empty views.
    PathWindowViews take();

    FakePathPanel& panel() { return *panel_; }
    FakePathField& field() { return *field_; }
    FakeSpinner& spinner() { return *spinner_; }
    FakeCompletionsList& completions() { return *completions_; }
    EventLog& log() { return *log_; }

private:
    std::shared_ptr<EventLog> log_;
    PathWindowViews views_;
    FakePathPanel* panel_;
    FakePathField* field_;
    FakeSpinner* spinner_;
    FakeCompletionsList* completions_;
};

}  // namespace jorvane::test
