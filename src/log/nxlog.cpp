#include "log/nxlog.h"

#include "log/nxlogreceiverslist.h"
#include "log/ovloglogging.h"

#include <QDir>
#include <QFile>
#include <QMutex>
#include <QMutexLocker>

#include <atomic>
#include <cstdio>

namespace NXLog {
namespace {

struct LogState
{
    QMutex mutex;
    // -- protected by mutex
    QFile file;
    QtMessageHandler previous = nullptr;
    bool installed = false;
    // -- end of the fields protected by mutex
    std::atomic<int> fd { -1 };
    std::atomic<int> level { 9 };
    bool echoToStderr = false;
    NXLogReceiversList receivers;
};

LogState &state()
{
    // Never destroyed: messages can still arrive from static destructors after main() returns.
    static LogState *s = new LogState;
    return *s;
}

thread_local int t_depth = 0;

const char *prefixFor(QtMsgType type)
{
    switch (type) {
    case QtWarningMsg: return "Warning: ";
    case QtCriticalMsg: return "Critical: ";
    case QtFatalMsg: return "Fatal: ";
    case QtDebugMsg:
    case QtInfoMsg:
        break;
    }
    return "";
}

// Splits an "N|" level tag off the message. Untagged messages are level 0.
int takeLevel(QString &message)
{
    if (message.size() >= 2 && message.at(1) == QLatin1Char('|') && message.at(0).isDigit()) {
        const int level = message.at(0).digitValue();
        message.remove(0, 2);
        return level;
    }
    return 0;
}

void handler(QtMsgType type, const QMessageLogContext &, const QString &raw)
{
    LogState &s = state();
    QString message = raw;
    if (takeLevel(message) > s.level.load(std::memory_order_relaxed) && type != QtFatalMsg)
        return;
    const QString line = formatLine(type, message, QDateTime::currentDateTime(), t_depth);
    const QByteArray bytes = line.toUtf8();
    bool written = false;
    {
        QMutexLocker lock(&s.mutex);
        if (s.file.isOpen()) {
            s.file.write(bytes);
            // Flushed line by line: after a crash the log must hold the last words.
            written = s.file.flush();
        }
    }
    // Without a usable log file, standard error is the only place left to say anything.
    if (s.echoToStderr || type == QtFatalMsg || !written) {
        std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stderr);
        std::fflush(stderr);
    }
    s.receivers.post(line);
}

} // namespace

QString formatLine(QtMsgType type, const QString &message, const QDateTime &when, int depth)
{
    QString line;
    line.reserve(message.size() + 40);
    line += QLatin1Char('[') + when.toString(QStringLiteral("ddMMyy hh:mm:ss.zzz")) + QStringLiteral("] ");
    if (depth > 0)
        line += QString(depth * 2, QLatin1Char(' '));
    line += QLatin1String(prefixFor(type)) + message + QLatin1Char('\n');
    return line;
}

bool install(const QString &folder, const QString &name, qint64 sizeLimit)
{
    LogState &s = state();
    s.echoToStderr = qEnvironmentVariableIsSet("KAVOT_LOG_STDERR");
    qint64 trimmedFrom = -1;
    bool opened = false;
    QString failure;
    {
        QMutexLocker lock(&s.mutex);
        if (s.file.isOpen())
            s.file.close();
        s.fd = -1;
        QDir().mkpath(folder);
        s.file.setFileName(folder + QLatin1Char('/') + name + QStringLiteral(".log"));
        opened = s.file.open(QIODevice::Append | QIODevice::Text);
        if (!opened) {
            failure = s.file.errorString();
        } else if (s.file.size() > sizeLimit) {
            // Keep only the last sizeLimit bytes; read just that part so a huge log costs little.
            const qint64 oldSize = s.file.size();
            s.file.close();
            QFile in(s.file.fileName());
            QByteArray tail;
            if (in.open(QIODevice::ReadOnly) && in.seek(oldSize - sizeLimit))
                tail = in.read(sizeLimit);
            in.close();
            QFile out(s.file.fileName());
            if (out.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
                out.write(tail);
                out.close();
                trimmedFrom = oldSize;
            }
            opened = s.file.open(QIODevice::Append | QIODevice::Text);
            if (!opened)
                failure = s.file.errorString();
        }
        if (opened)
            s.fd = s.file.handle();
        if (!s.installed) {
            s.previous = qInstallMessageHandler(handler);
            s.installed = true;
        }
    }
    if (!opened)
        qCWarning(lcLog).noquote() << "Log file" << s.file.fileName() << "could not be opened:" << failure;
    if (trimmedFrom >= 0)
        qCInfo(lcLog).noquote() << "0|Trimmed size:" << trimmedFrom << "to" << sizeLimit;
    return opened;
}

void uninstall()
{
    LogState &s = state();
    QMutexLocker lock(&s.mutex);
    if (s.installed) {
        qInstallMessageHandler(s.previous);
        s.installed = false;
    }
    s.fd = -1;
    if (s.file.isOpen())
        s.file.close();
}

bool isInstalled()
{
    LogState &s = state();
    QMutexLocker lock(&s.mutex);
    return s.installed;
}

QString logFilePath()
{
    LogState &s = state();
    QMutexLocker lock(&s.mutex);
    return s.file.fileName();
}

void addReceiver(QObject *receiver) { state().receivers.add(receiver); }
void removeReceiver(QObject *receiver) { state().receivers.remove(receiver); }
int receiverCount() { return state().receivers.count(); }

void setLevel(int level) { state().level = level; }
int level() { return state().level; }

int fileDescriptor() { return state().fd.load(); }

Indent::Indent() { ++t_depth; }
Indent::~Indent() { --t_depth; }

} // namespace NXLog
