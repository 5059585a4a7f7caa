#pragma once

#include "ovclicommand.h"

// kavot-cli agreement PROJECT --coders A B [--resolution S] [--tolerance S] [--from S] [--to S]
// [--format json|csv|xlsx] [-o FILE]: agreement between two coders' timelines of one project.
class OVCliAgreement : public OVCliCommand
{
public:
    QString name() const override { return QStringLiteral("agreement"); }
    QString summary() const override { return QStringLiteral("Agreement between two coders of a project"); }
    void setup(QCommandLineParser &parser) const override;
    int run(const QCommandLineParser &parser) const override;
};
