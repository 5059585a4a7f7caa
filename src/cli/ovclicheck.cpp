#include "ovclicheck.h"

#include "project/label.h"
#include "project/ovjsonserializer.h"
#include "project/ovlocalfilestorage.h"
#include "project/project.h"

#include <QCommandLineParser>

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
    const QString path = files.first();
    OV::Error error;
    if (isLabelSetPath(path)) {
        QList<OVProject::Label *> labels;
        error = OVJsonSerializer::loadLabelSetFile(path, &labels);
        qDeleteAll(labels);
    } else {
        OVProject::Project project;
        error = OVLocalFileStorage().load(path, &project);
    }
    if (!error.isOk()) {
        print(error.message());
        return Failure;
    }
    print(QStringLiteral("ok"));
    return Success;
}
