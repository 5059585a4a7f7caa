#include "widgets/ovvolumecontrol.h"
#include "widgets/ovvolumepopup.h"

#include <QCheckBox>
#include <QSignalSpy>
#include <QSlider>
#include <QTest>

class TestOVVolumeControl : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void sliderSetsTheVolume()
    {
        OVVolumePopup popup;
        QSignalSpy spy(&popup, &OVVolumePopup::volumeChanged);
        popup.slider()->setValue(10);
        QCOMPARE(spy.count(), 1);
        QVERIFY(qFuzzyCompare(popup.volume(), 0.5));
        popup.slider()->setValue(popup.slider()->maximum());
        QCOMPARE(popup.volume(), OVVolumePopup::MaxVolume);
        popup.onSliderVolumeChanged(5.0); // out of range: clamped, no change
        QCOMPARE(popup.volume(), OVVolumePopup::MaxVolume);
        QCOMPARE(spy.count(), 2);
        popup.setVolume(0.25);
        QCOMPARE(popup.slider()->value(), 5);
        QCOMPARE(spy.count(), 3);
    }

    void switchMutes()
    {
        OVVolumePopup popup;
        QSignalSpy spy(&popup, &OVVolumePopup::volumeChanged);
        popup.audioSwitch()->setChecked(false);
        QVERIFY(popup.isMuted());
        QCOMPARE(spy.count(), 1);
        popup.onSliderAudioToggled(false); // already off
        QCOMPARE(spy.count(), 1);
        popup.setMuted(false);
        QVERIFY(popup.audioSwitch()->isChecked());
        QCOMPARE(spy.count(), 2);
        // Muting keeps the volume for when sound comes back.
        QCOMPARE(popup.volume(), 1.0);
    }

    void controlForwardsAndShows()
    {
        OVVolumeControl control;
        control.show();
        QSignalSpy spy(&control, &OVVolumeControl::volumeChanged);
        control.setVolume(0.5);
        QCOMPARE(spy.count(), 1);
        QCOMPARE(control.text(), QStringLiteral("50%"));
        control.setMuted(true);
        QCOMPARE(spy.count(), 2);
        QCOMPARE(control.text(), QStringLiteral("Muted"));
        control.showPopup();
        QVERIFY(control.popup()->isVisible());
    }
};

QTEST_MAIN(TestOVVolumeControl)
#include "tst_ovvolumecontrol.moc"
