#include "widgets/ovspeedcontrol.h"
#include "widgets/ovspeedpopup.h"

#include <QSignalSpy>
#include <QTest>
#include <QWheelEvent>

class TestOVSpeedControl : public QObject
{
    Q_OBJECT

private:
    static void wheel(QWidget *w, int delta)
    {
        const QPointF at(w->width() / 2.0, w->height() / 2.0);
        QWheelEvent e(at, w->mapToGlobal(at), QPoint(), QPoint(0, delta), Qt::NoButton,
                      Qt::NoModifier, Qt::NoScrollPhase, false);
        QApplication::sendEvent(w, &e);
    }

private Q_SLOTS:
    void mapping_data()
    {
        QTest::addColumn<int>("height");
        QTest::addColumn<double>("y");
        QTest::addColumn<double>("speed");
        // Height 209: the track is 200 pixels from y = 5, mid = 100.
        QTest::newRow("top") << 209 << 5.0 << 2.0;
        QTest::newRow("quarter") << 209 << 55.0 << 1.5;
        QTest::newRow("middle") << 209 << 105.0 << 1.0;
        QTest::newRow("three quarters") << 209 << 155.0 << 0.75;
        QTest::newRow("bottom") << 209 << 205.0 << 0.5;
        QTest::newRow("odd height middle") << 160 << 80.5 << 1.0;
        QTest::newRow("odd height top") << 160 << 5.0 << 2.0;
        QTest::newRow("odd height bottom") << 160 << 156.0 << 0.5;
    }
    void mapping()
    {
        QFETCH(int, height);
        QFETCH(double, y);
        QFETCH(double, speed);
        QVERIFY(qFuzzyCompare(OVSpeedPopup::speedForY(y, height), speed));
        QVERIFY(qFuzzyCompare(OVSpeedPopup::yForSpeed(speed, height), y));
    }

    void setSpeedRules_data()
    {
        QTest::addColumn<double>("from");
        QTest::addColumn<double>("request");
        QTest::addColumn<double>("expected");
        QTest::addColumn<bool>("signalled");
        QTest::newRow("1.05 snaps to 1.0") << 1.5 << 1.05 << 1.0 << true;
        QTest::newRow("0.95 snaps to 1.0") << 0.5 << 0.95 << 1.0 << true;
        QTest::newRow("1.05 at 1.0 changes nothing") << 1.0 << 1.05 << 1.0 << false;
        QTest::newRow("3 clamps to 2.0") << 1.0 << 3.0 << 2.0 << true;
        QTest::newRow("0.1 clamps to 0.5") << 1.0 << 0.1 << 0.5 << true;
        QTest::newRow("0.9 is not snapped") << 1.0 << 0.9 << 0.9 << true;
        QTest::newRow("1.1 is not snapped") << 1.0 << 1.1 << 1.1 << true;
    }
    void setSpeedRules()
    {
        QFETCH(double, from);
        QFETCH(double, request);
        QFETCH(double, expected);
        QFETCH(bool, signalled);
        OVSpeedPopup popup;
        popup.setSpeed(from);
        QSignalSpy spy(&popup, &OVSpeedPopup::speedChanged);
        popup.setSpeed(request);
        QCOMPARE(popup.speed(), expected);
        QCOMPARE(spy.count(), signalled ? 1 : 0);
        if (signalled)
            QCOMPARE(spy.at(0).at(0).toDouble(), expected);
    }

    void wheelSteps()
    {
        OVSpeedPopup popup;
        popup.resize(48, 209);
        QSignalSpy spy(&popup, &OVSpeedPopup::speedChanged);
        wheel(&popup, -120);
        QCOMPARE(popup.speed(), 0.9); // 0.9 is not strictly above 0.9: no snap
        wheel(&popup, -120);
        QCOMPARE(popup.speed(), 0.9 * 0.9);
        wheel(&popup, 120);
        QVERIFY(qFuzzyCompare(popup.speed(), 0.9 * 0.9 * 1.1));
        // Back up to about 0.98: snaps to 1.0.
        wheel(&popup, 120);
        QCOMPARE(popup.speed(), 1.0);
        wheel(&popup, 120);
        QCOMPARE(popup.speed(), 1.1);
        QCOMPARE(spy.count(), 5);
        for (int i = 0; i < 20; ++i)
            wheel(&popup, 120);
        QCOMPARE(popup.speed(), 2.0);
    }

    void clickSetsTheSpeedFromThePointer()
    {
        OVSpeedPopup popup;
        popup.resize(48, 209);
        QSignalSpy spy(&popup, &OVSpeedPopup::speedChanged);
        QTest::mouseClick(&popup, Qt::LeftButton, Qt::NoModifier, QPoint(24, 155));
        QCOMPARE(popup.speed(), 0.75);
        QTest::mouseClick(&popup, Qt::RightButton, Qt::NoModifier, QPoint(24, 5)); // not a click on the track
        QCOMPARE(popup.speed(), 0.75);
        QCOMPARE(spy.count(), 1);
    }

    void controlForwardsAndShows()
    {
        OVSpeedControl control;
        control.show();
        QSignalSpy spy(&control, &OVSpeedControl::speedChanged);
        control.popup()->setSpeed(1.5);
        QCOMPARE(spy.count(), 1);
        QCOMPARE(spy.at(0).at(0).toDouble(), 1.5);
        QCOMPARE(control.text(), QStringLiteral("1.50x"));
        control.showPopup();
        QVERIFY(control.popup()->isVisible());
    }
};

QTEST_MAIN(TestOVSpeedControl)
#include "tst_ovspeedcontrol.moc"
