#pragma once

// The widgets of one address bar and the logic between them and the core:
// geometry in the core's frames, the keyboard stations, inline completion,
// focus and the context menu. The four view adapters of QtPathWindowViews
// share one PathBar; when the last of them goes, the windows close and no
// event is reported any more.

#include <QObject>
#include <QPointer>
#include <QString>

#include <memory>

#include "addressbar/PathWindowViews.h"
#include "ui/KeyTranslation.h"

class QMenu;
class QPropertyAnimation;

namespace jorvane::ui {

class BusySpinner;
class CompletionsPopup;
class PathBarWindow;
class PathLineEdit;
class X11KeyboardMap;
struct PathWindowEvents;

class PathBar final : public QObject, public std::enable_shared_from_this<PathBar> {
    Q_OBJECT
public:
    // Length of an animated move or resize.
    static constexpr int kAnimationMilliseconds = 120;

    PathBar(std::shared_ptr<PathWindowEvents> events, std::shared_ptr<X11KeyboardMap> keyboard);
    ~PathBar() override;
    PathBar(const PathBar&) = delete;
    PathBar& operator=(const PathBar&) = delete;

    PathBarWindow* window() const { return window_; }
    PathLineEdit* field() const;
    BusySpinner* spinner() const;
    CompletionsPopup* popup() const { return popup_; }

    // ---- the panel, in the core's frames (device pixels)
    Rect frame() const { return frame_; }
    void setFrame(const Rect& frame, bool animate);
    bool isAnimating() const;
    bool isVisible() const;
    void bringToFront();
    // Takes the keyboard.
    void makeKey();
    void hide();
    void close();

    // The device pixels a logical pixel of the bar takes on its screen.
    double ratio() const;

    // ---- parts, in the panel's content coordinates (origin bottom left, device pixels)
    Rect fieldFrame() const;
    Point spinnerOrigin() const { return spinnerOrigin_; }
    void setSpinnerOrigin(Point origin);

    // Inline completion that arrived after the keystroke (see
    // PathFieldView::completeInline).
    void completeInline(const QString& typed, const QString& completion);

    // The adapters register while they live.
    void attachView() { ++attachedViews_; }
    void detachView();

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    bool routeKey(QKeyEvent& key);
    void textEdited(const QString& text);
    // Adds the rest of `completion` to the field holding `typed`, selected.
    void applyCompletion(const QString& typed, const QString& completion);
    void decorateMenu(QMenu& menu);
    void snapshotText();
    void activate();
    void shutDown();

    std::shared_ptr<PathWindowEvents> events_;
    std::shared_ptr<X11KeyboardMap> keyboard_;
    NativeKeyCodes nativeKeyCodes_;
    QPointer<PathBarWindow> window_;
    QPointer<CompletionsPopup> popup_;
    QPointer<QPropertyAnimation> animation_;
    Rect frame_;
    Point spinnerOrigin_;
    // The text and the selected length before the edit now under way: typing
    // over a selected completion is still typing.
    QString textBefore_;
    qsizetype selectionBefore_ = 0;
    bool completing_ = false;
    bool orderingOut_ = false;
    bool closed_ = false;
    int attachedViews_ = 0;
};

}  // namespace jorvane::ui
