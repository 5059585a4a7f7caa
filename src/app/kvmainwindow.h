#pragma once

#include "log/overror.h"
#include "project/history.h"

#include <QHash>
#include <QMainWindow>
#include <QMessageBox>
#include <QPointer>
#include <QStringList>
#include <QTimer>

#include <functional>

class OVActionRegistry;
class OVAudioTrackFlow;
class OVCodingSnapshot;
class OVLocalFileStorage;
class OVProjectJournal;
class OVRecordingWaveforms;
class OVSegmentListDock;
class OVSettings;
class OVTimelineControl;
class OVTranscriptActions;
class OVPlayerPanel;
class OVTranscriptPanel;
class QStackedWidget;
class NXLogWidget;
class QDockWidget;
class QLabel;
class QMenu;
class QProgressBar;
class QSplitter;

namespace OVProject {
class Project;
}

// The one main window: owns the open project and hosts the views. Commands of the menus are the
// slots below; keyboard actions come from the action registry so their shortcuts are in one place.
class KVMainWindow : public QMainWindow
{
    Q_OBJECT
public:
    explicit KVMainWindow(OVSettings *settings, QWidget *parent = nullptr);
    ~KVMainWindow() override;

    OVProject::Project *project() const { return m_project; }
    QString projectPath() const { return m_projectPath; }
    bool isProjectModified() const { return m_modified; }
    OVActionRegistry *actionRegistry() const { return m_actions; }
    OVSettings *settings() const { return m_settings; }
    OVTimelineControl *timelineControl() const { return m_timeline; }
    OVPlayerPanel *playerPanel() const { return m_player; }
    OVTranscriptPanel *transcriptPanel() const { return m_transcript; }
    NXLogWidget *logWidget() const { return m_logWidget; }
    OVSegmentListDock *segmentListDock() const { return m_segmentDock; }
    // The user who codes in this session: the remembered login, else the system user.
    QString currentUser() const;
    // The modified mark of the open project (title "[*]", the question on close). It is set while
    // the history is away from its clean state or a change was made outside the history;
    // setModified(false) declares the document as it is now the saved one.
    void setModified(bool modified);
    // Writes the open project, if it has unsaved changes, into the backup folder without touching
    // its own file: used when the session ends without asking (logout, SIGTERM). Returns the path.
    QString saveRecoveryCopy();
    // Returns once every save asked for has ended, showing progress if that takes long; true when
    // the last one worked. Saving runs on a worker: onSaveProject() only starts it.
    bool waitForSaves();

    // What the user wants when the file changed on disk since it was opened or saved.
    enum ChangedFileChoice { OverwriteChangedFile, SaveChangedFileAs, KeepChangedFile };

    // Where the journal of unsaved changes lives; the per-user data folder unless set.
    QString dataFolder() const { return m_dataFolder; }
    void setDataFolder(const QString &folder);
    QString journalPath() const;
    OVProjectJournal *journal() const { return m_journal; }
    // Offers back the work of a session that ended without saving it, if the journal holds any.
    // `uncleanEnd`: the session did not end by itself (it was killed or crashed).
    void offerUnsavedWork(bool uncleanEnd);
    // Tells the user about a problem found outside any command (settings, data folder).
    void notifyProblem(const QString &title, const QString &message);
    // Tells that the data folder cannot be written. The journal and the backups live there, so
    // this one message stands for their failures too: they are not told again.
    void notifyDataFolderProblem(const QString &message);

public Q_SLOTS:
    // Saves the open project if autosaving is on, it has a file and unsaved changes.
    void onAutosaveTimer();

Q_SIGNALS:
    void projectOpened();
    void projectClosed();
    // The open project was written to `path` (as it was when the save was asked for).
    void projectSaved(const QString &path);

public Q_SLOTS:
    // project
    void onNewProject();
    void onOpenProject();
    bool loadProject(const QString &path);
    bool onSaveProject();
    bool onSaveProjectAs();
    void onCloseProject();
    bool onCloseProject(bool checkForSavedChanges);
    void onShowProjectDetails();
    void onRecentProjectClicked();
    void onProjectDataChanged();
    void onProjectTypeChanged();
    void onChangeDetected();
    void openBackupFolder();
    void updateWindowTitle();
    // history
    void undo();
    void redo();
    void onProjectHistoryChanged();
    // video and audio
    void onOpenVideoTriggered();
    bool openVideo(const QString &path);
    void onRemoveVideo();
    void onFileDroppedToPlayer(const QString &path);
    void onPlayerInitFinished(int errorCode);
    // Playback stopped with an error after it had started: the user is told and coding stops.
    void onPlaybackFailed(const QString &path, const QString &message);
    void onSeekRequested(double position);
    // export
    void onExportStatsTriggered();
    void onExportRawDataTriggered();
    void onMultiProjectWorkshopTriggered();
    // application
    void showAbout();
    void showSettings();
    void updateActionsShortcuts();
    void onShowLogToggled();
    void showSendReportDialog();
    void showSendReportDialog(const QStringList &files);
    void onSingleInstanceMessage(const QString &message);
    void openFile(const QString &path);
    // The files named on the command line, after the last session's work was offered back: the
    // project that work was taken back into is not opened again over it.
    // `ended` is asked before each file: a session ended meanwhile opens (and asks) nothing more.
    void openStartupFiles(const QStringList &paths, const std::function<bool()> &ended = {});
    void onSimulateCrash();
    // Asks once about reports an earlier crash left in `folder`, then shows them if wanted.
    void checkForCrashReports(const QString &folder);

protected:
    void closeEvent(QCloseEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
    // The questions the window asks; tests answer them by overriding.
    virtual QMessageBox::StandardButton askUnsavedChanges();
    virtual QMessageBox::StandardButton askSendCrashReport();
    // Yes: take the unsaved work back; No: put it aside.
    virtual QMessageBox::StandardButton askRecoverUnsavedWork(const QString &text);
    virtual void showError(const QString &title, const QString &message);
    // A project that could not be opened, with the offer to open its backup folder; true when taken.
    virtual bool showLoadError(const QString &title, const QString &message);
    virtual QString chooseOpenPath();
    virtual QString chooseSavePath();
    virtual QString chooseMediaPath();
    virtual ChangedFileChoice askChangedFile(const QString &message);
    // Where an export goes; `filter` as for a file dialog. Empty when the user cancels.
    virtual QString chooseExportPath(const QString &caption, const QString &filter);
    virtual QStringList chooseProjectPaths();

private:
    void createActions();
    void createMenus();
    // `recovered`: the project holds work not in any file, so the journal starts with all of it.
    void setProject(OVProject::Project *project, const QString &path, bool recovered = false);
    void startJournal(bool withContent);
    void updateAutosave();
    // Asks about unsaved changes of the open project; false when the user cancels (or a save fails).
    bool confirmDiscardChanges();
    bool startSave(const QString &path, int options, bool autosave = false);
    void onSaveFinished(quint64 ticket, const OV::Error &error, const QString &backupWarning);
    void setStorage(OVLocalFileStorage *storage);
    // Gives the current user a timeline of their own and makes it the edited one.
    void ensureUserTimeline();
    void updateRecentProjectsMenu();
    void updateProjectActions();
    void updateProjectSummary();
    // Keeps where playback of the open project stands, for the next time it is opened.
    void rememberPlaybackPosition();
    void journalPlaybackPosition();
    void applyModified();
    void openBackupFolderOf(const QString &projectPath);
    OVCodingSnapshot codingSnapshot() const;

    OVSettings *m_settings;
    OVActionRegistry *m_actions;
    OVProject::Project *m_project = nullptr;
    QString m_projectPath;
    OVLocalFileStorage *m_storage = nullptr;
    bool m_modified = false;
    // A change since the last save that is not a step of the history (a new recording, the header).
    bool m_unrecordedChanges = false;
    // Counts the changes outside the history, so a save that ends clears them only when none
    // came after the state it wrote.
    quint64 m_changeGeneration = 0;
    struct SaveRequest
    {
        QString path;
        quint64 generation = 0;
        const OVProject::Project *project = nullptr;
        quint64 journalSequence = 0;
        OVProject::History::Mark historyMark;
        bool autosave = false;
    };
    QHash<quint64, SaveRequest> m_saves;
    bool m_lastSaveOk = true;
    QProgressBar *m_saveProgress = nullptr;
    QSplitter *m_mainSplitter = nullptr;
    QStackedWidget *m_playerStack = nullptr;
    QLabel *m_playerArea = nullptr;
    OVPlayerPanel *m_player = nullptr;
    // The outcome of the player's last start: its file and, on failure, the reason.
    QString m_playerPath;
    QString m_playerMessage;
    // The recording openVideo() is opening; the project takes it only once it plays.
    QString m_pendingVideoPath;
    OVTimelineControl *m_timeline = nullptr;
    OVTranscriptPanel *m_transcript = nullptr;
    OVTranscriptActions *m_transcriptActions = nullptr;
    QDockWidget *m_logDock = nullptr;
    NXLogWidget *m_logWidget = nullptr;
    OVSegmentListDock *m_segmentDock = nullptr;
    QAction *m_showLogAction = nullptr;
    OVRecordingWaveforms *m_recordingWaveforms = nullptr;
    QMenu *m_recentMenu = nullptr;
    QAction *m_statsAction = nullptr;
    OVAudioTrackFlow *m_audioTracks = nullptr;
    QString m_dataFolder;
    OVProjectJournal *m_journal = nullptr;
    bool m_journalProblemShown = false;
    QTimer *m_autosaveTimer = nullptr;
    // Gathers the position's moves into at most one journal record a second.
    QTimer *m_positionTimer = nullptr;
    bool m_autosaveProblemShown = false;
    bool m_backupProblemShown = false;
};
