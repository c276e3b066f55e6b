#pragma once

// Recording fakes of the address bar's views. Every call the controller makes is appended to a shared
// EventLog as "<view>.<method>[ <argument>]", so tests check the order across views (and ports). The views
// behave like simple real ones: hiding a panel hides it, setting the text puts the caret at its end.

#include <functional>
#include <memory>
#include <mutex>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "addressbar/PathWindowViews.h"

namespace jorvane::test {

// An ordered record of events, shared by fakes. Thread-safe.
class EventLog {
public:
    void add(std::string entry) {
        std::lock_guard lock(mutex_);
        entries_.push_back(std::move(entry));
    }
    std::vector<std::string> entries() const {
        std::lock_guard lock(mutex_);
        return entries_;
    }
    std::vector<std::string> entriesStartingWith(std::string_view prefix) const {
        std::vector<std::string> matching;
        for (std::string& entry : entries())
            if (entry.starts_with(prefix)) matching.push_back(std::move(entry));
        return matching;
    }
    void clear() {
        std::lock_guard lock(mutex_);
        entries_.clear();
    }

private:
    mutable std::mutex mutex_;
    std::vector<std::string> entries_;
};

inline std::string number(double value) {
    std::ostringstream out;
    out << value;
    return out.str();
}
// "x,y wxh"
inline std::string describe(const Rect& r) {
    return number(r.origin.x) + "," + number(r.origin.y) + " " + number(r.size.width) + "x" + number(r.size.height);
}
// "none", "search", "icon:<path>"
inline std::string describe(const BarImage& image) {
    if (image.kind == BarImage::Kind::fileIcon) return "icon:" + image.path;
    return image.kind == BarImage::Kind::search ? "search" : "none";
}

class FakePathPanel final : public PathPanelView {
public:
    struct FrameChange {
        Rect frame;
        bool display = false;
        bool animate = false;
    };

    explicit FakePathPanel(std::shared_ptr<EventLog> log) : log_(std::move(log)) {}
    Rect frame() const override { return frame_; }
    void setFrame(const Rect& frame, bool display, bool animate) override {
        frame_ = frame;
        frameChanges_.push_back({frame, display, animate});
        log_->add("panel.setFrame " + describe(frame) + (animate ? " animated" : ""));
    }
    bool isVisible() const override { return visible_; }
    void raise() override { visible_ = true, log_->add("panel.raise"); }
    void focus() override { key_ = true, log_->add("panel.focus"); }
    void hide() override { visible_ = key_ = false, log_->add("panel.hide"); }
    void close() override { visible_ = key_ = false, closed_ = true, log_->add("panel.close"); }

    // ---- test side, without recording anything
    void setVisible(bool visible) { visible_ = visible; }
    void setFrameSilently(const Rect& frame) { frame_ = frame; }
    bool isKey() const { return key_; }
    bool isClosed() const { return closed_; }
    const std::vector<FrameChange>& frameChanges() const { return frameChanges_; }

private:
    std::shared_ptr<EventLog> log_;
    Rect frame_;
    bool visible_ = false, key_ = false, closed_ = false;
    std::vector<FrameChange> frameChanges_;
};

class FakePathField final : public PathFieldView {
public:
    explicit FakePathField(std::shared_ptr<EventLog> log) : log_(std::move(log)) {}
    std::string stringValue() const override { return text_; }
    void setStringValue(const std::string& text) override {
        text_ = text;
        selection_ = {text_.size(), 0};
        log_->add("field.setStringValue " + text);
    }
    TextRange selectedRange() const override { return selection_; }
    void setSelectedRange(TextRange r) override {
        selection_ = r;
        log_->add("field.setSelectedRange " + std::to_string(r.location) + "," + std::to_string(r.length));
    }
    void selectAll() override { selection_ = {0, text_.size()}, log_->add("field.selectAll"); }
    // Seven points a byte, unless a measure was given.
    double textWidth(const std::string& text) const override {
        return measure_ ? measure_(text) : static_cast<double>(text.size()) * 7;
    }
    Rect frame() const override { return frame_; }
    void noteNumberOfItemsChanged() override { log_->add("field.noteNumberOfItemsChanged"); }
    void setImage(const BarImage& image) override { image_ = image, log_->add("field.setImage " + describe(image)); }
    // Applies as the Qt field does, only over the untouched or completed text.
    void completeInline(const std::string& typed, const std::string& completion) override {
        const bool untouched = text_ == typed && selection_ == TextRange{typed.size(), 0};
        const bool completed =
            text_.starts_with(typed) && selection_ == TextRange{typed.size(), text_.size() - typed.size()};
        if ((!untouched && !completed) || !completion.starts_with(typed)) return;
        text_ = completion;
        selection_ = {typed.size(), completion.size() - typed.size()};
        log_->add("field.completeInline " + completion);
    }
    void showProblem(const std::string& text) override { problem_ = text, log_->add("field.showProblem " + text); }

    // ---- test side: what the user did, without recording anything
    void type(std::string text, TextRange selection) { text_ = std::move(text), selection_ = selection; }
    void type(std::string text) { type(text, {text.size(), 0}); }
    void setFrame(const Rect& frame) { frame_ = frame; }
    void setTextWidthMeasure(std::function<double(const std::string&)> measure) { measure_ = std::move(measure); }
    const BarImage& image() const { return image_; }
    const std::string& problem() const { return problem_; }

private:
    std::shared_ptr<EventLog> log_;
    std::string problem_, text_;
    TextRange selection_;
    Rect frame_;
    std::function<double(const std::string&)> measure_;
    BarImage image_;
};

class FakeSpinner final : public SpinnerView {
public:
    explicit FakeSpinner(std::shared_ptr<EventLog> log) : log_(std::move(log)) {}
    void startAnimation() override { animating_ = true, log_->add("spinner.startAnimation"); }
    void setHidden(bool hidden) override { hidden_ = hidden, log_->add(hidden ? "spinner.hide" : "spinner.unhide"); }
    bool isHidden() const override { return hidden_; }
    Point frameOrigin() const override { return origin_; }
    void setFrameOrigin(Point origin) override {
        origin_ = origin;
        log_->add("spinner.setFrameOrigin " + number(origin.x) + "," + number(origin.y));
    }

    bool isAnimating() const { return animating_; }
    void setOriginSilently(Point origin) { origin_ = origin; }

private:
    std::shared_ptr<EventLog> log_;
    bool hidden_ = true, animating_ = false;
    Point origin_;
};

class FakeCompletionsList final : public CompletionsListView {
public:
    explicit FakeCompletionsList(std::shared_ptr<EventLog> log) : log_(std::move(log)) {}
    bool isVisible() const override { return visible_; }
    void setFrame(const Rect& frame, bool) override { frame_ = frame, log_->add("list.setFrame " + describe(frame)); }
    void raise() override { visible_ = true, log_->add("list.raise"); }
    void showActive() override { log_->add("list.showActive"); }
    void hide() override { visible_ = false, log_->add("list.hide"); }
    void close() override { visible_ = false, closed_ = true, log_->add("list.close"); }
    // New content drops the selection, as a table reloading does.
    void setContent(const std::vector<std::string>& candidates) override {
        content_ = candidates;
        selectedRow_ = -1;
        log_->add("list.setContent " + std::to_string(candidates.size()));
    }
    void setNote(const std::string& text) override { note_ = text; }
    void setGroups(const std::vector<Group>& groups) override { groups_ = groups; }
    double rowHeight() const override { return rowHeight_; }
    int selectedRow() const override { return selectedRow_; }
    // Rows outside the content are ignored (but recorded).
    void selectRow(int row) override {
        if (row >= 0 && static_cast<std::size_t>(row) < content_.size()) selectedRow_ = row;
        log_->add("list.selectRow " + std::to_string(row));
    }
    void deselectAll() override { selectedRow_ = -1, log_->add("list.deselectAll"); }
    void scrollRowToVisible(int row) override { log_->add("list.scrollRowToVisible " + std::to_string(row)); }

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
    bool visible_ = false, closed_ = false;
    Rect frame_;
    std::vector<std::string> content_;
    std::string note_;
    std::vector<Group> groups_;
    double rowHeight_ = 17;
    int selectedRow_ = -1;
};

// One bar's fake views around one log. take() hands them to the controller (once); the accessors keep
// working as long as whoever took them keeps them alive.
class FakePathWindowViews {
public:
    explicit FakePathWindowViews(std::shared_ptr<EventLog> log = std::make_shared<EventLog>())
        : log_(std::move(log)),
          views_{std::make_unique<FakePathPanel>(log_), std::make_unique<FakePathField>(log_),
                 std::make_unique<FakeSpinner>(log_), std::make_unique<FakeCompletionsList>(log_)},
          panel_(static_cast<FakePathPanel*>(views_.panel.get())),
          field_(static_cast<FakePathField*>(views_.field.get())),
          spinner_(static_cast<FakeSpinner*>(views_.spinner.get())),
          completions_(static_cast<FakeCompletionsList*>(views_.completions.get())) {}

    PathWindowViews take() { return std::move(views_); }
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
