#pragma once

#include <QPointer>
#include <QWidget>

#include <functional>

class QComboBox;
class QLabel;
class QLineEdit;
class QTableView;
class OVSegmentListFilter;
class OVSegmentListModel;

namespace OVProject {
class Project;
}

// The segment list: every segment of the shown coders, sortable, filtered by coder, label and
// text. A double-click seeks to the segment's start; cells are edited with F2 or a click on the
// selected cell, and Delete removes the selected segments of the edited timeline.
class OVSegmentListView : public QWidget
{
    Q_OBJECT
public:
    explicit OVSegmentListView(QWidget *parent = nullptr);

    void setProject(OVProject::Project *project);
    OVSegmentListModel *model() const { return m_model; }
    OVSegmentListFilter *filter() const { return m_filter; }
    QTableView *table() const { return m_table; }

    // Asks the user a yes/no question; replaceable so that automated use needs no dialog.
    using Confirmation = std::function<bool(const QString &question)>;
    void setConfirmation(Confirmation confirm) { m_confirm = std::move(confirm); }
    // Deletes the selected segments that can be edited after asking; true when deleted.
    bool deleteSelectedSegments();

    QSize sizeHint() const override;

Q_SIGNALS:
    void seekRequested(double time);

public Q_SLOTS:
    void refreshChoices();

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void onDoubleClicked(const QModelIndex &index);
    void onFilterChanged();
    void updateCount();

    QPointer<OVProject::Project> m_project;
    OVSegmentListModel *m_model;
    OVSegmentListFilter *m_filter;
    QComboBox *m_coder;
    QComboBox *m_label;
    QLineEdit *m_text;
    QLabel *m_count;
    QTableView *m_table;
    Confirmation m_confirm;
};
