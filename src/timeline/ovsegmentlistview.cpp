#include "timeline/ovsegmentlistview.h"

#include "project/label.h"
#include "project/project.h"
#include "project/segment.h"
#include "project/state.h"
#include "project/timeline.h"
#include "project/timelinegroup.h"
#include "timeline/ovkeyboardcoder.h"
#include "timeline/ovsegmentlistfilter.h"
#include "timeline/ovsegmentlistmodel.h"

#include <QComboBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QScrollBar>
#include <QStyledItemDelegate>
#include <QTableView>
#include <QVBoxLayout>

namespace {

// The label of a segment is chosen among its timeline's labels, not typed.
class LabelChoiceDelegate : public QStyledItemDelegate
{
public:
    LabelChoiceDelegate(OVSegmentListFilter *filter, OVSegmentListModel *model, QObject *parent)
        : QStyledItemDelegate(parent)
        , m_filter(filter)
        , m_model(model)
    {
    }
    QWidget *createEditor(QWidget *parent, const QStyleOptionViewItem &, const QModelIndex &index) const override
    {
        auto *combo = new QComboBox(parent);
        combo->addItems(m_model->labelChoices(m_filter->mapToSource(index).row()));
        return combo;
    }
    void setEditorData(QWidget *editor, const QModelIndex &index) const override
    {
        auto *combo = static_cast<QComboBox *>(editor);
        combo->setCurrentIndex(combo->findText(index.data(Qt::EditRole).toString()));
    }
    void setModelData(QWidget *editor, QAbstractItemModel *model, const QModelIndex &index) const override
    {
        model->setData(index, static_cast<QComboBox *>(editor)->currentText(), Qt::EditRole);
    }

private:
    OVSegmentListFilter *m_filter;
    OVSegmentListModel *m_model;
};

} // namespace

OVSegmentListView::OVSegmentListView(QWidget *parent)
    : QWidget(parent)
    , m_model(new OVSegmentListModel(this))
    , m_filter(new OVSegmentListFilter(this))
{
    m_filter->setSourceModel(m_model);
    m_coder = new QComboBox(this);
    m_coder->setObjectName(QStringLiteral("cb_coder"));
    m_label = new QComboBox(this);
    m_label->setObjectName(QStringLiteral("cb_label"));
    m_text = new QLineEdit(this);
    m_text->setObjectName(QStringLiteral("le_filter"));
    m_text->setPlaceholderText(tr("Filter"));
    m_text->setClearButtonEnabled(true);
    m_count = new QLabel(this);
    m_count->setObjectName(QStringLiteral("lb_count"));
    m_table = new QTableView(this);
    m_table->setObjectName(QStringLiteral("tv_segments"));
    m_table->setModel(m_filter);
    m_table->setSortingEnabled(true);
    m_table->sortByColumn(OVSegmentListModel::StartColumn, Qt::AscendingOrder);
    m_table->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_table->setEditTriggers(QAbstractItemView::EditKeyPressed | QAbstractItemView::SelectedClicked);
    m_table->setItemDelegateForColumn(OVSegmentListModel::LabelColumn, new LabelChoiceDelegate(m_filter, m_model, this));
    m_table->verticalHeader()->hide();
    // Rows of one height let the view skip measuring 100,000 of them.
    m_table->verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    m_table->verticalHeader()->setDefaultSectionSize(m_table->fontMetrics().height() + 6);
    m_table->horizontalHeader()->setStretchLastSection(true);
    // Widths from the font, not from the contents: measuring 100,000 rows would stall the list.
    const QFontMetrics fm = m_table->fontMetrics();
    const int pad = 16;
    using M = OVSegmentListModel;
    m_table->setColumnWidth(M::CoderColumn, fm.horizontalAdvance(QStringLiteral("MMMMMMM")) + pad);
    m_table->setColumnWidth(M::LabelColumn, fm.horizontalAdvance(QStringLiteral("MMMMMMMM")) + fm.height() + pad);
    m_table->setColumnWidth(M::KeyColumn, fm.horizontalAdvance(tr("Key")) + pad);
    for (int c : { M::StartColumn, M::EndColumn, M::DurationColumn })
        m_table->setColumnWidth(c, fm.horizontalAdvance(QStringLiteral("00:00:00.000")) + pad);
    m_table->setColumnWidth(M::DescriptionColumn, fm.horizontalAdvance(QLatin1Char('M')) * 16 + pad);
    m_table->installEventFilter(this);

    auto *bar = new QHBoxLayout;
    bar->addWidget(m_coder);
    bar->addWidget(m_label);
    bar->addWidget(m_text, 1);
    bar->addWidget(m_count);
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(2, 2, 2, 2);
    layout->addLayout(bar);
    layout->addWidget(m_table);

    connect(m_table, &QAbstractItemView::doubleClicked, this, &OVSegmentListView::onDoubleClicked);
    connect(m_coder, &QComboBox::currentIndexChanged, this, &OVSegmentListView::onFilterChanged);
    connect(m_label, &QComboBox::currentIndexChanged, this, &OVSegmentListView::onFilterChanged);
    connect(m_text, &QLineEdit::textChanged, this, &OVSegmentListView::onFilterChanged);
    for (QAbstractItemModel *m : { static_cast<QAbstractItemModel *>(m_model), static_cast<QAbstractItemModel *>(m_filter) }) {
        connect(m, &QAbstractItemModel::rowsInserted, this, &OVSegmentListView::updateCount);
        connect(m, &QAbstractItemModel::rowsRemoved, this, &OVSegmentListView::updateCount);
        connect(m, &QAbstractItemModel::modelReset, this, &OVSegmentListView::updateCount);
        connect(m, &QAbstractItemModel::layoutChanged, this, &OVSegmentListView::updateCount);
    }
    refreshChoices();
}

QSize OVSegmentListView::sizeHint() const
{
    // Wide enough for the times beside coder and label; a dock starts at this width.
    int width = 0;
    for (int c = 0; c <= OVSegmentListModel::DurationColumn; ++c)
        width += m_table->columnWidth(c);
    return QSize(width + m_table->verticalScrollBar()->sizeHint().width() + 8, QWidget::sizeHint().height());
}

void OVSegmentListView::setProject(OVProject::Project *project)
{
    if (m_project)
        disconnect(m_project->timelineGroup(), nullptr, this, nullptr);
    if (m_project)
        disconnect(m_project->state(), nullptr, this, nullptr);
    m_project = project;
    m_model->setProject(project);
    if (project) {
        using OVProject::TimelineGroup;
        connect(project->timelineGroup(), &TimelineGroup::timelinesChanged, this, &OVSegmentListView::refreshChoices);
        connect(project->timelineGroup(), &TimelineGroup::labelsChanged, this, &OVSegmentListView::refreshChoices);
        connect(project->timelineGroup(), &TimelineGroup::labelDetailsChanged, this, &OVSegmentListView::refreshChoices);
        connect(project->state(), &OVProject::State::displayedTimelineUsersChanged, this, &OVSegmentListView::refreshChoices);
        connect(project->state(), &OVProject::State::activeUserChanged, this, &OVSegmentListView::refreshChoices);
    }
    refreshChoices();
}

void OVSegmentListView::refreshChoices()
{
    // Keep what the user chose while it still exists.
    const QString coder = m_coder->currentData().toString();
    const QString label = m_label->currentData().toString();
    const QSignalBlocker blockCoder(m_coder);
    const QSignalBlocker blockLabel(m_label);
    m_coder->clear();
    m_label->clear();
    m_coder->addItem(tr("All coders"), QString());
    m_label->addItem(tr("All labels"), QString());
    QStringList names;
    for (const OVProject::Timeline *t : OVKeyboardCoder::displayedTimelines(m_project)) {
        m_coder->addItem(t->owner().isEmpty() ? t->id() : t->owner(), t->id());
        for (const OVProject::Label *l : t->labels()) {
            if (!names.contains(l->name()))
                names << l->name();
        }
    }
    for (const QString &n : std::as_const(names))
        m_label->addItem(n, n);
    m_coder->setCurrentIndex(std::max(0, m_coder->findData(coder)));
    m_label->setCurrentIndex(std::max(0, m_label->findData(label)));
    onFilterChanged();
}

void OVSegmentListView::onFilterChanged()
{
    m_filter->setCoder(m_coder->currentData().toString());
    m_filter->setLabel(m_label->currentData().toString());
    m_filter->setText(m_text->text());
    updateCount();
}

void OVSegmentListView::updateCount()
{
    const int all = m_model->liveRowCount();
    const int shown = m_filter->rowCount();
    m_count->setText(shown == m_model->rowCount() ? tr("%n segment(s)", nullptr, all) : tr("%1 of %2 segments").arg(shown).arg(all));
}

void OVSegmentListView::onDoubleClicked(const QModelIndex &index)
{
    const QVariant start = index.data(OVSegmentListModel::StartRole);
    if (start.isValid())
        Q_EMIT seekRequested(start.toDouble());
}

bool OVSegmentListView::deleteSelectedSegments()
{
    QList<int> rows;
    for (const QModelIndex &i : m_table->selectionModel()->selectedRows()) {
        const int row = m_filter->mapToSource(i).row();
        if (m_model->flags(m_model->index(row, OVSegmentListModel::StartColumn)) & Qt::ItemIsEditable)
            rows << row;
    }
    if (rows.isEmpty())
        return false;
    const QString question = tr("Are you sure that you want to delete selected segments?");
    const bool yes = m_confirm ? m_confirm(question)
                               : QMessageBox::question(this, tr("Delete"), question) == QMessageBox::Yes;
    return yes && m_model->removeSegments(rows);
}

bool OVSegmentListView::eventFilter(QObject *watched, QEvent *event)
{
    // While a cell is edited its editor has the keys, so Delete here is never a text edit.
    if (watched == m_table && event->type() == QEvent::KeyPress) {
        const auto *key = static_cast<QKeyEvent *>(event);
        if (key->key() == Qt::Key_Delete && key->modifiers() == Qt::NoModifier) {
            deleteSelectedSegments();
            return true;
        }
    }
    return QWidget::eventFilter(watched, event);
}
