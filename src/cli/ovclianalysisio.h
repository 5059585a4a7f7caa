#pragma once

#include "analysis/ovcodingsnapshot.h"
#include "project/ovtable.h"

#include <QJsonDocument>

class QCommandLineParser;

// What the analysis sub-commands share: reading projects into snapshots and writing their
// tables as CSV, XLSX or JSON to a file or to standard output.
class OVCliAnalysisIo
{
public:
    // Loads the project file as the application does; on failure the message goes to standard
    // error and the result is false.
    static bool loadSnapshot(const QString &path, OVCodingSnapshot *snapshot);
    // Declares --format (one of `formats`, the first being the default) and -o/--output.
    static void addOutputOptions(QCommandLineParser &parser, const QStringList &formats);
    // The chosen format, or empty (after a message) when it is not one of `formats`.
    static QString format(const QCommandLineParser &parser, const QStringList &formats);
    // Writes the tables (CSV: the first one; XLSX: all, needs -o) or the JSON document; returns
    // the process exit code.
    static int write(const QCommandLineParser &parser, const QString &format, const QList<OVTable> &tables,
        const QJsonDocument &json);
};
