#include "widgets/ovwaveformpyramid.h"

#include <QImage>
#include <QPainter>
#include <QRandomGenerator>
#include <QtTest>

#include <algorithm>
#include <vector>

class TestOVWaveformPyramid : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void extentMatchesBruteForce_data()
    {
        QTest::addColumn<qint64>("count");
        QTest::addColumn<int>("blockSize");
        QTest::addColumn<bool>("keep");

        // Lengths around powers of two and block edges: the last block and the last pair of every
        // level are the ones a segment walk gets wrong.
        for (const bool keep : { true, false }) {
            for (const int block : { 1, 3, 4, 32 }) {
                for (const qint64 count : { 1ll, 2ll, 31ll, 32ll, 33ll, 63ll, 64ll, 65ll, 257ll, 1000ll }) {
                    QTest::addRow("%lld samples, blocks of %d, %s", count, block, keep ? "samples kept" : "levels only")
                        << count << block << keep;
                }
            }
        }
    }

    void extentMatchesBruteForce()
    {
        QFETCH(qint64, count);
        QFETCH(int, blockSize);
        QFETCH(bool, keep);
        QRandomGenerator rng(quint32(count * 131 + blockSize * 7 + keep));
        std::vector<qint16> data(static_cast<size_t>(count));
        for (qint16 &v : data)
            v = qint16(rng.bounded(-32768, 32768));
        const OVWaveformPyramid pyramid(data.data(), count, 22050, blockSize, keep);

        const auto check = [&](qint64 from, qint64 to) {
            // Without the samples a stretch counts the blocks it touches in full.
            qint64 lo = std::max<qint64>(from, 0);
            qint64 hi = std::min(to, count);
            const bool any = lo < hi;
            if (!keep) {
                lo = lo / blockSize * blockSize;
                hi = std::min(count, (hi + blockSize - 1) / blockSize * blockSize);
            }
            OVWaveformPyramid::Extent e;
            const bool got = pyramid.extent(from, to, &e);
            QCOMPARE(got, any);
            if (!any)
                return;
            const auto [mn, mx] = std::minmax_element(data.begin() + lo, data.begin() + hi);
            QCOMPARE(e.low, *mn);
            QCOMPARE(e.high, *mx);
        };
        if (count <= 257) {
            for (qint64 from = -2; from <= count + 1; ++from) {
                for (qint64 to = from; to <= count + 2; ++to) {
                    check(from, to);
                    if (QTest::currentTestFailed())
                        qFatal("extent(%lld, %lld) is wrong", from, to);
                }
            }
        } else {
            for (int i = 0; i < 20000; ++i) {
                const qint64 a = rng.bounded(count + 3) - 1;
                const qint64 b = rng.bounded(count + 3) - 1;
                check(std::min(a, b), std::max(a, b) + 1);
                if (QTest::currentTestFailed())
                    return;
            }
        }
    }

    void paintPlacesSound_data()
    {
        QTest::addColumn<double>("timeAtLeft");
        QTest::addColumn<double>("pps");
        QTest::addRow("whole track") << 0.0 << 10.0;
        QTest::addRow("scrolled") << 2.5 << 40.0;
        QTest::addRow("before the track's start") << -1.25 << 60.0;
        QTest::addRow("zoomed past the samples") << 4.99 << 22050.0 * 3;
    }

    void paintPlacesSound()
    {
        QFETCH(double, timeAtLeft);
        QFETCH(double, pps);
        // Ten seconds of silence with one loud click at 5.0 s.
        const int rate = 1000;
        std::vector<qint16> data(size_t(10 * rate), 0);
        data[size_t(5 * rate)] = 30000;
        const OVWaveformPyramid pyramid(data.data(), qint64(data.size()), rate, 4, true);

        QImage image(200, 50, QImage::Format_RGB32);
        image.fill(Qt::white);
        {
            QPainter p(&image);
            pyramid.paint(p, image.rect(), timeAtLeft, pps, Qt::black);
        }
        // Each column spans [t, t + 1/pps): the click shows in the column that holds 5.0 s.
        const int expected = int(std::floor((5.0 - timeAtLeft) * pps));
        const int top = 5; // a loud sample reaches well above the middle
        int hit = -1;
        for (int x = 0; x < image.width(); ++x) {
            if (qGray(image.pixel(x, top)) < 128) {
                QVERIFY2(hit < 0 || x <= hit + 1, qPrintable(QStringLiteral("sound at x %1 and %2").arg(hit).arg(x)));
                if (hit < 0)
                    hit = x;
            }
        }
        if (expected < 0 || expected >= image.width()) {
            QCOMPARE(hit, -1);
            return;
        }
        QVERIFY2(std::abs(hit - expected) <= 1, qPrintable(QStringLiteral("click drawn at x %1, not %2").arg(hit).arg(expected)));
        // Nothing is drawn left of the track's start.
        if (timeAtLeft < 0) {
            const int start = int(std::floor(-timeAtLeft * pps));
            for (int x = 0; x < start - 1; ++x)
                QCOMPARE(qGray(image.pixel(x, 25)), 255);
        }
    }
};

QTEST_MAIN(TestOVWaveformPyramid)
#include "tst_ovwaveformpyramid.moc"
