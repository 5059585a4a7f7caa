#pragma once

#include "sync/ovsync.h"

#include <QList>
#include <QPointF>

// Where each moment of the primary is heard in the secondary: straight lines between the markers,
// and beyond the outermost ones the slope of the fitted clock drift, so that the two recordings
// stay together along their whole length and not only at one marker.
class OVSyncMap
{
public:
    OVSyncMap() = default;
    // Markers as sync points of tracks at `sampleRate`; `fit` gives the slope outside them.
    OVSyncMap(const QList<OVSync::SyncInfo> &points, int sampleRate, const OVSync::Fit &fit);

    bool isValid() const { return !m_markers.isEmpty(); }
    // Secondary seconds at a primary time.
    double secondaryAt(double primarySeconds) const;

    // The secondary resampled onto the primary's time axis: `count` samples at the secondary's
    // rate, silence where the secondary has no sound.
    OVSamples align(const OVSamples &secondary, qint64 count) const;

private:
    QList<QPointF> m_markers; // (primary s, secondary s), ascending in both
    double m_outerSlope = 1.0; // secondary seconds per primary second beyond the markers
};
