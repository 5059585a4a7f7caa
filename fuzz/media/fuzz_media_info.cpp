// Feeds arbitrary bytes as a media file, from disk as the probes read it, through the stream facts
// and the search for where a file's sound starts (which decodes its first packets).
#include "media/ovmediainfo.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>

#include <cstdint>
#include <cstdlib>

namespace {

QString inputPath()
{
    // Memory-backed where there is one: every input is written once.
    const QString dir = QDir(QStringLiteral("/dev/shm")).exists() ? QStringLiteral("/dev/shm") : QDir::tempPath();
    return QDir(dir).filePath(QStringLiteral("kavot-fuzz-media-info-%1").arg(qint64(QCoreApplication::applicationPid())));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const QString path = [] {
        std::atexit([] { QFile::remove(inputPath()); });
        return inputPath();
    }();
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return 0;
    file.write(reinterpret_cast<const char *>(data), qint64(size));
    file.close();
    OVMediaInfo info;
    OVMediaInfo::probe(path, &info);
    double seconds = 0.0;
    OVMediaInfo::probeAudioStart(path, -1, &seconds);
    OVMediaInfo::probeAudioStart(path, 1, &seconds);
    return 0;
}
