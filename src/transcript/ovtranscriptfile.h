#pragma once

#include "log/overror.h"
#include "project/ovtablewriter.h"
#include "transcript/ovtranscriptdata.h"

namespace OVProject {
class Timeline;
}

// Transcript files in and out, whatever the format: the format is told by the file's extension,
// and every failure is an OV::Error whose message names the file and the reason.
class OVTranscriptFile
{
public:
    enum Format { Unknown, Csv, Xlsx, Srt, Vtt, TextGrid, Eaf };
    enum ErrorCode { WriteFailed = 1, Cancelled = 2, Unreadable = 3, Damaged = 4, Unsupported = 5 };

    static Format formatForPath(const QString &path);
    // "csv", "xlsx", "srt", "vtt", "textgrid", "eaf".
    static Format formatForName(const QString &name);
    static QString extension(Format format);
    static bool canRead(Format format) { return format != Unknown && format != Xlsx; }
    // File dialog filters, the first one naming every readable format.
    static QStringList importFilters();
    static QString exportFilter(Format format);

    // Reads the file whole; on failure `data` is untouched. `budget` may carry cancel and progress.
    static OV::Error read(const QString &path, OVTranscriptData *data, OVTranscriptReport *report,
        OVReadBudget *budget = nullptr);
    static OV::Error read(Format format, const QByteArray &bytes, OVTranscriptData *data, OVTranscriptReport *report,
        OVReadBudget *budget = nullptr);
    // Writes through a temporary file, so that a failed write leaves no half file. `leftOut` gets
    // the rows the format could not hold (TextGrid intervals of no length).
    static OV::Error write(const QString &path, Format format, const OVTranscriptData &data,
        const QString &mediaPath = QString(), const OVTableWriter::Progress &progress = {}, qint64 *leftOut = nullptr);

    // The timeline's utterances by start (and, with `withSegments`, its labels' closed segments
    // by label and start; open ones are counted in `openLeftOut`).
    static OVTranscriptData fromTimeline(const OVProject::Timeline *timeline, bool withSegments = false,
        qint64 *openLeftOut = nullptr);
};
