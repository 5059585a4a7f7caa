#pragma once

#include "analysis/ovagreement.h"
#include "analysis/ovcodingsnapshot.h"
#include "analysis/ovstatistics.h"

#include "log/overror.h"

#include <QColor>

class QChart;
class QWidget;

// The plots of the analysis: what a reader of a paper looks at rather than reads.
class OVAnalysisCharts
{
public:
    // Every plot draws a label in the label's own colour, the one the coders saw on the timeline.
    // Bars per label for each coder: the share of the observed time the label covers, in percent.
    static QChart *timeBudget(const QList<OVStatistics::Row> &rows, const OVCodingSnapshot &snapshot);
    // All coders on one time axis: one row per label, the coders side by side within it, a mark
    // at every onset (a zero-length press is a mark like any other). Coders differ by the
    // shape of their marks.
    static QChart *eventPlot(const OVCodingSnapshot &snapshot, const QStringList &coders);
    // Kappa per label; a label whose kappa is undefined is drawn at 0 and named so.
    static QChart *agreement(const OVAgreement::Result &result, const OVCodingSnapshot &snapshot);

    // The colour of a label as the coders used it: the first coder's label with that key, else
    // with that name; grey when none has it or its colour is fully transparent.
    static QColor labelColor(const OVCodingSnapshot &snapshot, const QString &name, QChar key);

    // Saves what `view` shows, as PNG or (by the ending ".svg") SVG.
    static OV::Error save(QWidget *view, const QString &path);
};
