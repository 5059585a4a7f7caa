#pragma once

#include "log/overror.h"

#include <QString>

#include <functional>

class QWidget;

// Long work that ends in an OV::Error (an export, reading a set of projects), run as an
// OVBackgroundTask: the work reports through the callback it is given, which returns false once
// the user has cancelled; the work then stops and returns.
class OVProgressRunner
{
public:
    // (done, total) -> keep going?
    using Report = std::function<bool(qint64 done, qint64 total)>;
    using Work = std::function<OV::Error(const Report &report)>;

    // Blocks (in a local event loop, so the window stays painted) until the work has returned.
    static OV::Error run(QWidget *parent, const QString &label, const Work &work);
};
