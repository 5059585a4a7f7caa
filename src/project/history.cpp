#include "project/history.h"

#include "project/historycommand.h"
#include "project/project.h"

#include <QUndoStack>

namespace OVProject {

History::History(Project *project)
    : QObject(project)
    , m_project(project)
    , m_stack(new QUndoStack(this))
{
    connect(m_stack, &QUndoStack::indexChanged, this, &History::onIndexChanged);
}

bool History::push(HistoryCommand *command)
{
    if (!command)
        return false;
    // The macro opens with its first step so that a gesture that changed nothing leaves none.
    if (m_gestureDepth > 0 && !m_macroOpen) {
        forgetStepsAboveIndex();
        m_stack->beginMacro(m_gestureText);
        m_macroOpen = true;
    } else if (!m_macroOpen) {
        forgetStepsAboveIndex();
    }
    m_failed = false;
    const QUndoCommand *before = m_macroOpen ? nullptr : top();
    const int count = m_stack->count();
    m_stack->push(command); // deletes the command if its first run failed, or if it merged
    const bool ok = !m_failed;
    m_failed = false;
    if (ok && before && top() == before && m_stack->count() == count) {
        // Merged into the step below: the model moved on under a step whose identity stayed, so
        // neither the clean state nor a save's mark on that step may name this state any more.
        ++m_generation;
        if (m_cleanTop == before)
            m_cleanValid = false;
    }
    refreshClean();
    return ok;
}

bool History::undo() { return step(false); }

bool History::redo() { return step(true); }

bool History::step(bool forward)
{
    if (m_macroOpen || !(forward ? m_stack->canRedo() : m_stack->canUndo()))
        return false;
    m_failed = false;
    forward ? m_stack->redo() : m_stack->undo();
    const bool ok = !m_failed;
    m_failed = false;
    refreshClean();
    return ok;
}

bool History::canUndo() const { return !m_macroOpen && m_stack->canUndo(); }
bool History::canRedo() const { return !m_macroOpen && m_stack->canRedo(); }
int History::count() const { return m_stack->count(); }

void History::clear()
{
    if (m_macroOpen)
        m_stack->endMacro();
    m_macroOpen = false;
    m_gestureDepth = 0;
    m_stack->clear();
    ++m_generation;
    m_cleanTop = nullptr;
    m_cleanValid = true;
    refreshClean();
    Q_EMIT changed();
}

void History::beginGesture(const QString &text)
{
    if (m_gestureDepth++ == 0)
        m_gestureText = text;
}

void History::endGesture()
{
    if (m_gestureDepth == 0)
        return;
    if (--m_gestureDepth == 0 && m_macroOpen) {
        m_macroOpen = false;
        m_stack->endMacro();
        refreshClean();
    }
}

const QUndoCommand *History::top() const
{
    const int index = m_stack->index();
    return index > 0 ? m_stack->command(index - 1) : nullptr;
}

bool History::holds(const QUndoCommand *command, int from) const
{
    for (int i = from; i < m_stack->count(); ++i) {
        if (m_stack->command(i) == command)
            return true;
    }
    return false;
}

void History::forgetStepsAboveIndex()
{
    // Those steps are about to be deleted; a later step may be allocated at the same address.
    if (m_cleanValid && m_cleanTop && holds(m_cleanTop, m_stack->index()))
        m_cleanValid = false;
}

History::Mark History::mark() const
{
    Mark m;
    m.top = top();
    m.generation = m_generation;
    // Inside a gesture the model is ahead of the stack's index: no step names that state.
    m.valid = !m_macroOpen;
    return m;
}

bool History::isClean() const { return !m_macroOpen && m_cleanValid && top() == m_cleanTop; }

void History::setClean() { setClean(mark()); }

void History::setClean(const Mark &saved)
{
    m_cleanTop = saved.top;
    m_cleanValid = saved.valid && saved.generation == m_generation && (!saved.top || holds(saved.top, 0));
    refreshClean();
}

void History::reportFailure(const QString &text, bool whilePushing)
{
    m_failed = true;
    if (!whilePushing)
        Q_EMIT stepFailed(text);
}

void History::onIndexChanged()
{
    // A failed undo or redo drops its step from the stack; the clean step may have been it.
    if (m_cleanValid && m_cleanTop && !holds(m_cleanTop, 0))
        m_cleanValid = false;
    refreshClean();
    Q_EMIT changed();
}

void History::refreshClean()
{
    const bool clean = isClean();
    if (clean == m_lastClean)
        return;
    m_lastClean = clean;
    Q_EMIT cleanChanged(clean);
}

} // namespace OVProject
