#pragma once

#include "analysis/ovcodingsnapshot.h"

#include <QList>
#include <QVector>

// Agreement between two coders of one project.
//
// Time-sliced: the window is cut into slices of `resolution` seconds; a label is present in a
// slice when one of its closed segments holds the slice's midpoint (start <= mid < end). Each
// label gives a 2x2 table over the slices, hence Cohen's kappa and the percentage of slices on
// which the coders agree. Over the label set the tables are pooled (every label-slice decision
// counts once). Kappa is undefined (NaN) when chance agreement is total, as when neither coder
// used the label.
//
// Event-based: the onsets of a label's closed segments in the window are matched one to one
// when they lie within `tolerance` of each other, as many as can be (sorted two-pointer walk,
// which maximises the matches on a line); coder A is the reference: an onset of A without a
// partner is missed, one of B extra. The onset difference is |B - A| over the matches.
//
// Labels of the two timelines are matched by key, then by name; a label only one of them has
// is compared against nothing from the other.
class OVAgreement
{
public:
    struct Options
    {
        double from = 0.0;
        // Negative: the end of the observed time.
        double to = -1.0;
        double resolution = 0.1;
        double tolerance = 1.0;
    };
    struct LabelResult
    {
        QString label;
        QChar key;
        double kappa = 0.0;
        double percent = 0.0;
        // Slices with the label: by A, by B, by both.
        qint64 slicesA = 0;
        qint64 slicesB = 0;
        qint64 slicesBoth = 0;
        int matched = 0;
        int missed = 0;
        int extra = 0;
        double meanOnsetDiff = 0.0;
    };
    struct Result
    {
        QString coderA;
        QString coderB;
        double from = 0.0;
        double to = 0.0;
        qint64 slices = 0;
        double kappa = 0.0;
        double percent = 0.0;
        int matched = 0;
        int missed = 0;
        int extra = 0;
        double meanOnsetDiff = 0.0;
        QList<LabelResult> labels;
        // Rows: A's label, columns: B's label, in the order of `labels`, then one for "no label".
        // A slice counts once for every pair of a label of A and one of B present in it.
        QVector<QVector<qint64>> confusion;
    };

    static Result compute(const OVCodingSnapshot &snapshot, const OVCodingSnapshot::Coder &a,
        const OVCodingSnapshot::Coder &b, const Options &options);

    // Cohen's kappa of a 2x2 table; NaN when chance agreement is total.
    static double kappa(qint64 both, qint64 onlyA, qint64 onlyB, qint64 neither);
    // The slices [first, last) whose midpoint lies in [start, end).
    static std::pair<qint64, qint64> sliceRange(double start, double end, double from, double resolution, qint64 slices);
};
