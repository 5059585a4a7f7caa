#pragma once

#include "transcript/ovtranscriptloop.h"

#include <QPointer>
#include <QWidget>

class KVMainWindow;
class OVTranscriber;
class OVTranscriptHistory;
class OVTranscriptView;
class QComboBox;
class QDockWidget;
class QLabel;
class QLineEdit;
class QMenu;

namespace OVProject {
class Project;
class Utterance;
} // namespace OVProject

// The transcript's part of the main window: the table in a dock (View > "Transcript"), the line
// the coder types the utterance being written into, and the transcription actions — transcribing,
// looping, the transcript over the video and the copies to the clipboard. A "Conversation
// Analysis Project" opens with the transcript as the main view.
class OVTranscriptPanel : public QWidget
{
    Q_OBJECT
public:
    explicit OVTranscriptPanel(KVMainWindow *window);

    QDockWidget *dock() const { return m_dock; }
    OVTranscriptView *view() const { return m_view; }
    OVTranscriber *transcriber() const { return m_transcriber; }
    QLineEdit *draftEdit() const { return m_draft; }
    // The window playback loops over while looping is on.
    OVTranscriptLoop::Window loopWindow() const { return m_loop; }

public Q_SLOTS:
    void startNewUtterance();
    void finishUtterance();
    void setLooping(bool on);
    void advanceLoop(int steps);
    void copyCsv();
    void copyPlainText();
    void copyHtml();

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void onProjectOpened();
    void onProjectClosed();
    void applyProjectType();
    void onTranscribingToggled(bool on);
    void onWritingChanged(bool writing);
    void updateStatus();
    QString shortcutText(int action) const;
    void updateUtteranceActions();
    void updateSpeakerChoices();
    void onHighlightChanged();
    void updateOverlay();
    void applyLoop();
    void showMessage(const QString &text);
    QList<const OVProject::Utterance *> utterancesToCopy() const;

    KVMainWindow *m_window;
    QPointer<OVProject::Project> m_project;
    OVTranscriptHistory *m_requests;
    OVTranscriber *m_transcriber;
    QDockWidget *m_dock;
    OVTranscriptView *m_view;
    QComboBox *m_filter;
    QComboBox *m_speaker;
    QLineEdit *m_draft;
    QLabel *m_status;
    bool m_looping = false;
    OVTranscriptLoop::Window m_loop;
};
