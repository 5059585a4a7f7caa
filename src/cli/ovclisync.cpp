#include "ovclisync.h"

#include "sync/ovmanualsyncmerge.h"
#include "sync/ovsamplesextractor.h"
#include "sync/ovsync.h"
#include "sync/ovsyncmap.h"

#include <QCommandLineParser>
#include <QFileInfo>

namespace {

const QString PrimaryStream = QStringLiteral("primary-stream");
const QString SecondaryStream = QStringLiteral("secondary-stream");
const QString Merge = QStringLiteral("merge");

bool streamOption(const QCommandLineParser &parser, const QString &name, int *index)
{
    *index = -1;
    if (!parser.isSet(name))
        return true;
    bool ok = false;
    *index = parser.value(name).toInt(&ok);
    return ok && *index >= 0;
}

} // namespace

void OVCliSync::setup(QCommandLineParser &parser) const
{
    parser.setApplicationDescription(
        summary()
        + QStringLiteral("\n\nPrints one line each:\n"
                         "  OFFSET <s>    primary time of the secondary's first sample\n"
                         "  DRIFT <ppm>   how much faster the secondary's clock runs (negative: slower)\n"
                         "  POINT <primary_s> <secondary_s> <coefficient>   the same sound at both times\n"
                         "Exits with 1 when no sync point was found."));
    parser.addPositionalArgument(QStringLiteral("primary"), QStringLiteral("The recording whose time axis is used."));
    parser.addPositionalArgument(QStringLiteral("secondary"), QStringLiteral("The second recording of the event."));
    parser.addOption({ PrimaryStream, QStringLiteral("Audio stream of the primary to use (0 is the first)."),
                       QStringLiteral("N") });
    parser.addOption({ SecondaryStream, QStringLiteral("Audio stream of the secondary to use (0 is the first)."),
                       QStringLiteral("N") });
    parser.addOption({ Merge, QStringLiteral("Write the primary with the synchronised secondary added as an audio stream."),
                       QStringLiteral("OUT") });
}

int OVCliSync::run(const QCommandLineParser &parser) const
{
    const QStringList files = parser.positionalArguments();
    if (files.size() != 2) {
        printError(QStringLiteral("kavot-cli sync: a primary and a secondary recording expected"));
        return UsageError;
    }
    int primaryStream = -1, secondaryStream = -1;
    if (!streamOption(parser, PrimaryStream, &primaryStream) || !streamOption(parser, SecondaryStream, &secondaryStream)) {
        printError(QStringLiteral("kavot-cli sync: a stream is a number from 0"));
        return UsageError;
    }
    const QString output = parser.value(Merge);
    if (parser.isSet(Merge) && QFileInfo(output).absoluteFilePath() == QFileInfo(files[0]).absoluteFilePath()) {
        printError(QStringLiteral("kavot-cli sync: --merge writes a new file; it may not be the primary itself"));
        return UsageError;
    }

    OVSamples primary, secondary;
    OVSamplesExtractor extractor;
    const OV::Error loaded = extractor.run(files[0], primaryStream, files[1], secondaryStream, &primary, &secondary);
    if (!loaded.isOk()) {
        printError(QStringLiteral("Failed to load samples\n") + loaded.message());
        return Failure;
    }
    const OVSync::Result result = OVSync::autoSync(primary, secondary);
    if (result.points.isEmpty()) {
        printError(QStringLiteral("No sync point found: the two recordings share no sound that could be matched.\n\t")
                   + files[0] + QStringLiteral("\n\t") + files[1]);
        return Failure;
    }
    const double rate = primary.sampleRate;
    print(QStringLiteral("OFFSET %1").arg(result.fit.secondaryStart(), 0, 'f', 6));
    print(QStringLiteral("DRIFT %1").arg(result.points.size() > 1 ? result.fit.driftPpm() : 0.0, 0, 'f', 3));
    for (const OVSync::SyncInfo &p : result.points)
        print(QStringLiteral("POINT %1 %2 %3")
                  .arg(p.primaryPos / rate, 0, 'f', 6)
                  .arg(p.secondaryPos / rate, 0, 'f', 6)
                  .arg(p.coefficient, 0, 'f', 4));

    if (parser.isSet(Merge)) {
        const OVSamples aligned = OVSyncMap(result.points, primary.sampleRate, result.fit).align(secondary, primary.count);
        OVManualSyncMerge merge;
        const OV::Error merged = merge.merge(files[0], QString(), QString(), output, &primary, &aligned, -1, -1, 0, 0);
        if (!merged.isOk()) {
            printError(QStringLiteral("Failed to add audio stream\n") + merged.message());
            return Failure;
        }
    }
    return Success;
}
