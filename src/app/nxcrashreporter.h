#pragma once

#include <QString>
#include <QStringList>

// Writes a report when the process dies of a fatal signal: version, signal, a backtrace and the
// tail of the log, into a report folder. The handler only uses async-signal-safe calls on buffers
// prepared at install time.
class NXCrashReporter
{
public:
    // Installs the handlers; false with lastError() set when it cannot (e.g. folder not writable).
    static bool install(const QString &reportFolder, const QString &logFilePath);
    static void uninstall();
    static QString lastError();
    static QString reportFolder();

    // Reports left by an earlier crash that the user has not been asked about yet.
    static QStringList pendingReports(const QString &reportFolder);
    // Marks reports as handled (moves them into the "seen" subfolder) so they are offered once.
    static QStringList markReportsSeen(const QStringList &reports);
    // The report text with C++ names demangled and, where the addr2line tool is present,
    // source lines for addresses inside our executable.
    static QString readableReport(const QString &reportPath);

    // Dies at once through the installed handler, as a real crash would (Help > "Simulate Crash").
    [[noreturn]] static void crashNow();
};
