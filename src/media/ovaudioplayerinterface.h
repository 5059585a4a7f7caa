#pragma once

class QObject;
class OVAudioRing;

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
};
