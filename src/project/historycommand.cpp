#include "project/historycommand.h"

#include "project/history.h"

namespace OVProject {

HistoryCommand::HistoryCommand(History *history, const QString &text)
    : QUndoCommand(text)
    , m_history(history)
{
}

Project *HistoryCommand::project() const { return m_history ? m_history->project() : nullptr; }

void HistoryCommand::redo() { run(true); }

void HistoryCommand::undo() { run(false); }

void HistoryCommand::run(bool forward)
{
    const bool first = forward && !m_pushed;
    m_pushed = true;
    bool ok;
    {
        const History::ApplyScope scope(m_history);
        ok = apply(forward);
    }
    if (ok)
        return;
    // A step that can no longer be applied is of no use in the stack: QUndoStack drops an obsolete
    // command after push, undo and redo (not one inside a macro, whose other parts still count).
    setObsolete(true);
    if (m_history)
        m_history->reportFailure(text(), first);
}

} // namespace OVProject
