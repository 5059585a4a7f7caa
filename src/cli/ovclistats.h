#pragma once

#include "ovclicommand.h"

// kavot-cli stats PROJECT... [--from S] [--to S] [--groups] [--format csv|xlsx|json] [-o FILE]:
// the statistics of every coder and label of every project given, one row each.
class OVCliStats : public OVCliCommand
{
public:
    QString name() const override { return QStringLiteral("stats"); }
    QString summary() const override { return QStringLiteral("Statistics per project, coder and label"); }
    void setup(QCommandLineParser &parser) const override;
    int run(const QCommandLineParser &parser) const override;
};
