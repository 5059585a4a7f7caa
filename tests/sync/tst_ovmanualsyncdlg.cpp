#include "synctesthelper.h"

#include "sync/ovaudiostreamsforsyncpickerdlg.h"
#include "sync/ovmanualsyncdlg.h"
#include "sync/ovmanualsyncmerge.h"

#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

#include <cmath>

namespace {

// Answers the dialog's questions and keeps what it told the user.
class SyncDlg : public OVManualSyncDlg
{
public:
    bool answer = true;
    QStringList questions;
    QStringList messages;

protected:
    bool confirm(const QString &question) override
    {
        questions << question;
        return answer;
    }
    void inform(const QString &, const QString &message) override { messages << message; }
};

OVSamples tone(double seconds, int rate = 1000)
{
    OVSamples s;
    s.sampleRate = rate;
    s.channels = 1;
    s.resize(qint64(seconds * rate));
    for (qint64 i = 0; i < s.count; ++i)
        s.data[size_t(i)] = qint16(10000 * std::sin(2 * M_PI * 3.0 * double(i) / rate));
    return s;
}

OVMediaInfo media(const QString &path, const QStringList &types)
{
    OVMediaInfo info;
    info.path = path;
    for (int i = 0; i < types.size(); ++i) {
        OVMediaInfo::Stream s;
        s.index = i;
        s.type = types[i];
        info.streams.append(s);
    }
    return info;
}

} // namespace

class TestOVManualSyncDlg : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void alignModes_data();
    void alignModes();
    void markerLimits_data();
    void markerLimits();
    void autoSync_data();
    void autoSync();
    void pickerChoices_data();
    void pickerChoices();

private:
    QTemporaryDir m_dir;
};

void TestOVManualSyncDlg::initTestCase()
{
    QVERIFY(m_dir.isValid());
}

void TestOVManualSyncDlg::alignModes_data()
{
    QTest::addColumn<int>("mode");
    QTest::addColumn<QList<QPointF>>("markers"); // (primary s, secondary s)
    QTest::addColumn<double>("stripOffset"); // what the user dragged the secondary strip to
    QTest::addColumn<QList<QPointF>>("expected"); // (primary s, secondary s)

    const QList<QPointF> two { { 10.0, 4.0 }, { 20.0, 14.002 } };
    QTest::newRow("markers: one gives a constant offset")
        << int(OVManualSyncDlg::AlignUsingMarkers) << QList<QPointF> { { 10.0, 4.0 } } << 0.0
        << QList<QPointF> { { 0.0, -6.0 }, { 10.0, 4.0 }, { 25.0, 19.0 } };
    // Between the markers the line through them; beyond them the drift the markers show (2 ms in
    // 10 s), not the clocks taken as equal.
    QTest::newRow("markers: two carry their drift beyond")
        << int(OVManualSyncDlg::AlignUsingMarkers) << two << 0.0
        << QList<QPointF> { { 15.0, 9.001 }, { 0.0, 4.0 - 10.0 * 1.0002 }, { 30.0, 14.002 + 10.0 * 1.0002 } };
    QTest::newRow("1-1 takes the strip's offset, not the markers")
        << int(OVManualSyncDlg::AlignOneToOne) << two << 2.5
        << QList<QPointF> { { 2.5, 0.0 }, { 10.0, 7.5 }, { 30.0, 27.5 } };
    QTest::newRow("don't align keeps the recording as it is")
        << int(OVManualSyncDlg::DontAlign) << two << 2.5 << QList<QPointF> { { 0.0, 0.0 }, { 17.25, 17.25 } };
}

void TestOVManualSyncDlg::alignModes()
{
    QFETCH(int, mode);
    QFETCH(QList<QPointF>, markers);
    QFETCH(double, stripOffset);
    QFETCH(QList<QPointF>, expected);
    const int rate = 1000;
    SyncDlg dlg;
    dlg.setSamples(tone(35.0, rate), tone(40.0, rate));
    for (const QPointF &m : markers) {
        dlg.setSecondaryOffset(m.x() - m.y());
        QVERIFY(dlg.addMarker(OVManualSyncDlg::Primary, m.x()));
    }
    QVERIFY2(dlg.messages.isEmpty(), qPrintable(dlg.messages.join(QLatin1Char('\n'))));
    if (mode == OVManualSyncDlg::AlignUsingMarkers) {
        QVERIFY(!dlg.isSynchronized());
        dlg.onAlignMarkers();
        QVERIFY(dlg.isSynchronized());
        QCOMPARE(dlg.hint(), QStringLiteral("Secondary track synchronized"));
    }
    dlg.setAlignMode(OVManualSyncDlg::AlignMode(mode));
    dlg.setSecondaryOffset(stripOffset);

    const OVSyncMap map = dlg.syncMap();
    for (const QPointF &e : expected)
        QVERIFY2(std::fabs(map.secondaryAt(e.x()) - e.y()) < 1e-6,
                 qPrintable(QStringLiteral("%1 -> %2, want %3").arg(e.x()).arg(map.secondaryAt(e.x()), 0, 'f', 6).arg(e.y())));

    // What the merge gets: as long as the primary, the secondary's sound of each moment.
    const OVSamples aligned = dlg.alignedSecondary();
    QCOMPARE(aligned.count, dlg.primarySamples().count);
    const OVSamples &secondary = dlg.secondarySamples();
    for (qint64 k = 0; k < aligned.count; k += 331) {
        const double s = map.secondaryAt(double(k) / rate);
        const double want
            = (s < 0 || s * rate > double(secondary.count - 1)) ? 0.0 : 10000 * std::sin(2 * M_PI * 3.0 * s);
        QVERIFY2(std::fabs(aligned.data[size_t(k)] - want) < 5.0, qPrintable(QStringLiteral("sample %1").arg(k)));
    }
}

void TestOVManualSyncDlg::markerLimits_data()
{
    QTest::addColumn<QList<double>>("placed"); // primary seconds, accepted ones
    QTest::addColumn<int>("track");
    QTest::addColumn<double>("at");
    QTest::addColumn<QString>("refusal"); // empty: accepted

    // The secondary (70 s) starts 3 s into the primary (80 s).
    const QString space = QStringLiteral("Failed to add marker (not enough empty space)");
    QTest::newRow("free spot") << QList<double> { 5.0 } << int(OVManualSyncDlg::Primary) << 6.0 << QString();
    QTest::newRow("on top of another") << QList<double> { 5.0 } << int(OVManualSyncDlg::Primary) << 5.2 << space;
    // The marker at primary 5 is at secondary 2.
    QTest::newRow("crowded on the secondary") << QList<double> { 5.0 } << int(OVManualSyncDlg::Secondary) << 2.3 << space;
    QTest::newRow("other half past the secondary's end") << QList<double>() << int(OVManualSyncDlg::Primary) << 75.0
                                                         << space;
    QTest::newRow("before the secondary starts") << QList<double>() << int(OVManualSyncDlg::Primary) << 1.0 << space;
    QList<double> full;
    for (int i = 0; i < OVManualSyncDlg::MaxMarkers; ++i)
        full << 3.5 + i * 0.6;
    QTest::newRow("one too many")
        << full << int(OVManualSyncDlg::Primary) << 70.0
        << QStringLiteral("Failed to add marker, maximum number of markers exceeded!\nMaximum number of markers per "
                          "track is %1")
               .arg(OVManualSyncDlg::MaxMarkers);
}

void TestOVManualSyncDlg::markerLimits()
{
    QFETCH(QList<double>, placed);
    QFETCH(int, track);
    QFETCH(double, at);
    QFETCH(QString, refusal);
    SyncDlg dlg;
    dlg.setSamples(tone(80.0), tone(70.0));
    dlg.setSecondaryOffset(3.0);
    for (double p : placed)
        QVERIFY(dlg.addMarker(OVManualSyncDlg::Primary, p));
    QVERIFY(dlg.messages.isEmpty());

    QCOMPARE(dlg.addMarker(OVManualSyncDlg::Track(track), at), refusal.isEmpty());
    QCOMPARE(dlg.markers().size(), placed.size() + (refusal.isEmpty() ? 1 : 0));
    QCOMPARE(dlg.messages, refusal.isEmpty() ? QStringList() : QStringList { refusal });
    for (const OVManualSyncDlg::Marker &m : dlg.markers())
        QVERIFY(std::fabs(m.offset() - 3.0) < 1e-9);
}

void TestOVManualSyncDlg::autoSync_data()
{
    QTest::addColumn<int>("secondaryVariant"); // 0: cut from the primary's scene; 1: another scene
    QTest::addColumn<bool>("markersBefore"); // a marker is placed by hand first
    QTest::addColumn<bool>("answer"); // to "remove all existing marks?"
    QTest::addColumn<bool>("found");

    QTest::newRow("same scene") << 0 << false << true << true;
    QTest::newRow("another scene: no points, not synchronized") << 1 << false << true << false;
    QTest::newRow("replacing hand-placed markers") << 0 << true << true << true;
    QTest::newRow("declined: the hand-placed markers stay") << 0 << true << false << false;
}

void TestOVManualSyncDlg::autoSync()
{
    QFETCH(int, secondaryVariant);
    QFETCH(bool, markersBefore);
    QFETCH(bool, answer);
    QFETCH(bool, found);
    if (!SyncTest::haveTools())
        QSKIP("ffmpeg and espeak-ng are needed");

    const QString dir = m_dir.path();
    static QString scene, cut, other;
    if (scene.isEmpty()) {
        scene = SyncTest::makeScene(dir, QStringLiteral("scene.wav"), 0, 40.0);
        // The second device heard 30 s of it from 6.5 s on, through a different microphone.
        cut = SyncTest::derive(scene, dir, QStringLiteral("cut.wav"), qint64(6.5 * SyncTest::Rate), 36 * SyncTest::Rate,
                               QStringLiteral("highpass=f=250,lowpass=f=5000"), 0.02);
        other = SyncTest::makeScene(dir, QStringLiteral("other.wav"), 1, 30.0);
    }
    QVERIFY(!scene.isEmpty() && !cut.isEmpty() && !other.isEmpty());
    OVSamples primary, secondary;
    QVERIFY(loadWavSamples(scene, primary));
    QVERIFY(loadWavSamples(secondaryVariant ? other : cut, secondary));

    SyncDlg dlg;
    dlg.answer = answer;
    dlg.setSamples(std::move(primary), std::move(secondary));
    if (markersBefore) {
        dlg.setSecondaryOffset(2.0);
        QVERIFY(dlg.addMarker(OVManualSyncDlg::Primary, 12.0));
    }
    QSignalSpy finished(&dlg, &OVManualSyncDlg::autoSyncFinished);
    dlg.onAutoSync();
    QCOMPARE(dlg.questions.size(), markersBefore ? 1 : 0);
    if (markersBefore && !answer) {
        QVERIFY(!finished.wait(300));
        QCOMPARE(dlg.markers().size(), 1);
        return;
    }
    QVERIFY(finished.wait(120000));
    QCOMPARE(finished.first().first().toBool(), found);
    QCOMPARE(dlg.isSynchronized(), found);
    if (!found) {
        QVERIFY(dlg.markers().isEmpty());
        QVERIFY2(dlg.hint().contains(QStringLiteral("share no sound")), qPrintable(dlg.hint()));
        // Nothing to align with: the dialog refuses to add the track.
        dlg.accept();
        QCOMPARE(dlg.result(), int(QDialog::Rejected));
        QVERIFY(!dlg.messages.isEmpty());
        return;
    }
    QVERIFY(!dlg.markers().isEmpty());
    for (const OVManualSyncDlg::Marker &m : dlg.markers())
        QVERIFY2(std::fabs(m.offset() - 6.5) < 0.001, qPrintable(QString::number(m.offset(), 'f', 6)));
    QVERIFY(std::fabs(dlg.secondaryOffset() - 6.5) < 0.001);

    // A marker dragged a good way off is found back by Auto Refine.
    const QString id = dlg.markers().at(dlg.markers().size() / 2).id;
    QVERIFY(dlg.setMarkerOffset(id, 6.5 - 0.3, 0.0));
    QVERIFY(dlg.autoRefine(id));
    for (const OVManualSyncDlg::Marker &m : dlg.markers())
        if (m.id == id)
            QVERIFY2(std::fabs(m.offset() - 6.5) < 0.001 && m.coefficient > 0.5,
                     qPrintable(QStringLiteral("%1 %2").arg(m.offset(), 0, 'f', 6).arg(m.coefficient)));
    // The aligned track is silent until 6.5 s, then plays the secondary from its start.
    const OVSamples aligned = dlg.alignedSecondary();
    const qint64 start = qint64(6.5 * SyncTest::Rate);
    QCOMPARE(aligned.data[size_t(start - 200)], qint16(0));
    double err = 0, energy = 0;
    for (qint64 k = start + 10; k < start + 5 * SyncTest::Rate; ++k) {
        const double d = aligned.data[size_t(k)] - dlg.secondarySamples().data[size_t(k - start)];
        err += d * d;
        energy += double(aligned.data[size_t(k)]) * aligned.data[size_t(k)];
    }
    // Sub-sample offsets make the resampled sound differ a little from the recorded one; a track
    // misplaced by even a few samples differs by about twice its energy.
    QVERIFY2(err < 0.2 * energy, qPrintable(QStringLiteral("%1 of %2").arg(err).arg(energy)));
}

void TestOVManualSyncDlg::pickerChoices_data()
{
    QTest::addColumn<QStringList>("primaryStreams");
    QTest::addColumn<QStringList>("secondaryStreams");
    QTest::addColumn<int>("replace"); // the choice made, -1: add
    QTest::addColumn<int>("secondaryChoice");
    QTest::addColumn<QString>("maps"); // the merge's maps; empty: the picker offers no OK
    QTest::addColumn<int>("primaryStream");
    QTest::addColumn<int>("secondaryStream");

    const QStringList three { QStringLiteral("video"), QStringLiteral("audio"), QStringLiteral("data"),
                              QStringLiteral("audio"), QStringLiteral("audio") };
    const QStringList two { QStringLiteral("audio"), QStringLiteral("video"), QStringLiteral("audio") };
    QTest::newRow("added after the others") << three << two << -1 << 1 << QStringLiteral("-map 0 -map 1") << 0 << 1;
    QTest::newRow("replaces the second of three")
        << three << two << 1 << 0 << QStringLiteral("-map 0 -map -0:a -map 0:a:0 -map 1:a -map 0:a:2") << 0 << 0;
    QTest::newRow("replaces the last") << three << two << 2 << 0
                                       << QStringLiteral("-map 0 -map -0:a -map 0:a:0 -map 0:a:1 -map 1:a") << 0 << 0;
    // A silent primary can only gain a stream.
    QTest::newRow("primary without sound") << QStringList { QStringLiteral("video") } << two << 0 << 0
                                           << QStringLiteral("-map 0 -map 1") << -1 << 0;
    QTest::newRow("secondary without sound") << three << QStringList { QStringLiteral("video") } << -1 << 0 << QString()
                                             << 0 << -1;
}

void TestOVManualSyncDlg::pickerChoices()
{
    QFETCH(QStringList, primaryStreams);
    QFETCH(QStringList, secondaryStreams);
    QFETCH(int, replace);
    QFETCH(int, secondaryChoice);
    QFETCH(QString, maps);
    QFETCH(int, primaryStream);
    QFETCH(int, secondaryStream);
    OVAudioStreamsForSyncPickerDlg picker(media(QStringLiteral("/v/p.mp4"), primaryStreams),
                                          media(QStringLiteral("/v/s.mp4"), secondaryStreams));
    picker.setReplaceIndex(replace);
    picker.setSecondaryStream(secondaryChoice);
    QCOMPARE(picker.isUsable(), !maps.isEmpty());
    QCOMPARE(picker.primaryStream(), primaryStream);
    QCOMPARE(picker.secondaryStream(), secondaryStream);
    if (maps.isEmpty())
        return;
    const QStringList args = OVManualSyncMerge::mergeArguments(QStringLiteral("/v/p.mp4"), QStringLiteral("/t/s.wav"),
                                                               QStringLiteral("/v/o.mp4"), picker.replaceIndex(),
                                                               picker.streamCount(), false);
    const QStringList expected = QStringList { QStringLiteral("-y"), QStringLiteral("-i"), QStringLiteral("/v/p.mp4"),
                                               QStringLiteral("-i"), QStringLiteral("/t/s.wav") }
        + maps.split(QLatin1Char(' '))
        + QStringList { QStringLiteral("-vcodec"), QStringLiteral("copy"), QStringLiteral("-strict"), QStringLiteral("-2"),
                        QStringLiteral("/v/o.mp4") };
    QCOMPARE(args, expected);
}

QTEST_MAIN(TestOVManualSyncDlg)
#include "tst_ovmanualsyncdlg.moc"
