#include "ui/CompletionsPopup.h"

#include <QItemSelectionModel>
#include <QListView>
#include <QStringListModel>
#include <QStyledItemDelegate>

#include "ui/ByteText.h"

namespace jorvane::ui {

namespace {

class RowDelegate final : public QStyledItemDelegate {
public:
    using QStyledItemDelegate::QStyledItemDelegate;
    QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override {
        QSize size = QStyledItemDelegate::sizeHint(option, index);
        size.setHeight(CompletionsPopup::kRowHeight);
        return size;
    }
};

// The same dark look as the bar; the selection looks active although the
// window never is.
// No frame: the window is exactly as high as its rows.
const char* const kListStyle =
    "QListView { background: rgb(30, 30, 33); color: rgb(232, 232, 232); border: 0; outline: 0; }"
    "QListView::item { padding-left: 4px; border: 0; }"
    "QListView::item:selected { background: rgb(58, 110, 185); color: white; }"
    "QScrollBar:vertical { background: rgb(30, 30, 33); width: 8px; margin: 0; }"
    "QScrollBar::handle:vertical { background: rgb(96, 96, 102); border-radius: 3px; min-height: 16px; }"
    "QScrollBar::add-line:vertical, QScrollBar::sub-line:vertical { height: 0; }"
    "QScrollBar::add-page:vertical, QScrollBar::sub-page:vertical { background: none; }";

}  // namespace

CompletionsPopup::CompletionsPopup()
    // A tool-tip window: never activated, never managed, above the others.
    : QWidget(nullptr, Qt::ToolTip | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint |
                           Qt::X11BypassWindowManagerHint | Qt::WindowDoesNotAcceptFocus),
      list_(new QListView(this)),
      model_(new QStringListModel(this)) {
    setWindowTitle(QStringLiteral("Jorvane"));
    setAttribute(Qt::WA_ShowWithoutActivating);
    // No layout: it would hold the window to the list's minimum size, and
    // the list must be exactly as high as its rows.
    list_->setGeometry(rect());
    list_->setModel(model_);
    list_->setItemDelegate(new RowDelegate(list_));
    list_->setUniformItemSizes(true);
    list_->setFrameShape(QFrame::NoFrame);
    list_->setFocusPolicy(Qt::NoFocus);
    list_->setEditTriggers(QAbstractItemView::NoEditTriggers);
    list_->setSelectionMode(QAbstractItemView::SingleSelection);
    list_->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    list_->setTextElideMode(Qt::ElideMiddle);
    list_->setStyleSheet(QString::fromLatin1(kListStyle));
    connect(list_, &QListView::clicked, this, [this](const QModelIndex& index) {
        if (index.isValid()) Q_EMIT rowChosen();
    });
}

void CompletionsPopup::setContent(const std::vector<std::string>& candidates) {
    pending_ = candidates;
    contentPending_ = true;
    if (isVisible()) applyContent();
}

void CompletionsPopup::applyContent() {
    if (!contentPending_) return;
    contentPending_ = false;
    QStringList rows;
    rows.reserve(static_cast<qsizetype>(pending_.size()));
    for (const std::string& candidate : pending_) rows.append(displayString(candidate));
    model_->setStringList(rows);
    list_->clearSelection();
    list_->selectionModel()->clearCurrentIndex();
}

void CompletionsPopup::resizeEvent(QResizeEvent*) { list_->setGeometry(rect()); }

void CompletionsPopup::showEvent(QShowEvent* event) {
    applyContent();
    QWidget::showEvent(event);
}

int CompletionsPopup::rowCount() const {
    return contentPending_ ? static_cast<int>(pending_.size()) : model_->rowCount();
}

int CompletionsPopup::selectedRow() const {
    if (contentPending_) return -1;
    const QModelIndexList selected = list_->selectionModel()->selectedRows();
    return selected.isEmpty() ? -1 : selected.front().row();
}

void CompletionsPopup::selectRow(int row) {
    applyContent();
    if (row < 0 || row >= model_->rowCount()) return;
    const QModelIndex index = model_->index(row);
    list_->selectionModel()->setCurrentIndex(index, QItemSelectionModel::ClearAndSelect);
}

void CompletionsPopup::deselectAll() {
    applyContent();
    list_->clearSelection();
    list_->selectionModel()->clearCurrentIndex();
}

void CompletionsPopup::scrollRowToVisible(int row) {
    applyContent();
    if (row < 0 || row >= model_->rowCount()) return;
    list_->scrollTo(model_->index(row), QAbstractItemView::EnsureVisible);
}

QString CompletionsPopup::rowText(int row) const {
    if (contentPending_) return row >= 0 && row < static_cast<int>(pending_.size()) ? displayString(pending_[row]) : QString();
    return model_->data(model_->index(row)).toString();
}

}  // namespace jorvane::ui
