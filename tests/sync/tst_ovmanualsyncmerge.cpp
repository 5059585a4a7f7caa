#include "synctesthelper.h"

#include "media/nxffmpegwrapper.h"
#include "media/ovmediainfo.h"
#include "sync/ovmanualsyncmerge.h"
#include "sync/ovsyncmap.h"

#include <QCryptographicHash>
#include <QProcess>
#include <QDir>
#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

#include <cmath>
#include <csignal>
#include <unistd.h>

class TestOVManualSyncMerge : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void arguments_data();
    void arguments();
    void merge_data();
    void merge();
    void timeMap_data();
    void timeMap();
    void killed_data();
    void killed();

private:
    QTemporaryDir m_dir;
    QTemporaryDir m_tmp;
};

namespace {

QByteArray digest(const QString &path)
{
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly))
        return QByteArray();
    QCryptographicHash hash(QCryptographicHash::Sha256);
    hash.addData(&f);
    return hash.result();
}

int audioStreams(const QString &path)
{
    OVMediaInfo info;
    if (!OVMediaInfo::probe(path, &info).isOk())
        return -1;
    int n = 0;
    for (const auto &s : info.streams)
        n += s.type == QLatin1String("audio");
    return n;
}

OVSamples sineTrack(double seconds)
{
    OVSamples track;
    track.sampleRate = 22050;
    track.resize(qint64(seconds * 22050));
    for (qint64 i = 0; i < track.count; ++i)
        track.data[size_t(i)] = qint16(8000 * std::sin(i * 0.05));
    return track;
}

// The process that gets killed: rewrites the primary in place, as the application does.
// KAVOT_MERGE_CHILD holds "merge" or "remove", the primary, the backup and the tool, one a line.
int runChild(const QByteArray &job)
{
    const QStringList parts = QString::fromUtf8(job).split(QLatin1Char('\n'));
    if (parts.size() != 4)
        return 2;
    OVManualSyncMerge merge;
    merge.setToolPath(parts[3]);
    OV::Error error;
    if (parts[0] == QLatin1String("remove")) {
        error = merge.removeStream(parts[1], parts[2], 0, 1);
    } else {
        const OVSamples track = sineTrack(6.0);
        error = merge.merge(parts[1], parts[2], QString(), QString(), &track, &track, -1, -1, 0, 1);
    }
    return error.isOk() ? 0 : 1;
}

} // namespace

void TestOVManualSyncMerge::initTestCase()
{
    QVERIFY(m_dir.isValid() && m_tmp.isValid());
    qputenv("TMPDIR", QFile::encodeName(m_tmp.path()));
}

void TestOVManualSyncMerge::arguments_data()
{
    QTest::addColumn<int>("replace");
    QTest::addColumn<int>("count");
    QTest::addColumn<bool>("dropData");
    QTest::addColumn<QString>("maps"); // the arguments between the inputs and "-vcodec"
    QTest::newRow("added after the others") << -1 << -1 << false << QStringLiteral("-map 0 -map 1");
    QTest::newRow("stream 1 of 3 replaced") << 1 << 3 << false
                                            << QStringLiteral("-map 0 -map -0:a -map 0:a:0 -map 1:a -map 0:a:2");
    QTest::newRow("stream 0 of 1 replaced") << 0 << 1 << false << QStringLiteral("-map 0 -map -0:a -map 1:a");
    QTest::newRow("index past the streams adds") << 4 << 2 << true << QStringLiteral("-map 0 -map 1");
}

void TestOVManualSyncMerge::arguments()
{
    QFETCH(int, replace);
    QFETCH(int, count);
    QFETCH(bool, dropData);
    QFETCH(QString, maps);
    const QStringList args = OVManualSyncMerge::mergeArguments(QStringLiteral("/v/a b.mp4"), QStringLiteral("/t/s.wav"),
                                                               QStringLiteral("/v/out.mp4"), replace, count, dropData);
    QStringList expected { QStringLiteral("-y"), QStringLiteral("-i"), QStringLiteral("/v/a b.mp4"), QStringLiteral("-i"),
                           QStringLiteral("/t/s.wav") };
    expected << maps.split(QLatin1Char(' ')) << QStringLiteral("-vcodec") << QStringLiteral("copy")
             << QStringLiteral("-strict") << QStringLiteral("-2");
    if (dropData)
        expected << QStringLiteral("-map") << QStringLiteral("-0:d");
    expected << QStringLiteral("/v/out.mp4");
    QCOMPARE(args, expected);
}

void TestOVManualSyncMerge::merge_data()
{
    QTest::addColumn<QString>("tool"); // "" the real one, else a script body standing for it
    QTest::addColumn<bool>("inPlace");
    QTest::addColumn<bool>("withBackup");
    QTest::addColumn<int>("cancelAfterMs"); // -1: no cancel
    QTest::addColumn<QString>("message"); // empty: success

    QTest::newRow("new file") << QString() << false << false << -1 << QString();
    QTest::newRow("in place with backup") << QString() << true << true << -1 << QString();
    QTest::newRow("tool fails") << QStringLiteral("echo 'Invalid data found' >&2; exit 1") << true << true << -1
                                << QStringLiteral("FFMpeg error occured");
    // The tool has written part of its output when it is stopped.
    QTest::newRow("cancel during the tool")
        << QStringLiteral("for a in \"$@\"; do out=\"$a\"; done; echo partial > \"$out\"; exec sleep 60") << true
        << true << 300 << QStringLiteral("Canceled by user");
    QTest::newRow("backup cannot be made") << QString() << true << true << -2
                                           << QStringLiteral("Failed to create backup file\n");
}

void TestOVManualSyncMerge::merge()
{
    QFETCH(QString, tool);
    QFETCH(bool, inPlace);
    QFETCH(bool, withBackup);
    QFETCH(int, cancelAfterMs);
    QFETCH(QString, message);
    if (!SyncTest::haveTools())
        QSKIP("ffmpeg is needed");

    const QString primary = m_dir.filePath(QStringLiteral("primary.mkv"));
    QVERIFY(SyncTest::ffmpeg({ QStringLiteral("-f"), QStringLiteral("lavfi"), QStringLiteral("-i"),
                               QStringLiteral("testsrc=size=64x48:rate=10:d=2"), QStringLiteral("-f"),
                               QStringLiteral("lavfi"), QStringLiteral("-i"), QStringLiteral("sine=f=440:r=22050:d=2"),
                               QStringLiteral("-c:v"), QStringLiteral("mpeg4"), QStringLiteral("-c:a"),
                               QStringLiteral("pcm_s16le"), primary }));
    const QByteArray before = digest(primary);
    OVSamples track;
    track.sampleRate = 22050;
    track.resize(2 * 22050);
    for (qint64 i = 0; i < track.count; ++i)
        track.data[size_t(i)] = qint16(8000 * std::sin(i * 0.05));

    const QString output = inPlace ? primary : m_dir.filePath(QStringLiteral("merged.mkv"));
    QFile::remove(m_dir.filePath(QStringLiteral("merged.mkv")));
    QString backup = withBackup ? m_dir.filePath(QStringLiteral("primary.backup.mkv")) : QString();
    if (cancelAfterMs == -2)
        backup = m_dir.filePath(QStringLiteral("no such folder/primary.backup.mkv"));

    OVManualSyncMerge merge;
    if (!tool.isEmpty())
        merge.setToolPath(SyncTest::script(m_dir.path(), QStringLiteral("tool.sh"), tool.toUtf8()));
    QSignalSpy finished(&merge, &OVManualSyncMerge::finished);
    QSignalSpy actions(&merge, &OVManualSyncMerge::actionChanged);
    QVERIFY(merge.start(primary, backup, inPlace ? QString() : output, &track, &track, -1, -1));
    if (cancelAfterMs > 0) {
        QTest::qWait(cancelAfterMs);
        merge.cancel();
    }
    QVERIFY(finished.wait(60000));
    const OV::Error error = finished.first().first().value<OV::Error>();
    const QStringList leftovers = QDir(m_dir.path()).entryList({ QStringLiteral("*kavot-merge*") },
                                                              QDir::Files | QDir::Hidden)
        + QDir(m_tmp.path()).entryList(QDir::Files);
    QVERIFY2(leftovers.isEmpty(), qPrintable(leftovers.join(QLatin1Char(' '))));
    if (message.isEmpty()) {
        QVERIFY2(error.isOk(), qPrintable(error.message()));
        QCOMPARE(audioStreams(output), 2);
        if (!inPlace)
            QCOMPARE(digest(primary), before);
        if (withBackup)
            QCOMPARE(digest(backup), before);
        return;
    }
    QVERIFY(!error.isOk());
    QVERIFY2(error.message().startsWith(message), qPrintable(error.message()));
    QCOMPARE(digest(primary), before);
    if (cancelAfterMs == -2)
        QVERIFY(error.message().endsWith(backup));
    else
        QVERIFY(actions.size() >= 4); // backup, export, the tool, restoring
}

void TestOVManualSyncMerge::timeMap_data()
{
    QTest::addColumn<QList<QPointF>>("markers"); // (primary s, secondary s)
    QTest::addColumn<double>("driftB"); // fitted change of the offset per primary second
    QTest::addColumn<QList<QPointF>>("expected"); // (primary s, secondary s)
    QTest::newRow("one marker: a constant offset") << QList<QPointF> { { 10.0, 4.0 } } << 0.0
                                                   << QList<QPointF> { { 0.0, -6.0 }, { 10.0, 4.0 }, { 30.0, 24.0 } };
    // Between markers the line through them; beyond, the fitted slope from the outermost marker.
    QTest::newRow("two markers and drift")
        << QList<QPointF> { { 10.0, 4.0 }, { 20.0, 14.002 } } << -0.0001
        << QList<QPointF> { { 15.0, 9.001 }, { 0.0, 4.0 - 10.0 * 1.0001 }, { 30.0, 14.002 + 10.0 * 1.0001 } };
}

void TestOVManualSyncMerge::timeMap()
{
    QFETCH(QList<QPointF>, markers);
    QFETCH(double, driftB);
    QFETCH(QList<QPointF>, expected);
    const int rate = 1000;
    QList<OVSync::SyncInfo> points;
    for (const QPointF &m : markers) {
        OVSync::SyncInfo p;
        p.primaryPos = m.x() * rate;
        p.secondaryPos = m.y() * rate;
        points.append(p);
    }
    OVSync::Fit fit;
    fit.b = driftB;
    fit.points = int(points.size());
    const OVSyncMap map(points, rate, fit);
    for (const QPointF &e : expected)
        QVERIFY2(std::fabs(map.secondaryAt(e.x()) - e.y()) < 1e-9,
                 qPrintable(QStringLiteral("%1 -> %2").arg(e.x()).arg(map.secondaryAt(e.x()), 0, 'f', 6)));

    // The aligned track holds at each primary sample the secondary's sound of that moment.
    OVSamples secondary;
    secondary.sampleRate = rate;
    secondary.resize(40 * rate);
    for (qint64 i = 0; i < secondary.count; ++i)
        secondary.data[size_t(i)] = qint16(10000 * std::sin(2 * M_PI * 3.0 * double(i) / rate));
    const OVSamples aligned = map.align(secondary, 35 * rate);
    QCOMPARE(aligned.count, 35 * rate);
    for (qint64 k = 0; k < aligned.count; k += 97) {
        const double s = map.secondaryAt(double(k) / rate);
        const double want = (s < 0 || s * rate > double(secondary.count - 1)) ? 0.0 : 10000 * std::sin(2 * M_PI * 3.0 * s);
        QVERIFY2(std::fabs(aligned.data[size_t(k)] - want) < 5.0, qPrintable(QStringLiteral("sample %1").arg(k)));
    }
}

void TestOVManualSyncMerge::killed_data()
{
    QTest::addColumn<QString>("operation");
    QTest::addColumn<QString>("tool"); // the real tool, slowed down or held after its work
    QTest::addColumn<int>("killAfterMs"); // after the tool has started

    // -re makes the tool read its first input at the pace of playback: it is midway when killed.
    QTest::newRow("merge, the tool writing") << QStringLiteral("merge")
                                             << QStringLiteral("touch \"$0.started\"; exec ffmpeg -re \"$@\"") << 1500;
    // The new file is complete but not yet in place.
    QTest::newRow("merge, the tool done") << QStringLiteral("merge")
                                          << QStringLiteral("ffmpeg \"$@\" || exit 1; touch \"$0.started\"; sleep 30")
                                          << 300;
    QTest::newRow("removal, the tool writing") << QStringLiteral("remove")
                                               << QStringLiteral("touch \"$0.started\"; exec ffmpeg -re \"$@\"") << 1500;
}

void TestOVManualSyncMerge::killed()
{
    QFETCH(QString, operation);
    QFETCH(QString, tool);
    QFETCH(int, killAfterMs);
    if (!SyncTest::haveTools())
        QSKIP("ffmpeg is needed");

    QTemporaryDir dir;
    const QString primary = dir.filePath(QStringLiteral("recording.mkv"));
    QVERIFY(SyncTest::ffmpeg({ QStringLiteral("-f"), QStringLiteral("lavfi"), QStringLiteral("-i"),
                               QStringLiteral("testsrc=size=160x120:rate=25:d=6"), QStringLiteral("-f"),
                               QStringLiteral("lavfi"), QStringLiteral("-i"), QStringLiteral("sine=f=440:r=22050:d=6"),
                               QStringLiteral("-f"), QStringLiteral("lavfi"), QStringLiteral("-i"),
                               QStringLiteral("sine=f=660:r=22050:d=6"), QStringLiteral("-map"), QStringLiteral("0"),
                               QStringLiteral("-map"), QStringLiteral("1"), QStringLiteral("-map"), QStringLiteral("2"),
                               QStringLiteral("-c:v"), QStringLiteral("mpeg4"), QStringLiteral("-c:a"),
                               QStringLiteral("pcm_s16le"), primary }));
    const QByteArray before = digest(primary);
    const QString backup = dir.filePath(QStringLiteral("recording.backup.mkv"));
    const QString script = SyncTest::script(dir.path(), QStringLiteral("tool.sh"), tool.toUtf8());
    const QString started = script + QStringLiteral(".started");

    QProcess child;
    child.setProcessChannelMode(QProcess::ForwardedChannels);
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("KAVOT_MERGE_CHILD"), QStringList { operation, primary, backup, script }.join(QLatin1Char('\n')));
    child.setProcessEnvironment(env);
    // Its own process group, so that the tool dies with it as with a crash of the whole session.
    child.setChildProcessModifier([] { ::setpgid(0, 0); });
    child.start(QCoreApplication::applicationFilePath(), {});
    QVERIFY(child.waitForStarted());
    QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(started), 60000);
    QTest::qWait(killAfterMs);
    QCOMPARE(child.state(), QProcess::Running);
    ::kill(-pid_t(child.processId()), SIGKILL);
    QVERIFY(child.waitForFinished(10000));

    // The recording is the one from before, whole; the backup, if made, too.
    QCOMPARE(digest(primary), before);
    QCOMPARE(digest(backup), before);

    // What the killed run left behind does not stand in the way of the next one.
    OVManualSyncMerge merge;
    const OVSamples track = sineTrack(6.0);
    const OV::Error again = operation == QLatin1String("remove")
        ? merge.removeStream(primary, backup, 0, 0)
        : merge.merge(primary, backup, QString(), QString(), &track, &track, -1, -1, 0, 0);
    QVERIFY2(again.isOk(), qPrintable(again.message()));
    QCOMPARE(audioStreams(primary), operation == QLatin1String("remove") ? 1 : 3);
    QVERIFY(!QFile::exists(backup));
}

int main(int argc, char **argv)
{
    const QByteArray child = qgetenv("KAVOT_MERGE_CHILD");
    if (!child.isEmpty()) {
        QCoreApplication app(argc, argv);
        return runChild(child);
    }
    QCoreApplication app(argc, argv);
    TestOVManualSyncMerge test;
    return QTest::qExec(&test, argc, argv);
}
#include "tst_ovmanualsyncmerge.moc"
