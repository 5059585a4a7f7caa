#include "project/ovatomicfilewriter.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRandomGenerator>

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr qsizetype BufferSize = 256 * 1024;

QByteArray local(const QString &path) { return QFile::encodeName(path); }

// A temporary file with a lock held by a living writer; a killed writer's lock died with it.
bool isHeldByWriter(const QString &path)
{
    const int fd = ::open(local(path).constData(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return true; // cannot tell: leave it
    const bool held = ::flock(fd, LOCK_EX | LOCK_NB) != 0;
    ::close(fd);
    return held;
}

} // namespace

OVAtomicFileWriter::OVAtomicFileWriter(const QString &target)
    : m_target(QFileInfo(target).absoluteFilePath())
{
}

OVAtomicFileWriter::~OVAtomicFileWriter() { cancel(); }

QString OVAtomicFileWriter::temporaryPrefix(const QString &fileName)
{
    return QLatin1Char('.') + fileName + QStringLiteral(".saving-");
}

bool OVAtomicFileWriter::fail(const char *step, int errorNumber)
{
    m_errno = errorNumber ? errorNumber : EIO;
    m_step = QString::fromLatin1(step);
    setErrorString(QStringLiteral("%1: %2").arg(m_step, QString::fromLocal8Bit(strerror(m_errno))));
    return false;
}

bool OVAtomicFileWriter::open()
{
    if (isOpen())
        return true;
    const QFileInfo info(m_target);
    const QByteArray target = local(m_target);
    struct stat st {};
    const bool exists = ::stat(target.constData(), &st) == 0;
    // A file that may not be written stays as it is, even though its folder would allow the rename.
    if (exists && ::access(target.constData(), W_OK) != 0)
        return fail("target not writable", errno);
    const QString folder = info.absolutePath();
    for (int attempt = 0; attempt < 100; ++attempt) {
        m_tempPath = folder + QLatin1Char('/') + temporaryPrefix(info.fileName())
            + QString::number(QRandomGenerator::global()->generate() & 0xffffff, 16);
        m_fd = ::open(local(m_tempPath).constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (m_fd >= 0 || errno != EEXIST)
            break;
    }
    if (m_fd < 0) {
        m_tempPath.clear();
        return fail("create temporary file", errno);
    }
    ::flock(m_fd, LOCK_EX | LOCK_NB);
    if (exists)
        ::fchmod(m_fd, st.st_mode & 07777);
    m_errno = 0;
    m_step.clear();
    m_buffer.reserve(BufferSize);
    return QIODevice::open(QIODevice::WriteOnly | QIODevice::Unbuffered);
}

bool OVAtomicFileWriter::flushBuffer()
{
    qsizetype done = 0;
    while (done < m_buffer.size()) {
        const ssize_t n = ::write(m_fd, m_buffer.constData() + done, size_t(m_buffer.size() - done));
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0) {
            // A short write with no error is a full disk on most file systems.
            m_buffer.clear();
            return fail("write", n < 0 ? errno : ENOSPC);
        }
        done += n;
    }
    m_buffer.clear();
    return true;
}

qint64 OVAtomicFileWriter::readData(char *, qint64) { return -1; }

qint64 OVAtomicFileWriter::writeData(const char *data, qint64 size)
{
    if (m_fd < 0 || m_errno)
        return -1;
    m_synced = false;
    if (m_buffer.size() + size > BufferSize && !flushBuffer())
        return -1;
    if (size >= BufferSize) {
        m_buffer = QByteArray::fromRawData(data, qsizetype(size));
        const bool ok = flushBuffer();
        m_buffer = QByteArray();
        m_buffer.reserve(BufferSize);
        return ok ? size : -1;
    }
    m_buffer.append(data, qsizetype(size));
    return size;
}

bool OVAtomicFileWriter::sync()
{
    if (m_fd < 0)
        return m_errno ? false : fail("sync without open", EBADF);
    if (m_synced)
        return true;
    bool ok = m_errno == 0 && flushBuffer();
    // Delayed allocation reports a full disk only here.
    if (ok && ::fsync(m_fd) != 0)
        ok = fail("sync", errno);
    m_synced = ok;
    return ok;
}

bool OVAtomicFileWriter::commit()
{
    if (m_fd < 0)
        return m_errno ? false : fail("commit without open", EBADF);
    bool ok = sync();
    const int fd = m_fd;
    m_fd = -1;
    if (::close(fd) != 0 && ok)
        ok = fail("close", errno);
    QIODevice::close();
    if (ok && ::rename(local(m_tempPath).constData(), local(m_target).constData()) != 0)
        ok = fail("rename over the target", errno);
    if (!ok) {
        ::unlink(local(m_tempPath).constData());
        m_tempPath.clear();
        return false;
    }
    m_tempPath.clear();
    // The rename is only durable once the folder's entry is on disk too.
    const int dir = ::open(local(QFileInfo(m_target).absolutePath()).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dir >= 0) {
        ::fsync(dir);
        ::close(dir);
    }
    return true;
}

void OVAtomicFileWriter::cancel()
{
    if (m_fd >= 0) {
        ::close(m_fd);
        m_fd = -1;
    }
    if (!m_tempPath.isEmpty()) {
        ::unlink(local(m_tempPath).constData());
        m_tempPath.clear();
    }
    if (isOpen())
        QIODevice::close();
}

int OVAtomicFileWriter::removeStrayTemporaries(const QString &target)
{
    const QFileInfo info(target);
    QDir dir(info.absolutePath());
    const QString prefix = temporaryPrefix(info.fileName());
    int removed = 0;
    const QStringList names = dir.entryList(QDir::Files | QDir::Hidden | QDir::System);
    for (const QString &name : names) {
        const QString path = dir.filePath(name);
        bool stray = false;
        if (name.startsWith(prefix)) {
            stray = !isHeldByWriter(path);
        } else if (name.size() == info.fileName().size() + 7 && name.startsWith(info.fileName() + QLatin1Char('.'))) {
            // Left by saves of earlier versions (QSaveFile names): only project files nobody
            // has touched for an hour, as such a writer holds no lock to tell it is alive.
            QFile f(path);
            const QFileInfo fi(path);
            stray = f.open(QIODevice::ReadOnly) && f.read(3) == "OV1"
                && fi.lastModified().secsTo(QDateTime::currentDateTime()) > 3600;
        }
        if (stray && QFile::remove(path))
            ++removed;
    }
    return removed;
}

QString OVAtomicFileWriter::reasonFor(int errorNumber)
{
    switch (errorNumber) {
    case 0:
        return QString();
    case ENOSPC:
    case EDQUOT:
        return QStringLiteral("The disk is full.");
    case EACCES:
    case EPERM:
        return QStringLiteral("You do not have permission to write there.");
    case EROFS:
        return QStringLiteral("The disk or folder is read-only.");
    case ENOENT:
    case ENOTDIR:
        return QStringLiteral("The folder does not exist.");
    case EIO:
        return QStringLiteral("The disk reported an input/output error.");
    case EFBIG:
        return QStringLiteral("The file is too large for this disk.");
    case ENAMETOOLONG:
        return QStringLiteral("The file name is too long.");
    case EISDIR:
        return QStringLiteral("A folder of that name is in the way.");
    default:
        return QStringLiteral("The system reported: %1.").arg(QString::fromLocal8Bit(strerror(errorNumber)));
    }
}
