#pragma once

#include <QtGlobal>

#include <vector>

// Changes the length of interleaved signed 16-bit audio for playback at another speed, by
// dropping or repeating samples. The pitch follows the speed; there is no pitch correction,
// which keeps the work to plain copies on the decoding thread.
class OVTimeStretch
{
public:
    // The output length for a time factor (the reciprocal of the speed): trunc(frames × factor).
    static int outputFrames(int inputFrames, double timeFactor);

    // Stretches inFrames frames of `channels` interleaved channels into exactly outFrames frames.
    // Equal lengths copy as they are. Otherwise, per channel, input frame i lands at
    // trunc(i × outFrames / inFrames); a gap left between two landing places repeats the earlier
    // sample, and the places after the last one take the channel's last input sample.
    // An empty input gives silence.
    static void stretch(const qint16 *in, int inFrames, int channels, qint16 *out, int outFrames);

    // The same into a new buffer of outputFrames(inFrames, timeFactor) frames.
    static std::vector<qint16> stretched(const qint16 *in, int inFrames, int channels,
                                         double timeFactor);
};
