#pragma once

#include "log/overror.h"

#include <QJsonObject>
#include <QList>
#include <QString>

// Facts about a media file read without playing it: no thread, no custom I/O.
class OVMediaInfo
{
public:
    struct Stream
    {
        int index = -1;
        QString type; // "video", "audio", "subtitle", "data", "attachment" or "unknown"
        QString codec; // FFmpeg's codec name, "none" when unknown
        int width = 0;
        int height = 0;
        QString sampleAspectRatio; // "num:den", empty when unknown
        QString displayAspectRatio;
        int rotation = 0; // display-matrix degrees, counterclockwise, (-180, 180]
        QString channelLayout; // e.g. "stereo"
        int channels = 0;
        QString sampleFormat;
        int sampleRate = 0;
        double duration = 0.0; // seconds

        QJsonObject toJson() const;
    };

    QString path;
    QString formatName;
    double duration = 0.0; // container duration in seconds
    // The container's first timestamp in seconds; positions (the player's, coded times) count
    // from it, so a file that starts at 0.5 s shows its first picture at 0.
    double startTime = 0.0;
    QList<Stream> streams;

    QJsonObject toJson() const;

    // Reads the facts of every stream. Error 1: the file cannot be opened; error 2: its streams
    // cannot be understood.
    static OV::Error probe(const QString &path, OVMediaInfo *info);
    // probe() followed by toJson(), for the command line.
    static OV::Error probeJson(const QString &path, QJsonObject *json);
    // The container duration in seconds; a negative value when the file cannot be read.
    static double probeDuration(const QString &path);
    // Where the first decoded sample of the nth audio stream (-1: the one the tool picks by
    // default) lies, in seconds from the file's start: what a transcoder's output misses at its
    // front. Error 1: the file cannot be opened; 2: no such stream, or it does not decode.
    static OV::Error probeAudioStart(const QString &path, int nthAudio, double *seconds);
};
