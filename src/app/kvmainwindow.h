#pragma once

#include <QMainWindow>
#include <QMessageBox>
#include <QPointer>
#include <QStringList>

class OVActionRegistry;
class OVCodingSnapshot;
class OVLocalFileStorage;
class OVSettings;
class OVTimelineControl;
class OVPlayerPanel;
class QStackedWidget;
class NXLogWidget;
class QDockWidget;
class QLabel;
class QMenu;
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
    NXLogWidget *logWidget() const { return m_logWidget; }
    // The user who codes in this session: the remembered login, else the system user.
    QString currentUser() const;
    // The modified mark of the open project (title "[*]", the question on close).
    void setModified(bool modified);
    // Writes the open project, if it has unsaved changes, into the backup folder without touching
    // its own file: used when the session ends without asking (logout, SIGTERM). Returns the path.
    QString saveRecoveryCopy();

Q_SIGNALS:
    void projectOpened();
    void projectClosed();

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
    void onSimulateCrash();
    // Asks once about reports an earlier crash left in `folder`, then shows them if wanted.
    void checkForCrashReports(const QString &folder);

protected:
    void closeEvent(QCloseEvent *event) override;
    // The questions the window asks; tests answer them by overriding.
    virtual QMessageBox::StandardButton askUnsavedChanges();
    virtual QMessageBox::StandardButton askSendCrashReport();
    virtual void showError(const QString &title, const QString &message);
    // A project that could not be opened, with the offer to open its backup folder; true when taken.
    virtual bool showLoadError(const QString &title, const QString &message);
    virtual QString chooseOpenPath();
    virtual QString chooseSavePath();
    virtual QString chooseMediaPath();
    // Where an export goes; `filter` as for a file dialog. Empty when the user cancels.
    virtual QString chooseExportPath(const QString &caption, const QString &filter);
    virtual QStringList chooseProjectPaths();

private:
    void createActions();
    void createMenus();
    void setProject(OVProject::Project *project, const QString &path);
    // Asks about unsaved changes of the open project; false when the user cancels (or a save fails).
    bool confirmDiscardChanges();
    // Gives the current user a timeline of their own and makes it the edited one.
    void ensureUserTimeline();
    void updateRecentProjectsMenu();
    void updateProjectActions();
    void updateProjectSummary();
    void openBackupFolderOf(const QString &projectPath);
    OVCodingSnapshot codingSnapshot() const;

    OVSettings *m_settings;
    OVActionRegistry *m_actions;
    OVProject::Project *m_project = nullptr;
    QString m_projectPath;
    OVLocalFileStorage *m_storage = nullptr;
    bool m_modified = false;
    QSplitter *m_mainSplitter = nullptr;
    QStackedWidget *m_playerStack = nullptr;
    QLabel *m_playerArea = nullptr;
    OVPlayerPanel *m_player = nullptr;
    QString m_playerMessage;
    // The project's video before openVideo() changed it, restored when the new file fails to play.
    bool m_videoChangePending = false;
    QString m_previousVideoPath;
    double m_previousVideoLength = 0.0;
    OVTimelineControl *m_timeline = nullptr;
    QDockWidget *m_logDock = nullptr;
    NXLogWidget *m_logWidget = nullptr;
    QAction *m_showLogAction = nullptr;
    QMenu *m_recentMenu = nullptr;
    QAction *m_statsAction = nullptr;
};
