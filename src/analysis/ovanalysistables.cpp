#include "analysis/ovanalysistables.h"

#include <QJsonValue>

#include <cmath>

namespace {

QVariant number(double value)
{
    return std::isfinite(value) ? QVariant(value) : QVariant();
}

QJsonValue jsonNumber(double value)
{
    return std::isfinite(value) ? QJsonValue(value) : QJsonValue(QJsonValue::Null);
}

QString keyText(QChar key)
{
    return key.isNull() ? QString() : QString(key);
}

// Where row i of a table over every segment of every coder lies.
struct SegmentIndex
{
    struct Place
    {
        int coder;
        int label;
        int segment;
    };
    std::vector<Place> places;
    explicit SegmentIndex(const OVCodingSnapshot &snapshot)
    {
        for (int c = 0; c < snapshot.coders.size(); ++c) {
            const auto &labels = snapshot.coders.at(c).labels;
            for (int l = 0; l < labels.size(); ++l)
                for (int s = 0; s < labels.at(l).segments.size(); ++s)
                    places.push_back({c, l, s});
        }
    }
};

} // namespace

OVTable OVAnalysisTables::segments(const OVCodingSnapshot &snapshot)
{
    auto index = std::make_shared<SegmentIndex>(snapshot);
    OVTable table;
    table.name = QStringLiteral("Segments");
    table.columns = {{QStringLiteral("Project"), OVTable::Text}, {QStringLiteral("Coder"), OVTable::Text},
        {QStringLiteral("Label"), OVTable::Text}, {QStringLiteral("Key"), OVTable::Text},
        {QStringLiteral("Start"), OVTable::Duration}, {QStringLiteral("End"), OVTable::Duration},
        {QStringLiteral("Duration"), OVTable::Duration}, {QStringLiteral("Description"), OVTable::Text},
        {QStringLiteral("Groups"), OVTable::Text}};
    table.rowCount = qint64(index->places.size());
    table.row = [index, &snapshot](qint64 i, QVariantList &cells) {
        const auto &place = index->places[std::size_t(i)];
        const auto &coder = snapshot.coders.at(place.coder);
        const auto &label = coder.labels.at(place.label);
        const auto &s = label.segments.at(place.segment);
        cells = {snapshot.projectName, coder.name, label.name, keyText(label.key), s.start,
            s.isOpen() ? QVariant() : QVariant(s.end), s.isOpen() ? QVariant() : QVariant(s.end - s.start),
            s.description, coder.groups.isEmpty() ? QString() : OVCodingSnapshot::groupsOf(coder, s.id)};
    };
    return table;
}

OVTable OVAnalysisTables::utterances(const OVCodingSnapshot &snapshot)
{
    QList<QVariantList> rows;
    for (const auto &coder : snapshot.coders)
        for (const auto &u : coder.utterances)
            rows.append({snapshot.projectName, coder.name, u.speaker, u.start, u.end, u.end - u.start, u.text});
    return OVTable::fromRows(QStringLiteral("Utterances"),
        {{QStringLiteral("Project"), OVTable::Text}, {QStringLiteral("Coder"), OVTable::Text},
            {QStringLiteral("Speaker"), OVTable::Text}, {QStringLiteral("Start"), OVTable::Duration},
            {QStringLiteral("End"), OVTable::Duration}, {QStringLiteral("Duration"), OVTable::Duration},
            {QStringLiteral("Text"), OVTable::Text}},
        rows);
}

OVTable OVAnalysisTables::statistics(const QList<OVStatistics::Row> &stats)
{
    QList<QVariantList> rows;
    for (const OVStatistics::Row &r : stats)
        rows.append({r.project, r.coder, r.group, r.label, keyText(r.key), r.count, r.openCount, r.total,
            number(r.mean), number(r.median), number(r.min), number(r.max), number(r.share),
            number(r.ratePerMinute), number(r.latency)});
    return OVTable::fromRows(QStringLiteral("Statistics"),
        {{QStringLiteral("Project"), OVTable::Text}, {QStringLiteral("Coder"), OVTable::Text},
            {QStringLiteral("Group"), OVTable::Text}, {QStringLiteral("Label"), OVTable::Text},
            {QStringLiteral("Key"), OVTable::Text}, {QStringLiteral("Count"), OVTable::Integer},
            {QStringLiteral("Open"), OVTable::Integer}, {QStringLiteral("Total"), OVTable::Duration},
            {QStringLiteral("Mean"), OVTable::Duration}, {QStringLiteral("Median"), OVTable::Duration},
            {QStringLiteral("Min"), OVTable::Duration}, {QStringLiteral("Max"), OVTable::Duration},
            {QStringLiteral("Share"), OVTable::Number}, {QStringLiteral("Rate per minute"), OVTable::Number},
            {QStringLiteral("Latency"), OVTable::Duration}},
        rows);
}

OVTable OVAnalysisTables::agreement(const OVAgreement::Result &result)
{
    QList<QVariantList> rows;
    for (const auto &l : result.labels)
        rows.append({l.label, keyText(l.key), number(l.kappa), number(l.percent), l.slicesA, l.slicesB,
            l.slicesBoth, l.matched, l.missed, l.extra, number(l.meanOnsetDiff)});
    rows.append({QStringLiteral("All labels"), QString(), number(result.kappa), number(result.percent), QVariant(),
        QVariant(), QVariant(), result.matched, result.missed, result.extra, number(result.meanOnsetDiff)});
    return OVTable::fromRows(QStringLiteral("Agreement"),
        {{QStringLiteral("Label"), OVTable::Text}, {QStringLiteral("Key"), OVTable::Text},
            {QStringLiteral("Kappa"), OVTable::Number}, {QStringLiteral("Percent"), OVTable::Number},
            {QStringLiteral("Slices ") + result.coderA, OVTable::Integer},
            {QStringLiteral("Slices ") + result.coderB, OVTable::Integer},
            {QStringLiteral("Slices both"), OVTable::Integer}, {QStringLiteral("Matched"), OVTable::Integer},
            {QStringLiteral("Missed"), OVTable::Integer}, {QStringLiteral("Extra"), OVTable::Integer},
            {QStringLiteral("Mean onset difference"), OVTable::Duration}},
        rows);
}

OVTable OVAnalysisTables::confusion(const OVAgreement::Result &result)
{
    QStringList names;
    for (const auto &l : result.labels)
        names << l.label;
    names << QStringLiteral("(no label)");
    QList<OVTable::Column> columns {{result.coderA + QStringLiteral(" \\ ") + result.coderB, OVTable::Text}};
    for (const QString &n : names)
        columns.append({n, OVTable::Integer});
    QList<QVariantList> rows;
    for (int r = 0; r < result.confusion.size(); ++r) {
        QVariantList row {names.value(r)};
        for (qint64 v : result.confusion.at(r))
            row << v;
        rows.append(row);
    }
    return OVTable::fromRows(QStringLiteral("Confusion"), columns, rows);
}

QJsonArray OVAnalysisTables::segmentsJson(const OVCodingSnapshot &snapshot)
{
    QJsonArray out;
    for (const auto &coder : snapshot.coders)
        for (const auto &label : coder.labels)
            for (const auto &s : label.segments)
                out.append(QJsonObject {{QStringLiteral("project"), snapshot.projectName},
                    {QStringLiteral("coder"), coder.name}, {QStringLiteral("label"), label.name},
                    {QStringLiteral("key"), keyText(label.key)}, {QStringLiteral("start_s"), s.start},
                    {QStringLiteral("end_s"), s.isOpen() ? QJsonValue() : QJsonValue(s.end)},
                    {QStringLiteral("duration_s"), s.isOpen() ? QJsonValue() : QJsonValue(s.end - s.start)},
                    {QStringLiteral("description"), s.description},
                    {QStringLiteral("groups"), OVCodingSnapshot::groupsOf(coder, s.id)}});
    return out;
}

QJsonArray OVAnalysisTables::statisticsJson(const QList<OVStatistics::Row> &rows)
{
    QJsonArray out;
    for (const OVStatistics::Row &r : rows) {
        QJsonObject o {{QStringLiteral("project"), r.project}, {QStringLiteral("coder"), r.coder},
            {QStringLiteral("label"), r.label}, {QStringLiteral("key"), keyText(r.key)},
            {QStringLiteral("count"), r.count}, {QStringLiteral("total_s"), r.total},
            {QStringLiteral("mean_s"), jsonNumber(r.mean)}, {QStringLiteral("median_s"), jsonNumber(r.median)},
            {QStringLiteral("min_s"), jsonNumber(r.min)}, {QStringLiteral("max_s"), jsonNumber(r.max)},
            {QStringLiteral("share"), jsonNumber(r.share)}, {QStringLiteral("rate_per_min"), jsonNumber(r.ratePerMinute)},
            {QStringLiteral("latency_s"), jsonNumber(r.latency)}, {QStringLiteral("open_count"), r.openCount}};
        if (!r.group.isEmpty())
            o.insert(QStringLiteral("group"), r.group);
        out.append(o);
    }
    return out;
}

QJsonObject OVAnalysisTables::agreementJson(const OVAgreement::Result &result, const OVAgreement::Options &options)
{
    QJsonArray labels;
    QStringList names;
    for (const auto &l : result.labels) {
        names << l.label;
        labels.append(QJsonObject {{QStringLiteral("label"), l.label}, {QStringLiteral("key"), keyText(l.key)},
            {QStringLiteral("kappa"), jsonNumber(l.kappa)}, {QStringLiteral("percent"), jsonNumber(l.percent)},
            {QStringLiteral("matched"), l.matched}, {QStringLiteral("missed"), l.missed},
            {QStringLiteral("extra"), l.extra}, {QStringLiteral("mean_onset_diff_s"), jsonNumber(l.meanOnsetDiff)}});
    }
    names << QStringLiteral("(no label)");
    QJsonArray matrix;
    for (const auto &row : result.confusion) {
        QJsonArray cells;
        for (qint64 v : row)
            cells.append(double(v));
        matrix.append(cells);
    }
    return QJsonObject {{QStringLiteral("coders"), QJsonArray {result.coderA, result.coderB}},
        {QStringLiteral("from_s"), result.from}, {QStringLiteral("to_s"), result.to},
        {QStringLiteral("resolution_s"), options.resolution}, {QStringLiteral("tolerance_s"), options.tolerance},
        {QStringLiteral("slices"), double(result.slices)}, {QStringLiteral("kappa"), jsonNumber(result.kappa)},
        {QStringLiteral("percent"), jsonNumber(result.percent)}, {QStringLiteral("matched"), result.matched},
        {QStringLiteral("missed"), result.missed}, {QStringLiteral("extra"), result.extra},
        {QStringLiteral("mean_onset_diff_s"), jsonNumber(result.meanOnsetDiff)}, {QStringLiteral("labels"), labels},
        {QStringLiteral("confusion"),
            QJsonObject {{QStringLiteral("labels"), QJsonArray::fromStringList(names)}, {QStringLiteral("matrix"), matrix}}}};
}
