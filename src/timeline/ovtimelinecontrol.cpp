#include "timeline/ovtimelinecontrol.h"

#include "project/label.h"
#include "project/ovjsonserializer.h"
#include "project/segment.h"
#include "project/state.h"
#include "project/timeline.h"
#include "project/timelinegroup.h"
#include "project/history.h"
#include "timeline/ovkeyboardcoder.h"
#include "timeline/ovlabelpalette.h"
#include "timeline/ovquickcoloredit.h"
#include "timeline/ovquickedit.h"
#include "timeline/ovquickkeyedit.h"
#include "timeline/ovtimelinehistory.h"
#include "timeline/ovtoolrow.h"
#include "timeline/ovtimelinelabelpainter.h"
#include "timeline/ovtimelinelogging.h"
#include "timeline/ovtimelinewidget.h"
#include "timeline/ovtimescalewidget.h"
#include "timeline/ovtllabeldialog.h"
#include "timeline/ovtlsegmentdialog.h"
#include "widgets/ovbackgroundtask.h"

#include <QAbstractButton>
#include <QComboBox>
#include <QDebug>
#include <QDoubleSpinBox>
#include <QFileDialog>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QMenu>
#include <QMessageBox>
#include <QPushButton>
#include <QToolButton>
#include <QUndoStack>
#include <QVBoxLayout>

#include <algorithm>

using namespace OVProject;

namespace {
// Combo index <-> labeling mode value.
constexpr int SinglePressIndex = 0;
constexpr int DoublePressIndex = 1;

QDoubleSpinBox *secondsBox(QWidget *parent, double max)
{
    auto *box = new QDoubleSpinBox(parent);
    box->setRange(0.0, max);
    box->setDecimals(2);
    box->setSingleStep(0.5);
    box->setSuffix(QObject::tr(" s"));
    box->setKeyboardTracking(false);
    return box;
}
} // namespace

OVTimelineControl::OVTimelineControl(OVLabelingSettings *settings, QWidget *parent)
    : QWidget(parent)
    , m_settings(settings)
    , m_widget(new OVTimelineWidget(this))
    , m_scale(new OVTimeScaleWidget(this))
    , m_addLabel(new QPushButton(tr("Add Label"), this))
    , m_mode(new QComboBox(this))
    , m_leadOpenCaption(new QLabel(this))
    , m_leadOpen(secondsBox(this, 60.0))
    , m_leadCloseCaption(new QLabel(tr("Close:"), this))
    , m_leadClose(secondsBox(this, 60.0))
    , m_durationCaption(new QLabel(tr("Duration:"), this))
    , m_duration(secondsBox(this, 3600.0))
    , m_authors(new QToolButton(this))
    , m_authorMenu(new QMenu(this))
    , m_coder(new OVKeyboardCoder(m_widget->history(), this))
{
    setFocusPolicy(Qt::StrongFocus);
    // A click anywhere on the panel that no field takes gives the keyboard to the coding surface.
    setFocusProxy(m_widget);
    m_coder->setLabelingSettings(settings);
    m_mode->addItem(tr("Single Press Mode"));
    m_mode->addItem(tr("Double Press Mode"));
    m_authors->setText(tr("Timelines"));
    m_authors->setPopupMode(QToolButton::InstantPopup);
    m_authors->setMenu(m_authorMenu);

    auto *load = new QPushButton(tr("Load..."), this);
    auto *save = new QPushButton(tr("Export Labels..."), this);
    auto *fit = new QPushButton(tr("Fit"), this);
    fit->setToolTip(tr("Show the whole video"));
    auto *more = new QToolButton(this);
    more->setText(tr("Edit"));
    more->setPopupMode(QToolButton::InstantPopup);
    auto *moreMenu = new QMenu(more);
    moreMenu->addAction(tr("Delete Selected Segments"), this, [this] { deleteSelectedSegments(); });
    moreMenu->addAction(tr("Clear All"), this, [this] { clearAll(); });
    more->setMenu(moreMenu);
    // A click on a button must leave the keyboard with the coding surface: a button that took the
    // focus would be pressed again by the next Space.
    for (QAbstractButton *b : { static_cast<QAbstractButton *>(m_addLabel), static_cast<QAbstractButton *>(load),
             static_cast<QAbstractButton *>(save), static_cast<QAbstractButton *>(fit), static_cast<QAbstractButton *>(more),
             static_cast<QAbstractButton *>(m_authors) })
        b->setFocusPolicy(Qt::NoFocus);
    m_mode->setFocusPolicy(Qt::NoFocus);

    // On a narrow window (a dock beside the timeline) the buttons go to a second line instead of
    // holding the timeline as wide as all of them.
    auto *bar = new OVToolRow(this);
    for (QWidget *w : { static_cast<QWidget *>(m_addLabel), static_cast<QWidget *>(m_mode), static_cast<QWidget *>(m_leadOpenCaption),
             static_cast<QWidget *>(m_leadOpen), static_cast<QWidget *>(m_leadCloseCaption), static_cast<QWidget *>(m_leadClose),
             static_cast<QWidget *>(m_durationCaption), static_cast<QWidget *>(m_duration) })
        bar->leading()->addWidget(w);
    bar->leading()->addStretch(1);
    for (QWidget *w : { static_cast<QWidget *>(m_authors), static_cast<QWidget *>(more), static_cast<QWidget *>(fit),
             static_cast<QWidget *>(load), static_cast<QWidget *>(save) })
        bar->trailing()->addWidget(w);

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addWidget(bar);
    layout->addWidget(m_scale);
    layout->addWidget(m_widget, 1);

    connect(m_addLabel, &QPushButton::clicked, this, &OVTimelineControl::onAddLabelClicked);
    connect(load, &QPushButton::clicked, this, &OVTimelineControl::onLoadClicked);
    connect(save, &QPushButton::clicked, this, &OVTimelineControl::onSaveClicked);
    connect(fit, &QPushButton::clicked, this, &OVTimelineControl::zoomTimelineToFit);
    connect(m_mode, qOverload<int>(&QComboBox::currentIndexChanged), this, &OVTimelineControl::onLabelingModeChangedFromCombo);
    connect(m_leadOpen, qOverload<double>(&QDoubleSpinBox::valueChanged), this, &OVTimelineControl::onLeadTimeChanged);
    connect(m_leadClose, qOverload<double>(&QDoubleSpinBox::valueChanged), this, &OVTimelineControl::onLeadTimeChanged);
    connect(m_duration, qOverload<double>(&QDoubleSpinBox::valueChanged), this, &OVTimelineControl::onDurationChanged);
    connect(m_authorMenu, &QMenu::aboutToShow, this, &OVTimelineControl::fillAuthorMenu);
    connect(m_scale, &OVTimeScaleWidget::valueChanged, this, &OVTimelineControl::onTimeScaleChanged);
    connect(m_scale, &OVTimeScaleWidget::seekRequested, this, &OVTimelineControl::onSeekRequested);

    connect(m_widget, &OVTimelineWidget::labelRightClicked, this, &OVTimelineControl::onLabelRightClicked);
    connect(m_widget, &OVTimelineWidget::labelDoubleClicked, this, &OVTimelineControl::onLabelDoubleClicked);
    connect(m_widget, &OVTimelineWidget::labelNameRightClicked, this, &OVTimelineControl::onLabelNameRightClicked);
    connect(m_widget, &OVTimelineWidget::labelNameDoubleClicked, this, &OVTimelineControl::onLabelNameDoubleClicked);
    connect(m_widget, &OVTimelineWidget::ppsChanged, this, &OVTimelineControl::onTimelinePpsChanged);
    connect(m_widget, &OVTimelineWidget::offsetChanged, this, [this] { m_scale->setMapping(m_widget->mapping()); });
    connect(m_widget, &OVTimelineWidget::seekRequested, this, &OVTimelineControl::onSeekRequested);
    connect(m_widget, &OVTimelineWidget::emptyTimelineClicked, this, [this] {
        m_widget->setLabelingEnabled(true);
        m_widget->setFocus(Qt::MouseFocusReason);
    });
    connect(m_widget, &OVTimelineWidget::labelingEnabledChanged, m_coder, &OVKeyboardCoder::setLabelingEnabled);
    connect(m_widget, &OVTimelineWidget::codingBlockedReasonChanged, m_coder, &OVKeyboardCoder::setBlockedReason);
    connect(m_coder, &OVKeyboardCoder::coded, this, [this](const OVKeyboardCoder::Result &r) {
        if (r.outcome == OVKeyboardCoder::Opened)
            m_widget->selectSegmentIds({ r.segmentId });
        if (!r.message.isEmpty()) {
            m_widget->flashLabel(r.labelId);
            Q_EMIT statusMessage(r.message);
        }
    });

    if (settings) {
        connect(settings, &OVLabelingSettings::labelingModeChanged, this, &OVTimelineControl::onLabelingModeChanged);
        connect(settings, &OVSettingsGroup::changed, this, &OVTimelineControl::refreshSettingsFields);
    }
    refreshSettingsFields();
    onTimelinePpsChanged(m_widget->pps());

    // Coding keys are those that reach the coding surface (or this panel itself) while it has the
    // focus; nothing else of the application is watched.
    m_widget->installEventFilter(this);
}

OVTimelineControl::~OVTimelineControl() = default;

void OVTimelineControl::setProject(Project *project)
{
    m_project = project;
    m_widget->setProject(project);
    m_coder->setProject(project);
    m_coder->setLabelingEnabled(m_widget->isLabelingEnabled());
    m_scale->setMapping(m_widget->mapping());
}

QUndoStack *OVTimelineControl::undoStack() const { return m_project ? m_project->history()->undoStack() : nullptr; }

void OVTimelineControl::setTranscribingEnabled(bool on)
{
    if (on == m_transcribing)
        return;
    m_transcribing = on;
    onTranscribingEnabledChanged();
}

void OVTimelineControl::onTranscribingEnabledChanged()
{
    // While transcribing, plain keys are text: clicks on the rows need the modifier and the
    // key filter stands aside.
    m_widget->setRequireModifier(m_transcribing);
}

bool OVTimelineControl::confirm(const QString &question)
{
    if (m_confirm)
        return m_confirm(question);
    return QMessageBox::question(this, tr("Timeline"), question, QMessageBox::Yes | QMessageBox::No, QMessageBox::No) == QMessageBox::Yes;
}

// --- keys ---------------------------------------------------------------------------------------

bool OVTimelineControl::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m_widget && event->type() == QEvent::KeyPress && handleKey(static_cast<QKeyEvent *>(event)))
        return true;
    if (watched == m_widget && event->type() == QEvent::Wheel) {
        auto *wheel = static_cast<QWheelEvent *>(event);
        const QPoint d = wheel->angleDelta();
        m_widget->applyWheel(d.y() != 0 ? d.y() : d.x(), wheel->modifiers());
        return true;
    }
    return QWidget::eventFilter(watched, event);
}

void OVTimelineControl::keyPressEvent(QKeyEvent *event)
{
    // Only while this panel itself has the focus: keys its fields did not take travel up to here
    // and are not meant for coding.
    if (hasFocus() && handleKey(event))
        return;
    QWidget::keyPressEvent(event);
}

bool OVTimelineControl::handleKey(QKeyEvent *event)
{
    if (!m_transcribing && event->key() == Qt::Key_Delete
        && (event->modifiers() & ~Qt::KeypadModifier) == Qt::NoModifier) {
        deleteSelectedSegments();
        return true;
    }
    return codeKeyPress(event);
}

bool OVTimelineControl::codeKeyPress(QKeyEvent *event)
{
    if (m_transcribing)
        return false;
    const Qt::KeyboardModifiers modifiers = event->modifiers() & ~Qt::KeypadModifier;
    if (modifiers != Qt::NoModifier)
        return false;
    const QChar c = QChar(char16_t(event->key() & 0xffff)).toUpper();
    if (c.isNull() || !c.isPrint())
        return false;
    // A held key repeats; one event is coded per physical press, and the repeats of a coding key
    // are swallowed with it.
    if (event->isAutoRepeat()) {
        const Timeline *t = OVKeyboardCoder::activeTimeline(m_project);
        return t && t->labelForKey(c);
    }
    // A coding key is consumed whether or not it coded, so that it does not go on to do
    // something else; the coder says why when it did not.
    return !m_coder->code(c).labelId.isEmpty();
}

// --- settings fields --------------------------------------------------------------------------

void OVTimelineControl::refreshSettingsFields()
{
    if (m_updatingFields)
        return; // our own write echoing back
    m_updatingFields = true;
    const bool doublePress = m_settings ? m_settings->isDoublePressMode() : true;
    m_mode->setCurrentIndex(doublePress ? DoublePressIndex : SinglePressIndex);
    if (m_settings) {
        m_leadOpen->setValue(m_settings->leadOpenTime());
        m_leadClose->setValue(m_settings->leadCloseTime());
        m_duration->setValue(m_settings->defaultSegmentDuration());
    }
    // Single press only uses the opening lead and the duration; double press both leads.
    m_leadOpenCaption->setText(doublePress ? tr("Lead Time - Open:") : tr("Lead Time:"));
    m_leadCloseCaption->setVisible(doublePress);
    m_leadClose->setVisible(doublePress);
    m_durationCaption->setVisible(!doublePress);
    m_duration->setVisible(!doublePress);
    m_updatingFields = false;
}

void OVTimelineControl::onLabelingModeChangedFromCombo()
{
    if (m_updatingFields || !m_settings)
        return;
    m_updatingFields = true;
    m_settings->setLabelingMode(m_mode->currentIndex() == DoublePressIndex ? OVLabelingSettings::DoublePressMode : OVLabelingSettings::SinglePressMode);
    m_updatingFields = false;
    refreshSettingsFields();
}

void OVTimelineControl::onLabelingModeChanged() { refreshSettingsFields(); }

void OVTimelineControl::onLeadTimeChanged()
{
    if (m_updatingFields || !m_settings)
        return;
    m_updatingFields = true;
    m_settings->setLeadOpenTime(m_leadOpen->value());
    m_settings->setLeadCloseTime(m_leadClose->value());
    m_updatingFields = false;
}

void OVTimelineControl::onDurationChanged()
{
    if (m_updatingFields || !m_settings)
        return;
    m_updatingFields = true;
    m_settings->setDefaultSegmentDuration(m_duration->value());
    m_updatingFields = false;
}

// --- view -------------------------------------------------------------------------------------

void OVTimelineControl::onTimeScaleChanged() { m_widget->setPps(OVTimeScaleWidget::ppsForValue(m_scale->value())); }

void OVTimelineControl::onTimelinePpsChanged(double pps)
{
    m_scale->setValue(OVTimeScaleWidget::valueForPps(pps));
    m_scale->setMapping(m_widget->mapping());
}

void OVTimelineControl::onSeekRequested(double time) { Q_EMIT seekRequested(time); }

void OVTimelineControl::zoomTimelineToFit()
{
    if (!m_project)
        return;
    double length = m_project->videoLength();
    if (!(length > 0.0)) {
        // Without a video, fit whatever has been coded.
        if (Timeline *t = m_widget->activeTimeline()) {
            for (const Label *l : t->labels()) {
                for (const Segment *s : l->segments())
                    length = std::max(length, s->isOpen() ? s->start() : s->end());
            }
        }
    }
    if (!(length > 0.0))
        return;
    const int width = m_widget->timeAreaWidth();
    if (width <= 0)
        return;
    m_widget->setOffset(0.0, false);
    m_widget->setPps(width / length);
}

void OVTimelineControl::fillAuthorMenu()
{
    m_authorMenu->clear();
    if (!m_project)
        return;
    const Timeline *active = m_widget->activeTimeline();
    const QStringList shown = m_project->state()->displayedTimelineUsers();
    for (const Timeline *t : m_project->timelineGroup()->timelines()) {
        const QString owner = t->owner();
        QAction *a = m_authorMenu->addAction(owner.isEmpty() ? tr("(no owner)") : owner);
        a->setData(owner);
        a->setCheckable(true);
        a->setChecked(t == active || shown.contains(owner));
        a->setEnabled(t != active);
        connect(a, &QAction::triggered, this, &OVTimelineControl::onAuthorActionClicked);
    }
}

void OVTimelineControl::onAuthorActionClicked()
{
    auto *action = qobject_cast<QAction *>(sender());
    if (!action || !m_project)
        return;
    const QString owner = action->data().toString();
    QStringList shown = m_project->state()->displayedTimelineUsers();
    if (action->isChecked() && !shown.contains(owner))
        shown.append(owner);
    else if (!action->isChecked())
        shown.removeAll(owner);
    m_project->state()->setDisplayedTimelineUsers(shown);
}

// --- editing ----------------------------------------------------------------------------------

Label *OVTimelineControl::activeLabel(const Id &id) const
{
    Timeline *t = m_widget->activeTimeline();
    return t ? t->label(id) : nullptr;
}

void OVTimelineControl::onAddLabelClicked()
{
    Timeline *t = m_widget->activeTimeline();
    if (!t)
        return;
    const int n = int(t->labels().size());
    // The first letter no label uses yet, so that the new label can be coded at once.
    QChar key;
    for (char16_t c = u'A'; c <= u'Z'; ++c) {
        if (!t->labelForKey(QChar(c))) {
            key = QChar(c);
            break;
        }
    }
    const QList<QColor> &palette = OVLabelPalette::colors();
    // Skip white and the greys: a bar should stand out from the row.
    const QColor color = palette.at(3 + n % (palette.size() - 3));
    m_widget->history()->addLabel(t, tr("Label %1").arg(n + 1), key, color);
}

void OVTimelineControl::editLabel(Label *label)
{
    if (!label)
        return;
    OVTLLabelDialog dialog(this);
    dialog.setValues(label->name(), label->key(), label->color(), label->description());
    QPointer<Label> guard(label);
    dialog.setKeyCheck([guard](QChar key) { return guard ? OVTimelineHistory::keyConflict(guard->timeline(), key, guard) : QString(); });
    const bool accepted = dialog.exec() == QDialog::Accepted;
    if (!accepted || !guard)
        return;
    m_widget->history()->editLabel(guard, dialog.name(), dialog.key(), dialog.color(), dialog.description());
}

void OVTimelineControl::editSegment(Segment *segment)
{
    if (!segment)
        return;
    OVTLSegmentDialog dialog(this);
    const Timeline *t = segment->label() ? segment->label()->timeline() : nullptr;
    dialog.setValues(segment->start(), segment->end(), t ? t->owner() : QString(), segment->description());
    QPointer<Segment> guard(segment);
    const bool accepted = dialog.exec() == QDialog::Accepted;
    if (!accepted || !guard)
        return;
    m_widget->history()->editSegment(guard, dialog.start(), dialog.end(), dialog.description());
}

void OVTimelineControl::onLabelDoubleClicked(Id labelId, Segment *segment, QPoint)
{
    Label *label = activeLabel(labelId);
    if (!label)
        return;
    if (segment && segment->label() == label)
        editSegment(segment);
    else if (!segment)
        editLabel(label);
}

void OVTimelineControl::onLabelNameDoubleClicked(Id labelId, QPoint pos, int area)
{
    Label *label = activeLabel(labelId);
    if (!label)
        return;
    QPointer<Label> guard(label);
    OVTimelineHistory *history = m_widget->history();
    switch (area) {
    case OVTimelineLabelPainter::NameColor: {
        auto *edit = new OVQuickColorEdit(label->color(), this);
        connect(edit, &OVQuickColorEdit::colorChosen, this, [guard, history](const QColor &c) {
            if (guard)
                history->editLabel(guard, guard->name(), guard->key(), c, guard->description());
        });
        edit->popup(pos);
        break;
    }
    case OVTimelineLabelPainter::NameKey: {
        auto *edit = new OVQuickKeyEdit(this);
        edit->setKeyCheck([guard](QChar key) { return guard ? OVTimelineHistory::keyConflict(guard->timeline(), key, guard) : QString(); });
        connect(edit, &OVQuickKeyEdit::keyChosen, this, [guard, history](QChar k) {
            if (guard)
                history->editLabel(guard, guard->name(), k, guard->color(), guard->description());
        });
        edit->popup(pos);
        break;
    }
    default: {
        auto *edit = new OVQuickEdit(label->name(), this);
        connect(edit, &OVQuickEdit::accepted, this, [guard, history](const QString &name) {
            if (guard && !name.trimmed().isEmpty())
                history->editLabel(guard, name.trimmed(), guard->key(), guard->color(), guard->description());
        });
        edit->popup(pos, m_widget->nameWidth());
        break;
    }
    }
}

void OVTimelineControl::onLabelRightClicked(Id labelId, Segment *segment, QPoint pos)
{
    Label *label = activeLabel(labelId);
    if (!label) {
        onEmptyTimelineRightClicked();
        return;
    }
    QPointer<Label> guardLabel(label);
    QPointer<Segment> guardSegment(segment && segment->label() == label ? segment : nullptr);
    QMenu menu(this);
    if (guardSegment) {
        menu.addAction(tr("Edit Segment..."), this, [this, guardSegment] { editSegment(guardSegment); });
        menu.addAction(tr("Delete Segment"), this, [this, guardSegment] {
            if (guardSegment && confirm(tr("Are you sure that you want to delete selected segments?")))
                m_widget->deleteSegments({ guardSegment.data() });
        });
    }
    QAction *del = menu.addAction(tr("Delete Selected Segments"), this, [this] { deleteSelectedSegments(); });
    del->setEnabled(!m_widget->selectedSegments().isEmpty());
    menu.addSeparator();
    menu.addAction(tr("Edit Label..."), this, [this, guardLabel] { editLabel(guardLabel); });
    menu.addAction(tr("Add Label"), this, &OVTimelineControl::onAddLabelClicked);
    menu.addSeparator();
    menu.addAction(tr("Clear All"), this, [this] { clearAll(); });
    menu.exec(pos);
}

void OVTimelineControl::onLabelNameRightClicked(Id labelId, QPoint pos)
{
    Label *label = activeLabel(labelId);
    if (!label)
        return;
    QPointer<Label> guard(label);
    QMenu menu(this);
    menu.addAction(tr("Edit Label..."), this, [this, guard] { editLabel(guard); });
    menu.addAction(tr("Rename"), this, [this, labelId, pos] { onLabelNameDoubleClicked(labelId, pos, OVTimelineLabelPainter::NameText); });
    menu.addAction(tr("Change Key"), this, [this, labelId, pos] { onLabelNameDoubleClicked(labelId, pos, OVTimelineLabelPainter::NameKey); });
    menu.addAction(tr("Change Colour"), this, [this, labelId, pos] { onLabelNameDoubleClicked(labelId, pos, OVTimelineLabelPainter::NameColor); });
    menu.addSeparator();
    menu.addAction(tr("Delete Label"), this, [this, guard] {
        if (guard && confirm(tr("Are you sure that you want to delete the label \"%1\" and its segments?").arg(guard->name())))
            m_widget->history()->removeLabel(guard);
    });
    menu.addAction(tr("Add Label"), this, &OVTimelineControl::onAddLabelClicked);
    menu.exec(pos);
}

void OVTimelineControl::onEmptyTimelineRightClicked()
{
    if (!m_widget->activeTimeline())
        return;
    QMenu menu(this);
    menu.addAction(tr("Add Label"), this, &OVTimelineControl::onAddLabelClicked);
    menu.addAction(tr("Clear All"), this, [this] { clearAll(); });
    menu.exec(QCursor::pos());
}

bool OVTimelineControl::deleteSelectedSegments()
{
    const Timeline *t = m_widget->activeTimeline();
    QList<Segment *> selected;
    for (Segment *s : m_widget->selectedSegments()) {
        if (s->label() && s->label()->timeline() == t)
            selected.append(s);
    }
    if (selected.isEmpty())
        return false;
    if (!confirm(tr("Are you sure that you want to delete selected segments?")))
        return false;
    return m_widget->deleteSegments(selected);
}

bool OVTimelineControl::clearAll()
{
    Timeline *t = m_widget->activeTimeline();
    if (!t)
        return false;
    QList<Segment *> all;
    for (Label *l : t->labels())
        all += l->segments();
    if (all.isEmpty())
        return false;
    if (!confirm(tr("Are you sure that you want to delete all segments of the timeline?")))
        return false;
    return m_widget->deleteSegments(all);
}

// --- files ------------------------------------------------------------------------------------

bool OVTimelineControl::saveTimelineFile(const QString &path)
{
    Timeline *t = m_widget->activeTimeline();
    const OV::Error error = t ? OVJsonSerializer().saveLabelSetFile(path, t->labels()) : OV::Error(1, tr("There is no timeline to save."));
    if (!error.isOk()) {
        qCWarning(lcTimeline) << "Failed to save timeline" << path;
        return false;
    }
    qCInfo(lcTimeline) << "Timeline saved to file:" << path;
    return true;
}

bool OVTimelineControl::loadTimelineFile(const QString &path, QString *why)
{
    Timeline *t = m_widget->activeTimeline();
    QList<Label *> labels;
    OV::Error error(1, tr("There is no timeline to load into."));
    if (t) {
        // Read on a worker; the timeline changes only once the whole file was read.
        OVReadBudget budget(QFileInfo(path).size());
        OVBackgroundTask::run(
            this, tr("Load Timeline"), tr("Loading %1...").arg(QFileInfo(path).fileName()),
            [&](const OVBackgroundTask::Progress &) {
                error = OVJsonSerializer::loadLabelSetFile(path, &labels, &budget);
                // Labels made on the worker belong to this thread from here on.
                for (Label *l : std::as_const(labels))
                    l->moveToThread(thread());
            },
            [&budget] { budget.cancel(); });
    }
    QStringList refused;
    bool ok = error.isOk() && m_widget->history()->replaceLabels(t, labels, &refused);
    qDeleteAll(labels);
    if (!refused.isEmpty()) {
        qCWarning(lcTimeline).noquote() << "Label keys refused while loading" << path << ":" << refused.join(QLatin1Char(' '));
        Q_EMIT statusMessage(refused.join(QLatin1Char(' ')));
    }
    qCInfo(lcTimeline) << "Timeline loaded from:" << path << " success:" << ok;
    if (!ok) {
        qCWarning(lcTimeline).noquote() << "Failed to load timeline" << path << error.message();
        if (why)
            *why = error.code() == OVJsonSerializer::Cancelled ? QString() : error.message();
    }
    return ok;
}

void OVTimelineControl::onSaveClicked()
{
    if (!m_widget->activeTimeline())
        return;
    const QString path = QFileDialog::getSaveFileName(this, tr("Save Timeline"), QString(), OVJsonSerializer::labelSetFileFilter());
    if (path.isEmpty())
        return;
    if (!saveTimelineFile(path))
        QMessageBox::warning(this, tr("Save Timeline"), tr("Failed to save timeline") + QStringLiteral("\n") + path);
}

void OVTimelineControl::onLoadClicked()
{
    if (!m_widget->activeTimeline())
        return;
    const QString path = QFileDialog::getOpenFileName(this, tr("Load Timeline"), QString(), OVJsonSerializer::labelSetFileFilter());
    if (path.isEmpty())
        return;
    QString why;
    if (!loadTimelineFile(path, &why) && !why.isEmpty())
        QMessageBox::warning(this, tr("Load Timeline"), why);
}
