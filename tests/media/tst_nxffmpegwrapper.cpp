#include "mediatesthelper.h"

#include "media/nxffmpegwrapper.h"

#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

namespace {

// The tool's error output as FFmpeg 5.1 writes it during a conversion (progress lines end in \r).
const QByteArray kCaptured = "ffmpeg version 5.1.9-0+deb12u1 Copyright (c) 2000-2026 the FFmpeg developers\n"
                             "Input #0, mov,mp4,m4a,3gp,3g2,mj2, from 'in.mp4':\n"
                             "  Duration: 00:01:02.50, start: 0.000000, bitrate: 219 kb/s\n"
                             "  Stream #0:0[0x1](und): Video: mpeg4 (Simple Profile), yuv420p, 320x240\n"
                             "Output #0, matroska, to 'out.mkv':\n"
                             "frame=  200 fps=0.0 q=2.0 size=     512kB time=00:00:08.00 bitrate= 524.3kbits/s "
                             "speed=15.9x    \r"
                             "frame=  500 fps=498 q=2.0 size=    1280kB time=00:00:20.00 bitrate= 524.3kbits/s "
                             "speed=19.9x    \r"
                             "frame= 1562 fps=505 q=2.0 Lsize=    4000kB time=00:01:02.48 bitrate= 524.4kbits/s "
                             "speed=20.2x    \n";

} // namespace

class TestNXFFmpegWrapper : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_dir.isValid());
    }

    void parseOutput_data()
    {
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<double>("total");
        QTest::addColumn<double>("done");
        QTest::addColumn<bool>("problematic");

        QTest::newRow("conversion") << kCaptured << 62.5 << 62.48 << false;
        QTest::newRow("hours") << QByteArray("  Duration: 01:30:00.25, start\nsize= 1kB time=00:45:00.10 bitrate=1\n")
                               << 5400.25 << 2700.1 << false;
        // Without hundredths the duration pattern does not match, so no total is known.
        QTest::newRow("duration without hundredths")
            << QByteArray("  Duration: 00:00:05, start: 0.0\nsize= 1kB time=00:00:01.00 bitrate=1\n") << -1.0 << 1.0
            << false;
        QTest::newRow("first duration wins")
            << QByteArray("  Duration: 00:00:10.00, start\n  Duration: 00:00:20.00, start\n") << 10.0 << -1.0 << false;
        QTest::newRow("time without bitrate is ignored")
            << QByteArray("  Duration: 00:00:10.00,\nsize= 1kB time=00:00:03.00 speed=1x\n") << 10.0 << -1.0 << false;
        QTest::newRow("alias handler")
            << QByteArray("  Duration: 00:00:10.00,\n    handler_name    : Apple Alias Data Handler\n") << 10.0 << -1.0
            << true;
        QTest::newRow("unfinished line waits") << QByteArray("  Duration: 00:00:10.00, start") << -1.0 << -1.0 << false;
        QTest::newRow("garbage") << QByteArray("\xff\xfe time=99:99:99.99 bit\r\n\0\0", 24) << -1.0 << 362439.99 << false;
    }

    void parseOutput()
    {
        QFETCH(QByteArray, text);
        QFETCH(double, total);
        QFETCH(double, done);
        QFETCH(bool, problematic);
        NXFFmpegWrapper::OutputState state;
        NXFFmpegWrapper::parseOutput(state, QString::fromLatin1(text));
        QCOMPARE(state.total, total);
        QCOMPARE(state.done, done);
        QCOMPARE(state.problematicFragment, problematic);
    }

    void parseSplitChunks()
    {
        // The pipe cuts the text anywhere; the result must not depend on where.
        const QString text = QString::fromLatin1(kCaptured);
        for (int cut = 1; cut < text.size(); cut += 7) {
            NXFFmpegWrapper::OutputState state;
            NXFFmpegWrapper::parseOutput(state, text.left(cut));
            QVERIFY(state.done <= 62.48);
            NXFFmpegWrapper::parseOutput(state, text.mid(cut));
            QCOMPARE(state.total, 62.5);
            QCOMPARE(state.done, 62.48);
        }
    }

    void fakeTool_data()
    {
        QTest::addColumn<QByteArray>("output");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<int>("expected");
        QTest::addColumn<bool>("expectProgress");
        QTest::addColumn<bool>("expectFragment");

        QTest::newRow("success") << kCaptured << 0 << 0 << true << false;
        QTest::newRow("tool failure") << QByteArray("in.mp4: Invalid data found when processing input\n") << 1 << 2
                                      << false << false;
        QTest::newRow("locked output") << QByteArray("  Duration: 00:00:10.00,\nout.mp4: Permission denied\n") << 1 << 3
                                       << false << false;
        QTest::newRow("alias handler") << QByteArray("  Duration: 00:00:10.00,\n  Apple Alias Data Handler\n") << 1 << 2
                                       << false << true;
    }

    void fakeTool()
    {
        QFETCH(QByteArray, output);
        QFETCH(int, exitCode);
        QFETCH(int, expected);
        QFETCH(bool, expectProgress);
        QFETCH(bool, expectFragment);

        const QString tool = writeFakeTool(QString::fromLatin1(QTest::currentDataTag()).replace(' ', '_'), output, exitCode);
        QVERIFY(!tool.isEmpty());
        NXFFmpegWrapper wrapper;
        wrapper.setToolPath(tool);
        QSignalSpy finished(&wrapper, &NXFFmpegWrapper::finished);
        QSignalSpy progress(&wrapper, &NXFFmpegWrapper::progress);
        QSignalSpy fragment(&wrapper, &NXFFmpegWrapper::problematicFragmentDetected);
        QVERIFY(wrapper.start({ "-i", "in.mp4", "out.mkv" }));
        QVERIFY(finished.wait(20000));
        QCOMPARE(finished.count(), 1);
        QCOMPARE(int(finished.at(0).at(0).value<NXFFmpegWrapper::ErrorCode>()), expected);
        QCOMPARE(int(wrapper.lastError()), expected);
        QCOMPARE(progress.isEmpty(), !expectProgress);
        if (expectProgress) {
            const double last = progress.last().at(0).toDouble();
            QVERIFY(qAbs(last - 62.48 / 62.5) < 1e-9);
            for (const QList<QVariant> &p : progress)
                QVERIFY(p.at(0).toDouble() > 0 && p.at(0).toDouble() <= 1.0);
        }
        QCOMPARE(fragment.count(), expectFragment ? 1 : 0);
        if (expectFragment)
            QCOMPARE(fragment.at(0).at(0).toString(), QStringLiteral("Apple Alias Data Handler"));
    }

    void missingTool()
    {
        NXFFmpegWrapper wrapper;
        wrapper.setToolPath(m_dir.filePath("no-such-ffmpeg"));
        QSignalSpy finished(&wrapper, &NXFFmpegWrapper::finished);
        QVERIFY(!wrapper.start({ "-version" }));
        QCOMPARE(finished.count(), 1);
        QCOMPARE(finished.at(0).at(0).value<NXFFmpegWrapper::ErrorCode>(), NXFFmpegWrapper::BinaryMissing);
        QVERIFY(!NXFFmpegWrapper::checkTool(m_dir.filePath("no-such-ffmpeg")));

        // A file that is there but cannot be run is missing too.
        const QString notExecutable = writeFakeTool("not-executable", "", 0);
        QVERIFY(QFile::setPermissions(notExecutable, QFile::ReadOwner | QFile::WriteOwner));
        NXFFmpegWrapper second;
        second.setToolPath(notExecutable);
        QSignalSpy finished2(&second, &NXFFmpegWrapper::finished);
        second.start({ "-version" });
        QTRY_COMPARE_WITH_TIMEOUT(finished2.count(), 1, 10000);
        QCOMPARE(finished2.at(0).at(0).value<NXFFmpegWrapper::ErrorCode>(), NXFFmpegWrapper::BinaryMissing);
    }

    void stopByUser()
    {
        const QString tool = writeFakeTool("slow", "  Duration: 00:00:10.00, start\n", 0, 30);
        NXFFmpegWrapper wrapper;
        wrapper.setToolPath(tool);
        QSignalSpy finished(&wrapper, &NXFFmpegWrapper::finished);
        QVERIFY(wrapper.start({}));
        QTRY_VERIFY_WITH_TIMEOUT(wrapper.output().contains("Duration"), 10000);
        wrapper.stop();
        QVERIFY(finished.wait(10000));
        QCOMPARE(finished.count(), 1);
        QCOMPARE(finished.at(0).at(0).value<NXFFmpegWrapper::ErrorCode>(), NXFFmpegWrapper::StoppedByUser);
    }

    void realConversion()
    {
        if (!MediaTest::haveFfmpeg())
            QSKIP("the ffmpeg tool is not installed");
        const QString tool = NXFFmpegWrapper::defaultToolPath();
        QVERIFY(!tool.isEmpty());
        QVERIFY(NXFFmpegWrapper::checkTool(tool));
        const QString input = MediaTest::generate(m_dir.path(), "in.mkv",
                                                  { "-f", "lavfi", "-i", "sine=duration=3", "-c:a", "flac" });
        QVERIFY(!input.isEmpty());
        NXFFmpegWrapper wrapper;
        QSignalSpy finished(&wrapper, &NXFFmpegWrapper::finished);
        QSignalSpy progress(&wrapper, &NXFFmpegWrapper::progress);
        QVERIFY(wrapper.start({ "-y", "-i", input, "-ac", "1", "-ar", "22050", m_dir.filePath("out.wav") }));
        QVERIFY(finished.wait(60000));
        QCOMPARE(finished.at(0).at(0).value<NXFFmpegWrapper::ErrorCode>(), NXFFmpegWrapper::NoError);
        QVERIFY(!progress.isEmpty());
        QVERIFY(progress.last().at(0).toDouble() > 0.9);
        QVERIFY(QFile::exists(m_dir.filePath("out.wav")));
    }

private:
    QString writeFakeTool(const QString &name, const QByteArray &stderrText, int exitCode, int sleepSeconds = 0)
    {
        const QString textPath = m_dir.filePath(name + ".txt");
        QFile text(textPath);
        if (!text.open(QIODevice::WriteOnly))
            return QString();
        text.write(stderrText);
        text.close();
        const QString path = m_dir.filePath(name);
        QFile script(path);
        if (!script.open(QIODevice::WriteOnly))
            return QString();
        QByteArray body = "#!/bin/sh\ncat '" + QFile::encodeName(textPath) + "' >&2\n";
        if (sleepSeconds > 0)
            body += "exec sleep " + QByteArray::number(sleepSeconds) + "\n";
        body += "exit " + QByteArray::number(exitCode) + "\n";
        script.write(body);
        script.close();
        script.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        return path;
    }

    QTemporaryDir m_dir;
};

QTEST_GUILESS_MAIN(TestNXFFmpegWrapper)
#include "tst_nxffmpegwrapper.moc"
