#pragma once

#include <cstddef>

// Keeps the sound on the playback clock, one sound card buffer at a time.
//
// The clock is wall time: the sound card's own clock runs a little fast or slow, it may start
// late, stall, or be starved by a busy decoder. Before each buffer the callback compares when
// the next buffered sample is due with when it will be heard (now plus the output latency) and
// asks plan() what to do:
//  - far off (beyond JumpSeconds): wait with silence until the sound is due, or skip the sound
//    that was due meanwhile, at once;
//  - near: drop or repeat a few samples spread over the buffer, at most MaxCorrection of it, in
//    proportion to the error, so the error decays smoothly and the noise of the latency figures
//    averages out;
//  - within DeadBandSeconds: play as it is.
// Silence comes out only where no sound is due yet or none is buffered; sound that missed its
// time because of a starved buffer is skipped later, never played late.
class OVAudioSync
{
public:
    static constexpr double JumpSeconds = 0.04;
    static constexpr double DeadBandSeconds = 0.001;
    static constexpr double MaxCorrection = 0.1;
    // The share of the error corrected per buffer.
    static constexpr double Gain = 0.05;

    // For one buffer of `frames` output frames: `silence` frames of silence first, then `skip`
    // buffered frames dropped unheard, then `read` buffered frames spread over `stretchTo`
    // output frames; any output frames left over are silence (nothing more was buffered).
    struct Plan
    {
        std::size_t silence = 0;
        std::size_t skip = 0;
        std::size_t read = 0;
        std::size_t stretchTo = 0;
    };

    // error: when the next buffered sample is due minus when it would be heard, in seconds
    // (positive: the sound would come early). available: buffered frames.
    static Plan plan(double error, std::size_t frames, std::size_t available, int rate);
};
