#include "sync/ovsamples.h"
#include "sync/ovsampleswidget.h"

#include <QSignalSpy>
#include <QtTest>

#include <cmath>

// The strip's mouse and wheel work: what a user drags or clicks has to land on the time under
// the pointer, or markers and offsets drift from what is seen.
class TestOVSamplesWidget : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void pointerGestures_data();
    void pointerGestures();
};

void TestOVSamplesWidget::pointerGestures_data()
{
    QTest::addColumn<QString>("gesture");
    QTest::addColumn<double>("pps");
    QTest::addColumn<double>("offset");
    QTest::addColumn<bool>("draggable");
    QTest::addColumn<double>("expectedOffset");
    QTest::addColumn<double>("expectedMarker"); // the marker's time after the gesture
    QTest::addColumn<int>("offsetSignals");

    // The marker "m" stands at 3.0 s of the track.
    QTest::newRow("drag the strip 50 px right shows earlier time")
        << "drag 100 150" << 100.0 << 1.0 << true << 0.5 << 3.0 << 1;
    QTest::newRow("a fixed strip does not move") << "drag 100 150" << 100.0 << 1.0 << false << 1.0 << 3.0 << 0;
    QTest::newRow("dragging a marker moves the marker, not the strip")
        << "drag 200 260" << 100.0 << 1.0 << true << 1.0 << 3.6 << 0;
    QTest::newRow("scrolled into negative time") << "drag 300 400" << 50.0 << -2.0 << true << -4.0 << 3.0 << 1;
    QTest::newRow("wheel zoom keeps the time under the pointer")
        << "wheel 250" << 100.0 << 1.0 << true << 3.5 - 250.0 / 125.0 << 3.0 << 1;
}

void TestOVSamplesWidget::pointerGestures()
{
    QFETCH(QString, gesture);
    QFETCH(double, pps);
    QFETCH(double, offset);
    QFETCH(bool, draggable);
    QFETCH(double, expectedOffset);
    QFETCH(double, expectedMarker);
    QFETCH(int, offsetSignals);

    OVSamples track;
    track.sampleRate = 22050;
    track.resize(22050 * 10);
    OVSamplesWidget w;
    w.resize(600, 80);
    w.setSamples(&track);
    w.setPps(pps);
    w.setOffset(offset);
    w.setDraggable(draggable);
    w.addMarker({ QStringLiteral("m"), 3.0, QColor(), QStringLiteral("1") });
    w.show();
    QVERIFY(QTest::qWaitForWindowExposed(&w));
    QSignalSpy offsets(&w, &OVSamplesWidget::offsetChanged);
    QSignalSpy moved(&w, &OVSamplesWidget::markerMoved);

    const QStringList parts = gesture.split(QLatin1Char(' '));
    if (parts[0] == QLatin1String("drag")) {
        const QPoint from(parts[1].toInt(), 40);
        const QPoint to(parts[2].toInt(), 40);
        QTest::mousePress(&w, Qt::LeftButton, {}, from);
        QMouseEvent move(QEvent::MouseMove, to, w.mapToGlobal(to), Qt::NoButton, Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(&w, &move);
        QTest::mouseRelease(&w, Qt::LeftButton, {}, to);
    } else {
        const QPointF at(parts[1].toDouble(), 40);
        QWheelEvent wheel(at, w.mapToGlobal(at), QPoint(), QPoint(0, 120), Qt::NoButton, Qt::NoModifier,
                          Qt::NoScrollPhase, false);
        QApplication::sendEvent(&w, &wheel);
        QCOMPARE(w.pps(), pps * 1.25);
    }
    QVERIFY2(std::abs(w.offset() - expectedOffset) < 1e-9, qPrintable(QString::number(w.offset())));
    QCOMPARE(offsets.size(), offsetSignals);
    QVERIFY(std::abs(w.markers().first().time - expectedMarker) < 1e-9);
    QCOMPARE(moved.size(), expectedMarker != 3.0 ? 1 : 0);

    // A click reports the time under the pointer and the marker there, if any.
    QSignalSpy right(&w, &OVSamplesWidget::rightClicked);
    const double markerX = w.xAt(w.markers().first().time);
    QTest::mouseClick(&w, Qt::RightButton, {}, QPoint(int(std::lround(markerX)) + 2, 40));
    QTest::mouseClick(&w, Qt::RightButton, {}, QPoint(int(std::lround(markerX)) + 30, 40));
    QCOMPARE(right.size(), 2);
    QCOMPARE(right[0][1].toString(), QStringLiteral("m"));
    QCOMPARE(right[1][1].toString(), QString());
    QVERIFY(std::abs(right[1][0].toDouble() - w.timeAt(std::lround(markerX) + 30)) < 1e-9);
}

QTEST_MAIN(TestOVSamplesWidget)
#include "tst_ovsampleswidget.moc"
