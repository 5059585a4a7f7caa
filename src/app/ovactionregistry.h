#pragma once

#include <QHash>
#include <QKeySequence>
#include <QList>
#include <QObject>
#include <QString>

class QAction;
class QWidget;
class OVKeyboardSettings;

// One keyboard action: a fixed id (stored as "Action<id>" when the user assigns a shortcut),
// its category and title, and its default shortcut in portable text form.
struct OVActionInfo
{
    int id;
    QString category;
    QString title;
    QString defaultShortcut;
    bool checkable = false;
};

// The application's keyboard actions. Every menu command that has an id is made here, so
// shortcuts are assigned in one place. The table names every action the program knows; an action
// is live once something handles it (a connection to its triggered() or toggled()), and only live
// actions are offered for shortcuts, so a command shows up there the moment its feature is wired.
//
// Shortcuts work while the main window (or one of its floating docks) is active, never in a dialog
// over it; an action scoped to views works only while the focus is inside one of them.
class OVActionRegistry : public QObject
{
    Q_OBJECT
public:
    enum ActionId {
        EnableLooping = 1, AdvanceLoopForward = 2, AdvanceLoopBackward = 3, StartNewUtterance = 4,
        FinishUtterance = 5, VolumeUp = 6, VolumeDown = 7, SpeedUp = 8, SpeedDown = 9, SeekForward = 10,
        SeekBackward = 11, TogglePlayback = 12, OpenVideo = 13, ImportLabels = 14, ExportLabels = 15,
        ImportTranscript = 16, ExportTranscriptCsv = 17, CloseApplication = 18, ShowTranscriptsOnVideo = 19,
        AddLabel = 20, CopyToClipboardCsv = 21, About = 22, EnableTranscribing = 23, Settings = 24,
        ExportMovieBuilderVideo = 25, ExportRawData = 26, ClearTimeline = 27, ClearTranscript = 28,
        ReportProblem = 30, OpenOnlineVideo = 31, ClearCache = 32, OpenProject = 33, SaveProject = 34,
        NewProject = 35, CloseProject = 36, ProjectDetails = 37, SaveProjectAs = 38, Login = 39, Logout = 40,
        PublishProject = 41, EditProjectUsers = 42, BrowseOnlineProjects = 43, SaveOnlineProject = 44,
        RefreshOnlineProject = 45, Fullscreen = 46, Transcript = 47, MovieBuilder = 48, Labels = 49,
        AddAudioTrack = 50, OpenBackupFolder = 51, EditAudioTracks = 52, SimulateCrash = 53,
        PendingUploads = 54, PasscodeManager = 55, JoinProjectUsingPasscode = 56, MultiProjectWorkshop = 57,
        RemoveVideo = 58, LicensingInfo = 59, Undo = 61, Redo = 62, TranslationEditor = 63,
        CheckForUpdates = 64, DrawingTools = 65, DrawingsLabel = 66, Waveforms = 67,
        CopyToClipboardPlainText = 68, CopyToClipboardHtml = 69, ExportTranscriptExcel = 70,
        // Our own additions, numbered on from the fixed table so stored shortcuts never collide.
        StepForward = 71, StepBackward = 72
    };

    explicit OVActionRegistry(QObject *parent = nullptr);

    static const QList<OVActionInfo> &table();
    static const OVActionInfo *info(int id);

    // The QAction of `id`, made on first request with the action's title and checkability.
    QAction *action(int id);
    // Whether action `id` has been made and something handles it.
    bool isLive(int id) const;
    // Keys that views use themselves (the plain arrows) work for `id` only while the focus is in
    // one of `views` or their children.
    void scopeToViews(int id, const QList<QWidget *> &views);

    // The shortcut in force: the user's (possibly empty) if assigned, else the default.
    static QString effectiveShortcut(int id, const OVKeyboardSettings *settings);
    // The platform's own key for what every desktop program does (save, open, new, quit), kept
    // beside effectiveShortcut(); empty for other actions.
    static QKeySequence standardShortcut(int id);
    // Applies effectiveShortcut() and standardShortcut() to every created action.
    void applyShortcuts(const OVKeyboardSettings *settings);

private:
    QHash<int, QAction *> m_actions;
};
