#include "transcript/ovtranscriptmodel.h"

#include "log/ovtimeformat.h"
#include "project/project.h"
#include "project/state.h"
#include "project/timeline.h"
#include "project/timelinegroup.h"
#include "project/utterance.h"
#include "timeline/ovkeyboardcoder.h"
#include "transcript/ovtranscripthistory.h"

#include <QBrush>
#include <QSet>

#include <algorithm>

using namespace OVProject;

namespace {
// Distinct at a glance and light enough that black text stays readable on them.
const QColor kSpeakerColors[] = {
    QColor(0xA0, 0xDB, 0xE9), QColor(0xF7, 0xB6, 0x8C), QColor(0xA2, 0xD0, 0x78), QColor(0xF6, 0xA4, 0xA6),
    QColor(0xC8, 0xBC, 0xD0), QColor(0xFA, 0xD3, 0x09), QColor(0x6E, 0xC1, 0xE9), QColor(0xEA, 0xF3, 0xC4),
    QColor(0xF8, 0xA5, 0x1B), QColor(0xB0, 0x9C, 0xD4),
};
const QColor kHighlight(255, 236, 140);

// Qt 6.4 compares lists of plain values with memcmp, also two empty ones of which one has no
// storage: a null pointer where memcmp requires none (UBSan reports it).
template<typename T>
bool sameItems(const QList<T> &a, const QList<T> &b)
{
    return std::equal(a.cbegin(), a.cend(), b.cbegin(), b.cend());
}
} // namespace

OVTranscriptModel::OVTranscriptModel(QObject *parent) : QAbstractTableModel(parent) {}

void OVTranscriptModel::setProject(Project *project)
{
    if (m_project == project)
        return;
    if (m_project) {
        disconnect(m_project, nullptr, this, nullptr);
        disconnect(m_project->state(), nullptr, this, nullptr);
        disconnect(m_project->timelineGroup(), nullptr, this, nullptr);
    }
    m_project = project;
    if (m_project) {
        // A project deleted before it is taken away: its utterances go with it.
        connect(m_project, &QObject::destroyed, this, [this] {
            beginResetModel();
            m_rows.clear();
            m_highlighted.clear();
            endResetModel();
        });
        const State *state = m_project->state();
        connect(state, &State::activeUserChanged, this, &OVTranscriptModel::onActiveTimelineChanged);
        connect(state, &State::currentPosChanged, this, [this] { setPosition(m_project->state()->currentPos()); });
        connect(m_project->timelineGroup(), &TimelineGroup::timelinesChanged, this, &OVTranscriptModel::onActiveTimelineChanged);
        connect(m_project->timelineGroup(), &TimelineGroup::utterancesChanged, this, &OVTranscriptModel::onUtterancesChanged);
        // The text width is a header field: the wrapped texts change with it.
        connect(m_project, &Project::changed, this, [this] {
            if (!m_rows.isEmpty())
                Q_EMIT dataChanged(index(0, TextColumn), index(int(m_rows.size()) - 1, TextColumn));
        });
        m_position = state->currentPos();
    }
    onActiveTimelineChanged();
}

void OVTranscriptModel::setRequests(OVTranscriptHistory *requests)
{
    m_requests = requests;
}

void OVTranscriptModel::onActiveTimelineChanged()
{
    m_timeline = OVKeyboardCoder::activeTimeline(m_project);
    rebuild();
}

void OVTranscriptModel::setSpeakerFilter(const QStringList &speakers)
{
    if (speakers == m_filter)
        return;
    m_filter = speakers;
    rebuild();
}

QColor OVTranscriptModel::speakerColor(const QString &speaker) const
{
    const int i = m_speakerIndex.value(speaker, -1);
    if (i < 0)
        return QColor(Qt::white);
    return kSpeakerColors[i % int(std::size(kSpeakerColors))];
}

QList<Utterance *> OVTranscriptModel::visibleSorted() const
{
    QList<Utterance *> rows;
    if (!m_timeline)
        return rows;
    rows.reserve(m_timeline->utterances().size());
    for (Utterance *u : m_timeline->utterances()) {
        if (m_timeline->isUtteranceHidden(u->id()) || m_timeline->isUtteranceUserHidden(u->speaker()))
            continue;
        if (!m_filter.isEmpty() && !m_filter.contains(u->speaker()))
            continue;
        rows.append(u);
    }
    // Stable, so utterances that start together keep the order the coder made them in.
    std::stable_sort(rows.begin(), rows.end(),
                     [](const Utterance *a, const Utterance *b) { return a->startTime() < b->startTime(); });
    return rows;
}

QStringList OVTranscriptModel::timelineSpeakers() const
{
    QStringList speakers;
    if (m_timeline) {
        QSet<QString> seen;
        for (const Utterance *u : m_timeline->utterances()) {
            if (!seen.contains(u->speaker())) {
                seen.insert(u->speaker());
                speakers.append(u->speaker());
            }
        }
    }
    speakers.sort(Qt::CaseInsensitive);
    return speakers;
}

OVTranscriptModel::RowContent OVTranscriptModel::contentOf(const Utterance *u)
{
    return RowContent{ u->startTime(), u->endTime(), u->speaker(), u->text() };
}

void OVTranscriptModel::rebuild()
{
    beginResetModel();
    m_rows = visibleSorted();
    m_content.clear();
    m_content.reserve(m_rows.size());
    for (const Utterance *u : std::as_const(m_rows))
        m_content.append(contentOf(u));
    const bool speakersMoved = updateSpeakers();
    m_highlighted.clear();
    updateMaxDuration();
    endResetModel();
    updateHighlight();
    if (speakersMoved)
        Q_EMIT speakersChanged();
}

void OVTranscriptModel::updateMaxDuration()
{
    m_maxDuration = 0.0;
    for (const Utterance *u : std::as_const(m_rows))
        m_maxDuration = std::max(m_maxDuration, u->endTime() - u->startTime());
}

void OVTranscriptModel::onUtterancesChanged()
{
    // Transcribing adds, finishes and types into one utterance at a time, and a long transcript
    // must not be laid out anew for each: one added or removed row is announced as that, a text
    // typed or edited as a change of its row (an editor open in the table stays open). Anything
    // else rebuilds.
    const QList<Utterance *> rows = visibleSorted();
    // A new speaker (or the last utterance of one gone) changes the colours, not the rows.
    const bool speakersMoved = updateSpeakers();
    const qsizetype oldCount = m_rows.size();
    qsizetype first = 0;
    while (first < rows.size() && first < oldCount && rows.at(first) == m_rows.at(first))
        ++first;
    const bool inserted = rows.size() == oldCount + 1 && std::equal(rows.cbegin() + first + 1, rows.cend(), m_rows.cbegin() + first);
    const bool removed = rows.size() + 1 == oldCount && std::equal(rows.cbegin() + first, rows.cend(), m_rows.cbegin() + first + 1);
    if (inserted || removed) {
        // The highlighted rows are found again below; their old rows lose the mark first.
        for (int r : std::exchange(m_highlighted, {}))
            Q_EMIT dataChanged(index(r, 0), index(r, ColumnCount - 1));
    }
    if (inserted) {
        beginInsertRows(QModelIndex(), int(first), int(first));
        m_rows.insert(first, rows.at(first));
        m_content.insert(first, contentOf(rows.at(first)));
        endInsertRows();
    } else if (removed) {
        beginRemoveRows(QModelIndex(), int(first), int(first));
        m_rows.remove(first);
        m_content.remove(first);
        endRemoveRows();
    } else if (!sameItems(rows, m_rows)) {
        rebuild();
        return;
    }
    for (int row = 0; row < m_rows.size(); ++row) {
        const RowContent now = contentOf(m_rows.at(row));
        if (now == m_content.at(row))
            continue;
        m_content[row] = now;
        Q_EMIT dataChanged(index(row, 0), index(row, ColumnCount - 1));
    }
    if (speakersMoved && !m_rows.isEmpty())
        Q_EMIT dataChanged(index(0, SpeakerColumn), index(int(m_rows.size()) - 1, SpeakerColumn), { Qt::BackgroundRole });
    updateMaxDuration();
    updateHighlight();
    if (speakersMoved)
        Q_EMIT speakersChanged();
}

bool OVTranscriptModel::updateSpeakers()
{
    QStringList speakers = timelineSpeakers();
    if (speakers == m_speakers)
        return false;
    m_speakers = std::move(speakers);
    m_speakerIndex.clear();
    for (int i = 0; i < m_speakers.size(); ++i)
        m_speakerIndex.insert(m_speakers.at(i), i);
    return true;
}

int OVTranscriptModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : int(m_rows.size());
}

int OVTranscriptModel::columnCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : ColumnCount;
}

QVariant OVTranscriptModel::data(const QModelIndex &index, int role) const
{
    const Utterance *u = utterance(index.row());
    if (!u || index.column() < 0 || index.column() >= ColumnCount)
        return QVariant();
    const int column = index.column();
    switch (role) {
    case Qt::DisplayRole:
        switch (column) {
        case StartColumn: return OVTimeFormat::format(u->startTime());
        // An utterance being transcribed has no end yet.
        case EndColumn: return u->endTime() > u->startTime() ? OVTimeFormat::format(u->endTime()) : QStringLiteral("…");
        case SpeakerColumn: return u->speaker();
        case TextColumn: return wrapText(u->text(), m_project ? m_project->maxTextWidth() : Project::NoTextWidthLimit);
        }
        break;
    case Qt::EditRole:
        switch (column) {
        case StartColumn: return u->startTime();
        case EndColumn: return u->endTime();
        case SpeakerColumn: return u->speaker();
        case TextColumn: return u->text();
        }
        break;
    case Qt::ToolTipRole:
        return column == TextColumn ? u->text() : QVariant();
    case Qt::BackgroundRole:
        // Colour only: a bolder font would wrap differently and change the row's height.
        if (m_highlighted.contains(index.row()))
            return QBrush(kHighlight);
        if (column == SpeakerColumn)
            return QBrush(speakerColor(u->speaker()));
        break;
    case Qt::ForegroundRole:
        return QBrush(Qt::black);
    case Qt::TextAlignmentRole:
        return column == TextColumn ? int(Qt::AlignLeft | Qt::AlignVCenter) : int(Qt::AlignCenter);
    case SecondsRole:
        return column == EndColumn ? u->endTime() : u->startTime();
    case UtteranceIdRole:
        return u->id();
    case HighlightedRole:
        return m_highlighted.contains(index.row());
    }
    return QVariant();
}

QVariant OVTranscriptModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    // The row headers are hidden: without a hint the header would lay out a number for each row
    // whenever the table measures its rows.
    if (orientation == Qt::Vertical && role == Qt::SizeHintRole)
        return QSize(0, 0);
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
        return QAbstractTableModel::headerData(section, orientation, role);
    switch (section) {
    case StartColumn: return tr("Start");
    case EndColumn: return tr("End");
    case SpeakerColumn: return tr("Speaker");
    case TextColumn: return tr("Text");
    }
    return QVariant();
}

Qt::ItemFlags OVTranscriptModel::flags(const QModelIndex &index) const
{
    Qt::ItemFlags f = QAbstractTableModel::flags(index);
    if (index.isValid() && index.column() == TextColumn && m_requests)
        f |= Qt::ItemIsEditable;
    return f;
}

bool OVTranscriptModel::setData(const QModelIndex &index, const QVariant &value, int role)
{
    Utterance *u = utterance(index.row());
    if (role != Qt::EditRole || index.column() != TextColumn || !u || !m_requests)
        return false;
    const QString text = value.toString();
    if (text == u->text())
        return true;
    // The model announces the change; the rows follow from there.
    return m_requests->setUtteranceText(u, text);
}

Utterance *OVTranscriptModel::utterance(int row) const
{
    return row >= 0 && row < m_rows.size() ? m_rows.at(row) : nullptr;
}

int OVTranscriptModel::rowOf(const Id &id) const
{
    for (int i = 0; i < m_rows.size(); ++i) {
        if (m_rows.at(i)->id() == id)
            return i;
    }
    return -1;
}

void OVTranscriptModel::setPosition(double seconds)
{
    if (seconds == m_position)
        return;
    m_position = seconds;
    updateHighlight();
}

int OVTranscriptModel::lastRowStartingBy(double seconds) const
{
    auto it = std::upper_bound(m_rows.cbegin(), m_rows.cend(), seconds,
                               [](double t, const Utterance *u) { return t < u->startTime(); });
    return int(it - m_rows.cbegin()) - 1;
}

void OVTranscriptModel::updateHighlight()
{
    QList<int> rows;
    const int last = lastRowStartingBy(m_position);
    for (int i = last; i >= 0; --i) {
        const Utterance *u = m_rows.at(i);
        if (u->startTime() < m_position - m_maxDuration)
            break;
        if (m_position < u->endTime())
            rows.prepend(i);
    }
    if (sameItems(rows, m_highlighted))
        return;
    const QList<int> old = std::exchange(m_highlighted, rows);
    for (int r : old)
        Q_EMIT dataChanged(index(r, 0), index(r, ColumnCount - 1));
    for (int r : std::as_const(m_highlighted))
        Q_EMIT dataChanged(index(r, 0), index(r, ColumnCount - 1));
    Q_EMIT highlightChanged();
}

QList<Id> OVTranscriptModel::highlightedIds() const
{
    QList<Id> ids;
    for (int r : m_highlighted)
        ids.append(m_rows.at(r)->id());
    return ids;
}

int OVTranscriptModel::followRow() const
{
    if (m_rows.isEmpty())
        return -1;
    return std::max(0, lastRowStartingBy(m_position));
}

QString OVTranscriptModel::wrapText(const QString &text, int width)
{
    if (width <= 0 || text.size() <= width)
        return text;
    QStringList out;
    const QStringList paragraphs = text.split(QLatin1Char('\n'));
    for (const QString &paragraph : paragraphs) {
        QString line;
        const QStringList words = paragraph.split(QLatin1Char(' '), Qt::SkipEmptyParts);
        for (QString word : words) {
            if (!line.isEmpty() && line.size() + 1 + word.size() <= width) {
                line += QLatin1Char(' ') + word;
                continue;
            }
            if (!line.isEmpty())
                out.append(line);
            while (word.size() > width) {
                out.append(word.left(width));
                word.remove(0, width);
            }
            line = word;
        }
        out.append(line);
    }
    return out.join(QLatin1Char('\n'));
}
