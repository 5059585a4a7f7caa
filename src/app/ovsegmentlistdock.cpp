#include "app/ovsegmentlistdock.h"

#include "timeline/ovsegmentlistview.h"

#include <QAction>

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
