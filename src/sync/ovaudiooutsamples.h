#pragma once

#include <QObject>

#include <memory>
#include <vector>

struct OVSamples;
class OVAudioOut;
class QTimer;

// Plays a stretch of one or two tracks over and over through the sound card, both tracks mixed
// into both channels at their own volumes: two recordings that are in step sound as one, and a
// few milliseconds off they sound hollow or doubled, which is how a sync point is checked by ear.
//
// The tracks are fed from this object's thread into the output's preallocated ring a little
// ahead of the sound card; the output's callback only copies out of the ring.
class OVAudioOutSamples : public QObject
{
    Q_OBJECT

public:
    // Sound kept queued ahead of the card: enough to ride over a busy GUI thread, short enough
    // that a change of offset or volume is heard at once (queued sound is dropped on a change).
    static constexpr double LeadSeconds = 0.25;
    static constexpr int FeedIntervalMs = 20;
    // Asked of the sound card. The lowest it offers ran dry dozens of times a minute on a busy
    // machine; a loop gains nothing from it, since a change is heard only after the queue anyway.
    static constexpr double OutputLatencySeconds = 0.1;

    explicit OVAudioOutSamples(QObject *parent = nullptr);
    ~OVAudioOutSamples() override;

    // The tracks to play (not owned; either may be null). Both must have the same sample rate
    // and stay unchanged while playing.
    void setTracks(const OVSamples *first, const OVSamples *second);
    // The loop: `duration` seconds from `firstStart` in the first track and from `secondStart`
    // in the second (each in its own track's seconds). A change while playing goes on from the
    // same point of the loop.
    void setLoop(double firstStart, double secondStart, double duration);
    // Linear gains, 0 silences a track.
    void setVolumes(double first, double second);

    // Opens the default output at the tracks' rate and starts the loop; false without a sound
    // device (nothing plays then) or without a track.
    bool start();
    void stop();
    bool isPlaying() const { return m_playing; }
    // Seconds into the loop of the sound about to leave the ring.
    double loopPosition() const;

    // Mixes `frames` frames of the loop, starting `phase` frames into it, into interleaved stereo
    // `out`: the two tracks at their gains, summed with clipping; samples outside a track are
    // silence. Returns the phase after the last frame (wrapped to the loop's length).
    static qint64 mix(const OVSamples *first, qint64 firstStart, double firstGain, const OVSamples *second,
                      qint64 secondStart, double secondGain, qint64 loopFrames, qint64 phase, qint16 *out,
                      qint64 frames);

private:
    void feed();
    void restartQueue();
    int sampleRate() const;

    const OVSamples *m_tracks[2] = { nullptr, nullptr };
    double m_start[2] = { 0.0, 0.0 };
    double m_duration = 1.0;
    double m_gain[2] = { 1.0, 1.0 };
    qint64 m_phase = 0; // frames into the loop of the next frame written
    bool m_playing = false;
    std::unique_ptr<OVAudioOut> m_out;
    QTimer *m_timer;
    std::vector<qint16> m_buffer;
};
