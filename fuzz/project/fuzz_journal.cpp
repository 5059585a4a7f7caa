// The journal of changes: framing and checksums, then every record that passes them applied to
// a project. Records are checksummed, so the harness frames the input itself as well: the first
// byte picks raw bytes (the framing is fuzzed) or lines framed as good records (the replay is).
#include "project/ovjournalfile.h"
#include "project/ovprojectjournal.h"
#include "project/project.h"

#include <QBuffer>

#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 1)
        return 0;
    QByteArray bytes(reinterpret_cast<const char *>(data + 1), qsizetype(size - 1));
    if (data[0] & 1) {
        QByteArray framed("KVJ1\r\n\x1a\n", OVJournalFile::HeaderSize);
        quint64 sequence = 0;
        for (const QByteArray &line : bytes.split('\n'))
            framed += OVJournalFile::frame(++sequence, line);
        bytes = framed;
    }
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::ReadOnly);
    OVJournalFile::Contents contents;
    if (!OVJournalFile::read(&buffer, &contents).isOk())
        return 0;
    OVProject::Project project;
    project.reset();
    OVProjectJournal::applyRecords(contents.records, 0, &project);
    return 0;
}
