#pragma once

#include <QList>
#include <QString>
#include <QStringList>

class OVReadBudget;

// What SubRip and WebVTT share: blocks of lines separated by blank lines, cue timings
// ("00:01:02,500 --> 00:01:04,000"), and the speaker in front of a cue's text.
class OVSubtitleText
{
public:
    struct Block
    {
        int line = 0; // of its first line, counted from 1
        QStringList lines;
    };

    static QList<Block> blocks(const QString &text);
    // "hh:mm:ss,mmm" or "hh:mm:ss.mmm" (hours of any length, or left out in WebVTT: "mm:ss.mmm").
    static bool parseTime(const QString &text, double *seconds, bool hoursOptional);
    // "start --> end [settings]": false unless both times read and end is not before start.
    static bool parseTiming(const QString &line, double *start, double *end, bool hoursOptional, QString *why);
    static QString formatTime(double seconds, QChar decimal);
    // A cue's text may not hold a blank line (it would end the cue): blank lines are dropped.
    static QString cueText(const QString &text);
    // "Speaker: text" -> speaker and text, when the part before ": " looks like a name.
    static void splitSpeaker(const QString &text, QString *speaker, QString *rest);
};
