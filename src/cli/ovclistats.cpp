#include "ovclistats.h"

#include "ovclianalysisio.h"

#include "analysis/ovanalysistables.h"

#include <QCommandLineParser>

namespace {
const QStringList Formats {QStringLiteral("csv"), QStringLiteral("xlsx"), QStringLiteral("json")};

bool seconds(const QCommandLineParser &parser, const QString &name, double *value)
{
    if (!parser.isSet(name))
        return true;
    bool ok = false;
    *value = parser.value(name).toDouble(&ok);
    return ok && *value >= 0.0;
}
} // namespace

void OVCliStats::setup(QCommandLineParser &parser) const
{
    parser.addPositionalArgument(QStringLiteral("projects"), QStringLiteral("One or more .kvpr files."),
        QStringLiteral("PROJECT..."));
    parser.addOption({QStringLiteral("from"), QStringLiteral("Start of the window in seconds (default 0)."),
        QStringLiteral("seconds")});
    parser.addOption({QStringLiteral("to"), QStringLiteral("End of the window in seconds (default: the recording's end)."),
        QStringLiteral("seconds")});
    parser.addOption({QStringLiteral("groups"), QStringLiteral("Add the rows of every segment group.")});
    OVCliAnalysisIo::addOutputOptions(parser, Formats);
}

int OVCliStats::run(const QCommandLineParser &parser) const
{
    const QStringList projects = parser.positionalArguments();
    if (projects.isEmpty()) {
        printError(QStringLiteral("kavot-cli stats: at least one project expected"));
        return UsageError;
    }
    OVStatistics::Window window;
    if (!seconds(parser, QStringLiteral("from"), &window.from) || !seconds(parser, QStringLiteral("to"), &window.to)
        || (parser.isSet(QStringLiteral("to")) && window.to <= window.from)) {
        printError(QStringLiteral("kavot-cli stats: --from and --to take seconds, --to after --from"));
        return UsageError;
    }
    const QString format = OVCliAnalysisIo::format(parser, Formats);
    if (format.isEmpty())
        return UsageError;
    QList<OVStatistics::Row> rows;
    for (const QString &path : projects) {
        OVCodingSnapshot snapshot;
        if (!OVCliAnalysisIo::loadSnapshot(path, &snapshot))
            return Failure;
        rows += OVStatistics::compute(snapshot, window, parser.isSet(QStringLiteral("groups")));
    }
    return OVCliAnalysisIo::write(parser, format, {OVAnalysisTables::statistics(rows)},
        QJsonDocument(OVAnalysisTables::statisticsJson(rows)));
}
