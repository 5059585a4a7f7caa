#include "ovclicheck.h"

#include "project/label.h"
#include "project/ovjsonserializer.h"
#include "project/ovlocalfilestorage.h"
#include "project/project.h"

#include <QCommandLineParser>

OV::Error OVCliCheck::validate(const QString &path)
{
    if (isLabelSetPath(path)) {
        QList<OVProject::Label *> labels;
        const OV::Error error = OVJsonSerializer::loadLabelSetFile(path, &labels);
        qDeleteAll(labels);
        return error;
    }
    OVProject::Project project;
    return OVLocalFileStorage().load(path, &project);
}

void OVCliCheck::setup(QCommandLineParser &parser) const
{
    parser.addPositionalArgument(QStringLiteral("file"), QStringLiteral("The .kvpr or .kvtl file."));
}

int OVCliCheck::run(const QCommandLineParser &parser) const
{
    const QStringList files = parser.positionalArguments();
    if (files.size() != 1) {
        printError(QStringLiteral("kavot-cli check: exactly one file expected"));
        return UsageError;
    }
    const OV::Error error = validate(files.first());
    if (!error.isOk()) {
        print(error.message());
        return Failure;
    }
    print(QStringLiteral("ok"));
    return Success;
}
