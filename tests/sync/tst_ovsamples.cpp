#include "synctesthelper.h"

#include "sync/ovsamples.h"
#include "sync/ovsamplesextractor.h"

#include <QDir>
#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

class TestOVSamples : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void wavReading_data();
    void wavReading();
    void writeWithoutInput();
    void listChunkPastTheEnd();
    void pairFailureNamesFile();
    void extractionLine();
    void extraction_data();
    void extraction();
    void cancelStopsTool();

private:
    QStringList leftovers() const;

    QTemporaryDir m_dir;
    QTemporaryDir m_tmp; // the temporary folder of the code under test
};

void TestOVSamples::initTestCase()
{
    QVERIFY(m_dir.isValid() && m_tmp.isValid());
    qputenv("TMPDIR", QFile::encodeName(m_tmp.path()));
}

QStringList TestOVSamples::leftovers() const
{
    return QDir(m_tmp.path()).entryList({ QStringLiteral("kavot-sync-*") }, QDir::Files);
}

void TestOVSamples::wavReading_data()
{
    QTest::addColumn<int>("channels");
    QTest::addColumn<qint64>("frames");
    QTest::addColumn<qint64>("limit");
    QTest::addColumn<qint64>("expected"); // -1: the read fails
    QTest::newRow("stereo keeps the left channel") << 2 << 100000ll << 0ll << 100000ll;
    QTest::newRow("limit past the end") << 1 << 5000ll << 50000ll << 5000ll;
    QTest::newRow("limit inside, stereo") << 2 << 70000ll << 33000ll << 33000ll;
    QTest::newRow("empty file") << 1 << 0ll << 0ll << -1ll;
}

void TestOVSamples::wavReading()
{
    QFETCH(int, channels);
    QFETCH(qint64, frames);
    QFETCH(qint64, limit);
    QFETCH(qint64, expected);
    std::vector<qint16> left(size_t(frames) + 1), right(size_t(frames) + 1);
    for (qint64 i = 0; i < frames; ++i) {
        left[size_t(i)] = qint16((i * 37) % 20000 - 10000);
        right[size_t(i)] = qint16(-(i % 1000));
    }
    const QString path = m_dir.filePath(QStringLiteral("read.wav"));
    // An empty file is written as a valid WAV without frames.
    QVERIFY(writeWavSamples(left.data(), channels == 2 ? right.data() : nullptr, frames, 8000, path));

    OVSamples samples;
    samples.resize(17); // what was there before must not survive
    const bool ok = loadWavSamples(path, samples, limit);
    QCOMPARE(ok, expected >= 0);
    QCOMPARE(samples.count, std::max<qint64>(expected, 0));
    QCOMPARE(qint64(samples.data.size()), samples.count);
    if (!ok)
        return;
    QCOMPARE(samples.channels, channels);
    QCOMPARE(samples.sampleRate, 8000);
    QVERIFY(std::equal(samples.data.begin(), samples.data.end(), left.begin()));
}

void TestOVSamples::writeWithoutInput()
{
    const QString path = m_dir.filePath(QStringLiteral("existing.wav"));
    const qint16 one[4] = { 1, 2, 3, 4 };
    QVERIFY(writeWavSamples(one, nullptr, 4, 22050, path));
    QVERIFY(!writeWavSamples(nullptr, nullptr, 4, 22050, path));
    QVERIFY(!QFile::exists(path));
    // Only the second input given: it is written as mono.
    QVERIFY(writeWavSamples(nullptr, one, 4, 22050, path));
    OVSamples back;
    QVERIFY(loadWavSamples(path, back));
    QCOMPARE(back.channels, 1);
    QCOMPARE(back.data, std::vector<qint16>(one, one + 4));
}

void TestOVSamples::listChunkPastTheEnd()
{
    // A LIST sub-chunk of an unknown kind whose size runs past the file: libsndfile's header reader
    // spins on it for good. Found by the fuzzer.
    QByteArray sub("XSFT\xf8\xff\xff\xffLavf59.27.100", 21);
    sub.append('\0');
    QByteArray body("WAVEfmt \x10\0\0\0\x01\0\x01\0\x40\x1f\0\0\x80\x3e\0\0\x02\0\x10\0", 28);
    body += QByteArray("LIST\x1a\0\0\0INFO", 12) + sub;
    body += QByteArray("data\x08\0\0\0\x01\0\x02\0\x03\0\x04\0", 16);
    QByteArray file("RIFF", 4);
    const quint32 size = quint32(body.size());
    for (int i = 0; i < 4; ++i)
        file.append(char((size >> (8 * i)) & 0xff));
    file += body;
    const QString path = m_dir.filePath(QStringLiteral("list-past-end.wav"));
    QFile out(path);
    QVERIFY(out.open(QIODevice::WriteOnly) && out.write(file) == file.size());
    out.close();
    OVSamples samples;
    QVERIFY(!loadWavSamples(path, samples));
    QCOMPARE(samples.count, 0);

    // The same file with the sub-chunk's size told right is read.
    file.replace(file.indexOf("XSFT") + 4, 4, QByteArray("\x0e\0\0\0", 4));
    QVERIFY(out.open(QIODevice::WriteOnly) && out.write(file) == file.size());
    out.close();
    QVERIFY(loadWavSamples(path, samples));
    QCOMPARE(samples.data, (std::vector<qint16>{ 1, 2, 3, 4 }));
}

void TestOVSamples::pairFailureNamesFile()
{
    const QString good = m_dir.filePath(QStringLiteral("good.wav"));
    const qint16 one[4] = { 1, 2, 3, 4 };
    QVERIFY(writeWavSamples(one, nullptr, 4, 22050, good));
    const QString missing = m_dir.filePath(QStringLiteral("missing.wav"));
    OVSamples a, b;
    const OV::Error error = loadTrackPair(good, &a, missing, &b);
    QVERIFY(!error.isOk());
    QCOMPARE(error.message(), QStringLiteral("Failed to load samples from file:\n  ") + missing);
    QCOMPARE(a.count, 4);
}

void TestOVSamples::extractionLine()
{
    const QStringList expected { QStringLiteral("-y"), QStringLiteral("-i"), QStringLiteral("/a dir/in.mp4"),
                                 QStringLiteral("-map"), QStringLiteral("0:a:2"), QStringLiteral("-vn"),
                                 QStringLiteral("-ac"), QStringLiteral("1"), QStringLiteral("-ar"),
                                 QStringLiteral("22050"), QStringLiteral("/t/o.wav") };
    QCOMPARE(OVSamplesExtractor::extractionArguments(QStringLiteral("/a dir/in.mp4"), 2, QStringLiteral("/t/o.wav")),
             expected);
    QStringList withoutMap = expected;
    withoutMap.remove(3, 2);
    QCOMPARE(OVSamplesExtractor::extractionArguments(QStringLiteral("/a dir/in.mp4"), -1, QStringLiteral("/t/o.wav")),
             withoutMap);
}

void TestOVSamples::extraction_data()
{
    QTest::addColumn<QStringList>("primaryArgs"); // ffmpeg arguments making the primary (an .mkv)
    QTest::addColumn<int>("primaryStream");
    QTest::addColumn<qint64>("expectedCount"); // -1: extraction fails
    QTest::addColumn<bool>("silent");
    QTest::addColumn<QString>("message"); // start of the error text

    const QString video = QStringLiteral("testsrc=size=64x48:rate=10:d=4");
    QTest::newRow("video without sound gives a silent track of its length")
        << QStringList { QStringLiteral("-f"), QStringLiteral("lavfi"), QStringLiteral("-i"), video,
                         QStringLiteral("-c:v"), QStringLiteral("mpeg4") }
        << -1 << 4ll * 22050 << true << QString();
    // Stream 0 is silence, stream 1 a tone: the index chooses the tone.
    const QStringList twoStreams { QStringLiteral("-f"), QStringLiteral("lavfi"), QStringLiteral("-i"),
                                   QStringLiteral("anullsrc=r=44100:cl=stereo:d=3"), QStringLiteral("-f"),
                                   QStringLiteral("lavfi"), QStringLiteral("-i"),
                                   QStringLiteral("sine=f=440:r=48000:d=3"), QStringLiteral("-map"),
                                   QStringLiteral("0"), QStringLiteral("-map"), QStringLiteral("1"),
                                   QStringLiteral("-c:a"), QStringLiteral("pcm_s16le") };
    QTest::newRow("second audio stream") << twoStreams << 1 << 3ll * 22050 << false << QString();
    QTest::newRow("stream that is not there") << twoStreams << 2 << -1ll << false
                                              << QStringLiteral("The file has no audio stream #2");
    QTest::newRow("not a media file") << QStringList() << -1 << -1ll << false << QStringLiteral("Failed to open file\n\t");
}

void TestOVSamples::extraction()
{
    QFETCH(QStringList, primaryArgs);
    QFETCH(int, primaryStream);
    QFETCH(qint64, expectedCount);
    QFETCH(bool, silent);
    QFETCH(QString, message);
    if (!SyncTest::haveTools())
        QSKIP("ffmpeg is needed");
    const QString primary = m_dir.filePath(QStringLiteral("primary.mkv"));
    QFile::remove(primary);
    if (primaryArgs.isEmpty()) {
        QFile f(primary);
        QVERIFY(f.open(QIODevice::WriteOnly));
        f.write("this is text, not a recording");
    } else {
        QVERIFY(SyncTest::ffmpeg(primaryArgs + QStringList { primary }));
    }
    const QString secondary = m_dir.filePath(QStringLiteral("secondary.wav"));
    QVERIFY(SyncTest::ffmpeg({ QStringLiteral("-f"), QStringLiteral("lavfi"), QStringLiteral("-i"),
                               QStringLiteral("sine=f=300:r=44100:d=2"), secondary }));

    OVSamples a, b;
    OVSamplesExtractor extractor;
    QSignalSpy tracks(&extractor, &OVSamplesExtractor::trackStarted);
    const OV::Error error = extractor.run(primary, primaryStream, secondary, -1, &a, &b);
    QVERIFY(leftovers().isEmpty());
    if (expectedCount < 0) {
        QVERIFY(!error.isOk());
        QVERIFY2(error.message().startsWith(message), qPrintable(error.message()));
        QVERIFY(error.message().contains(primary));
        return;
    }
    QVERIFY2(error.isOk(), qPrintable(error.message()));
    QCOMPARE(tracks.size(), 2);
    QCOMPARE(a.sampleRate, 22050);
    QVERIFY2(std::llabs(a.count - expectedCount) < 22050 / 10, qPrintable(QString::number(a.count)));
    const qint16 peak = *std::max_element(a.data.begin(), a.data.end());
    QCOMPARE(peak < 100, silent);
    QCOMPARE(b.sampleRate, 22050);
    QVERIFY(std::llabs(b.count - 2 * 22050) < 22050 / 10);
}

void TestOVSamples::cancelStopsTool()
{
    if (!SyncTest::haveTools())
        QSKIP("ffmpeg is needed");
    // A tool that never ends stands for a long transcoding.
    const QString tool = SyncTest::script(m_dir.path(), QStringLiteral("slow-ffmpeg"), "exec sleep 60");
    const QString media = m_dir.filePath(QStringLiteral("tone.wav"));
    QVERIFY(SyncTest::ffmpeg({ QStringLiteral("-f"), QStringLiteral("lavfi"), QStringLiteral("-i"),
                               QStringLiteral("sine=f=300:r=22050:d=1"), media }));

    OVSamples a, b;
    OVSamplesExtractor extractor;
    extractor.setToolPath(tool);
    QSignalSpy finished(&extractor, &OVSamplesExtractor::finished);
    QVERIFY(extractor.start(media, -1, media, -1, &a, &b));
    QTest::qWait(200);
    extractor.cancel();
    QVERIFY(finished.wait(5000));
    QCOMPARE(finished.first().first().value<OV::Error>().code(), int(NXFFmpegWrapper::StoppedByUser));
    QVERIFY(leftovers().isEmpty());
}

QTEST_GUILESS_MAIN(TestOVSamples)
#include "tst_ovsamples.moc"
