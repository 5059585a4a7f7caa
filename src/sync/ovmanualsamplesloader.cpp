#include "sync/ovmanualsamplesloader.h"

#include "sync/ovsamplesextractor.h"

#include <QDialogButtonBox>
#include <QFormLayout>
#include <QLabel>
#include <QMessageBox>
#include <QProgressBar>
#include <QPushButton>
#include <QTimer>
#include <QVBoxLayout>

namespace {
constexpr int BarSteps = 1000;
} // namespace

OVManualSamplesLoader::OVManualSamplesLoader(const QString &primaryMedia, int primaryStream,
                                             const QString &secondaryMedia, int secondaryStream,
                                             OVSamples *primary, OVSamples *secondary, QWidget *parent)
    : QDialog(parent), m_media { primaryMedia, secondaryMedia }, m_stream { primaryStream, secondaryStream },
      m_samples { primary, secondary }, m_extractor(new OVSamplesExtractor(this)), m_stage(new QLabel(this)),
      m_loading(new QProgressBar(this))
{
    setWindowTitle(tr("Decoding audio streams"));
    setModal(true);
    setMinimumWidth(420);

    auto *form = new QFormLayout;
    const QString names[2] = { tr("Primary:"), tr("Secondary:") };
    const char *objectNames[2] = { "pb_primary", "pb_secondary" };
    for (int t = 0; t < 2; ++t) {
        m_bars[t] = new QProgressBar(this);
        m_bars[t]->setObjectName(QLatin1String(objectNames[t]));
        m_bars[t]->setRange(0, BarSteps);
        m_bars[t]->setValue(0);
        m_bars[t]->setToolTip(m_media[t]);
        form->addRow(names[t], m_bars[t]);
    }
    m_loading->setObjectName(QStringLiteral("pb_loading"));
    m_loading->setRange(0, 1);
    m_loading->setValue(0);
    m_loading->setTextVisible(false);
    form->addRow(tr("Loading:"), m_loading);

    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Cancel, this);
    connect(buttons, &QDialogButtonBox::rejected, this, &OVManualSamplesLoader::reject);

    auto *layout = new QVBoxLayout(this);
    layout->addWidget(m_stage);
    layout->addLayout(form);
    layout->addWidget(buttons);

    connect(m_extractor, &OVSamplesExtractor::trackStarted, this, &OVManualSamplesLoader::onTrackStarted);
    connect(m_extractor, &OVSamplesExtractor::progress, this,
            [this](int, qreal percent, quint64 remaining) { onFfmpegProgress(percent, remaining); });
    connect(m_extractor, &OVSamplesExtractor::loadingStarted, this, [this] {
        onFfmpegFinished(NXFFmpegWrapper::NoError);
        m_stage->setText(tr("Loading samples"));
        m_loading->setRange(0, 0); // busy
    });
    connect(m_extractor, &OVSamplesExtractor::finished, this, [this](const OV::Error &error) {
        m_error = error;
        onLoadingFinished();
    });
}

OVManualSamplesLoader::~OVManualSamplesLoader() = default;

void OVManualSamplesLoader::setToolPath(const QString &path)
{
    m_extractor->setToolPath(path);
}

void OVManualSamplesLoader::showEvent(QShowEvent *event)
{
    QDialog::showEvent(event);
    if (!m_started) {
        m_started = true;
        // Once the dialog is on screen, so that a quick failure still has a parent to show over.
        QTimer::singleShot(0, this, &OVManualSamplesLoader::start);
    }
}

void OVManualSamplesLoader::start()
{
    if (!isVisible())
        return; // closed before it began
    m_extractor->start(m_media[0], m_stream[0], m_media[1], m_stream[1], m_samples[0], m_samples[1]);
}

void OVManualSamplesLoader::onTrackStarted(int track)
{
    if (track == OVSamplesExtractor::Secondary)
        onFfmpegFinished(NXFFmpegWrapper::NoError);
    m_track = track;
    m_stage->setText(track == OVSamplesExtractor::Primary ? tr("Decoding primary audio stream")
                                                          : tr("Decoding secondary audio stream"));
}

void OVManualSamplesLoader::onFfmpegProgress(qreal percent, quint64)
{
    m_bars[m_track]->setValue(int(std::clamp<qreal>(percent, 0.0, 1.0) * BarSteps));
}

void OVManualSamplesLoader::onFfmpegFinished(NXFFmpegWrapper::ErrorCode error)
{
    // Failures end the whole load and arrive through onLoadingFinished().
    if (error == NXFFmpegWrapper::NoError)
        m_bars[m_track]->setValue(BarSteps);
}

void OVManualSamplesLoader::onLoadingFinished()
{
    m_loading->setRange(0, 1);
    if (m_error.isOk()) {
        m_loading->setValue(1);
        accept();
        return;
    }
    if (m_error.code() != NXFFmpegWrapper::StoppedByUser && m_reportsErrors && isVisible())
        QMessageBox::critical(this, tr("Failed to load samples"), m_error.message());
    QDialog::reject();
}

void OVManualSamplesLoader::reject()
{
    if (m_extractor->isRunning()) {
        m_error = OV::Error(NXFFmpegWrapper::StoppedByUser, NXFFmpegWrapper::errorMessage(NXFFmpegWrapper::StoppedByUser));
        // The extractor answers with finished(StoppedByUser), which closes the dialog once the
        // tool and a read under way are done with the caller's buffers.
        m_extractor->cancel();
        return;
    }
    QDialog::reject();
}
