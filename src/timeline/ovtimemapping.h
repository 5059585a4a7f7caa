#pragma once

#include <cmath>

// Time <-> pixel conversion of the timeline: `left` is the x of the time area's left edge,
// `offset` the time shown there (seconds) and `pps` the zoom in pixels per second. Every view
// and hit test goes through this so that they agree to the pixel.
struct OVTimeMapping
{
    double left = 0.0;
    double offset = 0.0;
    double pps = 1.0;

    // Distance in pixels within which a press grabs the cursor (strictly less than this).
    static constexpr double CursorGrabPixels = 3.0;

    double timeAt(double x) const { return (x - left) / pps + offset; }
    double exactX(double t) const { return left + (t - offset) * pps; }
    int xAt(double t) const
    {
        // Far-away times (open ends, huge zooms) would overflow int; keep them just off screen.
        const double x = exactX(t);
        if (x > 1e8)
            return 100000000;
        if (x < -1e8)
            return -100000000;
        // Half away from zero, as std::round, without the library call (paint runs this per bar).
        return x >= 0.0 ? int(x + 0.5) : -int(0.5 - x);
    }
    // True when a press at x grabs the cursor that stands at time `cursor`.
    bool grabsCursor(double x, double cursor) const
    {
        // Compared in pixels: the same test in seconds would let rounding decide the edge case.
        return x > left && std::abs(x - exactX(cursor)) < CursorGrabPixels;
    }
};
