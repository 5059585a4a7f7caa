#include "mediatesthelper.h"

#include "media/ovmediainfo.h"

#include <QJsonArray>
#include <QTemporaryDir>
#include <QtTest>

class TestOVMediaInfo : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        if (!MediaTest::haveFfmpeg())
            QSKIP("the ffmpeg tool is needed to make test media");
        QVERIFY(m_dir.isValid());
        const QString plain = MediaTest::generate(
            m_dir.path(), "plain.mp4",
            { "-f", "lavfi", "-i", "testsrc=size=352x288:rate=25:duration=3", "-f", "lavfi", "-i",
              "sine=frequency=440:duration=2:sample_rate=48000", "-c:v", "mpeg4", "-aspect", "16:9", "-c:a", "aac",
              "-ac", "2" });
        QVERIFY(!plain.isEmpty());
        QVERIFY(!MediaTest::generate(m_dir.path(), "rotated.mp4",
                                     { "-i", plain, "-c", "copy", "-metadata:s:v:0", "rotate=90" })
                     .isEmpty());
    }

    void probe()
    {
        OVMediaInfo info;
        QVERIFY(OVMediaInfo::probe(m_dir.filePath("rotated.mp4"), &info).isOk());
        QVERIFY(qAbs(info.duration - 3.0) < 0.1);
        QCOMPARE(info.streams.size(), 2);

        const OVMediaInfo::Stream &v = info.streams.at(0);
        QCOMPARE(v.index, 0);
        QCOMPARE(v.type, QStringLiteral("video"));
        QCOMPARE(v.codec, QStringLiteral("mpeg4"));
        QCOMPARE(v.width, 352);
        QCOMPARE(v.height, 288);
        QCOMPARE(v.displayAspectRatio, QStringLiteral("16:9"));
        QCOMPARE(v.sampleAspectRatio, QStringLiteral("16:11"));
        QCOMPARE(v.rotation, 90);
        QVERIFY(qAbs(v.duration - 3.0) < 0.05);

        const OVMediaInfo::Stream &a = info.streams.at(1);
        QCOMPARE(a.type, QStringLiteral("audio"));
        QCOMPARE(a.codec, QStringLiteral("aac"));
        QCOMPARE(a.channelLayout, QStringLiteral("stereo"));
        QCOMPARE(a.channels, 2);
        QCOMPARE(a.sampleRate, 48000);
        QVERIFY(qAbs(a.duration - 2.0) < 0.1);

        QVERIFY(qAbs(OVMediaInfo::probeDuration(m_dir.filePath("plain.mp4")) - 3.0) < 0.1);
    }

    // A program stream starts about half a second into its clock; what it reports of its length
    // counts from there, so no position can lie past the end.
    void lateStart()
    {
        const QString path = MediaTest::generate(
            m_dir.path(), "late.mpg",
            { "-f", "lavfi", "-i", "testsrc=size=320x240:rate=25:duration=3", "-f", "lavfi", "-i",
              "sine=duration=3", "-c:v", "mpeg2video", "-c:a", "mp2", "-f", "vob" });
        QVERIFY(!path.isEmpty());
        OVMediaInfo info;
        QVERIFY(OVMediaInfo::probe(path, &info).isOk());
        QVERIFY2(info.startTime > 0.4 && info.startTime < 0.7, qPrintable(QString::number(info.startTime)));
        QVERIFY2(qAbs(info.duration - 3.0) < 0.1, qPrintable(QString::number(info.duration)));
        for (const OVMediaInfo::Stream &s : std::as_const(info.streams))
            QVERIFY(s.duration <= info.duration + 1e-6);
        QVERIFY(qAbs(OVMediaInfo::probeDuration(path) - info.duration) < 1e-6);
        QJsonObject json;
        QVERIFY(OVMediaInfo::probeJson(path, &json).isOk());
        QCOMPARE(json.value("startTime").toDouble(), info.startTime);
    }

    void probeFailures_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QByteArray>("content");
        QTest::newRow("missing") << "missing.mp4" << QByteArray();
        QTest::newRow("text") << "text.mp4" << QByteArray("just some words, not a film\n").repeated(50);
    }

    void probeFailures()
    {
        QFETCH(QString, name);
        QFETCH(QByteArray, content);
        const QString path = m_dir.filePath(name);
        if (!content.isNull())
            QVERIFY(MediaTest::writeFile(path, content));
        OVMediaInfo info;
        const OV::Error error = OVMediaInfo::probe(path, &info);
        QVERIFY(error.code() != 0);
        QVERIFY(info.streams.isEmpty());
        QJsonObject json;
        QCOMPARE(OVMediaInfo::probeJson(path, &json), error);
        QVERIFY(json.isEmpty());
        QVERIFY(OVMediaInfo::probeDuration(path) < 0);
    }

private:
    QTemporaryDir m_dir;
};

QTEST_GUILESS_MAIN(TestOVMediaInfo)
#include "tst_ovmediainfo.moc"
