#include "ovclinew.h"

#include "media/ovmediainfo.h"
#include "project/ovlocalfilestorage.h"
#include "project/project.h"

#include <QCommandLineParser>
#include <QFileInfo>

void OVCliNew::setup(QCommandLineParser &parser) const
{
    parser.addOption({ QStringLiteral("video"), QStringLiteral("The project's video or audio file."), QStringLiteral("file") });
    parser.addOption({ QStringLiteral("owner"), QStringLiteral("The user whose timeline is made (default: $USER)."),
                       QStringLiteral("user") });
    parser.addOption({ QStringLiteral("title"), QStringLiteral("The project's title."), QStringLiteral("text") });
    parser.addPositionalArgument(QStringLiteral("output"), QStringLiteral("The .kvpr file to write."));
}

int OVCliNew::run(const QCommandLineParser &parser) const
{
    const QStringList files = parser.positionalArguments();
    if (files.size() != 1) {
        printError(QStringLiteral("kavot-cli new: exactly one output file expected"));
        return UsageError;
    }
    QString owner = parser.value(QStringLiteral("owner"));
    if (owner.isEmpty())
        owner = qEnvironmentVariable("USER", QStringLiteral("user"));

    OVProject::Project project;
    project.startNew(owner);
    project.setOwner(owner);
    project.setOfflineUser(owner);
    project.setTitle(parser.value(QStringLiteral("title")));
    const QString video = parser.value(QStringLiteral("video"));
    if (!video.isEmpty()) {
        const double length = OVMediaInfo::probeDuration(video);
        if (length <= 0) {
            printError(QStringLiteral("Cannot read the length of %1").arg(video));
            return Failure;
        }
        project.setVideoPath(QFileInfo(video).absoluteFilePath());
        project.setVideoLength(length);
    }
    const OV::Error error = OVLocalFileStorage().save(files.first(), &project);
    if (!error.isOk()) {
        printError(error.message());
        return Failure;
    }
    print(QFileInfo(files.first()).absoluteFilePath());
    return Success;
}
