#pragma once

#include <QString>

class QIODevice;

// Reads a ZIP archive member by member from any QIODevice, each member streamed in chunks, so
// that nothing larger than a caller's buffer need be in memory. Built on the system's minizip,
// the same one libxlsxwriter writes workbooks with: a second minizip in the process (as some ZIP
// wrappers export under the same symbol names) would take over libxlsxwriter's calls.
class OVZipReader
{
public:
    struct Member
    {
        QString name;
        // As the archive's directory claims; the data read may still differ.
        qint64 uncompressedSize = 0;
    };

    // The device must stay open and seekable while the reader lives.
    explicit OVZipReader(QIODevice *device);
    ~OVZipReader();
    OVZipReader(const OVZipReader &) = delete;
    OVZipReader &operator=(const OVZipReader &) = delete;

    // False when the device holds no readable ZIP directory.
    bool open();
    // Move to the first / next member; false when there is none (or the directory is damaged,
    // then error() is set).
    bool first();
    bool next();
    bool current(Member *member) const;
    // Jump to the member called `name`.
    bool locate(const QString &name);

    bool openMember();
    // Bytes read into `buffer` (at most `size`), 0 at the end of the member, -1 on damage.
    qint64 read(char *buffer, qint64 size);
    // False when the member's data did not match its CRC.
    bool closeMember();

    // The last minizip error code (0 when none).
    int error() const { return m_error; }

private:
    QIODevice *m_device;
    void *m_zip = nullptr;
    bool m_memberOpen = false;
    mutable int m_error = 0;
};
