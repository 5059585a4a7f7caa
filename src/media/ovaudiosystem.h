#pragma once

#include <QString>

#include <functional>

// PortAudio for the whole process, started once, on a thread of its own.
//
// Starting PortAudio scans every sound device the system knows of, and a scan can hang for good:
// a device or sound server that never answers, or the lock JACK's client library keeps in
// /dev/shm for all programs of a user, left taken by a program killed in the middle of its own
// scan. Kavot must start, open recordings and code without sound then, so nothing waits for the
// scan without a bound. A scan that ends late is still taken: later streams get sound.
// Once started, PortAudio stays up until the process ends (a scan that never ends cannot be
// undone, and one that did end costs nothing to keep).
class OVAudioSystem
{
public:
    enum State { NotStarted, Starting, Ready, Failed };

    // How long after its start a scan that has not ended is given up for this run. The scan
    // starts with the first player, so a recording opened later than this waits for nothing.
    static constexpr int StartWaitMs = 10000;

    // Starts the scan unless it was started before; returns at once.
    static void startInBackground();
    // Starts the scan if needed and waits for it until timeoutMs after it began, or until stop
    // says so; true when PortAudio can be used. Once a wait has run out, later calls do not wait
    // again: they take the state as it is.
    static bool waitUntilReady(int timeoutMs = StartWaitMs, const std::function<bool()> &stop = {});
    // Waits up to waitMs for a scan that is running to end, whatever happened to earlier waits;
    // true when none runs any more. Before the process ends: a scan still running races the
    // sound libraries' own teardown.
    static bool waitForScanToEnd(int waitMs);
    static State state();
    // Why there is no sound, in words for the user ("" while the scan is fine or running within
    // its bound).
    static QString unavailableReason();
};
