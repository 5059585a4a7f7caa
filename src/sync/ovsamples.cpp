#include "sync/ovsamples.h"

#include "sync/ovsynclogging.h"

#include <QDebug>
#include <QFile>
#include <QFileInfo>

#include <sndfile.h>

#include <algorithm>
#include <limits>
#include <memory>

namespace {

constexpr int BlockValues = 32768;

quint32 le32(const uchar *p)
{
    return quint32(p[0]) | quint32(p[1]) << 8 | quint32(p[2]) << 16 | quint32(p[3]) << 24;
}

// Whether every chunk of a RIFF/WAVE file (and of its LIST chunks) fits inside what holds it.
// libsndfile's header reader can loop without end on a LIST sub-chunk whose size runs past the
// file, so such a file is refused before it is handed over. Only the sample data may run past
// the end: a cut-off recording is read as far as it goes.
bool riffChunksFit(const QByteArray &bytes, qsizetype from, qsizetype to, int depth)
{
    const auto *data = reinterpret_cast<const uchar *>(bytes.constData());
    qsizetype at = from;
    // `to` may lie past the bytes read: only what was read is looked at.
    while (to - at >= 8 && bytes.size() - at >= 8) {
        const QByteArray id = bytes.mid(at, 4);
        const qint64 size = le32(data + at + 4);
        const qint64 end = at + 8 + size;
        if (id == "data")
            return true;
        if (end > to)
            return false;
        if (id == "LIST" && (size < 4 || depth > 4 || !riffChunksFit(bytes, at + 12, end, depth + 1)))
            return false;
        at = end + (size & 1);
    }
    return true;
}

bool wavHeaderFits(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return true; // libsndfile says why it cannot read it
    // Headers are small; the chunks after the first megabyte are left to libsndfile.
    const QByteArray head = file.read(1 << 20);
    if (head.size() < 12 || !head.startsWith("RIFF") || head.mid(8, 4) != "WAVE")
        return true;
    return riffChunksFit(head, 12, qsizetype(file.size()), 0);
}

} // namespace

bool loadWavSamples(const QString &path, OVSamples &samples, qint64 limit)
{
    if (!wavHeaderFits(path)) {
        qCWarning(lcSync) << "loadWavSamples: a chunk of" << path << "runs past the end of the file";
        samples.resize(0);
        return false;
    }
    SF_INFO info {};
    SNDFILE *file = sf_open(QFile::encodeName(path).constData(), SFM_READ, &info);
    if (!file) {
        qCWarning(lcSync) << "loadWavSamples: cannot open" << path << sf_strerror(nullptr);
        samples.resize(0);
        return false;
    }
    const std::unique_ptr<SNDFILE, int (*)(SNDFILE *)> closer(file, sf_close);
    if (info.channels <= 0 || info.samplerate <= 0 || info.frames < 0) {
        qCWarning(lcSync) << "loadWavSamples: unusable format in" << path;
        samples.resize(0);
        return false;
    }
    qint64 frames = info.frames;
    if (limit > 0 && limit < frames)
        frames = limit;
    samples.channels = info.channels;
    samples.sampleRate = info.samplerate;

    // The frame count comes from the file's header: memory is reserved only for what the file's
    // size can hold (no codec libsndfile reads packs more than a few samples into a byte), and the
    // track grows with what is actually read.
    const qint64 fileBytes = QFileInfo(path).size();
    samples.data.clear();
    samples.data.reserve(size_t(std::clamp<qint64>(fileBytes * 8 / info.channels, 0, frames)));

    const int channels = info.channels;
    const int blockFrames = std::max(1, BlockValues / channels);
    std::vector<short> block(size_t(blockFrames) * size_t(channels));
    qint64 written = 0;
    bool readAny = false;
    double minimum = std::numeric_limits<int>::max();
    double maximum = std::numeric_limits<int>::min();
    while (written < frames) {
        const qint64 want = std::min<qint64>(blockFrames, frames - written);
        const sf_count_t got = sf_readf_short(file, block.data(), want);
        if (got <= 0)
            break;
        readAny = true;
        const qint64 take = std::min<qint64>(got, frames - written);
        const size_t at = samples.data.size();
        samples.data.resize(at + size_t(take));
        qint16 *out = samples.data.data() + at;
        // A block always holds whole frames, so channel 0 is every `channels`-th value.
        for (qint64 f = 0; f < take; ++f)
            out[f] = block[size_t(f * channels)];
        const auto [lo, hi] = std::minmax_element(out, out + take);
        minimum = std::min<double>(minimum, *lo);
        maximum = std::max<double>(maximum, *hi);
        written += take;
    }
    samples.count = qint64(samples.data.size());
    qCDebug(lcSync) << "Max:" << maximum << " Min:" << minimum;
    qCDebug(lcSync) << path << " Loaded:" << readAny;
    return readAny && written > 0;
}

bool writeWavSamples(const qint16 *first, const qint16 *second, qint64 count, int sampleRate,
                     const QString &path)
{
    if (QFile::exists(path))
        QFile::remove(path);
    if (!first && !second)
        return false;
    if (count < 0 || sampleRate <= 0)
        return false;
    const int channels = (first && second) ? 2 : 1;
    SF_INFO info {};
    info.samplerate = sampleRate;
    info.channels = channels;
    info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
    SNDFILE *file = sf_open(QFile::encodeName(path).constData(), SFM_WRITE, &info);
    if (!file) {
        qCWarning(lcSync) << "writeWavSamples: cannot create" << path << sf_strerror(nullptr);
        return false;
    }
    // Written in blocks: an hour of stereo would otherwise need a second copy of the whole track.
    std::vector<short> block(size_t(BlockValues) * size_t(channels));
    qint64 done = 0;
    bool ok = true;
    while (done < count && ok) {
        const qint64 n = std::min<qint64>(BlockValues, count - done);
        if (channels == 2) {
            for (qint64 i = 0; i < n; ++i) {
                block[size_t(2 * i)] = first[done + i];
                block[size_t(2 * i + 1)] = second[done + i];
            }
        } else {
            const qint16 *src = first ? first : second;
            std::copy(src + done, src + done + n, block.begin());
        }
        ok = sf_writef_short(file, block.data(), n) == n;
        done += n;
    }
    if (sf_close(file) != 0)
        ok = false;
    if (!ok) {
        qCWarning(lcSync) << "writeWavSamples: write failed for" << path;
        QFile::remove(path);
    }
    return ok;
}

OV::Error loadTrackPair(const QString &primaryWav, OVSamples *primarySamples, const QString &secondaryWav,
                        OVSamples *secondarySamples)
{
    if (!loadWavSamples(primaryWav, *primarySamples))
        return OV::Error(1, QStringLiteral("Failed to load samples from file:\n  ") + primaryWav);
    if (!loadWavSamples(secondaryWav, *secondarySamples))
        return OV::Error(1, QStringLiteral("Failed to load samples from file:\n  ") + secondaryWav);
    return OV::Error::success();
}
