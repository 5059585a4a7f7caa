#pragma once

#include "ovclicommand.h"

// kavot-cli new [--video FILE] [--owner USER] [--title TEXT] OUT.kvpr: writes a new project with one
// timeline (the default labels) for the owner and, when given, the video with its length.
class OVCliNew : public OVCliCommand
{
public:
    QString name() const override { return QStringLiteral("new"); }
    QString summary() const override { return QStringLiteral("Write a new project, optionally with its video"); }
    void setup(QCommandLineParser &parser) const override;
    int run(const QCommandLineParser &parser) const override;
};
