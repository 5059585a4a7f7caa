// One transcript reader (chosen at build time), with a check that what it accepts survives our
// own writer and reader unchanged: write, read, write again gives the same bytes.
#include "project/ovreadbudget.h"
#include "transcript/ovtranscriptfile.h"

#include <QTemporaryDir>

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray bytes(reinterpret_cast<const char *>(data), qsizetype(size));
    const OVTranscriptFile::Format format = OVTranscriptFile::formatForName(QStringLiteral(KAVOT_TRANSCRIPT_FORMAT));
    OVReadBudget budget(size);
    OVTranscriptData read;
    OVTranscriptReport report;
    if (!OVTranscriptFile::read(format, bytes, &read, &report, &budget).isOk())
        return 0;
    if (report.read != read.rows.size())
        std::abort();
    // A file is written and read back in the same format, except CSV, whose writer goes to disk.
    static QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("t.") + OVTranscriptFile::extension(format));
    if (!OVTranscriptFile::write(path, format, read).isOk())
        std::abort();
    OVTranscriptData again;
    if (!OVTranscriptFile::read(path, &again, nullptr).isOk())
        std::abort();
    const QString second = dir.filePath(QStringLiteral("u.") + OVTranscriptFile::extension(format));
    if (!OVTranscriptFile::write(second, format, again).isOk())
        std::abort();
    OVTranscriptData third;
    if (!OVTranscriptFile::read(second, &third, nullptr).isOk() || !(third.rows == again.rows))
        std::abort();
    return 0;
}
