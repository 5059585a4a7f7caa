#pragma once

class QObject;
class OVAudioRing;
class OVPlaybackClock;

// What the audio output needs to know of the player it follows. The player implements it; the
// object returned by playerObject() must have the signals initFinished(int), videoStarted(),
// videoFinished(), stopRequested() and stateChanged().
class OVAudioPlayerInterface
{
public:
    virtual ~OVAudioPlayerInterface() = default;

    virtual QObject *playerObject() = 0;
    // True when the open source has at least one audio stream.
    virtual bool hasAudioStream() const = 0;
    // The sample rate of the first audio stream (the output is opened at it).
    virtual int audioSampleRate() const = 0;
    // The player's volume, taken as the gain when the output opens.
    virtual double volume() const = 0;
    virtual bool isPaused() const = 0;
    // The clock the sound is kept on (lives as long as the player), or null to play the ring
    // as it comes.
    virtual const OVPlaybackClock *playbackClock() const { return nullptr; }
};
