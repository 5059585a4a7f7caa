#pragma once

#include <QDockWidget>

class QAction;
class OVSegmentListView;

namespace OVProject {
class Project;
}

// The dock of the segment list in the main window, shown and hidden by its View menu action.
class OVSegmentListDock : public QDockWidget
{
    Q_OBJECT
public:
    // `toggle` becomes checkable and follows the dock's visibility.
    OVSegmentListDock(QAction *toggle, QWidget *parent = nullptr);

    OVSegmentListView *view() const { return m_view; }
    void setProject(OVProject::Project *project);

Q_SIGNALS:
    void seekRequested(double time);

protected:
    void showEvent(QShowEvent *event) override;

private:
    OVSegmentListView *m_view;
    bool m_sized = false;
};
