#include "synctesthelper.h"

#include "sync/ovmanualsamplesloader.h"
#include "sync/ovsamples.h"
#include "sync/ovwaveformsloader.h"
#include "widgets/ovwaveformpyramid.h"

#include <QApplication>
#include <QDir>
#include <QFile>
#include <QMessageBox>
#include <QProgressBar>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTimer>
#include <QtTest>

// Bringing recordings' sound into memory through the tool: the loader dialog for a sync and the
// loader of the timeline's waveforms. Both must end with their temporary files gone, whatever
// way they end.
class TestOVManualSamplesLoader : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void loaderDialog_data();
    void loaderDialog();
    void waveformsLoader_data();
    void waveformsLoader();

private:
    QString media(const QString &kind);
    QStringList leftovers() const;

    QTemporaryDir m_dir;
    QTemporaryDir m_tmp; // the temporary folder of the code under test
};

void TestOVManualSamplesLoader::initTestCase()
{
    QVERIFY(m_dir.isValid() && m_tmp.isValid());
    qputenv("TMPDIR", QFile::encodeName(m_tmp.path()));
    if (!SyncTest::haveTools())
        QSKIP("ffmpeg is needed");
}

QStringList TestOVManualSamplesLoader::leftovers() const
{
    return QDir(m_tmp.path()).entryList({ QStringLiteral("kavot-sync-*") }, QDir::Files);
}

// Test recordings, made once: "silent video" (4 s, no audio stream), "tone" (2 s WAV), "two
// streams" (3 s: stream 0 silence, stream 1 a loud tone), "late stream" (3 s of video, its tone
// from 1.5 s to the end), "text" (not a recording).
QString TestOVManualSamplesLoader::media(const QString &kind)
{
    const QString path = m_dir.filePath(QString(kind).replace(QLatin1Char(' '), QLatin1Char('-'))
                                        + (kind == QLatin1String("tone") ? QStringLiteral(".wav") : QStringLiteral(".mkv")));
    if (QFile::exists(path))
        return path;
    const QString lavfi = QStringLiteral("lavfi");
    bool ok = true;
    if (kind == QLatin1String("silent video")) {
        ok = SyncTest::ffmpeg({ "-f", lavfi, "-i", "testsrc=size=64x48:rate=10:d=4", "-c:v", "mpeg4", path });
    } else if (kind == QLatin1String("tone")) {
        ok = SyncTest::ffmpeg({ "-f", lavfi, "-i", "sine=f=300:r=44100:d=2", path });
    } else if (kind == QLatin1String("two streams")) {
        ok = SyncTest::ffmpeg({ "-f", lavfi, "-i", "anullsrc=r=44100:cl=stereo:d=3", "-f", lavfi, "-i",
                                "sine=f=440:r=48000:d=3", "-map", "0", "-map", "1", "-c:a", "pcm_s16le", path });
    } else if (kind == QLatin1String("late stream")) {
        ok = SyncTest::ffmpeg({ "-f", lavfi, "-i", "testsrc=size=64x48:rate=10:d=3", "-itsoffset", "1.5", "-f", lavfi,
                                "-i", "sine=f=440:r=48000:d=1.5", "-map", "0", "-map", "1", "-c:v", "mpeg4", "-c:a",
                                "pcm_s16le", path });
    } else {
        QFile f(path);
        ok = f.open(QIODevice::WriteOnly) && f.write("this is text, not a recording") > 0;
    }
    return ok ? path : QString();
}

void TestOVManualSamplesLoader::loaderDialog_data()
{
    QTest::addColumn<QString>("primary");
    QTest::addColumn<bool>("slowTool"); // a tool that writes its output file and never ends
    QTest::addColumn<int>("expectedResult");
    QTest::addColumn<qint64>("expectedSamples");
    QTest::addColumn<QString>("expectedMessage"); // the message box's text, empty: none shown

    QTest::newRow("video without sound gives a silent track of its length")
        << "silent video" << false << int(QDialog::Accepted) << 4ll * 22050 << QString();
    QTest::newRow("a file that is not a recording is named in the message")
        << "text" << false << int(QDialog::Rejected) << -1ll << "Failed to open file\n\t";
    QTest::newRow("cancel while the tool runs") << "tone" << true << int(QDialog::Rejected) << -1ll << QString();
}

void TestOVManualSamplesLoader::loaderDialog()
{
    QFETCH(QString, primary);
    QFETCH(bool, slowTool);
    QFETCH(int, expectedResult);
    QFETCH(qint64, expectedSamples);
    QFETCH(QString, expectedMessage);
    const QString primaryPath = media(primary);
    const QString secondaryPath = media(QStringLiteral("tone"));
    QVERIFY(!primaryPath.isEmpty() && !secondaryPath.isEmpty());

    OVSamples a, b;
    OVManualSamplesLoader dialog(primaryPath, -1, secondaryPath, -1, &a, &b);
    if (slowTool) {
        dialog.setToolPath(SyncTest::script(m_dir.path(), QStringLiteral("slow-ffmpeg"),
                                            "for out; do :; done\n: > \"$out\"\nexec sleep 60"));
    }
    QSignalSpy done(&dialog, &QDialog::finished);
    QString shownTitle, shownText;
    QTimer boxWatch;
    connect(&boxWatch, &QTimer::timeout, this, [&] {
        if (auto *box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget())) {
            shownTitle = box->windowTitle();
            shownText = box->text();
            box->accept();
        }
    });
    boxWatch.start(20);
    dialog.open();
    if (slowTool) {
        // Wait until the tool has made its file, then cancel as the user would.
        QTRY_VERIFY_WITH_TIMEOUT(!leftovers().isEmpty(), 10000);
        dialog.reject();
    }
    QVERIFY(done.wait(30000) || !done.isEmpty());
    QCOMPARE(dialog.result(), expectedResult);
    QVERIFY2(leftovers().isEmpty(), qPrintable(leftovers().join(QLatin1Char(' '))));
    if (expectedMessage.isEmpty()) {
        QVERIFY2(shownTitle.isEmpty(), qPrintable(shownText));
    } else {
        QCOMPARE(shownTitle, QStringLiteral("Failed to load samples"));
        QCOMPARE(shownText, expectedMessage + primaryPath);
    }
    if (expectedResult != QDialog::Accepted)
        return;
    QVERIFY(dialog.error().isOk());
    QVERIFY2(std::llabs(a.count - expectedSamples) < 22050 / 10, qPrintable(QString::number(a.count)));
    QVERIFY(std::all_of(a.data.begin(), a.data.end(), [](qint16 v) { return v == 0; }));
    QVERIFY(b.count > 0);
    for (const char *bar : { "pb_primary", "pb_secondary" }) {
        const auto *pb = dialog.findChild<QProgressBar *>(QLatin1String(bar));
        QVERIFY(pb);
        QCOMPARE(pb->value(), pb->maximum());
    }
}

void TestOVManualSamplesLoader::waveformsLoader_data()
{
    QTest::addColumn<QString>("recording");
    QTest::addColumn<bool>("slowTool");
    QTest::addColumn<QList<int>>("peaks"); // per stream: lowest peak expected (0: silence)
    QTest::addColumn<int>("errorCode");
    QTest::addColumn<double>("soundFrom"); // seconds after the recording's start

    QTest::newRow("every stream, in order") << "two streams" << false << QList<int> { 0, 3000 } << 0 << 0.0; // the tone is at 1/8 of full scale
    QTest::newRow("stream starting after its file") << "late stream" << false << QList<int> { 3000 } << 0 << 1.5;
    QTest::newRow("no audio stream") << "silent video" << false << QList<int> {} << 0 << 0.0;
    QTest::newRow("cancelled") << "two streams" << true << QList<int> {} << int(NXFFmpegWrapper::StoppedByUser) << 0.0;
    QTest::newRow("not a recording") << "text" << false << QList<int> {} << 1 << 0.0;
}

void TestOVManualSamplesLoader::waveformsLoader()
{
    QFETCH(QString, recording);
    QFETCH(bool, slowTool);
    QFETCH(QList<int>, peaks);
    QFETCH(int, errorCode);
    QFETCH(double, soundFrom);
    const QString path = media(recording);
    QVERIFY(!path.isEmpty());

    OVWaveformsLoader loader;
    if (slowTool) {
        loader.setToolPath(SyncTest::script(m_dir.path(), QStringLiteral("slow-ffmpeg"),
                                            "for out; do :; done\n: > \"$out\"\nexec sleep 60"));
    }
    QList<std::shared_ptr<const OVWaveformPyramid>> tracks;
    connect(&loader, &OVWaveformsLoader::trackLoaded, this,
            [&](int index, const QString &, std::shared_ptr<const OVWaveformPyramid> w) {
                QCOMPARE(index, int(tracks.size()));
                tracks.append(w);
            });
    QSignalSpy finished(&loader, &OVWaveformsLoader::finished);
    loader.start(path);
    if (slowTool) {
        QTRY_VERIFY_WITH_TIMEOUT(!leftovers().isEmpty(), 10000);
        loader.cancel();
    }
    QTRY_COMPARE_WITH_TIMEOUT(finished.size(), 1, 30000);
    QCOMPARE(finished.first().first().value<OV::Error>().code(), errorCode);
    QVERIFY2(leftovers().isEmpty(), qPrintable(leftovers().join(QLatin1Char(' '))));
    QCOMPARE(tracks.size(), peaks.size());
    for (int i = 0; i < tracks.size(); ++i) {
        QVERIFY(std::abs(tracks[i]->duration() - 3.0) < 0.1);
        OVWaveformPyramid::Extent e;
        QVERIFY(tracks[i]->extent(0, tracks[i]->count(), &e));
        if (peaks[i] == 0)
            QVERIFY2(e.high < 50 && e.low > -50, qPrintable(QString::number(e.high)));
        else
            QVERIFY2(e.high > peaks[i], qPrintable(QString::number(e.high)));
        if (soundFrom > 0.0) {
            // The strip is drawn from the recording's start: the sound must sit where it is heard.
            const qint64 onset = qint64(soundFrom * tracks[i]->sampleRate());
            const qint64 margin = tracks[i]->sampleRate() / 50;
            QVERIFY(tracks[i]->extent(0, onset - margin, &e));
            QVERIFY2(e.high < 50, qPrintable(QStringLiteral("sound %1 before its start").arg(e.high)));
            QVERIFY(tracks[i]->extent(onset + margin, onset + 10 * margin, &e));
            QVERIFY2(e.high > peaks[i], qPrintable(QStringLiteral("only %1 after its start").arg(e.high)));
        }
    }
}

QTEST_MAIN(TestOVManualSamplesLoader)
#include "tst_ovmanualsamplesloader.moc"
