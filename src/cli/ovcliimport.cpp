#include "ovcliimport.h"

#include "ovclitranscript.h"

#include "project/ovlocalfilestorage.h"
#include "project/project.h"
#include "project/timeline.h"
#include "transcript/ovtranscriptfile.h"
#include "transcript/ovtranscriptimport.h"

#include <QCommandLineParser>

void OVCliImport::setup(QCommandLineParser &parser) const
{
    parser.addPositionalArgument(QStringLiteral("project"), QStringLiteral("The .kvpr file, saved in place."));
    parser.addPositionalArgument(QStringLiteral("file"), QStringLiteral("A .csv, .srt, .vtt, .TextGrid or .eaf file."));
    parser.addOption({ QStringLiteral("coder"), QStringLiteral("Into whose timeline (owner or id; default: the project's user)."),
        QStringLiteral("name") });
    parser.addOption({ QStringLiteral("as"),
        QStringLiteral("utterances (replacing the transcript; tiers are speakers) or labels (tiers are labels, annotations their segments)."),
        QStringLiteral("what"), QStringLiteral("utterances") });
}

int OVCliImport::run(const QCommandLineParser &parser) const
{
    const QStringList args = parser.positionalArguments();
    if (args.size() != 2) {
        printError(QStringLiteral("kavot-cli import: a project and a transcript file expected"));
        return UsageError;
    }
    bool known = false;
    const OVTranscriptImport::Target target = OVTranscriptImport::targetForName(parser.value(QStringLiteral("as")), &known);
    if (!known) {
        printError(QStringLiteral("kavot-cli import: --as takes utterances or labels"));
        return UsageError;
    }
    // The file first: a file that cannot be read must not cost a load and a save of the project.
    OVTranscriptData data;
    OVTranscriptReport report;
    const OV::Error read = OVTranscriptFile::read(args.at(1), &data, &report);
    if (!read.isOk()) {
        printError(read.message());
        return Failure;
    }
    OVLocalFileStorage storage;
    OVProject::Project project;
    const OV::Error loaded = storage.load(args.first(), &project);
    if (!loaded.isOk()) {
        printError(loaded.message());
        return Failure;
    }
    OVProject::Timeline *timeline = OVCliTranscript::coderTimeline(project, parser.value(QStringLiteral("coder")));
    if (!timeline)
        return Failure;
    OVTranscriptImport::Result result;
    QString why;
    if (!OVTranscriptImport::apply(&project, timeline, data, target, &result, &report, &why)) {
        printError(QStringLiteral("Cannot import %1:\n%2").arg(args.at(1), why));
        return Failure;
    }
    // The same storage that read the file writes it: entries carried from it (an embedded video)
    // go into the new file, and the replaced version goes to the backups.
    const OV::Error saved = storage.save(args.first(), &project);
    if (!saved.isOk()) {
        printError(saved.message());
        return Failure;
    }
    if (target == OVTranscriptImport::Utterances)
        print(QStringLiteral("%1 utterances imported into the transcript of %2").arg(result.utterances).arg(timeline->owner()));
    else
        print(QStringLiteral("%1 segments imported into the labels of %2 (%3 labels added)")
                  .arg(result.segments)
                  .arg(timeline->owner())
                  .arg(result.labelsAdded));
    if (report.skipped > 0) {
        printError(QStringLiteral("%1 left out:").arg(report.skipped));
        for (const QString &note : std::as_const(report.notes))
            printError(QStringLiteral("  ") + note);
    }
    return Success;
}
