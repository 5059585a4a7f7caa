#pragma once

#include "project/project.h"
#include "project/timeline.h"

#include <QAbstractTableModel>
#include <QColor>
#include <QHash>
#include <QList>
#include <QPointer>
#include <QStringList>

class OVTranscriptHistory;

namespace OVProject {
class Utterance;
} // namespace OVProject

// The utterances of the active coder's timeline as a table (start, end, speaker, text), sorted by
// start. Hidden utterances, hidden speakers and speakers outside the filter are left out. The
// rows follow the model's announcements; the rows under the playing position are highlighted.
// Text edits go through the transcript's history requests, so they are undoable steps.
class OVTranscriptModel : public QAbstractTableModel
{
    Q_OBJECT
public:
    enum Column { StartColumn, EndColumn, SpeakerColumn, TextColumn, ColumnCount };
    enum Role {
        // The time of a time cell in seconds, else the utterance's start.
        SecondsRole = Qt::UserRole + 1,
        UtteranceIdRole,
        HighlightedRole,
    };

    explicit OVTranscriptModel(QObject *parent = nullptr);

    // Follows the project (its active user's timeline) until it is set to another or null.
    void setProject(OVProject::Project *project);
    OVProject::Project *project() const { return m_project; }
    OVProject::Timeline *timeline() const { return m_timeline; }
    // Without requests the table is read-only.
    void setRequests(OVTranscriptHistory *requests);

    // Speakers to show; an empty list shows every speaker.
    void setSpeakerFilter(const QStringList &speakers);
    QStringList speakerFilter() const { return m_filter; }
    // Every speaker of the timeline, sorted, hidden ones included.
    QStringList speakers() const { return m_speakers; }
    QColor speakerColor(const QString &speaker) const;

    int rowCount(const QModelIndex &parent = QModelIndex()) const override;
    int columnCount(const QModelIndex &parent = QModelIndex()) const override;
    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;
    Qt::ItemFlags flags(const QModelIndex &index) const override;
    bool setData(const QModelIndex &index, const QVariant &value, int role = Qt::EditRole) override;

    OVProject::Utterance *utterance(int row) const;
    int rowOf(const OVProject::Id &id) const;

    // Highlights the rows whose utterance spans `seconds`. The project's playing position drives
    // it; views and tests may call it directly.
    void setPosition(double seconds);
    double position() const { return m_position; }
    // Rows under the position, in start order.
    const QList<int> &highlightedRows() const { return m_highlighted; }
    QList<OVProject::Id> highlightedIds() const;
    // The row to keep in view at the position: the last one starting at or before it (the
    // first row before any starts); -1 when the table is empty.
    int followRow() const;

    // `text` broken at spaces into lines of at most `width` characters; a longer word is cut.
    static QString wrapText(const QString &text, int width);

Q_SIGNALS:
    void highlightChanged();
    // speakers() changed; the rows may have stayed as they were.
    void speakersChanged();

private:
    // What a row shows, to tell which rows an announcement changed.
    struct RowContent
    {
        double start = 0.0;
        double end = 0.0;
        QString speaker;
        QString text;
        bool operator==(const RowContent &) const = default;
    };
    static RowContent contentOf(const OVProject::Utterance *u);
    QStringList timelineSpeakers() const;
    // Takes the timeline's speakers; true when they differ from before.
    bool updateSpeakers();
    void updateMaxDuration();
    void rebuild();
    void onUtterancesChanged();
    void onActiveTimelineChanged();
    QList<OVProject::Utterance *> visibleSorted() const;
    void updateHighlight();
    int lastRowStartingBy(double seconds) const;

    QPointer<OVProject::Project> m_project;
    QPointer<OVProject::Timeline> m_timeline;
    QPointer<OVTranscriptHistory> m_requests;
    QList<OVProject::Utterance *> m_rows;
    QList<RowContent> m_content; // beside m_rows
    QStringList m_speakers;
    QHash<QString, int> m_speakerIndex;
    QStringList m_filter;
    // The longest utterance, so the search for rows under a position can stop early.
    double m_maxDuration = 0.0;
    double m_position = 0.0;
    QList<int> m_highlighted;
};
