#pragma once

#include "sync/ovsamples.h"

#include <QString>
#include <QThread>

#include <atomic>
#include <memory>
#include <mutex>

class OVWaveformPyramid;

// Builds the drawing envelope of one track on a thread of its own: either it reads a WAV file
// (the track is dropped once its pyramid is built, so an hour of sound costs 20 MB and not 160)
// or it indexes samples already in memory, which then stay the pyramid's for sample-exact zoom.
// Completion is the thread's finished(); the view that started it takes pyramid() then.
class OVWaveforms : public QThread
{
    Q_OBJECT

public:
    // Samples to a block of the pyramid's first level for a track read from a file: 1.5 ms at
    // 22050 Hz, finer than any zoom the timeline is used at.
    static constexpr int FileBlockSize = 32;
    // For samples in memory the ragged ends come from the samples, so blocks may be coarser.
    static constexpr int MemoryBlockSize = 64;

    explicit OVWaveforms(const QString &wavPath, QObject *parent = nullptr);
    // `samples` must not change while the thread runs and must outlive the pyramid.
    explicit OVWaveforms(const OVSamples *samples, QObject *parent = nullptr);
    ~OVWaveforms() override;

    // Asks a running build to stop; pyramid() stays null then.
    void cancel() { m_canceled.store(true, std::memory_order_relaxed); }
    bool isCanceled() const { return m_canceled.load(std::memory_order_relaxed); }

    // After finished(): the pyramid, or null when the file could not be read or the build was
    // cancelled.
    std::shared_ptr<const OVWaveformPyramid> pyramid() const;
    QString wavPath() const { return m_wavPath; }

    // The pyramid of a track already in memory, built on the calling thread.
    static std::shared_ptr<const OVWaveformPyramid> build(const OVSamples &samples);

protected:
    void run() override;

private:
    QString m_wavPath;
    const OVSamples *m_samples = nullptr;
    std::atomic<bool> m_canceled { false };
    // The result is handed over under a lock of our own: the end of a QThread orders it too, but
    // only a lock the sanitizer can see lets threaded tests tell real races from this one.
    mutable std::mutex m_lock;
    // -- Guarded by m_lock.
    std::shared_ptr<const OVWaveformPyramid> m_pyramid;
};
