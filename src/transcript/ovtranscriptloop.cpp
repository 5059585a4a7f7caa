#include "transcript/ovtranscriptloop.h"

#include <algorithm>
#include <cmath>

OVTranscriptLoop::Window OVTranscriptLoop::fitted(double start, double length, double duration)
{
    length = std::max(length, MinimumLength);
    if (duration > 0.0) {
        length = std::min(length, duration);
        start = std::min(start, duration - length);
    }
    start = std::max(start, 0.0);
    return Window{ start, start + length };
}

OVTranscriptLoop::Window OVTranscriptLoop::around(double position, double length, double duration)
{
    length = std::max(length, MinimumLength);
    return fitted(position - length / 2.0, length, duration);
}

OVTranscriptLoop::Window OVTranscriptLoop::spanning(double start, double end, double duration)
{
    if (end < start)
        std::swap(start, end);
    const double length = end - start;
    // A short utterance is widened on both sides, so it stays in the middle of what is heard.
    if (length < MinimumLength)
        return around((start + end) / 2.0, MinimumLength, duration);
    return fitted(start, length, duration);
}

OVTranscriptLoop::Window OVTranscriptLoop::advanced(const Window &window, int steps, double duration)
{
    const double length = window.length();
    return fitted(window.start + steps * length, length, duration);
}
