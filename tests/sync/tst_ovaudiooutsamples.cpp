#include "sync/ovaudiooutsamples.h"
#include "sync/ovsamples.h"

#include <QtTest>

#include <vector>

// What the fine-tune loop sends to the sound card: the two tracks at their own starts and
// gains, wrapped at the loop's end.
class TestOVAudioOutSamples : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void mix_data();
    void mix();
};

namespace {
OVSamples track(const std::vector<qint16> &values)
{
    OVSamples t;
    t.sampleRate = 22050;
    t.data = values;
    t.count = qint64(values.size());
    return t;
}
} // namespace

void TestOVAudioOutSamples::mix_data()
{
    QTest::addColumn<qint64>("firstStart");
    QTest::addColumn<double>("firstGain");
    QTest::addColumn<qint64>("secondStart");
    QTest::addColumn<double>("secondGain");
    QTest::addColumn<qint64>("loop");
    QTest::addColumn<qint64>("phase");
    QTest::addColumn<QList<int>>("expected"); // one value per frame (both channels carry it)
    QTest::addColumn<qint64>("phaseAfter");

    // first = 100, 200, ..., 800; second = 1, 2, ..., 8
    QTest::newRow("loop wraps to its start") << 2ll << 1.0 << 0ll << 0.0 << 3ll << 1ll
                                             << QList<int> { 400, 500, 300, 400, 500 } << 0ll;
    QTest::newRow("tracks summed at their own starts")
        << 0ll << 1.0 << 4ll << 1.0 << 4ll << 0ll << QList<int> { 105, 206, 307, 408 } << 0ll;
    QTest::newRow("outside a track is silence")
        << 6ll << 1.0 << -2ll << 10.0 << 4ll << 0ll << QList<int> { 700, 800, 10, 20 } << 0ll;
    QTest::newRow("gains, and a phase beyond the loop") << 0ll << 0.5 << 0ll << 0.0 << 2ll << 5ll
                                                        << QList<int> { 100, 50, 100 } << 0ll;
    QTest::newRow("loud sums clip") << 0ll << 200.0 << 0ll << 30000.0 << 2ll << 0ll
                                    << QList<int> { 32767, 32767 } << 0ll;
    QTest::newRow("and clip below at -32767") << 0ll << -400.0 << 0ll << 0.0 << 1ll << 0ll << QList<int> { -32767 }
                                              << 0ll;
}

void TestOVAudioOutSamples::mix()
{
    QFETCH(qint64, firstStart);
    QFETCH(double, firstGain);
    QFETCH(qint64, secondStart);
    QFETCH(double, secondGain);
    QFETCH(qint64, loop);
    QFETCH(qint64, phase);
    QFETCH(QList<int>, expected);
    QFETCH(qint64, phaseAfter);
    const OVSamples first = track({ 100, 200, 300, 400, 500, 600, 700, 800 });
    const OVSamples second = track({ 1, 2, 3, 4, 5, 6, 7, 8 });
    std::vector<qint16> out(expected.size() * 2, -1);
    const qint64 after = OVAudioOutSamples::mix(&first, firstStart, firstGain, &second, secondStart, secondGain, loop,
                                                phase, out.data(), qint64(expected.size()));
    QList<int> left, right;
    for (qsizetype i = 0; i < expected.size(); ++i) {
        left << out[size_t(2 * i)];
        right << out[size_t(2 * i + 1)];
    }
    QCOMPARE(left, expected);
    QCOMPARE(right, expected);
    QCOMPARE(after, phaseAfter);
}

QTEST_GUILESS_MAIN(TestOVAudioOutSamples)
#include "tst_ovaudiooutsamples.moc"
