#include "project/ovprojectbackups.h"

#include "project/ovatomicfilewriter.h"

#include <QCryptographicHash>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QRegularExpression>

#include <algorithm>

OVProjectBackups::OVProjectBackups(const QString &folder, const QString &baseName)
    : m_folder(folder)
    , m_base(baseName)
{
}

QList<OVProjectBackups::Version> OVProjectBackups::list() const
{
    const QRegularExpression current(QStringLiteral("^%1-v(\\d+)-\\d{8}-\\d{6}\\.kvpr$")
                                         .arg(QRegularExpression::escape(m_base)));
    // Backups of earlier versions of the program, named by local time only: older than any of ours.
    const QRegularExpression earlier(QStringLiteral("^%1-\\d{8}-\\d{6}-\\d{3}(_\\d+)?\\.kvpr$")
                                         .arg(QRegularExpression::escape(m_base)));
    QList<Version> out;
    const QStringList names = QDir(m_folder).entryList({ QStringLiteral("*.kvpr") }, QDir::Files, QDir::Name);
    for (const QString &name : names) {
        if (const auto m = current.match(name); m.hasMatch())
            out.append({ m.captured(1).toLongLong(), name });
        else if (earlier.match(name).hasMatch())
            out.append({ 0, name });
    }
    std::stable_sort(out.begin(), out.end(), [](const Version &a, const Version &b) { return a.sequence < b.sequence; });
    return out;
}

QStringList OVProjectBackups::versions() const
{
    QStringList out;
    for (const Version &v : list())
        out.append(m_folder + QLatin1Char('/') + v.name);
    return out;
}

QByteArray OVProjectBackups::contentId(const QString &file)
{
    QFile f(file);
    if (!f.open(QIODevice::ReadOnly))
        return QByteArray();
    if (f.size() > 19 && f.read(3) == "OV1" && f.seek(f.size() - 16))
        return QByteArrayLiteral("OV1:") + f.read(16).toHex();
    if (!f.seek(0))
        return QByteArray();
    QCryptographicHash md5(QCryptographicHash::Md5);
    if (!md5.addData(&f))
        return QByteArray();
    return QByteArrayLiteral("MD5:") + md5.result().toHex();
}

bool OVProjectBackups::add(const QString &file, QString *error)
{
    auto failed = [error](const QString &why) {
        if (error)
            *error = why;
        return false;
    };
    if (!QDir().mkpath(m_folder))
        return failed(QStringLiteral("The backup folder %1 cannot be made.").arg(m_folder));
    const QByteArray id = contentId(file);
    if (id.isEmpty())
        return failed(QStringLiteral("The previous version cannot be read."));
    const QList<Version> kept = list();
    const qint64 next = kept.isEmpty() ? 1 : std::max<qint64>(1, kept.last().sequence + 1);
    const QString name = QStringLiteral("%1-v%2-%3.kvpr")
                             .arg(m_base)
                             .arg(next, 6, 10, QLatin1Char('0'))
                             .arg(QDateTime::currentDateTime().toString(QStringLiteral("yyyyMMdd-hhmmss")));
    const QString target = m_folder + QLatin1Char('/') + name;
    for (const Version &v : kept) {
        const QString path = m_folder + QLatin1Char('/') + v.name;
        if (contentId(path) != id)
            continue;
        if (v.sequence == kept.last().sequence && v.name == kept.last().name)
            return true; // already the newest
        if (QFile::rename(path, target))
            return true;
        break; // copy it anew below
    }
    OVAtomicFileWriter out(target);
    QFile in(file);
    if (!in.open(QIODevice::ReadOnly))
        return failed(QStringLiteral("The previous version cannot be read: %1").arg(in.errorString()));
    if (!out.open())
        return failed(out.reason());
    QByteArray buffer(1 << 20, Qt::Uninitialized);
    while (true) {
        const qint64 n = in.read(buffer.data(), buffer.size());
        if (n < 0)
            return failed(QStringLiteral("The previous version cannot be read: %1").arg(in.errorString()));
        if (n == 0)
            break;
        if (out.write(buffer.constData(), n) != n)
            return failed(out.reason());
    }
    if (!out.commit())
        return failed(out.reason());
    return true;
}

void OVProjectBackups::rotate(int keep)
{
    QList<Version> kept = list();
    QDir dir(m_folder);
    while (kept.size() > keep)
        dir.remove(kept.takeFirst().name);
}
