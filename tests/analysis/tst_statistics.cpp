#include "analysis/ovstatistics.h"

#include <QTest>

#include <cmath>
#include <limits>

namespace {
constexpr double NaN = std::numeric_limits<double>::quiet_NaN();
constexpr double Open = 2147483647.0;

using Spans = QList<QPair<double, double>>;

OVCodingSnapshot snapshotWith(const Spans &spans, double videoLength = 100.0)
{
    OVCodingSnapshot snapshot;
    snapshot.videoLength = videoLength;
    OVCodingSnapshot::Coder coder;
    coder.name = QStringLiteral("anna");
    OVCodingSnapshot::Label label;
    label.name = QStringLiteral("Smile");
    label.key = QLatin1Char('S');
    int n = 0;
    for (const auto &[start, end] : spans)
        label.segments.append({QStringLiteral("s%1").arg(n++), start, end, QString()});
    coder.labels.append(label);
    snapshot.coders.append(coder);
    return snapshot;
}

bool same(double actual, double expected)
{
    if (std::isnan(expected))
        return std::isnan(actual);
    return std::abs(actual - expected) < 1e-9;
}
} // namespace

class TestStatistics : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void figures_data()
    {
        QTest::addColumn<Spans>("spans");
        QTest::addColumn<double>("from");
        QTest::addColumn<double>("to");
        QTest::addColumn<int>("count");
        QTest::addColumn<int>("open");
        QTest::addColumn<double>("total");
        QTest::addColumn<double>("mean");
        QTest::addColumn<double>("median");
        QTest::addColumn<double>("min");
        QTest::addColumn<double>("max");
        QTest::addColumn<double>("share");
        QTest::addColumn<double>("rate");
        QTest::addColumn<double>("latency");

        // Whole recording (to < 0 means up to the video's 100 s).
        QTest::newRow("touching") << Spans {{10, 20}, {20, 30}} << 0.0 << -1.0 << 2 << 0 << 20.0 << 10.0 << 10.0
                                  << 10.0 << 10.0 << 0.2 << 1.2 << 10.0;
        // Overlap counts twice in the total, once in the share.
        QTest::newRow("overlapping") << Spans {{10, 30}, {20, 40}} << 0.0 << -1.0 << 2 << 0 << 40.0 << 20.0 << 20.0
                                     << 20.0 << 20.0 << 0.3 << 1.2 << 10.0;
        QTest::newRow("median of an even count") << Spans {{0, 1}, {10, 13}, {20, 30}, {40, 42}} << 0.0 << -1.0 << 4
                                                 << 0 << 16.0 << 4.0 << 2.5 << 1.0 << 10.0 << 0.16 << 2.4 << 0.0;
        // Clipped at both edges of a 20 s window; the first segment already runs at its start.
        QTest::newRow("crossing the window") << Spans {{10, 20}, {30, 40}, {22, 24}} << 15.0 << 35.0 << 3 << 0 << 12.0
                                             << 4.0 << 5.0 << 2.0 << 5.0 << 0.6 << 9.0 << 0.0;
        QTest::newRow("touching the window counts nothing") << Spans {{10, 15}, {35, 40}} << 15.0 << 35.0 << 0 << 0
                                                            << 0.0 << NaN << NaN << NaN << NaN << 0.0 << 0.0 << NaN;
        QTest::newRow("open segment apart") << Spans {{5, Open}, {50, 60}} << 0.0 << -1.0 << 1 << 1 << 10.0 << 10.0
                                            << 10.0 << 10.0 << 10.0 << 0.1 << 0.6 << 50.0;
        QTest::newRow("label never used") << Spans {} << 0.0 << -1.0 << 0 << 0 << 0.0 << NaN << NaN << NaN << NaN
                                          << 0.0 << 0.0 << NaN;
        // A press while paused: zero length, counted where it lies in [from, to).
        QTest::newRow("zero length") << Spans {{0, 0}, {100, 100}} << 0.0 << -1.0 << 1 << 0 << 0.0 << 0.0 << 0.0
                                     << 0.0 << 0.0 << 0.0 << 0.6 << 0.0;
        QTest::newRow("empty window") << Spans {{1, 2}} << 5.0 << 5.0 << 0 << 0 << 0.0 << NaN << NaN << NaN << NaN
                                      << NaN << NaN << NaN;
    }

    void figures()
    {
        QFETCH(Spans, spans);
        QFETCH(double, from);
        QFETCH(double, to);
        const QList<OVStatistics::Row> rows = OVStatistics::compute(snapshotWith(spans), {from, to});
        QCOMPARE(rows.size(), 1);
        const OVStatistics::Row &r = rows.first();
        QCOMPARE(r.coder, QStringLiteral("anna"));
        QCOMPARE(r.key, QLatin1Char('S'));
        QTEST(r.count, "count");
        QTEST(r.openCount, "open");
        QFETCH(double, total);
        QFETCH(double, mean);
        QFETCH(double, median);
        QFETCH(double, min);
        QFETCH(double, max);
        QFETCH(double, share);
        QFETCH(double, rate);
        QFETCH(double, latency);
        const QList<std::tuple<const char *, double, double>> figures {{"total", r.total, total}, {"mean", r.mean, mean},
            {"median", r.median, median}, {"min", r.min, min}, {"max", r.max, max}, {"share", r.share, share},
            {"rate", r.ratePerMinute, rate}, {"latency", r.latency, latency}};
        for (const auto &[name, actual, expected] : figures)
            QVERIFY2(same(actual, expected), qPrintable(QStringLiteral("%1: %2, expected %3").arg(name).arg(actual).arg(expected)));
    }

    void segmentGroups()
    {
        OVCodingSnapshot snapshot = snapshotWith({{10, 20}, {30, 45}, {50, Open}});
        snapshot.coders[0].groups.append({QStringLiteral("g1"), QStringLiteral("Lunch"),
            {QStringLiteral("s1"), QStringLiteral("s2"), QStringLiteral("missing")}});
        const QList<OVStatistics::Row> rows = OVStatistics::compute(snapshot, {}, true);
        QCOMPARE(rows.size(), 2);
        QCOMPARE(rows[0].group, QString());
        QCOMPARE(rows[0].count, 2);
        QCOMPARE(rows[1].group, QStringLiteral("Lunch"));
        QCOMPARE(rows[1].count, 1);
        QCOMPARE(rows[1].openCount, 1);
        QCOMPARE(rows[1].total, 15.0);
        QCOMPARE(rows[1].latency, 30.0);
    }
};

QTEST_APPLESS_MAIN(TestStatistics)
#include "tst_statistics.moc"
