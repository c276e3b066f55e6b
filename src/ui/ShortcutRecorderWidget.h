#pragma once

// The hot-key field: draws an ShortcutControl's cell and feeds it the
// keyboard and the mouse. A click (or Space with the focus) starts recording;
// the next key press with acceptable modifiers becomes the combination, the
// held modifiers show while none is pressed yet; the round button at the
// right clears the combination, and while recording an arrow button leaves
// without change ("Use old shortcut"). Losing the focus while recording does
// the same. While recording every key comes here, Tab and the window's
// shortcuts included.

#include <QWidget>

#include <memory>

#include "shortcut/ShortcutControl.h"
#include "ui/KeyTranslation.h"

namespace jorvane::ui {

class ShortcutRecorderWidget final : public QWidget, private ShortcutRecorderView {
    Q_OBJECT
public:
    // `defaults` null: the standard settings; `alerts` tells why a
    // combination is refused. `native` names X keys (ui/X11KeyboardMap).
    explicit ShortcutRecorderWidget(settings::UserDefaults* defaults, Alerts* alerts, NativeKeyCodes native = {},
                                    QWidget* parent = nullptr);
    ~ShortcutRecorderWidget() override;

    ShortcutControl& control() { return control_; }
    ShortcutRecorder& cell() { return control_.cell(); }
    const ShortcutRecorder& cell() const { return control_.cell(); }

    QSize sizeHint() const override;
    // Where the buttons are, for tests and hit testing.
    QRect removeButtonRect() const;
    QRect snapBackButtonRect() const;

protected:
    bool event(QEvent* event) override;
    void paintEvent(QPaintEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void keyReleaseEvent(QKeyEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void leaveEvent(QEvent* event) override;
    void focusOutEvent(QFocusEvent* event) override;

private:
    // ShortcutRecorderView
    void setNeedsDisplay() override;
    void beep() override;
    bool isFirstResponder() const override;
    Modifiers currentModifierFlags() const override;

    ShortcutRecorderPart partAt(const QPoint& point) const;
    // The modifiers a press or release of a modifier key leaves held; nothing
    // for other keys.
    static std::optional<Modifiers> modifierChange(const QKeyEvent& event, bool pressed);

    ShortcutControl control_;
    NativeKeyCodes native_;
};

}  // namespace jorvane::ui
