#pragma once

#include <QString>

#include <functional>

class QWidget;

// Long work of a command (loading a project, importing labels) on a pool thread, while the
// window keeps painting. For a moment the application takes no input, so quick work shows
// nothing; after that a window-modal progress dialog appears whose Cancel asks the work to stop.
// run() returns once the work has finished, so the caller reads its result as after a plain call.
class OVBackgroundTask
{
public:
    // Called from the worker with progress in permille; cheap and safe from any thread.
    using Progress = std::function<void(int permille)>;

    // Runs `work` and returns when it is done. `cancel` is called on this thread when the user
    // cancels; the work is expected to notice and return early.
    static void run(QWidget *parent, const QString &title, const QString &label,
        const std::function<void(const Progress &progress)> &work, const std::function<void()> &cancel);

    // How long work may take before the dialog shows.
    static constexpr int QuietMs = 300;
};
