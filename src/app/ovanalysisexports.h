#pragma once

#include "analysis/ovcodingsnapshot.h"
#include "log/overror.h"

#include <QStringList>

class QWidget;

// The exports of the analysis that need no dialog of their own, each on a pool thread behind a
// progress dialog with Cancel.
class OVAnalysisExports
{
public:
    // Asks where an export goes; the file gets the ending of the chosen filter when the user typed
    // none. Empty when the user cancels.
    static QString chooseSavePath(QWidget *parent, const QString &caption, const QString &filter);
    // Every segment as a row and every utterance in a sheet of its own (XLSX); as CSV the
    // segments go to `path` and the utterances beside it ("<name>_utterances.csv").
    static OV::Error rawData(QWidget *parent, const OVCodingSnapshot &snapshot, const QString &path);
    // The statistics of all `projects` in one table, a row per project, coder and label. Projects
    // that cannot be read are left out and named in `skipped` ("path: reason").
    static OV::Error workshop(QWidget *parent, const QStringList &projects, const QString &path, QStringList *skipped);
};
