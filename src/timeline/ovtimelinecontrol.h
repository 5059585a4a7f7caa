#pragma once

#include "project/basenode.h"
#include "project/project.h"
#include "settings/ovlabelingsettings.h"

#include <QPointer>
#include <QWidget>

#include <functional>

class QComboBox;
class QDoubleSpinBox;
class QLabel;
class QMenu;
class QPushButton;
class QTimer;
class QToolButton;
class QUndoStack;
class OVKeyboardCoder;
class OVTimeScaleWidget;
class OVTimelineWidget;

namespace OVProject {
class Label;
class Segment;
class Timeline;
} // namespace OVProject

// The timeline panel of the main window: the coding widget with its ruler, the add-label button,
// the labeling mode and lead times, and the timeline file load and save. It hands key presses on
// the coding surface to the keyboard coder and forwards the widget's seek requests.
class OVTimelineControl : public QWidget
{
    Q_OBJECT
public:
    explicit OVTimelineControl(OVLabelingSettings *settings, QWidget *parent = nullptr);
    ~OVTimelineControl() override;

    void setProject(OVProject::Project *project);
    OVProject::Project *project() const { return m_project; }
    OVTimelineWidget *timelineWidget() const { return m_widget; }
    OVTimeScaleWidget *timeScale() const { return m_scale; }
    OVKeyboardCoder *coder() const { return m_coder; }
    // The project's history (null without a project).
    QUndoStack *undoStack() const;

    // A plain key press that no focused widget took, from wherever in the window it came: codes
    // it when it is a coding key (true: consumed, whether or not it coded).
    bool codeKeyPress(QKeyEvent *event);

    // While transcribing, letter keys belong to the transcript and do not code.
    void setTranscribingEnabled(bool on);
    bool isTranscribingEnabled() const { return m_transcribing; }

    // Asks the user a yes/no question; replaceable so that automated use needs no dialog.
    using Confirmation = std::function<bool(const QString &question)>;
    void setConfirmation(Confirmation confirm) { m_confirm = std::move(confirm); }

    // Deletes the selected segments of the active timeline after asking; true when deleted.
    bool deleteSelectedSegments();
    // Deletes every segment of the active timeline (one undo step) after asking.
    bool clearAll();

    // Timeline files: the active timeline's labels and segments.
    bool saveTimelineFile(const QString &path);
    // A failed or cancelled load changes nothing; `why` then says what was wrong with the file
    // (empty when the user cancelled).
    bool loadTimelineFile(const QString &path, QString *why = nullptr);

Q_SIGNALS:
    void seekRequested(double time);
    // Something the user should read in the status bar (why a key press coded nothing).
    void statusMessage(const QString &text);

public Q_SLOTS:
    void onAddLabelClicked();
    void onLabelRightClicked(OVProject::Id label, OVProject::Segment *segment, QPoint pos);
    void onLabelDoubleClicked(OVProject::Id label, OVProject::Segment *segment, QPoint pos);
    void onLabelNameRightClicked(OVProject::Id label, QPoint pos);
    void onLabelNameDoubleClicked(OVProject::Id label, QPoint pos, int area);
    void onLoadClicked();
    void onSaveClicked();
    void onTranscribingEnabledChanged();
    void onTimeScaleChanged();
    void onTimelinePpsChanged(double pps);
    void onEmptyTimelineRightClicked();
    void onLeadTimeChanged();
    void onAuthorActionClicked();
    void onLabelingModeChangedFromCombo();
    void onLabelingModeChanged();
    void onDurationChanged();
    void onSeekRequested(double time);
    void zoomTimelineToFit();

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;

private:
    bool handleKey(QKeyEvent *event);
    OVProject::Label *activeLabel(const OVProject::Id &id) const;
    void editLabel(OVProject::Label *label);
    void editSegment(OVProject::Segment *segment);
    void fillAuthorMenu();
    void refreshSettingsFields();
    bool confirm(const QString &question);

    QPointer<OVProject::Project> m_project;
    QPointer<OVLabelingSettings> m_settings;
    OVTimelineWidget *m_widget;
    OVTimeScaleWidget *m_scale;
    QPushButton *m_addLabel;
    QComboBox *m_mode;
    QLabel *m_leadOpenCaption;
    QDoubleSpinBox *m_leadOpen;
    QLabel *m_leadCloseCaption;
    QDoubleSpinBox *m_leadClose;
    QLabel *m_durationCaption;
    QDoubleSpinBox *m_duration;
    QToolButton *m_authors;
    QMenu *m_authorMenu;
    OVKeyboardCoder *m_coder;
    bool m_transcribing = false;
    bool m_updatingFields = false;
    Confirmation m_confirm;
};
