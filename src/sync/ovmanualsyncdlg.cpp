#include "sync/ovmanualsyncdlg.h"

#include "sync/ovmanualsamplesloader.h"
#include "sync/ovsampleswidget.h"
#include "sync/ovsyncmanualrefinedlg.h"
#include "widgets/ovwaitwidgetwithprogress.h"

#include <QCheckBox>
#include <QCloseEvent>
#include <QComboBox>
#include <QDebug>
#include <QDialogButtonBox>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QMenu>
#include <QCursor>
#include <QMessageBox>
#include <QPushButton>
#include <QTimer>
#include <QVBoxLayout>
#include <QtConcurrent/QtConcurrentRun>

#include <algorithm>
#include <cmath>

namespace {

const char *const UnalignedHint
    = QT_TRANSLATE_NOOP("OVManualSyncDlg", "Please use Auto-sync option or add markers, tune them and click \"Align Marker(s)\" button");

} // namespace

// Hands the search's stage and progress to the GUI thread as queued signals of the dialog.
class OVManualSyncDlg::SearchProgress : public OVSync::Progress
{
public:
    explicit SearchProgress(OVManualSyncDlg *dlg) : m_dlg(dlg) {}
    void setStage(const QString &text) override { Q_EMIT m_dlg->stageChanged(text); }
    void setProgress(int value, int minimum, int maximum) override { Q_EMIT m_dlg->setProgress(value, minimum, maximum); }

private:
    OVManualSyncDlg *m_dlg;
};

OVManualSyncDlg::OVManualSyncDlg(QWidget *parent) : QDialog(parent)
{
    setWindowTitle(tr("Add audio track with manual sync"));
    resize(1000, 520);

    m_hint = new QLabel(this);
    m_hint->setObjectName(QStringLiteral("la_hint"));
    m_hint->setWordWrap(true);
    m_correlation = new QLabel(this);
    m_correlation->setObjectName(QStringLiteral("la_correlation"));
    m_autoSync = new QPushButton(tr("Auto Sync"), this);
    m_autoSync->setObjectName(QStringLiteral("btn_autoSync"));
    m_align = new QPushButton(tr("Align Marker(s)"), this);
    m_align->setObjectName(QStringLiteral("btn_align"));
    m_alignMode = new QComboBox(this);
    m_alignMode->setObjectName(QStringLiteral("cb_alignMode"));
    m_alignMode->addItem(tr("Align using marker"), AlignUsingMarkers);
    m_alignMode->addItem(tr("Align 1-1"), AlignOneToOne);
    m_alignMode->addItem(tr("Don't align"), DontAlign);
    m_alignSynced = new QCheckBox(tr("Keep aligned with primary track"), this);
    m_alignSynced->setObjectName(QStringLiteral("chb_alignSynced"));
    m_alignSynced->setChecked(true);

    auto *tools = new QHBoxLayout;
    tools->addWidget(m_autoSync);
    tools->addWidget(m_align);
    tools->addWidget(m_alignMode);
    tools->addWidget(m_alignSynced);
    tools->addStretch();
    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
    buttons->button(QDialogButtonBox::Ok)->setText(tr("Add Track"));
    connect(buttons, &QDialogButtonBox::accepted, this, &OVManualSyncDlg::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &OVManualSyncDlg::reject);

    auto *layout = new QVBoxLayout(this);
    layout->addWidget(m_hint);
    m_stripLayout = new QVBoxLayout;
    layout->addLayout(m_stripLayout, 1);
    layout->addLayout(tools);
    layout->addWidget(m_correlation);
    layout->addWidget(buttons);

    m_wait = new OVWaitWidgetWithProgress(this);
    connect(this, &OVManualSyncDlg::startWait, m_wait, &OVWaitWidgetWithProgress::startWait);
    connect(this, &OVManualSyncDlg::endWait, m_wait, &OVWaitWidgetWithProgress::endWait);
    connect(this, &OVManualSyncDlg::setProgress, m_wait, &OVWaitWidgetWithProgress::setProgress);
    connect(this, &OVManualSyncDlg::stageChanged, m_wait, &OVWaitWidgetWithProgress::setText);
    connect(m_wait, &OVWaitWidgetWithProgress::cancelClicked, this, &OVManualSyncDlg::onWaitCancelClicked);

    connect(m_autoSync, &QPushButton::clicked, this, &OVManualSyncDlg::onAutoSync);
    connect(m_align, &QPushButton::clicked, this, &OVManualSyncDlg::onAlignMarkers);
    connect(m_alignMode, &QComboBox::currentIndexChanged, this, [this] { updateModeHint(); });
    connect(m_alignSynced, &QCheckBox::toggled, this, [this] { followPrimary(); });
    connect(&m_watcher, &QFutureWatcher<QList<OVSync::SyncInfo>>::finished, this,
            &OVManualSyncDlg::onAutoSyncConcFinished);

    createStrips();
    setHint(tr(UnalignedHint), false);
    updateCorrelation();
}

OVManualSyncDlg::~OVManualSyncDlg()
{
    m_cancel = true;
    m_watcher.waitForFinished();
    // The strips and Fine Tune read the tracks, which go before the child widgets would.
    delete m_refine;
    m_primaryStrip->setSamples(nullptr);
    m_secondaryStrip->setSamples(nullptr);
}

bool OVManualSyncDlg::loadSamples(const QString &primaryMedia, int primaryStream, const QString &secondaryMedia,
                                  int secondaryStream)
{
    OVSamples primary, secondary;
    // The loader tells the user itself why it failed.
    OVManualSamplesLoader loader(primaryMedia, primaryStream, secondaryMedia, secondaryStream, &primary, &secondary,
                                 parentWidget());
    if (loader.exec() != QDialog::Accepted)
        return false;
    setSamples(std::move(primary), std::move(secondary));
    return true;
}

void OVManualSyncDlg::setSamples(OVSamples primary, OVSamples secondary)
{
    m_watcher.waitForFinished();
    // The strips' waveforms are built from, and then point into, the tracks being replaced.
    m_primaryStrip->setSamples(nullptr);
    m_secondaryStrip->setSamples(nullptr);
    delete m_refine;
    m_refine = nullptr;
    m_primary = std::move(primary);
    m_secondary = std::move(secondary);
    m_markers.clear();
    m_fit = OVSync::Fit();
    m_offset = 0.0;
    setStripSamples();
    setHint(tr(UnalignedHint), false);
    updateStrips();
    updateCorrelation();
}

OVManualSyncDlg::AlignMode OVManualSyncDlg::alignMode() const
{
    return AlignMode(m_alignMode->currentData().toInt());
}

void OVManualSyncDlg::setAlignMode(AlignMode mode)
{
    m_alignMode->setCurrentIndex(m_alignMode->findData(int(mode)));
}

void OVManualSyncDlg::setSecondaryOffset(double seconds)
{
    m_offset = seconds;
    updateStrips();
    if (alignMode() == AlignOneToOne)
        updateModeHint();
}

void OVManualSyncDlg::updateModeHint()
{
    switch (alignMode()) {
    case AlignUsingMarkers:
        setHint(tr(UnalignedHint), false);
        break;
    case AlignOneToOne:
        setHint(tr("The secondary track is added shifted by the offset between the strips (%1 s), its clock "
                   "taken as equal to the primary's.")
                    .arg(m_offset, 0, 'f', 4),
                true);
        break;
    case DontAlign:
        setHint(tr("The secondary track is added as it was recorded, starting with the primary."), true);
        break;
    }
}

QString OVManualSyncDlg::hint() const
{
    return m_hint->text();
}

void OVManualSyncDlg::setHint(const QString &text, bool synchronized)
{
    m_synchronized = synchronized;
    m_hint->setText(text);
}

int OVManualSyncDlg::markerIndex(const QString &id) const
{
    for (int i = 0; i < m_markers.size(); ++i)
        if (m_markers[i].id == id)
            return i;
    return -1;
}

QString OVManualSyncDlg::newMarkerId()
{
    return QStringLiteral("m%1").arg(m_nextMarker++);
}

bool OVManualSyncDlg::addMarker(Track track, double seconds)
{
    if (m_markers.size() >= MaxMarkers) {
        inform(tr("Add marker"), tr("Failed to add marker, maximum number of markers exceeded!\nMaximum number of "
                                    "markers per track is %1")
                                     .arg(MaxMarkers));
        return false;
    }
    Marker m;
    m.id = newMarkerId();
    m.primary = track == Primary ? seconds : seconds + m_offset;
    m.secondary = m.primary - m_offset;
    const auto crowded = [&](auto member, double at) {
        return std::any_of(m_markers.begin(), m_markers.end(),
                           [&](const Marker &o) { return std::fabs(o.*member - at) < MinMarkerSpacing; });
    };
    // Both halves must land on their track, clear of the markers already there.
    const bool fits = m.primary >= 0 && m.primary <= m_primary.duration() && m.secondary >= 0
        && m.secondary <= m_secondary.duration() && !crowded(&Marker::primary, m.primary)
        && !crowded(&Marker::secondary, m.secondary);
    if (!fits) {
        inform(tr("Add marker"), tr("Failed to add marker (not enough empty space)"));
        return false;
    }
    m_markers.append(m);
    std::sort(m_markers.begin(), m_markers.end(), [](const Marker &a, const Marker &b) { return a.primary < b.primary; });
    markersEdited();
    return true;
}

void OVManualSyncDlg::markersEdited()
{
    // The secondary follows the new markers only once they are aligned again.
    if (alignMode() == AlignUsingMarkers)
        setHint(tr(UnalignedHint), false);
    updateStrips();
    updateCorrelation();
    Q_EMIT markersChanged();
}

bool OVManualSyncDlg::removeMarker(const QString &id)
{
    const int i = markerIndex(id);
    if (i < 0)
        return false;
    m_markers.removeAt(i);
    markersEdited();
    return true;
}

void OVManualSyncDlg::removeAllMarkers()
{
    m_markers.clear();
    m_fit = OVSync::Fit();
    markersEdited();
}

bool OVManualSyncDlg::setMarkerOffset(const QString &id, double offset, double coefficient)
{
    const int i = markerIndex(id);
    if (i < 0)
        return false;
    Marker &m = m_markers[i];
    m.secondary = m.primary - offset;
    m.coefficient = coefficient;
    if (m_synchronized && alignMode() == AlignUsingMarkers)
        onAlignMarkers();
    updateStrips();
    updateCorrelation();
    Q_EMIT markersChanged();
    return true;
}

QList<OVSync::SyncInfo> OVManualSyncDlg::markerPoints() const
{
    QList<OVSync::SyncInfo> points;
    const double rate = m_primary.sampleRate;
    for (const Marker &m : m_markers) {
        OVSync::SyncInfo p;
        p.primaryPos = m.primary * rate;
        p.secondaryPos = m.secondary * rate;
        p.coefficient = m.coefficient;
        points.append(p);
    }
    return points;
}

OVSyncMap OVManualSyncDlg::syncMap() const
{
    const int rate = m_primary.sampleRate;
    switch (alignMode()) {
    case AlignUsingMarkers:
        return OVSyncMap(markerPoints(), rate, m_fit);
    case AlignOneToOne: {
        OVSync::SyncInfo start;
        start.primaryPos = m_offset * rate;
        start.secondaryPos = 0.0;
        return OVSyncMap({ start }, rate, OVSync::Fit());
    }
    case DontAlign:
        break;
    }
    return OVSyncMap();
}

OVSamples OVManualSyncDlg::alignedSecondary() const
{
    return syncMap().align(m_secondary, m_primary.count);
}

void OVManualSyncDlg::onAlignMarkers()
{
    if (m_markers.isEmpty()) {
        setHint(tr(UnalignedHint), false);
        return;
    }
    // The clocks' drift comes from the markers themselves, so that markers the user added or
    // tuned count as much as found ones; a stray marker does not bend the line.
    QList<OVSync::SyncInfo> points = markerPoints();
    m_fit = points.size() > 1 ? OVSync::fitDrift(points, m_primary.sampleRate) : OVSync::Fit();
    // The strips show the secondary where its sound meets the primary's in the middle of the view
    // (the first marker when nothing else is known).
    const OVSyncMap map(markerPoints(), m_primary.sampleRate, m_fit);
    const double at = viewCentre(m_markers.first().primary);
    m_offset = at - map.secondaryAt(at);
    setAlignMode(AlignUsingMarkers);
    setHint(tr("Secondary track synchronized"), true);
    updateStrips();
    updateCorrelation();
}

void OVManualSyncDlg::updateCorrelation()
{
    if (m_markers.isEmpty()) {
        m_correlation->setText(tr("No markers"));
        return;
    }
    double lo = 1.0, hi = -1.0;
    for (const Marker &m : m_markers) {
        lo = std::min(lo, m.coefficient);
        hi = std::max(hi, m.coefficient);
    }
    QString text = tr("%n marker(s), correlation %1 to %2", nullptr, int(m_markers.size()))
                       .arg(lo, 0, 'f', 3)
                       .arg(hi, 0, 'f', 3);
    if (m_fit.points > 1)
        text += tr(", clock drift %1 ppm").arg(m_fit.driftPpm(), 0, 'f', 1);
    text += tr(", offset %1 s").arg(m_markers.first().offset(), 0, 'f', 4);
    m_correlation->setText(text);
}

QList<OVSync::SyncInfo> OVManualSyncDlg::autoSync()
{
    SearchProgress progress(this);
    const OVSync::Result result = OVSync::autoSync(m_primary, m_secondary, &progress, &m_cancel);
    m_searchFit = result.fit;
    m_searchCanceled = result.canceled;
    return result.points;
}

void OVManualSyncDlg::onAutoSync()
{
    if (m_watcher.isRunning())
        return;
    if (!m_markers.isEmpty() && !confirm(tr("This will remove all existing marks,\ndo you want to proceed?")))
        return;
    m_cancel = false;
    Q_EMIT startWait(tr("Synchronizing tracks..."));
    m_watcher.setFuture(QtConcurrent::run(&OVManualSyncDlg::autoSync, this));
}

void OVManualSyncDlg::onWaitCancelClicked()
{
    m_cancel = true;
}

void OVManualSyncDlg::onAutoSyncConcFinished()
{
    Q_EMIT endWait();
    if (m_rejectPending) {
        m_rejectPending = false;
        Q_EMIT autoSyncFinished(false);
        QDialog::reject();
        return;
    }
    if (m_searchCanceled) {
        // The markers as they were before: a cut-short search proves nothing.
        Q_EMIT autoSyncFinished(false);
        return;
    }
    QList<OVSync::SyncInfo> points = m_watcher.result();
    if (points.size() > MaxMarkers) {
        std::sort(points.begin(), points.end(), [](const OVSync::SyncInfo &a, const OVSync::SyncInfo &b) {
            return std::fabs(a.coefficient) > std::fabs(b.coefficient);
        });
        points.resize(MaxMarkers);
        std::sort(points.begin(), points.end(),
                  [](const OVSync::SyncInfo &a, const OVSync::SyncInfo &b) { return a.primaryPos < b.primaryPos; });
    }
    m_markers.clear();
    const double rate = m_primary.sampleRate;
    for (const OVSync::SyncInfo &p : points) {
        Marker m;
        m.id = newMarkerId();
        m.primary = p.primaryPos / rate;
        m.secondary = p.secondaryPos / rate;
        m.coefficient = p.coefficient;
        m_markers.append(m);
    }
    m_fit = m_searchFit;
    Q_EMIT markersChanged();
    if (m_markers.isEmpty()) {
        m_fit = OVSync::Fit();
        setHint(tr("No sync point was found: the two recordings share no sound that could be matched. "
                   "They are not synchronized; markers can still be placed by hand."),
                false);
        updateStrips();
        updateCorrelation();
        Q_EMIT autoSyncFinished(false);
        return;
    }
    onAlignMarkers();
    Q_EMIT autoSyncFinished(true);
}

bool OVManualSyncDlg::refineMarker(Marker &marker) const
{
    const qint64 rate = m_primary.sampleRate;
    if (rate <= 0)
        return false;
    // Five seconds around the marker, shorter where a track ends sooner, searched within a
    // quarter of half that length.
    const qint64 p = qint64(std::llround(marker.primary * rate));
    const qint64 s = qint64(std::llround(marker.secondary * rate));
    qint64 n = qint64(5.0 * rate);
    const qint64 room = std::min({ p, m_primary.count - p, s, m_secondary.count - s });
    n = std::min(n, 2 * room);
    if (n < rate / 4)
        return false;
    const qint64 half = n / 2;
    const qint64 reach = qint64(half * 0.25);
    qint64 best = 0;
    double coefficient = 0.0;
    if (!OVSync::bestOffset(m_primary, m_secondary, p - half, n, s - half - reach, s - half + reach, best, coefficient, 2))
        return false;
    OVSync::SyncInfo point;
    point.primaryPos = double(p);
    point.secondaryPos = double(best + half);
    point.coefficient = coefficient;
    point.length = int(n);
    // To a fraction of a sample where the sound allows it; the coarse answer stands otherwise.
    OVSync::refinePrecise(m_primary, m_secondary, point);
    marker.secondary = point.secondaryPos / rate;
    marker.coefficient = point.coefficient;
    return true;
}

bool OVManualSyncDlg::autoRefine(const QString &id)
{
    const int i = markerIndex(id);
    if (i < 0)
        return false;
    Marker m = m_markers[i];
    QGuiApplication::setOverrideCursor(Qt::WaitCursor);
    const bool found = refineMarker(m);
    QGuiApplication::restoreOverrideCursor();
    if (!found)
        return false;
    setMarkerOffset(id, m.offset(), m.coefficient);
    return true;
}

void OVManualSyncDlg::onAutoRefineRequested()
{
    if (!m_refine || markerIndex(m_refineId) < 0)
        return;
    // From where the user has nudged it to, not from where the marker was.
    setMarkerOffset(m_refineId, m_refine->offset(), m_markers[markerIndex(m_refineId)].coefficient);
    if (!autoRefine(m_refineId)) {
        inform(tr("Auto Refine"), tr("The two tracks do not match around this marker."));
        return;
    }
    const Marker &m = m_markers[markerIndex(m_refineId)];
    m_refine->setMarker(m.primary, m.offset(), m.coefficient);
}

void OVManualSyncDlg::onRefineDialogChanged()
{
    if (!m_refine)
        return;
    const int i = markerIndex(m_refineId);
    if (i < 0)
        return;
    setMarkerOffset(m_refineId, m_refine->offset(), m_markers[i].coefficient);
}

void OVManualSyncDlg::openRefineDialog(const QString &id)
{
    const int i = markerIndex(id);
    if (i < 0)
        return;
    if (!m_refine) {
        m_refine = new OVSyncManualRefineDlg(&m_primary, &m_secondary, this);
        connect(m_refine, &OVSyncManualRefineDlg::changed, this, &OVManualSyncDlg::onRefineDialogChanged);
        connect(m_refine, &OVSyncManualRefineDlg::autoRefineRequested, this, &OVManualSyncDlg::onAutoRefineRequested);
    }
    m_refineId = id;
    m_refine->setMarker(m_markers[i].primary, m_markers[i].offset(), m_markers[i].coefficient);
    m_refine->exec();
    m_refineId.clear();
}

void OVManualSyncDlg::accept()
{
    if (m_watcher.isRunning())
        return;
    if (alignMode() == AlignUsingMarkers) {
        if (m_markers.isEmpty()) {
            inform(tr("Add audio track"), tr(UnalignedHint));
            return;
        }
        if (!m_synchronized)
            onAlignMarkers();
    }
    QDialog::accept();
}

void OVManualSyncDlg::reject()
{
    if (m_watcher.isRunning()) {
        m_cancel = true;
        m_rejectPending = true;
        return;
    }
    QDialog::reject();
}

void OVManualSyncDlg::closeEvent(QCloseEvent *event)
{
    // The search reads the tracks the dialog owns: it has to end first.
    if (m_watcher.isRunning()) {
        m_cancel = true;
        event->ignore();
        return;
    }
    QDialog::closeEvent(event);
}

bool OVManualSyncDlg::confirm(const QString &question)
{
    return QMessageBox::question(this, windowTitle(), question) == QMessageBox::Yes;
}

void OVManualSyncDlg::inform(const QString &title, const QString &message)
{
    QMessageBox::warning(this, title, message);
}

void OVManualSyncDlg::createStrips()
{
    m_primaryStrip = new OVSamplesWidget(this);
    m_primaryStrip->setObjectName(QStringLiteral("sw_primary"));
    m_primaryStrip->setTitle(tr("Primary track"));
    m_primaryStrip->setColor(QColor(40, 90, 160));
    m_secondaryStrip = new OVSamplesWidget(this);
    m_secondaryStrip->setObjectName(QStringLiteral("sw_secondary"));
    m_secondaryStrip->setTitle(tr("Secondary track"));
    m_secondaryStrip->setColor(QColor(170, 80, 30));
    m_stripLayout->addWidget(m_primaryStrip, 1);
    m_stripLayout->addWidget(m_secondaryStrip, 1);

    connect(m_primaryStrip, &OVSamplesWidget::offsetChanged, this, [this] {
        if (m_alignSynced->isChecked())
            m_secondaryStrip->setOffset(m_primaryStrip->offset() - m_offset);
        else
            m_offset = m_primaryStrip->offset() - m_secondaryStrip->offset();
    });
    connect(m_secondaryStrip, &OVSamplesWidget::offsetChanged, this, &OVManualSyncDlg::onSecondaryDragged);
    connect(m_primaryStrip, &OVSamplesWidget::ppsChanged, this, [this] {
        m_secondaryStrip->setPps(m_primaryStrip->pps());
        m_secondaryStrip->setOffset(m_primaryStrip->offset() - m_offset);
    });
    connect(m_secondaryStrip, &OVSamplesWidget::ppsChanged, this, [this] {
        m_primaryStrip->setPps(m_secondaryStrip->pps());
        m_primaryStrip->setOffset(m_secondaryStrip->offset() + m_offset);
    });
    for (Track track : { Primary, Secondary }) {
        OVSamplesWidget *strip = track == Primary ? m_primaryStrip : m_secondaryStrip;
        connect(strip, &OVSamplesWidget::rightClicked, this,
                [this, track](double ts, const QString &id) { onStripRightClicked(track, ts, id); });
        connect(strip, &OVSamplesWidget::doubleClicked, this,
                [this, track](double ts, const QString &id) { onStripDoubleClicked(track, ts, id); });
        connect(strip, &OVSamplesWidget::markerMoved, this, [this, track](const QString &id, double ts) {
            const int i = markerIndex(id);
            if (i < 0)
                return;
            (track == Primary ? m_markers[i].primary : m_markers[i].secondary) = ts;
            // A moved marker is a guess until it is tuned.
            m_markers[i].coefficient = 0.0;
            markersEdited();
        });
    }
}

void OVManualSyncDlg::setStripSamples()
{
    m_primaryStrip->setSamples(&m_primary);
    m_secondaryStrip->setSamples(&m_secondary);
    // The whole primary in view, the secondary at its start.
    const double width = std::max(200, m_primaryStrip->width());
    m_primaryStrip->setPps(m_primary.duration() > 0 ? width / m_primary.duration() : 100.0);
    m_secondaryStrip->setPps(m_primaryStrip->pps());
    m_primaryStrip->setOffset(0.0);
    m_secondaryStrip->setOffset(-m_offset);
}

void OVManualSyncDlg::showEvent(QShowEvent *event)
{
    QDialog::showEvent(event);
    if (!m_fitted && m_primary.count > 0) {
        m_fitted = true;
        // Laid out only now: fit the primary to the strip's real width.
        QTimer::singleShot(0, this, [this] {
            const double pps = m_primary.duration() > 0 ? m_primaryStrip->width() / m_primary.duration() : 100.0;
            m_primaryStrip->setPps(pps);
            m_secondaryStrip->setPps(pps);
            m_primaryStrip->setOffset(0.0);
            m_secondaryStrip->setOffset(-m_offset);
        });
    }
}

void OVManualSyncDlg::updateStrips()
{
    m_secondaryStrip->setOffset(m_primaryStrip->offset() - m_offset);
    m_primaryStrip->clearMarkers();
    m_secondaryStrip->clearMarkers();
    for (const Marker &m : m_markers) {
        // Green for a clear match, amber for a weak one, blue for one placed by hand.
        const QColor color = m.coefficient == 0.0 ? QColor(30, 110, 220)
            : std::fabs(m.coefficient) >= 0.5     ? QColor(20, 150, 60)
                                                  : QColor(220, 140, 0);
        const QString text = m.coefficient == 0.0 ? QString() : QString::number(m.coefficient, 'f', 2);
        m_primaryStrip->addMarker({ m.id, m.primary, color, text });
        m_secondaryStrip->addMarker({ m.id, m.secondary, color, text });
    }
    const QString tip = m_markers.isEmpty() ? tr("Right click to add a marker")
                                            : tr("Right click to preview and fine tune this marker");
    m_primaryStrip->setToolTip(tip);
    m_secondaryStrip->setToolTip(tip);
}

double OVManualSyncDlg::viewCentre(double fallback) const
{
    if (!m_primaryStrip->isVisible() || m_primaryStrip->width() <= 0)
        return fallback;
    const double centre = m_primaryStrip->timeAt(m_primaryStrip->width() / 2.0);
    return centre >= 0 && centre <= m_primary.duration() ? centre : fallback;
}

void OVManualSyncDlg::followPrimary()
{
    if (m_alignSynced->isChecked())
        m_secondaryStrip->setOffset(m_primaryStrip->offset() - m_offset);
}

void OVManualSyncDlg::onSecondaryDragged()
{
    m_offset = m_primaryStrip->offset() - m_secondaryStrip->offset();
    if (alignMode() == AlignOneToOne)
        updateModeHint();
}

void OVManualSyncDlg::onStripRightClicked(Track track, double ts, const QString &id)
{
    QMenu menu(this);
    QAction *add = menu.addAction(tr("Add marker here"));
    QAction *tune = nullptr;
    QAction *remove = nullptr;
    if (!id.isEmpty()) {
        tune = menu.addAction(tr("Preview and fine tune this marker"));
        remove = menu.addAction(tr("Remove marker"));
    }
    QAction *removeAll = menu.addAction(tr("Remove all markers"));
    removeAll->setEnabled(!m_markers.isEmpty());
    QAction *chosen = menu.exec(QCursor::pos());
    if (!chosen)
        return;
    if (chosen == add)
        addMarker(track, ts);
    else if (chosen == tune)
        openRefineDialog(id);
    else if (chosen == remove)
        removeMarker(id);
    else if (chosen == removeAll && confirm(tr("Remove all markers?")))
        removeAllMarkers();
}

void OVManualSyncDlg::onStripDoubleClicked(Track track, double ts, const QString &id)
{
    Q_UNUSED(track);
    Q_UNUSED(ts);
    if (!id.isEmpty())
        openRefineDialog(id);
}
