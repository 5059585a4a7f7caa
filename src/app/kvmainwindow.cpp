#include "app/kvmainwindow.h"

#include "analysis/ovcodingsnapshot.h"
#include "app/nxcrashreporter.h"
#include "app/ovanalysisdlg.h"
#include "app/ovanalysisexports.h"
#include "app/ovactionregistry.h"
#include "app/ovaudiotrackflow.h"
#include "app/ovsegmentlistdock.h"
#include "app/ovapplogging.h"
#include "app/ovplayerpanel.h"
#include "app/ovrecordingwaveforms.h"
#include "app/ovtranscriptactions.h"
#include "app/ovtranscriptpanel.h"
#include "app/ovprojectdetailsdlg.h"
#include "app/ovsendreportdlg.h"
#include "app/ovsettingsdlg.h"
#include "kavotversion.h"
#include "log/nxlog.h"
#include "log/nxlogwidget.h"
#include "media/ovaudioout.h"
#include "media/ovvideoplayer.h"
#include "project/history.h"
#include "project/label.h"
#include "project/ovjsonserializer.h"
#include "project/ovlocalfilestorage.h"
#include "project/ovprojectjournal.h"
#include "project/ovreadbudget.h"
#include "project/project.h"
#include "project/segment.h"
#include "project/state.h"
#include "project/timeline.h"
#include "project/timelinegroup.h"
#include "settings/ovkeyboardsettings.h"
#include "settings/ovlabelingsettings.h"
#include "timeline/ovtimelinecontrol.h"
#include "timeline/ovtimelinewidget.h"
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
#include <QFile>
#include <QFileInfo>
#include <QKeyEvent>
#include <QLabel>
#include <QEventLoop>
#include <QMenuBar>
#include <QProgressBar>
#include <QProgressDialog>
#include <QPushButton>
#include <QStatusBar>
#include <QSplitter>
#include <QStackedWidget>
#include <QStandardPaths>
#include <QThread>
#include <QTimer>
#include <QUndoStack>
#include <QPushButton>
#include <QUrl>

namespace {
constexpr int StatusMessageMs = 8000;
// The status bar keeps the light chrome of the menu bar: on the black window its text was black
// on black.
const char *kStyleSheet = "KVMainWindow { background-color: black; }"
                          "QStatusBar { background-color: palette(window); color: palette(window-text); }"
                          "QSplitter::handle:horizontal { background-color: rgb(89, 89, 89); }"
                          "QSplitter::handle:vertical { background-color: rgb(89, 89, 89); }";

int segmentCount(const OVProject::Project *project)
{
    int n = 0;
    for (const OVProject::Timeline *t : project->timelineGroup()->timelines()) {
        for (const OVProject::Label *l : t->labels())
            n += l->segmentCount();
    }
    return n;
}

// "1 segment", "3 segments": the messages are not translated yet, so English plurals here.
QString count(int n, const char *one, const char *many)
{
    return QStringLiteral("%1 %2").arg(n).arg(QString::fromLatin1(n == 1 ? one : many));
}

// What a version of the project holds, for the recovery question: utterances are work too.
QString contents(const OVProject::Project *project)
{
    int utterances = 0;
    for (const OVProject::Timeline *t : project->timelineGroup()->timelines())
        utterances += int(t->utterances().size());
    const QString segments = count(segmentCount(project), "segment", "segments");
    return utterances == 0 ? segments : segments + QStringLiteral(" and ") + count(utterances, "utterance", "utterances");
}

QString when(const QDateTime &time)
{
    if (!time.isValid())
        return QStringLiteral("?");
    const QDateTime local = time.toLocalTime();
    return local.date() == QDate::currentDate() ? local.toString(QStringLiteral("hh:mm:ss"))
                                                : local.toString(QStringLiteral("yyyy-MM-dd hh:mm:ss"));
}
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
    connect(m_player, &OVPlayerPanel::initFinished, this, [this](int code, const QString &message, const QString &path) {
        m_playerPath = path;
        m_playerMessage = message;
        onPlayerInitFinished(code);
    });
    connect(m_player, &OVPlayerPanel::playbackFailed, this, &KVMainWindow::onPlaybackFailed);
    // Coding goes on in silence; the coder must know the silence is not the recording's.
    connect(m_player->player()->audioOut(), &OVAudioOut::unavailable, this, [this](const QString &reason) {
        const QString text = tr("Playing without sound: %1.").arg(reason);
        qCInfo(lcApp).noquote() << text;
        statusBar()->showMessage(text, StatusMessageMs);
    });
    connect(m_player->player(), &OVVideoPlayer::stateChanged, this, [this] {
        // Playing again after a failure: the position moves, so keys may code again.
        const OVVideoPlayer::State state = m_player->player()->state();
        if (state == OVVideoPlayer::Playing || state == OVVideoPlayer::Paused)
            m_timeline->timelineWidget()->setCodingBlockedReason(QString());
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
    connect(m_timeline, &OVTimelineControl::statusMessage, this, [this](const QString &text) { statusBar()->showMessage(text, StatusMessageMs); });
    m_mainSplitter->addWidget(m_playerStack);
    m_mainSplitter->addWidget(m_timeline);
    m_mainSplitter->setStretchFactor(0, 3);
    m_mainSplitter->setStretchFactor(1, 2);
    setCentralWidget(m_mainSplitter);
    m_recordingWaveforms = new OVRecordingWaveforms(m_timeline->timelineWidget(),
                                                    m_actions->action(OVActionRegistry::Waveforms), this);
    if (m_settings)
        m_recordingWaveforms->setSettings(m_settings->ui());

    m_logDock = new QDockWidget(tr("Log"), this);
    m_logDock->setObjectName(QStringLiteral("dw_log"));
    m_logWidget = new NXLogWidget(m_logDock);
    m_logDock->setWidget(m_logWidget);
    addDockWidget(Qt::BottomDockWidgetArea, m_logDock);
    m_logDock->hide();
    m_segmentDock = new OVSegmentListDock(m_actions->action(OVActionRegistry::Labels), this);
    addDockWidget(Qt::RightDockWidgetArea, m_segmentDock);
    m_segmentDock->hide();
    connect(m_segmentDock, &OVSegmentListDock::seekRequested, this, &KVMainWindow::onSeekRequested);

    m_dataFolder = QStandardPaths::writableLocation(QStandardPaths::AppDataLocation);
    m_journal = new OVProjectJournal(this);
    connect(m_journal, &OVProjectJournal::writeFailed, this, [this](const QString &reason) {
        if (std::exchange(m_journalProblemShown, true))
            return;
        showError(tr("Unsaved Changes"),
                  tr("Changes can no longer be recorded for recovery, so work done from now on is lost if "
                     "Kavot ends without saving. Save the project to keep it.\n\nReason: %1").arg(reason));
    });
    m_autosaveTimer = new QTimer(this);
    connect(m_autosaveTimer, &QTimer::timeout, this, &KVMainWindow::onAutosaveTimer);
    m_positionTimer = new QTimer(this);
    m_positionTimer->setSingleShot(true);
    m_positionTimer->setInterval(1000);
    connect(m_positionTimer, &QTimer::timeout, this, &KVMainWindow::journalPlaybackPosition);

    m_saveProgress = new QProgressBar(this);
    m_saveProgress->setObjectName(QStringLiteral("pb_save"));
    m_saveProgress->setMaximumWidth(200);
    m_saveProgress->setRange(0, 100);
    m_saveProgress->setFormat(tr("Saving %p%"));
    statusBar()->addPermanentWidget(m_saveProgress);
    m_saveProgress->hide();

    createActions();
    m_transcriptActions = new OVTranscriptActions(this, m_actions);
    createMenus();
    if (m_settings) {
        connect(m_settings->keyboard(), &OVSettingsGroup::changed, this, &KVMainWindow::updateActionsShortcuts);
        connect(m_settings->recentProjects(), &OVSettingsGroup::changed, this, &KVMainWindow::updateRecentProjectsMenu);
        connect(m_settings->ui(), &OVSettingsGroup::changed, this, &KVMainWindow::updateAutosave);
    }
    updateAutosave();
    updateActionsShortcuts();
    m_transcript = new OVTranscriptPanel(this);
    updateRecentProjectsMenu();
    updateProjectActions();
    updateProjectSummary();
    updateWindowTitle();
}

KVMainWindow::~KVMainWindow()
{
    // The project (and its history) goes before the children whose actions its signals update.
    if (m_project)
        disconnect(m_project->history(), nullptr, this, nullptr);
    // A save being written is finished (the storage waits for it), but nobody is told any more.
    if (m_storage)
        disconnect(m_storage, nullptr, this, nullptr);
    m_timeline->setProject(nullptr);
    // The journal stays on disk: a window torn down without closing its project (the session
    // was ended from outside) leaves its changes to be offered at the next start.
    m_journal->stop();
    delete m_project;
    // The children go after this destructor, and the log dock reports itself hidden as they
    // do: through its toggle that would call a window that is no longer one.
    m_logDock->disconnect(m_showLogAction);
    m_showLogAction->disconnect(this);
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
    m_audioTracks = new OVAudioTrackFlow(this, m_player);
    if (m_settings)
        m_audioTracks->setSettings(m_settings->ui());
    connect(m_actions->action(R::AddAudioTrack), &QAction::triggered, m_audioTracks, &OVAudioTrackFlow::addAudioTrack);
    connect(m_actions->action(R::EditAudioTracks), &QAction::triggered, m_audioTracks, &OVAudioTrackFlow::editAudioTracks);
    // The file has other streams now: the strip under the timeline shows them afresh.
    connect(m_audioTracks, &OVAudioTrackFlow::recordingRewritten, this, [this](const QString &path) {
        m_recordingWaveforms->setRecording(QString());
        m_recordingWaveforms->setRecording(path);
    });
    connect(m_actions->action(R::CloseApplication), &QAction::triggered, this, &QWidget::close);
    connect(m_actions->action(R::Undo), &QAction::triggered, this, &KVMainWindow::undo);
    connect(m_actions->action(R::Redo), &QAction::triggered, this, &KVMainWindow::redo);
    connect(m_actions->action(R::Settings), &QAction::triggered, this, &KVMainWindow::showSettings);
    connect(m_actions->action(R::OpenVideo), &QAction::triggered, this, &KVMainWindow::onOpenVideoTriggered);
    connect(m_actions->action(R::RemoveVideo), &QAction::triggered, this, &KVMainWindow::onRemoveVideo);
    connect(m_actions->action(R::TogglePlayback), &QAction::triggered, m_player, &OVPlayerPanel::togglePlayback);
    connect(m_actions->action(R::SeekForward), &QAction::triggered, m_player, &OVPlayerPanel::seekForward);
    connect(m_actions->action(R::SeekBackward), &QAction::triggered, m_player, &OVPlayerPanel::seekBackward);
    connect(m_actions->action(R::StepForward), &QAction::triggered, m_player, &OVPlayerPanel::stepOrSeekForward);
    connect(m_actions->action(R::StepBackward), &QAction::triggered, m_player, &OVPlayerPanel::stepOrSeekBackward);
    // The plain arrows move through lists and text elsewhere in the window.
    for (int id : { R::StepForward, R::StepBackward })
        m_actions->scopeToViews(id, { m_player, m_timeline->timelineWidget() });
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
    file->addAction(m_actions->action(R::AddAudioTrack));
    file->addAction(m_actions->action(R::EditAudioTracks));
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
    for (int id : { R::TogglePlayback, R::StepForward, R::StepBackward, R::SeekForward, R::SeekBackward, R::SpeedUp,
                    R::SpeedDown, R::VolumeUp, R::VolumeDown })
        playback->addAction(m_actions->action(id));

    QMenu *timeline = menuBar()->addMenu(tr("&Timeline"));
    timeline->addAction(m_actions->action(R::AddLabel));
    timeline->addAction(m_actions->action(R::ImportLabels));
    timeline->addAction(m_actions->action(R::ExportLabels));
    timeline->addSeparator();
    timeline->addAction(m_actions->action(R::ClearTimeline));

    QMenu *transcript = menuBar()->addMenu(tr("T&ranscript"));
    transcript->setObjectName(QStringLiteral("menuTranscript"));
    m_transcriptActions->addTo(transcript);

    QMenu *view = menuBar()->addMenu(tr("&View"));
    view->addAction(m_actions->action(R::Fullscreen));
    view->addAction(m_actions->action(R::Waveforms));
    view->addAction(m_showLogAction);
    view->addAction(m_actions->action(R::Labels));

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

void KVMainWindow::setProject(OVProject::Project *project, const QString &path, bool recovered)
{
    // Whatever the journal held is saved or was given up by now.
    m_journal->discard();
    if (m_project) {
        rememberPlaybackPosition();
        m_pendingVideoPath.clear();
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
    m_segmentDock->setProject(m_project);
    m_transcriptActions->setProject(m_project, m_projectPath);
    // Once laid out, show the whole recording.
    QTimer::singleShot(0, m_timeline, &OVTimelineControl::zoomTimelineToFit);
    if (m_project) {
        m_project->setParent(nullptr);
        connect(m_project, &OVProject::Project::changed, this, &KVMainWindow::onProjectDataChanged);
        connect(m_project, &OVProject::Project::projectTypeChanged, this, &KVMainWindow::onProjectTypeChanged);
        connect(m_project->timelineGroup(), &OVProject::TimelineGroup::changed, this, &KVMainWindow::onChangeDetected);
        OVProject::History *history = m_project->history();
        connect(history, &OVProject::History::changed, this, &KVMainWindow::onProjectHistoryChanged);
        connect(history, &OVProject::History::cleanChanged, this, &KVMainWindow::onProjectHistoryChanged);
        connect(history, &OVProject::History::stepFailed, this, [this](const QString &step) {
            qCWarning(lcApp).noquote() << "History step could not be applied:" << step;
            statusBar()->showMessage(tr("\"%1\" could not be undone or redone: what it changed is gone.").arg(step), StatusMessageMs);
        });
        m_player->setState(m_project->state());
        // Not restarted while pending: a playing clock would otherwise postpone it for ever.
        connect(m_project->state(), &OVProject::State::currentPosChanged, m_positionTimer,
                [this] { if (!m_positionTimer->isActive()) m_positionTimer->start(); });
        startJournal(recovered || path.isEmpty());
        Q_EMIT projectOpened();
    }
    setModified(false);
    updateProjectActions();
    updateProjectSummary();
    updateWindowTitle();
    m_recordingWaveforms->setRecording(m_project ? m_project->videoPath() : QString());
}

void KVMainWindow::setDataFolder(const QString &folder)
{
    m_dataFolder = folder;
}

QString KVMainWindow::journalPath() const
{
    return m_dataFolder + QStringLiteral("/journal.kvj");
}

void KVMainWindow::startJournal(bool withContent)
{
    if (!m_project)
        return;
    QDir().mkpath(m_dataFolder);
    const OV::Error error = m_journal->start(journalPath(), m_project, m_projectPath, withContent);
    if (!error.isOk() && !std::exchange(m_journalProblemShown, true))
        showError(tr("Unsaved Changes"),
                  tr("Changes cannot be recorded for recovery, so work is lost if Kavot ends without saving. "
                     "Save often.\n\nReason: %1").arg(error.message()));
}

void KVMainWindow::offerUnsavedWork(bool uncleanEnd)
{
    const QString path = journalPath();
    if (!QFileInfo::exists(path))
        return;
    // Moved out of the way first: opening any project starts a new journal at `path`. Kept until
    // the work is back in a journal or a file, or for good if the user declines it.
    const QString aside = m_dataFolder + QStringLiteral("/journal-%1.kvj")
                                             .arg(QDateTime::currentDateTime().toString(QStringLiteral("yyyyMMdd-hhmmss-zzz")));
    if (!QFile::rename(path, aside)) {
        qCWarning(lcApp).noquote() << "The journal" << path << "cannot be moved to" << aside;
        return;
    }
    OVProjectJournal::Summary summary;
    OV::Error error = OVProjectJournal::readSummary(aside, &summary);
    if (error.isOk() && summary.changes == 0 && summary.recoveryCopy.isEmpty() && !summary.unsavedContent) {
        // Nothing but a starting point: no work to take back.
        QFile::remove(aside);
        return;
    }
    auto *recovered = new OVProject::Project;
    auto *storage = new OVLocalFileStorage(QString(), this);
    if (error.isOk())
        error = OVProjectJournal::recover(aside, recovered, &summary, storage);
    if (!error.isOk()) {
        delete recovered;
        delete storage;
        qCWarning(lcApp).noquote() << "Unsaved work could not be recovered from" << aside << ":" << error.message();
        showError(tr("Recover Unsaved Work"),
                  tr("The last session left unsaved work, but it cannot be recovered:\n%1\n\nThe record of "
                     "those changes was kept as %2.").arg(error.message(), QDir::toNativeSeparators(aside)));
        return;
    }
    const QString name = !recovered->title().isEmpty() ? recovered->title()
        : summary.basePath.isEmpty() ? tr("Untitled Project") : QFileInfo(summary.basePath).completeBaseName();
    QString text = (uncleanEnd ? tr("Kavot did not close normally last time")
                               : tr("The last session was ended before its work was saved"))
        + tr(", and the project \"%1\" has changes that are in no project file.").arg(name) + QStringLiteral("\n\n");
    if (summary.changes == 0)
        text += tr("Unsaved work: taken back at %1 after an earlier session ended, not saved since; with it "
                   "the project has %2.")
                    .arg(when(summary.lastChange), contents(recovered));
    else
        text += tr("Unsaved work: %1, the last at %2; with them the project has %3.")
                    .arg(count(summary.changes, "change", "changes"), when(summary.lastChange),
                         contents(recovered));
    text += QStringLiteral("\n");
    if (summary.basePath.isEmpty()) {
        text += tr("Last save: none, the project was never saved.");
    } else {
        OVProject::Project saved;
        const QFileInfo info(summary.basePath);
        if (OVLocalFileStorage().load(summary.basePath, &saved).isOk())
            text += tr("Last save: %1, saved %2, with %3.")
                        .arg(QDir::toNativeSeparators(summary.basePath), when(info.lastModified()),
                             contents(&saved));
        else
            text += tr("Last save: %1 cannot be read now.").arg(QDir::toNativeSeparators(summary.basePath));
        if (summary.baseChanged())
            text += QStringLiteral("\n") + tr("Note: that file was changed since this work began.");
    }
    if (!summary.recoveryCopy.isEmpty())
        text += QStringLiteral("\n") + tr("A copy was also written when the session ended:\n%1")
                                            .arg(QDir::toNativeSeparators(summary.recoveryCopy));
    text += QStringLiteral("\n\n") + tr("Do you want to take the unsaved work back?");
    qCWarning(lcApp).noquote() << "Unsaved work found:" << summary.changes << "change(s) since" << (summary.basePath.isEmpty() ? QStringLiteral("a new project") : summary.basePath);

    if (askRecoverUnsavedWork(text) != QMessageBox::Yes) {
        delete recovered;
        delete storage;
        qCWarning(lcApp).noquote() << "Unsaved work declined; its journal was kept as" << aside;
        return;
    }
    if (!onCloseProject(true)) {
        delete recovered;
        delete storage;
        return;
    }
    setStorage(storage);
    setProject(recovered, summary.basePath.isEmpty() ? QString() : QFileInfo(summary.basePath).absoluteFilePath(), true);
    ensureUserTimeline();
    setModified(true);
    qCWarning(lcApp).noquote() << "Unsaved work recovered:" << summary.changes << "change(s)";
    if (m_journal->isActive()) {
        m_journal->noteTakenBack();
        QFile::remove(aside);
    }
    const QString video = m_project->videoPath();
    if (!video.isEmpty() && QFileInfo::exists(video)) {
        // Where the killed session last had it; a journal from before positions were kept leaves
        // the place of the last normal close.
        double position = summary.position;
        if (position < 0.0)
            position = m_settings && !m_projectPath.isEmpty() ? m_settings->recentProjects()->lastPosition(m_projectPath) : 0.0;
        m_playerStack->setCurrentWidget(m_player);
        m_player->openMedia(video, position, position > 0.0, m_audioTracks->rememberedAudioStream(video));
        m_journal->notePosition(position);
    }
}

void KVMainWindow::openStartupFiles(const QStringList &paths, const std::function<bool()> &ended)
{
    for (const QString &path : paths) {
        if (ended && ended())
            return;
        if (m_project && !m_projectPath.isEmpty() && QFileInfo(path).absoluteFilePath() == QFileInfo(m_projectPath).absoluteFilePath()) {
            qCInfo(lcApp).noquote() << "Not opening" << path << "again: its unsaved work was taken back";
            continue;
        }
        openFile(path);
    }
}

void KVMainWindow::notifyProblem(const QString &title, const QString &message)
{
    showError(title, message);
}

void KVMainWindow::notifyDataFolderProblem(const QString &message)
{
    m_journalProblemShown = true;
    m_backupProblemShown = true;
    showError(QStringLiteral("Kavot"), message);
}

void KVMainWindow::updateAutosave()
{
    if (m_settings && m_settings->ui()->autosave())
        m_autosaveTimer->start(m_settings->ui()->autosaveMinutes() * 60 * 1000);
    else
        m_autosaveTimer->stop();
}

void KVMainWindow::onAutosaveTimer()
{
    if (!m_settings || !m_settings->ui()->autosave() || !m_project || !m_modified || m_projectPath.isEmpty())
        return;
    // Not under a question on screen: the user is deciding something about this project.
    if (QApplication::activeModalWidget())
        return;
    // One save at a time is enough: a save already under way holds nearly the same state.
    if (m_storage && m_storage->isSaving())
        return;
    startSave(m_projectPath, OVLocalFileStorage::NoSaveOptions, true);
}

void KVMainWindow::onNewProject()
{
    if (!onCloseProject(true))
        return;
    setStorage(nullptr);
    auto *project = new OVProject::Project;
    const QString user = currentUser();
    project->startNew(user);
    project->state()->setActiveUser(user);
    project->state()->setDisplayedTimelineUsers({ user });
    project->setOfflineUser(user);
    project->setOwner(user);
    qCInfo(lcApp).noquote() << "New project" << project->id() << "for user" << user;
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
    // A save still being written decides whether anything is left unsaved.
    waitForSaves();
    if (!m_project || !m_modified)
        return true;
    switch (askUnsavedChanges()) {
    case QMessageBox::Save:
        return onSaveProject() && waitForSaves() && !m_modified;
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
    // Shared with the task rather than on this stack: the pool thread's use of it is then
    // ordered for ThreadSanitizer by the hand-off alone, not by the stack's earlier history.
    const auto budget = std::make_shared<OVReadBudget>(QFileInfo(path).size());
    std::shared_ptr<OVLocalFileStorage::ReadResult> read;
    QThread *home = thread();
    OVBackgroundTask::run(
        this, tr("Open Project"), tr("Loading %1...").arg(QFileInfo(path).fileName()),
        [&read, budget, path, home](const OVBackgroundTask::Progress &progress) {
            budget->setProgressCallback(progress);
            read = OVLocalFileStorage::read(path, budget.get(), home);
        },
        [budget] { budget->cancel(); });
    auto *storage = new OVLocalFileStorage(QString(), this);
    auto *project = new OVProject::Project;
    const OV::Error error = storage->adopt(read, project);
    if (!error.isOk()) {
        qCWarning(lcApp).noquote() << "Loading" << path << "failed with code" << error.code();
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
    qCInfo(lcApp).noquote() << "Project loaded from" << path;
    setStorage(storage);
    setProject(project, QFileInfo(path).absoluteFilePath());
    ensureUserTimeline();
    if (m_settings)
        m_settings->recentProjects()->addProject(m_projectPath);
    const QString video = m_project->videoPath();
    if (!video.isEmpty()) {
        if (QFileInfo::exists(video)) {
            // Back where the coder left it, and paused there: nothing runs past unseen.
            const double position = m_settings ? m_settings->recentProjects()->lastPosition(m_projectPath) : 0.0;
            m_playerStack->setCurrentWidget(m_player);
            m_player->openMedia(video, position, position > 0.0, m_audioTracks->rememberedAudioStream(video));
            m_journal->notePosition(position);
        } else
            showError(tr("Open Project"), tr("The project's video or audio file was not found:\n%1").arg(video));
    }
    return true;
}

void KVMainWindow::rememberPlaybackPosition()
{
    if (!m_settings || !m_project || m_projectPath.isEmpty() || m_player->mediaPath().isEmpty()
        || m_player->mediaPath() != m_project->videoPath())
        return;
    m_settings->recentProjects()->setLastPosition(m_projectPath, m_player->shownPosition());
}

void KVMainWindow::journalPlaybackPosition()
{
    if (m_project && !m_player->mediaPath().isEmpty() && m_player->mediaPath() == m_project->videoPath())
        m_journal->notePosition(m_player->shownPosition());
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
        qCInfo(lcApp).noquote() << "Timeline" << mine->id() << "made for user" << user;
    }
    m_project->state()->setActiveUser(user);
    QStringList shown = m_project->state()->displayedTimelineUsers();
    if (!shown.contains(user)) {
        shown << user;
        m_project->state()->setDisplayedTimelineUsers(shown);
    }
    updateProjectSummary();
}

void KVMainWindow::setStorage(OVLocalFileStorage *storage)
{
    if (m_storage) {
        disconnect(m_storage, nullptr, this, nullptr);
        delete m_storage;
    }
    m_storage = storage;
    if (!m_storage)
        return;
    connect(m_storage, &OVLocalFileStorage::saveFinished, this, &KVMainWindow::onSaveFinished);
    connect(m_storage, &OVLocalFileStorage::saveProgress, m_saveProgress, [this](qint64 written, qint64 total) {
        m_saveProgress->setValue(total > 0 ? int(written * 100 / total) : 0);
    });
}

bool KVMainWindow::onSaveProject()
{
    if (!m_project)
        return false;
    if (m_projectPath.isEmpty())
        return onSaveProjectAs();
    return startSave(m_projectPath, OVLocalFileStorage::NoSaveOptions);
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
    // The file dialog asked before a file was replaced.
    return startSave(QFileInfo(path).absoluteFilePath(), OVLocalFileStorage::OverwriteChanges);
}

bool KVMainWindow::startSave(const QString &path, int options, bool autosave)
{
    if (!m_storage)
        setStorage(new OVLocalFileStorage(QString(), this));
    // What the file will hold: the history's state, the journal's last record and the changes
    // outside the history as they are now. Whatever comes later stays unsaved.
    SaveRequest request { path, m_changeGeneration, m_project, m_journal->lastSequence(),
        m_project->history()->mark(), autosave };
    const quint64 ticket = m_storage->startSave(path, m_project, options);
    m_saves.insert(ticket, request);
    statusBar()->showMessage(tr("Saving %1...").arg(QFileInfo(path).fileName()));
    m_saveProgress->setValue(0);
    // Most saves end before anyone could read a progress bar.
    QTimer::singleShot(400, m_saveProgress, [this] {
        if (m_storage && m_storage->isSaving())
            m_saveProgress->show();
    });
    return true;
}

void KVMainWindow::onSaveFinished(quint64 ticket, const OV::Error &error, const QString &backupWarning)
{
    const SaveRequest request = m_saves.take(ticket);
    m_lastSaveOk = error.isOk();
    if (!m_storage || !m_storage->isSaving())
        m_saveProgress->hide();
    const bool current = request.project && request.project == m_project;
    if (error.isOk()) {
        qCInfo(lcApp).noquote() << (request.autosave ? "Project saved automatically to" : "Project saved to") << request.path;
        statusBar()->showMessage(tr("Saved %1").arg(QFileInfo(request.path).fileName()), 4000);
        m_autosaveProblemShown = false;
        if (current) {
            m_projectPath = request.path;
            // The file holds everything up to the snapshot; the journal keeps only what came after.
            m_journal->rebase(request.path, request.journalSequence);
            // Changes made while the file was written are still unsaved.
            m_project->history()->setClean(request.historyMark);
            if (request.generation == m_changeGeneration)
                m_unrecordedChanges = false;
            applyModified();
            updateWindowTitle();
            Q_EMIT projectSaved(request.path);
        }
        if (m_settings)
            m_settings->recentProjects()->addProject(request.path);
        if (!backupWarning.isEmpty()) {
            // A backup folder that cannot be written fails at every save: a dialog each time
            // would only be in the way, the status bar keeps saying it.
            if (!std::exchange(m_backupProblemShown, true))
                showError(tr("Save Project"), backupWarning);
            else
                statusBar()->showMessage(tr("Saved %1, but the version it replaced could not be kept as a backup.")
                                             .arg(QFileInfo(request.path).fileName()), StatusMessageMs);
        }
        return;
    }
    statusBar()->clearMessage();
    if (error.code() == OVLocalFileStorage::SaveCancelled)
        return;
    if (request.autosave) {
        qCWarning(lcApp).noquote() << "Autosave of" << request.path << "failed:" << error.message();
        // Once until a save succeeds again; a message every few minutes would only be in the way.
        if (!std::exchange(m_autosaveProblemShown, true))
            showError(tr("Autosave"), tr("The project could not be saved automatically.\n\n%1").arg(error.message()));
        return;
    }
    if (error.code() == OVLocalFileStorage::ChangedOnDisk && current) {
        switch (askChangedFile(error.message())) {
        case OverwriteChangedFile:
            startSave(request.path, OVLocalFileStorage::OverwriteChanges);
            break;
        case SaveChangedFileAs:
            onSaveProjectAs();
            break;
        case KeepChangedFile:
            break;
        }
        return;
    }
    showError(tr("Save Project"), error.message());
}

bool KVMainWindow::waitForSaves()
{
    if (!m_storage || !m_storage->isSaving())
        return m_lastSaveOk;
    QProgressDialog progress(tr("Saving the project..."), tr("Cancel"), 0, 100, this);
    progress.setWindowModality(Qt::WindowModal);
    progress.setMinimumDuration(500);
    QEventLoop loop;
    connect(m_storage, &OVLocalFileStorage::saveProgress, &progress, [&progress](qint64 written, qint64 total) {
        progress.setValue(total > 0 ? int(written * 100 / total) : 0);
    });
    // Queued: the answer to a question asked in onSaveFinished() may start another save.
    connect(m_storage, &OVLocalFileStorage::saveFinished, &loop, [this, &loop] {
        if (!m_storage->isSaving())
            loop.quit();
    }, Qt::QueuedConnection);
    connect(&progress, &QProgressDialog::canceled, m_storage, &OVLocalFileStorage::cancelSaves);
    loop.exec();
    return m_lastSaveOk;
}

KVMainWindow::ChangedFileChoice KVMainWindow::askChangedFile(const QString &message)
{
    QMessageBox box(QMessageBox::Warning, tr("Save Project"), message, QMessageBox::Cancel, this);
    QPushButton *overwrite = box.addButton(tr("Overwrite"), QMessageBox::DestructiveRole);
    QPushButton *saveAs = box.addButton(tr("Save As..."), QMessageBox::AcceptRole);
    box.setDefaultButton(saveAs);
    box.exec();
    if (box.clickedButton() == overwrite)
        return OverwriteChangedFile;
    if (box.clickedButton() == saveAs)
        return SaveChangedFileAs;
    return KeepChangedFile;
}

QString KVMainWindow::saveRecoveryCopy()
{
    if (!m_project || !m_modified)
        return QString();
    const QString folder = OVLocalFileStorage::recoveryFolder(m_projectPath);
    QDir().mkpath(folder);
    const QString base = m_projectPath.isEmpty() ? QStringLiteral("untitled") : QFileInfo(m_projectPath).completeBaseName();
    const QString path = folder + QStringLiteral("/%1-unsaved-%2.kvpr")
                                      .arg(base, QDateTime::currentDateTime().toString(QStringLiteral("yyyyMMdd-hhmmss")));
    OVLocalFileStorage storage;
    const OV::Error error = storage.save(path, m_project);
    if (!error.isOk()) {
        qCWarning(lcApp).noquote() << "Recovery copy could not be written to" << path << ":" << error.message();
        return QString();
    }
    qCWarning(lcApp).noquote() << "Unsaved changes were written to the recovery copy" << path;
    m_journal->noteRecoveryCopy(path);
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
    qCInfo(lcApp).noquote() << "Project closed" << m_projectPath;
    setProject(nullptr, QString());
    setStorage(nullptr);
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
    m_recordingWaveforms->setRecording(m_project ? m_project->videoPath() : QString());
}

void KVMainWindow::onProjectTypeChanged()
{
    onChangeDetected();
}

void KVMainWindow::onChangeDetected()
{
    // The history's own steps are judged by its clean state (so undoing back to the saved state
    // clears the mark); a change made outside it stays until a save that began after it.
    if (m_project && m_project->history()->isApplying())
        return;
    m_unrecordedChanges = true;
    ++m_changeGeneration;
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
    if (!modified) {
        // The document as it is now is the saved one.
        m_unrecordedChanges = false;
        if (m_project)
            m_project->history()->setClean();
    } else if (m_project && m_project->history()->isClean()) {
        m_unrecordedChanges = true;
    }
    applyModified();
}

void KVMainWindow::applyModified()
{
    const bool modified = m_project && (m_unrecordedChanges || !m_project->history()->isClean());
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
    for (int id : { R::RemoveVideo, R::AddAudioTrack, R::EditAudioTracks })
        m_actions->action(id)->setEnabled(open && !m_project->videoPath().isEmpty());
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
    if (m_project)
        m_project->history()->undo();
}

void KVMainWindow::redo()
{
    if (m_project)
        m_project->history()->redo();
}

void KVMainWindow::onProjectHistoryChanged()
{
    using R = OVActionRegistry;
    const OVProject::History *history = m_project ? m_project->history() : nullptr;
    m_actions->action(R::Undo)->setEnabled(history && history->canUndo());
    m_actions->action(R::Redo)->setEnabled(history && history->canRedo());
    if (m_project && m_modified != (m_unrecordedChanges || !m_project->history()->isClean()))
        applyModified();
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
    qCInfo(lcApp).noquote() << "Opening video or audio" << absolute;
    // The project keeps its recording (and it plays on) until the new one has started.
    m_pendingVideoPath = absolute;
    if (!m_player->openMedia(absolute, 0.0, false, m_audioTracks->rememberedAudioStream(absolute))) {
        m_pendingVideoPath.clear();
        return false;
    }
    return true;
}

void KVMainWindow::onRemoveVideo()
{
    if (!m_project)
        return;
    m_pendingVideoPath.clear();
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
    const bool requested = !m_pendingVideoPath.isEmpty() && m_playerPath == m_pendingVideoPath;
    if (requested)
        m_pendingVideoPath.clear();
    if (errorCode == 0) {
        m_playerStack->setCurrentWidget(m_player);
        m_timeline->timelineWidget()->setCodingBlockedReason(QString());
        if (requested && m_project && m_project->videoPath() != m_playerPath) {
            m_project->setVideoPath(m_playerPath);
            m_project->setVideoLength(m_player->player()->duration());
            // The ruler was fitted to no recording at all; show the whole new one.
            QTimer::singleShot(0, m_timeline, &OVTimelineControl::zoomTimelineToFit);
        }
        for (int id : { R::RemoveVideo, R::AddAudioTrack, R::EditAudioTracks })
            m_actions->action(id)->setEnabled(m_project && !m_project->videoPath().isEmpty());
        return;
    }
    // Whatever played before plays on (or is on its way back).
    if (m_player->mediaPath().isEmpty())
        m_playerStack->setCurrentWidget(m_playerArea);
    qCWarning(lcApp).noquote() << "Player start failed with code" << errorCode << "for" << m_playerPath;
    const QString reason = m_playerMessage.isEmpty() ? tr("The decoder gave no reason.") : m_playerMessage;
    showError(tr("Open Video or Audio"),
              tr("%1 cannot be played.\n\n%2").arg(QDir::toNativeSeparators(m_playerPath), reason));
}

void KVMainWindow::onPlaybackFailed(const QString &path, const QString &message)
{
    const QString file = QFileInfo(path).fileName();
    m_timeline->timelineWidget()->setCodingBlockedReason(
        tr("Coding is stopped: playback of %1 failed. Play or seek to try again.").arg(file));
    const QString reason = message.isEmpty() ? tr("The decoder gave no reason.") : message;
    showError(tr("Playback Stopped"),
              tr("Playback of %1 stopped with an error, and coding is stopped until it plays again.\n\n%2")
                  .arg(QDir::toNativeSeparators(path), reason));
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
    OVSettingsDlg dlg(m_settings, m_actions, this);
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
    qCWarning(lcApp).noquote() << "Found crash reports:" << reports.join(QStringLiteral(", "));
    // Offer each report once, whatever the answer.
    const QStringList seen = NXCrashReporter::markReportsSeen(reports);
    if (askSendCrashReport() == QMessageBox::Yes)
        showSendReportDialog(seen);
}

void KVMainWindow::onSingleInstanceMessage(const QString &message)
{
    qCInfo(lcApp).noquote() << "Message from a second start:" << message;
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
    // Kept in the default category: the crash report names this frame only while the call below
    // is not the last instruction of the function, which the category's out-of-line path changes.
    qWarning() << "Simulating a crash on the user's request";
    NXCrashReporter::crashNow();
}

void KVMainWindow::keyPressEvent(QKeyEvent *event)
{
    // A key no pane took comes up to the window: the coder gets it whichever pane had the focus
    // (a text field takes its letters itself, so typing never codes).
    if (m_timeline->codeKeyPress(event))
        return;
    QMainWindow::keyPressEvent(event);
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

QMessageBox::StandardButton KVMainWindow::askRecoverUnsavedWork(const QString &text)
{
    QMessageBox box(QMessageBox::Question, tr("Recover Unsaved Work"), text, QMessageBox::Yes | QMessageBox::No, this);
    box.setDefaultButton(QMessageBox::Yes);
    box.button(QMessageBox::Yes)->setText(tr("Recover"));
    box.button(QMessageBox::No)->setText(tr("Don't Recover"));
    return QMessageBox::StandardButton(box.exec());
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
    qCWarning(lcApp).noquote() << title << ":" << message;
    QMessageBox::warning(this, title, message);
}

bool KVMainWindow::showLoadError(const QString &title, const QString &message)
{
    qCWarning(lcApp).noquote() << title << ":" << message;
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
    return OVAnalysisExports::chooseSavePath(this, caption, filter);
}

QStringList KVMainWindow::chooseProjectPaths()
{
    return QFileDialog::getOpenFileNames(this, tr("Multi-Project Workshop"), QString(), tr("Kavot Project (*.kvpr)"));
}
