#include "ovclitranscript.h"

#include "project/ovlocalfilestorage.h"
#include "project/project.h"
#include "project/timeline.h"
#include "project/timelinegroup.h"
#include "transcript/ovtranscriptfile.h"

#include <QCommandLineParser>
#include <QDir>
#include <QFileInfo>

void OVCliTranscript::setup(QCommandLineParser &parser) const
{
    parser.addPositionalArgument(QStringLiteral("project"), QStringLiteral("The .kvpr file."));
    parser.addOption({ QStringLiteral("format"), QStringLiteral("csv, xlsx, srt, vtt, textgrid or eaf (default: from the output's extension)."),
        QStringLiteral("format") });
    parser.addOption({ { QStringLiteral("o"), QStringLiteral("output") }, QStringLiteral("The file to write."), QStringLiteral("file") });
    parser.addOption({ QStringLiteral("coder"), QStringLiteral("Whose transcript (timeline owner or id; default: the project's user)."),
        QStringLiteral("name") });
}

OVProject::Timeline *OVCliTranscript::coderTimeline(const OVProject::Project &project, const QString &coder)
{
    const QList<OVProject::Timeline *> &timelines = project.timelineGroup()->timelines();
    const QString wanted = coder.isEmpty() ? (project.offlineUser().isEmpty() ? project.owner() : project.offlineUser()) : coder;
    for (OVProject::Timeline *t : timelines) {
        if (t->owner() == wanted || t->id() == wanted)
            return t;
    }
    if (coder.isEmpty() && !timelines.isEmpty())
        return timelines.first();
    QStringList owners;
    for (const OVProject::Timeline *t : timelines)
        owners << t->owner();
    printError(timelines.isEmpty() ? QStringLiteral("The project has no timeline.")
                                   : QStringLiteral("No coder \"%1\" in the project; its coders: %2").arg(coder, owners.join(QStringLiteral(", "))));
    return nullptr;
}

int OVCliTranscript::run(const QCommandLineParser &parser) const
{
    const QStringList args = parser.positionalArguments();
    const QString output = parser.value(QStringLiteral("output"));
    if (args.size() != 1 || output.isEmpty()) {
        printError(QStringLiteral("kavot-cli transcript: one project and -o FILE expected"));
        return UsageError;
    }
    const QString formatName = parser.value(QStringLiteral("format"));
    const OVTranscriptFile::Format format = formatName.isEmpty() ? OVTranscriptFile::formatForPath(output)
                                                                 : OVTranscriptFile::formatForName(formatName);
    if (format == OVTranscriptFile::Unknown) {
        printError(QStringLiteral("kavot-cli transcript: unknown format '%1'; one of csv, xlsx, srt, vtt, textgrid, eaf")
                       .arg(formatName.isEmpty() ? QFileInfo(output).suffix() : formatName));
        return UsageError;
    }
    OVProject::Project project;
    const OV::Error loaded = OVLocalFileStorage().load(args.first(), &project);
    if (!loaded.isOk()) {
        printError(loaded.message());
        return Failure;
    }
    const OVProject::Timeline *timeline = coderTimeline(project, parser.value(QStringLiteral("coder")));
    if (!timeline)
        return Failure;
    qint64 open = 0;
    const OVTranscriptData data = OVTranscriptFile::fromTimeline(timeline, format == OVTranscriptFile::Eaf, &open);
    qint64 leftOut = 0;
    const OV::Error written = OVTranscriptFile::write(output, format, data, project.videoPath(), {}, &leftOut);
    if (!written.isOk()) {
        printError(written.message());
        return Failure;
    }
    const qint64 segments = data.rowsOf(OVTranscriptData::Labels).size();
    QString text = QStringLiteral("%1 utterances").arg(data.rows.size() - segments);
    if (format == OVTranscriptFile::Eaf)
        text += QStringLiteral(" and %1 segments").arg(segments);
    text += QStringLiteral(" of %1 written to %2").arg(timeline->owner(), QDir::toNativeSeparators(output));
    print(text);
    if (open > 0)
        printError(QStringLiteral("%1 open segments left out (they have no end yet)").arg(open));
    if (leftOut > 0)
        printError(QStringLiteral("%1 utterances of no length left out (a TextGrid interval needs one)").arg(leftOut));
    return Success;
}
