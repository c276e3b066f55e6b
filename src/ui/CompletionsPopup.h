#pragma once

// The completion list: a frameless, always-on-top window under the address
// bar's field, holding one column of candidates. It never takes the keyboard:
// the bar keeps it, and the bar's controller moves the list's selection. A
// click on a row selects it and reports rowChosen().

#include <QHash>
#include <QWidget>

#include <string>
#include <vector>

class QListView;

namespace jorvane::ui {

class CompletionsPopup final : public QWidget {
    Q_OBJECT
public:
    static constexpr int kRowHeight = 17;
    // The list's model: the candidates, then the note.
    class Rows;

    CompletionsPopup();

    // The candidates (bytes); drops the selection. Shown rows are converted
    // only when the list is on screen.
    void setContent(const std::vector<std::string>& candidates);
    // A last row that is no candidate and cannot be chosen; empty for none.
    void setNote(const QString& note);
    const QString& note() const { return note_; }
    // The rows from `firstRow` on form a group: its first row shows `title`
    // at its right and a line above it; -1 for no group.
    // The title of each group, by its first row.
    void setGroupTitles(const QHash<int, QString>& titles);
    // Candidate rows, the note not counted.
    int rowCount() const;
    int selectedRow() const;
    // Rows outside the content are ignored.
    void selectRow(int row);
    void deselectAll();
    void scrollRowToVisible(int row);
    QListView* listView() const { return list_; }
    // The text a row shows (tests).
    QString rowText(int row) const;

Q_SIGNALS:
    void rowChosen();

protected:
    void showEvent(QShowEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    void applyContent();

    QListView* list_;
    Rows* model_;
    QString note_;
    std::vector<std::string> pending_;
    bool contentPending_ = false;
};

}  // namespace jorvane::ui
