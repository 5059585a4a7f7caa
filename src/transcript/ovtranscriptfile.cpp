#include "transcript/ovtranscriptfile.h"

#include "project/label.h"
#include "project/ovreadbudget.h"
#include "project/segment.h"
#include "project/timeline.h"
#include "project/utterance.h"
#include "transcript/oveafdocument.h"
#include "transcript/ovtextgrid.h"
#include "transcript/ovtranscriptcsv.h"
#include "transcript/ovtranscriptlogging.h"
#include "transcript/ovtranscriptsrt.h"
#include "transcript/ovtranscriptvtt.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QObject>
#include <QSaveFile>

#include <algorithm>

namespace {

struct FormatInfo
{
    OVTranscriptFile::Format format;
    const char *name;
    const char *filter;
};

const FormatInfo Formats[] = {
    { OVTranscriptFile::Csv, "csv", "CSV (*.csv)" },
    { OVTranscriptFile::Xlsx, "xlsx", "Excel Workbook (*.xlsx)" },
    { OVTranscriptFile::Srt, "srt", "SubRip Subtitles (*.srt)" },
    { OVTranscriptFile::Vtt, "vtt", "WebVTT (*.vtt)" },
    { OVTranscriptFile::TextGrid, "textgrid", "Praat TextGrid (*.TextGrid)" },
    { OVTranscriptFile::Eaf, "eaf", "ELAN Annotation File (*.eaf)" },
};

QString nativePath(const QString &path) { return QDir::toNativeSeparators(path); }

} // namespace

OVTranscriptFile::Format OVTranscriptFile::formatForName(const QString &name)
{
    const QString n = name.toLower();
    for (const FormatInfo &f : Formats) {
        if (n == QLatin1String(f.name))
            return f.format;
    }
    return Unknown;
}

OVTranscriptFile::Format OVTranscriptFile::formatForPath(const QString &path)
{
    return formatForName(QFileInfo(path).suffix());
}

QString OVTranscriptFile::extension(Format format)
{
    if (format == TextGrid)
        return QStringLiteral("TextGrid");
    for (const FormatInfo &f : Formats) {
        if (f.format == format)
            return QLatin1String(f.name);
    }
    return QString();
}

QString OVTranscriptFile::exportFilter(Format format)
{
    for (const FormatInfo &f : Formats) {
        if (f.format == format)
            return QObject::tr(f.filter);
    }
    return QString();
}

QStringList OVTranscriptFile::importFilters()
{
    QStringList filters;
    QStringList patterns;
    for (const FormatInfo &f : Formats) {
        if (!canRead(f.format))
            continue;
        filters << QObject::tr(f.filter);
        patterns << QStringLiteral("*.") + extension(f.format);
    }
    filters.prepend(QObject::tr("Transcripts (%1)").arg(patterns.join(QLatin1Char(' '))));
    return filters;
}

OV::Error OVTranscriptFile::read(Format format, const QByteArray &bytes, OVTranscriptData *data,
    OVTranscriptReport *report, OVReadBudget *budget)
{
    QString why;
    OVTranscriptData read;
    OVTranscriptReport result;
    bool ok = false;
    switch (format) {
    case Csv:
        ok = OVTranscriptCsv::read(bytes, &read, &result, budget, &why);
        break;
    case Srt:
        ok = OVTranscriptSrt::read(bytes, &read, &result, budget, &why);
        break;
    case Vtt:
        ok = OVTranscriptVtt::read(bytes, &read, &result, budget, &why);
        break;
    case TextGrid:
        ok = OVTextGrid::read(bytes, &read, &result, budget, &why);
        break;
    case Eaf:
        ok = OVEafDocument::read(bytes, &read, &result, budget, &why);
        break;
    case Xlsx:
    case Unknown:
        return OV::Error(Unsupported, QObject::tr("transcripts are read from CSV, SubRip, WebVTT, TextGrid and ELAN files"));
    }
    if (!ok) {
        if (budget && budget->isCancelled())
            return OV::Error(Cancelled, QObject::tr("Canceled by user"));
        return OV::Error(Damaged, why);
    }
    *data = read;
    if (report)
        *report = result;
    return OV::Error();
}

OV::Error OVTranscriptFile::read(const QString &path, OVTranscriptData *data, OVTranscriptReport *report,
    OVReadBudget *budget)
{
    const Format format = formatForPath(path);
    if (!canRead(format))
        return OV::Error(Unsupported, QObject::tr("Cannot import %1:\nthe extension \".%2\" is not one of .csv, .srt, .vtt, .TextGrid, .eaf")
                                          .arg(nativePath(path), QFileInfo(path).suffix()));
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return OV::Error(Unreadable, QObject::tr("Cannot import %1:\n%2").arg(nativePath(path), file.errorString()));
    if (file.size() > OVTranscriptInput::MaxFileBytes)
        return OV::Error(Damaged, QObject::tr("Cannot import %1:\nthe file is larger than %2 MB")
                                      .arg(nativePath(path))
                                      .arg(OVTranscriptInput::MaxFileBytes >> 20));
    const QByteArray bytes = file.readAll();
    OV::Error error = read(format, bytes, data, report, budget);
    if (error && error.code() != Cancelled) {
        qCWarning(lcTranscript) << "Import of" << path << "refused:" << error.message();
        error = OV::Error(error.code(), QObject::tr("Cannot import %1:\n%2").arg(nativePath(path), error.message()));
    }
    return error;
}

OV::Error OVTranscriptFile::write(const QString &path, Format format, const OVTranscriptData &data,
    const QString &mediaPath, const OVTableWriter::Progress &progress, qint64 *leftOut)
{
    if (leftOut)
        *leftOut = 0;
    QByteArray bytes;
    switch (format) {
    case Csv:
        return OVTableWriter::writeCsv(OVTranscriptCsv::table(data), path, progress);
    case Xlsx:
        return OVTableWriter::writeXlsx({ OVTranscriptCsv::table(data) }, path, progress);
    case Srt:
        bytes = OVTranscriptSrt::write(data);
        break;
    case Vtt:
        bytes = OVTranscriptVtt::write(data);
        break;
    case TextGrid:
        bytes = OVTextGrid::write(data, leftOut);
        break;
    case Eaf:
        bytes = OVEafDocument::write(data, mediaPath);
        break;
    case Unknown:
        return OV::Error(Unsupported, QObject::tr("Failed to write %1:\nunknown transcript format").arg(nativePath(path)));
    }
    if (progress && !progress(0, 1))
        return OV::Error(Cancelled, QObject::tr("Canceled by user"));
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size() || !file.commit()) {
        qCWarning(lcTranscript) << "Writing" << path << "failed:" << file.errorString();
        return OV::Error(WriteFailed, QObject::tr("Failed to write %1:\n%2").arg(nativePath(path), file.errorString()));
    }
    if (progress)
        progress(1, 1);
    return OV::Error();
}

OVTranscriptData OVTranscriptFile::fromTimeline(const OVProject::Timeline *timeline, bool withSegments,
    qint64 *openLeftOut)
{
    OVTranscriptData data;
    if (openLeftOut)
        *openLeftOut = 0;
    if (!timeline)
        return data;
    for (const OVProject::Utterance *u : timeline->utterances())
        data.rows.append({ u->speaker(), u->startTime(), u->endTime(), u->text(), OVTranscriptData::Speech });
    std::stable_sort(data.rows.begin(), data.rows.end(), [](const auto &a, const auto &b) { return a.start < b.start; });
    if (!withSegments)
        return data;
    for (const OVProject::Label *l : timeline->labels()) {
        QList<OVTranscriptData::Row> rows;
        for (const OVProject::Segment *s : l->segments()) {
            if (s->isOpen()) {
                if (openLeftOut)
                    ++*openLeftOut;
                continue;
            }
            rows.append({ l->name(), s->start(), s->end(), s->description(), OVTranscriptData::Labels });
        }
        std::stable_sort(rows.begin(), rows.end(), [](const auto &a, const auto &b) { return a.start < b.start; });
        data.rows += rows;
    }
    return data;
}
