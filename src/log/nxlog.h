#pragma once

#include <QDateTime>
#include <QString>
#include <QtGlobal>

class QObject;

// The program's one message handler: every qDebug/qWarning/qCritical/qFatal line is stamped,
// appended to "<folder>/<name>.log" in UTF-8 and posted to the live receivers.
namespace NXLog {

constexpr qint64 DefaultSizeLimit = 5242880;

// Opens (and trims) the log file and installs the handler. Returns false when the file cannot be
// opened; the handler is installed anyway so receivers still get every line.
bool install(const QString &folder, const QString &name = QStringLiteral("main"),
             qint64 sizeLimit = DefaultSizeLimit);
// Restores the previous handler and closes the file (tests; normal runs keep it to the end).
void uninstall();
bool isInstalled();
QString logFilePath();

void addReceiver(QObject *receiver);
void removeReceiver(QObject *receiver);
int receiverCount();

// Messages may start with a level tag "N|" (one digit). Lines whose level is above the filter
// level are dropped; untagged lines are level 0. The tag itself is not written.
void setLevel(int level);
int level();

// The exact text of one log line, without the handler: used by the handler and by tests.
QString formatLine(QtMsgType type, const QString &message, const QDateTime &when, int depth = 0);

// Indents the messages of the current thread while alive, for nested work.
class Indent
{
public:
    Indent();
    ~Indent();
    Indent(const Indent &) = delete;
    Indent &operator=(const Indent &) = delete;
};

// The raw file descriptor of the open log, for the crash handler (which must not lock); -1 if none.
int fileDescriptor();

} // namespace NXLog
