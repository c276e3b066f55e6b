#include "ui/ShortcutRecorderWidget.h"

#include <QApplication>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QPainter>
#include <QPainterPath>

#include "shortcut/KeyboardLayout.h"
#include "util/Diagnostics.h"

namespace jorvane::ui {

namespace {

constexpr const char* kLog = "Preferences";
constexpr int kHeight = 26;
constexpr int kButtonSide = 16;
constexpr int kButtonInset = 5;

bool isDeadKey(int key) { return key >= Qt::Key_Dead_Grave && key <= Qt::Key_Dead_Longsolidusoverlay; }

// What the key types without modifiers: from the keyboard layout, else the
// unshifted US character of Qt's key, else (keys that type no character, F6,
// the arrows) the key's name. Empty for a dead key, which the cell refuses.
std::string charactersIgnoringModifiers(const QKeyEvent& event, KeyCode code) {
    if (isDeadKey(event.key())) return {};
    if (const std::shared_ptr<const KeyboardLayout> layout = currentKeyboardLayout(); layout && layout->hasLayout()) {
        if (std::optional<std::string> typed = layout->characterForKeyCode(code, 0); typed && !typed->empty())
            return *typed;
    }
    const int key = event.key();
    if (key >= 0x21 && key <= 0x7E) return std::string(1, static_cast<char>(key >= 'A' && key <= 'Z' ? key + 32 : key));
    if (key == Qt::Key_Space) return " ";
    return shortcutKeyName(code).value_or("");
}

}  // namespace

ShortcutRecorderWidget::ShortcutRecorderWidget(settings::UserDefaults* defaults, Alerts* alerts, NativeKeyCodes native,
                                               QWidget* parent)
    : QWidget(parent), control_(defaults, alerts), native_(std::move(native)) {
    setFocusPolicy(Qt::StrongFocus);
    setMouseTracking(true);
    setAttribute(Qt::WA_Hover);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    setAccessibleName(QStringLiteral("Hot key"));
    cell().setView(this);
}

ShortcutRecorderWidget::~ShortcutRecorderWidget() { cell().setView(nullptr); }

QSize ShortcutRecorderWidget::sizeHint() const { return {220, kHeight}; }

QRect ShortcutRecorderWidget::removeButtonRect() const {
    return {width() - kButtonInset - kButtonSide, (height() - kButtonSide) / 2, kButtonSide, kButtonSide};
}

QRect ShortcutRecorderWidget::snapBackButtonRect() const { return removeButtonRect(); }

ShortcutRecorderPart ShortcutRecorderWidget::partAt(const QPoint& point) const {
    if (!rect().contains(point)) return ShortcutRecorderPart::none;
    if (cell().showsRemoveButton() && removeButtonRect().adjusted(-2, -2, 2, 2).contains(point))
        return ShortcutRecorderPart::removeButton;
    if (cell().showsSnapBackButton() && snapBackButtonRect().adjusted(-2, -2, 2, 2).contains(point))
        return ShortcutRecorderPart::snapBackButton;
    return ShortcutRecorderPart::field;
}

// ---- Drawing

void ShortcutRecorderWidget::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QPalette& colours = palette();
    const bool recording = cell().isRecording();
    const QRectF frame = QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5);

    painter.setPen(QPen(hasFocus() || recording ? colours.color(QPalette::Highlight) : colours.color(QPalette::Mid),
                        hasFocus() || recording ? 2.0 : 1.0));
    painter.setBrush(recording ? colours.color(QPalette::AlternateBase) : colours.color(QPalette::Base));
    painter.drawRoundedRect(frame, height() / 2.0, height() / 2.0);

    QRect textArea = rect().adjusted(kButtonInset + kButtonSide, 0, -(kButtonInset + kButtonSide), 0);
    const bool empty = !recording && cell().isEmpty();
    painter.setPen(empty || recording ? colours.color(QPalette::PlaceholderText) : colours.color(QPalette::Text));
    if (cell().isJustChanged()) painter.setPen(colours.color(QPalette::Highlight));
    painter.drawText(textArea, Qt::AlignCenter, QString::fromStdString(cell().displayText()));

    const ShortcutRecorderPart pressed = cell().pressedPart();
    const ShortcutRecorderPart hovered = cell().hoveredPart();
    if (cell().showsRemoveButton()) {
        // A grey disc with a white cross; darker under the pointer, darker
        // still while pressed.
        const QRectF button = removeButtonRect();
        QColor disc = colours.color(QPalette::Mid);
        if (hovered == ShortcutRecorderPart::removeButton) disc = disc.darker(130);
        if (pressed == ShortcutRecorderPart::removeButton) disc = disc.darker(160);
        painter.setPen(Qt::NoPen);
        painter.setBrush(disc);
        painter.drawEllipse(button);
        painter.setPen(QPen(colours.color(QPalette::Base), 1.6));
        const QRectF cross = button.adjusted(5, 5, -5, -5);
        painter.drawLine(cross.topLeft(), cross.bottomRight());
        painter.drawLine(cross.topRight(), cross.bottomLeft());
    }
    if (cell().showsSnapBackButton()) {
        // A curved arrow back: the old combination returns.
        const QRectF button = snapBackButtonRect();
        QColor ink = colours.color(QPalette::Highlight);
        if (pressed == ShortcutRecorderPart::snapBackButton) ink = ink.darker(150);
        painter.setPen(QPen(ink, 1.6));
        painter.setBrush(Qt::NoBrush);
        const QRectF arc = button.adjusted(3, 4, -3, -2);
        painter.drawArc(arc, 0, 200 * 16);
        const QPointF tip(arc.left(), arc.center().y() + 1);
        painter.drawLine(tip, tip + QPointF(4, -1));
        painter.drawLine(tip, tip + QPointF(-1, -4));
    }
}

// ---- Keys

bool ShortcutRecorderWidget::event(QEvent* event) {
    if (cell().isRecording()) {
        // Every key is a candidate: neither the window's shortcuts nor focus
        // navigation (Tab) may take it first.
        if (event->type() == QEvent::ShortcutOverride) {
            event->accept();
            return true;
        }
        if (event->type() == QEvent::KeyPress) {
            keyPressEvent(static_cast<QKeyEvent*>(event));
            return true;
        }
    }
    return QWidget::event(event);
}

std::optional<Modifiers> ShortcutRecorderWidget::modifierChange(const QKeyEvent& event, bool pressed) {
    Modifiers bit = 0;
    switch (event.key()) {
        case Qt::Key_Shift: bit = kModifierShift; break;
        case Qt::Key_Control: bit = kModifierCommand; break;
        case Qt::Key_Meta:
        case Qt::Key_Super_L:
        case Qt::Key_Super_R: bit = kModifierControl; break;
        case Qt::Key_Alt:
        case Qt::Key_AltGr: bit = kModifierOption; break;
        default: return std::nullopt;
    }
    // Qt's modifiers may or may not count the key itself yet.
    const Modifiers others = flagsForQtModifiers(event.modifiers()) & ~kModifierNumericPad;
    return pressed ? (others | bit) : (others & ~bit);
}

void ShortcutRecorderWidget::keyPressEvent(QKeyEvent* event) {
    if (const std::optional<Modifiers> held = modifierChange(*event, true)) {
        cell().flagsChanged(*held);
        event->accept();
        return;
    }
    const std::optional<KeyEvent> key = keyEventFor(*event, native_);
    if (!key) {
        if (cell().isRecording()) {
            event->accept();
            return;
        }
        QWidget::keyPressEvent(event);
        return;
    }
    const ShortcutKeyEvent press{static_cast<ShortcutKeyCode>(key->keyCode), key->modifierFlags, key->characters,
                                 charactersIgnoringModifiers(*event, key->keyCode)};
    log::inDomain(log::Debug, kLog, "recorder key %d flags 0x%llx typing \"%s\"%s", press.keyCode,
                  static_cast<unsigned long long>(press.modifierFlags), press.charactersIgnoringModifiers.c_str(),
                  cell().isRecording() ? " while recording" : "");
    if (cell().performKeyEquivalent(press) || cell().isRecording()) {
        event->accept();
        return;
    }
    QWidget::keyPressEvent(event);
}

void ShortcutRecorderWidget::keyReleaseEvent(QKeyEvent* event) {
    if (const std::optional<Modifiers> held = modifierChange(*event, false)) {
        cell().flagsChanged(*held);
        event->accept();
        return;
    }
    QWidget::keyReleaseEvent(event);
}

// ---- Mouse

void ShortcutRecorderWidget::mousePressEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton || !cell().isEnabled()) {
        QWidget::mousePressEvent(event);
        return;
    }
    const ShortcutRecorderPart part = partAt(event->position().toPoint());
    if (part == ShortcutRecorderPart::removeButton || part == ShortcutRecorderPart::snapBackButton) {
        cell().setPressedPart(part);
    } else {
        setFocus(Qt::MouseFocusReason);
        cell().clickField();
        if (cell().isRecording()) log::inDomain(log::Debug, kLog, "recording a hot key");
    }
    event->accept();
}

void ShortcutRecorderWidget::mouseReleaseEvent(QMouseEvent* event) {
    const ShortcutRecorderPart pressed = cell().pressedPart();
    cell().setPressedPart(ShortcutRecorderPart::none);
    // A button acts when the pointer is released over it.
    if (pressed != ShortcutRecorderPart::none && partAt(event->position().toPoint()) == pressed) {
        if (pressed == ShortcutRecorderPart::removeButton) cell().removeKeyCombo();
        if (pressed == ShortcutRecorderPart::snapBackButton) cell().snapBack();
    }
    event->accept();
}

void ShortcutRecorderWidget::mouseMoveEvent(QMouseEvent* event) {
    const ShortcutRecorderPart part = partAt(event->position().toPoint());
    cell().setHoveredPart(part);
    setToolTip(part == ShortcutRecorderPart::snapBackButton ? QString::fromStdString(cell().snapBackText())
                                                            : QString());
    QWidget::mouseMoveEvent(event);
}

void ShortcutRecorderWidget::leaveEvent(QEvent* event) {
    cell().setHoveredPart(ShortcutRecorderPart::none);
    QWidget::leaveEvent(event);
}

void ShortcutRecorderWidget::focusOutEvent(QFocusEvent* event) {
    // The alert that refuses a combination takes the focus for a moment;
    // recording goes on behind it.
    if (event->reason() != Qt::PopupFocusReason && event->reason() != Qt::ActiveWindowFocusReason) cell().snapBack();
    QWidget::focusOutEvent(event);
}

// ---- ShortcutRecorderView

void ShortcutRecorderWidget::setNeedsDisplay() { update(); }

void ShortcutRecorderWidget::beep() { QApplication::beep(); }

bool ShortcutRecorderWidget::isFirstResponder() const { return hasFocus(); }

Modifiers ShortcutRecorderWidget::currentModifierFlags() const {
    return flagsForQtModifiers(QGuiApplication::queryKeyboardModifiers()) & ~kModifierNumericPad;
}

}  // namespace jorvane::ui
