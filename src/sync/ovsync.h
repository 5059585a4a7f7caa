#pragma once

#include "sync/ovsamples.h"

#include <QList>
#include <QString>

#include <atomic>

// Finding where a second recording of an event lies on the first one's time axis, by its sound.
namespace OVSync {

// One sync point: the same sound is heard at `primaryPos` in the primary track and at
// `secondaryPos` in the secondary one (both in samples of the tracks' common rate).
struct SyncInfo
{
    double coefficient = 0.0; // correlation of the two tracks at the point, -1 ... 1 (negative:
                              // the secondary's polarity is inverted)
    int tag = 0;
    int length = 0; // samples over which the match was computed
    double primaryPos = 0.0;
    double secondaryPos = 0.0;

    double offset() const { return primaryPos - secondaryPos; }
    bool operator==(const SyncInfo &other) const = default;
};

// Where the search reports its stage text and how far it got; called on the search's thread.
class Progress
{
public:
    virtual ~Progress() = default;
    virtual void setStage(const QString &text) = 0;
    virtual void setProgress(int value, int minimum, int maximum) = 0;
};

// Whole seconds that scale the search to the primary's duration.
struct Parameters
{
    int span = 0; // distance between matched sections
    int length = 0; // length of one matched section
    int maxShift = 0; // the primary holds about duration / maxShift sections searched everywhere

    static Parameters forDuration(double seconds);
    bool operator==(const Parameters &other) const = default;
};

// The clocks of the two recordings: primary time = secondary time + offsetAt(primary time).
struct Fit
{
    double a = 0.0; // offset in seconds at primary time 0
    double b = 0.0; // change of the offset per second of primary time
    int points = 0; // points the fit rests on; 0 means no fit

    double offsetAt(double primarySeconds) const { return a + b * primarySeconds; }
    // Primary time of the secondary's first sample.
    double secondaryStart() const { return a / (1.0 - b); }
    // Secondary seconds per primary second, less one, in millionths: positive when the secondary's
    // clock runs fast.
    double driftPpm() const { return -b * 1e6; }
    double secondaryAt(double primarySeconds) const { return primarySeconds - offsetAt(primarySeconds); }
};

struct Result
{
    QList<SyncInfo> points; // sorted by primary position
    Fit fit;
    bool canceled = false;
};

// Moving average of |x| over `windowSize` samples, centred on its window, of source[begin, end)
// (-1: the track's start or end). False when the range is negative or reversed.
bool smoothEnvelope(const OVSamples &source, int windowSize, OVSamples &target, qint64 begin = -1,
                    qint64 end = -1);

// The mean of the samples above zero; 0 when there are none.
float meanPositive(const OVSamples &track);

// Pearson correlation of a[0, n) and b[0, n) taken at every `step`-th sample; 0 when either is flat.
double correlation(const qint16 *a, const qint16 *b, qint64 n, int step);

// The position p in [bFrom, bTo] (every `step`-th) where b[p, p + n) correlates best with
// a[aPos, aPos + n); the first of equal maxima wins. False, with nothing written, when no position
// has both stretches inside their tracks.
bool bestOffset(const OVSamples &a, const OVSamples &b, qint64 aPos, qint64 n, qint64 bFrom, qint64 bTo,
                qint64 &result, double &coefficient, int step = 1);

// The waveform averaged over `factor` samples and kept at every `factor`-th.
OVSamples decimate(const OVSamples &track, int factor);

// The coarse search on two decimated tracks: sections of the primary `lengthSec` long, at least
// `spanSec` apart, starting at loud places, each matched against the secondary. Sections are
// matched over the whole secondary until two of them agree on an offset, the others then near that
// offset; `maxShiftSec` therefore bounds nothing. Only matches whose peak stands out are kept, and
// of those only the cluster of agreeing offsets with the highest total score. Positions are samples
// of the decimated tracks, centred on the section. Returns how many points were found.
int findSyncPoints(const OVSamples &envA, const OVSamples &envB, int maxShiftSec, int lengthSec, int spanSec,
                   QList<SyncInfo> &result, const std::atomic<bool> *cancel = nullptr,
                   Progress *progress = nullptr);

// Keeps the points whose offsets agree with the heaviest group of agreeing offsets (the sum of
// |coefficient| decides); the others are dropped. Offsets agree within half a second plus what a
// clock drift of a few hundred ppm adds over their distance.
void keepBestCluster(QList<SyncInfo> &points, int sampleRate);

// Appends copies of the last point along the rest of the primary, spaced as the last two points,
// each with the last point's offset. Nothing happens when that spacing is not positive.
void repeatLastPoint(QList<SyncInfo> &points, qint64 primaryCount);

// Sets the point to the exact position of its sound: normalised cross-correlation of about one
// second of the two tracks around the point, within a few milliseconds of its current offset, with
// the peak interpolated between samples. False when the point cannot be refined there (too near an
// end, no clear peak, too weak a correlation); the point is then left alone.
bool refinePrecise(const OVSamples &primary, const OVSamples &secondary, SyncInfo &point);

// Fits offset = a + b * time through the points by least squares, dropping the point farthest from
// the line while any lies more than `toleranceSeconds` from it (only with three points or more).
Fit fitDrift(QList<SyncInfo> &points, int sampleRate, double toleranceSeconds = 0.001);

// The whole automatic synchronisation of two tracks at the same rate. With `cancel` set the search
// returns what it has so far.
Result autoSync(const OVSamples &primary, const OVSamples &secondary, Progress *progress = nullptr,
                const std::atomic<bool> *cancel = nullptr);

} // namespace OVSync
