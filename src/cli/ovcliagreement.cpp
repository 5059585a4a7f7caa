#include "ovcliagreement.h"

#include "ovclianalysisio.h"

#include "analysis/ovanalysistables.h"

#include <QCommandLineParser>

namespace {
const QStringList Formats {QStringLiteral("json"), QStringLiteral("csv"), QStringLiteral("xlsx")};

bool positive(const QCommandLineParser &parser, const QString &name, double *value, bool zeroAllowed)
{
    if (!parser.isSet(name))
        return true;
    bool ok = false;
    *value = parser.value(name).toDouble(&ok);
    return ok && (zeroAllowed ? *value >= 0.0 : *value > 0.0);
}
} // namespace

void OVCliAgreement::setup(QCommandLineParser &parser) const
{
    parser.addPositionalArgument(QStringLiteral("project"), QStringLiteral("The .kvpr file."));
    parser.addOption({QStringLiteral("coders"),
        QStringLiteral("The two coders (timeline owners or ids): --coders A B, or --coders A --coders B."),
        QStringLiteral("A")});
    parser.addOption({QStringLiteral("resolution"), QStringLiteral("Slice length in seconds (default 0.1)."),
        QStringLiteral("seconds")});
    parser.addOption({QStringLiteral("tolerance"), QStringLiteral("Onset tolerance in seconds (default 1)."),
        QStringLiteral("seconds")});
    parser.addOption({QStringLiteral("from"), QStringLiteral("Start of the window in seconds."), QStringLiteral("seconds")});
    parser.addOption({QStringLiteral("to"), QStringLiteral("End of the window in seconds."), QStringLiteral("seconds")});
    OVCliAnalysisIo::addOutputOptions(parser, Formats);
}

int OVCliAgreement::run(const QCommandLineParser &parser) const
{
    // "--coders A B": the option takes A, and B is left among the positional arguments.
    QStringList positional = parser.positionalArguments();
    QStringList coders = parser.values(QStringLiteral("coders"));
    if (coders.size() == 1 && positional.size() == 2)
        coders << positional.takeLast();
    if (positional.size() != 1 || coders.size() != 2) {
        printError(QStringLiteral("kavot-cli agreement: one project and --coders A B expected"));
        return UsageError;
    }
    OVAgreement::Options options;
    if (!positive(parser, QStringLiteral("resolution"), &options.resolution, false)
        || !positive(parser, QStringLiteral("tolerance"), &options.tolerance, true)
        || !positive(parser, QStringLiteral("from"), &options.from, true)
        || !positive(parser, QStringLiteral("to"), &options.to, false)) {
        printError(QStringLiteral("kavot-cli agreement: --resolution, --tolerance, --from and --to take seconds"));
        return UsageError;
    }
    const QString format = OVCliAnalysisIo::format(parser, Formats);
    if (format.isEmpty())
        return UsageError;
    OVCodingSnapshot snapshot;
    if (!OVCliAnalysisIo::loadSnapshot(positional.first(), &snapshot))
        return Failure;
    const OVCodingSnapshot::Coder *a = snapshot.coder(coders.at(0));
    const OVCodingSnapshot::Coder *b = snapshot.coder(coders.at(1));
    if (!a || !b) {
        QStringList names;
        for (const auto &c : snapshot.coders)
            names << c.name;
        printError(QStringLiteral("kavot-cli agreement: no coder '%1' in the project; coders: %2")
                       .arg(a ? coders.at(1) : coders.at(0), names.join(QStringLiteral(", "))));
        return Failure;
    }
    const OVAgreement::Result result = OVAgreement::compute(snapshot, *a, *b, options);
    return OVCliAnalysisIo::write(parser, format,
        {OVAnalysisTables::agreement(result), OVAnalysisTables::confusion(result)},
        QJsonDocument(OVAnalysisTables::agreementJson(result, options)));
}
