#pragma once

#include "ovclicommand.h"

// kavot-cli sync PRIMARY SECONDARY: extracts one audio stream of each recording, finds where the
// secondary lies on the primary's time axis and prints, one per line:
//   OFFSET <s>   primary time of the secondary's first sample
//   DRIFT <ppm>  how much faster the secondary's clock runs (negative: slower); 0 with one point
//   POINT <primary_s> <secondary_s> <coefficient>   the same sound heard at both times
// Exits 0 with at least one point, 1 with a message when none was found or an input is unusable.
// --merge OUT writes the primary with the aligned secondary added as an audio stream.
class OVCliSync : public OVCliCommand
{
public:
    QString name() const override { return QStringLiteral("sync"); }
    QString summary() const override
    {
        return QStringLiteral("Find where a second recording lies on the first one's time axis by their sound");
    }
    void setup(QCommandLineParser &parser) const override;
    int run(const QCommandLineParser &parser) const override;
};
