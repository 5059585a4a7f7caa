#pragma once

#include <QIODevice>
#include <QString>

// Writes a file so that readers only ever see the old content or the whole new one: the bytes go
// into a temporary file beside the target, which is synced and renamed over the target on
// commit(). Unlike QSaveFile it keeps the errno of the step that failed, so that a user can be
// told why (disk full, read-only medium, no permission), and names its temporary files so that
// the ones a killed save left behind can be found and removed (removeStrayTemporaries()).
// A writer that is destroyed without commit() removes its temporary file.
class OVAtomicFileWriter : public QIODevice
{
public:
    explicit OVAtomicFileWriter(const QString &target);
    ~OVAtomicFileWriter() override;

    QString target() const { return m_target; }
    QString temporaryPath() const { return m_tempPath; }

    // Creates the temporary file. False when it cannot be made or the target may not be written.
    bool open();
    // Flushes and syncs the temporary file to disk; what remains for commit() is the rename.
    bool sync();
    // sync() unless done, then renames over the target.
    bool commit();
    // Drops the temporary file; the target stays as it was.
    void cancel();

    // errno of the step that failed (0 while nothing failed), and which step that was.
    int errorNumber() const { return m_errno; }
    QString failedStep() const { return m_step; }
    // What a user needs to know about errorNumber(), in one sentence.
    QString reason() const { return reasonFor(m_errno); }
    static QString reasonFor(int errorNumber);

    // Removes the temporary files of saves to `target` whose writer is gone (killed mid-save);
    // those of a save still running elsewhere are held locked and stay. Returns how many went.
    static int removeStrayTemporaries(const QString &target);

protected:
    qint64 readData(char *data, qint64 maxSize) override;
    qint64 writeData(const char *data, qint64 size) override;

private:
    bool fail(const char *step, int errorNumber);
    bool flushBuffer();
    static QString temporaryPrefix(const QString &fileName);

    QString m_target;
    QString m_tempPath;
    int m_fd = -1;
    int m_errno = 0;
    QString m_step;
    QByteArray m_buffer;
    bool m_synced = false;
};
