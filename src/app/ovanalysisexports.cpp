#include "app/ovanalysisexports.h"

#include "analysis/ovanalysistables.h"
#include "analysis/ovstatistics.h"
#include "project/ovlocalfilestorage.h"
#include "project/ovtablewriter.h"
#include "project/project.h"
#include "widgets/ovprogressrunner.h"

#include <QFileDialog>
#include <QFileInfo>
#include <QObject>

namespace {
bool isCsv(const QString &path)
{
    return path.endsWith(QLatin1String(".csv"), Qt::CaseInsensitive);
}
} // namespace

QString OVAnalysisExports::chooseSavePath(QWidget *parent, const QString &caption, const QString &filter)
{
    QString selected;
    QString path = QFileDialog::getSaveFileName(parent, caption, QString(), filter, &selected);
    const int star = selected.indexOf(QLatin1String("*."));
    if (!path.isEmpty() && QFileInfo(path).suffix().isEmpty() && star >= 0)
        path += selected.mid(star + 1, selected.indexOf(QLatin1Char(')'), star) - star - 1);
    return path;
}

OV::Error OVAnalysisExports::rawData(QWidget *parent, const OVCodingSnapshot &snapshot, const QString &path)
{
    return OVProgressRunner::run(parent, QObject::tr("Exporting raw data..."), [&](const auto &report) {
        const OVTable segments = OVAnalysisTables::segments(snapshot);
        const OVTable utterances = OVAnalysisTables::utterances(snapshot);
        if (!isCsv(path))
            return OVTableWriter::writeXlsx({segments, utterances}, path, report);
        OV::Error error = OVTableWriter::writeCsv(segments, path, report);
        if (error.isOk() && utterances.rowCount > 0) {
            const QFileInfo info(path);
            error = OVTableWriter::writeCsv(utterances,
                info.absolutePath() + QLatin1Char('/') + info.completeBaseName() + QStringLiteral("_utterances.csv"));
        }
        return error;
    });
}

OV::Error OVAnalysisExports::workshop(QWidget *parent, const QStringList &projects, const QString &path, QStringList *skipped)
{
    QStringList missed;
    const OV::Error error = OVProgressRunner::run(parent, QObject::tr("Reading projects..."), [&](const auto &report) {
        QList<OVStatistics::Row> rows;
        for (int i = 0; i < projects.size(); ++i) {
            if (!report(i, projects.size() + 1))
                return OV::Error(2, QObject::tr("Canceled by user"));
            OVProject::Project project;
            const OV::Error loaded = OVLocalFileStorage().load(projects.at(i), &project);
            if (!loaded.isOk()) {
                missed << projects.at(i) + QStringLiteral(": ") + loaded.message().simplified();
                continue;
            }
            rows += OVStatistics::compute(
                OVCodingSnapshot::fromProject(project, QFileInfo(projects.at(i)).completeBaseName()), {});
        }
        if (rows.isEmpty())
            return OV::Error(1, QObject::tr("None of the projects could be read."));
        const OVTable table = OVAnalysisTables::statistics(rows);
        return isCsv(path) ? OVTableWriter::writeCsv(table, path) : OVTableWriter::writeXlsx({table}, path);
    });
    if (skipped)
        *skipped = missed;
    return error;
}
