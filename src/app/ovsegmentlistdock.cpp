#include "app/ovsegmentlistdock.h"

#include "timeline/ovsegmentlistview.h"

#include <QAction>
#include <QMainWindow>

OVSegmentListDock::OVSegmentListDock(QAction *toggle, QWidget *parent)
    : QDockWidget(tr("Labels"), parent)
    , m_view(new OVSegmentListView(this))
{
    setObjectName(QStringLiteral("dw_segments"));
    setWidget(m_view);
    connect(m_view, &OVSegmentListView::seekRequested, this, &OVSegmentListDock::seekRequested);
    toggle->setCheckable(true);
    connect(toggle, &QAction::toggled, this, &QWidget::setVisible);
    connect(this, &QDockWidget::visibilityChanged, toggle, [this, toggle](bool visible) {
        // A dock tabbed behind another reports itself hidden while it is still open.
        if (!window()->isMinimized())
            toggle->setChecked(visible || !isHidden());
    });
}

void OVSegmentListDock::setProject(OVProject::Project *project) { m_view->setProject(project); }

void OVSegmentListDock::showEvent(QShowEvent *event)
{
    QDockWidget::showEvent(event);
    // A main window lays a new dock out at its minimum width; the first time, give it room for
    // the times. Later the user's own width stays.
    auto *window = qobject_cast<QMainWindow *>(parentWidget());
    if (std::exchange(m_sized, true) || !window || isFloating())
        return;
    window->resizeDocks({ this }, { m_view->sizeHint().width() }, Qt::Horizontal);
}
