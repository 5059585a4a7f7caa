// Starts the real executable (offscreen) with private data, config and runtime folders and checks
// what a user and a desktop session see: log lines, single-instance hand-off, crash reports.
#include "app/ovcommandline.h"
#include "appsandbox.h"
#include "hangingsounddevice.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QtTest>

#include <signal.h>

namespace {

using Sandbox = AppSandbox;

bool terminate(QProcess *p)
{
    ::kill(pid_t(p->processId()), SIGTERM);
    return p->waitForFinished(15000) && p->exitStatus() == QProcess::NormalExit && p->exitCode() == 0;
}

} // namespace

class TestStartup : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase() { QVERIFY2(QFile::exists(Sandbox::executable()), qPrintable(Sandbox::executable())); }

    void startupLinesAndCleanEndOnSigterm()
    {
        Sandbox box;
        QProcess *app = box.start({ "--commlog=/tmp/comm.log" });
        QTRY_VERIFY_WITH_TIMEOUT(box.log().contains("OS Info:"), 20000);
        QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(box.dataDir() + "/settings.ini") || box.log().contains("Settings"), 20000);
        QVERIFY(terminate(app));
        const QString log = box.log();
        const QRegularExpression started(
            R"(\] Application started   Version: 1\.1\.0  Build_number: \d+  Revision: [0-9a-f]{40}\n)");
        QVERIFY2(started.match(log).hasMatch(), qPrintable(log));
        QVERIFY(log.contains("] Cmd line: --commlog=/tmp/comm.log\n"));
        QVERIFY(log.contains("] Application file: " + QFileInfo(Sandbox::executable()).canonicalFilePath()));
        QVERIFY(log.contains("] OS Info:\n"));
        QVERIFY(log.contains("Termination requested by signal 15"));
        QVERIFY2(log.trimmed().endsWith("] Application finished"), qPrintable(log.right(300)));
        // Settings are written back at the end.
        QVERIFY(QFile::exists(box.dataDir() + "/settings.ini"));
    }

    void secondStartHandsItsFilesToTheRunningOne()
    {
        Sandbox box;
        QProcess *first = box.start();
        QTRY_VERIFY_WITH_TIMEOUT(box.log().contains("OS Info:"), 20000);
        const QString file = box.path("some project.kvpr");
        QProcess *second = box.start({ file });
        QVERIFY(second->waitForFinished(20000));
        QCOMPARE(second->exitCode(), 0);
        QTRY_VERIFY_WITH_TIMEOUT(box.log().contains("Message from a second start: " + file), 20000);
        QCOMPARE(box.log().count("Application started"), 1);
        QVERIFY(first->state() == QProcess::Running);
        QVERIFY(terminate(first));
    }

    void crashedInstanceDoesNotBlockTheNextStart()
    {
        Sandbox box;
        QProcess *first = box.start();
        QTRY_VERIFY_WITH_TIMEOUT(box.log().contains("OS Info:"), 20000);
        first->kill(); // SIGKILL: no clean-up of the lock or the socket
        QVERIFY(first->waitForFinished(10000));
        QProcess *next = box.start();
        QTRY_VERIFY_WITH_TIMEOUT(box.log().count("Application started") == 2, 20000);
        // And it is the running instance now: a third start hands over to it.
        QProcess *third = box.start({ box.path("x.kvpr") });
        QVERIFY(third->waitForFinished(20000));
        QCOMPARE(third->exitCode(), 0);
        QTRY_VERIFY_WITH_TIMEOUT(box.log().contains("Message from a second start: " + box.path("x.kvpr")), 20000);
        QVERIFY(terminate(next));
    }

    // A killed instance holds its lock and socket until the kernel has freed it, seconds for a big
    // process under load; a stopped one holds them the same way. Bytes written to its socket are
    // taken by the kernel, not by the instance: the start must wait for the lock, not leave.
    void startHandedToAnInstanceThatTakesNothingWaitsForItsLock()
    {
        Sandbox box;
        QProcess *first = box.start();
        QTRY_VERIFY_WITH_TIMEOUT(box.log().contains("OS Info:"), 20000);
        const pid_t holder = pid_t(first->processId());
        ::kill(holder, SIGSTOP);
        const QString file = box.path("later.kvpr");
        QProcess *next = box.start({ file });
        QTest::qWait(1500); // it has reached the socket by now
        ::kill(holder, SIGKILL);
        QVERIFY(first->waitForFinished(10000));
        QTRY_VERIFY_WITH_TIMEOUT(box.log().count("Application started") == 2, 20000);
        QVERIFY(box.log().contains("] Cmd line: " + file));
        QVERIFY(next->state() == QProcess::Running);
        QVERIFY(terminate(next));
    }

    void crashWritesAReportThatTheNextStartOffers()
    {
        Sandbox box;
        QProcess *app = box.start({ "--simulate-crash" });
        QVERIFY(app->waitForFinished(30000));
        QCOMPARE(app->exitStatus(), QProcess::CrashExit);
        const QDir reports(box.dataDir() + "/crashrpt");
        const QStringList files = reports.entryList({ "crash-*.txt" }, QDir::Files);
        QCOMPARE(files.size(), 1);
        QFile f(reports.filePath(files.first()));
        QVERIFY(f.open(QIODevice::ReadOnly));
        const QString report = QString::fromUtf8(f.readAll());
        QVERIFY(report.contains("Version: 1.1.0"));
        QVERIFY(report.contains("Signal: 11 (SIGSEGV)"));
        QVERIFY(report.contains("Backtrace:"));
        QVERIFY2(report.contains("onSimulateCrash"), qPrintable(report));
        QVERIFY(report.contains("Log tail:"));
        QVERIFY(report.contains("Simulating a crash"));

        // The next start asks about it once: the report moves to "seen" when the question is asked.
        QProcess *again = box.start();
        QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(reports.filePath("seen/" + files.first())), 20000);
        QVERIFY(reports.entryList({ "crash-*.txt" }, QDir::Files).isEmpty());
        QTRY_VERIFY_WITH_TIMEOUT(box.log().contains("Found crash reports:"), 20000);
        QVERIFY(terminate(again)); // answers the open question by ending the session
        QVERIFY(box.log().trimmed().endsWith("] Application finished"));
    }

    // Help and version answer and leave at once, also where there is no display at all: a start
    // that went on to open its window would hang there or abort.
    void helpAndVersionPrintAndLeave_data()
    {
        QTest::addColumn<QStringList>("args");
        QTest::addColumn<bool>("display");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("out");
        QTest::addColumn<QString>("err");
        QTest::newRow("--help") << QStringList { "--help" } << false << 0 << "--commlog <file>" << "";
        QTest::newRow("-h after a file") << QStringList { "a.kvpr", "-h" } << false << 0 << "[files...]" << "";
        QTest::newRow("--version") << QStringList { "--version" } << false << 0 << "Kavot 1.1.0 (build " << "";
        QTest::newRow("-v") << QStringList { "-v" } << false << 0 << "Kavot 1.1.0" << "";
        QTest::newRow("unknown option") << QStringList { "--frobnicate" } << true << 1 << ""
                                        << "Unknown option 'frobnicate'";
    }
    void helpAndVersionPrintAndLeave()
    {
        QFETCH(QStringList, args);
        QFETCH(bool, display);
        QFETCH(int, exitCode);
        QFETCH(QString, out);
        QFETCH(QString, err);
        Sandbox box;
        QProcessEnvironment env = box.environment();
        if (!display) {
            for (const char *name : { "QT_QPA_PLATFORM", "DISPLAY", "WAYLAND_DISPLAY" })
                env.remove(QString::fromLatin1(name));
        }
        QProcess p;
        p.setProcessEnvironment(env);
        p.start(Sandbox::executable(), args);
        const bool ended = p.waitForFinished(15000);
        if (!ended)
            p.kill();
        QVERIFY(ended);
        QCOMPARE(p.exitStatus(), QProcess::NormalExit);
        QCOMPARE(p.exitCode(), exitCode);
        const QString stdOut = QString::fromLocal8Bit(p.readAllStandardOutput());
        const QString stdErr = QString::fromLocal8Bit(p.readAllStandardError());
        QVERIFY2(stdOut.contains(out), qPrintable(stdOut));
        QVERIFY2(stdErr.contains(err), qPrintable(stdErr));
        // Nothing was started: no log, and no instance for a later start to hand over to.
        QVERIFY(!QFile::exists(box.logPath()));
    }

    void commandLineArguments_data()
    {
        QTest::addColumn<QStringList>("args");
        QTest::addColumn<QStringList>("files");
        QTest::addColumn<QString>("commLog");
        const QString cwd = QDir::currentPath() + "/";
        QTest::newRow("files made absolute, in order")
            << QStringList { "kavot", "b.kvpr", "/tmp/a.mp4" } << QStringList { cwd + "b.kvpr", "/tmp/a.mp4" } << "";
        QTest::newRow("communication log beside a file")
            << QStringList { "kavot", "--commlog=/tmp/comm.log", "a.kvpr" } << QStringList { cwd + "a.kvpr" }
            << "/tmp/comm.log";
        QTest::newRow("after -- a dash starts a name") << QStringList { "kavot", "--", "-v" }
                                                       << QStringList { cwd + "-v" } << "";
    }
    void commandLineArguments()
    {
        QFETCH(QStringList, args);
        QFETCH(QStringList, files);
        QFETCH(QString, commLog);
        QList<QByteArray> bytes;
        QList<const char *> argv;
        for (const QString &a : args)
            bytes << a.toLocal8Bit();
        for (const QByteArray &b : std::as_const(bytes))
            argv << b.constData();
        QVERIFY(!OVCommandLine::asksForHelpOrVersion(int(argv.size()), argv.constData()));
        const OVCommandLine line(args);
        QCOMPARE(line.outcome(), OVCommandLine::Run);
        QCOMPARE(line.files(), files);
        QCOMPARE(line.commLog(), commLog);
    }

    void workOfASessionEndedFromOutsideIsOfferedAtTheNextStart()
    {
        Sandbox box;
        const QString video = box.path("clip.mp4");
        QProcess ffmpeg;
        ffmpeg.start("ffmpeg", { "-v", "error", "-f", "lavfi", "-i", "testsrc=size=64x48:rate=5", "-t", "2", "-y", video });
        QVERIFY(ffmpeg.waitForFinished(60000) && ffmpeg.exitCode() == 0);
        // A recording opened without a project makes a new one, which only exists in memory.
        QProcess *app = box.start({ video });
        QTRY_VERIFY_WITH_TIMEOUT(box.log().contains("Journal started at"), 20000);
        QVERIFY(terminate(app));
        QVERIFY(box.log().contains("Unsaved changes were written to the recovery copy"));
        QVERIFY(QFile::exists(box.dataDir() + "/journal.kvj"));

        QProcess *again = box.start();
        QTRY_VERIFY_WITH_TIMEOUT(box.log().contains("Unsaved work found:"), 20000);
        QVERIFY(terminate(again)); // the question is answered "no": the work is put aside, not lost
        QVERIFY(box.log().contains("Unsaved work declined; its journal was kept as"));
        QCOMPARE(QDir(box.dataDir()).entryList({ "journal-*.kvj" }).size(), 1);
    }

    // A sound device scan that never ends once kept every start of Kavot from showing a window,
    // and a SIGTERM from being heard.
    void startsPlaysAndEndsWhileTheSoundScanHangs()
    {
        Sandbox box;
        QVERIFY(!makeHangingSoundDevice(box.path(".")).isEmpty()); // the sandbox is the home folder
        box.setEnv("PULSE_SERVER", "unix:" + box.path("no-server"));
        const QString video = box.path("clip.mp4");
        QProcess ffmpeg;
        ffmpeg.start("ffmpeg", { "-v", "error", "-f", "lavfi", "-i", "testsrc=size=64x48:rate=5", "-f", "lavfi", "-i",
                                 "sine", "-t", "2", "-y", video });
        QVERIFY(ffmpeg.waitForFinished(60000) && ffmpeg.exitCode() == 0);

        QProcess *app = box.start({ video });
        QTRY_VERIFY_WITH_TIMEOUT(box.log().contains("Journal started at"), 20000);
        QTRY_VERIFY_WITH_TIMEOUT(box.log().contains("Playing without sound: the sound system did not answer within 10 s."), 30000);
        QVERIFY(terminate(app));
        QVERIFY(box.log().contains("Application finished"));
    }

    void startsDespiteBadSurroundings_data()
    {
        QTest::addColumn<QString>("setup");
        QTest::addColumn<QString>("expected");
        // The expected texts are what the user is told (the window logs every message it shows).
        QTest::newRow("damaged settings") << "settings" << "The settings file was damaged. It was moved aside to";
        QTest::newRow("log file cannot be opened") << "log" << "could not be opened";
        QTest::newRow("data folder cannot be made") << "datadir" << "Kavot cannot write to its data folder";
    }
    void startsDespiteBadSurroundings()
    {
        QFETCH(QString, setup);
        QFETCH(QString, expected);
        Sandbox box;
        if (setup == "settings") {
            QDir().mkpath(box.dataDir());
            QFile f(box.dataDir() + "/settings.ini");
            QVERIFY(f.open(QIODevice::WriteOnly));
            f.write(QByteArray("\x00\xff[[[\n=\n\x01\x02", 10));
        } else if (setup == "log") {
            QVERIFY(QDir().mkpath(box.logPath())); // a folder where the file should be
        } else if (setup == "datadir") {
            QFile blocker(box.path("blocker"));
            QVERIFY(blocker.open(QIODevice::WriteOnly));
            box.setDataHome(box.path("blocker"));
        }
        QProcess *app = box.start();
        app->setReadChannel(QProcess::StandardError);
        QString err;
        // Where the log file is unusable the lines go to standard error instead.
        auto seen = [&]() -> QString {
            err += QString::fromLocal8Bit(app->readAllStandardError());
            return box.log() + err;
        };
        QTRY_VERIFY_WITH_TIMEOUT(seen().contains(expected), 20000);
        QTRY_VERIFY_WITH_TIMEOUT(seen().contains("OS Info:"), 20000);
        QVERIFY(app->state() == QProcess::Running);
        QVERIFY(terminate(app));
        QVERIFY(seen().contains("Application finished"));
    }
};

QTEST_GUILESS_MAIN(TestStartup)
#include "tst_startup.moc"
