#include "ui/PathBarWindow.h"

#include <QContextMenuEvent>
#include <QMenu>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>

#include <algorithm>

#include "ui/BusySpinner.h"

namespace jorvane::ui {

namespace {

constexpr int kMargin = 5;
constexpr int kFieldHeight = 20;
constexpr int kCornerRadius = 6;
// The field's text starts past the icon, and stops short of the spinner.
constexpr int kTextLeft = PathLineEdit::kIconLeft + PathLineEdit::kIconSide + 2;
constexpr int kTextRight = PathBarWindow::kSpinnerInset - kMargin + 2;

const QColor kBarColor(40, 40, 43);
const QColor kBarEdge(88, 88, 94);

const char* const kFieldStyle =
    "QLineEdit { background: rgb(22, 22, 24); color: rgb(238, 238, 238); border: 1px solid rgb(66, 66, 72);"
    " border-radius: 4px; padding: 0px; selection-background-color: rgb(58, 110, 185); selection-color: white; }"
    "QLineEdit:focus { border-color: rgb(88, 128, 196); }";

}  // namespace

// ---- PathLineEdit

PathLineEdit::PathLineEdit(QWidget* parent) : QLineEdit(parent) {
    setStyleSheet(QString::fromLatin1(kFieldStyle));
    setTextMargins(kTextLeft - 2, 0, kTextRight, 0);
    setFrame(true);
    // The file names are what they are: no auto-capitalisation or prediction
    // from input methods.
    setInputMethodHints(Qt::ImhNoAutoUppercase | Qt::ImhNoPredictiveText);
}

void PathLineEdit::setIcon(const QIcon& icon) {
    icon_ = icon;
    update();
}

QRect PathLineEdit::arrowRect() const { return QRect(width() - kArrowWidth, 0, kArrowWidth, height()); }

void PathLineEdit::paintEvent(QPaintEvent* event) {
    QLineEdit::paintEvent(event);
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    if (!icon_.isNull()) {
        const QRect iconRect(kIconLeft, (height() - kIconSide) / 2, kIconSide, kIconSide);
        icon_.paint(&painter, iconRect, Qt::AlignCenter);
    }
    // The list's arrow: a small downward triangle.
    const QRectF arrow = arrowRect();
    const QPointF centre = arrow.center();
    QPainterPath triangle;
    triangle.moveTo(centre.x() - 3.5, centre.y() - 1.5);
    triangle.lineTo(centre.x() + 3.5, centre.y() - 1.5);
    triangle.lineTo(centre.x(), centre.y() + 2.5);
    triangle.closeSubpath();
    painter.fillPath(triangle, QColor(200, 200, 200));
    if (!problem_.isEmpty()) {
        // On a dark badge over the text's end, so that it reads whatever is
        // under it.
        const QFontMetrics metrics(font());
        const int right = arrow.toRect().left() - 4;
        const int width =
            std::min(metrics.horizontalAdvance(problem_) + 12, std::max(0, right - kIconLeft - kIconSide));
        const QRect badge(right - width, 3, width, height() - 6);
        painter.setPen(Qt::NoPen);
        painter.setBrush(QColor(120, 40, 36));
        painter.drawRoundedRect(badge, 4, 4);
        painter.setPen(QColor(255, 236, 230));
        painter.drawText(badge.adjusted(6, 0, -6, 0), Qt::AlignVCenter | Qt::AlignLeft,
                         metrics.elidedText(problem_, Qt::ElideRight, std::max(0, badge.width() - 12)));
    }
}

void PathLineEdit::setProblem(const QString& text) {
    if (problem_ == text) return;
    problem_ = text;
    // Read out with the field by screen readers (and the end-to-end tests).
    setAccessibleDescription(text);
    update();
}

void PathLineEdit::mousePressEvent(QMouseEvent* event) {
    if (event->button() == Qt::LeftButton && arrowRect().contains(event->position().toPoint())) {
        event->accept();
        Q_EMIT arrowClicked();
        return;
    }
    QLineEdit::mousePressEvent(event);
}

void PathLineEdit::mouseDoubleClickEvent(QMouseEvent* event) {
    // A quick second click on the arrow toggles the list again.
    if (event->button() == Qt::LeftButton && arrowRect().contains(event->position().toPoint())) {
        event->accept();
        Q_EMIT arrowClicked();
        return;
    }
    QLineEdit::mouseDoubleClickEvent(event);
}

void PathLineEdit::contextMenuEvent(QContextMenuEvent* event) {
    QMenu* menu = createStandardContextMenu();
    menu->setAttribute(Qt::WA_DeleteOnClose);
    if (menuDecorator_) menuDecorator_(*menu);
    menu->popup(event->globalPos());
    event->accept();
}

// ---- PathBarWindow

PathBarWindow::PathBarWindow()
    : QWidget(nullptr,
              Qt::Window | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint | Qt::X11BypassWindowManagerHint),
      field_(new PathLineEdit(this)),
      spinner_(new BusySpinner(this)) {
    setWindowTitle(QStringLiteral("Jorvane"));
    setFocusProxy(field_);
    // Hidden until its controller shows it (as a freshly loaded panel's
    // spinner is).
    spinner_->hide();
    spinner_->raise();
    resize(kInitialWidth, kHeight);
    spinner_->move(kInitialWidth - kSpinnerInset, (kHeight - BusySpinner::kSide) / 2);
    layOut();
}

QRect PathBarWindow::fieldRect(int width, int height) {
    // A bar lower than its usual height (a thin title band) keeps a point
    // above and below the field.
    const int fieldHeight = std::min(kFieldHeight, std::max(height - 2, 0));
    return QRect(kMargin, (height - fieldHeight) / 2, std::max(width - 2 * kMargin, 0), fieldHeight);
}

void PathBarWindow::layOut() {
    field_->setGeometry(fieldRect(width(), height()));
    // Rounded corners without a compositor: the window's shape is cut.
    QPainterPath outline;
    outline.addRoundedRect(QRectF(rect()), kCornerRadius, kCornerRadius);
    setMask(QRegion(outline.toFillPolygon().toPolygon()));
}

void PathBarWindow::resizeEvent(QResizeEvent*) { layOut(); }

void PathBarWindow::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(QPen(kBarEdge, 1));
    painter.setBrush(kBarColor);
    painter.drawRoundedRect(QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5), kCornerRadius, kCornerRadius);
}

}  // namespace jorvane::ui
