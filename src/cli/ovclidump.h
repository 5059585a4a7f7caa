#pragma once

#include "ovclicommand.h"

// kavot-cli dump FILE: prints a project or label-set file as one JSON document on stdout, its
// documents as stored (times as written, three-decimal text). A project becomes
// {"project": <project document>, "timelines": [<timeline documents in the project's order>]},
// with each attachment of "binary_data" shown by its key and size instead of its bytes.
class OVCliDump : public OVCliCommand
{
public:
    QString name() const override { return QStringLiteral("dump"); }
    QString summary() const override
    {
        return QStringLiteral("Print a .kvpr or .kvtl file as one JSON document");
    }
    void setup(QCommandLineParser &parser) const override;
    int run(const QCommandLineParser &parser) const override;
};
