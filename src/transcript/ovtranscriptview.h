#pragma once

#include <QList>
#include <QTableView>

class OVTranscriptHistory;
class QFontMetrics;
class OVTranscriptModel;

namespace OVProject {
class Project;
}

// The transcript table: one row per utterance of the active coder's timeline. The row under the
// playing position is highlighted and kept in view; a double-click on a time asks to seek there
// and one on a text edits it in place (an undoable step).
class OVTranscriptView : public QTableView
{
    Q_OBJECT
public:
    explicit OVTranscriptView(QWidget *parent = nullptr);

    void setProject(OVProject::Project *project);
    // Requests that edits and deletions go through; without them the table is read-only.
    void setRequests(OVTranscriptHistory *requests);
    OVTranscriptModel *transcriptModel() const { return m_model; }

    // Whether the highlighted row is scrolled into view as the position moves (on by default).
    void setFollowingPosition(bool on) { m_following = on; }
    bool isFollowingPosition() const { return m_following; }

    // The selected utterances' rows, in table order.
    QList<int> selectedRows() const;

    // The height of a row with its text wrapped, without laying the text out.
    int sizeHintForRow(int row) const override;

Q_SIGNALS:
    void seekRequested(double seconds);

protected:
    void keyPressEvent(QKeyEvent *event) override;
    void changeEvent(QEvent *event) override;
    void showEvent(QShowEvent *event) override;

private:
    void onDoubleClicked(const QModelIndex &index);
    void onHighlightChanged();
    void updateColumnWidths();
    int rowHeightFor(int row) const;
    int textWidth(QStringView text, const QFontMetrics &fm) const;
    int wrappedLines(QStringView line, int width, const QFontMetrics &fm) const;
    int lineHeight(QStringView line, int width, const QFontMetrics &fm) const;
    void updateRowHeights(int first, int last);

    OVTranscriptModel *m_model;
    OVTranscriptHistory *m_requests = nullptr;
    bool m_following = true;
    int m_lastFollowed = -1;
    bool m_heightsStale = false;
    // Below the combining marks, where letters are laid out one by one.
    static constexpr char16_t CachedAdvances = 0x300;
    mutable QList<int> m_advances;
};
