#include "media/ovaudiosync.h"

#include <algorithm>
#include <cmath>

OVAudioSync::Plan OVAudioSync::plan(double error, std::size_t frames, std::size_t available, int rate)
{
    Plan p;
    if (frames == 0 || rate <= 0 || !std::isfinite(error))
        return p;
    if (error > JumpSeconds) {
        // Nothing is due yet: silence up to the moment the sound is, then the sound.
        p.silence = std::min<std::size_t>(frames, std::size_t(std::llround(error * rate)));
    } else if (error < -JumpSeconds) {
        p.skip = std::min<std::size_t>(available, std::size_t(std::llround(-error * rate)));
    }
    const std::size_t out = frames - p.silence;
    const std::size_t left = available - p.skip;
    long long delta = 0;
    if (std::abs(error) <= JumpSeconds && std::abs(error) > DeadBandSeconds) {
        const long long limit = std::max<long long>(1, std::llround(double(frames) * MaxCorrection));
        delta = std::clamp<long long>(std::llround(-error * Gain * rate), -limit, limit);
    }
    const std::size_t wanted = std::size_t(std::max<long long>(1, (long long)out + delta));
    if (out == 0)
        return p;
    if (left >= wanted) {
        p.read = wanted;
        p.stretchTo = out;
    } else {
        // Starved: what there is plays as it is; the rest of the buffer is silence, made up for
        // by a skip once sound comes again.
        p.read = std::min(left, out);
        p.stretchTo = p.read;
    }
    return p;
}
