#include "transcript/ovtranscriptview.h"

#include "project/utterance.h"
#include "transcript/ovtranscripthistory.h"
#include "transcript/ovtranscriptmodel.h"

#include <QHeaderView>
#include <QKeyEvent>

#include <algorithm>

OVTranscriptView::OVTranscriptView(QWidget *parent) : QTableView(parent), m_model(new OVTranscriptModel(this))
{
    setObjectName(QStringLiteral("transcriptView"));
    setModel(m_model);
    setSelectionBehavior(QAbstractItemView::SelectRows);
    setSelectionMode(QAbstractItemView::ExtendedSelection);
    setEditTriggers(QAbstractItemView::DoubleClicked | QAbstractItemView::EditKeyPressed);
    setWordWrap(true);
    setAlternatingRowColors(false);
    setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);
    horizontalHeader()->setStretchLastSection(true);
    horizontalHeader()->setHighlightSections(false);
    // Rows are as tall as their wrapped text. Qt's own fitting to contents measures every cell
    // of every row on each change, which takes seconds for a long transcript; the line count
    // is known far more cheaply here.
    verticalHeader()->setSectionResizeMode(QHeaderView::Interactive);
    verticalHeader()->setMinimumSectionSize(1);
    verticalHeader()->hide();
    updateColumnWidths();
    connect(this, &QAbstractItemView::doubleClicked, this, &OVTranscriptView::onDoubleClicked);
    connect(m_model, &OVTranscriptModel::highlightChanged, this, &OVTranscriptView::onHighlightChanged);
    connect(m_model, &QAbstractItemModel::modelReset, this, [this] {
        m_lastFollowed = -1;
        updateRowHeights(0, m_model->rowCount() - 1);
    });
    // A new row would otherwise keep the header's default height whatever its text.
    connect(m_model, &QAbstractItemModel::rowsInserted, this,
            [this](const QModelIndex &, int first, int last) { updateRowHeights(first, last); });
    connect(m_model, &QAbstractItemModel::dataChanged, this, [this](const QModelIndex &from, const QModelIndex &to) {
        if (to.column() >= OVTranscriptModel::TextColumn)
            updateRowHeights(from.row(), to.row());
    });
    connect(horizontalHeader(), &QHeaderView::sectionResized, this, [this](int column, int oldSize, int newSize) {
        if (column == OVTranscriptModel::TextColumn && oldSize != newSize)
            updateRowHeights(0, m_model->rowCount() - 1);
    });
}

int OVTranscriptView::textWidth(QStringView text, const QFontMetrics &fm) const
{
    // Shaping each line of a long transcript to find its row's height took most of the table's
    // setup. For the alphabets whose letters do not join or combine (the callers see to it), the
    // sum of the letters' advances is the width to within kerning, which a row's height does not
    // notice.
    if (m_advances.isEmpty())
        m_advances.fill(-1, CachedAdvances);
    int width = 0;
    for (QChar c : text) {
        int &advance = m_advances[c.unicode()];
        if (advance < 0)
            advance = fm.horizontalAdvance(c);
        width += advance;
    }
    return width;
}

int OVTranscriptView::wrappedLines(QStringView line, int width, const QFontMetrics &fm) const
{
    // As the delegate wraps: at spaces, a word wider than the column on lines of its own.
    const int space = textWidth(u" ", fm);
    int lines = 1;
    int used = 0;
    for (QStringView word : line.split(QLatin1Char(' '), Qt::SkipEmptyParts)) {
        const int w = textWidth(word, fm);
        if (used > 0 && used + space + w <= width) {
            used += space + w;
            continue;
        }
        if (used > 0)
            ++lines;
        lines += (w - 1) / width;
        used = w - (w - 1) / width * width;
    }
    return lines;
}

int OVTranscriptView::lineHeight(QStringView line, int width, const QFontMetrics &fm) const
{
    const bool simple = std::all_of(line.cbegin(), line.cend(), [](QChar c) { return c.unicode() < CachedAdvances; });
    if (!simple) {
        // Other scripts may come from a fallback font with a line height of its own: laid out
        // for real.
        return fm.boundingRect(QRect(0, 0, width, 1 << 24), Qt::TextWordWrap, line.toString()).height();
    }
    // Most lines plainly fit; only the doubtful ones are measured.
    if (line.size() * fm.averageCharWidth() < width / 2)
        return fm.lineSpacing();
    return wrappedLines(line, width, fm) * fm.lineSpacing();
}

int OVTranscriptView::rowHeightFor(int row) const
{
    const QFontMetrics fm(font());
    const QString text = m_model->index(row, OVTranscriptModel::TextColumn).data().toString();
    // The cell's margins, and room for the caret of an editor.
    const int width = std::max(1, columnWidth(OVTranscriptModel::TextColumn) - 12);
    int height = 0;
    for (QStringView line : QStringView(text).split(QLatin1Char('\n')))
        height += lineHeight(line, width, fm);
    return std::max(height, fm.lineSpacing()) + 8;
}

void OVTranscriptView::changeEvent(QEvent *event)
{
    if (event->type() == QEvent::FontChange)
        m_advances.clear();
    QTableView::changeEvent(event);
}

void OVTranscriptView::updateRowHeights(int first, int last)
{
    // Before the table is shown its columns do not have their widths yet: measured then, every
    // row would be measured twice.
    if (!isVisible()) {
        m_heightsStale = true;
        return;
    }
    QHeaderView *header = verticalHeader();
    first = std::max(0, first);
    last = std::min(last, m_model->rowCount() - 1);
    if (last - first > 50) {
        // Each resizeSection() finds the row's position anew by summing the rows above it, so a
        // row at a time is quadratic in the rows: ten thousand took over a second. The header
        // measures all of them in one pass (through sizeHintForRow()) and lays them out once.
        header->resizeSections(QHeaderView::ResizeToContents);
        return;
    }
    for (int row = first; row <= last; ++row) {
        const int height = rowHeightFor(row);
        if (header->sectionSize(row) != height)
            header->resizeSection(row, height);
    }
}

int OVTranscriptView::sizeHintForRow(int row) const
{
    return row >= 0 && row < m_model->rowCount() ? rowHeightFor(row) : -1;
}

void OVTranscriptView::setProject(OVProject::Project *project)
{
    m_model->setProject(project);
}

void OVTranscriptView::setRequests(OVTranscriptHistory *requests)
{
    m_requests = requests;
    m_model->setRequests(requests);
}

void OVTranscriptView::updateColumnWidths()
{
    // Times all have the same shape: measure one instead of every row.
    const QFontMetrics fm(font());
    const int timeWidth = fm.horizontalAdvance(QStringLiteral("00:00:00.000")) + 16;
    setColumnWidth(OVTranscriptModel::StartColumn, timeWidth);
    setColumnWidth(OVTranscriptModel::EndColumn, timeWidth);
    setColumnWidth(OVTranscriptModel::SpeakerColumn, fm.horizontalAdvance(QStringLiteral("Speaker 00")) + 16);
}

QList<int> OVTranscriptView::selectedRows() const
{
    QList<int> rows;
    for (const QModelIndex &i : selectionModel()->selectedRows())
        rows.append(i.row());
    std::sort(rows.begin(), rows.end());
    return rows;
}

void OVTranscriptView::onDoubleClicked(const QModelIndex &index)
{
    if (!index.isValid())
        return;
    if (index.column() == OVTranscriptModel::StartColumn || index.column() == OVTranscriptModel::EndColumn)
        Q_EMIT seekRequested(index.data(OVTranscriptModel::SecondsRole).toDouble());
}

void OVTranscriptView::onHighlightChanged()
{
    const int row = m_model->followRow();
    if (!m_following || row < 0 || row == m_lastFollowed)
        return;
    m_lastFollowed = row;
    // Scrolling under an open editor would move the text being typed away from the caret.
    if (state() == QAbstractItemView::EditingState)
        return;
    scrollTo(m_model->index(row, OVTranscriptModel::TextColumn), QAbstractItemView::EnsureVisible);
}

void OVTranscriptView::showEvent(QShowEvent *event)
{
    QTableView::showEvent(event);
    if (std::exchange(m_heightsStale, false))
        updateRowHeights(0, m_model->rowCount() - 1);
}

void OVTranscriptView::keyPressEvent(QKeyEvent *event)
{
    if (event->matches(QKeySequence::Delete) && m_requests && state() != QAbstractItemView::EditingState) {
        QList<OVProject::Utterance *> doomed;
        for (int row : selectedRows()) {
            if (OVProject::Utterance *u = m_model->utterance(row))
                doomed.append(u);
        }
        if (!doomed.isEmpty()) {
            m_requests->removeUtterances(doomed);
            event->accept();
            return;
        }
    }
    QTableView::keyPressEvent(event);
}
