#include "project/ovzipreader.h"

#include <QIODevice>

#include <unzip.h>

#include <cstdio>

namespace {

// minizip's file functions over a QIODevice: the "file name" it is given is the device itself.
voidpf openDevice(voidpf, const void *device, int)
{
    return const_cast<void *>(device);
}

uLong readDevice(voidpf, voidpf stream, void *buffer, uLong size)
{
    const qint64 n = static_cast<QIODevice *>(stream)->read(static_cast<char *>(buffer), qint64(size));
    return n < 0 ? 0 : uLong(n);
}

uLong writeDevice(voidpf, voidpf, const void *, uLong)
{
    return 0;
}

ZPOS64_T tellDevice(voidpf, voidpf stream)
{
    return ZPOS64_T(static_cast<QIODevice *>(stream)->pos());
}

long seekDevice(voidpf, voidpf stream, ZPOS64_T offset, int origin)
{
    auto *device = static_cast<QIODevice *>(stream);
    qint64 target = 0;
    switch (origin) {
    case ZLIB_FILEFUNC_SEEK_SET:
        target = qint64(offset);
        break;
    case ZLIB_FILEFUNC_SEEK_CUR:
        target = device->pos() + qint64(offset);
        break;
    case ZLIB_FILEFUNC_SEEK_END:
        target = device->size() + qint64(offset);
        break;
    default:
        return -1;
    }
    if (target < 0 || target > device->size())
        return -1;
    return device->seek(target) ? 0 : -1;
}

int closeDevice(voidpf, voidpf)
{
    return 0; // the device belongs to the caller
}

int errorDevice(voidpf, voidpf)
{
    return 0;
}

} // namespace

OVZipReader::OVZipReader(QIODevice *device)
    : m_device(device)
{
}

OVZipReader::~OVZipReader()
{
    if (m_memberOpen)
        unzCloseCurrentFile(m_zip);
    if (m_zip)
        unzClose(m_zip);
}

bool OVZipReader::open()
{
    if (m_zip || !m_device || !m_device->isOpen() || m_device->isSequential())
        return false;
    zlib_filefunc64_def functions {};
    functions.zopen64_file = openDevice;
    functions.zread_file = readDevice;
    functions.zwrite_file = writeDevice;
    functions.ztell64_file = tellDevice;
    functions.zseek64_file = seekDevice;
    functions.zclose_file = closeDevice;
    functions.zerror_file = errorDevice;
    m_zip = unzOpen2_64(m_device, &functions);
    return m_zip != nullptr;
}

bool OVZipReader::first()
{
    if (!m_zip)
        return false;
    const int result = unzGoToFirstFile(m_zip);
    m_error = result == UNZ_END_OF_LIST_OF_FILE ? UNZ_OK : result;
    return result == UNZ_OK;
}

bool OVZipReader::next()
{
    if (!m_zip)
        return false;
    const int result = unzGoToNextFile(m_zip);
    m_error = result == UNZ_END_OF_LIST_OF_FILE ? UNZ_OK : result;
    return result == UNZ_OK;
}

bool OVZipReader::current(Member *member) const
{
    if (!m_zip)
        return false;
    unz_file_info64 info {};
    char name[4096];
    m_error = unzGetCurrentFileInfo64(m_zip, &info, name, sizeof name, nullptr, 0, nullptr, 0);
    if (m_error != UNZ_OK)
        return false;
    // Bit 11 marks UTF-8 names; older archives used the DOS code page, of which the ASCII part
    // is all a project's entry names use.
    const qsizetype length = qsizetype(qMin<uLong>(info.size_filename, sizeof name - 1));
    member->name = (info.flag & (1u << 11)) ? QString::fromUtf8(name, length) : QString::fromLatin1(name, length);
    member->uncompressedSize = qint64(info.uncompressed_size);
    return true;
}

bool OVZipReader::locate(const QString &name)
{
    if (!m_zip)
        return false;
    m_error = unzLocateFile(m_zip, name.toUtf8().constData(), 1);
    return m_error == UNZ_OK;
}

bool OVZipReader::openMember()
{
    if (!m_zip || m_memberOpen)
        return false;
    m_error = unzOpenCurrentFile(m_zip);
    m_memberOpen = m_error == UNZ_OK;
    return m_memberOpen;
}

qint64 OVZipReader::read(char *buffer, qint64 size)
{
    if (!m_memberOpen)
        return -1;
    const int n = unzReadCurrentFile(m_zip, buffer, unsigned(qMin<qint64>(size, 1 << 30)));
    if (n < 0) {
        m_error = n;
        return -1;
    }
    return n;
}

bool OVZipReader::closeMember()
{
    if (!m_memberOpen)
        return false;
    m_memberOpen = false;
    m_error = unzCloseCurrentFile(m_zip);
    return m_error == UNZ_OK;
}
