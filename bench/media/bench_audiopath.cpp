// The cost of the sound path's per-sample work, as ratios against a plain copy of the same
// samples measured in the same process: the ring with the entry and exit gain (what the
// decoding thread and the sound card's callback do per 256-frame buffer), and the time stretch.
#include "media/ovaudioout.h"
#include "media/ovaudioring.h"
#include "media/ovtimestretch.h"

#include <QElapsedTimer>

#include <cstdio>
#include <cstring>
#include <vector>

namespace {

template <typename F>
double nsPerRun(int runs, F &&f)
{
    QElapsedTimer t;
    t.start();
    for (int i = 0; i < runs; ++i)
        f();
    return double(t.nsecsElapsed()) / runs;
}

volatile qint16 g_sink;

} // namespace

int main()
{
    constexpr unsigned long Frames = OVAudioOut::FramesPerBuffer;
    constexpr std::size_t N = Frames * 2;
    std::vector<qint16> in(N), out(N);
    for (std::size_t i = 0; i < N; ++i)
        in[i] = qint16((i * 7919) % 60000 - 30000);
    OVAudioRing ring(1 << 16);
    const int runs = 200000;

    const double copy = nsPerRun(runs, [&] {
        std::memcpy(out.data(), in.data(), N * sizeof(qint16));
        g_sink = out[N / 2];
    });
    const double path = nsPerRun(runs, [&] {
        ring.write(in.data(), N, 0.8);
        OVAudioOut::fillBuffer(ring, out.data(), Frames, 0.8, false);
        g_sink = out[N / 2];
    });
    std::printf("256-frame buffer: copy %.0f ns, ring with gain in and out %.0f ns\n", copy, path);

    // One second of 48 kHz stereo at the extreme speeds.
    std::vector<qint16> second(48000 * 2);
    for (std::size_t i = 0; i < second.size(); ++i)
        second[i] = qint16(i);
    std::vector<qint16> stretched(48000 * 2 * 2);
    const int stretchRuns = 200;
    const double copySecond = nsPerRun(stretchRuns, [&] {
        std::memcpy(stretched.data(), second.data(), second.size() * sizeof(qint16));
        g_sink = stretched[1000];
    });
    const double slow = nsPerRun(stretchRuns, [&] {
        OVTimeStretch::stretch(second.data(), 48000, 2, stretched.data(), 96000);
        g_sink = stretched[1000];
    });
    const double fast = nsPerRun(stretchRuns, [&] {
        OVTimeStretch::stretch(second.data(), 48000, 2, stretched.data(), 24000);
        g_sink = stretched[1000];
    });
    std::printf("1 s of sound: copy %.0f ns, stretch x2 %.0f ns, stretch x0.5 %.0f ns\n",
                copySecond, slow, fast);

    std::printf("BENCH audio_buffer_vs_copy %.2f ratio\n", path / copy);
    std::printf("BENCH stretch_half_speed_vs_copy %.2f ratio\n", slow / copySecond);
    std::printf("BENCH stretch_double_speed_vs_copy %.2f ratio\n", fast / copySecond);
    // Share of a 256-frame period at 48 kHz (5.33 ms) the callback's work takes.
    std::printf("BENCH audio_buffer_share_of_period %.5f ratio\n", path / (Frames * 1e9 / 48000.0));
    return 0;
}
