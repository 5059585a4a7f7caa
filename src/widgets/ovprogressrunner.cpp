#include "widgets/ovprogressrunner.h"

#include "widgets/ovbackgroundtask.h"

#include <QCoreApplication>

#include <algorithm>
#include <atomic>
#include <memory>

OV::Error OVProgressRunner::run(QWidget *parent, const QString &label, const Work &work)
{
    // Shared with the worker, which may still look at it after the user cancelled.
    auto cancelled = std::make_shared<std::atomic<bool>>(false);
    OV::Error result;
    OVBackgroundTask::run(
        parent, QCoreApplication::applicationName(), label,
        [&](const OVBackgroundTask::Progress &progress) {
            result = work([&progress, cancelled](qint64 done, qint64 total) {
                progress(total > 0 ? int(std::clamp<qint64>(done * 1000 / total, 0, 1000)) : 0);
                return !cancelled->load();
            });
        },
        [cancelled] { *cancelled = true; });
    return result;
}
