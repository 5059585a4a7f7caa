#include "widgets/ovprogressrunner.h"

#include <QEventLoop>
#include <QFutureWatcher>
#include <QPointer>
#include <QProgressDialog>
#include <QtConcurrent>

#include <algorithm>
#include <atomic>
#include <memory>

OV::Error OVProgressRunner::run(QWidget *parent, const QString &label, const Work &work)
{
    QProgressDialog dialog(label, QObject::tr("Cancel"), 0, 1000, parent);
    dialog.setWindowModality(Qt::WindowModal);
    // Short work never flashes a dialog.
    dialog.setMinimumDuration(400);
    dialog.setAutoClose(false);
    dialog.setAutoReset(false);
    dialog.setValue(0);

    // Shared with the worker, which may still report after the dialog is gone.
    struct Shared
    {
        std::atomic<bool> cancelled {false};
        std::atomic<int> permille {0};
    };
    auto shared = std::make_shared<Shared>();
    QObject::connect(&dialog, &QProgressDialog::canceled, &dialog, [shared] { shared->cancelled = true; });

    QFutureWatcher<OV::Error> watcher;
    QEventLoop loop;
    QObject::connect(&watcher, &QFutureWatcher<OV::Error>::finished, &loop, &QEventLoop::quit);
    QPointer<QProgressDialog> target(&dialog);
    watcher.setFuture(QtConcurrent::run([work, shared, target]() {
        const Report report = [shared, target](qint64 done, qint64 total) {
            const int permille = total > 0 ? int(std::clamp<qint64>(done * 1000 / total, 0, 1000)) : 0;
            if (shared->permille.exchange(permille) != permille) {
                QMetaObject::invokeMethod(target, [target, permille] {
                    if (target && !target->wasCanceled())
                        target->setValue(permille);
                }, Qt::QueuedConnection);
            }
            return !shared->cancelled.load();
        };
        return work(report);
    }));
    loop.exec();
    return watcher.result();
}
