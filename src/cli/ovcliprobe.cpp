#include "ovcliprobe.h"

#include "media/ovmediainfo.h"

#include <QCommandLineParser>
#include <QJsonDocument>
#include <QJsonObject>

void OVCliProbe::setup(QCommandLineParser &parser) const
{
    parser.addPositionalArgument(QStringLiteral("file"), QStringLiteral("The video or audio file."));
}

int OVCliProbe::run(const QCommandLineParser &parser) const
{
    const QStringList files = parser.positionalArguments();
    if (files.size() != 1) {
        printError(QStringLiteral("kavot-cli probe: exactly one file expected"));
        return UsageError;
    }
    QJsonObject json;
    const OV::Error error = OVMediaInfo::probeJson(files.first(), &json);
    if (!error.isOk()) {
        printError(error.message());
        return Failure;
    }
    print(QString::fromUtf8(QJsonDocument(json).toJson(QJsonDocument::Indented)).trimmed());
    return Success;
}
