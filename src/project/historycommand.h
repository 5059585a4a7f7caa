#pragma once

#include <QString>
#include <QUndoCommand>

namespace OVProject {

class History;
class Project;

// One step of a project's history. A step finds its nodes again by id each time it runs (undo
// and redo delete and re-create nodes, so pointers would dangle) and reports, rather than
// silently skips, a run in which they are gone: apply() returns false and then has changed
// nothing, which the history announces through History::stepFailed().
class HistoryCommand : public QUndoCommand
{
public:
    HistoryCommand(History *history, const QString &text);

    void redo() final;
    void undo() final;

protected:
    // forward: redo, else undo. False when the step cannot be applied; the model is then unchanged.
    virtual bool apply(bool forward) = 0;

    History *history() const { return m_history; }
    Project *project() const;

private:
    void run(bool forward);

    History *m_history;
    bool m_pushed = false;
};

} // namespace OVProject
