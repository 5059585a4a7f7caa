#include "mediatesthelper.h"

#include "media/ovfilemediasource.h"
#include "media/ovmemorymediasource.h"

#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

#include <memory>

#include <sys/resource.h>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace {

// The process's highest resident size so far.
long peakKilobytes()
{
    rusage usage {};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

QByteArray readAll(const QString &path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

const QStringList kVideo2s { "-f", "lavfi", "-i", "testsrc=size=320x240:rate=25:duration=2" };

// A decoder reading a file; the source is declared first so it outlives the decoding thread.
struct FileRun
{
    explicit FileRun(const QString &path) : source(path) { decoder.setSource(&source); }
    OVFileMediaSource source;
    RecordingDecoder decoder;
};

} // namespace

class TestOVVideoDecoderBase : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        if (!MediaTest::haveFfmpeg())
            QSKIP("the ffmpeg tool is needed to make test media");
        QVERIFY(m_dir.isValid());
        const QString sine = "sine=frequency=440:duration=2";
        const std::pair<const char *, QStringList> media[] = {
            { "audio.m4a", { "-f", "lavfi", "-i", sine, "-c:a", "aac" } },
            { "video.mp4", kVideo2s + QStringList { "-c:v", "mpeg4", "-g", "25" } },
            { "three.mkv", kVideo2s + QStringList { "-f", "lavfi", "-i", sine, "-f", "lavfi", "-i",
                                                    "sine=frequency=880:duration=2:sample_rate=48000", "-f", "lavfi",
                                                    "-i", "sine=frequency=220:duration=2", "-map", "0", "-map", "1",
                                                    "-map", "2", "-map", "3", "-c:v", "mpeg4", "-c:a", "aac",
                                                    "-ac:a:1", "1" } },
            { "two.mkv", { "-f", "lavfi", "-i", "sine=frequency=440:duration=1", "-f", "lavfi", "-i",
                           "sine=frequency=880:duration=1", "-map", "0", "-map", "1", "-c:a", "flac" } },
            // Keyframes every second, so a seek to 2.5 s must start decoding at 2 s.
            { "av4s.mp4", { "-f", "lavfi", "-i", "testsrc=size=320x240:rate=25:duration=4", "-f", "lavfi", "-i",
                            "sine=frequency=440:duration=4", "-c:v", "mpeg4", "-g", "25", "-c:a", "aac", "-movflags",
                            "+faststart" } },
            { "bframes4s.mp4", { "-f", "lavfi", "-i", "testsrc=size=320x240:rate=25:duration=4", "-f", "lavfi", "-i",
                                 "sine=frequency=440:duration=4", "-c:v", "libx264", "-preset", "veryfast", "-bf", "3",
                                 "-g", "25", "-pix_fmt", "yuv420p", "-c:a", "aac" } },
            { "hd.mp4", { "-f", "lavfi", "-i", "testsrc=size=1920x1080:rate=5:duration=1", "-c:v", "mpeg4" } },
            // MPEG program streams begin about half a second into their clock.
            { "ps.mpg", kVideo2s + QStringList { "-f", "lavfi", "-i", sine, "-c:v", "mpeg2video", "-c:a", "mp2", "-f",
                                                 "vob" } },
            { "ps4s.mpg", { "-f", "lavfi", "-i", "testsrc=size=320x240:rate=25:duration=4", "-f", "lavfi", "-i",
                            "sine=frequency=440:duration=4", "-c:v", "mpeg1video", "-g", "25", "-c:a", "libmp3lame",
                            "-f", "mpeg" } },
            { "rotated.mp4", { "-i", file("video.mp4"), "-c", "copy", "-metadata:s:v:0", "rotate=90" } },
            { "va.mkv", kVideo2s + QStringList { "-f", "lavfi", "-i", "sine=duration=2", "-c:v", "mpeg4", "-c:a", "flac" } },
            // The noise filter garbles the audio packets only; their headers then fail to parse.
            { "damaged-audio.mkv", { "-i", file("va.mkv"), "-c", "copy", "-bsf:a", "noise=amount=2" } },
            { "sound.mka", { "-f", "lavfi", "-i", sine, "-c:a", "flac" } },
            { "damaged-sound.mka", { "-i", file("sound.mka"), "-c", "copy", "-bsf:a", "noise=amount=2" } },
            { "ac3.mkv", kVideo2s + QStringList { "-f", "lavfi", "-i", "sine=duration=2:sample_rate=48000", "-c:v",
                                                  "mpeg4", "-c:a", "ac3" } },
            { "one-bad-ac3.mkv", { "-i", file("ac3.mkv"), "-c", "copy", "-bsf:a", "noise=amount=eq(n\\,20)" } },
            { "vorbis.ogg", kVideo2s + QStringList { "-f", "lavfi", "-i", sine, "-c:v", "libtheora", "-c:a",
                                                     "libvorbis" } },
            { "bad-vorbis.ogg", { "-i", file("vorbis.ogg"), "-c", "copy", "-bsf:a",
                                  "noise=amount=between(n\\,3\\,6)" } },
        };
        for (const auto &[name, args] : media)
            QVERIFY2(!MediaTest::generate(m_dir.path(), name, args).isEmpty(), name);
    }

    void streams_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<bool>("inMemory");
        QTest::addColumn<int>("videoFrames");
        QTest::addColumn<int>("audioCount");
        QTest::addColumn<QList<int>>("sampleRates");

        QTest::newRow("audio only") << "audio.m4a" << false << 0 << 1 << QList<int> { 44100 };
        QTest::newRow("video only") << "video.mp4" << false << 50 << 0 << QList<int> {};
        QTest::newRow("three audio streams")
            << "three.mkv" << false << 50 << 3 << QList<int> { 44100, 48000, 44100 };
        QTest::newRow("from memory") << "three.mkv" << true << 50 << 3 << QList<int> { 44100, 48000, 44100 };
        QTest::newRow("mpeg-2 program stream") << "ps.mpg" << false << 50 << 1 << QList<int> { 44100 };
    }

    void streams()
    {
        QFETCH(QString, name);
        QFETCH(bool, inMemory);
        QFETCH(int, videoFrames);
        QFETCH(int, audioCount);
        QFETCH(QList<int>, sampleRates);

        std::unique_ptr<OVMediaSource> source;
        if (inMemory) {
            source = std::make_unique<OVMemoryMediaSource>(readAll(file(name)));
        } else {
            auto f = std::make_unique<OVFileMediaSource>(file(name));
            QVERIFY(f->open());
            source = std::move(f);
        }
        RecordingDecoder decoder;
        decoder.setSource(source.get());
        QSignalSpy init(&decoder, &OVVideoDecoderBase::initFinished);
        QSignalSpy started(&decoder, &OVVideoDecoderBase::videoStarted);
        QSignalSpy ended(&decoder, &OVVideoDecoderBase::videoFinished);
        QSignalSpy errors(&decoder, &OVVideoDecoderBase::errorRaised);
        QVERIFY(MediaTest::runToEnd(&decoder));

        QCOMPARE(init.count(), 1);
        QCOMPARE(init.at(0).at(0).toInt(), 0);
        QCOMPARE(started.count(), 1);
        QCOMPARE(ended.count(), 1);
        QCOMPARE(errors.count(), 0);
        QCOMPARE(decoder.lastError(), OV::Error());
        QCOMPARE(decoder.audioStreamCount(), audioCount);
        const QMap<int, int> rates = decoder.audioSampleRates();
        QCOMPARE(rates.values(), sampleRates);
        QVERIFY(qAbs(decoder.duration() - 2.0) < 0.1);

        QMutexLocker lock(&decoder.mutex);
        QVERIFY(decoder.initCalled);
        QVERIFY(decoder.deinitCalled);
        QVERIFY(decoder.endOfStream);
        QCOMPARE(decoder.audioCountAtInit, audioCount);
        // Every picture arrives, the ones the decoder threads hold back at the end included.
        QCOMPARE(decoder.videoTimes.size(), videoFrames);
        if (videoFrames > 0) {
            // Containers may shift the start slightly (encoder delay of the audio).
            QVERIFY(decoder.videoTimes.first() >= 0.0 && decoder.videoTimes.first() < 0.05);
            QVERIFY(qAbs(decoder.videoTimes.last() - decoder.videoTimes.first() - 1.96) < 1e-6);
        }
        QCOMPARE(int(decoder.audioSamples.size()), audioCount);
        int i = 0;
        for (const auto &[index, samples] : decoder.audioSamples) {
            // Two seconds of sound at the stream's own rate, converted to stereo.
            const qint64 expected = 2 * sampleRates.at(i++);
            QVERIFY2(qAbs(samples - expected) < expected / 20,
                     qPrintable(QStringLiteral("stream %1: %2 samples").arg(index).arg(samples)));
        }
    }

    void nthAudioStream_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<int>("nth");
        QTest::addColumn<int>("expectedIndex");
        QTest::addColumn<int>("expectedCount");

        QTest::newRow("second of two") << "two.mkv" << 1 << 1 << 2;
        QTest::newRow("third of three after video") << "three.mkv" << 2 << 3 << 3;
        QTest::newRow("fourth of three falls back") << "three.mkv" << 3 << 1 << 3;
    }

    void nthAudioStream()
    {
        QFETCH(QString, name);
        QFETCH(int, nth);
        QFETCH(int, expectedIndex);
        QFETCH(int, expectedCount);

        AVFormatContext *format = nullptr;
        QCOMPARE(avformat_open_input(&format, QFile::encodeName(file(name)).constData(), nullptr, nullptr), 0);
        QVERIFY(avformat_find_stream_info(format, nullptr) >= 0);
        RecordingDecoder decoder;
        int index = -1;
        AVCodecContext *codec = nullptr;
        const int result = decoder.openCodecContext(&index, &codec, format, AVMEDIA_TYPE_AUDIO, nth);
        const int count = decoder.audioStreamCount();
        avcodec_free_context(&codec);
        avformat_close_input(&format);
        QCOMPARE(result, 0);
        QCOMPARE(index, expectedIndex);
        QCOMPARE(count, expectedCount);
    }

    void convertedPictures_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QSize>("maximum");
        QTest::addColumn<int>("frames");
        QTest::addColumn<QSize>("size");
        QTest::addColumn<int>("rotation");
        // 1920 × 1080 into 854 × 480 gives 853.33 wide, rounded down to 852 and the height following.
        QTest::newRow("scaled within maximum") << "hd.mp4" << QSize(854, 480) << 5 << QSize(852, 479) << 0;
        // The picture itself is not turned; the canvas does that.
        QTest::newRow("rotated") << "rotated.mp4" << QSize(1000, 1000) << 50 << QSize(320, 240) << 90;
    }

    void convertedPictures()
    {
        QFETCH(QString, name);
        QFETCH(QSize, maximum);
        QFETCH(int, frames);
        QFETCH(QSize, size);
        QFETCH(int, rotation);
        FileRun run(file(name));
        QVERIFY(run.source.open());
        RecordingDecoder &decoder = run.decoder;
        decoder.setMaximumSize(maximum);
        QVERIFY(MediaTest::runToEnd(&decoder));
        QCOMPARE(decoder.errorCode(), 0);

        QMutexLocker lock(&decoder.mutex);
        QVERIFY(decoder.converterOk);
        QCOMPARE(decoder.videoTimes.size(), frames);
        QCOMPARE(decoder.lastFrame.rotation, rotation);
        const QImage &img = decoder.lastFrame.image;
        QCOMPARE(img.size(), size);
        // testsrc draws a coloured picture; an all-black image would mean the scaler wrote nothing.
        bool anyColour = false;
        for (int y = 0; y < img.height() && !anyColour; y += 16)
            for (int x = 0; x < img.width() && !anyColour; x += 16)
                anyColour = img.pixel(x, y) != qRgb(0, 0, 0);
        QVERIFY(anyColour);
    }

    void seekDropsFramesBeforeTarget_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<double>("target");
        QTest::addColumn<double>("at"); // the picture after which the seek is asked for
        QTest::newRow("between keyframes") << "av4s.mp4" << 2.5 << -1.0;
        QTest::newRow("on a keyframe") << "av4s.mp4" << 1.0 << -1.0;
        QTest::newRow("backwards near start") << "av4s.mp4" << 0.3 << -1.0;
        // MP3 after a seek lacks the bits of the frames before; its first packets fail and are skipped.
        QTest::newRow("mpeg-1 with mp3, between keyframes") << "ps4s.mpg" << 2.5 << -1.0;
        // With B-frames the last pictures come out only once the decoder is told the packets
        // have ended; a seek asked for then must still be carried out.
        QTest::newRow("while the last pictures drain") << "bframes4s.mp4" << 1.0 << 3.96 - 1e-6;
    }

    void seekDropsFramesBeforeTarget()
    {
        QFETCH(QString, name);
        QFETCH(double, target);
        QFETCH(double, at);
        FileRun run(file(name));
        QVERIFY(run.source.open());
        RecordingDecoder &decoder = run.decoder;
        decoder.setSeekAfterFrame(target, at);
        QVERIFY(MediaTest::runToEnd(&decoder));
        QCOMPARE(decoder.errorCode(), 0);
        QCOMPARE(decoder.seekSerial(), 1);

        QMutexLocker lock(&decoder.mutex);
        QCOMPARE(decoder.seeks, 1);
        QVERIFY(!decoder.videoTimesAfterSeek.isEmpty());
        QVERIFY(!decoder.audioTimesAfterSeek.isEmpty());
        for (double t : std::as_const(decoder.videoTimesAfterSeek))
            QVERIFY2(t >= target - 1e-6, qPrintable(QStringLiteral("video frame at %1").arg(t)));
        for (double t : std::as_const(decoder.audioTimesAfterSeek))
            QVERIFY2(t >= target - 1e-6, qPrintable(QStringLiteral("audio frame at %1").arg(t)));
        // The first picture shown is the one at the target, not the next keyframe after it.
        QVERIFY2(decoder.videoTimesAfterSeek.first() < target + 0.04 + 1e-6,
                 qPrintable(QString::number(decoder.videoTimesAfterSeek.first())));
        QVERIFY(decoder.audioTimesAfterSeek.first() < target + 0.1);
        // From there on every picture up to the end.
        const double first = decoder.videoTimes.first();
        const int expected = 100 - int(std::ceil((target - first) * 25 - 1e-6));
        QCOMPARE(decoder.videoTimesAfterSeek.size(), expected);
    }

    void stopWakesBlockedRead_data()
    {
        QTest::addColumn<bool>("duringStartUp");
        QTest::newRow("waiting for the header") << true;
        QTest::newRow("waiting in the middle of playback") << false;
    }

    void stopWakesBlockedRead()
    {
        QFETCH(bool, duringStartUp);
        const QByteArray data = readAll(file("av4s.mp4"));
        QVERIFY(!data.isEmpty());
        StallingSource source(data, duringStartUp ? 0 : data.size() / 2, data.size());
        RecordingDecoder decoder;
        decoder.setSource(&source);
        QSignalSpy waiting(&decoder, &OVVideoDecoderBase::waitingOnData);
        QSignalSpy init(&decoder, &OVVideoDecoderBase::initFinished);
        QSignalSpy errors(&decoder, &OVVideoDecoderBase::errorRaised);
        decoder.start();
        QTRY_VERIFY_WITH_TIMEOUT(source.waits() > 0, 30000);
        QTRY_VERIFY_WITH_TIMEOUT(waiting.count() > 0, 10000);
        QVERIFY(decoder.isRunning());
        decoder.stop();
        QVERIFY(decoder.wait(10000));

        QCOMPARE(errors.count(), 0);
        QVERIFY(!decoder.lastError().message().contains("Error decoding"));
        QCOMPARE(init.count(), 1);
        QMutexLocker lock(&decoder.mutex);
        QVERIFY(!decoder.endOfStream);
        QVERIFY(decoder.deinitCalled);
        if (duringStartUp) {
            QCOMPARE(init.at(0).at(0).toInt(), int(OVVideoDecoderBase::StoppedError));
            QCOMPARE(decoder.lastError().message(), QString());
        } else {
            QCOMPARE(init.at(0).at(0).toInt(), 0);
            QCOMPARE(decoder.errorCode(), 0);
            QVERIFY(!decoder.videoTimes.isEmpty());
        }
    }

    void restartAfterStop()
    {
        FileRun run(file("video.mp4"));
        QVERIFY(run.source.open());
        RecordingDecoder &decoder = run.decoder;
        decoder.stop(); // before the start: the run ends at once without reaching the end
        QVERIFY(MediaTest::runToEnd(&decoder));
        {
            QMutexLocker lock(&decoder.mutex);
            QVERIFY(!decoder.endOfStream);
            decoder.videoTimes.clear();
        }
        // The stop belonged to the first run; the second plays to the end.
        QVERIFY(MediaTest::runToEnd(&decoder));
        QCOMPARE(decoder.errorCode(), 0);
        QMutexLocker lock(&decoder.mutex);
        QVERIFY(decoder.endOfStream);
        QCOMPARE(decoder.videoTimes.size(), 50);
    }

    void seekBeforeStart()
    {
        FileRun run(file("av4s.mp4"));
        QVERIFY(run.source.open());
        RecordingDecoder &decoder = run.decoder;
        decoder.requestSeek(3.0);
        QVERIFY(decoder.isSeekPending());
        QVERIFY(MediaTest::runToEnd(&decoder));
        QCOMPARE(decoder.errorCode(), 0);
        QVERIFY(!decoder.isSeekPending());
        QMutexLocker lock(&decoder.mutex);
        // Not a single picture of the first three seconds.
        QCOMPARE(decoder.videoTimes.size(), 25);
        QVERIFY(decoder.videoTimes.first() >= 3.0 - 1e-6);
    }

    void badInput_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QByteArray>("content"); // written to `name` unless null
        QTest::addColumn<int>("initCode");
        QTest::addColumn<int>("finalCode");
        QTest::addColumn<QString>("message");

        const QString openFailed = QStringLiteral("Failed to open input\nDetails:\n\t");
        QTest::newRow("missing file") << "missing.mp4" << QByteArray() << 3 << 3
                                      << openFailed + QStringLiteral("The file does not exist: ");
        QTest::newRow("empty file") << "empty.mp4" << QByteArray("") << 3 << 3 << openFailed;

        // Cut in the middle: the index at the end of an MP4 is gone.
        const QByteArray whole = readAll(file("video.mp4"));
        QTest::newRow("truncated mp4") << "cut.mp4" << whole.left(whole.size() / 2) << 3 << 3 << openFailed;

        const QByteArray text = QByteArray("This is a plain text file that only pretends to be a video.\n").repeated(200);
        QTest::newRow("text named mp4") << "text.mp4" << text << 3 << 3 << openFailed;

        // With nothing else to play, a stream the codec refuses throughout ends the run.
        QTest::newRow("sound alone, garbled throughout") << "damaged-sound.mka" << QByteArray() << 0 << 6
                                                         << QStringLiteral("Error decoding audio frame\nError: ");
    }

    void badInput()
    {
        QFETCH(QString, name);
        QFETCH(QByteArray, content);
        QFETCH(int, initCode);
        QFETCH(int, finalCode);
        QFETCH(QString, message);

        if (!content.isNull())
            QVERIFY(MediaTest::writeFile(file(name), content));
        FileRun run(file(name));
        run.source.open(); // a missing file stays closed; the decoder must cope
        RecordingDecoder &decoder = run.decoder;
        QSignalSpy init(&decoder, &OVVideoDecoderBase::initFinished);
        QSignalSpy errors(&decoder, &OVVideoDecoderBase::errorRaised);
        QSignalSpy ended(&decoder, &OVVideoDecoderBase::videoFinished);
        QVERIFY(MediaTest::runToEnd(&decoder, 60000));

        QCOMPARE(init.count(), 1);
        QCOMPARE(init.at(0).at(0).toInt(), initCode);
        QCOMPARE(errors.count(), 1);
        QCOMPARE(ended.count(), 1);
        const OV::Error error = decoder.lastError();
        QCOMPARE(error.code(), finalCode);
        QVERIFY2(error.message().startsWith(message), qPrintable(error.message()));
        // The details name what went wrong, not just that something did, and in which file.
        QVERIFY(error.message().size() > message.size());
        QVERIFY2(error.message().contains(file(name)), qPrintable(error.message()));
        QMutexLocker lock(&decoder.mutex);
        QVERIFY(decoder.deinitCalled);
        QVERIFY(!decoder.endOfStream);
    }

    void damagedPacketsAreSkipped_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<int>("frames");
        QTest::addColumn<double>("soundSeconds"); // at least this much sound, from the stream that is left
        QTest::addColumn<bool>("seek");

        QTest::newRow("every sound packet garbled") << "damaged-audio.mkv" << 50 << 0.0 << false;
        QTest::newRow("one damaged ac-3 frame") << "one-bad-ac3.mkv" << 50 << 1.9 << false;
        QTest::newRow("one damaged ac-3 frame, seek past") << "one-bad-ac3.mkv" << 0 << 1.0 << true;
        QTest::newRow("damaged vorbis in ogg") << "bad-vorbis.ogg" << 50 << 1.8 << false;
    }

    // Packets the codec refuses are skipped: the run plays to its end without an error, and the
    // picture and the rest of the sound are all there.
    void damagedPacketsAreSkipped()
    {
        QFETCH(QString, name);
        QFETCH(int, frames);
        QFETCH(double, soundSeconds);
        QFETCH(bool, seek);
        FileRun run(file(name));
        QVERIFY(run.source.open());
        RecordingDecoder &decoder = run.decoder;
        if (seek)
            decoder.setSeekAfterFrame(0.5);
        QSignalSpy errors(&decoder, &OVVideoDecoderBase::errorRaised);
        QVERIFY(MediaTest::runToEnd(&decoder));
        QCOMPARE(errors.count(), 0);
        QCOMPARE(decoder.lastError(), OV::Error());
        QVERIFY(decoder.skippedPackets() > 0);

        QMutexLocker lock(&decoder.mutex);
        QVERIFY(decoder.endOfStream);
        if (frames > 0)
            QCOMPARE(decoder.videoTimes.size(), frames);
        else
            QVERIFY(decoder.videoTimesAfterSeek.size() >= 35);
        qint64 samples = 0;
        for (const auto &[index, count] : decoder.audioSamples)
            samples += count;
        QVERIFY2(samples >= qint64(soundSeconds * 44100), qPrintable(QString::number(samples)));
    }

    void fuzzerFindings_data()
    {
        QTest::addColumn<QByteArray>("data");
        QTest::addColumn<bool>("opens");
        // Probed as a picture too large to allocate: a failed image allocation used to be freed twice.
        QTest::newRow("image too large to allocate") << (QByteArray(257, '\0') + QByteArray("\x13\xe0", 2)) << true;
        // 105 bytes of WAV whose LIST chunk declares nearly 4 GB: FFmpeg allocated and zeroed
        // 1.9 GB for one of its tags before finding the file short.
        QTest::newRow("wav declaring a 4 GB tag")
            << QByteArray::fromBase64("UklGRgYTAABXQVZFZm10IBAAAAABAEEAQB8AAIA+AAACABAATElTVBoAAPhJTkZPSVNGVA4AAHNhcABMYXZm"
                                      "NTguOjI3LjEwMABkYXRhwBIAAADwIfC/8Qz1pvn//nYEZgk7kwh9A2lz")
            << false;
    }
    void fuzzerFindings()
    {
        QFETCH(QByteArray, data);
        QFETCH(bool, opens);
        OVMemoryMediaSource source(data);
        RecordingDecoder decoder;
        decoder.setSource(&source);
        decoder.setProbeLimits(32768, 200000);
        QSignalSpy init(&decoder, &OVVideoDecoderBase::initFinished);
        QSignalSpy ended(&decoder, &OVVideoDecoderBase::videoFinished);
        const long before = peakKilobytes();
        QVERIFY(MediaTest::runToEnd(&decoder));
        QCOMPARE(init.count(), 1);
        QCOMPARE(ended.count(), 1);
        QCOMPARE(decoder.lastError().code() == 0, opens);
        QVERIFY2(peakKilobytes() - before < 300 * 1024, qPrintable(QString::number(peakKilobytes() - before)));
    }

private:
    QString file(const QString &name) const { return m_dir.filePath(name); }
    QTemporaryDir m_dir;
};

QTEST_GUILESS_MAIN(TestOVVideoDecoderBase)
#include "tst_ovvideodecoderbase.moc"
