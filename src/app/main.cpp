#include "app/kvmainwindow.h"
#include "app/nxcrashreporter.h"
#include "app/ovapplication.h"
#include "app/ovapplogging.h"
#include "app/ovcommandline.h"
#include "app/ovterminationwatcher.h"
#include "kavotversion.h"
#include "log/nxlog.h"
#include "media/ovaudiosystem.h"
#include "settings/ovsettings.h"

#include <QDateTime>
#include <QDialog>
#include <QFile>
#include <QFileInfo>
#include <QDir>
#include <QMessageBox>
#include <QStandardPaths>
#include <QSysInfo>
#include <QTimer>

#include <cstdio>
#include <cstdlib>

namespace {

// How long a start waits for the lock of an instance that took nothing it was handed.
constexpr int TakeOverWaitMs = 10000;
// How long the end waits for a sound device scan that is still running.
constexpr int ScanEndWaitMs = 3000;

QString osInfo()
{
    return QStringLiteral("%1 (%2), kernel %3 %4, %5")
        .arg(QSysInfo::prettyProductName(), QSysInfo::productVersion(), QSysInfo::kernelType(),
             QSysInfo::kernelVersion(), QSysInfo::currentCpuArchitecture());
}

void setNameAndVersion()
{
    QCoreApplication::setApplicationName(QStringLiteral("Kavot"));
    QCoreApplication::setApplicationVersion(QStringLiteral(KAVOT_VERSION));
}

} // namespace

int main(int argc, char *argv[])
{
    // Help and version are answered before any window exists: a terminal without a display
    // must get them too, and they must not reach a running instance.
    if (OVCommandLine::asksForHelpOrVersion(argc, argv)) {
        QCoreApplication core(argc, argv);
        setNameAndVersion();
        return OVCommandLine(core.arguments()).printAndExitCode();
    }
    OVApplication app(argc, argv);
    // 1. Name and version.
    setNameAndVersion();

    const QStringList arguments = app.arguments();
    // Parsed after the application object has taken Qt's own options (-platform, -style) out.
    const OVCommandLine commandLine(arguments);
    if (commandLine.outcome() != OVCommandLine::Run)
        return commandLine.printAndExitCode();
    const QStringList files = commandLine.files();
    // A second start hands its files to the running instance and leaves; it writes no log of
    // its own so the running instance's log is never trimmed under it.
    if (!app.claimSingleInstance()) {
        if (app.sendMessages(files.isEmpty() ? QStringList { QString() } : files))
            return 0;
        // Nobody took them: the holder was killed and the kernel is still freeing it, or it hangs.
        // A freed lock is taken at once; leaving now would drop the user's start on the floor.
        if (!app.claimSingleInstance(TakeOverWaitMs)) {
            const qint64 holder = app.lockHolder();
            const QString message = QCoreApplication::translate("main", "Kavot is already running (process %1), but it "
                                                                        "does not respond.\n\nWait until it responds or "
                                                                        "end it, then start Kavot again.")
                                        .arg(holder);
            qCWarning(lcApp).noquote() << message;
            QMessageBox::warning(nullptr, QStringLiteral("Kavot"), message);
            return 1;
        }
    }

    const QString dataDir = QStandardPaths::writableLocation(QStandardPaths::AppDataLocation);
    const bool dataDirOk = QDir().mkpath(dataDir);

    // 2. The log, and the start-up lines.
    NXLog::install(dataDir, QStringLiteral("main"), NXLog::DefaultSizeLimit);
    qCInfo(lcApp).noquote() << QStringLiteral("Application started   Version: %1  Build_number: %2  Revision: %3")
                              .arg(QStringLiteral(KAVOT_VERSION))
                              .arg(KAVOT_BUILD_NUMBER)
                              .arg(QStringLiteral(KAVOT_REVISION));
    qCInfo(lcApp).noquote() << "Cmd line:" << arguments.mid(1).join(QLatin1Char(' '));
    qCInfo(lcApp).noquote() << "Application file: " + QCoreApplication::applicationFilePath();
    qCInfo(lcApp).noquote() << "OS Info:\n" + osInfo();
    const QString commLog = commandLine.commLog();
    if (!commLog.isEmpty())
        qCInfo(lcApp).noquote() << "Communication log:" << commLog;

    // 3. The data folder and the settings. What goes wrong here is told once the window is up.
    QStringList problems;
    if (!dataDirOk)
        qCWarning(lcApp).noquote() << "Data folder cannot be made:" << dataDir;
    QString dataDirProblem;
    if (!dataDirOk || !QFileInfo(dataDir).isWritable())
        dataDirProblem = QCoreApplication::translate("main", "Kavot cannot write to its data folder:\n%1\n\nSettings, the log, "
                                                             "the record of unsaved changes and the backups of earlier "
                                                             "versions cannot be kept there. Coding works as usual, but "
                                                             "work that is not saved to a project file is lost when Kavot "
                                                             "ends: save often.")
                             .arg(QDir::toNativeSeparators(dataDir));
    OVSettings settings;
    if (!settings.open(dataDir + QStringLiteral("/settings.ini")) && dataDirOk) {
        problems << (settings.movedAsidePath().isEmpty()
                         ? QCoreApplication::translate("main", "The settings could not be read:\n%1\n\nKavot starts with "
                                                               "the default settings.").arg(settings.lastError())
                         : QCoreApplication::translate("main", "The settings file was damaged. It was moved aside to\n%1\n"
                                                               "and Kavot starts with the default settings.")
                               .arg(QDir::toNativeSeparators(settings.movedAsidePath())));
    }

    // A marker that only a session that ends by itself removes: found at start, the last one was
    // killed or crashed.
    const QString sessionMarker = dataDir + QStringLiteral("/session.run");
    const bool uncleanEnd = QFileInfo::exists(sessionMarker);
    if (uncleanEnd)
        qCWarning(lcApp).noquote() << "The previous session did not end normally";
    {
        QFile marker(sessionMarker);
        if (marker.open(QIODevice::WriteOnly | QIODevice::Truncate))
            marker.write(QStringLiteral("%1 %2\n").arg(QCoreApplication::applicationPid())
                             .arg(QDateTime::currentDateTime().toString(Qt::ISODate)).toUtf8());
    }

    OVTerminationWatcher termination;
    bool terminated = false;
    QObject::connect(&termination, &OVTerminationWatcher::terminationRequested, &app, [&terminated, &app] {
        terminated = true;
        // A question on screen runs an event loop of its own, and one asked before the main loop
        // starts would outlive quit(): answer it "no" so the session can end.
        for (int guard = 0; guard < 16; ++guard) {
            QWidget *modal = QApplication::activeModalWidget();
            if (!modal)
                break;
            if (auto *dialog = qobject_cast<QDialog *>(modal))
                dialog->reject();
            else
                modal->close();
            modal->hide();
        }
        // exit(), not quit(): Qt 6's quit() first asks every window to close, which would ask
        // about unsaved changes and repaint the player mid-teardown. The window is torn down
        // after exec() returns instead.
        app.exit(0);
    });

    // 4. The crash reporter.
    const QString crashFolder = dataDir + QStringLiteral("/crashrpt");
    const QStringList oldReports = NXCrashReporter::pendingReports(crashFolder);
    if (!NXCrashReporter::install(crashFolder, NXLog::logFilePath())) {
        const QString message = QStringLiteral("Failed to init crash reporting\nReason:\n\t") + NXCrashReporter::lastError();
        qCWarning(lcApp).noquote() << message;
        // Shown with the other start-up problems once the window is up, not as a window of its own
        // before it.
        problems << message;
    }

    int exitCode = 0;
    if (!terminated) {
        // 5. The main window.
        KVMainWindow window(&settings);
        window.setDataFolder(dataDir);
        QObject::connect(&app, &OVApplication::messageReceived, &window, &KVMainWindow::onSingleInstanceMessage);
        // The data folder's message already says that settings cannot be kept.
        bool settingsProblemShown = !dataDirProblem.isEmpty();
        QObject::connect(&settings, &OVSettings::saveFailed, &window, [&window, &settingsProblemShown, &terminated](const QString &message) {
            if (terminated || std::exchange(settingsProblemShown, true))
                return;
            window.notifyProblem(QStringLiteral("Kavot"), message + QCoreApplication::translate("main",
                "\n\nChanged settings are used in this session but will be lost when Kavot ends."));
        });
        // A session that ends without asking must not lose unsaved coding.
        QObject::connect(&termination, &OVTerminationWatcher::terminationRequested, &window,
                         &KVMainWindow::saveRecoveryCopy);
        window.showMaximized();
        // One after the other: each may ask a question, and the files must not open before the
        // unsaved work of the last session was offered back.
        // A session ended meanwhile asks nothing more: a question opened after exit() would keep it.
        QTimer::singleShot(0, &window, [&window, &terminated, uncleanEnd, dataDirProblem, problems, files, oldReports, crashFolder] {
            if (!terminated)
                window.offerUnsavedWork(uncleanEnd);
            if (!dataDirProblem.isEmpty() && !terminated)
                window.notifyDataFolderProblem(dataDirProblem);
            for (const QString &problem : problems) {
                if (!terminated)
                    window.notifyProblem(QStringLiteral("Kavot"), problem);
            }
            window.openStartupFiles(files, [&terminated] { return terminated; });
            if (!oldReports.isEmpty() && !terminated)
                window.checkForCrashReports(crashFolder);
        });
        if (commandLine.simulateCrash())
            QTimer::singleShot(0, &window, &KVMainWindow::onSimulateCrash);

        // 6. The event loop.
        exitCode = app.exec();
        settings.saveNow();
    }
    QFile::remove(sessionMarker);
    // A sound device scan still running races the sound libraries' teardown at exit (seen as an
    // abort inside GLib's type system when Kavot was ended within a second of its start). It is
    // given a moment; one that hangs is left behind by ending without any teardown, everything
    // of ours being saved and closed by now.
    const bool scanEnded = OVAudioSystem::waitForScanToEnd(ScanEndWaitMs);
    if (!scanEnded)
        qCWarning(lcApp) << "The sound device scan has not ended; Kavot ends without waiting for it";
    qCInfo(lcApp) << "Application finished";
    NXLog::uninstall();
    if (!scanEnded) {
        app.releaseSingleInstance();
        std::fflush(nullptr);
        std::_Exit(exitCode);
    }
    return exitCode;
}
