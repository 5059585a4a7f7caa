#include "widgets/ovbackgroundtask.h"

#include "log/ovthreadhandoff.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QFutureWatcher>
#include <QPointer>
#include <QProgressDialog>
#include <QTimer>

#include <limits>
#include <QtConcurrent/QtConcurrentRun>

void OVBackgroundTask::run(QWidget *parent, const QString &title, const QString &label,
    const std::function<void(const Progress &)> &work, const std::function<void()> &cancel)
{
    QProgressDialog dialog(label, QCoreApplication::translate("OVBackgroundTask", "Cancel"), 0, 1000, parent);
    dialog.setWindowTitle(title);
    dialog.setWindowModality(Qt::WindowModal);
    dialog.setAutoClose(false);
    dialog.setAutoReset(false);
    // Shown by us after the quiet moment, not by the dialog's own timer.
    dialog.setMinimumDuration(std::numeric_limits<int>::max());
    dialog.reset();
    QObject::connect(&dialog, &QProgressDialog::canceled, &dialog, [&dialog, &cancel] {
        dialog.setLabelText(QCoreApplication::translate("OVBackgroundTask", "Cancelling..."));
        dialog.setCancelButton(nullptr);
        if (cancel)
            cancel();
    });
    // The worker posts progress to the dialog; run() outlives the worker, so the dialog does too.
    QProgressDialog *target = &dialog;
    const Progress progress = [target](int permille) {
        QMetaObject::invokeMethod(target, [target, permille] { target->setValue(permille); }, Qt::QueuedConnection);
    };

    QEventLoop loop;
    QFutureWatcher<void> watcher;
    QObject::connect(&watcher, &QFutureWatcher<void>::finished, &loop, &QEventLoop::quit);
    // The caller's state goes to the worker and the work's results come back through the pool.
    OV::handOff(&watcher);
    watcher.setFuture(QtConcurrent::run([&work, progress, token = &watcher] {
        OV::takeOver(token);
        work(progress);
        OV::handOff(token);
    }));

    // A quiet moment without input: a quick load looks like a plain one and nothing can be
    // clicked meanwhile.
    QTimer::singleShot(QuietMs, &loop, &QEventLoop::quit);
    if (!watcher.isFinished())
        loop.exec(QEventLoop::ExcludeUserInputEvents);
    if (!watcher.isFinished()) {
        dialog.show();
        loop.exec();
    }
    // Quit may have come from the timer just before the work finished; wait for the real end.
    watcher.waitForFinished();
    OV::takeOver(&watcher);
    // Progress posted by the worker's last steps must not reach the dialog after it is gone.
    QCoreApplication::removePostedEvents(&dialog, QEvent::MetaCall);
}
