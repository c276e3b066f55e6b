#include "fakes/FakePathWindowViews.h"

#include <sstream>

namespace jorvane::test {

namespace {

std::string number(double value) {
    std::ostringstream out;
    out << value;
    return out.str();
}

}  // namespace

// ---- EventLog

void EventLog::add(std::string entry) {
    std::lock_guard lock(mutex_);
    entries_.push_back(std::move(entry));
}

std::vector<std::string> EventLog::entries() const {
    std::lock_guard lock(mutex_);
    return entries_;
}

std::vector<std::string> EventLog::entriesStartingWith(std::string_view prefix) const {
    std::lock_guard lock(mutex_);
    std::vector<std::string> matching;
    for (const std::string& entry : entries_)
        if (entry.starts_with(prefix)) matching.push_back(entry);
    return matching;
}

void EventLog::clear() {
    std::lock_guard lock(mutex_);
    entries_.clear();
}

std::string describe(const Rect& rect) {
    return number(rect.origin.x) + "," + number(rect.origin.y) + " " + number(rect.size.width) + "x" +
           number(rect.size.height);
}

std::string describe(const BarImage& image) {
    switch (image.kind) {
        case BarImage::Kind::none: return "none";
        case BarImage::Kind::search: return "search";
        case BarImage::Kind::fileIcon: return "icon:" + image.path;
    }
    return "?";
}

// ---- FakePathPanel

void FakePathPanel::setFrame(const Rect& frame, bool display, bool animate) {
    frame_ = frame;
    frameChanges_.push_back({frame, display, animate});
    log_->add("panel.setFrame " + describe(frame) + (animate ? " animated" : ""));
}

void FakePathPanel::raise() {
    visible_ = true;
    log_->add("panel.raise");
}

void FakePathPanel::focus() {
    key_ = true;
    log_->add("panel.focus");
}

void FakePathPanel::hide() {
    visible_ = false;
    key_ = false;
    log_->add("panel.hide");
}

void FakePathPanel::close() {
    visible_ = false;
    key_ = false;
    closed_ = true;
    log_->add("panel.close");
}

// ---- FakePathField

void FakePathField::setStringValue(const std::string& text) {
    text_ = text;
    selection_ = {text_.size(), 0};
    log_->add("field.setStringValue " + text);
}

void FakePathField::setSelectedRange(TextRange range) {
    selection_ = range;
    log_->add("field.setSelectedRange " + std::to_string(range.location) + "," + std::to_string(range.length));
}

void FakePathField::selectAll() {
    selection_ = {0, text_.size()};
    log_->add("field.selectAll");
}

double FakePathField::textWidth(const std::string& text) const {
    if (measure_) return measure_(text);
    return static_cast<double>(text.size()) * characterWidth_;
}

void FakePathField::noteNumberOfItemsChanged() { log_->add("field.noteNumberOfItemsChanged"); }

void FakePathField::setImage(const BarImage& image) {
    image_ = image;
    log_->add("field.setImage " + describe(image));
}

void FakePathField::completeInline(const std::string& typed, const std::string& completion) {
    const bool untouched = text_ == typed && selection_ == TextRange{typed.size(), 0};
    const bool completed =
        text_.starts_with(typed) && selection_ == TextRange{typed.size(), text_.size() - typed.size()};
    if ((!untouched && !completed) || !completion.starts_with(typed)) return;
    text_ = completion;
    selection_ = {typed.size(), completion.size() - typed.size()};
    log_->add("field.completeInline " + completion);
}

void FakePathField::showProblem(const std::string& text) {
    problem_ = text;
    log_->add("field.showProblem " + text);
}

void FakePathField::type(std::string text, TextRange selection) {
    text_ = std::move(text);
    selection_ = selection;
}

// ---- FakeSpinner

void FakeSpinner::startAnimation() {
    animating_ = true;
    log_->add("spinner.startAnimation");
}

void FakeSpinner::setHidden(bool hidden) {
    hidden_ = hidden;
    log_->add(hidden ? "spinner.hide" : "spinner.unhide");
}

void FakeSpinner::setFrameOrigin(Point origin) {
    origin_ = origin;
    log_->add("spinner.setFrameOrigin " + number(origin.x) + "," + number(origin.y));
}

// ---- FakeCompletionsList

void FakeCompletionsList::setFrame(const Rect& frame, bool /*display*/) {
    frame_ = frame;
    log_->add("list.setFrame " + describe(frame));
}

void FakeCompletionsList::raise() {
    visible_ = true;
    log_->add("list.raise");
}

void FakeCompletionsList::showActive() { log_->add("list.showActive"); }

void FakeCompletionsList::hide() {
    visible_ = false;
    log_->add("list.hide");
}

void FakeCompletionsList::close() {
    visible_ = false;
    closed_ = true;
    log_->add("list.close");
}

void FakeCompletionsList::setContent(const std::vector<std::string>& candidates) {
    content_ = candidates;
    selectedRow_ = -1;
    log_->add("list.setContent " + std::to_string(candidates.size()));
}

void FakeCompletionsList::selectRow(int row) {
    if (row >= 0 && static_cast<std::size_t>(row) < content_.size()) selectedRow_ = row;
    log_->add("list.selectRow " + std::to_string(row));
}

void FakeCompletionsList::deselectAll() {
    selectedRow_ = -1;
    log_->add("list.deselectAll");
}

void FakeCompletionsList::scrollRowToVisible(int row) { log_->add("list.scrollRowToVisible " + std::to_string(row)); }

// ---- FakePathWindowViews

FakePathWindowViews::FakePathWindowViews(std::shared_ptr<EventLog> log) : log_(std::move(log)) {
    auto panel = std::make_unique<FakePathPanel>(log_);
    auto field = std::make_unique<FakePathField>(log_);
    auto spinner = std::make_unique<FakeSpinner>(log_);
    auto completions = std::make_unique<FakeCompletionsList>(log_);
    panel_ = panel.get();
    field_ = field.get();
    spinner_ = spinner.get();
    completions_ = completions.get();
    views_ = PathWindowViews{std::move(panel), std::move(field), std::move(spinner), std::move(completions)};
}

PathWindowViews FakePathWindowViews::take() { return std::move(views_); }

}  // namespace jorvane::test
