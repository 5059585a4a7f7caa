#include "app/kvmainwindow.h"

#include "analysis/ovcodingsnapshot.h"
#include "app/nxcrashreporter.h"
#include "app/ovanalysisdlg.h"
#include "app/ovanalysisexports.h"
#include "app/ovactionregistry.h"
#include "app/ovplayerpanel.h"
#include "app/ovprojectdetailsdlg.h"
#include "app/ovsendreportdlg.h"
#include "app/ovsettingsdlg.h"
#include "kavotversion.h"
#include "log/nxlog.h"
#include "log/nxlogwidget.h"
#include "project/label.h"
#include "project/ovjsonserializer.h"
#include "project/ovlocalfilestorage.h"
#include "project/ovreadbudget.h"
#include "project/project.h"
#include "project/state.h"
#include "project/timeline.h"
#include "project/timelinegroup.h"
#include "settings/ovkeyboardsettings.h"
#include "settings/ovlabelingsettings.h"
#include "timeline/ovtimelinecontrol.h"
#include "settings/ovrecentprojects.h"
#include "settings/ovsettings.h"
#include "settings/ovuserinfosettings.h"
#include "settings/ovuisettings.h"
#include "widgets/ovbackgroundtask.h"

#include <QAction>
#include <QApplication>
#include <QCloseEvent>
#include <QDesktopServices>
#include <QDir>
#include <QDockWidget>
#include <QFileDialog>
#include <QDateTime>
#include <QFileInfo>
#include <QLabel>
#include <QMenuBar>
#include <QPushButton>
#include <QSplitter>
#include <QStackedWidget>
#include <QStatusBar>
#include <QStandardPaths>
#include <QThread>
#include <QTimer>
#include <QUndoStack>
#include <QUrl>

namespace {
const char *kStyleSheet = "KVMainWindow { background-color: black; }"
                          "QSplitter::handle:horizontal { background-color: rgb(89, 89, 89); }"
                          "QSplitter::handle:vertical { background-color: rgb(89, 89, 89); }";
}

KVMainWindow::KVMainWindow(OVSettings *settings, QWidget *parent)
    : QMainWindow(parent), m_settings(settings), m_actions(new OVActionRegistry(this))
{
    setObjectName(QStringLiteral("KVMainWindow"));
    setStyleSheet(QString::fromLatin1(kStyleSheet));
    resize(1280, 800);

    m_mainSplitter = new QSplitter(Qt::Vertical, this);
    m_mainSplitter->setObjectName(QStringLiteral("sp_main"));
    m_mainSplitter->setHandleWidth(4);
    m_playerStack = new QStackedWidget(m_mainSplitter);
    m_playerStack->setMinimumHeight(200);
    m_playerArea = new QLabel(m_playerStack);
    m_playerArea->setObjectName(QStringLiteral("lb_player"));
    m_playerArea->setAlignment(Qt::AlignCenter);
    m_playerArea->setStyleSheet(QStringLiteral("background-color: black; color: rgb(160, 160, 160);"));
    m_player = new OVPlayerPanel(m_playerStack);
    m_player->setObjectName(QStringLiteral("playerPanel"));
    m_playerStack->addWidget(m_playerArea);
    m_playerStack->addWidget(m_player);
    connect(m_player, &OVPlayerPanel::initFinished, this, [this](int code, const QString &message) {
        m_playerMessage = message;
        onPlayerInitFinished(code);
    });
    connect(m_player, &OVPlayerPanel::durationKnown, this, [this](double seconds) {
        // The container's length and the player's differ by a few milliseconds; only a new or
        // replaced recording changes the project (and its modified mark).
        if (m_project && seconds > 0
            && (m_project->videoLength() <= 0 || qAbs(m_project->videoLength() - seconds) > 0.5))
            m_project->setVideoLength(seconds);
    });
    connect(m_player, &OVPlayerPanel::fileDropped, this, &KVMainWindow::onFileDroppedToPlayer);
    if (m_settings) {
        m_player->setVolume(m_settings->ui()->playbackVolume());
        connect(m_player, &OVPlayerPanel::volumeChanged, m_settings->ui(), &OVUISettings::setPlaybackVolume);
    }
    m_timeline = new OVTimelineControl(m_settings ? m_settings->labeling() : nullptr, m_mainSplitter);
    m_timeline->setObjectName(QStringLiteral("timelineControl"));
    m_timeline->setMinimumHeight(160);
    // The window is black; the control's own captions need their usual background to be read.
    m_timeline->setAutoFillBackground(true);
    connect(m_timeline, &OVTimelineControl::seekRequested, this, &KVMainWindow::onSeekRequested);
    connect(m_timeline->undoStack(), &QUndoStack::indexChanged, this, &KVMainWindow::onProjectHistoryChanged);
    m_mainSplitter->addWidget(m_playerStack);
    m_mainSplitter->addWidget(m_timeline);
    m_mainSplitter->setStretchFactor(0, 3);
    m_mainSplitter->setStretchFactor(1, 2);
    setCentralWidget(m_mainSplitter);

    m_logDock = new QDockWidget(tr("Log"), this);
    m_logDock->setObjectName(QStringLiteral("dw_log"));
    m_logWidget = new NXLogWidget(m_logDock);
    m_logDock->setWidget(m_logWidget);
    addDockWidget(Qt::BottomDockWidgetArea, m_logDock);
    m_logDock->hide();

    createActions();
    createMenus();
    if (m_settings) {
        connect(m_settings->keyboard(), &OVSettingsGroup::changed, this, &KVMainWindow::updateActionsShortcuts);
        connect(m_settings->recentProjects(), &OVSettingsGroup::changed, this, &KVMainWindow::updateRecentProjectsMenu);
    }
    updateActionsShortcuts();
    updateRecentProjectsMenu();
    updateProjectActions();
    updateProjectSummary();
    updateWindowTitle();
}

KVMainWindow::~KVMainWindow()
{
    // Children (the timeline and its undo history) die after this body, while signals still reach
    // us: cut them off before the actions they update are gone.
    disconnect(m_timeline->undoStack(), nullptr, this, nullptr);
    m_timeline->setProject(nullptr);
    delete m_project;
}

QString KVMainWindow::currentUser() const
{
    if (m_settings && !m_settings->userInfo()->username().isEmpty())
        return m_settings->userInfo()->username();
    QString user = qEnvironmentVariable("USER");
    if (user.isEmpty())
        user = qEnvironmentVariable("USERNAME");
    return user.isEmpty() ? QStringLiteral("user") : user;
}

void KVMainWindow::createActions()
{
    using R = OVActionRegistry;
    connect(m_actions->action(R::NewProject), &QAction::triggered, this, &KVMainWindow::onNewProject);
    connect(m_actions->action(R::OpenProject), &QAction::triggered, this, &KVMainWindow::onOpenProject);
    connect(m_actions->action(R::SaveProject), &QAction::triggered, this, &KVMainWindow::onSaveProject);
    connect(m_actions->action(R::SaveProjectAs), &QAction::triggered, this, &KVMainWindow::onSaveProjectAs);
    connect(m_actions->action(R::CloseProject), &QAction::triggered, this, qOverload<>(&KVMainWindow::onCloseProject));
    connect(m_actions->action(R::ProjectDetails), &QAction::triggered, this, &KVMainWindow::onShowProjectDetails);
    connect(m_actions->action(R::OpenBackupFolder), &QAction::triggered, this, &KVMainWindow::openBackupFolder);
    connect(m_actions->action(R::CloseApplication), &QAction::triggered, this, &QWidget::close);
    connect(m_actions->action(R::Undo), &QAction::triggered, this, &KVMainWindow::undo);
    connect(m_actions->action(R::Redo), &QAction::triggered, this, &KVMainWindow::redo);
    connect(m_actions->action(R::Settings), &QAction::triggered, this, &KVMainWindow::showSettings);
    connect(m_actions->action(R::OpenVideo), &QAction::triggered, this, &KVMainWindow::onOpenVideoTriggered);
    connect(m_actions->action(R::RemoveVideo), &QAction::triggered, this, &KVMainWindow::onRemoveVideo);
    connect(m_actions->action(R::TogglePlayback), &QAction::triggered, m_player, &OVPlayerPanel::togglePlayback);
    connect(m_actions->action(R::SeekForward), &QAction::triggered, m_player, &OVPlayerPanel::seekForward);
    connect(m_actions->action(R::SeekBackward), &QAction::triggered, m_player, &OVPlayerPanel::seekBackward);
    connect(m_actions->action(R::SpeedUp), &QAction::triggered, m_player, &OVPlayerPanel::speedUp);
    connect(m_actions->action(R::SpeedDown), &QAction::triggered, m_player, &OVPlayerPanel::speedDown);
    connect(m_actions->action(R::VolumeUp), &QAction::triggered, m_player, &OVPlayerPanel::volumeUp);
    connect(m_actions->action(R::VolumeDown), &QAction::triggered, m_player, &OVPlayerPanel::volumeDown);
    connect(m_actions->action(R::AddLabel), &QAction::triggered, m_timeline, &OVTimelineControl::onAddLabelClicked);
    connect(m_actions->action(R::ImportLabels), &QAction::triggered, m_timeline, &OVTimelineControl::onLoadClicked);
    connect(m_actions->action(R::ExportLabels), &QAction::triggered, m_timeline, &OVTimelineControl::onSaveClicked);
    connect(m_actions->action(R::ClearTimeline), &QAction::triggered, m_timeline, &OVTimelineControl::clearAll);
    connect(m_actions->action(R::About), &QAction::triggered, this, &KVMainWindow::showAbout);
    connect(m_actions->action(R::ReportProblem), &QAction::triggered, this,
            qOverload<>(&KVMainWindow::showSendReportDialog));
    connect(m_actions->action(R::SimulateCrash), &QAction::triggered, this, &KVMainWindow::onSimulateCrash);
    connect(m_actions->action(R::ExportRawData), &QAction::triggered, this, &KVMainWindow::onExportRawDataTriggered);
    connect(m_actions->action(R::MultiProjectWorkshop), &QAction::triggered, this,
        &KVMainWindow::onMultiProjectWorkshopTriggered);
    m_actions->action(R::Fullscreen)->setCheckable(true);
    connect(m_actions->action(R::Fullscreen), &QAction::toggled, this, [this](bool on) {
        on ? showFullScreen() : showMaximized();
    });

    m_showLogAction = new QAction(tr("Show Log"), this);
    m_showLogAction->setObjectName(QStringLiteral("actionShowLog"));
    m_showLogAction->setCheckable(true);
    connect(m_showLogAction, &QAction::toggled, this, &KVMainWindow::onShowLogToggled);
    connect(m_logDock, &QDockWidget::visibilityChanged, m_showLogAction, [this](bool visible) {
        if (!isMinimized())
            m_showLogAction->setChecked(visible);
    });
}

void KVMainWindow::createMenus()
{
    using R = OVActionRegistry;
    QMenu *file = menuBar()->addMenu(tr("&File"));
    file->addAction(m_actions->action(R::NewProject));
    file->addAction(m_actions->action(R::OpenProject));
    m_recentMenu = file->addMenu(tr("Recent Projects"));
    m_recentMenu->setObjectName(QStringLiteral("menuRecentProjects"));
    file->addAction(m_actions->action(R::SaveProject));
    file->addAction(m_actions->action(R::SaveProjectAs));
    file->addAction(m_actions->action(R::CloseProject));
    file->addSeparator();
    file->addAction(m_actions->action(R::ProjectDetails));
    file->addAction(m_actions->action(R::OpenBackupFolder));
    file->addSeparator();
    file->addAction(m_actions->action(R::Settings));
    file->addSeparator();
    file->addAction(m_actions->action(R::CloseApplication));

    QMenu *edit = menuBar()->addMenu(tr("&Edit"));
    edit->addAction(m_actions->action(R::Undo));
    edit->addAction(m_actions->action(R::Redo));

    QMenu *playback = menuBar()->addMenu(tr("&Playback"));
    playback->addAction(m_actions->action(R::OpenVideo));
    playback->addAction(m_actions->action(R::RemoveVideo));
    playback->addSeparator();
    for (int id : { R::TogglePlayback, R::SeekForward, R::SeekBackward, R::SpeedUp, R::SpeedDown, R::VolumeUp,
                    R::VolumeDown })
        playback->addAction(m_actions->action(id));

    QMenu *timeline = menuBar()->addMenu(tr("&Timeline"));
    timeline->addAction(m_actions->action(R::AddLabel));
    timeline->addAction(m_actions->action(R::ImportLabels));
    timeline->addAction(m_actions->action(R::ExportLabels));
    timeline->addSeparator();
    timeline->addAction(m_actions->action(R::ClearTimeline));

    QMenu *view = menuBar()->addMenu(tr("&View"));
    view->addAction(m_actions->action(R::Fullscreen));
    view->addAction(m_showLogAction);

    QMenu *analysis = menuBar()->addMenu(tr("&Analysis"));
    m_statsAction = analysis->addAction(tr("Statistics and Agreement..."), this, &KVMainWindow::onExportStatsTriggered);
    analysis->addAction(m_actions->action(R::ExportRawData));
    analysis->addSeparator();
    analysis->addAction(m_actions->action(R::MultiProjectWorkshop));

    QMenu *help = menuBar()->addMenu(tr("&Help"));
    help->addAction(m_actions->action(R::About));
    help->addAction(m_actions->action(R::ReportProblem));
    help->addSeparator();
    help->addAction(m_actions->action(R::SimulateCrash));
}

// ---- project ---------------------------------------------------------------------------------

void KVMainWindow::setProject(OVProject::Project *project, const QString &path)
{
    if (m_project) {
        m_player->closeMedia();
        m_player->setState(nullptr);
        m_playerStack->setCurrentWidget(m_playerArea);
        m_timeline->setProject(nullptr);
        delete m_project;
        m_project = nullptr;
        Q_EMIT projectClosed();
    }
    m_project = project;
    m_projectPath = path;
    // The timeline starts a new undo history with every project.
    m_timeline->setProject(m_project);
    // Once laid out, show the whole recording.
    QTimer::singleShot(0, m_timeline, &OVTimelineControl::zoomTimelineToFit);
    if (m_project) {
        m_project->setParent(nullptr);
        connect(m_project, &OVProject::Project::changed, this, &KVMainWindow::onProjectDataChanged);
        connect(m_project, &OVProject::Project::projectTypeChanged, this, &KVMainWindow::onProjectTypeChanged);
        connect(m_project->timelineGroup(), &OVProject::TimelineGroup::changed, this, &KVMainWindow::onChangeDetected);
        m_player->setState(m_project->state());
        Q_EMIT projectOpened();
    }
    setModified(false);
    updateProjectActions();
    updateProjectSummary();
    updateWindowTitle();
}

void KVMainWindow::onNewProject()
{
    if (!onCloseProject(true))
        return;
    delete m_storage;
    m_storage = nullptr;
    auto *project = new OVProject::Project;
    const QString user = currentUser();
    project->startNew(user);
    project->state()->setActiveUser(user);
    project->state()->setDisplayedTimelineUsers({ user });
    project->setOfflineUser(user);
    project->setOwner(user);
    qDebug().noquote() << "New project" << project->id() << "for user" << user;
    setProject(project, QString());
    // A new project exists only in memory until it is saved.
    setModified(true);
}

void KVMainWindow::onOpenProject()
{
    const QString path = chooseOpenPath();
    if (!path.isEmpty())
        loadProject(path);
}

bool KVMainWindow::confirmDiscardChanges()
{
    if (!m_project || !m_modified)
        return true;
    switch (askUnsavedChanges()) {
    case QMessageBox::Save:
        return onSaveProject();
    case QMessageBox::Discard:
        return true;
    default:
        return false;
    }
}

bool KVMainWindow::loadProject(const QString &path)
{
    if (!confirmDiscardChanges())
        return false;
    // Read on a worker into a fresh project: a file that fails to load, or a load the user
    // cancels, leaves the open project as it was.
    OVReadBudget budget(QFileInfo(path).size());
    std::shared_ptr<OVLocalFileStorage::ReadResult> read;
    QThread *home = thread();
    OVBackgroundTask::run(
        this, tr("Open Project"), tr("Loading %1...").arg(QFileInfo(path).fileName()),
        [&](const OVBackgroundTask::Progress &progress) {
            budget.setProgressCallback(progress);
            read = OVLocalFileStorage::read(path, &budget, home);
        },
        [&budget] { budget.cancel(); });
    auto *storage = new OVLocalFileStorage(QString(), this);
    auto *project = new OVProject::Project;
    const OV::Error error = storage->adopt(read, project);
    if (!error.isOk()) {
        qWarning().noquote() << "Loading" << path << "failed with code" << error.code();
        delete project;
        delete storage;
        if (error.code() == OVJsonSerializer::Cancelled)
            return false;
        if (showLoadError(tr("Open Project"), error.message()))
            openBackupFolderOf(path);
        if (m_settings && error.code() == OVLocalFileStorage::FileUnreadable && !QFileInfo::exists(path))
            m_settings->recentProjects()->removeProject(path);
        return false;
    }
    qDebug().noquote() << "Project loaded from" << path;
    delete m_storage;
    m_storage = storage;
    setProject(project, QFileInfo(path).absoluteFilePath());
    ensureUserTimeline();
    if (m_settings)
        m_settings->recentProjects()->addProject(m_projectPath);
    const QString video = m_project->videoPath();
    if (!video.isEmpty()) {
        if (QFileInfo::exists(video)) {
            m_playerStack->setCurrentWidget(m_player);
            m_player->openMedia(video);
        } else
            showError(tr("Open Project"), tr("The project's video or audio file was not found:\n%1").arg(video));
    }
    return true;
}

void KVMainWindow::ensureUserTimeline()
{
    if (!m_project)
        return;
    const QString user = currentUser();
    OVProject::Timeline *mine = nullptr;
    for (OVProject::Timeline *timeline : m_project->timelineGroup()->timelines()) {
        if (timeline->owner() == user) {
            mine = timeline;
            break;
        }
    }
    if (!mine) {
        // Every coder codes in a timeline of their own.
        mine = m_project->createTimeline(user);
        qDebug().noquote() << "Timeline" << mine->id() << "made for user" << user;
    }
    m_project->state()->setActiveUser(user);
    QStringList shown = m_project->state()->displayedTimelineUsers();
    if (!shown.contains(user)) {
        shown << user;
        m_project->state()->setDisplayedTimelineUsers(shown);
    }
    updateProjectSummary();
}

bool KVMainWindow::onSaveProject()
{
    if (!m_project)
        return false;
    if (m_projectPath.isEmpty())
        return onSaveProjectAs();
    if (!m_storage)
        m_storage = new OVLocalFileStorage(QString(), this);
    const OV::Error error = m_storage->save(m_projectPath, m_project);
    if (!error.isOk()) {
        showError(tr("Save Project"), error.message());
        return false;
    }
    qDebug().noquote() << "Project saved to" << m_projectPath;
    setModified(false);
    if (m_settings)
        m_settings->recentProjects()->addProject(m_projectPath);
    return true;
}

bool KVMainWindow::onSaveProjectAs()
{
    if (!m_project)
        return false;
    QString path = chooseSavePath();
    if (path.isEmpty())
        return false;
    if (!path.endsWith(QStringLiteral(".kvpr"), Qt::CaseInsensitive))
        path += QStringLiteral(".kvpr");
    const QString previous = m_projectPath;
    m_projectPath = QFileInfo(path).absoluteFilePath();
    if (!onSaveProject()) {
        m_projectPath = previous;
        return false;
    }
    updateWindowTitle();
    return true;
}

QString KVMainWindow::saveRecoveryCopy()
{
    if (!m_project || !m_modified)
        return QString();
    const QString folder = m_projectPath.isEmpty() ? OVLocalFileStorage::backupFolder()
                                                   : OVLocalFileStorage::backupFolder(m_projectPath);
    QDir().mkpath(folder);
    const QString base = m_projectPath.isEmpty() ? QStringLiteral("untitled") : QFileInfo(m_projectPath).completeBaseName();
    const QString path = folder + QStringLiteral("/%1-unsaved-%2.kvpr")
                                      .arg(base, QDateTime::currentDateTime().toString(QStringLiteral("yyyyMMdd-hhmmss")));
    OVLocalFileStorage storage;
    const OV::Error error = storage.save(path, m_project);
    if (!error.isOk()) {
        qWarning().noquote() << "Recovery copy could not be written to" << path << ":" << error.message();
        return QString();
    }
    qWarning().noquote() << "Unsaved changes were written to the recovery copy" << path;
    return path;
}

void KVMainWindow::onCloseProject()
{
    onCloseProject(true);
}

bool KVMainWindow::onCloseProject(bool checkForSavedChanges)
{
    if (!m_project)
        return true;
    if (checkForSavedChanges && !confirmDiscardChanges())
        return false;
    qDebug().noquote() << "Project closed" << m_projectPath;
    setProject(nullptr, QString());
    delete m_storage;
    m_storage = nullptr;
    return true;
}

void KVMainWindow::onShowProjectDetails()
{
    if (!m_project)
        return;
    OVProjectDetailsDlg dlg(m_project, this);
    dlg.exec();
}

void KVMainWindow::onRecentProjectClicked()
{
    auto *action = qobject_cast<QAction *>(sender());
    if (action)
        openFile(action->data().toString());
}

void KVMainWindow::onProjectDataChanged()
{
    onChangeDetected();
    // The header's title shows in the window title.
    updateWindowTitle();
}

void KVMainWindow::onProjectTypeChanged()
{
    onChangeDetected();
}

void KVMainWindow::onChangeDetected()
{
    // Called on every coded key press: only the first change since a save has anything to update.
    if (!m_modified)
        setModified(true);
}

void KVMainWindow::openBackupFolder() { openBackupFolderOf(m_projectPath); }

void KVMainWindow::openBackupFolderOf(const QString &projectPath)
{
    const QString folder
        = projectPath.isEmpty() ? OVLocalFileStorage::backupFolder() : OVLocalFileStorage::backupFolder(projectPath);
    QDir().mkpath(folder);
    QDesktopServices::openUrl(QUrl::fromLocalFile(folder));
}

void KVMainWindow::setModified(bool modified)
{
    m_modified = modified;
    setWindowModified(modified);
    updateWindowTitle();
}

void KVMainWindow::updateWindowTitle()
{
    QString name;
    if (m_project) {
        name = m_project->title();
        if (name.isEmpty())
            name = m_projectPath.isEmpty() ? tr("Untitled Project") : QFileInfo(m_projectPath).completeBaseName();
    }
    // "[*]" is where Qt shows the modified mark.
    setWindowTitle(name.isEmpty() ? QStringLiteral("Kavot") : name + QStringLiteral("[*] - Kavot"));
}

void KVMainWindow::updateProjectActions()
{
    using R = OVActionRegistry;
    const bool open = m_project != nullptr;
    m_actions->action(R::CloseProject)->setEnabled(open);
    m_actions->action(R::ProjectDetails)->setEnabled(open);
    m_actions->action(R::SaveProject)->setEnabled(open);
    m_actions->action(R::SaveProjectAs)->setEnabled(open);
    if (m_statsAction)
        m_statsAction->setEnabled(open);
    for (int id : { R::AddLabel, R::ImportLabels, R::ExportLabels, R::ClearTimeline, R::ExportRawData })
        m_actions->action(id)->setEnabled(open);
    m_actions->action(R::RemoveVideo)->setEnabled(open && !m_project->videoPath().isEmpty());
    onProjectHistoryChanged();
}

void KVMainWindow::updateProjectSummary()
{
    if (!m_project)
        m_playerArea->setText(tr("No project is open.\nFile > New Project starts one."));
    else
        m_playerArea->setText(tr("No video or audio in this project yet.\nPlayback > Open Video or Audio adds one."));
}

void KVMainWindow::updateRecentProjectsMenu()
{
    if (!m_recentMenu)
        return;
    m_recentMenu->clear();
    const QStringList recent = m_settings ? m_settings->recentProjects()->recentProjects() : QStringList();
    for (const QString &path : recent) {
        QAction *a = m_recentMenu->addAction(QDir::toNativeSeparators(path));
        a->setData(path);
        connect(a, &QAction::triggered, this, &KVMainWindow::onRecentProjectClicked);
    }
    m_recentMenu->setEnabled(!recent.isEmpty());
}

// ---- history ---------------------------------------------------------------------------------

void KVMainWindow::undo()
{
    m_timeline->undoStack()->undo();
}

void KVMainWindow::redo()
{
    m_timeline->undoStack()->redo();
}

void KVMainWindow::onProjectHistoryChanged()
{
    using R = OVActionRegistry;
    m_actions->action(R::Undo)->setEnabled(m_project && m_timeline->undoStack()->canUndo());
    m_actions->action(R::Redo)->setEnabled(m_project && m_timeline->undoStack()->canRedo());
}

void KVMainWindow::onSeekRequested(double position)
{
    if (!m_project)
        return;
    m_project->state()->setSeekPos(position);
    if (!m_player->mediaPath().isEmpty())
        m_player->onSeekRequested(position);
    else
        m_project->state()->setCurrentPos(position); // nothing plays: the cursor is the position
}

// ---- video and audio -------------------------------------------------------------------------

void KVMainWindow::onOpenVideoTriggered()
{
    const QString path = chooseMediaPath();
    if (!path.isEmpty())
        openVideo(path);
}

bool KVMainWindow::openVideo(const QString &path)
{
    if (!m_project)
        onNewProject();
    if (!m_project)
        return false;
    const QString absolute = QFileInfo(path).absoluteFilePath();
    qDebug().noquote() << "Opening video or audio" << absolute;
    m_playerStack->setCurrentWidget(m_player);
    m_playerMessage.clear();
    if (!m_player->openMedia(absolute))
        return false; // onPlayerInitFinished() has said why
    if (m_project->videoPath() != absolute) {
        m_videoChangePending = true;
        m_previousVideoPath = m_project->videoPath();
        m_previousVideoLength = m_project->videoLength();
        m_project->setVideoPath(absolute);
        // The length is known once the player has started; until then coding stays off.
        m_project->setVideoLength(0.0);
    }
    return true;
}

void KVMainWindow::onRemoveVideo()
{
    if (!m_project)
        return;
    m_player->closeMedia();
    m_playerStack->setCurrentWidget(m_playerArea);
    m_project->setVideoPath(QString());
    m_project->setVideoLength(0.0);
    updateProjectSummary();
}

void KVMainWindow::onFileDroppedToPlayer(const QString &path)
{
    openFile(path);
}

void KVMainWindow::onPlayerInitFinished(int errorCode)
{
    using R = OVActionRegistry;
    const bool restore = m_videoChangePending && errorCode != 0;
    m_videoChangePending = false;
    if (restore && m_project) {
        m_project->setVideoPath(m_previousVideoPath);
        m_project->setVideoLength(m_previousVideoLength);
    }
    m_actions->action(R::RemoveVideo)->setEnabled(m_project && !m_project->videoPath().isEmpty());
    if (errorCode == 0)
        return;
    m_playerStack->setCurrentWidget(m_playerArea);
    const QString message = m_playerMessage.isEmpty() ? tr("The video or audio file cannot be played.") : m_playerMessage;
    qWarning().noquote() << "Player start failed with code" << errorCode;
    showError(tr("Open Video or Audio"), message);
}

// ---- application -----------------------------------------------------------------------------

void KVMainWindow::showAbout()
{
    QMessageBox::about(this, tr("About Kavot"),
                       tr("<b>Kavot</b> %1<br>Observing, coding and transcribing recorded video.<br><br>"
                          "Build %2, revision %3")
                           .arg(QStringLiteral(KAVOT_VERSION))
                           .arg(KAVOT_BUILD_NUMBER)
                           .arg(QStringLiteral(KAVOT_REVISION)));
}

void KVMainWindow::showSettings()
{
    if (!m_settings)
        return;
    OVSettingsDlg dlg(m_settings, this);
    dlg.exec();
}

void KVMainWindow::updateActionsShortcuts()
{
    m_actions->applyShortcuts(m_settings ? m_settings->keyboard() : nullptr);
}

void KVMainWindow::onShowLogToggled()
{
    m_logDock->setVisible(m_showLogAction->isChecked());
}

void KVMainWindow::showSendReportDialog()
{
    showSendReportDialog(QStringList());
}

void KVMainWindow::showSendReportDialog(const QStringList &files)
{
    OVSendReportDlg dlg(files, this);
    dlg.exec();
}

void KVMainWindow::checkForCrashReports(const QString &folder)
{
    const QStringList reports = NXCrashReporter::pendingReports(folder);
    if (reports.isEmpty())
        return;
    qWarning().noquote() << "Found crash reports:" << reports.join(QStringLiteral(", "));
    // Offer each report once, whatever the answer.
    const QStringList seen = NXCrashReporter::markReportsSeen(reports);
    if (askSendCrashReport() == QMessageBox::Yes)
        showSendReportDialog(seen);
}

void KVMainWindow::onSingleInstanceMessage(const QString &message)
{
    qDebug().noquote() << "Message from a second start:" << message;
    // A second start brings this window forward even without a file to open.
    if (isMinimized())
        showMaximized();
    raise();
    activateWindow();
    if (!message.isEmpty())
        openFile(message);
}

void KVMainWindow::openFile(const QString &path)
{
    const QFileInfo info(path);
    if (!info.exists()) {
        showError(tr("Open"), tr("The file does not exist:\n%1").arg(path));
        return;
    }
    if (info.suffix().compare(QStringLiteral("kvpr"), Qt::CaseInsensitive) == 0) {
        loadProject(info.absoluteFilePath());
        return;
    }
    // Anything else is taken for a recording: the decoder says whether it can play it.
    openVideo(info.absoluteFilePath());
}

void KVMainWindow::onSimulateCrash()
{
    qWarning() << "Simulating a crash on the user's request";
    NXCrashReporter::crashNow();
}

void KVMainWindow::closeEvent(QCloseEvent *event)
{
    if (!onCloseProject(true)) {
        event->ignore();
        return;
    }
    if (m_settings)
        m_settings->saveNow();
    event->accept();
}

QMessageBox::StandardButton KVMainWindow::askUnsavedChanges()
{
    return QMessageBox::question(this, tr("Unsaved Changes"),
                                 tr("The project has unsaved changes. Do you want to save them?"),
                                 QMessageBox::Save | QMessageBox::Discard | QMessageBox::Cancel, QMessageBox::Save);
}

QMessageBox::StandardButton KVMainWindow::askSendCrashReport()
{
    return QMessageBox::question(this, tr("Kavot"),
                                 tr("Application has recovered from crash.\nDo you want to send the report to our support team?"),
                                 QMessageBox::Yes | QMessageBox::No, QMessageBox::Yes);
}

QString KVMainWindow::chooseOpenPath()
{
    const QStringList recent = m_settings ? m_settings->recentProjects()->recentProjects() : QStringList();
    return QFileDialog::getOpenFileName(this, tr("Open Project"),
                                        recent.isEmpty() ? QDir::homePath() : QFileInfo(recent.first()).absolutePath(),
                                        tr("Kavot Project (*.kvpr)"));
}

QString KVMainWindow::chooseMediaPath()
{
    return QFileDialog::getOpenFileName(this, tr("Open Video or Audio"), QDir::homePath(),
                                        tr("Video and audio (*.mp4 *.mov *.avi *.mkv *.m4v *.mpg *.mpeg *.wmv *.webm "
                                           "*.mts *.m2ts *.3gp *.wav *.mp3 *.m4a *.aac *.flac *.ogg *.wma);;All files (*)"));
}

QString KVMainWindow::chooseSavePath()
{
    QString start = m_projectPath;
    if (start.isEmpty()) {
        const QString title = m_project && !m_project->title().isEmpty() ? m_project->title() : tr("Untitled Project");
        start = QDir::homePath() + QLatin1Char('/') + title + QStringLiteral(".kvpr");
    }
    return QFileDialog::getSaveFileName(this, tr("Save Project As"), start, tr("Kavot Project (*.kvpr)"));
}

void KVMainWindow::showError(const QString &title, const QString &message)
{
    qWarning().noquote() << title << ":" << message;
    QMessageBox::warning(this, title, message);
}

bool KVMainWindow::showLoadError(const QString &title, const QString &message)
{
    qWarning().noquote() << title << ":" << message;
    QMessageBox box(QMessageBox::Warning, title, message, QMessageBox::Ok, this);
    // The versions saved before are where a damaged project's work can be found again.
    const QAbstractButton *backups = box.addButton(tr("Open Backup Folder"), QMessageBox::ActionRole);
    box.exec();
    return box.clickedButton() == backups;
}

OVCodingSnapshot KVMainWindow::codingSnapshot() const
{
    const QString name = m_projectPath.isEmpty()
        ? (m_project->title().isEmpty() ? tr("Untitled") : m_project->title())
        : QFileInfo(m_projectPath).completeBaseName();
    return OVCodingSnapshot::fromProject(*m_project, name);
}

void KVMainWindow::onExportStatsTriggered()
{
    if (!m_project)
        return;
    OVAnalysisDlg dialog(codingSnapshot(), this);
    dialog.exec();
}

void KVMainWindow::onExportRawDataTriggered()
{
    if (!m_project)
        return;
    const QString path = chooseExportPath(tr("Export Raw Data"), tr("Excel Workbook (*.xlsx);;CSV (*.csv)"));
    if (path.isEmpty())
        return;
    const OVCodingSnapshot snapshot = codingSnapshot();
    const OV::Error error = OVAnalysisExports::rawData(this, snapshot, path);
    if (!error.isOk() && error.code() != 2)
        showError(tr("Export Raw Data"), error.message());
    else if (error.isOk())
        statusBar()->showMessage(tr("Raw data exported to %1").arg(QDir::toNativeSeparators(path)), 5000);
}

void KVMainWindow::onMultiProjectWorkshopTriggered()
{
    const QStringList projects = chooseProjectPaths();
    if (projects.isEmpty())
        return;
    const QString path = chooseExportPath(tr("Multi-Project Workshop"), tr("Excel Workbook (*.xlsx);;CSV (*.csv)"));
    if (path.isEmpty())
        return;
    QStringList skipped;
    const OV::Error error = OVAnalysisExports::workshop(this, projects, path, &skipped);
    if (!error.isOk() && error.code() != 2) {
        showError(tr("Multi-Project Workshop"), error.message() + (skipped.isEmpty() ? QString() : QLatin1String("\n\n") + skipped.join(QLatin1Char('\n'))));
    } else if (error.isOk() && !skipped.isEmpty()) {
        showError(tr("Multi-Project Workshop"),
            tr("The statistics were written to %1, without these projects:\n\n%2")
                .arg(QDir::toNativeSeparators(path), skipped.join(QLatin1Char('\n'))));
    } else if (error.isOk()) {
        statusBar()->showMessage(tr("Statistics of %n project(s) written to %1", nullptr, int(projects.size()))
                                     .arg(QDir::toNativeSeparators(path)), 5000);
    }
}

QString KVMainWindow::chooseExportPath(const QString &caption, const QString &filter)
{
    QString selected;
    QString path = QFileDialog::getSaveFileName(this, caption, QString(), filter, &selected);
    const int star = selected.indexOf(QLatin1String("*."));
    if (!path.isEmpty() && QFileInfo(path).suffix().isEmpty() && star >= 0)
        path += selected.mid(star + 1, selected.indexOf(QLatin1Char(')'), star) - star - 1);
    return path;
}

QStringList KVMainWindow::chooseProjectPaths()
{
    return QFileDialog::getOpenFileNames(this, tr("Multi-Project Workshop"), QString(), tr("Kavot Project (*.kvpr)"));
}
