#pragma once

#include "ovclicommand.h"

// kavot-cli import PROJECT FILE [--coder NAME] [--as utterances|labels]: a transcript file of
// any readable format into one coder's timeline, the project saved in place.
class OVCliImport : public OVCliCommand
{
public:
    QString name() const override { return QStringLiteral("import"); }
    QString summary() const override { return QStringLiteral("Import a transcript (CSV, SubRip, WebVTT, TextGrid, ELAN) into a project"); }
    void setup(QCommandLineParser &parser) const override;
    int run(const QCommandLineParser &parser) const override;
};
