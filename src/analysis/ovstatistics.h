#pragma once

#include "analysis/ovcodingsnapshot.h"

#include <QList>

// Descriptive statistics of the coding, one row per coder and label (and per segment group when
// asked), over a window of observed time.
//
// Segments are clipped to the window. `total` sums the clipped durations (so `mean` = total /
// count), while `share` is the part of the window covered by at least one segment of the label:
// overlapping segments of one label count once there, so share never exceeds 1. Open segments
// (not yet closed) have no duration: they are left out of every figure and counted apart.
// A figure that has no value (the mean of no segments) is NaN, never 0.
class OVStatistics
{
public:
    struct Window
    {
        double from = 0.0;
        // Negative: up to the end of the observed time (OVCodingSnapshot::observedEnd()).
        double to = -1.0;
    };
    struct Row
    {
        QString project;
        QString coder;
        // Empty for the whole coding; the group's name for the rows of one segment group.
        QString group;
        QString label;
        QChar key;
        int count = 0;
        int openCount = 0;
        double total = 0.0;
        double mean = 0.0;
        double median = 0.0;
        double min = 0.0;
        double max = 0.0;
        double share = 0.0;
        double ratePerMinute = 0.0;
        // From the window's start to the first onset (0 for a segment already running then).
        double latency = 0.0;
    };

    static QList<Row> compute(const OVCodingSnapshot &snapshot, Window window, bool perGroup = false);
    // The window that compute() uses for `window` (the end filled in).
    static Window resolve(const OVCodingSnapshot &snapshot, Window window);
    // The figures of one label's segments (rows of `segments` whose ids are in `only`, when given).
    static Row labelRow(const QList<OVCodingSnapshot::Segment> &segments, Window window,
        const QStringList *only = nullptr);
};
