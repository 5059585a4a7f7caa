#include "media/ovtimestretch.h"

#include <QTest>

using Samples = std::vector<qint16>;

class TestOVTimeStretch : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void stretch_data()
    {
        QTest::addColumn<double>("factor");
        QTest::addColumn<Samples>("input");    // interleaved stereo
        QTest::addColumn<Samples>("expected");

        // Left counts up, right counts down, so a channel mix-up shows.
        const Samples in4 = {1, -1, 2, -2, 3, -3, 4, -4};
        QTest::newRow("1.0 copies") << 1.0 << in4 << in4;
        // Twice as long: each sample lands on an even place, the gap repeats it, the tail takes
        // the last one.
        QTest::newRow("2.0 repeats")
            << 2.0 << in4 << Samples{1, -1, 1, -1, 2, -2, 2, -2, 3, -3, 3, -3, 4, -4, 4, -4};
        // Half as long: two inputs share a place, the later one wins.
        const Samples in8 = {1, -1, 2, -2, 3, -3, 4, -4, 5, -5, 6, -6, 7, -7, 8, -8};
        QTest::newRow("0.5 drops") << 0.5 << in8 << Samples{2, -2, 4, -4, 6, -6, 8, -8};
        // 4 -> 6: places 0, 1, 3, 4; the gap at 2 repeats input 1, the tail at 5 takes input 3.
        QTest::newRow("1.5 gap and tail")
            << 1.5 << in4 << Samples{1, -1, 2, -2, 2, -2, 3, -3, 4, -4, 4, -4};
        // Odd length at 2.0: 3 -> 6, tail of two repeats the last sample.
        QTest::newRow("2.0 odd") << 2.0 << Samples{5, 6, 7, 8, 9, 10}
                                 << Samples{5, 6, 5, 6, 7, 8, 7, 8, 9, 10, 9, 10};
        // 3 -> 1 at 0.5 (trunc 1.5): every input lands on place 0, the last wins.
        QTest::newRow("0.5 odd") << 0.5 << Samples{5, 6, 7, 8, 9, 10} << Samples{9, 10};
        QTest::newRow("empty") << 2.0 << Samples{} << Samples{};
        QTest::newRow("no sane factor") << -1.0 << in4 << Samples{};
    }
    void stretch()
    {
        QFETCH(double, factor);
        QFETCH(Samples, input);
        QFETCH(Samples, expected);
        const int frames = int(input.size() / 2);
        QCOMPARE(OVTimeStretch::outputFrames(frames, factor), int(expected.size() / 2));
        const Samples out = OVTimeStretch::stretched(input.data(), frames, 2, factor);
        QCOMPARE(out, expected);
    }

    // Over a long buffer at every speed step the output is a monotone pick of the input: each
    // output sample is an input sample of the same channel, in order, none from the future.
    void longBufferKeepsOrder()
    {
        const int in = 4800;
        Samples input(in * 2);
        for (int i = 0; i < in; ++i) {
            input[i * 2] = qint16(i);
            input[i * 2 + 1] = qint16(-i);
        }
        for (double factor : {0.5, 1.0 / 1.1, 1.1, 1.9, 2.0}) {
            const Samples out = OVTimeStretch::stretched(input.data(), in, 2, factor);
            const int frames = int(out.size() / 2);
            int previous = 0;
            for (int j = 0; j < frames; ++j) {
                QCOMPARE(out[j * 2 + 1], qint16(-out[j * 2]));
                QVERIFY2(out[j * 2] >= previous, qPrintable(QString::number(factor)));
                // Never more than one sample ahead of where it belongs.
                QVERIFY(out[j * 2] <= qint64(j + 1) * in / frames + 1);
                previous = out[j * 2];
            }
            QCOMPARE(int(out[(frames - 1) * 2]), in - 1);
        }
    }
};

QTEST_GUILESS_MAIN(TestOVTimeStretch)
#include "tst_ovtimestretch.moc"
