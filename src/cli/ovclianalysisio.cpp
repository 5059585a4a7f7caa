#include "ovclianalysisio.h"

#include "ovclicommand.h"

#include "project/ovlocalfilestorage.h"
#include "project/ovtablewriter.h"
#include "project/project.h"

#include <QCommandLineParser>
#include <QFile>
#include <QFileInfo>

#include <cstdio>

bool OVCliAnalysisIo::loadSnapshot(const QString &path, OVCodingSnapshot *snapshot)
{
    OVProject::Project project;
    const OV::Error loaded = OVLocalFileStorage().load(path, &project);
    if (!loaded.isOk()) {
        std::fprintf(stderr, "%s\n", qPrintable(loaded.message()));
        return false;
    }
    *snapshot = OVCodingSnapshot::fromProject(project, QFileInfo(path).completeBaseName());
    return true;
}

void OVCliAnalysisIo::addOutputOptions(QCommandLineParser &parser, const QStringList &formats)
{
    parser.addOption({QStringLiteral("format"),
        QStringLiteral("Output format: %1 (default %2).").arg(formats.join(QStringLiteral(", ")), formats.first()),
        QStringLiteral("format"), formats.first()});
    parser.addOption({{QStringLiteral("o"), QStringLiteral("output")},
        QStringLiteral("Write to this file instead of standard output."), QStringLiteral("file")});
}

QString OVCliAnalysisIo::format(const QCommandLineParser &parser, const QStringList &formats)
{
    const QString chosen = parser.value(QStringLiteral("format")).toLower();
    if (!formats.contains(chosen)) {
        std::fprintf(stderr, "unknown format '%s'; one of: %s\n", qPrintable(chosen),
            qPrintable(formats.join(QStringLiteral(", "))));
        return QString();
    }
    return chosen;
}

int OVCliAnalysisIo::write(const QCommandLineParser &parser, const QString &format, const QList<OVTable> &tables,
    const QJsonDocument &json)
{
    const QString output = parser.value(QStringLiteral("output"));
    OV::Error error;
    if (format == QLatin1String("xlsx")) {
        if (output.isEmpty()) {
            std::fputs("xlsx output needs -o FILE\n", stderr);
            return OVCliCommand::UsageError;
        }
        error = OVTableWriter::writeXlsx(tables, output);
    } else {
        const QByteArray bytes = format == QLatin1String("json")
            ? json.toJson(QJsonDocument::Indented)
            : OVTableWriter::csv(tables.first(), !output.isEmpty());
        if (output.isEmpty()) {
            std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stdout);
            return OVCliCommand::Success;
        }
        QFile file(output);
        if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size())
            error = OV::Error(1, QStringLiteral("Failed to write %1:\n%2").arg(output, file.errorString()));
    }
    if (!error.isOk()) {
        std::fprintf(stderr, "%s\n", qPrintable(error.message()));
        return OVCliCommand::Failure;
    }
    return OVCliCommand::Success;
}
