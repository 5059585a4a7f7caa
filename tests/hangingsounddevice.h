#pragma once

#include <QDir>
#include <QFile>
#include <QString>

#include <sys/stat.h>

// Makes the sound device scan of a program whose home folder is `home` hang, as a scan does on
// JACK's lock left taken by a killed program: the only ALSA setup there is a capture device that
// reads a named pipe nobody writes to, and opening it blocks until a writer comes. Returns the
// pipe's path, to open for writing once to let the scan go on; "" when it could not be made.
inline QString makeHangingSoundDevice(const QString &home)
{
    const QString pipe = QDir(home).filePath(QStringLiteral("never-written"));
    if (::mkfifo(QFile::encodeName(pipe).constData(), 0600) != 0)
        return QString();
    QFile rc(QDir(home).filePath(QStringLiteral(".asoundrc")));
    if (!rc.open(QIODevice::WriteOnly))
        return QString();
    rc.write(QStringLiteral("pcm.hangs {\n type file\n slave.pcm \"null\"\n file \"/dev/null\"\n infile \"%1\"\n}\n")
                 .arg(pipe)
                 .toUtf8());
    return rc.error() == QFileDevice::NoError ? pipe : QString();
}
