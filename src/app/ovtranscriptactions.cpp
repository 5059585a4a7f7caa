#include "app/ovtranscriptactions.h"

#include "app/ovactionregistry.h"
#include "app/ovanalysisexports.h"
#include "project/ovreadbudget.h"
#include "project/project.h"
#include "project/timeline.h"
#include "project/timelinegroup.h"
#include "timeline/ovkeyboardcoder.h"
#include "transcript/ovtranscriptfile.h"
#include "transcript/ovtranscripthistory.h"
#include "transcript/ovtranscriptimport.h"
#include "widgets/ovbackgroundtask.h"
#include "widgets/ovprogressrunner.h"

#include <QAction>
#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QMainWindow>
#include <QMenu>
#include <QMessageBox>
#include <QPushButton>
#include <QStatusBar>

namespace {
constexpr int StatusMs = 6000;
}

OVTranscriptActions::OVTranscriptActions(QMainWindow *window, OVActionRegistry *actions)
    : QObject(window)
    , m_window(window)
    , m_actions(actions)
{
    using R = OVActionRegistry;
    connect(actions->action(R::ImportTranscript), &QAction::triggered, this, &OVTranscriptActions::importTranscript);
    connect(actions->action(R::ExportTranscriptCsv), &QAction::triggered, this, &OVTranscriptActions::exportTranscript);
    connect(actions->action(R::ExportTranscriptExcel), &QAction::triggered, this, &OVTranscriptActions::exportTranscriptExcel);
    connect(actions->action(R::ClearTranscript), &QAction::triggered, this, &OVTranscriptActions::clearTranscript);
    updateActions();
}

void OVTranscriptActions::setProject(OVProject::Project *project, const QString &projectPath)
{
    m_project = project;
    m_projectPath = projectPath;
    updateActions();
}

void OVTranscriptActions::addTo(QMenu *menu) const
{
    using R = OVActionRegistry;
    for (int id : { R::ImportTranscript, R::ExportTranscriptCsv, R::ExportTranscriptExcel })
        menu->addAction(m_actions->action(id));
    menu->addSeparator();
    menu->addAction(m_actions->action(R::ClearTranscript));
}

void OVTranscriptActions::updateActions()
{
    using R = OVActionRegistry;
    for (int id : { R::ImportTranscript, R::ExportTranscriptCsv, R::ExportTranscriptExcel, R::ClearTranscript })
        m_actions->action(id)->setEnabled(m_project != nullptr);
}

QString OVTranscriptActions::videoPath() const
{
    if (!m_project || m_project->videoPath().isEmpty())
        return QString();
    const QFileInfo video(m_project->videoPath());
    if (video.isAbsolute() || m_projectPath.isEmpty())
        return video.filePath();
    return QFileInfo(m_projectPath).absoluteDir().absoluteFilePath(video.filePath());
}

void OVTranscriptActions::importTranscript()
{
    if (!m_project)
        return;
    const QString path = QFileDialog::getOpenFileName(m_window, tr("Import Transcript"), m_lastFolder,
        OVTranscriptFile::importFilters().join(QStringLiteral(";;")));
    if (!path.isEmpty())
        importTranscriptFrom(path);
}

void OVTranscriptActions::importTranscriptFrom(const QString &path)
{
    OVProject::Timeline *timeline = OVKeyboardCoder::activeTimeline(m_project);
    if (!m_project || !timeline)
        return;
    m_lastFolder = QFileInfo(path).absolutePath();
    const QString title = tr("Import Transcript");

    OVTranscriptData data;
    OVTranscriptReport report;
    OV::Error error;
    OVReadBudget budget(QFileInfo(path).size());
    OVBackgroundTask::run(m_window, title, tr("Reading %1...").arg(QFileInfo(path).fileName()),
        [&](const OVBackgroundTask::Progress &progress) {
            budget.setProgressCallback(progress);
            error = OVTranscriptFile::read(path, &data, &report, &budget);
        },
        [&budget] { budget.cancel(); });
    if (error.code() == OVTranscriptFile::Cancelled)
        return;
    if (!error.isOk()) {
        QMessageBox::warning(m_window, title, error.message());
        return;
    }

    OVTranscriptImport::Target target = OVTranscriptImport::Utterances;
    const OVTranscriptFile::Format format = OVTranscriptFile::formatForPath(path);
    if (format == OVTranscriptFile::Eaf || format == OVTranscriptFile::TextGrid) {
        // Tiers of these tools may be speakers or coding categories; only the user knows which.
        QMessageBox ask(QMessageBox::Question, title,
            tr("%1 holds %n annotations on tiers. Import them as utterances of the transcript (each tier a speaker) "
               "or as segments of labels (each tier a label)?", nullptr, int(data.rows.size()))
                .arg(QFileInfo(path).fileName()),
            QMessageBox::Cancel, m_window);
        QAbstractButton *asUtterances = ask.addButton(tr("As Utterances"), QMessageBox::AcceptRole);
        QAbstractButton *asLabels = ask.addButton(tr("As Labels"), QMessageBox::AcceptRole);
        const bool ours = !data.rowsOf(OVTranscriptData::Labels).isEmpty() && data.rowsOf(OVTranscriptData::Speech).isEmpty();
        ask.setDefaultButton(qobject_cast<QPushButton *>(ours ? asLabels : asUtterances));
        ask.exec();
        if (ask.clickedButton() == asLabels)
            target = OVTranscriptImport::Labels;
        else if (ask.clickedButton() != asUtterances)
            return;
    } else if (!timeline->utterances().isEmpty()) {
        const auto answer = QMessageBox::question(m_window, title,
            tr("The transcript of %1 has %n utterances. Replace them with those of %2? (Undo brings them back.)", nullptr,
                int(timeline->utterances().size()))
                .arg(timeline->owner(), QFileInfo(path).fileName()),
            QMessageBox::Yes | QMessageBox::Cancel);
        if (answer != QMessageBox::Yes)
            return;
    }

    OVTranscriptImport::Result result;
    QString why;
    if (!OVTranscriptImport::apply(m_project, timeline, data, target, &result, &report, &why)) {
        QMessageBox::warning(m_window, title, tr("Cannot import %1:\n%2").arg(QDir::toNativeSeparators(path), why));
        return;
    }
    const QString done = target == OVTranscriptImport::Utterances
        ? tr("%n utterances imported from %1", nullptr, int(result.utterances)).arg(QFileInfo(path).fileName())
        : tr("%n segments imported from %1", nullptr, int(result.segments)).arg(QFileInfo(path).fileName());
    if (report.skipped > 0) {
        QMessageBox::information(m_window, title,
            done + QLatin1String(".\n\n") + tr("%n left out:", nullptr, int(report.skipped)) + QLatin1Char('\n')
                + report.notes.join(QLatin1Char('\n')));
    } else {
        m_window->statusBar()->showMessage(done, StatusMs);
    }
}

void OVTranscriptActions::exportTranscript()
{
    if (!m_project)
        return;
    QStringList filters;
    for (auto f : { OVTranscriptFile::Csv, OVTranscriptFile::Srt, OVTranscriptFile::Vtt, OVTranscriptFile::TextGrid, OVTranscriptFile::Eaf })
        filters << OVTranscriptFile::exportFilter(f);
    const QString path = OVAnalysisExports::chooseSavePath(m_window, tr("Export Transcript"), filters.join(QStringLiteral(";;")));
    if (!path.isEmpty())
        exportTranscriptTo(path);
}

void OVTranscriptActions::exportTranscriptExcel()
{
    if (!m_project)
        return;
    const QString path = OVAnalysisExports::chooseSavePath(m_window, tr("Export Transcript (Excel)"),
        OVTranscriptFile::exportFilter(OVTranscriptFile::Xlsx));
    if (!path.isEmpty())
        exportTranscriptTo(path);
}

void OVTranscriptActions::exportTranscriptTo(const QString &path)
{
    const OVProject::Timeline *timeline = OVKeyboardCoder::activeTimeline(m_project);
    if (!m_project || !timeline)
        return;
    const QString title = tr("Export Transcript");
    const OVTranscriptFile::Format format = OVTranscriptFile::formatForPath(path);
    if (format == OVTranscriptFile::Unknown) {
        QMessageBox::warning(m_window, title,
            tr("Failed to write %1:\nthe extension does not name a transcript format (.csv, .xlsx, .srt, .vtt, .TextGrid, .eaf)")
                .arg(QDir::toNativeSeparators(path)));
        return;
    }
    // Taken here, on the model's thread; the worker only writes the copy.
    qint64 open = 0;
    const OVTranscriptData data = OVTranscriptFile::fromTimeline(timeline, format == OVTranscriptFile::Eaf, &open);
    const QString media = videoPath();
    qint64 leftOut = 0;
    const OV::Error error = OVProgressRunner::run(m_window, tr("Exporting transcript..."),
        [&](const OVProgressRunner::Report &report) { return OVTranscriptFile::write(path, format, data, media, report, &leftOut); });
    if (error.code() == OVTranscriptFile::Cancelled)
        return;
    if (!error.isOk()) {
        QMessageBox::warning(m_window, title, error.message());
        return;
    }
    QString done = tr("Transcript exported to %1").arg(QDir::toNativeSeparators(path));
    if (open > 0)
        done += tr("; %n open segments left out", nullptr, int(open));
    if (leftOut > 0)
        done += tr("; %n utterances of no length left out", nullptr, int(leftOut));
    m_window->statusBar()->showMessage(done, StatusMs);
}

void OVTranscriptActions::clearTranscript()
{
    OVProject::Timeline *timeline = OVKeyboardCoder::activeTimeline(m_project);
    if (!m_project || !timeline || timeline->utterances().isEmpty())
        return;
    OVTranscriptHistory history;
    history.setProject(m_project);
    if (history.clearTranscript(timeline))
        m_window->statusBar()->showMessage(tr("Transcript cleared (Undo brings it back)"), StatusMs);
}
