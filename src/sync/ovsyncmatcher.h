#pragma once

#include <QtGlobal>

#include <vector>

typedef float fftwf_complex[2];
struct fftwf_plan_s;

// Finds where a short block of sound lies in a long reference track by cross-correlation with a
// phase transform (the cross spectrum whitened to unit magnitude), computed by FFT over every
// position of the reference at once. Whitening keeps a strong bass line or a steady hum from
// outvoting the rest of the band, so music matches on its notes rather than on its beat; the
// magnitude of the peak is used, so a reference wired with inverted polarity matches too.
//
// The reference spectrum is computed once; every match costs one forward and one inverse FFT of
// the reference's padded length. Not thread-safe; one matcher per search.
class OVSyncMatcher
{
public:
    struct Match
    {
        bool valid = false; // false when the block does not fit anywhere in the searched range
        qint64 position = -1; // start of the best position in the reference
        double peak = 0.0; // |correlation| at the best position, in whitened units
        double snr = 0.0; // peak / RMS of the correlation over the searched positions
        double ratio = 0.0; // peak / highest peak away from the best position
    };

    // `rate` (samples per second) only sets the whitened band: tens of hertz up to near Nyquist.
    // Blocks up to `maxBlock` samples can be matched.
    OVSyncMatcher(const float *reference, qint64 count, qint64 maxBlock, double rate);
    ~OVSyncMatcher();
    OVSyncMatcher(const OVSyncMatcher &) = delete;
    OVSyncMatcher &operator=(const OVSyncMatcher &) = delete;

    // Best start of `block` (n samples) in the reference among positions [from, to], both ends
    // clamped to where the block lies wholly inside the reference.
    Match match(const float *block, qint64 n, qint64 from = 0, qint64 to = -1);

    // The plain (unwhitened) correlation of `block` with the reference at every position where it
    // lies wholly inside: out[j] = sum of block[i] * reference[j + i].
    void correlate(const float *block, qint64 n, std::vector<float> &out);

    // The peak must stand far above the correlation's noise floor and clearly above any rival
    // position; a pair sharing no sound reaches neither.
    static bool isClear(const Match &m);

    // A length FFTW transforms fast (2^a 3^b 5^c 7^d) that is at least n.
    static qint64 fastLength(qint64 n);

private:
    bool transformBlock(const float *block, qint64 n);

    qint64 m_count = 0;
    qint64 m_maxBlock = 0;
    double m_rate = 0.0;
    qint64 m_length = 0; // padded transform length
    qint64 m_binLow = 0;
    qint64 m_binHigh = 0;
    float *m_real = nullptr;
    fftwf_complex *m_reference = nullptr;
    fftwf_complex *m_work = nullptr;
    fftwf_plan_s *m_forward = nullptr;
    fftwf_plan_s *m_inverse = nullptr;
};
