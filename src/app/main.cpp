#include "app/kvmainwindow.h"
#include "app/nxcrashreporter.h"
#include "app/ovapplication.h"
#include "app/ovcommandline.h"
#include "app/ovterminationwatcher.h"
#include "kavotversion.h"
#include "log/nxlog.h"
#include "settings/ovsettings.h"

#include <QDialog>
#include <QDir>
#include <QMessageBox>
#include <QStandardPaths>
#include <QSysInfo>
#include <QTimer>

namespace {

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
        const bool sent = app.sendMessages(files.isEmpty() ? QStringList { QString() } : files);
        return sent ? 0 : 1;
    }

    const QString dataDir = QStandardPaths::writableLocation(QStandardPaths::AppDataLocation);
    const bool dataDirOk = QDir().mkpath(dataDir);

    // 2. The log, and the start-up lines.
    NXLog::install(dataDir, QStringLiteral("main"), NXLog::DefaultSizeLimit);
    qDebug().noquote() << QStringLiteral("Application started   Version: %1  Build_number: %2  Revision: %3")
                              .arg(QStringLiteral(KAVOT_VERSION))
                              .arg(KAVOT_BUILD_NUMBER)
                              .arg(QStringLiteral(KAVOT_REVISION));
    qDebug().noquote() << "Cmd line:" << arguments.mid(1).join(QLatin1Char(' '));
    qDebug().noquote() << "Application file: " + QCoreApplication::applicationFilePath();
    qDebug().noquote() << "OS Info:\n" + osInfo();
    const QString commLog = commandLine.commLog();
    if (!commLog.isEmpty())
        qDebug().noquote() << "Communication log:" << commLog;

    // 3. The data folder and the settings.
    if (!dataDirOk)
        qWarning().noquote() << "Data folder cannot be made:" << dataDir;
    OVSettings settings;
    settings.open(dataDir + QStringLiteral("/settings.ini"));

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
        qWarning().noquote() << message;
        QMessageBox::warning(nullptr, QStringLiteral("Kavot"), message);
    }

    int exitCode = 0;
    if (!terminated) {
        // 5. The main window.
        KVMainWindow window(&settings);
        QObject::connect(&app, &OVApplication::messageReceived, &window, &KVMainWindow::onSingleInstanceMessage);
        // A session that ends without asking must not lose unsaved coding.
        QObject::connect(&termination, &OVTerminationWatcher::terminationRequested, &window,
                         &KVMainWindow::saveRecoveryCopy);
        window.showMaximized();
        for (const QString &file : files)
            QTimer::singleShot(0, &window, [&window, file] { window.openFile(file); });
        if (!oldReports.isEmpty())
            QTimer::singleShot(0, &window, [&window, crashFolder] { window.checkForCrashReports(crashFolder); });
        if (commandLine.simulateCrash())
            QTimer::singleShot(0, &window, &KVMainWindow::onSimulateCrash);

        // 6. The event loop.
        exitCode = app.exec();
        settings.saveNow();
    }
    qDebug() << "Application finished";
    NXLog::uninstall();
    return exitCode;
}
