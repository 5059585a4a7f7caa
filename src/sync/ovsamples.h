#pragma once

#include "log/overror.h"

#include <QString>
#include <QtGlobal>

#include <vector>

// One audio track in memory: signed 16-bit mono samples. Every buffer derived from a track copies
// its sample rate, so a position in any of them divided by `sampleRate` is seconds.
struct OVSamples
{
    std::vector<qint16> data;
    qint64 count = 0;
    int channels = 0; // channels of the file that was read; only the first one is kept
    int sampleRate = 0;

    void resize(qint64 samples)
    {
        data.assign(size_t(std::max<qint64>(samples, 0)), 0);
        count = qint64(data.size());
    }
    double duration() const { return sampleRate > 0 ? double(count) / sampleRate : 0.0; }
};

// Reads the first channel of a WAV file; `limit` samples at most (0: the whole file). False when
// the file cannot be opened or holds no sample.
bool loadWavSamples(const QString &path, OVSamples &samples, qint64 limit = 0);

// Writes `count` frames as 16-bit PCM WAV: stereo with `first` left and `second` right, or mono
// when one of them is null. An existing file is removed first, even when there is nothing to write.
bool writeWavSamples(const qint16 *first, const qint16 *second, qint64 count, int sampleRate,
                     const QString &path);

// Loads the primary, then the secondary file; runs on a pool thread and touches only the two
// buffers it is handed.
OV::Error loadTrackPair(const QString &primaryWav, OVSamples *primarySamples, const QString &secondaryWav,
                        OVSamples *secondarySamples);
