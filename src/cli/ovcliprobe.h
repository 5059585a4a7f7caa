#pragma once

#include "ovclicommand.h"

// kavot-cli probe FILE: prints what the decoder finds in a media file (container duration, and per
// stream its type, codec, sizes, aspect ratios, rotation, channel layout, sample rate, duration)
// as one JSON document; exits 1 with the decoder's message when it cannot open the file.
class OVCliProbe : public OVCliCommand
{
public:
    QString name() const override { return QStringLiteral("probe"); }
    QString summary() const override { return QStringLiteral("Print the streams of a video or audio file as JSON"); }
    void setup(QCommandLineParser &parser) const override;
    int run(const QCommandLineParser &parser) const override;
};
