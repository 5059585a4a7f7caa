#include "synctesthelper.h"

#include "sync/ovsync.h"

#include <QTemporaryDir>
#include <QtTest>

#include <cmath>

using namespace OVSync;

class TestOVSync : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void parameters_data();
    void parameters();
    void bestOffsetChoice_data();
    void bestOffsetChoice();
    void clusterAndRepetition();
    void envelopeOfRange();
    void silenceGivesNoPoints();
    void generatedPairs_data();
    void generatedPairs();

private:
    QTemporaryDir m_dir;
    QString m_scene;
    QString m_otherScene;
};

void TestOVSync::initTestCase()
{
    if (!SyncTest::haveTools())
        QSKIP("ffmpeg and espeak-ng are needed to make the recordings");
    QVERIFY(m_dir.isValid());
    m_scene = SyncTest::makeScene(m_dir.path(), QStringLiteral("scene.wav"), 0, 48.0);
    m_otherScene = SyncTest::makeScene(m_dir.path(), QStringLiteral("other.wav"), 1, 48.0);
    QVERIFY(!m_scene.isEmpty() && !m_otherScene.isEmpty());
}

void TestOVSync::parameters_data()
{
    QTest::addColumn<double>("seconds");
    QTest::addColumn<int>("span");
    QTest::addColumn<int>("length");
    QTest::addColumn<int>("maxShift");
    QTest::newRow("5 minutes") << 300.0 << 30 << 10 << 75;
    QTest::newRow("4 hours, capped") << 14400.0 << 180 << 60 << 600;
    QTest::newRow("truncated, not rounded") << 59.9 << 5 << 1 << 14;
}

void TestOVSync::parameters()
{
    QFETCH(double, seconds);
    QFETCH(int, span);
    QFETCH(int, length);
    QFETCH(int, maxShift);
    const Parameters p = Parameters::forDuration(seconds);
    QCOMPARE(p.span, span);
    QCOMPARE(p.length, length);
    QCOMPARE(p.maxShift, maxShift);
}

void TestOVSync::bestOffsetChoice_data()
{
    QTest::addColumn<QList<int>>("pattern"); // the pattern of `a` is found where b repeats it
    QTest::addColumn<qint64>("from");
    QTest::addColumn<qint64>("to");
    QTest::addColumn<bool>("found");
    QTest::addColumn<qint64>("expected");
    // b holds the pattern at 100 and again at 300: the earlier of equal maxima wins.
    QTest::newRow("equal maxima keep the earliest") << QList<int> { 100, 300 } << qint64(0) << qint64(400) << true
                                                    << qint64(100);
    QTest::newRow("range starts after the first") << QList<int> { 100, 300 } << qint64(101) << qint64(400) << true
                                                  << qint64(300);
    QTest::newRow("no position inside the track") << QList<int> { 100 } << qint64(600) << qint64(900) << false
                                                  << qint64(-7);
    QTest::newRow("negative positions only") << QList<int> { 100 } << qint64(-500) << qint64(-1) << false
                                             << qint64(-7);
}

void TestOVSync::bestOffsetChoice()
{
    QFETCH(QList<int>, pattern);
    QFETCH(qint64, from);
    QFETCH(qint64, to);
    QFETCH(bool, found);
    QFETCH(qint64, expected);
    const qint64 n = 64;
    OVSamples a, b;
    a.resize(n);
    a.sampleRate = b.sampleRate = 22050;
    for (qint64 i = 0; i < n; ++i)
        a.data[size_t(i)] = qint16(((i * 7919) % 2000) - 1000);
    b.resize(600);
    for (int at : pattern)
        std::copy(a.data.begin(), a.data.end(), b.data.begin() + at);
    qint64 result = -7;
    double coefficient = -5.0;
    QCOMPARE(bestOffset(a, b, 0, n, from, to, result, coefficient), found);
    QCOMPARE(result, expected);
    if (found)
        QVERIFY(coefficient > 0.99);
    else
        QCOMPARE(coefficient, -5.0);
}

void TestOVSync::clusterAndRepetition()
{
    // Offsets 1000, 90000 and 1010 samples, then copies of the last point: the stray point is
    // dropped, the agreeing ones stay as they are.
    const int rate = 22050;
    QList<SyncInfo> points;
    for (double offset : { 1000.0, 90000.0, 1010.0 }) {
        SyncInfo p;
        p.coefficient = 0.5;
        p.primaryPos = 200000.0 * (points.size() + 1);
        p.secondaryPos = p.primaryPos - offset;
        points.append(p);
    }
    repeatLastPoint(points, 1000000);
    QCOMPARE(points.size(), 4); // one copy at 800000; the next would fall on the end
    QCOMPARE(points.last().offset(), 1010.0);
    keepBestCluster(points, rate);
    QCOMPARE(points.size(), 3);
    for (const SyncInfo &p : points)
        QVERIFY2(p.offset() == 1000.0 || p.offset() == 1010.0, qPrintable(QString::number(p.offset())));

    // A spacing of zero or less repeats nothing instead of looping for ever.
    for (double second : { 600000.0, 500000.0 }) {
        QList<SyncInfo> same { points.first(), points.first() };
        same[1].primaryPos = second;
        same[0].primaryPos = 600000.0;
        repeatLastPoint(same, 1000000);
        QCOMPARE(same.size(), 2);
    }
}

void TestOVSync::envelopeOfRange()
{
    // A burst of 1000 samples at +-1000 in silence: the envelope is centred on the burst, and a
    // range that starts inside it does not subtract samples it never added.
    OVSamples track;
    track.sampleRate = 22050;
    track.resize(20000);
    for (int i = 10000; i < 11000; ++i)
        track.data[size_t(i)] = qint16(i % 2 ? 1000 : -1000);
    for (qint64 begin : { qint64(-1), qint64(10300) }) {
        OVSamples env;
        QVERIFY(smoothEnvelope(track, 128, env, begin, -1));
        const qint64 base = std::max<qint64>(begin, 0);
        QCOMPARE(env.count, 20000 - base);
        QCOMPARE(env.sampleRate, 22050);
        QCOMPARE(env.data[size_t(10800 - base)], qint16(1000));
        QCOMPARE(env.data[size_t(11000 + 64 + 2 - base)], qint16(0));
        QVERIFY(*std::min_element(env.data.begin(), env.data.end()) >= 0);
    }
    OVSamples env;
    QVERIFY(!smoothEnvelope(track, 128, env, 300, 200));
    QVERIFY(!smoothEnvelope(track, 128, env, -5, 200));
}

void TestOVSync::silenceGivesNoPoints()
{
    OVSamples a, b;
    a.sampleRate = b.sampleRate = 22050;
    a.resize(22050 * 60);
    b.resize(22050 * 30);
    const Result r = autoSync(a, b);
    QVERIFY(r.points.isEmpty());
    QCOMPARE(r.fit.points, 0);
}

void TestOVSync::generatedPairs_data()
{
    const qint64 s = SyncTest::Rate;
    QTest::addColumn<qint64>("primaryFrom");
    QTest::addColumn<qint64>("primaryTo");
    QTest::addColumn<qint64>("secondaryFrom");
    QTest::addColumn<qint64>("secondaryTo");
    QTest::addColumn<QString>("filters");
    QTest::addColumn<double>("noise");
    QTest::addColumn<double>("drift"); // scene seconds per secondary second, less one
    QTest::addColumn<bool>("unrelated");
    QTest::addColumn<int>("minimumPoints");

    QTest::newRow("shifted") << 0ll << 40 * s << 159863ll << 37 * s << QString() << 0.0 << 0.0 << false << 3;
    QTest::newRow("band-limited, reverberant, noisy, resampled")
        << 0ll << 40 * s << 5 * s + 17 << 35 * s
        << QStringLiteral("highpass=f=300,lowpass=f=3400,aecho=0.8:0.7:40|70:0.4|0.25,aresample=48000") << 0.06
        << 0.0 << false << 3;
    QTest::newRow("drifting clock") << 0ll << 40 * s << 3 * s << 38 * s << QStringLiteral("asetrate=22061") << 0.02
                                    << 11.0 / 22050.0 << false << 3;
    QTest::newRow("secondary starts before the primary")
        << 10 * s << 48 * s << 2 * s + 333 << 30 * s << QString() << 0.02 << 0.0 << false << 2;
    QTest::newRow("short secondary inside a long primary")
        << 0ll << 48 * s << 20 * s + 1234 << 30 * s << QString() << 0.02 << 0.0 << false << 1;
    QTest::newRow("inverted") << 0ll << 40 * s << 6 * s << 36 * s << QStringLiteral("aeval=-val(0)") << 0.02 << 0.0
                              << false << 3;
    QTest::newRow("shares no sound") << 0ll << 40 * s << 5 * s << 35 * s << QString() << 0.02 << 0.0 << true << 0;
}

void TestOVSync::generatedPairs()
{
    QFETCH(qint64, primaryFrom);
    QFETCH(qint64, primaryTo);
    QFETCH(qint64, secondaryFrom);
    QFETCH(qint64, secondaryTo);
    QFETCH(QString, filters);
    QFETCH(double, noise);
    QFETCH(double, drift);
    QFETCH(bool, unrelated);
    QFETCH(int, minimumPoints);

    const QString tag = QString::fromLatin1(QTest::currentDataTag()).replace(QLatin1Char(' '), QLatin1Char('_'));
    const QString primaryPath = SyncTest::derive(m_scene, m_dir.path(), tag + QStringLiteral("_p.wav"), primaryFrom,
                                                 primaryTo);
    const QString secondaryPath = SyncTest::derive(unrelated ? m_otherScene : m_scene, m_dir.path(),
                                                   tag + QStringLiteral("_s.wav"), secondaryFrom, secondaryTo,
                                                   filters, noise);
    QVERIFY(!primaryPath.isEmpty() && !secondaryPath.isEmpty());
    OVSamples primary, secondary;
    QVERIFY(loadWavSamples(primaryPath, primary));
    QVERIFY(loadWavSamples(secondaryPath, secondary));

    const std::atomic<bool> canceled { true };
    const Result stopped = autoSync(primary, secondary, nullptr, &canceled);
    QVERIFY(stopped.canceled && stopped.points.isEmpty());

    const Result result = autoSync(primary, secondary);
    if (unrelated) {
        QVERIFY2(result.points.isEmpty(), qPrintable(QStringLiteral("%1 points").arg(result.points.size())));
        return;
    }
    QVERIFY2(result.points.size() >= minimumPoints, qPrintable(QStringLiteral("%1 points").arg(result.points.size())));
    // The scene second at secondary time t is secondaryFrom + t * (1 + drift).
    const double rate = SyncTest::Rate;
    auto truePrimary = [&](double secondarySeconds) {
        return (secondaryFrom - primaryFrom) / rate + secondarySeconds * (1.0 + drift);
    };
    double worst = 0.0;
    for (const SyncInfo &p : result.points) {
        const double error = std::fabs(p.primaryPos / rate - truePrimary(p.secondaryPos / rate));
        worst = std::max(worst, error);
        QVERIFY2(error < 0.001, qPrintable(QStringLiteral("point at %1 s is %2 ms off").arg(p.primaryPos / rate)
                                               .arg(error * 1000)));
        if (filters.isEmpty())
            QVERIFY(p.coefficient > 0);
        else if (filters.startsWith(QLatin1String("aeval=-")))
            QVERIFY(p.coefficient < 0);
    }
    QVERIFY2(std::fabs(result.fit.secondaryStart() - truePrimary(0)) < 0.001,
             qPrintable(QStringLiteral("start %1, truth %2").arg(result.fit.secondaryStart()).arg(truePrimary(0))));
    if (result.points.size() >= 3)
        QVERIFY2(std::fabs(result.fit.driftPpm() - (1.0 / (1.0 + drift) - 1.0) * 1e6) < 20.0,
                 qPrintable(QString::number(result.fit.driftPpm())));
    qInfo("%d points, worst %.3f ms, drift %.1f ppm", int(result.points.size()), worst * 1000,
          result.fit.driftPpm());
}

QTEST_GUILESS_MAIN(TestOVSync)
#include "tst_ovsync.moc"
