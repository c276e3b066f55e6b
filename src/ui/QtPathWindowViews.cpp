#include "ui/QtPathWindowViews.h"

#include <QApplication>
#include <QFontMetricsF>
#include <QPointer>

#include "ui/BarImages.h"
#include "ui/BusySpinner.h"
#include "ui/ByteText.h"
#include "ui/CompletionsPopup.h"
#include "ui/PathBar.h"
#include "ui/PathBarWindow.h"
#include "ui/QtScreens.h"
#include "ui/X11KeyboardMap.h"

namespace jorvane::ui {

namespace {

// Each adapter keeps the bar alive and tells it when it goes.
class Attached {
public:
    explicit Attached(std::shared_ptr<PathBar> bar) : bar_(std::move(bar)) { bar_->attachView(); }
    ~Attached() { bar_->detachView(); }
    Attached(const Attached&) = delete;
    Attached& operator=(const Attached&) = delete;

protected:
    std::shared_ptr<PathBar> bar_;
};

class QtPathPanelView final : public PathPanelView, private Attached {
public:
    using Attached::Attached;
    Rect frame() const override { return bar_->frame(); }
    void setFrame(const Rect& frame, bool, bool animate) override { bar_->setFrame(frame, animate); }
    bool isVisible() const override { return bar_->isVisible(); }
    void raise() override { bar_->bringToFront(); }
    void focus() override { bar_->makeKey(); }
    void hide() override { bar_->hide(); }
    void close() override { bar_->close(); }
};

class QtPathFieldView final : public PathFieldView, private Attached {
public:
    using Attached::Attached;

    std::string stringValue() const override { return toBytes(edit()->text()); }

    void setStringValue(const std::string& text) override {
        // QLineEdit puts the caret at the end; no textEdited: the user did
        // not edit.
        edit()->setText(fromBytes(text));
    }

    TextRange selectedRange() const override {
        PathLineEdit* field = edit();
        const QString text = field->text();
        if (field->hasSelectedText())
            return byteRangeForPositions(text, {field->selectionStart(), field->selectionLength()});
        return byteRangeForPositions(text, {field->cursorPosition(), 0});
    }

    void setSelectedRange(TextRange range) override {
        PathLineEdit* field = edit();
        const TextPositions positions = positionsForByteRange(toBytes(field->text()), range);
        if (positions.length == 0)
            field->setCursorPosition(static_cast<int>(positions.start));
        else
            field->setSelection(static_cast<int>(positions.start), static_cast<int>(positions.length));
    }

    void selectAll() override { edit()->selectAll(); }

    double textWidth(const std::string& text) const override {
        return QFontMetricsF(QApplication::font()).horizontalAdvance(fromBytes(text)) * bar_->ratio();
    }

    Rect frame() const override { return bar_->fieldFrame(); }
    // The bar's own list shows the candidates; the line edit has none.
    void noteNumberOfItemsChanged() override {}
    void setImage(const BarImage& image) override {
        iconLookup_->show(image, [field = QPointer<PathLineEdit>(edit())](const QIcon& icon) {
            if (field) field->setIcon(icon);
        });
    }
    void completeInline(const std::string& typed, const std::string& completion) override {
        bar_->completeInline(fromBytes(typed), fromBytes(completion));
    }
    void showProblem(const std::string& text) override { edit()->setProblem(fromBytes(text)); }

private:
    PathLineEdit* edit() const { return bar_->field(); }
    std::shared_ptr<IconLookup> iconLookup_ = std::make_shared<IconLookup>();
};

class QtSpinnerView final : public SpinnerView, private Attached {
public:
    using Attached::Attached;
    void startAnimation() override { bar_->spinner()->startAnimation(); }
    void setHidden(bool hidden) override { bar_->spinner()->setVisible(!hidden); }
    // Its own state, whether or not the bar is on screen.
    bool isHidden() const override { return bar_->spinner()->isHidden(); }
    Point frameOrigin() const override { return bar_->spinnerOrigin(); }
    void setFrameOrigin(Point origin) override { bar_->setSpinnerOrigin(origin); }
};

class QtCompletionsListView final : public CompletionsListView, private Attached {
public:
    using Attached::Attached;
    bool isVisible() const override { return popup()->isVisible(); }
    void setFrame(const Rect& frame, bool) override { popup()->setGeometry(toQtRect(frame, firstScreenHeight())); }
    void raise() override {
        popup()->show();
        popup()->raise();
    }
    // The selection always looks active; nothing takes the keyboard.
    void showActive() override { popup()->update(); }
    void hide() override { popup()->hide(); }
    void close() override { popup()->hide(); }
    void setContent(const std::vector<std::string>& candidates) override { popup()->setContent(candidates); }
    void setNote(const std::string& text) override { popup()->setNote(fromBytes(text)); }
    void setGroups(const std::vector<Group>& groups) override {
        QHash<int, QString> titles;
        for (const Group& group : groups) titles.insert(static_cast<int>(group.firstRow), QString::fromStdString(group.title));
        popup()->setGroupTitles(titles);
    }
    double rowHeight() const override { return CompletionsPopup::kRowHeight * bar_->ratio(); }
    int selectedRow() const override { return popup()->selectedRow(); }
    void selectRow(int row) override { popup()->selectRow(row); }
    void deselectAll() override { popup()->deselectAll(); }
    void scrollRowToVisible(int row) override { popup()->scrollRowToVisible(row); }

private:
    CompletionsPopup* popup() const { return bar_->popup(); }
};

std::shared_ptr<X11KeyboardMap> sharedKeyboardMap() {
    static const std::shared_ptr<X11KeyboardMap> keyboard = X11KeyboardMap::forApplication();
    return keyboard;
}

}  // namespace

QtPathWindow makePathWindowViews() {
    auto events = std::make_shared<PathWindowEvents>();
    auto bar = std::make_shared<PathBar>(events, sharedKeyboardMap());
    QtPathWindow result;
    result.views.panel = std::make_unique<QtPathPanelView>(bar);
    result.views.field = std::make_unique<QtPathFieldView>(bar);
    result.views.spinner = std::make_unique<QtSpinnerView>(bar);
    result.views.completions = std::make_unique<QtCompletionsListView>(bar);
    result.events = std::move(events);
    result.bar = bar;
    return result;
}

void connectToController(PathWindowEvents& events, PathWindowController& controller) {
    PathWindowController* c = &controller;
    events.handleKeyDown = [c](const KeyEvent& event) { return c->handleKeyDown(event); };
    events.handleEditCommand = [c](TextCommand command) { return c->handleEditCommand(command); };
    events.textChanged = [c] { c->textChanged(); };
    events.completedString = [c](std::string_view typed) { return c->completedString(typed); };
    events.menuForEvent = [c](std::vector<MenuItem> inherited) {
        return c->pathFieldEditor().menuForEvent(std::move(inherited));
    };
    events.popupButtonClicked = [c] { c->popupButtonClicked(); };
    events.completionChosen = [c] { c->completionChosen(); };
    events.focusLost = [c] { c->focusLost(); };
}

std::unique_ptr<PathWindowController> makePathWindowController(ElementRef windowElement,
                                                               PathWindowController::Dependencies dependencies,
                                                               std::function<void()> didOrderOut) {
    QtPathWindow qt = makePathWindowViews();
    auto controller =
        std::make_unique<PathWindowController>(std::move(windowElement), std::move(qt.views), dependencies);
    connectToController(*qt.events, *controller);
    qt.events->didOrderOut = std::move(didOrderOut);
    return controller;
}

}  // namespace jorvane::ui
