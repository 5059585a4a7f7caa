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
        // MD5 of the bytes of an entry left in the file, taken while they were read or written,
        // so that a later copy can tell whether the file still holds them.
        QByteArray digest;
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
        // For bytes of `source`: their MD5 as they were last seen; the write fails when the copy
        // differs (empty: not checked).
        QByteArray digest {};
    };
    // What write() tells besides success.
    struct WriteReport
    {
        // Where each entry's data starts in the output.
        QMap<QString, qint64> offsets;
        // MD5 of the data of every entry copied from a source device.
        QMap<QString, QByteArray> digests;
        // The entry whose source could not be read or did not match its digest (the output
        // itself did not fail then).
        QString failedSource;
        // The digest written at the end of the file.
        QByteArray digest;
    };
    // Called with the bytes written so far; returning false stops the write.
    using Progress = std::function<bool(qint64 written, qint64 total)>;

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

    // Writes every entry in the order of their names.
    static bool write(QIODevice *out, QList<WriteEntry> entries, WriteReport *report = nullptr,
        QString *error = nullptr, const Progress &progress = {});
};
