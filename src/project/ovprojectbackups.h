#pragma once

#include <QString>
#include <QStringList>

// The earlier versions of one project file, kept in a folder of their own as
// "<name>-v<sequence>-<yyyyMMdd-hhmmss>.kvpr". The order is the sequence number, which only grows,
// so a clock set back cannot make a new version look old; the time is there for people. A version
// is kept once: adding content that is already there moves that copy to the newest place instead
// of adding another. Other files in the folder (recovery copies, a user's own) are neither
// counted nor removed.
class OVProjectBackups
{
public:
    OVProjectBackups(const QString &folder, const QString &baseName);

    QString folder() const { return m_folder; }

    // Keeps the content of `file` as the newest version. False, with the reason in `error`, when
    // the copy could not be written; the folder then holds what it held before.
    bool add(const QString &file, QString *error = nullptr);
    // Removes the oldest versions beyond `keep`.
    void rotate(int keep);
    // Paths of the kept versions, oldest first.
    QStringList versions() const;

    // What identifies a project file's content: the MD5 trailer of the container form (over
    // every entry's name and data), else the MD5 of the whole file. Empty if unreadable.
    static QByteArray contentId(const QString &file);

private:
    struct Version
    {
        qint64 sequence;
        QString name;
    };
    QList<Version> list() const;

    QString m_folder;
    QString m_base;
};
