#pragma once

#include "log/overror.h"

#include "ovclicommand.h"

// kavot-cli check FILE: loads a project (".kvpr") or label set (".kvtl") the way the application
// does and prints "ok", or the error message of the failed load (exit code 1).
class OVCliCheck : public OVCliCommand
{
public:
    // Reads the project or label set at `path` as the application would; the error says why not.
    static OV::Error validate(const QString &path);

    QString name() const override { return QStringLiteral("check"); }
    QString summary() const override
    {
        return QStringLiteral("Load a .kvpr or .kvtl file and report whether it is sound");
    }
    void setup(QCommandLineParser &parser) const override;
    int run(const QCommandLineParser &parser) const override;
};
