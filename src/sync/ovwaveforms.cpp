#include "sync/ovwaveforms.h"
#include "sync/ovsynclogging.h"

#include "widgets/ovwaveformpyramid.h"

#include <QDebug>

OVWaveforms::OVWaveforms(const QString &wavPath, QObject *parent) : QThread(parent), m_wavPath(wavPath) {}

OVWaveforms::OVWaveforms(const OVSamples *samples, QObject *parent) : QThread(parent), m_samples(samples) {}

OVWaveforms::~OVWaveforms()
{
    cancel();
    wait();
    const std::lock_guard<std::mutex> lock(m_lock);
    m_pyramid.reset();
}

std::shared_ptr<const OVWaveformPyramid> OVWaveforms::pyramid() const
{
    const std::lock_guard<std::mutex> lock(m_lock);
    return m_pyramid;
}

std::shared_ptr<const OVWaveformPyramid> OVWaveforms::build(const OVSamples &samples)
{
    return std::make_shared<const OVWaveformPyramid>(samples.data.data(), samples.count, samples.sampleRate,
                                                     MemoryBlockSize, true);
}

void OVWaveforms::run()
{
    if (m_samples) {
        if (isCanceled())
            return;
        std::shared_ptr<const OVWaveformPyramid> pyramid = build(*m_samples);
        const std::lock_guard<std::mutex> lock(m_lock);
        m_pyramid = std::move(pyramid);
        return;
    }
    OVSamples track;
    if (!loadWavSamples(m_wavPath, track)) {
        qCWarning(lcSync) << "OVWaveforms: cannot read" << m_wavPath;
        return;
    }
    if (isCanceled())
        return;
    auto pyramid = std::make_shared<const OVWaveformPyramid>(track.data.data(), track.count, track.sampleRate,
                                                             FileBlockSize, false);
    const std::lock_guard<std::mutex> lock(m_lock);
    m_pyramid = std::move(pyramid);
}
