// One transcript reader (chosen at build time), with a check that what it accepts survives our
// own writer and reader: write, read, write again gives the same rows. In memory, to keep runs fast.
#include "project/ovreadbudget.h"
#include "project/ovtablewriter.h"
#include "transcript/oveafdocument.h"
#include "transcript/ovtextgrid.h"
#include "transcript/ovtranscriptcsv.h"
#include "transcript/ovtranscriptsrt.h"
#include "transcript/ovtranscriptvtt.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace {

bool read(const QByteArray &bytes, OVTranscriptData *data, OVTranscriptReport *report, OVReadBudget *budget)
{
    QString why;
    const char *format = KAVOT_TRANSCRIPT_FORMAT;
    if (!std::strcmp(format, "csv"))
        return OVTranscriptCsv::read(bytes, data, report, budget, &why);
    if (!std::strcmp(format, "srt"))
        return OVTranscriptSrt::read(bytes, data, report, budget, &why);
    if (!std::strcmp(format, "vtt"))
        return OVTranscriptVtt::read(bytes, data, report, budget, &why);
    if (!std::strcmp(format, "textgrid"))
        return OVTextGrid::read(bytes, data, report, budget, &why);
    return OVEafDocument::read(bytes, data, report, budget, &why);
}

QByteArray write(const OVTranscriptData &data)
{
    const char *format = KAVOT_TRANSCRIPT_FORMAT;
    if (!std::strcmp(format, "csv"))
        return OVTableWriter::csv(OVTranscriptCsv::table(data));
    if (!std::strcmp(format, "srt"))
        return OVTranscriptSrt::write(data);
    if (!std::strcmp(format, "vtt"))
        return OVTranscriptVtt::write(data);
    if (!std::strcmp(format, "textgrid"))
        return OVTextGrid::write(data);
    return OVEafDocument::write(data);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray bytes(reinterpret_cast<const char *>(data), qsizetype(size));
    OVReadBudget budget { qint64(size) };
    OVTranscriptData first;
    OVTranscriptReport report;
    if (!read(bytes, &first, &report, &budget))
        return 0;
    if (report.read != first.rows.size())
        std::abort();
    // The first write may normalise (round times, drop what the format cannot hold); from then on
    // what is written reads back the same.
    OVTranscriptData second;
    if (!read(write(first), &second, nullptr, nullptr))
        std::abort();
    OVTranscriptData third;
    if (!read(write(second), &third, nullptr, nullptr) || !(third.rows == second.rows))
        std::abort();
    return 0;
}
