#pragma once

// The window playback loops over while a passage is transcribed, kept inside the recording.
// Plain values: the player's play range does the looping, this only says where.
class OVTranscriptLoop
{
public:
    // The player plays a range of at least this length.
    static constexpr double MinimumLength = 1.0;

    struct Window
    {
        double start = 0.0;
        double end = 0.0;
        double length() const { return end - start; }
    };

    // `length` seconds centred on `position`, moved (not shortened) to fit in [0, duration]; the
    // whole recording when it is shorter. A duration of 0 (not known yet) bounds only the start.
    static Window around(double position, double length, double duration);
    // The span of an utterance, at least MinimumLength long, kept inside the recording.
    static Window spanning(double start, double end, double duration);
    // The window moved by its own length, forwards (steps > 0) or backwards, stopping at the
    // recording's start and end with its length kept.
    static Window advanced(const Window &window, int steps, double duration);

private:
    static Window fitted(double start, double length, double duration);
};
