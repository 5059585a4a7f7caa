#include "project/ovprojectcontainer.h"

#include <QCryptographicHash>
#include <QIODevice>
#include <QStringDecoder>
#include <QtEndian>

#include "project/ovzipreader.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr char Magic[] = "OV1";
constexpr quint16 EndMarker = 0xFFFF;
constexpr qint64 CopyChunk = 1 << 20;

bool fail(QString *error, const QString &why)
{
    if (error)
        *error = why;
    return false;
}

bool readExactly(QIODevice *in, char *buffer, qint64 size)
{
    qint64 done = 0;
    while (done < size) {
        const qint64 n = in->read(buffer + done, size - done);
        if (n <= 0)
            return false;
        done += n;
    }
    return true;
}

bool writeAll(QIODevice *out, const char *data, qint64 size)
{
    qint64 done = 0;
    while (done < size) {
        const qint64 n = out->write(data + done, size - done);
        if (n <= 0)
            return false;
        done += n;
    }
    return true;
}

// Feeds `size` bytes of `in` into `hash`, `entryHash` and `out` (those given) in chunks. `outError`
// tells whether a failure was the output's.
bool stream(QIODevice *in, qint64 size, QCryptographicHash *hash, QIODevice *out,
    QCryptographicHash *entryHash = nullptr, bool *outError = nullptr,
    const std::function<bool(qint64)> &progress = {})
{
    QByteArray buffer(int(std::min(size, CopyChunk)), Qt::Uninitialized);
    while (size > 0) {
        const qint64 n = std::min(size, qint64(buffer.size()));
        if (!readExactly(in, buffer.data(), n))
            return false;
        if (hash)
            hash->addData(QByteArrayView(buffer.constData(), n));
        if (entryHash)
            entryHash->addData(QByteArrayView(buffer.constData(), n));
        if (out && !writeAll(out, buffer.constData(), n)) {
            if (outError)
                *outError = true;
            return false;
        }
        if (progress && !progress(n)) {
            if (outError)
                *outError = true;
            return false;
        }
        size -= n;
    }
    return true;
}

} // namespace

OVProjectContainer::Form OVProjectContainer::detectForm(QIODevice *in)
{
    const QByteArray head = in->peek(5);
    if (head.startsWith("PK"))
        return ZipForm;
    if (head.startsWith(Magic))
        return ContainerForm;
    return UnknownForm;
}

bool OVProjectContainer::read(
    QIODevice *in, Entries *entries, const KeepInMemory &keepInMemory, QString *error, OVReadBudget *budget)
{
    if (!in || !in->isOpen() || in->isSequential())
        return fail(error, QStringLiteral("not a readable file"));
    const qint64 total = in->size();
    auto remaining = [in, total] { return total - in->pos(); };

    char magic[3];
    if (!readExactly(in, magic, 3) || std::memcmp(magic, Magic, 3) != 0)
        return fail(error, QStringLiteral("no OV1 magic"));

    QCryptographicHash md5(QCryptographicHash::Md5);
    Entries out;
    for (int index = 1;; ++index) {
        if (budget) {
            if (budget->isCancelled())
                return fail(error, QStringLiteral("cancelled"));
            budget->setProgress(int(ProgressOfReading * in->pos() / std::max<qint64>(total, 1)));
        }
        const QString place = QStringLiteral("entry %1").arg(index);
        uchar lenBytes[4];
        if (!readExactly(in, reinterpret_cast<char *>(lenBytes), 2))
            return fail(error, place + QStringLiteral(": the file ends before the end marker"));
        const quint16 nameLength = qFromBigEndian<quint16>(lenBytes);
        if (nameLength == EndMarker)
            break;
        if (index > OVReadBudget::MaxEntries)
            return fail(error, QStringLiteral("more than %1 entries").arg(OVReadBudget::MaxEntries));
        if (nameLength > remaining())
            return fail(error, place + QStringLiteral(": the name length %1 is more than the %2 bytes left")
                                           .arg(nameLength)
                                           .arg(remaining()));
        QByteArray name(nameLength, Qt::Uninitialized);
        if (!readExactly(in, name.data(), nameLength))
            return fail(error, place + QStringLiteral(": the name is truncated"));
        QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
        const QString entryName = decoder(name);
        if (decoder.hasError() || entryName.isEmpty())
            return fail(error, place + QStringLiteral(": the name is empty or not UTF-8"));
        const QString named = QStringLiteral("entry %1 (%2)").arg(index).arg(entryName);
        if (out.contains(entryName))
            return fail(error, named + QStringLiteral(": the name is used by an earlier entry"));
        if (!readExactly(in, reinterpret_cast<char *>(lenBytes), 4))
            return fail(error, named + QStringLiteral(": the data length is truncated"));
        const qint64 dataLength = qFromBigEndian<quint32>(lenBytes);
        // Checked before anything is allocated: a damaged length must not become a 4 GiB buffer.
        if (dataLength > remaining())
            return fail(error, named + QStringLiteral(": the data length %1 is more than the %2 bytes left")
                                           .arg(dataLength)
                                           .arg(remaining()));
        md5.addData(name);
        Entry entry;
        entry.size = dataLength;
        entry.offset = in->pos();
        if (!keepInMemory || keepInMemory(entryName)) {
            entry.data.resize(qsizetype(dataLength));
            if (!readExactly(in, entry.data.data(), dataLength))
                return fail(error, named + QStringLiteral(": the data is truncated"));
            md5.addData(entry.data);
        } else {
            entry.inMemory = false;
            QCryptographicHash entryHash(QCryptographicHash::Md5);
            if (!stream(in, dataLength, &md5, nullptr, &entryHash))
                return fail(error, named + QStringLiteral(": the data is truncated"));
            entry.digest = entryHash.result();
        }
        out.insert(entryName, std::move(entry));
    }
    char digest[16];
    if (!readExactly(in, digest, 16))
        return fail(error, QStringLiteral("the digest after the end marker is missing"));
    if (md5.result() != QByteArrayView(digest, 16))
        return fail(error, QStringLiteral("the digest does not match the entries"));
    if (in->pos() != total)
        return fail(error, QStringLiteral("%1 bytes follow the digest").arg(total - in->pos()));
    *entries = std::move(out);
    return true;
}

bool OVProjectContainer::readZip(QIODevice *in, Entries *entries, const KeepInMemory &keepInMemory, QString *error,
    qint64 maxMemberSize, OVReadBudget *budget)
{
    OVZipReader zip(in);
    if (!zip.open())
        return fail(error, QStringLiteral("not a readable ZIP archive"));
    Entries out;
    bool ok = true;
    int index = 0;
    for (bool more = zip.first(); more && ok; more = zip.next()) {
        ++index;
        if (index > OVReadBudget::MaxEntries) {
            ok = fail(error, QStringLiteral("more than %1 ZIP members").arg(OVReadBudget::MaxEntries));
            break;
        }
        if (budget) {
            if (budget->isCancelled()) {
                ok = fail(error, QStringLiteral("cancelled"));
                break;
            }
            budget->setProgress(int(ProgressOfReading * in->pos() / std::max<qint64>(in->size(), 1)));
        }
        OVZipReader::Member info;
        if (!zip.current(&info)) {
            ok = fail(error, QStringLiteral("ZIP member %1 is unreadable").arg(index));
            break;
        }
        if (info.name.endsWith(QLatin1Char('/')))
            continue; // a folder
        const QString named = QStringLiteral("ZIP member %1 (%2)").arg(index).arg(info.name);
        if (out.contains(info.name)) {
            ok = fail(error, named + QStringLiteral(": the name is used by an earlier member"));
            break;
        }
        Entry entry;
        entry.size = info.uncompressedSize;
        if (keepInMemory && !keepInMemory(info.name)) {
            entry.inMemory = false;
            out.insert(info.name, std::move(entry));
            continue;
        }
        // A member inflates within the reader's budget, never beyond the cap.
        const qint64 cap = budget ? std::min(maxMemberSize, budget->textAllowance()) : maxMemberSize;
        if (info.uncompressedSize > cap) {
            ok = fail(error, named + QStringLiteral(": %1 bytes is more than a document may hold").arg(info.uncompressedSize));
            break;
        }
        if (!zip.openMember()) {
            ok = fail(error, named + QStringLiteral(": cannot be opened"));
            break;
        }
        // The size in the directory may lie: read at most one byte more than the cap allows.
        QByteArray data;
        data.reserve(qsizetype(std::min<quint64>(info.uncompressedSize, quint64(CopyChunk))));
        char buffer[65536];
        while (true) {
            const qint64 n = zip.read(buffer, sizeof buffer);
            if (n < 0) {
                ok = fail(error, named + QStringLiteral(": the data is damaged"));
                break;
            }
            if (n == 0)
                break;
            if (data.size() + n > cap || (budget && budget->isCancelled())) {
                ok = fail(error,
                    named + (budget && budget->isCancelled() ? QStringLiteral(": cancelled")
                                                             : QStringLiteral(": inflates to more than a document may hold")));
                break;
            }
            data.append(buffer, qsizetype(n));
        }
        if (!zip.closeMember() && ok)
            ok = fail(error, named + QStringLiteral(": the data is damaged (CRC)"));
        entry.size = data.size();
        entry.data = std::move(data);
        out.insert(info.name, std::move(entry));
    }
    if (ok && zip.error() != 0)
        ok = fail(error, QStringLiteral("damaged ZIP directory"));
    if (!ok)
        return false;
    *entries = std::move(out);
    return true;
}

bool OVProjectContainer::write(
    QIODevice *out, QList<WriteEntry> entries, WriteReport *report, QString *error, const Progress &progress)
{
    std::stable_sort(entries.begin(), entries.end(),
        [](const WriteEntry &a, const WriteEntry &b) { return a.name < b.name; });
    qint64 total = 3 + 2 + 16;
    for (qsizetype i = 0; i < entries.size(); ++i) {
        if (i > 0 && entries[i].name == entries[i - 1].name)
            return fail(error, QStringLiteral("duplicate entry %1").arg(entries[i].name));
        total += 6 + entries[i].name.toUtf8().size() + (entries[i].source ? entries[i].size : entries[i].data.size());
    }
    qint64 pos = 0;
    auto advance = [&](qint64 n) {
        pos += n;
        return !progress || progress(pos, total);
    };
    const QString writeError = QStringLiteral("write error");
    if (!writeAll(out, Magic, 3) || !advance(3))
        return fail(error, writeError);
    QCryptographicHash md5(QCryptographicHash::Md5);
    WriteReport done;
    for (const WriteEntry &e : std::as_const(entries)) {
        const QByteArray name = e.name.toUtf8();
        const qint64 size = e.source ? e.size : e.data.size();
        if (name.size() > MaxNameLength)
            return fail(error, QStringLiteral("entry name too long"));
        if (size < 0 || size > MaxEntrySize)
            return fail(error, QStringLiteral("entry %1 too large").arg(e.name));
        uchar header[4];
        qToBigEndian<quint16>(quint16(name.size()), header);
        if (!writeAll(out, reinterpret_cast<const char *>(header), 2)
            || !writeAll(out, name.constData(), name.size()))
            return fail(error, writeError);
        qToBigEndian<quint32>(quint32(size), header);
        if (!writeAll(out, reinterpret_cast<const char *>(header), 4) || !advance(6 + name.size()))
            return fail(error, writeError);
        done.offsets.insert(e.name, pos);
        md5.addData(name);
        if (e.source) {
            QCryptographicHash entryHash(QCryptographicHash::Md5);
            bool outFailed = false;
            const bool copied = (e.offset < 0 || e.source->seek(e.offset))
                && stream(e.source, size, &md5, out, &entryHash, &outFailed,
                    [&](qint64 n) { return advance(n); });
            if (!copied && outFailed)
                return fail(error, writeError);
            const QByteArray digest = entryHash.result();
            if (!copied || (!e.digest.isEmpty() && digest != e.digest)) {
                if (report)
                    report->failedSource = e.name;
                return fail(error,
                    copied ? QStringLiteral("entry %1 differs from what was read before").arg(e.name)
                           : QStringLiteral("cannot read entry %1").arg(e.name));
            }
            done.digests.insert(e.name, digest);
        } else {
            if (!writeAll(out, e.data.constData(), size) || !advance(size))
                return fail(error, writeError);
            md5.addData(e.data);
        }
    }
    uchar marker[2];
    qToBigEndian<quint16>(EndMarker, marker);
    const QByteArray digest = md5.result();
    if (!writeAll(out, reinterpret_cast<const char *>(marker), 2)
        || !writeAll(out, digest.constData(), digest.size()) || !advance(2 + digest.size()))
        return fail(error, writeError);
    done.digest = digest;
    if (report)
        *report = std::move(done);
    return true;
}
