#include "timeline/ovtimemapping.h"
#include "timeline/ovtimescalewidget.h"

#include <QMouseEvent>
#include <QSignalSpy>
#include <QTest>

class TstTimeMapping : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void conversion_data();
    void conversion();
    void cursorGrab_data();
    void cursorGrab();
    void scaleValue_data();
    void scaleValue();
    void rulerClick_data();
    void rulerClick();
};

void TstTimeMapping::conversion_data()
{
    QTest::addColumn<double>("left");
    QTest::addColumn<double>("offset");
    QTest::addColumn<double>("pps");
    QTest::addColumn<double>("time");
    QTest::addColumn<int>("x");

    QTest::newRow("segment start at 1 pps") << 150.0 << 0.0 << 1.0 << 10.0 << 160;
    QTest::newRow("scrolled") << 150.0 << 100.0 << 1.0 << 120.0 << 170;
    QTest::newRow("before the left edge") << 150.0 << 100.0 << 1.0 << 50.0 << 100;
    QTest::newRow("zoomed in") << 150.0 << 30.0 << 40.0 << 31.5 << 210;
    QTest::newRow("zoomed out") << 0.0 << 0.0 << 0.05 << 3600.0 << 180;
    QTest::newRow("zoomed out rounds") << 10.0 << 0.0 << 0.3 << 5.0 << 12; // 11.5 rounds up
    QTest::newRow("fractional zoom and offset") << 150.0 << 12.25 << 1.1 << 22.25 << 161;
}

void TstTimeMapping::conversion()
{
    QFETCH(double, left);
    QFETCH(double, offset);
    QFETCH(double, pps);
    QFETCH(double, time);
    QFETCH(int, x);
    const OVTimeMapping m{ left, offset, pps };
    QCOMPARE(m.xAt(time), x);
    // Back from the exact pixel to the time.
    QVERIFY(qAbs(m.timeAt(m.exactX(time)) - time) < 1e-9);
    QVERIFY(qAbs(m.timeAt(x) - time) <= 0.5 / pps + 1e-9);
}

void TstTimeMapping::cursorGrab_data()
{
    QTest::addColumn<double>("offset");
    QTest::addColumn<double>("pps");
    QTest::addColumn<double>("cursor");
    QTest::addColumn<int>("dx"); // press x relative to the cursor's exact x
    QTest::addColumn<bool>("grabs");

    const double pps[] = { 1.0, 1.1, 0.05, 37.5 };
    const double offsets[] = { 0.0, 12.34 };
    for (double p : pps) {
        for (double o : offsets) {
            const double cursor = o + 300.0 / p; // 300 px right of the left edge
            const QByteArray tag = QByteArray(QByteArray::number(p) + "pps_" + QByteArray::number(o) + "s");
            for (int dx : { 0, 2, -2, 3, -3, 40 }) // grabbed within two pixels either side
                QTest::addRow("%s dx %d", tag.constData(), dx) << o << p << cursor << dx << (qAbs(dx) <= 2);
            // The cursor one pixel left of the time area: a press there is on the name column.
            QTest::addRow("%s left of the area", tag.constData()) << o << p << (o - 1.0 / p) << 0 << false;
        }
    }
}

void TstTimeMapping::cursorGrab()
{
    QFETCH(double, offset);
    QFETCH(double, pps);
    QFETCH(double, cursor);
    QFETCH(int, dx);
    QFETCH(bool, grabs);
    const OVTimeMapping m{ 150.0, offset, pps };
    QCOMPARE(m.grabsCursor(m.exactX(cursor) + dx, cursor), grabs);
}

void TstTimeMapping::scaleValue_data()
{
    QTest::addColumn<double>("pps");
    QTest::newRow("one") << 1.0;
    QTest::newRow("fine") << 250.0;
    QTest::newRow("coarse") << 0.0123;
}

void TstTimeMapping::scaleValue()
{
    QFETCH(double, pps);
    QVERIFY(qFuzzyCompare(OVTimeScaleWidget::ppsForValue(OVTimeScaleWidget::valueForPps(pps)), pps));
}

void TstTimeMapping::rulerClick_data()
{
    QTest::addColumn<int>("pressX");
    QTest::addColumn<int>("releaseX");
    QTest::addColumn<double>("seekTo"); // -1: no seek
    QTest::addColumn<bool>("zooms");
    // The time area starts at x = 150 showing 20 s, at 10 pixels a second.
    QTest::newRow("click") << 250 << 250 << 30.0 << false;
    QTest::newRow("click with a tremble") << 250 << 252 << 30.2 << false;
    QTest::newRow("drag zooms") << 250 << 290 << -1.0 << true;
    QTest::newRow("at the left edge") << 150 << 150 << 20.0 << false;
    QTest::newRow("on the name column") << 100 << 100 << -1.0 << false;
}

void TstTimeMapping::rulerClick()
{
    QFETCH(int, pressX);
    QFETCH(int, releaseX);
    QFETCH(double, seekTo);
    QFETCH(bool, zooms);
    OVTimeScaleWidget scale;
    scale.resize(600, 22);
    scale.setMapping({ 150.0, 20.0, 10.0 });
    QSignalSpy seek(&scale, &OVTimeScaleWidget::seekRequested);
    QSignalSpy zoom(&scale, &OVTimeScaleWidget::valueChanged);
    auto send = [&scale](QEvent::Type type, int x, Qt::MouseButton button, Qt::MouseButtons held) {
        const QPointF at(x, 10);
        QMouseEvent event(type, at, scale.mapToGlobal(at), button, held, Qt::NoModifier);
        QCoreApplication::sendEvent(&scale, &event);
    };
    send(QEvent::MouseButtonPress, pressX, Qt::LeftButton, Qt::LeftButton);
    send(QEvent::MouseMove, (pressX + releaseX) / 2, Qt::NoButton, Qt::LeftButton);
    send(QEvent::MouseMove, releaseX, Qt::NoButton, Qt::LeftButton);
    send(QEvent::MouseButtonRelease, releaseX, Qt::LeftButton, Qt::NoButton);
    QCOMPARE(zoom.isEmpty(), !zooms);
    QCOMPARE(seek.size(), seekTo < 0 ? 0 : 1);
    if (seekTo >= 0)
        QVERIFY(qAbs(seek.first().first().toDouble() - seekTo) < 1e-9);
}

QTEST_MAIN(TstTimeMapping)
#include "tst_timemapping.moc"
