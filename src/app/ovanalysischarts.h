#pragma once

#include "analysis/ovagreement.h"
#include "analysis/ovcodingsnapshot.h"
#include "analysis/ovstatistics.h"

#include "log/overror.h"

class QChart;
class QWidget;

// The plots of the analysis: what a reader of a paper looks at rather than reads.
class OVAnalysisCharts
{
public:
    // Bars per label for each coder: the share of the observed time the label covers, in percent.
    static QChart *timeBudget(const QList<OVStatistics::Row> &rows);
    // All coders on one time axis: one row per label, the coders side by side within it, a mark
    // at every onset (a zero-length press is a mark like any other).
    static QChart *eventPlot(const OVCodingSnapshot &snapshot, const QStringList &coders);
    // Kappa per label; a label whose kappa is undefined is drawn at 0 and named so.
    static QChart *agreement(const OVAgreement::Result &result);

    // Saves what `view` shows, as PNG or (by the ending ".svg") SVG.
    static OV::Error save(QWidget *view, const QString &path);
};
