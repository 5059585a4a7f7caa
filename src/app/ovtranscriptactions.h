#pragma once

#include <QObject>
#include <QPointer>

class OVActionRegistry;
class QMainWindow;
class QMenu;

namespace OVProject {
class Project;
}

// The transcript's file commands of the main window: Import Transcript, Export Transcript (CSV,
// and through the dialog's filters SubRip, WebVTT, TextGrid and ELAN), Export Transcript (Excel)
// and Clear Transcript, on the active coder's timeline. Files are read and written on a pool
// thread with progress and Cancel; every change is a step of the project's history.
class OVTranscriptActions : public QObject
{
    Q_OBJECT
public:
    OVTranscriptActions(QMainWindow *window, OVActionRegistry *actions);

    // `projectPath` places a relative video path (the EAF names the recording).
    void setProject(OVProject::Project *project, const QString &projectPath);
    void addTo(QMenu *menu) const;

public Q_SLOTS:
    void importTranscript();
    // Into `path` without asking, when given (the format from its extension).
    void importTranscriptFrom(const QString &path);
    void exportTranscript();
    void exportTranscriptExcel();
    void exportTranscriptTo(const QString &path);
    void clearTranscript();

private:
    void updateActions();
    QString videoPath() const;

    QMainWindow *m_window;
    OVActionRegistry *m_actions;
    QPointer<OVProject::Project> m_project;
    QString m_projectPath;
    QString m_lastFolder;
};
