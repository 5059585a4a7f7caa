#include "sync/ovwaveforms.h"

#include "widgets/ovwaveformpyramid.h"

#include <QDebug>

OVWaveforms::OVWaveforms(const QString &wavPath, QObject *parent) : QThread(parent), m_wavPath(wavPath) {}

OVWaveforms::OVWaveforms(const OVSamples *samples, QObject *parent) : QThread(parent), m_samples(samples) {}

OVWaveforms::~OVWaveforms()
{
    cancel();
    wait();
}

std::shared_ptr<const OVWaveformPyramid> OVWaveforms::build(const OVSamples &samples)
{
    return std::make_shared<const OVWaveformPyramid>(samples.data.data(), samples.count, samples.sampleRate,
                                                     MemoryBlockSize, true);
}

void OVWaveforms::run()
{
    if (m_samples) {
        if (!isCanceled())
            m_pyramid = build(*m_samples);
        return;
    }
    OVSamples track;
    if (!loadWavSamples(m_wavPath, track)) {
        qWarning() << "OVWaveforms: cannot read" << m_wavPath;
        return;
    }
    if (isCanceled())
        return;
    m_pyramid = std::make_shared<const OVWaveformPyramid>(track.data.data(), track.count, track.sampleRate,
                                                          FileBlockSize, false);
}
