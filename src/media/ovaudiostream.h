#pragma once

#include "media/ovaudioresampler.h"

#include <map>
#include <memory>

struct AVCodecContext;
struct AVStream;

// One opened audio stream of a decoder. The decoder owns the codec context; the resampler is made by
// the subclass in initDecoding() and freed with the record when the decoder shuts down.
struct OVAudioStream
{
    AVStream *stream = nullptr;
    AVCodecContext *codec = nullptr;
    std::unique_ptr<OVAudioResampler> resampler;
    int channels = OVAudioResampler::OutputChannels; // output channels, always 2
    int sampleRate = 0; // the input rate, which the output keeps
    double timeBase = 0.0; // the stream's time base as seconds per tick
    double gain = 1.0; // the player copies its volume here
    // Frames earlier than this time (seconds) are dropped after a seek; negative when none.
    double dropBefore = -1.0;
    // Packets the codec refused since its last frame; a stream that refuses everything is left out.
    int refusedInARow = 0;
    bool decodedAny = false;
    bool leftOut = false;
};

// Ordered by stream index.
using OVAudioStreamMap = std::map<int, OVAudioStream>;
