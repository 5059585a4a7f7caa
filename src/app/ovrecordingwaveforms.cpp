#include "app/ovrecordingwaveforms.h"

#include "sync/ovwaveformsloader.h"
#include "timeline/ovtimelinewidget.h"
#include "timeline/ovwaveformarea.h"
#include "media/nxffmpegwrapper.h"
#include "settings/ovuisettings.h"

#include <QAction>
#include <QFileInfo>

namespace {
const QString ViewName = QStringLiteral("waveforms");
}

OVRecordingWaveforms::OVRecordingWaveforms(OVTimelineWidget *timeline, QAction *toggle, QObject *parent)
    : QObject(parent), m_timeline(timeline), m_toggle(toggle), m_loader(new OVWaveformsLoader(this))
{
    m_toggle->setCheckable(true);
    m_toggle->setChecked(!m_timeline->waveformArea()->isHidden());
    connect(m_toggle, &QAction::toggled, this, &OVRecordingWaveforms::setShown);
    connect(this, &OVRecordingWaveforms::finished, m_timeline, &OVTimelineWidget::onWaveformsLoaded);
    connect(this, &OVRecordingWaveforms::cleared, m_timeline, &OVTimelineWidget::onWaveformsCleared);
    connect(m_loader, &OVWaveformsLoader::trackLoaded, this,
            [this](int, const QString &name, std::shared_ptr<const OVWaveformPyramid> waveform) {
                if (m_timeline)
                    m_timeline->waveformArea()->addTrack({ name, std::move(waveform) });
            });
    connect(m_loader, &OVWaveformsLoader::progress, this, [this](double share) {
        if (m_timeline)
            m_timeline->waveformArea()->setLoadingProgress(share);
    });
    connect(m_loader, &OVWaveformsLoader::finished, this, [this](const OV::Error &error) {
        if (!m_timeline)
            return;
        OVWaveformArea *area = m_timeline->waveformArea();
        if (error.code() == NXFFmpegWrapper::StoppedByUser) {
            // Stopped to start over later: nothing is loaded.
            m_loaded.clear();
            area->clearTracks();
        } else if (!error.isOk()) {
            area->setProblem(tr("The sound of %1 cannot be shown:\n%2")
                                 .arg(QFileInfo(m_loaded).fileName(), error.message()));
        }
        Q_EMIT finished(error);
    });
}

OVRecordingWaveforms::~OVRecordingWaveforms() = default;

bool OVRecordingWaveforms::isLoading() const
{
    return m_loader->isRunning();
}

void OVRecordingWaveforms::setRecording(const QString &path)
{
    if (path == m_recording)
        return;
    m_recording = path;
    load();
}

void OVRecordingWaveforms::setSettings(OVUISettings *settings)
{
    if (m_settings && m_timeline)
        disconnect(m_timeline, &OVTimelineWidget::waveformsHeightChanged, m_settings, nullptr);
    m_settings = settings;
    if (!settings || !m_timeline)
        return;
    if (settings->waveformsHeight() >= 0)
        m_timeline->setWaveformsHeight(settings->waveformsHeight());
    m_toggle->setChecked(settings->viewEnabled(ViewName, m_toggle->isChecked()));
    connect(m_timeline, &OVTimelineWidget::waveformsHeightChanged, settings, &OVUISettings::setWaveformsHeight);
}

void OVRecordingWaveforms::setShown(bool on)
{
    if (!m_timeline)
        return;
    if (m_settings)
        m_settings->setViewEnabled(ViewName, on);
    m_timeline->waveformArea()->setVisible(on);
    // Hidden, the splitter gave the strip's room to the rows: it comes back at its chosen height.
    if (on && m_settings && m_settings->waveformsHeight() >= 0)
        m_timeline->setWaveformsHeight(m_settings->waveformsHeight());
    m_timeline->updateWaveformsGeometry();
    if (on)
        load();
}

void OVRecordingWaveforms::load()
{
    if (!m_timeline || m_recording == m_loaded)
        return;
    OVWaveformArea *area = m_timeline->waveformArea();
    // Hidden: the load waits until the strip is shown again.
    if (area->isHidden() && !m_recording.isEmpty())
        return;
    m_loader->stop();
    area->clearTracks();
    area->setProblem(QString());
    m_loaded = m_recording;
    if (m_recording.isEmpty()) {
        area->setLoading(false);
        Q_EMIT cleared();
        return;
    }
    area->setLoading(true);
    area->setLoadingProgress(0.0);
    m_loader->start(m_recording);
}
