#include "analysis/ovagreement.h"

#include <QTest>

#include <cmath>
#include <limits>

namespace {
constexpr double NaN = std::numeric_limits<double>::quiet_NaN();
using Spans = QList<QPair<double, double>>;

OVCodingSnapshot::Label label(const QString &name, QChar key, const Spans &spans)
{
    OVCodingSnapshot::Label l;
    l.name = name;
    l.key = key;
    for (const auto &[s, e] : spans)
        l.segments.append({QString(), s, e, QString()});
    return l;
}

OVCodingSnapshot::Coder coder(const QString &name, const QList<OVCodingSnapshot::Label> &labels)
{
    OVCodingSnapshot::Coder c;
    c.name = name;
    c.labels = labels;
    return c;
}

bool same(double actual, double expected)
{
    return std::isnan(expected) ? std::isnan(actual) : std::abs(actual - expected) < 1e-9;
}
} // namespace

class TestAgreement : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void timeSliced_data()
    {
        // One label, window [0, 1] at 0.1 s: ten slices with midpoints 0.05 ... 0.95.
        QTest::addColumn<Spans>("a");
        QTest::addColumn<Spans>("b");
        QTest::addColumn<double>("kappa");
        QTest::addColumn<double>("percent");
        QTest::addColumn<qint64>("both");

        QTest::newRow("identical") << Spans {{0.2, 0.5}} << Spans {{0.2, 0.5}} << 1.0 << 100.0 << qint64(3);
        // A: slices 0-4, B: 3-7. po 0.4, pe 0.5.
        QTest::newRow("half overlap") << Spans {{0.0, 0.5}} << Spans {{0.3, 0.8}} << -0.2 << 40.0 << qint64(2);
        // start <= mid < end: a segment from midpoint to midpoint holds exactly one slice.
        QTest::newRow("boundaries on midpoints") << Spans {{0.15, 0.25}} << Spans {{0.25, 0.35}} << (0.8 - 0.82) / 0.18
                                                 << 80.0 << qint64(0);
        QTest::newRow("both silent: kappa undefined") << Spans {} << Spans {} << NaN << 100.0 << qint64(0);
        QTest::newRow("one coder never used it") << Spans {{0.0, 0.5}} << Spans {} << 0.0 << 50.0 << qint64(0);
        QTest::newRow("open and outside left out") << Spans {{0.2, 2147483647.0}, {1.0, 1.5}} << Spans {} << NaN
                                                   << 100.0 << qint64(0);
    }

    void timeSliced()
    {
        QFETCH(Spans, a);
        QFETCH(Spans, b);
        QFETCH(double, kappa);
        QFETCH(double, percent);
        OVCodingSnapshot snapshot;
        snapshot.videoLength = 1.0;
        const auto ca = coder(QStringLiteral("anna"), {label(QStringLiteral("Smile"), QLatin1Char('S'), a)});
        const auto cb = coder(QStringLiteral("bert"), {label(QStringLiteral("Smile"), QLatin1Char('S'), b)});
        const OVAgreement::Result r = OVAgreement::compute(snapshot, ca, cb, {});
        QCOMPARE(r.slices, qint64(10));
        QCOMPARE(r.labels.size(), 1);
        QVERIFY2(same(r.labels[0].kappa, kappa), qPrintable(QString::number(r.labels[0].kappa)));
        QVERIFY2(same(r.labels[0].percent, percent), qPrintable(QString::number(r.labels[0].percent)));
        QTEST(r.labels[0].slicesBoth, "both");
        // With a single label the pooled figures are that label's.
        QVERIFY(same(r.kappa, kappa));
        // The confusion matrix accounts for every slice of both coders once.
        qint64 cells = 0;
        for (const auto &row : r.confusion)
            for (qint64 v : row)
                cells += v;
        QCOMPARE(cells, qint64(10));
    }

    void onsets()
    {
        OVCodingSnapshot snapshot;
        snapshot.videoLength = 30.0;
        const auto ca = coder(QStringLiteral("anna"), {label(QStringLiteral("Nod"), QLatin1Char('N'), {{1, 2}, {5, 6}, {10, 11}})});
        const auto cb = coder(QStringLiteral("bert"),
            {label(QStringLiteral("Nod"), QLatin1Char('N'), {{1.5, 2}, {7, 8}, {10.2, 11}, {20, 21}})});
        OVAgreement::Options options;
        options.tolerance = 1.0;
        const OVAgreement::Result r = OVAgreement::compute(snapshot, ca, cb, options);
        const OVAgreement::LabelResult &l = r.labels.first();
        QCOMPARE(l.matched, 2);
        QCOMPARE(l.missed, 1);
        QCOMPARE(l.extra, 2);
        QVERIFY(same(l.meanOnsetDiff, 0.35));
        // No match at all: the mean difference is undefined, not 0.
        options.tolerance = 0.1;
        QVERIFY(std::isnan(OVAgreement::compute(snapshot, ca, cb, options).labels.first().meanOnsetDiff));
    }

    void labelsMatchedByKeyThenName()
    {
        OVCodingSnapshot snapshot;
        snapshot.videoLength = 1.0;
        const auto ca = coder(QStringLiteral("anna"),
            {label(QStringLiteral("Smile"), QLatin1Char('S'), {{0.0, 0.5}}), label(QStringLiteral("Nod"), QLatin1Char('N'), {{0.5, 1.0}})});
        const auto cb = coder(QStringLiteral("bert"),
            {label(QStringLiteral("Wave"), QLatin1Char('W'), {{0.0, 1.0}}), label(QStringLiteral("Nod"), QLatin1Char('X'), {{0.5, 1.0}}),
                label(QStringLiteral("Grin"), QLatin1Char('S'), {{0.0, 0.5}})});
        const OVAgreement::Result r = OVAgreement::compute(snapshot, ca, cb, {});
        QCOMPARE(r.labels.size(), 3);
        QCOMPARE(r.labels[0].label, QStringLiteral("Smile"));
        QCOMPARE(r.labels[0].kappa, 1.0);
        QCOMPARE(r.labels[1].label, QStringLiteral("Nod"));
        QCOMPARE(r.labels[1].kappa, 1.0);
        QCOMPARE(r.labels[2].label, QStringLiteral("Wave"));
        QCOMPARE(r.labels[2].slicesA, qint64(0));
        QCOMPARE(r.labels[2].slicesB, qint64(10));
        // Pooled over the three labels: 30 decisions, 10 disagree (Wave); both 10, onlyB 10, neither 10.
        QVERIFY(same(r.percent, 100.0 * 20 / 30));
        QVERIFY(same(r.kappa, OVAgreement::kappa(10, 0, 10, 10)));
        // Every slice: A has Smile or Nod, B has Wave plus the same one: Smile x Smile, Smile x Wave ...
        QCOMPARE(r.confusion[0][0], qint64(5));
        QCOMPARE(r.confusion[0][2], qint64(5));
        QCOMPARE(r.confusion[1][1], qint64(5));
        QCOMPARE(r.confusion[3][3], qint64(0));
    }
};

QTEST_APPLESS_MAIN(TestAgreement)
#include "tst_agreement.moc"
