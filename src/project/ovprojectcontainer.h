#pragma once

#include "project/ovreadbudget.h"

#include <QByteArray>
#include <QList>
#include <QMap>
#include <QString>

#include <functional>

class QIODevice;

// The layout of ".kvpr" files: "OV1", then for each entry a big-endian 16-bit name length, the
// UTF-8 name, a big-endian 32-bit data length and the data; then 0xFFFF and the MD5 of every
// name and data in order. Older files are ZIP archives whose members are the entries.
// Readers treat the input as hostile: every length is checked against the bytes that remain
// before anything is allocated. No QCoreApplication needed.
class OVProjectContainer
{
public:
    enum Form { UnknownForm, ContainerForm, ZipForm };

    // Where an entry's bytes are: in memory, or left in the file (large entries such as an
    // embedded video) at `offset` with `size` bytes (ContainerForm) or as the ZIP member of that name.
    struct Entry
    {
        QByteArray data;
        bool inMemory = true;
        qint64 offset = -1;
        qint64 size = 0;
    };
    using Entries = QMap<QString, Entry>;
    // Decides per entry name whether its bytes are read into memory.
    using KeepInMemory = std::function<bool(const QString &name)>;

    // What one entry to write is made of: bytes, or `size` bytes of `source` from `offset`
    // (offset -1: from the device's current position, as for a ZIP member opened for reading).
    struct WriteEntry
    {
        QString name;
        QByteArray data;
        QIODevice *source = nullptr;
        qint64 offset = -1;
        qint64 size = 0;
    };

    static constexpr int MaxNameLength = 0xFFFE;
    static constexpr qint64 MaxEntrySize = 0xFFFFFFFFLL;

    // From the first bytes of a random-access device; leaves its position unchanged.
    static Form detectForm(QIODevice *in);

    // Reading a file reports progress up to this permille of a load; the documents do the rest.
    static constexpr int ProgressOfReading = 400;

    // Reads the "OV1" layout from the start of `in`. False on a bad magic, a length beyond the end,
    // a name that is not UTF-8 or repeats, more than OVReadBudget::MaxEntries entries, a missing end
    // marker or digest, a digest mismatch or bytes after it; `error` then names the entry and the
    // check. `budget` (may be null) gives the cancel flag and takes the progress.
    static bool read(QIODevice *in, Entries *entries, const KeepInMemory &keepInMemory = {},
        QString *error = nullptr, OVReadBudget *budget = nullptr);
    // Reads the members of a ZIP archive (entries left in the file keep only their size), each
    // streamed and bounded by `maxMemberSize` and the budget's allowance.
    static bool readZip(QIODevice *in, Entries *entries, const KeepInMemory &keepInMemory = {},
        QString *error = nullptr, qint64 maxMemberSize = qint64(1) << 30, OVReadBudget *budget = nullptr);

    // Writes every entry in the order of their names. On success `dataOffsets` (if given) holds
    // where each entry's data starts in `out`.
    static bool write(QIODevice *out, QList<WriteEntry> entries, QMap<QString, qint64> *dataOffsets = nullptr,
        QString *error = nullptr);
};
