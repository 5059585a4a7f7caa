#include "ovclisegments.h"

#include "ovclianalysisio.h"

#include "analysis/ovanalysistables.h"

#include <QCommandLineParser>

namespace {
const QStringList Formats {QStringLiteral("csv"), QStringLiteral("xlsx"), QStringLiteral("json")};
}

void OVCliSegments::setup(QCommandLineParser &parser) const
{
    parser.addPositionalArgument(QStringLiteral("project"), QStringLiteral("The .kvpr file."));
    OVCliAnalysisIo::addOutputOptions(parser, Formats);
}

int OVCliSegments::run(const QCommandLineParser &parser) const
{
    const QStringList args = parser.positionalArguments();
    if (args.size() != 1) {
        printError(QStringLiteral("kavot-cli segments: exactly one project expected"));
        return UsageError;
    }
    const QString format = OVCliAnalysisIo::format(parser, Formats);
    if (format.isEmpty())
        return UsageError;
    OVCodingSnapshot snapshot;
    if (!OVCliAnalysisIo::loadSnapshot(args.first(), &snapshot))
        return Failure;
    return OVCliAnalysisIo::write(parser, format,
        {OVAnalysisTables::segments(snapshot), OVAnalysisTables::utterances(snapshot)},
        QJsonDocument(OVAnalysisTables::segmentsJson(snapshot)));
}
