#include "ui/PathBar.h"

#include <QCoreApplication>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QMenu>
#include <QPropertyAnimation>
#include <QScreen>

#include <cmath>
#include <utility>
#include <xcb/xcb.h>

#include "addressbar/PathFieldEditor.h"
#include "ui/BarImages.h"
#include "ui/BusySpinner.h"
#include "ui/ByteText.h"
#include "ui/CompletionsPopup.h"
#include "ui/DevicePixels.h"
#include "ui/PathBarWindow.h"
#include "ui/QtPathWindowViews.h"
#include "ui/QtScreens.h"
#include "ui/X11KeyboardMap.h"
#include "util/Diagnostics.h"

namespace jorvane::ui {

namespace {

int rounded(double value) { return static_cast<int>(std::lround(value)); }

// The bar is a window the window manager does not manage, so it takes the
// keyboard itself. Qt stamps that request with the last event time it saw,
// which is older than the click or key that opened the bar (those reach the
// program through its own input tap); a focus change the window manager makes
// late for that same click (stamped with the press) would then win and close
// the bar. Stamped with the server's current time, the bar's request is the
// newest, and the server ignores any older one that arrives after it.
void takeKeyboardNow(const QWidget& window) {
    auto* x11 = qGuiApp->nativeInterface<QNativeInterface::QX11Application>();
    if (!x11 || !x11->connection()) return;
    const auto id = static_cast<xcb_window_t>(window.winId());
    xcb_set_input_focus(x11->connection(), XCB_INPUT_FOCUS_PARENT, id, XCB_CURRENT_TIME);
    xcb_flush(x11->connection());
    log::inDomain(log::Debug, "Bar", "the bar (window 0x%x) takes the keyboard", id);
}

}  // namespace

PathBar::PathBar(std::shared_ptr<PathWindowEvents> events, std::shared_ptr<X11KeyboardMap> keyboard)
    : events_(std::move(events)),
      keyboard_(std::move(keyboard)),
      window_(new PathBarWindow),
      popup_(new CompletionsPopup) {
    if (keyboard_) {
        nativeKeyCodes_ = [keyboard = keyboard_](std::uint32_t scanCode, std::uint32_t state) {
            return keyboard->keyCode(scanCode, state);
        };
    }
    // The core measures in device pixels: a scaled desktop makes every
    // length of the bar longer by its screen's ratio.
    const QScreen* screen = QGuiApplication::primaryScreen();
    const double ratio = screen ? screen->devicePixelRatio() : 1.0;
    frame_ = Rect{{0, 0}, {PathBarWindow::kInitialWidth * ratio, PathBarWindow::kHeight * ratio}};
    spinnerOrigin_ = {(PathBarWindow::kInitialWidth - PathBarWindow::kSpinnerInset) * ratio,
                      (PathBarWindow::kHeight - BusySpinner::kSide) / 2.0 * ratio};

    animation_ = new QPropertyAnimation(window_, "geometry", window_);
    animation_->setDuration(kAnimationMilliseconds);
    animation_->setEasingCurve(QEasingCurve::OutCubic);

    window_->installEventFilter(this);
    field()->installEventFilter(this);
    connect(field(), &QLineEdit::textEdited, this, &PathBar::textEdited);
    connect(field(), &PathLineEdit::arrowClicked, this, [this] {
        const auto keep = shared_from_this();
        if (auto clicked = events_ ? events_->popupButtonClicked : nullptr) clicked();
    });
    connect(popup_, &CompletionsPopup::rowChosen, this, [this] {
        const auto keep = shared_from_this();
        if (auto chosen = events_ ? events_->completionChosen : nullptr) chosen();
    });
    field()->setMenuDecorator([this](QMenu& menu) { decorateMenu(menu); });
}

PathBar::~PathBar() { shutDown(); }

PathLineEdit* PathBar::field() const { return window_ ? window_->field() : nullptr; }

BusySpinner* PathBar::spinner() const { return window_ ? window_->spinner() : nullptr; }

void PathBar::detachView() {
    if (--attachedViews_ == 0) shutDown();
}

void PathBar::shutDown() {
    events_.reset();
    closed_ = true;
    // After the application has gone the widgets cannot be touched any more.
    if (!QCoreApplication::instance()) return;
    if (window_) {
        window_->removeEventFilter(this);
        window_->field()->removeEventFilter(this);
        window_->field()->setMenuDecorator({});
        window_->hide();
        // Later: this may run inside one of the window's own events.
        window_->deleteLater();
    }
    if (popup_) {
        popup_->hide();
        popup_->deleteLater();
    }
}

// ---- the panel

void PathBar::setFrame(const Rect& requested, bool animate) {
    // Never lower than the field's text needs; the top edge stays.
    Rect frame = requested;
    const double least =
        PathBarWindow::kMinHeight * ratioAt(toQtRect(requested, firstScreenHeight()), currentScreenScales());
    if (frame.size.height < least) {
        frame.origin.y -= least - frame.size.height;
        frame.size.height = least;
    }
    frame_ = frame;
    if (!window_) return;
    const QRect target = toQtRect(frame, firstScreenHeight());
    animation_->stop();
    if (animate && window_->isVisible() && window_->geometry() != target) {
        animation_->setStartValue(window_->geometry());
        animation_->setEndValue(target);
        animation_->start();
    } else {
        window_->setGeometry(target);
        window_->layOut();
    }
}

bool PathBar::isAnimating() const { return animation_ && animation_->state() == QAbstractAnimation::Running; }

bool PathBar::isVisible() const { return window_ && window_->isVisible(); }

void PathBar::bringToFront() {
    if (!window_ || closed_) return;
    window_->show();
    window_->raise();
    // The completion list stays above the bar it belongs to.
    if (popup_ && popup_->isVisible()) popup_->raise();
}

void PathBar::makeKey() {
    if (!window_ || closed_) return;
    // The layout may have changed while the bar was away.
    if (keyboard_) keyboard_->invalidate();
    activate();
}

void PathBar::activate() {
    if (!window_ || !window_->isVisible()) return;
    window_->activateWindow();
    takeKeyboardNow(*window_);
    field()->setFocus(Qt::ActiveWindowFocusReason);
}

void PathBar::hide() {
    if (!window_) return;
    const bool wasKey = window_->isVisible() && window_->isActiveWindow();
    if (animation_) animation_->stop();
    // Going away is not losing the keyboard to someone else.
    orderingOut_ = true;
    window_->hide();
    orderingOut_ = false;
    if (!wasKey) return;
    const auto keep = shared_from_this();
    if (auto ordered = events_ ? events_->didOrderOut : nullptr) ordered();
}

void PathBar::close() {
    hide();
    if (popup_) popup_->hide();
    closed_ = true;
}

double PathBar::ratio() const {
    const QRect device(rounded(frame_.origin.x), rounded(firstScreenHeight() - frame_.origin.y - frame_.size.height),
                       rounded(frame_.size.width), rounded(frame_.size.height));
    return ratioAt(device, currentScreenScales());
}

Rect PathBar::fieldFrame() const {
    const double r = ratio();
    const QRect field = PathBarWindow::fieldRect(rounded(frame_.size.width / r), rounded(frame_.size.height / r));
    const double height = frame_.size.height / r;
    return Rect{{field.x() * r, (height - field.y() - field.height()) * r}, {field.width() * r, field.height() * r}};
}

void PathBar::setSpinnerOrigin(Point origin) {
    spinnerOrigin_ = origin;
    const double r = ratio();
    if (BusySpinner* busy = spinner())
        busy->move(rounded(origin.x / r), rounded((frame_.size.height - origin.y) / r - BusySpinner::kSide));
}

// ---- events

bool PathBar::eventFilter(QObject* watched, QEvent* event) {
    if (closed_ || !window_) return false;
    const bool onField = watched == field();
    switch (event->type()) {
        case QEvent::KeyPress:
            if (onField) return routeKey(*static_cast<QKeyEvent*>(event));
            break;
        case QEvent::InputMethod:
        case QEvent::Drop:
        case QEvent::ContextMenu:
        case QEvent::MouseButtonRelease:
            if (onField) snapshotText();
            break;
        case QEvent::MouseButtonPress:
            // The window manager does not give an unmanaged window the
            // keyboard: a click into the bar takes it back.
            if (onField) snapshotText();
            if (!window_->isActiveWindow()) activate();
            break;
        case QEvent::WindowDeactivate:
            if (watched == window_ && window_->isVisible() && !orderingOut_) {
                const auto keep = shared_from_this();
                if (auto resigned = events_ ? events_->focusLost : nullptr) resigned();
            }
            break;
        default: break;
    }
    return false;
}

bool PathBar::routeKey(QKeyEvent& key) {
    const auto keep = shared_from_this();
    snapshotText();
    if (const std::optional<KeyEvent> event = keyEventFor(key, nativeKeyCodes_)) {
        // Pressing a modifier alone is no key press for the stations (it
        // changes the flags of the keys that follow).
        if (const std::optional<VirtualKey> known = virtualKey(event->keyCode);
            known && known->kind == VirtualKeyKind::Modifier)
            return false;
        if (auto handle = events_ ? events_->handleKeyDown : nullptr; handle && handle(*event)) return true;
        if (PathFieldEditor::keyDown(*event)) return true;
    }
    const TextCommand command = textCommandFor(key.key(), key.modifiers());
    if (command == TextCommand::other) return false;
    if (auto perform = events_ ? events_->handleEditCommand : nullptr; perform && perform(command)) return true;
    return false;
}

void PathBar::snapshotText() {
    if (PathLineEdit* edit = field()) {
        textBefore_ = edit->text();
        selectionBefore_ = edit->selectedText().size();
    }
}

void PathBar::textEdited(const QString& text) {
    if (completing_ || closed_) return;
    const auto keep = shared_from_this();
    PathLineEdit* edit = field();
    // Typing adds to what was there once the selection it replaced is gone;
    // deleting never does.
    const bool typed = text.size() > textBefore_.size() - selectionBefore_;
    const bool caretAtEnd = !edit->hasSelectedText() && edit->cursorPosition() == text.size();
    snapshotText();

    // A message about what failed before goes at the user's next edit.
    edit->setProblem({});
    if (auto changed = events_ ? events_->textChanged : nullptr) changed();
    if (!typed || !caretAtEnd || text.isEmpty() || closed_) return;
    auto complete = events_ ? events_->completedString : nullptr;
    if (!complete) return;
    const std::optional<std::string> completion = complete(toBytes(text));
    // The controller may have changed the text or closed the bar meanwhile.
    if (!completion || closed_ || !window_ || edit->text() != text) return;
    applyCompletion(text, fromBytes(*completion));
}

void PathBar::completeInline(const QString& typed, const QString& completion) {
    PathLineEdit* edit = field();
    if (closed_ || !edit) return;
    const QString text = edit->text();
    // Only while the field holds what was typed, caret at the end, or that
    // text with an earlier completion still selected after it.
    const bool untouched = text == typed && !edit->hasSelectedText() && edit->cursorPosition() == text.size();
    const bool completed = text.size() > typed.size() && text.startsWith(typed) && edit->hasSelectedText() &&
                           edit->selectionStart() == typed.size() && edit->selectionEnd() == text.size();
    if (!untouched && !completed) return;
    if (completed) {
        completing_ = true;
        edit->setText(typed);
        completing_ = false;
    }
    applyCompletion(typed, completion);
}

void PathBar::applyCompletion(const QString& text, const QString& full) {
    PathLineEdit* edit = field();
    if (full.size() <= text.size()) return;
    completing_ = true;
    if (full.startsWith(text)) {
        // Keeps the typed text (and the undo history) and adds the rest.
        edit->insert(full.mid(text.size()));
    } else if (full.startsWith(text, Qt::CaseInsensitive)) {
        edit->setText(full);
    } else {
        completing_ = false;
        return;
    }
    edit->setSelection(text.size(), full.size() - text.size());
    completing_ = false;
    snapshotText();
}

void PathBar::decorateMenu(QMenu& menu) {
    auto menuForEvent = events_ ? events_->menuForEvent : nullptr;
    if (!menuForEvent) return;
    const QList<QAction*> original = menu.actions();
    std::vector<MenuItem> inherited;
    for (QAction* action : original) {
        if (action->isSeparator()) {
            inherited.push_back(MenuItem::separatorItem());
            continue;
        }
        MenuItem item;
        item.title = toBytes(action->text());
        item.keyEquivalent = toBytes(action->shortcut().toString(QKeySequence::NativeText));
        item.action = [target = QPointer<QAction>(action)] {
            if (target) target->trigger();
        };
        inherited.push_back(std::move(item));
    }
    const std::vector<MenuItem> shown = menuForEvent(inherited);

    // Items the core kept in place stay the line edit's own actions, with
    // their state and shortcuts; the others are made here.
    for (QAction* action : original) menu.removeAction(action);
    for (std::size_t i = 0; i < shown.size(); ++i) {
        const MenuItem& item = shown[i];
        if (i < static_cast<std::size_t>(original.size()) && item.kind == inherited[i].kind &&
            item.title == inherited[i].title) {
            menu.addAction(original[static_cast<qsizetype>(i)]);
            continue;
        }
        if (item.kind == MenuItem::Kind::separator) {
            menu.addSeparator();
            continue;
        }
        QAction* action = menu.addAction(fromBytes(item.title));
        if (item.image == MenuItem::Image::applicationIcon) {
            const QSize side(rounded(item.imageSize.width), rounded(item.imageSize.height));
            action->setIcon(QIcon(applicationIcon().pixmap(side.isEmpty() ? QSize(14, 14) : side)));
        }
        if (!item.keyEquivalent.empty()) action->setShortcut(QKeySequence(fromBytes(item.keyEquivalent)));
        if (item.action) connect(action, &QAction::triggered, this, [run = item.action] { run(); });
    }
}

}  // namespace jorvane::ui
