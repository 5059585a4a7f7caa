#pragma once

#include "project/basenode.h"

#include <QSortFilterProxyModel>

// Sorting and the three filters of the segment list: one coder (by timeline id), one label (by
// name, so that the same label of every coder is kept) and a text found in a text column
// (coder, label, description, groups).
// Empty filters keep everything.
class OVSegmentListFilter : public QSortFilterProxyModel
{
    Q_OBJECT
public:
    explicit OVSegmentListFilter(QObject *parent = nullptr);

    OVProject::Id coder() const { return m_coder; }
    QString label() const { return m_label; }
    QString text() const { return m_text; }
    void setCoder(const OVProject::Id &timelineId);
    void setLabel(const QString &name);
    void setText(const QString &text);

protected:
    bool filterAcceptsRow(int sourceRow, const QModelIndex &sourceParent) const override;

private:
    OVProject::Id m_coder;
    QString m_label;
    QString m_text;
};
