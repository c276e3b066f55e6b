#include "ui/CompletionsPopup.h"

#include <QFont>
#include <QItemSelectionModel>
#include <QListView>
#include <QPainter>
#include <QStringListModel>
#include <QStyledItemDelegate>

#include "ui/ByteText.h"

namespace jorvane::ui {

// The candidates, then the note (if any) as a row that cannot be chosen.
class CompletionsPopup::Rows final : public QStringListModel {
public:
    // The title of the group that begins at a row, for the delegate.
    static constexpr int GroupTitleRole = Qt::UserRole + 1;

    using QStringListModel::QStringListModel;
    void setNoteRow(bool present) { noteRow_ = present; }
    void setGroups(const QHash<int, QString>& titles) { groupTitles_ = titles; }
    bool isNote(const QModelIndex& index) const { return noteRow_ && index.row() == rowCount() - 1; }
    Qt::ItemFlags flags(const QModelIndex& index) const override {
        return isNote(index) ? Qt::ItemIsEnabled : QStringListModel::flags(index);
    }
    QVariant data(const QModelIndex& index, int role) const override {
        if (isNote(index)) {
            if (role == Qt::ForegroundRole) return QColor(150, 150, 156);
            if (role == Qt::FontRole) {
                QFont font;
                font.setItalic(true);
                return font;
            }
        }
        if (role == GroupTitleRole) return isNote(index) ? QString() : groupTitles_.value(index.row());
        return QStringListModel::data(index, role);
    }

private:
    bool noteRow_ = false;
    QHash<int, QString> groupTitles_;
};

namespace {

using Rows = CompletionsPopup::Rows;

class RowDelegate final : public QStyledItemDelegate {
public:
    using QStyledItemDelegate::QStyledItemDelegate;
    QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override {
        QSize size = QStyledItemDelegate::sizeHint(option, index);
        size.setHeight(CompletionsPopup::kRowHeight);
        return size;
    }
    // The first row of a group carries its title at the right, dimmed, under
    // a line that separates it from the rows before.
    void paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const override {
        QStyledItemDelegate::paint(painter, option, index);
        const QString title = index.data(Rows::GroupTitleRole).toString();
        if (title.isEmpty()) return;
        painter->save();
        painter->setPen(QColor(96, 96, 102));
        painter->drawLine(option.rect.topLeft(), option.rect.topRight());
        QFont font = option.font;
        font.setItalic(true);
        painter->setFont(font);
        painter->setPen((option.state & QStyle::State_Selected) ? QColor(220, 228, 240) : QColor(150, 150, 156));
        painter->drawText(option.rect.adjusted(0, 0, -6, 0), Qt::AlignRight | Qt::AlignVCenter, title);
        painter->restore();
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
      model_(new Rows(this)) {
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
        if (index.isValid() && !model_->isNote(index)) Q_EMIT rowChosen();
    });
}

void CompletionsPopup::setContent(const std::vector<std::string>& candidates) {
    pending_ = candidates;
    contentPending_ = true;
    if (isVisible()) applyContent();
}

void CompletionsPopup::setNote(const QString& note) {
    if (note == note_) return;
    if (contentPending_) {
        note_ = note;
        if (isVisible()) applyContent();
        return;
    }
    // The candidates stay as they are, and so does the selection.
    const int candidates = rowCount();
    note_ = note;
    if (model_->rowCount() > candidates) model_->removeRows(candidates, 1);
    model_->setNoteRow(!note_.isEmpty());
    if (!note_.isEmpty()) {
        model_->insertRows(candidates, 1);
        model_->setData(model_->index(candidates), note_);
    }
}

void CompletionsPopup::setGroupTitles(const QHash<int, QString>& titles) {
    model_->setGroups(titles);
    list_->viewport()->update();
}

void CompletionsPopup::applyContent() {
    if (!contentPending_) return;
    contentPending_ = false;
    QStringList rows;
    rows.reserve(static_cast<qsizetype>(pending_.size()) + 1);
    for (const std::string& candidate : pending_) rows.append(displayString(candidate));
    if (!note_.isEmpty()) rows.append(note_);
    model_->setNoteRow(!note_.isEmpty());
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
    if (contentPending_) return static_cast<int>(pending_.size());
    return model_->rowCount() - (note_.isEmpty() ? 0 : 1);
}

int CompletionsPopup::selectedRow() const {
    if (contentPending_) return -1;
    const QModelIndexList selected = list_->selectionModel()->selectedRows();
    return selected.isEmpty() ? -1 : selected.front().row();
}

void CompletionsPopup::selectRow(int row) {
    applyContent();
    if (row < 0 || row >= rowCount()) return;
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
    if (row < 0 || row >= rowCount()) return;
    list_->scrollTo(model_->index(row), QAbstractItemView::EnsureVisible);
}

QString CompletionsPopup::rowText(int row) const {
    if (contentPending_)
        return row >= 0 && row < static_cast<int>(pending_.size()) ? displayString(pending_[row]) : QString();
    return model_->data(model_->index(row), Qt::DisplayRole).toString();
}

}  // namespace jorvane::ui
