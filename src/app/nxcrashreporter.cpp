#include "app/nxcrashreporter.h"

#include "kavotversion.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>

#include <cxxabi.h>
#include <execinfo.h>
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

namespace {

constexpr int kSignals[] = { SIGSEGV, SIGABRT, SIGBUS, SIGFPE, SIGILL };
constexpr int kMaxFrames = 64;
constexpr size_t kLogTailBytes = 16384;

// Everything the handler touches is prepared here at install time.
char g_reportPath[4096];
char g_logPath[4096];
char g_header[1024];
bool g_installed = false;
QString g_lastError;
QString g_folder;
struct sigaction g_previous[sizeof(kSignals) / sizeof(kSignals[0])];
char *g_altStack = nullptr;

void writeAll(int fd, const char *data, size_t size)
{
    while (size > 0) {
        const ssize_t n = ::write(fd, data, size);
        if (n <= 0)
            return;
        data += n;
        size -= size_t(n);
    }
}

void writeString(int fd, const char *text) { writeAll(fd, text, std::strlen(text)); }

void writeNumber(int fd, long value)
{
    char buf[32];
    int i = sizeof(buf);
    const bool negative = value < 0;
    unsigned long v = negative ? 0UL - (unsigned long)value : (unsigned long)value;
    do {
        buf[--i] = char('0' + v % 10);
        v /= 10;
    } while (v && i > 1);
    if (negative)
        buf[--i] = '-';
    writeAll(fd, buf + i, sizeof(buf) - size_t(i));
}

void crashHandler(int sig, siginfo_t *info, void *)
{
    const int fd = ::open(g_reportPath, O_WRONLY | O_CREAT | O_TRUNC, 0600);
    if (fd >= 0) {
        writeString(fd, g_header);
        writeString(fd, "Signal: ");
        writeNumber(fd, sig);
        writeString(fd, " (");
        writeString(fd, sig == SIGSEGV ? "SIGSEGV" : sig == SIGABRT ? "SIGABRT" : sig == SIGBUS ? "SIGBUS"
                        : sig == SIGFPE ? "SIGFPE" : sig == SIGILL ? "SIGILL" : "?");
        writeString(fd, ")\nFault address: ");
        char hex[2 + 16 + 1];
        uintptr_t addr = info ? reinterpret_cast<uintptr_t>(info->si_addr) : 0;
        hex[0] = '0';
        hex[1] = 'x';
        for (int i = 0; i < 16; ++i)
            hex[2 + i] = "0123456789abcdef"[(addr >> (60 - 4 * i)) & 0xf];
        hex[18] = 0;
        writeString(fd, hex);
        writeString(fd, "\n\nBacktrace:\n");
        void *frames[kMaxFrames];
        const int count = backtrace(frames, kMaxFrames);
        backtrace_symbols_fd(frames, count, fd);
        writeString(fd, "\nLog tail:\n");
        const int logFd = g_logPath[0] ? ::open(g_logPath, O_RDONLY) : -1;
        if (logFd >= 0) {
            const off_t end = ::lseek(logFd, 0, SEEK_END);
            ::lseek(logFd, end > off_t(kLogTailBytes) ? end - off_t(kLogTailBytes) : 0, SEEK_SET);
            char buf[4096];
            ssize_t n;
            while ((n = ::read(logFd, buf, sizeof(buf))) > 0)
                writeAll(fd, buf, size_t(n));
            ::close(logFd);
        }
        ::close(fd);
    }
    // Let the default action end the process (and produce a core dump where enabled).
    signal(sig, SIG_DFL);
    raise(sig);
}

void copyPath(char *target, size_t size, const QString &path)
{
    const QByteArray bytes = QFile::encodeName(path);
    const size_t n = std::min(size - 1, size_t(bytes.size()));
    std::memcpy(target, bytes.constData(), n);
    target[n] = 0;
}

} // namespace

bool NXCrashReporter::install(const QString &reportFolder, const QString &logFilePath)
{
    g_lastError.clear();
    if (!QDir().mkpath(reportFolder) || !QFileInfo(reportFolder).isWritable()) {
        g_lastError = QStringLiteral("Cannot write crash reports to %1").arg(reportFolder);
        return false;
    }
    g_folder = reportFolder;
    const QString reportPath = reportFolder + QStringLiteral("/crash-%1-%2.txt")
                                                  .arg(QDateTime::currentDateTime().toString(QStringLiteral("yyyyMMdd-hhmmss")))
                                                  .arg(QCoreApplication::applicationPid());
    copyPath(g_reportPath, sizeof(g_reportPath), reportPath);
    copyPath(g_logPath, sizeof(g_logPath), logFilePath);
    const QByteArray header = QStringLiteral("Kavot crash report\nVersion: %1\nBuild_number: %2\nRevision: %3\n"
                                             "Application file: %4\nStarted: %5\n")
                                  .arg(QStringLiteral(KAVOT_VERSION))
                                  .arg(KAVOT_BUILD_NUMBER)
                                  .arg(QStringLiteral(KAVOT_REVISION))
                                  .arg(QCoreApplication::applicationFilePath())
                                  .arg(QDateTime::currentDateTime().toString(Qt::ISODate))
                                  .toUtf8();
    const size_t n = std::min(sizeof(g_header) - 1, size_t(header.size()));
    std::memcpy(g_header, header.constData(), n);
    g_header[n] = 0;

    // backtrace() loads libgcc on first use, which is not safe inside a handler: do it now.
    void *warm[2];
    backtrace(warm, 2);

    // A stack overflow leaves no stack for the handler; give it one of its own.
    if (!g_altStack) {
        const size_t altSize = std::max<size_t>(SIGSTKSZ, 65536);
        g_altStack = static_cast<char *>(std::malloc(altSize));
        stack_t ss {};
        ss.ss_sp = g_altStack;
        ss.ss_size = altSize;
        if (sigaltstack(&ss, nullptr) != 0) {
            g_lastError = QStringLiteral("sigaltstack failed: %1").arg(QString::fromLocal8Bit(strerror(errno)));
            return false;
        }
    }
    for (size_t i = 0; i < sizeof(kSignals) / sizeof(kSignals[0]); ++i) {
        struct sigaction sa {};
        sa.sa_sigaction = crashHandler;
        sigemptyset(&sa.sa_mask);
        sa.sa_flags = SA_SIGINFO | SA_ONSTACK | SA_RESETHAND;
        if (sigaction(kSignals[i], &sa, &g_previous[i]) != 0) {
            g_lastError = QStringLiteral("sigaction failed: %1").arg(QString::fromLocal8Bit(strerror(errno)));
            return false;
        }
    }
    g_installed = true;
    return true;
}

void NXCrashReporter::uninstall()
{
    if (!g_installed)
        return;
    for (size_t i = 0; i < sizeof(kSignals) / sizeof(kSignals[0]); ++i)
        sigaction(kSignals[i], &g_previous[i], nullptr);
    g_installed = false;
}

QString NXCrashReporter::lastError() { return g_lastError; }
QString NXCrashReporter::reportFolder() { return g_folder; }

QStringList NXCrashReporter::pendingReports(const QString &reportFolder)
{
    QStringList reports;
    const QDir dir(reportFolder);
    const QStringList names = dir.entryList({ QStringLiteral("crash-*.txt") }, QDir::Files, QDir::Name);
    for (const QString &name : names)
        reports << dir.absoluteFilePath(name);
    return reports;
}

QStringList NXCrashReporter::markReportsSeen(const QStringList &reports)
{
    QStringList moved;
    for (const QString &path : reports) {
        const QFileInfo info(path);
        const QString seenDir = info.absolutePath() + QStringLiteral("/seen");
        QDir().mkpath(seenDir);
        const QString target = seenDir + QLatin1Char('/') + info.fileName();
        QFile::remove(target);
        if (QFile::rename(path, target))
            moved << target;
        else
            moved << path;
    }
    return moved;
}

QString NXCrashReporter::readableReport(const QString &reportPath)
{
    QFile file(reportPath);
    if (!file.open(QIODevice::ReadOnly))
        return QString();
    QString text = QString::fromUtf8(file.readAll());
    // backtrace_symbols lines: "binary(symbol+0xoff) [0xaddr]" or "binary(+0xoff) [0xaddr]".
    static const QRegularExpression frameRe(QStringLiteral(R"(^(.+)\(([^)+]*)\+(0x[0-9a-f]+)\) \[(0x[0-9a-f]+)\]$)"),
                                            QRegularExpression::MultilineOption);
    const QString addr2line = QStandardPaths::findExecutable(QStringLiteral("addr2line"));
    QString out;
    int last = 0;
    auto it = frameRe.globalMatch(text);
    while (it.hasNext()) {
        const auto m = it.next();
        out += text.mid(last, m.capturedStart() - last);
        last = m.capturedEnd();
        const QString binary = m.captured(1);
        QString symbol = m.captured(2);
        if (!symbol.isEmpty()) {
            int status = 0;
            char *demangled = abi::__cxa_demangle(symbol.toLatin1().constData(), nullptr, nullptr, &status);
            if (status == 0 && demangled)
                symbol = QString::fromLatin1(demangled);
            std::free(demangled);
        }
        QString where;
        if (symbol.isEmpty() && !addr2line.isEmpty() && QFileInfo::exists(binary)) {
            QProcess p;
            p.start(addr2line, { QStringLiteral("-C"), QStringLiteral("-f"), QStringLiteral("-e"), binary, m.captured(3) });
            if (p.waitForFinished(3000)) {
                const QStringList lines = QString::fromLocal8Bit(p.readAllStandardOutput()).split(QLatin1Char('\n'));
                if (lines.size() >= 2 && lines[0] != QLatin1String("??")) {
                    symbol = lines[0];
                    where = lines[1];
                }
            }
        }
        out += QStringLiteral("%1 %2+%3%4").arg(QFileInfo(binary).fileName(), symbol.isEmpty() ? QStringLiteral("?") : symbol,
                                                 m.captured(3), where.isEmpty() ? QString() : QStringLiteral(" at ") + where);
    }
    out += text.mid(last);
    return out;
}

void NXCrashReporter::crashNow()
{
    volatile int *nowhere = nullptr;
    *nowhere = 1;
    std::abort();
}
