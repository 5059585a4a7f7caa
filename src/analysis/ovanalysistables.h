#pragma once

#include "analysis/ovagreement.h"
#include "analysis/ovcodingsnapshot.h"
#include "analysis/ovstatistics.h"
#include "project/ovtable.h"

#include <QJsonArray>
#include <QJsonObject>

// The tables and JSON documents that every export of the analysis writes, in one place, so that
// the application's workbooks and kavot-cli's files hold the same columns.
class OVAnalysisTables
{
public:
    // Every segment of every coder as a row (open segments with an empty end and duration).
    static OVTable segments(const OVCodingSnapshot &snapshot);
    static OVTable utterances(const OVCodingSnapshot &snapshot);
    static OVTable statistics(const QList<OVStatistics::Row> &rows);
    static OVTable agreement(const OVAgreement::Result &result);
    static OVTable confusion(const OVAgreement::Result &result);

    static QJsonArray segmentsJson(const OVCodingSnapshot &snapshot);
    // Objects with the keys project, coder, label, key, count, total_s, mean_s, median_s, min_s,
    // max_s, share, rate_per_min, latency_s (and group, open_count). Undefined values are null.
    static QJsonArray statisticsJson(const QList<OVStatistics::Row> &rows);
    // kappa, percent and labels (label, key, kappa, percent, matched, missed, extra,
    // mean_onset_diff_s), with the coders, the window and the confusion matrix beside them.
    static QJsonObject agreementJson(const OVAgreement::Result &result, const OVAgreement::Options &options);
};
