// loadWavSamples on arbitrary bytes: libsndfile reads through a path, so each input is written to
// a file in memory first.
#include "sync/ovsamples.h"

#include <QByteArray>
#include <QLoggingCategory>
#include <QString>

#include <cstdio>
#include <sys/mman.h>
#include <unistd.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const bool quiet = [] {
        QLoggingCategory::setFilterRules(QStringLiteral("*.debug=false\n*.warning=false"));
        return true;
    }();
    (void)quiet;
    static const int fd = memfd_create("fuzz-wav", 0);
    static const QString path = QStringLiteral("/proc/self/fd/%1").arg(fd);
    if (fd < 0 || ftruncate(fd, 0) != 0 || pwrite(fd, data, size, 0) != ssize_t(size))
        return 0;
    for (qint64 limit : { qint64(0), qint64(1000) }) {
        OVSamples samples;
        if (loadWavSamples(path, samples, limit)) {
            if (samples.count <= 0 || qint64(samples.data.size()) != samples.count || (limit && samples.count > limit))
                __builtin_trap();
        } else if (samples.count != 0) {
            __builtin_trap();
        }
    }
    return 0;
}
