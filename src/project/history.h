#pragma once

#include <QObject>
#include <QString>

class QUndoCommand;
class QUndoStack;

namespace OVProject {

class HistoryCommand;
class Project;

// The one undo history of a project document. Every view and every command that changes the
// model pushes its steps here, so Undo takes back the last change whichever view made it, and the
// document's modified mark is this history's clean state.
//
// The clean state is kept here rather than in QUndoStack because saving runs on a snapshot: the
// state that was written is known when the save starts (mark()) and becomes the clean one only
// when the write has succeeded (setClean(mark)), by which time more steps may have been pushed.
class History : public QObject
{
    Q_OBJECT
public:
    // A state of the history: the step below the current index. Compared by identity, so a mark
    // of a step that has since been deleted (undone and replaced, or cleared) never matches again.
    struct Mark
    {
        const QUndoCommand *top = nullptr;
        quint64 generation = 0;
        bool valid = false;
    };

    explicit History(Project *project);

    Project *project() const { return m_project; }
    // For views of the history (a QUndoView) and for tests; push through push().
    QUndoStack *undoStack() const { return m_stack; }

    // Runs the step and keeps it. False when it failed; it is then not kept and nothing changed.
    bool push(HistoryCommand *command);
    bool undo();
    bool redo();
    bool canUndo() const;
    bool canRedo() const;
    int count() const;
    // Forgets every step; the document as it is now is the clean state.
    void clear();

    // Steps pushed between these calls are undone as one (a drag, a dialog). Nests; a gesture that
    // pushed nothing leaves no step.
    void beginGesture(const QString &text);
    void endGesture();
    bool isGestureOpen() const { return m_gestureDepth > 0; }

    Mark mark() const;
    bool isClean() const;
    // The current state, or a state marked earlier, is the one the file holds.
    void setClean();
    void setClean(const Mark &saved);

    // True while a step is being done or undone: model signals seen then are the history's own.
    bool isApplying() const { return m_applying > 0; }

    // Counts a step's run as the history's own (see isApplying()).
    class ApplyScope
    {
    public:
        explicit ApplyScope(History *h)
            : m_h(h)
        {
            if (m_h)
                ++m_h->m_applying;
        }
        ~ApplyScope()
        {
            if (m_h)
                --m_h->m_applying;
        }
        ApplyScope(const ApplyScope &) = delete;
        ApplyScope &operator=(const ApplyScope &) = delete;

    private:
        History *m_h;
    };

    // Called by a step that could not be applied.
    void reportFailure(const QString &text, bool whilePushing);

Q_SIGNALS:
    // The current step moved (push, undo, redo, clear).
    void changed();
    void cleanChanged(bool clean);
    // A step could not be applied (its nodes are gone); `text` names the step.
    void stepFailed(const QString &text);

private:
    bool step(bool forward);
    const QUndoCommand *top() const;
    bool holds(const QUndoCommand *command, int from) const;
    // Before the stack deletes the steps above the index (a new step after an undo).
    void forgetStepsAboveIndex();
    void onIndexChanged();
    void refreshClean();

    Project *m_project;
    QUndoStack *m_stack;
    int m_gestureDepth = 0;
    bool m_macroOpen = false;
    QString m_gestureText;
    int m_applying = 0;
    bool m_failed = false;

    quint64 m_generation = 0;
    const QUndoCommand *m_cleanTop = nullptr;
    bool m_cleanValid = true;
    bool m_lastClean = true;
};

} // namespace OVProject
