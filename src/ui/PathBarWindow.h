#pragma once

// The address bar's widgets: a frameless, always-on-top window that the
// window manager leaves alone (override-redirect), laid exactly over a file
// manager's title bar, with the path field (icon at its left, the list's
// arrow at its right) and the spinner.
//
//   +--------------------------------------------------------------+
//   | [icon] /usr/share/doc/                        (spinner)  [v] |   24 px
//   +--------------------------------------------------------------+
//
// The field spans the bar less a small margin; the spinner sits over the
// field's right end, where its controller puts it (a fixed distance from the
// bar's right edge), and the text stops short of it.

#include <QIcon>
#include <QLineEdit>
#include <QWidget>

#include <functional>

class QMenu;

namespace jorvane::ui {

class BusySpinner;

// The path field: a line edit that draws the bar's icon at its left and the
// completion list's arrow at its right.
class PathLineEdit final : public QLineEdit {
    Q_OBJECT
public:
    static constexpr int kIconSide = 14;
    static constexpr int kIconLeft = 4;
    static constexpr int kArrowWidth = 16;

    explicit PathLineEdit(QWidget* parent = nullptr);

    void setIcon(const QIcon& icon);
    const QIcon& icon() const { return icon_; }
    // A short message drawn at the right end of the field, left of the
    // arrow; an empty text takes it away.
    void setProblem(const QString& text);
    const QString& problem() const { return problem_; }
    // Called with the field's standard context menu before it shows.
    void setMenuDecorator(std::function<void(QMenu&)> decorator) { menuDecorator_ = std::move(decorator); }
    QRect arrowRect() const;

Q_SIGNALS:
    void arrowClicked();

protected:
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseDoubleClickEvent(QMouseEvent* event) override;
    void contextMenuEvent(QContextMenuEvent* event) override;

private:
    QIcon icon_;
    QString problem_;
    std::function<void(QMenu&)> menuDecorator_;
};

class PathBarWindow final : public QWidget {
    Q_OBJECT
public:
    // Its height until it is fitted to a window's title band, and the least
    // height that still shows the field's text.
    static constexpr int kHeight = 24;
    static constexpr int kMinHeight = 18;
    static constexpr int kInitialWidth = 400;
    // The spinner's distance from the bar's right edge when nobody placed it.
    static constexpr int kSpinnerInset = 50;

    PathBarWindow();

    PathLineEdit* field() const { return field_; }
    BusySpinner* spinner() const { return spinner_; }
    // The field's geometry in a bar of that size.
    static QRect fieldRect(int width, int height);
    // Places the parts for the current size (a hidden window hears of its
    // new size only when it shows).
    void layOut();

protected:
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    PathLineEdit* field_;
    BusySpinner* spinner_;
};

}  // namespace jorvane::ui
