#pragma once

#include "media/ovaudioring.h"

#include <QObject>
#include <QPointer>

#include <atomic>
#include <memory>

class OVAudioPlayerInterface;
class OVPlaybackClock;

// Plays the player's sound through PortAudio's default output, 2 channels of signed 16-bit
// samples, 256 frames a buffer.
//
// With a player's clock to follow, each buffer is filled so that its first sample is heard when
// it is due on that clock: the output latency PortAudio reports is counted in, and the drift,
// late start and stalls of the sound card are corrected as they come (see OVAudioSync).
//
// The decoding thread writes into ring() (with the gain applied on entry and each stretch
// stamped with its clock time); the PortAudio callback reads from it through fillInStep() while
// it follows a clock, else through fillBuffer() (gain applied again on exit). The callback never
// locks, allocates or logs: gain, mute and the stopped flag are atomics.
//
// Without a usable sound device the output stays closed, which is reported once in the log and
// each time through unavailable(); playback is then silent and the player's wall clock is
// unaffected. PortAudio is started once per process, in the background (see OVAudioSystem).
class OVAudioOut : public QObject
{
    Q_OBJECT

public:
    static constexpr int Channels = 2;
    static constexpr unsigned long FramesPerBuffer = 256;
    // How much sound the ring holds: enough for the decoder's lead at the slowest speed, at
    // rates up to RingRate. It is allocated once, with the object: the decoding thread may
    // already write into it while the GUI thread opens the stream.
    static constexpr double RingSeconds = 8.0;
    static constexpr int RingRate = 96000;

    explicit OVAudioOut(QObject *parent = nullptr);
    ~OVAudioOut() override;

    // Disconnects the previous player and follows this one (may be null).
    void setPlayer(OVAudioPlayerInterface *player);

    // Opens the default output at sampleRate; closes any stream open before. False (and a
    // closed output) when there is no device or PortAudio refuses. The ring keeps its contents.
    // The first open may wait for the device scan, up to OVAudioSystem::StartWaitMs.
    // The suggested latency is the device's default low output latency unless one is given
    // (seconds, > 0).
    bool open(int sampleRate, double suggestedLatency = 0.0);
    void close();
    bool start();
    void stop();
    bool isOpen() const { return m_stream != nullptr; }
    bool isRunning() const;
    int sampleRate() const { return m_sampleRate; }

    void setGain(double gain);
    double gain() const { return m_gain.load(std::memory_order_relaxed); }
    void setMuted(bool muted);
    bool isMuted() const { return m_muted.load(std::memory_order_relaxed); }
    bool isStopped() const { return m_stopped.load(std::memory_order_relaxed); }

    // The ring the decoding thread writes into (valid for the object's life).
    OVAudioRing *ring() { return &m_ring; }
    // Frames the device has taken from the callback since open(), silence included.
    quint64 framesConsumed() const { return m_framesConsumed.load(std::memory_order_acquire); }
    // Frames of real sound taken out of the ring since open().
    quint64 framesPlayed() const;

    // The callback's work: fills frames × 2 samples of out from the ring. When fewer samples are
    // buffered, out gets exact silence and nothing is consumed, so playback resumes with the
    // samples that were due. Otherwise each sample gets the gain (with clipping), or 0 when
    // muted, and the ring advances either way. Returns the number of samples consumed.
    static std::size_t fillBuffer(OVAudioRing &ring, qint16 *out, unsigned long frames, double gain,
                                  bool muted);
    // The callback's work when following a clock: fills frames × 2 samples of out so that out's
    // first sample, heard at clock time heardAt (seconds), is the sound due then, as far as the
    // ring's stamps tell (see OVAudioSync). scratch holds scratchFrames frames. Without a stamp
    // (nothing buffered) out is silence. Returns the number of samples taken from the ring,
    // skipped ones included.
    static std::size_t fillInStep(OVAudioRing &ring, qint16 *out, unsigned long frames, double gain,
                                  bool muted, double heardAt, int rate, qint16 *scratch,
                                  std::size_t scratchFrames);
    // Seconds from now until the first sample of the buffer being filled is heard, as PortAudio
    // last reported it (0 before the first buffer or without a stream).
    double outputLatency() const { return m_lastLatency.load(std::memory_order_relaxed); }
    // Buffers PortAudio reported as come too late to the device since open() (each one is a
    // gap in the sound, made up afterwards).
    quint64 underflows() const { return m_underflows.load(std::memory_order_relaxed); }

Q_SIGNALS:
    // open() found no way to play sound; reason is in words for the user.
    void unavailable(const QString &reason);

public Q_SLOTS:
    void onPlayerInitFinished(int errorcode);
    void onPlayerFinished();
    void onPlayerStopRequested();
    void onPlayerStateChanged();

private:
    friend struct OVAudioOutCallbacks;
    // One callback's work, on PortAudio's thread.
    void process(qint16 *out, unsigned long frames, double dacTime, double currentTime,
                 bool underflow);
    void reportNoSound(const QString &reason, const QString &detail);

    void *m_stream = nullptr;
    int m_sampleRate = 0;
    OVAudioRing m_ring;
    quint64 m_ringReadAtOpen = 0;
    QPointer<QObject> m_playerObject;
    OVAudioPlayerInterface *m_player = nullptr;

    // Shared with the callback thread.
    std::atomic<double> m_gain{1.0};
    std::atomic<bool> m_muted{false};
    std::atomic<bool> m_stopped{true};
    std::atomic<quint64> m_framesConsumed{0};
    std::atomic<const OVPlaybackClock *> m_clock{nullptr};
    // The stream's own latency figure, for host APIs whose buffers carry no times.
    std::atomic<double> m_streamLatency{0.0};
    std::atomic<double> m_lastLatency{0.0};
    std::atomic<quint64> m_underflows{0};
    // -- Callback only.
    static constexpr std::size_t ScratchFrames = 8192;
    std::unique_ptr<qint16[]> m_scratch;
};
