#include "timeline/ovsegmentlistfilter.h"

#include "timeline/ovsegmentlistmodel.h"

OVSegmentListFilter::OVSegmentListFilter(QObject *parent)
    : QSortFilterProxyModel(parent)
{
    setSortRole(OVSegmentListModel::SortRole);
    setSortCaseSensitivity(Qt::CaseInsensitive);
}

void OVSegmentListFilter::setCoder(const OVProject::Id &timelineId)
{
    if (timelineId == m_coder)
        return;
    m_coder = timelineId;
    invalidateRowsFilter();
}

void OVSegmentListFilter::setLabel(const QString &name)
{
    if (name == m_label)
        return;
    m_label = name;
    invalidateRowsFilter();
}

void OVSegmentListFilter::setText(const QString &text)
{
    if (text == m_text)
        return;
    m_text = text;
    invalidateRowsFilter();
}

bool OVSegmentListFilter::filterAcceptsRow(int sourceRow, const QModelIndex &sourceParent) const
{
    if (m_coder.isEmpty() && m_label.isEmpty() && m_text.isEmpty())
        return true;
    const QAbstractItemModel *m = sourceModel();
    const QModelIndex first = m->index(sourceRow, 0, sourceParent);
    // A row whose segment has gone shows nothing and matches nothing.
    if (!m_coder.isEmpty() && m->data(first, OVSegmentListModel::TimelineIdRole).toString() != m_coder)
        return false;
    if (!m_label.isEmpty() && m->data(first, OVSegmentListModel::LabelNameRole).toString() != m_label)
        return false;
    if (m_text.isEmpty())
        return true;
    // The text columns only: formatting every time of 100,000 rows at each key typed into the
    // filter would make typing lag, and nobody looks for a segment by the digits of its start.
    for (int c : { OVSegmentListModel::CoderColumn, OVSegmentListModel::LabelColumn, OVSegmentListModel::DescriptionColumn,
                   OVSegmentListModel::GroupsColumn }) {
        if (m->data(m->index(sourceRow, c, sourceParent)).toString().contains(m_text, Qt::CaseInsensitive))
            return true;
    }
    return false;
}
