#pragma once

#include "ovclicommand.h"

// kavot-cli segments PROJECT [--format csv|xlsx|json] [-o FILE]: every segment of every coder
// as a row (the workbook also holds the utterances in a sheet of their own).
class OVCliSegments : public OVCliCommand
{
public:
    QString name() const override { return QStringLiteral("segments"); }
    QString summary() const override { return QStringLiteral("List every segment of a project"); }
    void setup(QCommandLineParser &parser) const override;
    int run(const QCommandLineParser &parser) const override;
};
